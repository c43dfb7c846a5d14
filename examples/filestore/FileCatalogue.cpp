#include "FileCatalogue.h"

#include "Checksum.h"
#include "QRTVirtualPin.h"

namespace example {

void FileCatalogue::add(const std::string& directory, const std::string& name,
                        const FileStatus& status) {
  const std::string prefix = directory.back() == '/' ? directory : directory + '/';
  const std::string path = prefix + name;
  FileRecord record{};
  m_manager.allocUsingPool(prefix.data(), static_cast<unsigned int>(prefix.size()),
                           record.directory);
  m_manager.allocUsingPool(name.data(), static_cast<unsigned int>(name.size()), record.name);
  record.pathChecksum = checksum(path.data(), path.size());
  record.size = status.size;
  record.modified = status.modified;
  m_files.push_back(record);
  m_bytes += status.size;
}

bool FileCatalogue::readPath(std::size_t file, std::string& path) const {
  const FileRecord& record = m_files[file];
  path.clear();
  if (appendText(record.directory, path) && appendText(record.name, path) &&
      checksum(path.data(), path.size()) == record.pathChecksum) {
    return true;
  }
  path = "file number " + std::to_string(file) + " (its path reads '" + path + "')";
  return false;
}

void FileCatalogue::remember(std::size_t file, const FileStatus& status) {
  FileRecord& record = m_files[file];
  m_bytes = m_bytes - record.size + status.size;
  record.size = status.size;
  record.modified = status.modified;
}

bool FileCatalogue::looksUnchanged(std::size_t file, const FileStatus& status) const {
  const FileRecord& record = m_files[file];
  return record.size == status.size && record.modified == status.modified;
}

bool FileCatalogue::appendText(const QRTVirtualPageItem& item, std::string& text) const {
  const QRTVirtualPin<const char> pinned(m_manager, item);
  if (!pinned) {
    return false;
  }
  text.append(pinned.get(), item.getSize());
  return true;
}

}  // namespace example
