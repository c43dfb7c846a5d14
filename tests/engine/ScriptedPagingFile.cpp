#include "engine/ScriptedPagingFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "support/FailingNew.h"

using tcmalloc::IoSlice;

int ScriptedPagingFile::Calls::Next() {
  ++made;
  const bool fails = made >= m_failFrom && made - m_failFrom < m_failCount;
  failed += fails ? 1 : 0;
  return fails ? m_error : 0;
}

namespace {

/// Calls move(data, offset, bytes) for pieces that lie in one slice and one block.
/// @return bytes moved, at most `limit`
template <typename Move>
std::int64_t ForEachPiece(std::uint64_t offset, const IoSlice* slices, std::size_t count,
                          std::uint64_t limit, Move move) {
  std::uint64_t left = limit;
  for (const IoSlice* slice = slices; slice != slices + count; ++slice) {
    for (std::size_t done = 0; done < slice->size && left > 0;) {
      const auto here = static_cast<std::size_t>(std::min<std::uint64_t>(
          {slice->size - done, left,
           ScriptedPagingFile::kBlock - offset % ScriptedPagingFile::kBlock}));
      move(slice->data + done, offset, here);
      done += here;
      offset += here;
      left -= here;
    }
  }
  return static_cast<std::int64_t>(limit - left);
}

}  // namespace

std::int64_t ScriptedPagingFile::ReadSome(std::uint64_t offset, const IoSlice* slices,
                                          std::size_t count) {
  if (Interrupt()) {
    return -EINTR;
  }
  if (const int error = reads.Next()) {
    return -error;
  }
  const std::uint64_t toEnd = m_size - std::min(m_size, offset);
  return ForEachPiece(offset, slices, count, std::min<std::uint64_t>(toEnd, transferLimit),
                      [&](char* data, std::uint64_t at, std::size_t bytes) {
                        const auto block = m_blocks.find(at / kBlock);
                        if (block == m_blocks.end()) {
                          std::memset(data, 0, bytes);
                        } else {
                          std::memcpy(data, block->second.data() + at % kBlock, bytes);
                        }
                      });
}

std::int64_t ScriptedPagingFile::WriteSome(std::uint64_t offset, const IoSlice* slices,
                                           std::size_t count) {
  if (Interrupt()) {
    return -EINTR;
  }
  if (const int error = writes.Next()) {
    return -error;
  }
  const std::uint64_t room = diskBytes - std::min(diskBytes, offset);
  if (room == 0) {
    return -ENOSPC;
  }
  const FailingNew::Pause pause;
  const std::int64_t written =
      ForEachPiece(offset, slices, count, std::min<std::uint64_t>(room, transferLimit),
                   [&](const char* data, std::uint64_t at, std::size_t bytes) {
                     std::vector<char>& block = (loseWrites ? m_lost : m_blocks)[at / kBlock];
                     block.resize(kBlock);
                     std::memcpy(block.data() + at % kBlock, data, bytes);
                   });
  const std::uint64_t end = offset + static_cast<std::uint64_t>(written);
  m_size = std::max(m_size, end);
  writtenPastReserved += end > m_reserved ? 1 : 0;
  return written;
}

void ScriptedPagingFile::DeliverLost() {
  for (auto& [number, block] : m_lost) {
    m_blocks[number] = std::move(block);
  }
  m_lost.clear();
}

void ScriptedPagingFile::Prefetch(std::uint64_t offset, std::size_t bytes) {
  const FailingNew::Pause pause;
  expected.emplace_back(offset, bytes);
  readsAtLastExpected = reads.made;
}

int ScriptedPagingFile::Reserve(std::uint64_t begin, std::uint64_t end) {
  if (Interrupt()) {
    return EINTR;
  }
  if (const int error = reserves.Next()) {
    return error;
  }
  if (!reserveSupported) {
    return EOPNOTSUPP;
  }
  if (end > diskBytes || begin < m_reserved || begin >= end) {
    return end > diskBytes ? ENOSPC : EINVAL;
  }
  reservedBytes += end - begin;
  m_reserved = std::max(m_reserved, end);
  m_size = std::max(m_size, end);
  return 0;
}

int ScriptedPagingFile::Discard(std::uint64_t offset, std::size_t bytes) {
  if (!discardSupported) {
    return EOPNOTSUPP;
  }
  const FailingNew::Pause pause;
  discarded.emplace_back(offset, bytes);
  m_blocks.erase(m_blocks.lower_bound(offset / kBlock),
                 m_blocks.lower_bound((offset + bytes) / kBlock));
  return 0;
}

int ScriptedPagingFile::Truncate(std::uint64_t size) {
  m_size = size;
  m_reserved = std::min(m_reserved, size);
  m_blocks.erase(m_blocks.lower_bound((size + kBlock - 1) / kBlock), m_blocks.end());
  return 0;
}
