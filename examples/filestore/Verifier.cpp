#include "Verifier.h"

#include <algorithm>
#include <cstring>

#include "Checksum.h"
#include "QRTVirtualPin.h"

namespace example {

Verifier::Verifier(QRTVirtualMemoryMgr& manager, const FileCatalogue& catalogue,
                   const FileStore& store)
    : m_manager(manager),
      m_catalogue(catalogue),
      m_store(store),
      m_buffer(std::make_unique_for_overwrite<std::byte[]>(FileStore::kPartBytes)) {}

void Verifier::verify(const std::vector<std::uint32_t>& order, const UpdatePattern* updates,
                      ProgressBar& progress) {
  for (const std::uint32_t object : order) {
    verifyObject(object, updates);
    progress.advance(1);
  }
}

void Verifier::Findings::add(std::size_t object, const std::string& subject,
                             const std::string& problem) {
  if (objects.insert(object).second) {
    log.add(subject, problem);
  }
}

/// Checks one object:
/// 1. fetch the file's path out of the store,
/// 2. read the part's content from the file and bring it up to date,
/// 3. compare it with the object,
/// 4. when they differ, find out which of the two is not what was stored.
void Verifier::verifyObject(std::size_t object, const UpdatePattern* updates) {
  const StoredObject& stored = m_store.objects()[object];
  const bool updated = updates != nullptr && updates->selects(object);

  // Step 1
  std::string path;
  const bool pathIntact = m_catalogue.readPath(stored.file, path);
  const std::string name = path + ", part " + std::to_string(stored.part);
  if (!pathIntact) {
    m_mismatches.log.add(name, "the path is not what was stored");
  }

  // Step 2
  std::string state = "content differs, size and time do not";
  const std::size_t expectedSize = pathIntact ? readExpected(path, stored, state) : 0;
  if (updated) {
    updates->apply(object, m_buffer.get(), expectedSize);
  }

  // Step 3
  const Comparison found = compare(object, expectedSize, updated ? updates : nullptr);
  if (!found.readable) {
    m_mismatches.add(object, name + ", byte 0",
                     std::string("cannot be read back: ") + m_manager.getLastStoreError());
    return;
  }
  m_bytes += stored.item.getSize();

  // Step 4
  if (!found.equal && !found.intact) {
    const std::uint64_t start = std::uint64_t{stored.part} * FileStore::kPartBytes;
    m_mismatches.add(object,
                     name + ", byte " + std::to_string(found.differsAt) + " (byte " +
                         std::to_string(start + found.differsAt) + " of the file)",
                     "not what was stored (the file: " + state + ")");
  } else if (!found.equal && pathIntact) {
    m_changed.add(object, name, state);
  }
}

/// Reads an object's part of the file into the buffer.
/// @param state  receives what is wrong with the file; left alone when it looks as it did
std::size_t Verifier::readExpected(const std::string& path, const StoredObject& object,
                                   std::string& state) {
  SourceFile source;
  FileStatus status;
  if (!source.open(path) || !source.readStatus(status)) {
    state = "cannot be read any more: " + source.error();
    return 0;
  }
  if (!m_catalogue.looksUnchanged(object.file, status)) {
    state = "has changed since it was stored";
  }
  const std::uint64_t offset = std::uint64_t{object.part} * FileStore::kPartBytes;
  const std::size_t size = source.read(offset, m_buffer.get(), object.item.getSize());
  if (!source.error().empty()) {
    state = "cannot be read any more: " + source.error();
  }
  return size;
}

/// Compares an object with the buffer. When they differ the buffer is used to work out the object's
/// content as it was stored.
Verifier::Comparison Verifier::compare(std::size_t object, std::size_t expectedSize,
                                       const UpdatePattern* updates) {
  const StoredObject& stored = m_store.objects()[object];
  Comparison found;
  m_inStore.start();
  const QRTVirtualPin<std::byte> pinned(m_manager, stored.item);
  const std::size_t size = stored.item.getSize();
  found.readable = pinned.get() != nullptr;
  const std::size_t common = std::min(size, expectedSize);
  found.equal = found.readable && expectedSize == size &&
                std::memcmp(pinned.get(), m_buffer.get(), common) == 0;
  m_inStore.stop();
  if (!found.readable || found.equal) {
    return found;
  }

  found.differsAt = static_cast<std::size_t>(
      std::mismatch(pinned.get(), pinned.get() + common, m_buffer.get()).first - pinned.get());
  std::memcpy(m_buffer.get(), pinned.get(), size);
  if (updates != nullptr) {
    updates->apply(object, m_buffer.get(), size);
  }
  found.intact = checksum(m_buffer.get(), size) == stored.checksum;
  return found;
}

}  // namespace example
