#ifndef QRTCORE_QRTTHROWABLE_H
#define QRTCORE_QRTTHROWABLE_H

#include <cstddef>
#include <exception>
#include <vector>

#include "QRTCore/QRTExport.h"
#include "QRTCore/QRTStd.h"

/// @file
/// The errors of the library. An error is raised by `hurl`, which notes the place in the error's
/// back trace and throws it; every allocation guard it passes on its way out adds another entry.
/// Sources raise errors with the macros of QRTAssert.h.

/// A place in the sources, made where an error is raised. Both fields have static lifetime.
struct QRTFileLocation {
  const char* file;  ///< base name of the source file, such as "QRTVirtualMemoryMgr.cpp"
  int line;          ///< line number, from 1
};

/// One station of an error on its way to the caller.
struct QRTBackTraceEntry {
  QRTFileLocation where;  ///< where it was raised or passed on
  const char* function;   ///< qualified function name; null where none is recorded
  const char* macro;      ///< "QRT_THROW" where it was raised, "QRT_RETHROW" where it passed on
};

/// Base of every error the library raises: a code, a text and a back trace. An error holds all of
/// that inside itself, so that one can be raised, copied and passed on when no memory is left. Only
/// a text that is longer than kTextCapacity is kept outside, where memory allows.
class QRT_EXPORT QRTThrowable : public std::exception {
 public:
  /// Most bytes of text, terminator included, that an error keeps when no memory is left: a longer
  /// one is cut then.
  static constexpr std::size_t kTextCapacity = 512;

  /// Most entries a back trace keeps; what comes later is dropped. Guards nest a handful deep.
  static constexpr std::size_t kTraceCapacity = 16;

  /// @param code  the error's number; the library itself always gives 0
  /// @param text  what happened, UTF-8, copied; null when there is nothing to say
  QRTThrowable(int code, const char* text) noexcept;

  /// Copies code, text and back trace.
  QRTThrowable(const QRTThrowable& other) noexcept;

  /// Takes over code, text and back trace of the other error.
  QRTThrowable& operator=(const QRTThrowable& other) noexcept;

  ~QRTThrowable() override;

  /// @return the code given at construction
  int getCode() const noexcept { return m_code; }

  /// @return the text, valid as long as the error; null when it has none
  const char* getText() const noexcept {
    return m_longText != nullptr ? m_longText : m_hasText ? m_text : nullptr;
  }

  /// @return the text, or the name of the error's class when it has none
  const char* what() const noexcept override;

  /// @return the name of the error's class
  virtual const char* getClassName() const noexcept;

  /// Raises the error: adds a back-trace entry and throws a copy of the error's own class that
  /// keeps text and trace. A derived class overrides this to throw its own type.
  /// @param where     the place, its file name of static lifetime
  /// @param function  qualified function name of static lifetime; null where none is recorded
  /// @param macro     name of the raising macro, of static lifetime
  /// @throws the error, always
  [[noreturn]] virtual void hurl(const QRTFileLocation& where, const char* function,
                                 const char* macro);

  /// Adds an entry to the back trace; does nothing when the trace is full. Allocates nothing.
  /// @param where     the place, its file name of static lifetime
  /// @param function  qualified function name of static lifetime; null where none is recorded
  /// @param macro     name of the macro, of static lifetime
  void addBackTrace(const QRTFileLocation& where, const char* function, const char* macro) noexcept;

  /// @return the back trace, oldest entry first, valid until the next entry is added or the error
  ///         ends. When memory is too short to list every entry, the oldest that fit.
  ///         A host compiled with _GLIBCXX_DEBUG takes it by `const auto&`, see QRTStd.h.
  /// Cost: the first call after an entry was added makes the list. An error is read by one thread
  /// at a time.
  const QRTStd::vector<QRTBackTraceEntry>& getBackTrace() const noexcept;

 private:
  void keepLongText(const char* text) noexcept;

  int m_code;                                 // given at construction
  bool m_hasText;                             // whether a text was given
  char m_text[kTextCapacity];                 // the text, zero-terminated; cut if it is longer
  char* m_longText;                           // all of a text that is longer, owned; null if cut
  std::size_t m_traceSize;                    // entries in use in m_trace
  QRTBackTraceEntry m_trace[kTraceCapacity];  // the trace itself, oldest first
  mutable QRTStd::vector<QRTBackTraceEntry> m_list;  // the trace as getBackTrace last listed it
};

/// A condition that the library checks in every build did not hold. The text is the check as it
/// stands in the source, such as "QRT_ASSERT(old_ptr);".
class QRT_EXPORT QRTAssertError : public QRTThrowable {
 public:
  /// @param code  the error's number
  /// @param text  the failed check, copied; may be null
  QRTAssertError(int code, const char* text) noexcept : QRTThrowable(code, text) {}
  const char* getClassName() const noexcept override;
  [[noreturn]] void hurl(const QRTFileLocation& where, const char* function,
                         const char* macro) override;

  /// Raises the error of a check that did not hold, with code 0. It is built here, since an error
  /// is large: a function that checks something needs no room for it.
  /// @param check  the check, copied
  /// @param where  the place of the check; its file name has static lifetime
  [[noreturn, gnu::cold]] static void raise(const char* check, QRTFileLocation where);
};

/// Memory, or room in the store, could not be had. What the failing operation was asked to work on
/// is as it was unless the operation says otherwise.
class QRT_EXPORT QRTOutOfMemoryError : public QRTThrowable {
 public:
  /// @param code  the error's number
  /// @param text  what was being allocated, copied; may be null
  QRTOutOfMemoryError(int code, const char* text) noexcept : QRTThrowable(code, text) {}
  const char* getClassName() const noexcept override;
  [[noreturn]] void hurl(const QRTFileLocation& where, const char* function,
                         const char* macro) override;
};

/// An object was found in a state it must not be in, such as objects left pinned.
class QRT_EXPORT QRTIllegalStateError : public QRTThrowable {
 public:
  /// @param code  the error's number
  /// @param text  the state that was found, copied; may be null
  QRTIllegalStateError(int code, const char* text) noexcept : QRTThrowable(code, text) {}
  const char* getClassName() const noexcept override;
  [[noreturn]] void hurl(const QRTFileLocation& where, const char* function,
                         const char* macro) override;
};

/// A standard exception that came out of a guarded allocation, turned into an error of the library.
class QRT_EXPORT QRTStdExceptionError : public QRTThrowable {
 public:
  /// @param cause  the exception; all of its `what()` becomes the text, the code is 0
  explicit QRTStdExceptionError(const std::exception& cause) noexcept
      : QRTThrowable(0, cause.what()) {}
  const char* getClassName() const noexcept override;
  [[noreturn]] void hurl(const QRTFileLocation& where, const char* function,
                         const char* macro) override;
};

#endif  // QRTCORE_QRTTHROWABLE_H
