#include "WordIndex.h"

#include <algorithm>
#include <stdexcept>

#include "QRTVirtualUTF8Reader.h"
#include "QRTVirtualUTF8String.h"

namespace example {

namespace {

// A chunk begins with room for 4 line numbers, 32 bytes in all; each further one of a word has
// twice the bytes, up to a page, so that rare words take little room and frequent ones few chunks.
constexpr std::uint32_t kFirstCapacity = 4;
constexpr std::uint32_t kLargestCapacity = 1020;

// Only 2^26 directory entries could tell apart more words than 2^32 lines hold in any language.
constexpr std::uint32_t kLargestDepth = 26;

// FNV-1a, its two halves folded.
std::uint32_t hashOf(std::string_view word) {
  std::uint64_t hash = 0xCBF29CE484222325U;
  for (const char byte : word) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3U;
  }
  return static_cast<std::uint32_t>(hash ^ (hash >> 32U));
}

}  // namespace

WordIndex::WordIndex(QRTVirtualMemoryMgr& manager)
    : m_manager(manager), m_records(manager), m_directory(1, storeValue(manager, Bucket())) {}

std::uint64_t& WordIndex::bucketOf(std::uint32_t hash) {
  return m_directory[hash & (m_directory.size() - 1)];
}

void WordIndex::add(std::string_view word, std::uint32_t line) {
  const std::uint32_t hash = hashOf(word);
  std::uint32_t number = findHashed(word, hash);
  if (number == kNone) {
    number = insert(word, hash);
  }
  WordRecord record = m_records.get(number);
  if (record.lines == 0) {
    record.firstLine = line;
    record.lines = 1;
  } else if (record.lastLine != line) {
    appendLine(record, line);
    ++record.lines;
  }
  record.lastLine = line;
  ++record.occurrences;
  m_records.set(number, record);
}

std::uint32_t WordIndex::find(std::string_view word) const {
  return findHashed(word, hashOf(word));
}

std::uint32_t WordIndex::findHashed(std::string_view word, std::uint32_t hash) const {
  const auto bucket =
      pinValue<const Bucket>(m_manager, m_directory[hash & (m_directory.size() - 1)]);
  for (std::uint32_t i = 0; i < bucket->used; ++i) {
    const Entry& entry = bucket->entries[i];
    if (entry.hash == hash) {
      const QRTVirtualUTF8String text(m_records.get(entry.word).text);
      if (text.isEqual(word, &m_manager) != 0) {
        return entry.word;
      }
    }
  }
  return kNone;
}

// 1. Split the word's bucket until there is room in it.
// 2. Store the word and its record, which has no lines yet.
// 3. Enter it into the bucket. Nothing can fail from here on.
std::uint32_t WordIndex::insert(std::string_view word, std::uint32_t hash) {
  // Step 1
  const auto isFull = [&] {
    return pinValue<const Bucket>(m_manager, bucketOf(hash))->used == Bucket().entries.size();
  };
  while (isFull()) {
    split(hash);
  }
  // Step 2
  WordRecord record;
  QRTVirtualUTF8String text;
  text.setString(word, &m_manager);
  record.text = text;
  const std::uint32_t number = size();
  m_records.push_back(record);
  // Step 3
  const auto bucket = pinValue<Bucket>(m_manager, bucketOf(hash));
  bucket->entries[bucket->used++] = {hash, number};
  return number;
}

// 1. Double the directory if it has only one entry for the bucket.
// 2. Sort the bucket's entries by the next bit into it and a new bucket.
// 3. Lead every second of the directory's entries for the bucket to the new one.
void WordIndex::split(std::uint32_t hash) {
  const auto pin = pinValue<Bucket>(m_manager, bucketOf(hash));
  Bucket& bucket = *pin;
  // Step 1
  if (bucket.depth == m_depth) {
    if (m_depth == kLargestDepth) {
      throw std::length_error("the word table is full");
    }
    const std::size_t half = m_directory.size();
    m_directory.resize(2 * half);
    std::copy_n(m_directory.begin(), half, m_directory.begin() + static_cast<std::ptrdiff_t>(half));
    ++m_depth;
  }
  // Step 2
  const std::uint32_t bit = 1U << bucket.depth;
  Bucket zeros;
  Bucket ones;
  zeros.depth = ones.depth = bucket.depth + 1;
  for (std::uint32_t i = 0; i < bucket.used; ++i) {
    Bucket& into = (bucket.entries[i].hash & bit) == 0 ? zeros : ones;
    into.entries[into.used++] = bucket.entries[i];
  }
  const std::uint64_t onesOffset = storeValue(m_manager, ones);
  bucket = zeros;
  // Step 3
  for (std::size_t i = (hash & (bit - 1)) | bit; i < m_directory.size();
       i += 2 * std::size_t{bit}) {
    m_directory[i] = onesOffset;
  }
}

std::uint64_t WordIndex::makeChunk(std::uint32_t capacity, std::uint32_t line) {
  QRTVirtualPageItem item;
  const auto bytes =
      static_cast<unsigned int>(sizeof(LineChunk) + capacity * sizeof(std::uint32_t));
  const auto chunk = QRTVirtualPin<LineChunk>::alloc(m_manager, bytes, item);
  *chunk = {0, 1, capacity};
  chunk->lines()[0] = line;
  return item.getOffset();
}

void WordIndex::appendLine(WordRecord& record, std::uint32_t line) {
  if (record.lastChunk == 0) {
    record.firstChunk = record.lastChunk = makeChunk(kFirstCapacity, line);
    return;
  }
  const auto chunk = pinValue<LineChunk>(m_manager, record.lastChunk);
  if (chunk->used < chunk->capacity) {
    chunk->lines()[chunk->used++] = line;
  } else {
    // 16 bytes of a chunk are not line numbers: 4, 12, 28 ... double the bytes.
    chunk->next = makeChunk(std::min(kLargestCapacity, 2 * chunk->capacity + 4), line);
    record.lastChunk = chunk->next;
  }
}

std::string WordIndex::text(std::uint32_t word) const {
  const QRTVirtualUTF8String text(record(word).text);
  return std::string(QRTVirtualUTF8Reader(text, &m_manager).view());
}

void WordIndex::forEachLine(std::uint32_t word,
                            const std::function<bool(std::uint32_t)>& visit) const {
  const WordRecord found = record(word);
  if (found.lines == 0 || !visit(found.firstLine)) {
    return;
  }
  for (std::uint64_t offset = found.firstChunk; offset != 0;) {
    const auto chunk = pinValue<const LineChunk>(m_manager, offset);
    for (std::uint32_t i = 0; i < chunk->used; ++i) {
      if (!visit(chunk->lines()[i])) {
        return;
      }
    }
    offset = chunk->next;
  }
}

}  // namespace example
