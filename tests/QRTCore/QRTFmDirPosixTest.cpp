#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "QRTCore/I18NString.h"
#include "QRTCore/QRTFmDir.h"
#include "QRTCore/QRTFmFile.h"
#include "QRTCore/QRTUtUtf8.h"
#include "support/TempDirectory.h"

// Names of POSIX systems are bytes, in whatever encoding.

namespace {

TEST(QRTFmDirPosix, EveryNameSurvivesAsText) {
  const TempDirectory directory;
  const std::string names[] = {
      "latin \xE9t\xE9",           // Latin-1
      "\xFF\xFE",                  // never part of UTF-8
      "\xC3\xA9\xC3",              // well-formed, then cut short
      "\xED\xA0\x80\xED\xB2\x80",  // surrogates in UTF-8
      // a pair of surrogates, a stray byte, a part
      "\xF0\x9F\x98\x80\x80\xF0\x9F\x98\xC3\xA9",
      "\xC0\xAF\xF5\xC3\xA9",  // overlong, beyond Unicode
  };
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    const std::string raw = directory.path().string() + "/" + name;
    ASSERT_TRUE(std::filesystem::create_directory(raw));
    const ScopedTmpdir tmpdir(raw);
    I18NString path;
    EXPECT_EQ(QRTFmDir::getTempPath(path), 1);
    EXPECT_EQ(QRTFmDir::getNarrowPath(path), raw);
    EXPECT_EQ(QRTUtUtf8::findInvalid(path.c_str(nullptr, nullptr, nullptr, nullptr)),
              std::string(path.c_str(nullptr, nullptr, nullptr, nullptr)).size());

    I18NString inside = path;
    inside += I18NString("/file");
    QRTFmFile file;
    EXPECT_EQ(file.open(inside, QRTFmFile::eCreateNew, 0), 1);
    EXPECT_TRUE(std::filesystem::exists(raw + "/file"));
  }
}

TEST(QRTFmDirPosix, ANarrowPathIsUtf8OfAnyOtherText) {
  const char16_t units[] = u"a\xD83D\xDE00\xDC7F\xDC00\xD83D\xDCA9\xD800z";
  const I18NString text(static_cast<const void*>(units), sizeof units - sizeof units[0], nullptr,
                        nullptr);
  EXPECT_EQ(QRTFmDir::getNarrowPath(text), text.c_str(nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(QRTFmDir::getNarrowPath(I18NString()), "");
}

}  // namespace
