#ifndef EXAMPLES_FILESTORE_FILECATALOGUE_H
#define EXAMPLES_FILESTORE_FILECATALOGUE_H

#include <cstdint>
#include <deque>
#include <string>

#include "QRTVirtualMemoryMgr.h"
#include "SourceFile.h"

namespace example {

/// The files to store. Their paths live in the store as pooled items, directory and name apart:
/// neighbours share the one, and names such as "copyright" are shared across directories.
class FileCatalogue {
 public:
  /// @param manager  keeps the paths; must outlive the catalogue
  explicit FileCatalogue(QRTVirtualMemoryMgr& manager) : m_manager(manager) {}

  FileCatalogue(const FileCatalogue&) = delete;
  FileCatalogue& operator=(const FileCatalogue&) = delete;

  /// Adds a file. Throws what the manager throws when the store is full.
  void add(const std::string& directory, const std::string& name, const FileStatus& status);

  std::size_t size() const { return m_files.size(); }

  /// Bytes of all files, as of when they were added or last remembered.
  std::uint64_t bytes() const { return m_bytes; }

  /// Fetches a file's path out of the store.
  /// @return whether the path came back intact; if not, `path` says which file it was
  bool readPath(std::size_t file, std::string& path) const;

  /// Remembers what a file looked like when its content was read.
  void remember(std::size_t file, const FileStatus& status);

  /// Whether a file's size and time are still those remembered.
  bool looksUnchanged(std::size_t file, const FileStatus& status) const;

 private:
  struct FileRecord {
    QRTVirtualPageItem directory;  // the directory's path
    QRTVirtualPageItem name;       // the file's name in it
    std::uint64_t pathChecksum;    // of the whole path
    std::uint64_t size;            // bytes
    std::int64_t modified;         // time of the last change, in nanoseconds
  };

  bool appendText(const QRTVirtualPageItem& item, std::string& text) const;

  QRTVirtualMemoryMgr& m_manager;  // not owned
  std::deque<FileRecord> m_files;  // a deque grows without ever holding a second copy of itself
  std::uint64_t m_bytes = 0;       // the files' sizes together
};

}  // namespace example

#endif  // EXAMPLES_FILESTORE_FILECATALOGUE_H
