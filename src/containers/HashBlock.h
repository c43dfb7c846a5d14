#ifndef SRC_CONTAINERS_HASHBLOCK_H
#define SRC_CONTAINERS_HASHBLOCK_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

/// How the records of a table look: a value of fixed size, then a key. Keys of different lengths
/// have theirs behind them, two bytes.
struct HashRecordShape {
  std::uint32_t valueBytes;
  std::uint32_t keyBytes;  // 0 for keys of different lengths

  bool isFixed() const { return keyBytes != 0; }

  /// Bytes that a record takes with such a key, without its tag.
  std::uint32_t bytesWith(std::uint32_t bytesOfKey) const {
    return valueBytes + bytesOfKey + (isFixed() ? 0 : kLengthBytes);
  }

  static constexpr std::uint32_t kLengthBytes = 2;
};

/// One record where it lies.
struct HashRecord {
  const unsigned char* begin;  // its value, which the key follows
  const unsigned char* key;
  std::uint32_t keyBytes;
  std::uint32_t bytes;  // all of it
};

/// A block of a bucket, an object of the store that is filled from both ends:
///
///     byte  0..7    offset of the bucket's next block; 0 for none
///     byte  8..11   bytes of the block
///     byte 12..15   byte at which the records begin
///     byte 16..19   number of records
///     byte 20...    a tag for each record, oldest first: 8 bits of the hash of its key
///     ...           free
///     ... bytes-1   the records, oldest last
///
/// A lookup scans the tags, which share a cache line or two, and looks at a record when its tag
/// fits, which of others one in 256 does.
struct HashBlock {
  std::uint64_t next;
  std::uint32_t bytes;
  std::uint32_t recordsBegin;
  std::uint32_t count;

  static constexpr std::uint32_t kTags = 20;

  static unsigned char tagOf(std::uint64_t hash) { return static_cast<unsigned char>(hash >> 56); }

  /// The size of a block for so many bytes of records and tags. Up to two pages these are the
  /// slots that 4 KiB pages are cut into without a rest, and most buckets share one page with
  /// four or more others: a lookup that misses memory reads that page and nothing else.
  static std::uint32_t sizeFor(std::uint32_t content) {
    static constexpr std::uint16_t kSizes[] = {40,  56,  72,  104, 136,  184,  240, 296,
                                               392, 488, 664, 808, 1000, 1352, 2024};
    const std::uint32_t least = kTags + content;
    for (const std::uint16_t size : kSizes) {
      if (size >= least) {
        return size;
      }
    }
    return (least + 7) / 8 * 8;
  }

  /// The most that a block may hold of records like one of `record` bytes: two pages, but four
  /// records, so that only buckets with an unlikely crowd in them have a second block.
  static std::uint32_t mostContent(std::uint32_t record) {
    constexpr std::uint32_t kTwoPagesInFour = 2024 - kTags;
    const std::uint32_t four = 4 * (record + 1);
    return four > kTwoPagesInFour ? four : kTwoPagesInFour;
  }

  void makeEmpty(std::uint32_t size) {
    next = 0;
    bytes = size;
    recordsBegin = size;
    count = 0;
  }

  std::uint32_t recordBytes() const { return bytes - recordsBegin; }
  std::uint32_t content() const { return count + recordBytes(); }
  bool hasRoomFor(std::uint32_t record) const { return recordsBegin - kTags - count >= record + 1; }

  /// The record behind `end` in the order of age: its last byte is the one before `end`.
  HashRecord recordBefore(const HashRecordShape& shape, const unsigned char* end) const {
    std::uint32_t keyBytes = shape.keyBytes;
    if (!shape.isFixed()) {
      std::uint16_t length = 0;
      std::memcpy(&length, end - HashRecordShape::kLengthBytes, sizeof length);
      keyBytes = length;
    }
    const std::uint32_t size = shape.bytesWith(keyBytes);
    const unsigned char* const begin = end - size;
    return {begin, begin + shape.valueBytes, keyBytes, size};
  }

  /// Record number `index`. Cost: O(1) when keys have one length, else O(index).
  HashRecord record(const HashRecordShape& shape, std::uint32_t index) const {
    const unsigned char* end = base() + bytes;
    if (shape.isFixed()) {
      return recordBefore(shape, end - std::size_t{index} * shape.bytesWith(shape.keyBytes));
    }
    HashRecord found = recordBefore(shape, end);
    for (std::uint32_t i = 0; i < index; ++i) {
      found = recordBefore(shape, found.begin);
    }
    return found;
  }

  /// Calls visit(tag, record) for every record.
  template <class Visit>
  void forEach(const HashRecordShape& shape, Visit visit) const {
    const unsigned char* end = base() + bytes;
    for (std::uint32_t i = 0; i < count; ++i) {
      const HashRecord found = recordBefore(shape, end);
      visit(tags()[i], found);
      end = found.begin;
    }
  }

  /// @return the number of the first record with this tag that `matches`; `count` when none does
  template <class Matches>
  std::uint32_t find(const HashRecordShape& shape, unsigned char tag, Matches matches) const {
    const unsigned char* const end = tags() + count;
    const unsigned char* at = tags();
    while (at != end) {
      at = static_cast<const unsigned char*>(
          std::memchr(at, tag, static_cast<std::size_t>(end - at)));
      if (at == nullptr) {
        return count;
      }
      const auto index = static_cast<std::uint32_t>(at - tags());
      if (matches(record(shape, index))) {
        return index;
      }
      ++at;
    }
    return count;
  }

  /// Adds a record that there is room for.
  void add(const HashRecordShape& shape, unsigned char tag, const void* value, const void* key,
           std::uint32_t keyBytes) {
    unsigned char* const to = addRoom(tag, shape.bytesWith(keyBytes));
    copy(to, value, shape.valueBytes);
    copy(to + shape.valueBytes, key, keyBytes);
    if (!shape.isFixed()) {
      const auto length = static_cast<std::uint16_t>(keyBytes);
      std::memcpy(to + shape.valueBytes + keyBytes, &length, sizeof length);
    }
  }

  /// Adds a copy of another block's record.
  void add(unsigned char tag, const HashRecord& record) {
    std::memcpy(addRoom(tag, record.bytes), record.begin, record.bytes);
  }

  /// Adds all records of another block, for which there is room.
  void addAll(const HashBlock& other) {
    std::memcpy(tags() + count, other.tags(), other.count);
    recordsBegin -= other.recordBytes();
    std::memcpy(base() + recordsBegin, other.base() + other.recordsBegin, other.recordBytes());
    count += other.count;
  }

  void remove(const HashRecordShape& shape, std::uint32_t index) {
    const HashRecord gone = record(shape, index);
    unsigned char* const first = base() + recordsBegin;
    std::memmove(first + gone.bytes, first, static_cast<std::size_t>(gone.begin - first));
    recordsBegin += gone.bytes;
    std::memmove(tags() + index, tags() + index + 1, count - index - 1);
    --count;
  }

  unsigned char* base() { return reinterpret_cast<unsigned char*>(this); }
  const unsigned char* base() const { return reinterpret_cast<const unsigned char*>(this); }

 private:
  unsigned char* tags() { return base() + kTags; }
  const unsigned char* tags() const { return base() + kTags; }

  unsigned char* addRoom(unsigned char tag, std::uint32_t record) {
    tags()[count++] = tag;
    recordsBegin -= record;
    return base() + recordsBegin;
  }

  static void copy(unsigned char* to, const void* from, std::uint32_t size) {
    if (size != 0) {
      std::memcpy(to, from, size);
    }
  }
};

static_assert(offsetof(HashBlock, count) + sizeof(HashBlock::count) == HashBlock::kTags,
              "tags follow the header");

#endif  // SRC_CONTAINERS_HASHBLOCK_H
