#ifndef TESTS_DEBUGMODE_CLASSLAYOUT_H
#define TESTS_DEBUGMODE_CLASSLAYOUT_H

#include <cstddef>

/// What a translation unit takes an exported class for.
struct ClassLayout {
  const char* name;
  std::size_t size;
  std::size_t alignment;
};

/// Every exported class, ended by a null name, as an ordinary host sees it and as one that is
/// compiled with _GLIBCXX_DEBUG. ClassLayout.cpp, compiled twice, has both.
extern const ClassLayout ordinaryLayouts[];
extern const ClassLayout debugLayouts[];

/// Uses the classes that hold containers, in a host compiled with _GLIBCXX_DEBUG.
/// @return null, or what went wrong
const char* useLibraryInDebugMode();

#endif  // TESTS_DEBUGMODE_CLASSLAYOUT_H
