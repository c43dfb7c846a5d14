#include "QRTMemoryChecker.h"

#if __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#else
// Built without Valgrind's headers: every request is nothing.
#define VALGRIND_GET_VBITS(memory, bits, bytes) \
  (static_cast<void>(memory), static_cast<void>(bits), 0)
#define VALGRIND_CREATE_MEMPOOL(pool, fence, zeroed) (void)(fence)
#define VALGRIND_DESTROY_MEMPOOL(pool) (void)0
#define VALGRIND_MEMPOOL_ALLOC(pool, block, bytes) (void)0
#define VALGRIND_MEMPOOL_CHANGE(pool, block, moved, bytes) (void)0
#define VALGRIND_MEMPOOL_FREE(pool, block) (void)0
#define VALGRIND_MAKE_MEM_NOACCESS(memory, bytes) (void)0
#define VALGRIND_MAKE_MEM_UNDEFINED(memory, bytes) (void)0
#define VALGRIND_DISABLE_ERROR_REPORTING (void)0
#define VALGRIND_ENABLE_ERROR_REPORTING (void)0
#endif

// AddressSanitizer's interface, there when the program is built with it. The library finds it at
// run time, so that one build of the library serves plain and sanitized hosts; the sources that
// touch fenced memory are never instrumented themselves.
// NOLINTBEGIN(bugprone-reserved-identifier): the names are the sanitizer's.
extern "C" {
[[gnu::weak]] void __asan_poison_memory_region(const volatile void* memory, std::size_t bytes);
[[gnu::weak]] void __asan_unpoison_memory_region(const volatile void* memory, std::size_t bytes);
[[gnu::weak]] int __asan_address_is_poisoned(const volatile void* address);
[[gnu::weak]] void __asan_report_error(void* pc, void* bp, void* sp, void* address, int isWrite,
                                       std::size_t bytes);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

bool isAsan() noexcept {
  return &__asan_poison_memory_region != nullptr;
}

/// Whether this is Valgrind's memory checker: only that answers such a question. Its profilers are
/// to see what happens without a checker.
bool isMemcheck() noexcept {
  const char asked = 0;
  char bits = 0;
  return VALGRIND_GET_VBITS(&asked, &bits, sizeof asked) != 0;
}

}  // namespace

bool QRTMemoryChecker::isActive() noexcept {
  static const bool active = isAsan() || isMemcheck();
  return active;
}

void QRTMemoryChecker::poolCreated(const void* pool, unsigned fence) noexcept {
  VALGRIND_CREATE_MEMPOOL(pool, fence, 0);
}

void QRTMemoryChecker::poolDestroyed(const void* pool) noexcept {
  VALGRIND_DESTROY_MEMPOOL(pool);
}

void QRTMemoryChecker::close(const void* memory, std::size_t bytes) noexcept {
  if (isAsan()) {
    __asan_poison_memory_region(memory, bytes);
  }
  VALGRIND_MAKE_MEM_NOACCESS(memory, bytes);
}

void QRTMemoryChecker::open(const void* memory, std::size_t bytes) noexcept {
  if (isAsan()) {
    __asan_unpoison_memory_region(memory, bytes);
  }
  VALGRIND_MAKE_MEM_UNDEFINED(memory, bytes);
}

void QRTMemoryChecker::handedOut(const void* pool, const void* block, std::size_t bytes) noexcept {
  if (isAsan()) {
    __asan_unpoison_memory_region(block, bytes);
  }
  VALGRIND_MEMPOOL_ALLOC(pool, block, bytes);
}

void QRTMemoryChecker::resized(const void* pool, const void* block, std::size_t before,
                               std::size_t after) noexcept {
  const char* const bytes = static_cast<const char*>(block);
  if (after > before) {
    open(bytes + before, after - before);
  } else {
    close(bytes + after, before - after);
  }
  VALGRIND_MEMPOOL_CHANGE(pool, block, block, after);
}

void QRTMemoryChecker::givenBack(const void* pool, const void* block, std::size_t bytes) noexcept {
  if (isAsan()) {
    if (bytes != 0 && __asan_address_is_poisoned(block) != 0) {
      __asan_report_error(__builtin_return_address(0), __builtin_frame_address(0),
                          __builtin_frame_address(0), const_cast<void*>(block), 1, 1);
    }
    __asan_poison_memory_region(block, bytes);
  }
  VALGRIND_MEMPOOL_FREE(pool, block);
}

// AddressSanitizer needs no pass: the allocators' sources are not instrumented.
void QRTMemoryChecker::Pass::begin() noexcept {
  VALGRIND_DISABLE_ERROR_REPORTING;
}

void QRTMemoryChecker::Pass::end() noexcept {
  VALGRIND_ENABLE_ERROR_REPORTING;
}
