#ifndef TESTS_SUPPORT_RECORDINGENGINE_H
#define TESTS_SUPPORT_RECORDINGENGINE_H

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "libtcmalloc_virtualmm/VirtualMemoryPool.h"

/// What the recording engine, which stands in for the paging engine at link time, was asked to do
/// and is to answer. There is one for the program; each test begins with a fresh one. Objects get
/// the offsets 1, 2, 3 ... in the order of their allocation.
struct EngineRecord {
  struct Object {
    std::vector<unsigned char> bytes;
    unsigned int pins;
  };

  // What happened. Calls read like "GetAddress(1, true)"; statistics calls are not recorded.
  std::vector<std::string> calls;
  std::map<std::uint64_t, Object> objects;
  std::string directory;
  bool encrypted = false;  // whether the engine was to encrypt

  // What to answer.
  std::function<void()> onConstruct;   // runs in the engine's constructor, may throw
  bool refuseAllocate = false;         // Allocate gives null and spoils its handle
  bool refuseGetAddress = false;       // GetAddress gives null
  std::set<std::uint64_t> unreadable;  // objects for which GetAddress gives null
  int allocateUntilRefused = -1;       // objects until Allocate gives null as above; -1 for never
  int pinsUntilRefused = -1;           // pins until one GetAddress gives null; -1 for never
  std::vector<unsigned char> stats;    // the bytes of the statistics record
  std::string lastError;
  std::string budgetExcess;
  bool canEncrypt = true;

  /// Starts afresh.
  static EngineRecord& reset();

  /// @return the one record
  static EngineRecord& get();

  /// @return the calls since the last take
  std::vector<std::string> take();

  /// @return the content of an object as text
  std::string text(std::uint64_t offset) const;
};

#endif  // TESTS_SUPPORT_RECORDINGENGINE_H
