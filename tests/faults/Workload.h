#ifndef TESTS_FAULTS_WORKLOAD_H
#define TESTS_FAULTS_WORKLOAD_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "QRTVirtualMemoryMgr.h"

/// What a workload asks of the library goes through here: it runs armed, and may fail in the ways
/// that are documented, with a reason, while faults are possible.
class Trial {
 public:
  enum class Failure { eNone, eNull, eNoMemory, eOutOfMemoryError, eOtherError };

  /// Makes a call of the library.
  /// @param call  returns whether it succeeded: false for a null, which has to have a reason
  /// @return whether it did; the test fails for an error that no contract names, and for any
  ///         failure while nothing can have gone wrong
  bool attempt(const std::function<bool()>& call);

  /// Why the last call failed.
  Failure failure() const { return m_failure; }

  std::size_t failed() const { return m_failed; }  ///< calls that failed so far

  QRTVirtualMemoryMgr* manager =
      nullptr;              // whose last error is the reason; null while there is none
  bool mayFail = false;     // whether faults are possible
  bool needsReason = true;  // false where the heap fails: what is raised says it all

 private:
  Failure m_failure = Failure::eNone;
  std::size_t m_failed = 0;
};

/// A small program over one manager that knows what it has stored. Deterministic: the same calls
/// in every run, up to the first failure.
class Workload {
 public:
  virtual ~Workload() = default;

  /// Makes, changes and gives up things, and goes on whatever fails.
  virtual void run(Trial& trial) = 0;

  /// Gives what is there another content.
  virtual void change(Trial& trial) = 0;

  /// Compares everything; what can be read has to be what was stored.
  virtual void check(Trial& trial) = 0;

  /// Gives everything back to the manager.
  virtual void end(Trial& trial) = 0;

  /// Whether what cannot be read when it is to be freed is left to the manager's end.
  virtual bool leavesUnreadable() const { return false; }
};

/// How a workload is set up.
struct WorkloadKind {
  const char* name;
  unsigned int budgetFrames;      // budget in frames of 4 KiB
  std::uint16_t firstGeneration;  // a high one makes pages retire
  std::unique_ptr<Workload> (*make)(QRTVirtualMemoryMgr& manager);
  bool isEncrypted = false;
};

inline std::ostream& operator<<(std::ostream& os, const WorkloadKind& kind) {
  return os << kind.name;
}

std::unique_ptr<Workload> makeObjects(QRTVirtualMemoryMgr& manager);
std::unique_ptr<Workload> makeLargeObjects(QRTVirtualMemoryMgr& manager);
std::unique_ptr<Workload> makeStrings(QRTVirtualMemoryMgr& manager);
std::unique_ptr<Workload> makeTree(QRTVirtualMemoryMgr& manager);
std::unique_ptr<Workload> makeScratchFile(QRTVirtualMemoryMgr& manager);
std::unique_ptr<Workload> makeContainers(QRTVirtualMemoryMgr& manager);
std::unique_ptr<Workload> makeCompressingFile(QRTVirtualMemoryMgr& manager);

inline const WorkloadKind kWorkloads[] = {
    {"Objects", 16, 1, makeObjects},         {"LargeObjects", 40, 0xFFF0, makeLargeObjects},
    {"Strings", 8, 1, makeStrings},          {"Tree", 6, 1, makeTree},
    {"ScratchFile", 10, 1, makeScratchFile}, {"CompressingFile", 10, 1, makeCompressingFile},
    {"Containers", 12, 1, makeContainers},   {"Encrypted", 16, 1, makeObjects, true},
};

/// Makes one of each kind of object, changes and frees it: after any fault this has to work.
void useOnce(Trial& trial, QRTVirtualMemoryMgr& manager);

#endif  // TESTS_FAULTS_WORKLOAD_H
