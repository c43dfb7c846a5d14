#include <gtest/gtest.h>

#include "ClassLayout.h"

namespace {

TEST(DebugMode, ADebuggedHostAgreesWithTheLibraryAboutEveryClass) {
  std::size_t classes = 0;
  for (; ordinaryLayouts[classes].name != nullptr; ++classes) {
    const ClassLayout& ordinary = ordinaryLayouts[classes];
    const ClassLayout& debug = debugLayouts[classes];
    ASSERT_STREQ(debug.name, ordinary.name);
    EXPECT_EQ(debug.size, ordinary.size)
        << ordinary.name << " holds a container of std; take it from QRTStd";
    EXPECT_EQ(debug.alignment, ordinary.alignment) << ordinary.name;
  }
  EXPECT_GT(classes, 30U);
}

TEST(DebugMode, ADebuggedHostUsesAnOrdinaryLibrary) {
  const char* const problem = useLibraryInDebugMode();
  EXPECT_EQ(problem, nullptr) << problem;
}

}  // namespace
