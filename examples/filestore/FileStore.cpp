#include "FileStore.h"

#include <algorithm>
#include <cstring>

#include "Checksum.h"
#include "QRTVirtualPin.h"

namespace example {

FileStore::FileStore(QRTVirtualMemoryMgr& manager, FileCatalogue& catalogue)
    : m_manager(manager),
      m_catalogue(catalogue),
      m_buffer(std::make_unique_for_overwrite<std::byte[]>(kPartBytes)) {}

void FileStore::storeFiles(ProgressBar& progress) {
  for (std::size_t file = 0; file < m_catalogue.size(); ++file) {
    storeFile(file, progress);
  }
}

void FileStore::storeFile(std::size_t file, ProgressBar& progress) {
  std::string path;
  FileStatus before;
  SourceFile source;
  if (!m_catalogue.readPath(file, path)) {
    m_lostPaths.add(path, m_manager.getLastStoreError());
    return;
  }
  if (!source.open(path) || !source.readStatus(before)) {
    m_unreadable.add(path, source.error());
    return;
  }
  m_catalogue.remember(file, before);

  // An empty file makes one part as well: it comes back as an object of 0 bytes.
  std::uint64_t offset = 0;
  std::uint32_t part = 0;
  do {
    const auto wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(kPartBytes, before.size - offset));
    const std::size_t got = source.read(offset, m_buffer.get(), wanted);
    if (!source.error().empty()) {
      m_unreadable.add(path + " from byte " + std::to_string(offset + got), source.error());
      return;
    }
    storePart(file, part++, got);
    progress.advance(got);
    offset += got;
    if (got < wanted) {
      break;
    }
  } while (offset < before.size);

  FileStatus after;
  if (offset < before.size || !source.readStatus(after) ||
      !m_catalogue.looksUnchanged(file, after)) {
    m_unsettled.add(path, "what was read of it is stored");
  }
}

void FileStore::storePart(std::size_t file, std::uint32_t part, std::size_t size) {
  StoredObject object{};
  object.checksum = checksum(m_buffer.get(), size);
  object.file = static_cast<std::uint32_t>(file);
  object.part = part;

  m_inStore.start();
  void* address = m_manager.alloc(static_cast<unsigned int>(size), object.item);
  std::memcpy(address, m_buffer.get(), size);
  m_manager.dismiss(object.item);
  m_inStore.stop();

  m_objects.push_back(object);
  m_bytes += size;
}

bool FileStore::update(std::size_t object, const UpdatePattern& pattern) {
  const QRTVirtualPin<std::byte> pinned(m_manager, m_objects[object].item);
  if (!pinned) {
    return false;
  }
  pattern.apply(object, pinned.get(), m_objects[object].item.getSize());
  return true;
}

}  // namespace example
