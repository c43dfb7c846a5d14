#ifndef EXAMPLES_FILESTORE_FILESTORE_H
#define EXAMPLES_FILESTORE_FILESTORE_H

#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "FileCatalogue.h"
#include "ProblemLog.h"
#include "ProgressBar.h"
#include "Stopwatch.h"
#include "UpdatePattern.h"

namespace example {

/// One object of the store: a part of a file.
struct StoredObject {
  QRTVirtualPageItem item;  ///< names the object; its size is the part's size
  std::uint64_t checksum;   ///< of the part as it was read from the file
  std::uint32_t file;       ///< the file's number in the catalogue
  std::uint32_t part;       ///< which part of the file it is, counted from 0
};

/// Puts the content of the catalogued files into the store, and updates it there. What the process
/// itself keeps of an object is the 32 bytes of StoredObject.
class FileStore {
 public:
  static constexpr std::size_t kPartBytes = std::size_t{1} << 20;  ///< largest object

  FileStore(QRTVirtualMemoryMgr& manager, FileCatalogue& catalogue);

  FileStore(const FileStore&) = delete;
  FileStore& operator=(const FileStore&) = delete;

  /// Stores every file of the catalogue; an empty file becomes one object of 0 bytes. Files that
  /// cannot be read are noted. Throws what the manager throws when the store is full; everything
  /// stored before stays.
  void storeFiles(ProgressBar& progress);

  /// Updates one object in place.
  /// @return whether the object could be pinned
  bool update(std::size_t object, const UpdatePattern& pattern);

  const std::deque<StoredObject>& objects() const { return m_objects; }

  std::uint64_t bytes() const { return m_bytes; }                ///< bytes stored
  double secondsInStore() const { return m_inStore.seconds(); }  ///< time storing them took
  const ProblemLog& lostPaths() const { return m_lostPaths; }    ///< paths the store damaged
  const ProblemLog& unreadable() const { return m_unreadable; }  ///< files not stored
  const ProblemLog& unsettled() const { return m_unsettled; }    ///< changed while being read

 private:
  void storeFile(std::size_t file, ProgressBar& progress);
  void storePart(std::size_t file, std::uint32_t part, std::size_t size);

  QRTVirtualMemoryMgr& m_manager;         // not owned
  FileCatalogue& m_catalogue;             // not owned
  std::unique_ptr<std::byte[]> m_buffer;  // one part on its way from the file
  std::deque<StoredObject> m_objects;     // the parts of a file stand together, in order
  std::uint64_t m_bytes = 0;              // the objects' sizes together
  Stopwatch m_inStore;                    // runs while the store works
  ProblemLog m_lostPaths;                 // files whose path did not come back
  ProblemLog m_unreadable;                // files that could not be read
  ProblemLog m_unsettled;                 // files that changed while they were read
};

}  // namespace example

#endif  // EXAMPLES_FILESTORE_FILESTORE_H
