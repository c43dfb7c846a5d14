#ifndef LIBTCMALLOC_VIRTUALMM_ENGINEASSERT_H
#define LIBTCMALLOC_VIRTUALMM_ENGINEASSERT_H

// What the engine's functions rely on and leave behind is stated with LIBTCMALLOC_ASSERT. Builds
// that define LIBTCMALLOC_VIRTUALMM_ASSERTIONS check it: Debug builds, those with sanitizers, and
// others on request (see CMakeLists.txt). In every other build the condition is compiled, so that
// it stays correct, but never evaluated. Content of objects is not asserted: hosts may overrun
// them.

namespace tcmalloc {

#if defined(LIBTCMALLOC_VIRTUALMM_ASSERTIONS)
constexpr bool kAssertions = true;  ///< whether assertions are checked
#else
constexpr bool kAssertions = false;  ///< whether assertions are checked
#endif

/// Prints where an assertion failed to the standard error stream and aborts the process.
[[noreturn, gnu::cold]] void AssertionFailed(const char* file, int line,
                                             const char* condition) noexcept;

}  // namespace tcmalloc

#if defined(LIBTCMALLOC_VIRTUALMM_ASSERTIONS)
#define LIBTCMALLOC_ASSERT(condition) \
  ((condition) ? static_cast<void>(0) \
               : ::tcmalloc::AssertionFailed(__FILE_NAME__, __LINE__, #condition))
#else
#define LIBTCMALLOC_ASSERT(condition) static_cast<void>(sizeof((condition) ? 1 : 0))
#endif

#endif  // LIBTCMALLOC_VIRTUALMM_ENGINEASSERT_H
