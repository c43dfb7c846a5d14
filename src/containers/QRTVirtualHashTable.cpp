#include "QRTVirtualHashTable.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <utility>

#include "HashBlock.h"
#include "QRTCore/QRTAssert.h"
#include "QRTVirtualPin.h"

namespace {

// Bytes of records and tags for each bucket. A bucket that waits to be split has up to twice as
// much, with which it still shares a page with four others; one that was just split has half.
constexpr std::uint64_t kContentPerBucket = 340;

// Two buckets become one when there is this part of that: far from where they would be split again.
constexpr std::uint64_t kSparse = 4;

// Buckets that forEach asks the store for together.
constexpr std::uint64_t kAhead = 64;

// Blocks up to this size are not made smaller.
constexpr std::uint32_t kSmallBlock = 136;

[[noreturn, gnu::cold]] void throwUnreadable(const QRTVirtualMemoryMgr& memMgr,
                                             std::uint64_t bucket, std::uint64_t offset) {
  char text[QRTThrowable::kTextCapacity];
  std::snprintf(text, sizeof text, "bucket %llu of a map, at offset %llu, cannot be read back: %s",
                static_cast<unsigned long long>(bucket), static_cast<unsigned long long>(offset),
                memMgr.getLastStoreError());
  QRT_THROW(QRTAssertError(0, text));
}

template <class Block>
QRTVirtualPin<Block> pinBlock(QRTVirtualMemoryMgr& memMgr, std::uint64_t bucket,
                              std::uint64_t offset) {
  QRTVirtualPin<Block> block(memMgr, offset);
  if (!block) {
    throwUnreadable(memMgr, bucket, offset);
  }
  return block;
}

}  // namespace

// Blocks linked one behind the other that no bucket has yet. Frees them unless they are released.
class QRTVirtualHashTable::Chain {
 public:
  explicit Chain(const QRTVirtualHashTable& table) : m_table(table) {}
  ~Chain() {
    m_pin.reset();
    m_table.freeChain(m_head, nullptr, m_blocks);
  }
  Chain(const Chain&) = delete;
  Chain& operator=(const Chain&) = delete;

  // Puts an empty block in front and keeps it pinned.
  // @param content  bytes of the records and tags that are to come
  // @param record   bytes of one of them
  HashBlock& grow(std::uint64_t content, std::uint32_t record) {
    const auto most = std::uint64_t{HashBlock::mostContent(record)};
    const std::uint32_t size =
        HashBlock::sizeFor(static_cast<std::uint32_t>(std::min(content, most)));
    QRTVirtualPageItem item;
    m_pin = QRTVirtualPin<HashBlock>::alloc(*m_table.m_memMgr, size, item);
    m_pin->makeEmpty(size);
    m_pin->next = m_head;
    m_head = item.getOffset();
    ++m_blocks;
    return *m_pin;
  }

  // Adds a copy of a record.
  // @param content  bytes of the records and tags that are still to come, this one's included
  void add(unsigned char tag, const HashRecord& record, std::uint64_t content) {
    if (!m_pin || !m_pin->hasRoomFor(record.bytes)) {
      grow(content, record.bytes);
    }
    m_pin->add(tag, record);
  }

  std::uint64_t head() const { return m_head; }

  // Leaves the blocks to a bucket.
  void release() {
    m_pin.reset();
    m_blocks = 0;
  }

 private:
  const QRTVirtualHashTable& m_table;
  QRTVirtualPin<HashBlock> m_pin;  // the first block
  std::uint64_t m_head = 0;        // its offset; 0 without blocks
  std::uint64_t m_blocks = 0;      // blocks to free, from the first one on
};

// Where a record was found.
template <class Block>
struct QRTVirtualHashTable::Place {
  QRTVirtualPin<Block> block;     // empty when there is no such record
  std::uint32_t index = 0;        // of the record in the block
  unsigned long long offset = 0;  // of the block
  unsigned long long before = 0;  // of the block in front of it; 0 for the bucket's first
};

QRTVirtualHashTable::QRTVirtualHashTable(QRTVirtualMemoryMgr& memMgr, unsigned int valueBytes,
                                         unsigned int keyBytes)
    : m_memMgr(&memMgr), m_valueBytes(valueBytes), m_keyBytes(keyBytes), m_directory(memMgr) {}

QRTVirtualHashTable::~QRTVirtualHashTable() {
  freeAll(nullptr);
}

QRTVirtualHashTable::QRTVirtualHashTable(QRTVirtualHashTable&& other) noexcept
    : m_memMgr(other.m_memMgr),
      m_valueBytes(other.m_valueBytes),
      m_keyBytes(other.m_keyBytes),
      m_directory(std::move(other.m_directory)),
      m_buckets(std::exchange(other.m_buckets, 0)),
      m_size(std::exchange(other.m_size, 0)),
      m_content(std::exchange(other.m_content, 0)) {}

QRTVirtualHashTable& QRTVirtualHashTable::operator=(QRTVirtualHashTable&& other) noexcept {
  QRTVirtualHashTable(std::move(other)).swap(*this);
  return *this;
}

void QRTVirtualHashTable::swap(QRTVirtualHashTable& other) noexcept {
  std::swap(m_memMgr, other.m_memMgr);
  std::swap(m_valueBytes, other.m_valueBytes);
  std::swap(m_keyBytes, other.m_keyBytes);
  m_directory.swap(other.m_directory);
  std::swap(m_buckets, other.m_buckets);
  std::swap(m_size, other.m_size);
  std::swap(m_content, other.m_content);
}

bool QRTVirtualHashTable::find(unsigned long long hash, const Keys& keys, const void* wanted,
                               void* value) const {
  const auto place = search<const HashBlock>(hash, keys, wanted);
  if (!place.block) {
    return false;
  }
  if (value != nullptr) {
    std::memcpy(value, place.block->record(shape(), place.index).begin, m_valueBytes);
  }
  return true;
}

bool QRTVirtualHashTable::insert(unsigned long long hash, const Keys& keys, const void* wanted,
                                 const void* key, unsigned int keyBytes, const void* value,
                                 Present present) {
  expectUnvisited();
  {
    const auto place = search<HashBlock>(hash, keys, wanted);
    if (place.block) {
      if (present == eReplace) {
        const HashRecord record = place.block->record(shape(), place.index);
        std::memcpy(const_cast<unsigned char*>(record.begin), value, m_valueBytes);
      }
      return false;
    }
  }
  add(hash, key, keyBytes, value);
  ++m_size;
  m_content += shape().bytesWith(keyBytes) + 1;
  adapt(keys);
  return true;
}

bool QRTVirtualHashTable::erase(unsigned long long hash, const Keys& keys, const void* wanted,
                                Visitor* removed) {
  expectUnvisited();
  auto place = search<HashBlock>(hash, keys, wanted);
  if (!place.block) {
    return false;
  }
  const HashRecord record = place.block->record(shape(), place.index);
  if (removed != nullptr) {
    removed->visit(record.begin, record.key, record.keyBytes);
  }
  m_content -= record.bytes + 1;
  --m_size;
  place.block->remove(shape(), place.index);
  // The record is gone; blocks that are too large or too many are no reason to raise anything.
  try {
    tidy(place, bucketOf(hash));
  } catch (...) {
  }
  place.block.reset();
  adapt(keys);
  return true;
}

void QRTVirtualHashTable::forEach(Visitor& visitor) const {
  struct Visit {
    explicit Visit(unsigned int& visits) : m_visits(visits) { ++m_visits; }
    ~Visit() { --m_visits; }
    unsigned int& m_visits;
  };
  const Visit visit(m_visits);
  unsigned long long heads[kAhead];
  for (std::uint64_t begin = 0; begin < m_buckets; begin += kAhead) {
    const std::uint64_t count = std::min<std::uint64_t>(kAhead, m_buckets - begin);
    m_directory.read(begin, heads, count);
    for (std::uint64_t i = 0; i < count; ++i) {
      m_memMgr->prefetch(heads[i]);
    }
    for (std::uint64_t i = 0; i < count; ++i) {
      forEachBlock(begin + i, heads[i], [&](const HashBlock& block) {
        block.forEach(shape(), [&](unsigned char, const HashRecord& record) {
          visitor.visit(record.begin, record.key, record.keyBytes);
        });
      });
    }
  }
}

void QRTVirtualHashTable::clear(Visitor* removed) {
  expectUnvisited();
  freeAll(removed);
}

void QRTVirtualHashTable::freeAll(Visitor* removed) noexcept {
  for (std::uint64_t bucket = 0; bucket < m_buckets; ++bucket) {
    try {
      freeChain(m_directory.get(bucket), removed);
    } catch (...) {
      // A part of the directory that cannot be read; the rest may be.
    }
  }
  m_directory.clear();
  m_buckets = 0;
  m_size = 0;
  m_content = 0;
}

// The first error of a lookup is raised before anything has changed.
template <class Block>
QRTVirtualHashTable::Place<Block> QRTVirtualHashTable::search(unsigned long long hash,
                                                              const Keys& keys,
                                                              const void* wanted) const {
  Place<Block> place;
  if (m_buckets == 0) {
    return place;
  }
  const HashRecordShape shape = this->shape();
  const std::uint64_t bucket = bucketOf(hash);
  place.offset = m_directory.get(bucket);
  while (place.offset != 0) {
    place.block = pinBlock<Block>(*m_memMgr, bucket, place.offset);
    place.index = place.block->find(shape, HashBlock::tagOf(hash), [&](const HashRecord& record) {
      return keys.matches(wanted, record.key, record.keyBytes);
    });
    if (place.index != place.block->count) {
      return place;
    }
    place.before = place.offset;
    place.offset = place.block->next;
    place.block.reset();
  }
  return place;
}

// Adds a record to its bucket:
// 1. to the first block, if that has room;
// 2. else to a larger block that takes its place;
// 3. else, where a block would be too large or the bucket has none, to one in front.
// What is new comes into the bucket with one entry of the directory, and goes again if that fails.
void QRTVirtualHashTable::add(unsigned long long hash, const void* key, unsigned int keyBytes,
                              const void* value) {
  if (m_buckets == 0) {
    setBucket(0, 0);
    m_buckets = 1;
  }
  const HashRecordShape shape = this->shape();
  const unsigned char tag = HashBlock::tagOf(hash);
  const std::uint32_t record = shape.bytesWith(keyBytes);
  const std::uint64_t bucket = bucketOf(hash);
  const std::uint64_t head = m_directory.get(bucket);
  QRTVirtualPin<HashBlock> first;
  if (head != 0) {
    first = pinBlock<HashBlock>(*m_memMgr, bucket, head);
  }
  if (first && first->hasRoomFor(record)) {
    // Step 1
    first->add(shape, tag, value, key, keyBytes);
    return;
  }
  Chain chain(*this);
  const std::uint32_t wanted = record + 1 + (first ? first->content() : 0);
  if (first && wanted <= HashBlock::mostContent(record)) {
    // Step 2
    HashBlock& larger = chain.grow(wanted, record);
    larger.addAll(*first);
    larger.next = first->next;
    larger.add(shape, tag, value, key, keyBytes);
    setBucket(bucket, chain.head());
    chain.release();
    first.reset();
    freeChain(head, nullptr, 1);
  } else {
    // Step 3
    HashBlock& front = chain.grow(record + 1, record);
    front.next = head;
    front.add(shape, tag, value, key, keyBytes);
    setBucket(bucket, chain.head());
    chain.release();
  }
}

// Takes an empty block out of its bucket, and lets a bucket of one block have a smaller one where
// it fills less than half.
void QRTVirtualHashTable::tidy(Place<HashBlock>& place, unsigned long long bucket) {
  const HashBlock& block = *place.block;
  if (block.count == 0) {
    if (place.before == 0) {
      setBucket(bucket, block.next);
    } else {
      pinBlock<HashBlock>(*m_memMgr, bucket, place.before)->next = block.next;
    }
  } else if (place.before == 0 && block.next == 0 && block.bytes > kSmallBlock &&
             block.content() < block.bytes / 2) {
    Chain chain(*this);
    chain.grow(block.content(), block.recordBytes()).addAll(block);
    setBucket(bucket, chain.head());
    chain.release();
  } else {
    return;
  }
  place.block.reset();
  freeChain(place.offset, nullptr, 1);
}

// A bucket more or less, if it is time for that. Where there is no room for it, or a bucket cannot
// be read, everything stays in the buckets that there are, and the next change tries again.
void QRTVirtualHashTable::adapt(const Keys& keys) noexcept {
  try {
    if (m_content > kContentPerBucket * m_buckets) {
      split(keys);
    } else if (m_buckets > 1 && m_content * kSparse < kContentPerBucket * m_buckets) {
      merge();
    }
  } catch (...) {
  }
}

// Adds a bucket, which takes those records of its partner that have the hash's next bit:
// 1. Weigh them. When all stay or all go the partner's blocks do as they are.
// 2. Else copy the records into new blocks, one chain for each of the two.
// 3. Note both in the directory. The new bucket is not in use before both are there, so that an
//    error on the way leaves everything as it was.
// 4. Free the partner's old blocks.
void QRTVirtualHashTable::split(const Keys& keys) {
  const std::uint64_t fresh = m_buckets;
  const std::uint64_t bit = std::bit_floor(fresh);
  const std::uint64_t old = fresh - bit;
  const std::uint64_t head = m_directory.get(old);
  const HashRecordShape shape = this->shape();
  const auto goes = [&](const HashRecord& record) {
    return (keys.hash(record.key, record.keyBytes) & bit) != 0;
  };

  // Step 1
  std::uint64_t staying = 0;
  std::uint64_t going = 0;
  std::uint64_t blocks = 0;
  forEachBlock(old, head, [&](const HashBlock& block) {
    ++blocks;
    block.forEach(shape, [&](unsigned char, const HashRecord& record) {
      (goes(record) ? going : staying) += record.bytes + 1;
    });
  });
  if (going == 0 || staying == 0) {
    setBucket(fresh, going == 0 ? 0 : head);
    if (going != 0) {
      setBucket(old, 0);
    }
    ++m_buckets;
    return;
  }

  // Step 2
  Chain stay(*this);
  Chain go(*this);
  forEachBlock(old, head, [&](const HashBlock& block) {
    block.forEach(shape, [&](unsigned char tag, const HashRecord& record) {
      const bool does = goes(record);
      std::uint64_t& rest = does ? going : staying;
      (does ? go : stay).add(tag, record, rest);
      rest -= record.bytes + 1;
    });
  });

  // Step 3
  setBucket(fresh, go.head());
  setBucket(old, stay.head());
  ++m_buckets;
  stay.release();
  go.release();

  // Step 4
  freeChain(head, nullptr, blocks);
}

// Puts the last bucket's records into its partner, as a split took them out of it.
void QRTVirtualHashTable::merge() {
  const std::uint64_t last = m_buckets - 1;
  const std::uint64_t partner = last - std::bit_floor(last);
  const std::uint64_t heads[] = {m_directory.get(partner), m_directory.get(last)};
  if (heads[0] == 0 || heads[1] == 0) {
    if (heads[1] != 0) {
      setBucket(partner, heads[1]);
    }
    --m_buckets;
  } else {
    std::uint64_t content = 0;
    std::uint64_t blocks[2] = {};
    for (const int side : {0, 1}) {
      forEachBlock(last, heads[side], [&](const HashBlock& block) {
        content += block.content();
        ++blocks[side];
      });
    }
    Chain both(*this);
    for (const std::uint64_t head : heads) {
      forEachBlock(last, head, [&](const HashBlock& block) {
        block.forEach(shape(), [&](unsigned char tag, const HashRecord& record) {
          both.add(tag, record, content);
          content -= record.bytes + 1;
        });
      });
    }
    setBucket(partner, both.head());
    --m_buckets;
    both.release();
    freeChain(heads[0], nullptr, blocks[0]);
    freeChain(heads[1], nullptr, blocks[1]);
  }
  m_directory.pop_back();
}

HashRecordShape QRTVirtualHashTable::shape() const noexcept {
  return {m_valueBytes, m_keyBytes};
}

// The bucket of a hash: its low bits, as many as number all buckets, or one less where the bucket
// that these name has not been split off yet.
unsigned long long QRTVirtualHashTable::bucketOf(unsigned long long hash) const noexcept {
  const std::uint64_t numbers = std::bit_ceil(m_buckets);
  const std::uint64_t bucket = hash & (numbers - 1);
  return bucket < m_buckets ? bucket : bucket - numbers / 2;
}

void QRTVirtualHashTable::setBucket(unsigned long long bucket, unsigned long long head) {
  if (bucket < m_directory.size()) {
    m_directory.set(bucket, head);
  } else {
    m_directory.push_back(head);
  }
}

template <class Visit>
void QRTVirtualHashTable::forEachBlock(unsigned long long bucket, unsigned long long head,
                                       Visit visit) const {
  while (head != 0) {
    const auto block = pinBlock<const HashBlock>(*m_memMgr, bucket, head);
    visit(*block);
    head = block->next;
  }
}

void QRTVirtualHashTable::freeChain(unsigned long long head, Visitor* removed,
                                    unsigned long long blocks) const noexcept {
  for (; head != 0 && blocks != 0; --blocks) {
    QRTVirtualPageItem item(head, 0);
    head = 0;
    if (removed == nullptr && blocks == 1) {
      // Nothing in it is wanted, so that it need not be read.
    } else if (const QRTVirtualPin<const HashBlock> block{*m_memMgr, item}) {
      if (removed != nullptr) {
        block->forEach(shape(), [&](unsigned char, const HashRecord& record) {
          removed->visit(record.begin, record.key, record.keyBytes);
        });
      }
      head = block->next;
    }
    m_memMgr->free(item);  // NOLINT(clang-analyzer-unix.Malloc): not the heap's
  }
}

void QRTVirtualHashTable::expectUnvisited() const {
  QRT_ASSERT_NAMED(m_visits == 0, "a map does not change while its forEach is under way");
}
