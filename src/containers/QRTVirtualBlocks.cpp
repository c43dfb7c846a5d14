// The directory is a tree of nodes of kFanOut offsets. Those of level 1 lead to blocks, those of
// level n to nodes of level n - 1; m_root is the one node of level m_height, or the block itself
// when there is but one. Block number b is found by the digits of b, nine bits each:
//
//   m_root -> [ node | node | ...      ]  level 2: entry (b >> 9) & 511
//                |
//                v
//             [ block | block | ...    ]  level 1: entry b & 511
//
// Blocks come and go at the end only, so that a node exists exactly when its first block does, and
// there are no more levels than the blocks need.
// Entries behind the last block are never looked at.

#include "QRTVirtualBlocks.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include "QRTCore/QRTAssert.h"

namespace {

// Nodes of a page: one fault each, and a directory of a five hundredth of what it leads to.
constexpr unsigned int kFanBits = 9;
constexpr unsigned int kFanOut = 1U << kFanBits;
constexpr unsigned int kNodeSize = kFanOut * sizeof(unsigned long long);

constexpr unsigned int kMaxLevels = 4;
static_assert(QRTVirtualBlocks::kMaxCount <= 1ULL << (kFanBits * kMaxLevels),
              "every block has a place in the directory");

using Node = QRTVirtualPin<unsigned long long>;
using NodeForReading = QRTVirtualPin<const unsigned long long>;

// Blocks below a node of a level; 1 for a block itself.
constexpr unsigned long long blocksBelow(unsigned int level) {
  return 1ULL << (kFanBits * level);
}

// Where the way to a block leads on in a node of a level, from 1.
unsigned int entryOf(unsigned long long block, unsigned int level) {
  return static_cast<unsigned int>(block >> (kFanBits * (level - 1))) % kFanOut;
}

}  // namespace

// What is made for a new block. It goes again unless the block becomes a part of the sequence.
class QRTVirtualBlocks::Growth {
 public:
  explicit Growth(QRTVirtualMemoryMgr& memMgr) : m_memMgr(memMgr) {}
  Growth(const Growth&) = delete;
  Growth& operator=(const Growth&) = delete;
  ~Growth() {
    while (m_size != 0) {
      m_memMgr.free(m_made[--m_size]);
    }
  }

  // Makes a block of zero bytes.
  void makeBlock(unsigned int size) {
    std::memset(make(size), 0, size);
    m_memMgr.dismiss(last());
  }
  // Makes a node from its first two entries.
  void makeNode(unsigned long long first, unsigned long long second) {
    auto* const node = static_cast<unsigned long long*>(make(kNodeSize));
    std::memset(node, 0, kNodeSize);
    node[0] = first;
    node[1] = second;
    m_memMgr.dismiss(last());
  }
  // The offset of what was made last.
  unsigned long long last() const { return m_made[m_size - 1].getOffset(); }

  void keep() { m_size = 0; }

 private:
  void* make(unsigned int size) {
    void* const address = QRT_GUARD_ALLOC(m_memMgr.alloc(size, m_made[m_size]));
    ++m_size;
    return address;
  }

  QRTVirtualMemoryMgr& m_memMgr;
  QRTVirtualPageItem m_made[1 + kMaxLevels + 1];  // the block, a node a level, a new top
  unsigned int m_size = 0;                        // of them
};

void QRTVirtualBlocks::swap(QRTVirtualBlocks& other) noexcept {
  std::swap(m_memMgr, other.m_memMgr);
  std::swap(m_root, other.m_root);
  std::swap(m_count, other.m_count);
  std::swap(m_blockSize, other.m_blockSize);
  std::swap(m_height, other.m_height);
  std::swap(m_lastBlock, other.m_lastBlock);
  std::swap(m_lastOffset, other.m_lastOffset);
}

void QRTVirtualBlocks::grow(unsigned long long count) {
  if (count > kMaxCount) {
    char text[128];
    std::snprintf(text, sizeof text,
                  "QRTVirtualBlocks: %llu blocks are more than the limit of %llu", count,
                  kMaxCount);
    QRT_THROW(QRTOutOfMemoryError(0, text));
  }
  const unsigned long long before = m_count;
  try {
    while (m_count < count) {
      addBlock();
    }
  } catch (...) {
    shrink(before);
    throw;
  }
}

void QRTVirtualBlocks::shrink(unsigned long long count) noexcept {
  while (m_count > count) {
    removeBlock();
  }
}

// 1. Make the block, zero bytes.
// 2. Make the nodes whose first block it is, from the lowest up, each an entry of the next.
// 3. Hang the topmost of these into the directory:
//    3.1 the first block of all is the root itself;
//    3.2 a directory that is full gets a new top, with the old one as its first entry;
//    3.3 else the node above is there.
// Only step 3 changes what is there, after all that can fail.
void QRTVirtualBlocks::addBlock() {
  Growth growth(*m_memMgr);
  // Step 1
  growth.makeBlock(m_blockSize);
  // Step 2
  const bool isFull = m_count == blocksBelow(m_height);
  unsigned int level = 0;
  while (m_count != 0 && level < m_height && m_count % blocksBelow(level + 1) == 0) {
    const unsigned long long below = growth.last();
    growth.makeNode(below, 0);
    ++level;
  }
  // Step 3
  const unsigned long long top = growth.last();
  if (m_count == 0) {
    m_root = top;
  } else if (isFull) {
    growth.makeNode(m_root, top);
    m_root = growth.last();
    ++m_height;
  } else {
    const Node above(*m_memMgr, tryLookUp(m_count, level + 1));
    if (!above) {
      raiseUnreadable(m_count, "the directory of ");
    }
    above.get()[entryOf(m_count, level + 1)] = top;
  }
  growth.keep();
  ++m_count;
}

// 1. Find the last block and the nodes whose first block it is.
// 2. Free what was found.
// 3. A top that has one entry left is not needed, unless it cannot be read to find that entry.
void QRTVirtualBlocks::removeBlock() noexcept {
  const unsigned long long block = m_count - 1;
  // Step 1
  unsigned long long ending[1 + kMaxLevels];
  unsigned int size = 0;
  for (unsigned int level = 0; level <= m_height && block % blocksBelow(level) == 0; ++level) {
    ending[size++] = tryLookUp(block, level);
  }
  // Step 2
  for (unsigned int i = 0; i < size; ++i) {
    QRTVirtualPageItem item(ending[i], 0);
    m_memMgr->free(item);  // NOLINT(clang-analyzer-unix.Malloc): not the heap's
  }
  m_count = block;
  if (m_count == 0) {
    m_root = 0;
    m_height = 0;
  }
  // Step 3
  while (m_height != 0 && m_count <= blocksBelow(m_height - 1)) {
    const unsigned long long only = tryLookUp(0, m_height - 1);
    if (only == 0) {
      break;
    }
    QRTVirtualPageItem top(m_root, 0);
    m_memMgr->free(top);
    m_root = only;
    --m_height;
  }
  if (m_lastBlock >= m_count) {
    m_lastBlock = kNone;
  }
}

/// Follows the way to a block down to a level: 0 for the block itself. @return the offset of what
/// is there; 0 when a node on the way cannot be read back
unsigned long long QRTVirtualBlocks::tryLookUp(unsigned long long block,
                                               unsigned int level) const noexcept {
  unsigned long long offset = m_root;
  for (unsigned int at = m_height; at > level; --at) {
    const unsigned int entry = entryOf(block, at);
    const void* const found = m_memMgr->getUnpinned(offset, 0);
    if (found != nullptr) {
      offset = static_cast<const unsigned long long*>(found)[entry];
      continue;
    }
    const NodeForReading node(*m_memMgr, offset);
    if (!node) {
      return 0;
    }
    offset = node.get()[entry];
  }
  return offset;
}

/// The offset of a block that there is; 0 when the directory cannot be read back. Programs often
/// ask for one element after the other: the last block needs no look into the directory.
unsigned long long QRTVirtualBlocks::offsetOf(unsigned long long block) const noexcept {
  if (block != m_lastBlock) {
    m_lastOffset = tryLookUp(block, 0);
    m_lastBlock = m_lastOffset != 0 ? block : kNone;
  }
  return m_lastOffset;
}

QRTVirtualPin<unsigned char> QRTVirtualBlocks::pin(unsigned long long block) const {
  QRT_ASSERT_NAMED(block < m_count, "a block beyond the end");
  QRTVirtualPin<unsigned char> pin(*m_memMgr, offsetOf(block));
  if (!pin) {
    raiseUnreadable(block, m_lastOffset != 0 ? "" : "the directory of ");
  }
  return pin;
}

QRTVirtualPin<const unsigned char> QRTVirtualBlocks::pinForReading(unsigned long long block) const {
  QRT_ASSERT_NAMED(block < m_count, "a block beyond the end");
  QRTVirtualPin<const unsigned char> pin(*m_memMgr, offsetOf(block));
  if (!pin) {
    raiseUnreadable(block, m_lastOffset != 0 ? "" : "the directory of ");
  }
  return pin;
}

void* QRTVirtualBlocks::find(unsigned long long block, int mode) const noexcept {
  return block < m_count ? m_memMgr->getUnpinned(offsetOf(block), mode) : nullptr;
}

void QRTVirtualBlocks::prefetch(unsigned long long block) const noexcept {
  if (block < m_count) {
    m_memMgr->prefetch(tryLookUp(block, 0));
  }
}

void QRTVirtualBlocks::raiseUnreadable(unsigned long long block, const char* what) const {
  char text[400];
  std::snprintf(text, sizeof text, "QRTVirtualBlocks: %sblock %llu cannot be read back: %s", what,
                block, m_memMgr->getLastStoreError());
  QRTAssertError::raise(text, QRT_HERE);
}
