#ifndef QRTCORE_QRTASSERT_H
#define QRTCORE_QRTASSERT_H

#include <new>

#include "QRTCore/QRTThrowable.h"

/// @file
/// How sources raise errors: QRT_THROW and QRT_THROW_FROM, the checks QRT_ASSERT and
/// QRT_ASSERT_NAMED, and the allocation guard QRT_GUARD_ALLOC. The macros exist to supply the
/// place, and the text of a check as it was written; all behaviour stands in functions.

/// @return the part of a path behind its last slash or backslash
constexpr const char* qrtBaseName(const char* path) {
  const char* base = path;
  for (const char* at = path; *at != '\0'; ++at) {
    if (*at == '/' || *at == '\\') {
      base = at + 1;
    }
  }
  return base;
}

/// Runs one allocating call and turns every way it can fail into an error of the library:
///   1. a null result raises QRTOutOfMemoryError (code 0, no text, "QRT_THROW");
///   2. an error of the library, that of step 1 included, gets the entry "QRT_RETHROW" and is
///      thrown on as the same object;
///   3. std::bad_alloc becomes QRTOutOfMemoryError (code 0, no text, "QRT_THROW");
///   4. any other std::exception becomes QRTStdExceptionError ("QRT_THROW").
/// @param where  the place that back-trace entries name; its file name has static lifetime
/// @param call   what to run, without arguments, giving a pointer
/// @return what the call gave, never null
template <class Call>
auto qrtGuardAlloc(const QRTFileLocation& where, Call&& call) -> decltype(call()) {
  try {
    // Step 1
    auto result = call();
    if (!result) {
      QRTOutOfMemoryError(0, nullptr).hurl(where, nullptr, "QRT_THROW");
    }
    return result;
  } catch (QRTThrowable& error) {
    // Step 2
    error.addBackTrace(where, nullptr, "QRT_RETHROW");
    throw;
  } catch (const std::bad_alloc&) {
    // Step 3
    QRTOutOfMemoryError(0, nullptr).hurl(where, nullptr, "QRT_THROW");
  } catch (const std::exception& error) {
    // Step 4
    QRTStdExceptionError(error).hurl(where, nullptr, "QRT_THROW");
  }
}

/// The place where the macro stands. GCC and Clang know a file's base name themselves, which keeps
/// the directories of the build out of the binary.
#if defined(__FILE_NAME__)
#define QRT_HERE (QRTFileLocation{__FILE_NAME__, __LINE__})
#else
#define QRT_HERE (QRTFileLocation{qrtBaseName(__FILE__), __LINE__})
#endif

/// Raises an error, for example QRT_THROW(QRTOutOfMemoryError(0, nullptr)).
#define QRT_THROW(...) ((__VA_ARGS__).hurl(QRT_HERE, nullptr, "QRT_THROW"))

/// Raises an error and records the qualified name of the function that raises it.
#define QRT_THROW_FROM(function, ...) ((__VA_ARGS__).hurl(QRT_HERE, function, "QRT_THROW"))

/// Raises QRTAssertError when the condition is false. Its text is this call as written.
#define QRT_ASSERT(condition) \
  ((condition) ? (void)0 : QRTAssertError::raise("QRT_ASSERT(" #condition ");", QRT_HERE))

/// QRT_ASSERT with an explanation, a string literal, that becomes part of the text.
#define QRT_ASSERT_NAMED(condition, explanation) \
  ((condition)                                   \
       ? (void)0                                 \
       : QRTAssertError::raise("QRT_ASSERT_NAMED(" #condition ", " #explanation ");", QRT_HERE))

/// Runs one allocating expression under the guard and gives its value, which is never null:
/// `m_pool = QRT_GUARD_ALLOC(new Pool(size));`
#define QRT_GUARD_ALLOC(...) (qrtGuardAlloc(QRT_HERE, [&] { return (__VA_ARGS__); }))

#endif  // QRTCORE_QRTASSERT_H
