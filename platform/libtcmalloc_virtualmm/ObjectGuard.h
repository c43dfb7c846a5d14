#ifndef LIBTCMALLOC_VIRTUALMM_OBJECTGUARD_H
#define LIBTCMALLOC_VIRTUALMM_OBJECTGUARD_H

#include <cstddef>
#include <cstdint>

#include "libtcmalloc_virtualmm/SizeClasses.h"

// Memory checkers are told which objects are pinned: in every build with AddressSanitizer, and for
// Valgrind when LIBTCMALLOC_VIRTUALMM_CHECK_PINS is defined.
#if defined(__SANITIZE_ADDRESS__)
#define LIBTCMALLOC_VIRTUALMM_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define LIBTCMALLOC_VIRTUALMM_ASAN 1
#endif
#endif

#if defined(LIBTCMALLOC_VIRTUALMM_ASAN)
#include <sanitizer/asan_interface.h>
#elif defined(LIBTCMALLOC_VIRTUALMM_CHECK_PINS)
#include <valgrind/memcheck.h>
#endif

namespace tcmalloc {

/// Hides unpinned objects from their host: with a memory checker on, an access through an address
/// kept past its dismiss is reported where it happens. Without one, nothing of this is compiled.
class ObjectGuard {
 public:
  /// Whether a memory checker is told anything.
#if defined(LIBTCMALLOC_VIRTUALMM_ASAN) || defined(LIBTCMALLOC_VIRTUALMM_CHECK_PINS)
  static constexpr bool kActive = true;
#else
  static constexpr bool kActive = false;
#endif

  /// Forbids access to `size` bytes.
  static void Hide([[maybe_unused]] const void* memory, [[maybe_unused]] std::size_t size) {
#if defined(LIBTCMALLOC_VIRTUALMM_ASAN)
    __asan_poison_memory_region(memory, size);
#elif defined(LIBTCMALLOC_VIRTUALMM_CHECK_PINS)
    (void)VALGRIND_MAKE_MEM_NOACCESS(memory, size);
#endif
  }

  /// Allows access to `size` bytes, which hold data.
  static void Show([[maybe_unused]] const void* memory, [[maybe_unused]] std::size_t size) {
#if defined(LIBTCMALLOC_VIRTUALMM_ASAN)
    __asan_unpoison_memory_region(memory, size);
#elif defined(LIBTCMALLOC_VIRTUALMM_CHECK_PINS)
    (void)VALGRIND_MAKE_MEM_DEFINED(memory, size);
#endif
  }

  /// Reads what a handle takes for a header. Under a forged handle it may lie in a hidden object.
  template <class Header>
#if defined(LIBTCMALLOC_VIRTUALMM_ASAN)
  [[gnu::noinline, gnu::no_sanitize_address]]
#endif
  static std::uint64_t
  Peek(const Header& header) {
    return header.Word();
  }

  /// Forbids access to every object of a slab, in use or not; headers stay open to the engine.
  static void HideSlab([[maybe_unused]] const char* frame,
                       [[maybe_unused]] const SizeClass& sizeClass) {
    if constexpr (!kActive) {
      return;
    }
    for (std::uint32_t slot = 0; slot < sizeClass.slots; ++slot) {
      Hide(frame + kFirstObjectByte + std::size_t{slot} * sizeClass.stride, sizeClass.capacity);
    }
  }
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_OBJECTGUARD_H
