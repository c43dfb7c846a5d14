#include "QRTAlignedBlocks.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

#include "../reports/QRTAllocatorView.h"
#include "QRTCore/QRTThrowable.h"
#include "QRTFixedMemoryPool.h"
#include "QRTMemoryArena.h"
#include "QRTMemoryPool.h"

namespace {

/// Bytes to ask an allocator for. The block starts at a multiple of 8; the record takes 8 bytes and
/// from there it is alignment - 8 bytes at most to the next multiple of the alignment.
/// @throws std::bad_alloc  more than an allocator can be asked for
unsigned bytesToAsk(std::size_t bytes, std::size_t alignment) {
  const std::size_t extra = alignment > QRTAlignedBlocks::kFreeAlignment ? alignment : 0;
  const std::size_t most = std::numeric_limits<unsigned>::max();
  if (extra > most || bytes > most - extra) {
    throw std::bad_alloc();
  }
  return static_cast<unsigned>(bytes + extra);
}

/// Runs an allocation; what it reports as exhaustion, null or an error, becomes std::bad_alloc.
template <class Call>
char* orBadAlloc(Call&& call) {
  void* block = nullptr;
  try {
    block = call();
  } catch (const QRTOutOfMemoryError&) {
    throw std::bad_alloc();
  }
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return static_cast<char*>(block);
}

/// The aligned place in a block, with the block's address recorded in front of it.
void* aligned(char* block, std::size_t alignment) {
  if (alignment <= QRTAlignedBlocks::kFreeAlignment) {
    return block;
  }
  const auto first = reinterpret_cast<std::uintptr_t>(block) + QRTAlignedBlocks::kFreeAlignment;
  char* const place = block + QRTAlignedBlocks::kFreeAlignment +
                      ((alignment - first % alignment) & (alignment - 1));
  std::memcpy(place - sizeof block, &block, sizeof block);
  return place;
}

/// The block that an aligned place lies in.
void* original(void* place, std::size_t alignment) {
  if (alignment <= QRTAlignedBlocks::kFreeAlignment) {
    return place;
  }
  void* block;
  std::memcpy(&block, static_cast<char*>(place) - sizeof block, sizeof block);
  return block;
}

}  // namespace

void* QRTAlignedBlocks::allocate(QRTMemoryPool& pool, std::size_t bytes, std::size_t alignment) {
  const unsigned wanted = bytesToAsk(bytes, alignment);
  return aligned(orBadAlloc([&] { return pool.alloc(wanted); }), alignment);
}

void* QRTAlignedBlocks::allocate(QRTMemoryArena& arena, std::size_t bytes, std::size_t alignment) {
  // The arena has no block of size 0.
  const unsigned wanted = bytesToAsk(bytes != 0 ? bytes : 1, alignment);
  const auto obtain = [&] {
    return aligned(orBadAlloc([&] { return arena.alloc(wanted); }), alignment);
  };
  try {
    return obtain();
  } catch (const std::bad_alloc&) {
    // Each bin keeps a wholly free chunk to itself until it is asked for all of them.
    if (arena.trim() == 0) {
      throw;
    }
  }
  return obtain();
}

void* QRTAlignedBlocks::allocate(QRTFixedMemoryPool& pool, std::size_t bytes,
                                 std::size_t alignment) {
  if (!fits(pool, bytes, alignment)) {
    throw std::bad_alloc();
  }
  return aligned(orBadAlloc([&] { return pool.alloc(); }), alignment);
}

void QRTAlignedBlocks::deallocate(QRTMemoryPool& pool, void* block, std::size_t alignment) {
  pool.free(original(block, alignment));
}

void QRTAlignedBlocks::deallocate(QRTMemoryArena& arena, void* block, std::size_t alignment) {
  arena.free(original(block, alignment));
}

void QRTAlignedBlocks::deallocate(QRTFixedMemoryPool& pool, void* block, std::size_t alignment) {
  pool.free(original(block, alignment));
}

bool QRTAlignedBlocks::fits(const QRTFixedMemoryPool& pool, std::size_t bytes,
                            std::size_t alignment) {
  const std::size_t room = QRTAllocatorView::callerBytes(pool);
  const std::size_t extra = alignment > kFreeAlignment ? alignment : 0;
  return extra <= room && bytes <= room - extra;
}
