#ifndef EXAMPLES_FILESTORE_VERIFIER_H
#define EXAMPLES_FILESTORE_VERIFIER_H

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "FileCatalogue.h"
#include "FileStore.h"
#include "ProblemLog.h"
#include "ProgressBar.h"
#include "Stopwatch.h"
#include "UpdatePattern.h"

namespace example {

/// Compares what the store gives back with the files. When the two differ, the checksum taken while
/// storing tells who is at fault: a store that still holds what it was given is intact and the file
/// has changed since; anything else is a mismatch, whatever happened to the file.
class Verifier {
 public:
  Verifier(QRTVirtualMemoryMgr& manager, const FileCatalogue& catalogue, const FileStore& store);

  /// Checks every object.
  /// @param order    the objects' numbers in the order to check them in
  /// @param updates  the updates made so far; null when none were
  void verify(const std::vector<std::uint32_t>& order, const UpdatePattern* updates,
              ProgressBar& progress);

  std::uint64_t bytes() const { return m_bytes; }                    ///< bytes read back
  double secondsInStore() const { return m_inStore.seconds(); }      ///< time reading back took
  const ProblemLog& mismatches() const { return m_mismatches.log; }  ///< objects the store damaged
  const ProblemLog& changed() const { return m_changed.log; }        ///< objects whose file changed

 private:
  /// What comparing an object with its file showed.
  struct Comparison {
    bool readable = false;      // whether the store gave the object back
    bool equal = false;         // whether it is what the file says
    bool intact = false;        // whether it is what was stored; looked at only when not equal
    std::size_t differsAt = 0;  // first byte that differs from the file
  };

  /// Objects with a problem, each noted once however often it is verified.
  struct Findings {
    void add(std::size_t object, const std::string& subject, const std::string& problem);

    std::set<std::size_t> objects;  // the objects noted so far
    ProblemLog log;                 // what is wrong with them
  };

  void verifyObject(std::size_t object, const UpdatePattern* updates);
  std::size_t readExpected(const std::string& path, const StoredObject& object, std::string& state);
  Comparison compare(std::size_t object, std::size_t expectedSize, const UpdatePattern* updates);

  QRTVirtualMemoryMgr& m_manager;         // not owned
  const FileCatalogue& m_catalogue;       // not owned
  const FileStore& m_store;               // not owned
  std::unique_ptr<std::byte[]> m_buffer;  // one part as the file has it
  std::uint64_t m_bytes = 0;              // bytes read back
  Stopwatch m_inStore;                    // runs while the store gives back and we compare
  Findings m_mismatches;                  // objects that are not what was stored
  Findings m_changed;                     // objects whose files are not what was stored
};

}  // namespace example

#endif  // EXAMPLES_FILESTORE_VERIFIER_H
