#ifndef EXAMPLES_COMMON_STORESTATISTICS_H
#define EXAMPLES_COMMON_STORESTATISTICS_H

#include <cstdint>
#include <string>

class QRTVirtualMemoryMgr;

namespace example {

/// The figures of a manager's statistics dump, taken from its text.
struct StoreStatistics {
  std::uint64_t pageSize = 0;        ///< bytes of a page
  std::uint64_t pagingFileSize = 0;  ///< bytes of the paging file; 0 when none was needed
  std::uint64_t currentObjects = 0;  ///< objects allocated now
  std::uint64_t pageReads = 0;       ///< pages read from the paging file
  std::uint64_t pageWrites = 0;      ///< pages written to it
  std::uint64_t pageOuts = 0;        ///< pages that left memory
  std::uint64_t pinnedObjects = 0;   ///< objects still pinned

  /// Pages that left memory without being written because the file held them already.
  std::uint64_t writesSaved() const { return pageOuts > pageWrites ? pageOuts - pageWrites : 0; }
};

/// Reads the statistics out of the text of a dump.
/// @throws std::runtime_error when a line that every dump has is missing
StoreStatistics parseStatistics(const std::string& dump);

/// Takes a dump of the manager and reads it.
StoreStatistics readStatistics(QRTVirtualMemoryMgr& manager);

}  // namespace example

#endif  // EXAMPLES_COMMON_STORESTATISTICS_H
