#include <openssl/crypto.h>

#include <cstdlib>
#include <set>
#include <string_view>

#include "engine/EngineFixture.h"
#include "libtcmalloc_virtualmm/EncryptedPagingFile.h"

// Encrypted files: what they show, and that nothing is lost when encryption fails. Random
// operations and the operating system's files have their own tests, which run with encryption, too.

namespace {

using testing::HasSubstr;

/// Lets libcrypto be without memory while it lives.
class NoCryptoMemory {
 public:
  /// @param after  allocations that still succeed
  explicit NoCryptoMemory(std::size_t after = 0) { m_left = after + 1; }
  ~NoCryptoMemory() { m_left = SIZE_MAX; }
  NoCryptoMemory(const NoCryptoMemory&) = delete;
  NoCryptoMemory& operator=(const NoCryptoMemory&) = delete;

  /// Whether libcrypto asks this class for memory, as it does if nothing was asked for before.
  static const bool kInstalled;

 private:
  static bool Refuses() {
    m_left -= m_left > 0 && m_left != SIZE_MAX ? 1 : 0;
    return m_left == 0;
  }
  static void* Allocate(std::size_t size, const char*, int) {
    return Refuses() ? nullptr : std::malloc(size);
  }
  static void* Reallocate(void* block, std::size_t size, const char*, int) {
    return Refuses() ? nullptr : std::realloc(block, size);
  }
  static void Free(void* block, const char*, int) { std::free(block); }

  static std::size_t m_left;  // allocations up to the first that fails; SIZE_MAX when none does
};

std::size_t NoCryptoMemory::m_left = SIZE_MAX;
const bool NoCryptoMemory::kInstalled = CRYPTO_set_mem_functions(Allocate, Reallocate, Free) == 1;

class EncryptionTest : public EngineFixture {
 protected:
  static constexpr std::uint32_t kPage = 4096;
  static constexpr std::size_t kCipherBlock = 16;

  EncryptionTest() { encrypted = true; }

  std::string PageInFile(const Object& object) const {
    const ScriptedPagingFile::Image image = file->Save();
    const std::vector<char>& block = image.blocks.at(PageOf(object.offset));
    return {block.begin(), block.end()};
  }

  /// Whether the file has any eight bytes of an object's in a row, where they lie in the object.
  bool Shows(const Object& object) const {
    std::vector<char> content(object.size);
    Fill(content.data(), object.size, object.seed);
    const std::string page = PageInFile(object);
    for (std::size_t at = 0; at + 8 <= content.size(); at += 8) {
      if (page.find(std::string_view(&content[at], 8)) != std::string::npos) {
        return true;
      }
    }
    return false;
  }

  /// How many of a file's cipher blocks are like one before.
  static std::size_t Repeated(const ScriptedPagingFile& each) {
    std::set<std::string> seen;
    std::size_t blocks = 0;
    for (const auto& [number, bytes] : each.Save().blocks) {
      for (std::size_t at = 0; at < bytes.size(); at += kCipherBlock) {
        const std::string block(&bytes[at], kCipherBlock);
        const bool unused = number == each.Size() / kPage && block == std::string(kCipherBlock, 0);
        blocks += unused ? 0 : 1;  // behind the end of the file
        if (!unused) {
          seen.insert(block);
        }
      }
    }
    EXPECT_GT(blocks, 0U);
    return blocks - seen.size();
  }
};

TEST_F(EncryptionTest, NeitherFileShowsWhatIsStored) {
  for (const bool on : {false, true}) {
    encrypted = on;
    Make(8, kPage, false, 1);
    std::vector<Object> objects = AddMany(200, kPage);
    // All alike, on pages of their own and on the pages of one span, which have one hash.
    for (const std::uint32_t size : {kPage, 3 * kPage}) {
      for (int i = 0; i < 100; ++i) {
        std::uint64_t offset = 0;
        void* address = engine->Allocate(size, offset);
        ASSERT_NE(address, nullptr);
        std::memset(address, 0, size);
        engine->Dismiss(offset);
      }
    }
    PushOut();
    for (const Object& object : objects) {
      ASSERT_EQ(Shows(object), !on);
    }
    EXPECT_EQ(Repeated(*file) > 1000, !on) << Repeated(*file);
    EXPECT_EQ(Repeated(*tableFile) > 50, !on) << Repeated(*tableFile);
    if (on) {
      EXPECT_EQ(Repeated(*file) + Repeated(*tableFile), 0U) << "equal content shows";
    }
    ExpectIntact(objects);
  }
}

// The tweak has the content's hash: only a page that becomes again what it was looks as it did.
TEST_F(EncryptionTest, AChangedByteChangesThePageAllOverInTheFile) {
  Make(8);
  std::vector<Object> objects = AddMany(20, kPage);
  PushOut();
  const auto change = [&](char by) {
    auto* address = static_cast<char*>(engine->GetAddress(objects[3].offset, true));
    ASSERT_NE(address, nullptr);
    address[kPage - 1] = static_cast<char>(address[kPage - 1] + by);
    engine->Dismiss(objects[3].offset);
    PushOut();
  };
  const std::string before = PageInFile(objects[3]);
  ASSERT_NO_FATAL_FAILURE(change(1));
  const std::string after = PageInFile(objects[3]);
  for (std::size_t at = 0; at < kPage; at += kCipherBlock) {
    ASSERT_NE(before.substr(at, kCipherBlock), after.substr(at, kCipherBlock)) << at;
  }
  ASSERT_NO_FATAL_FAILURE(change(-1));
  EXPECT_EQ(PageInFile(objects[3]), before);
  ExpectIntact(objects);
}

TEST_F(EncryptionTest, EachFileHasAKeyOfItsOwn) {
  std::set<std::string> images;
  for (int i = 0; i < 3; ++i) {
    Make(8);
    const std::vector<Object> objects = AddMany(20, kPage);
    PushOut();
    images.insert(PageInFile(objects[0]));
  }
  EXPECT_EQ(images.size(), 3U);
}

TEST_F(EncryptionTest, ChangedBitsAndMovedPagesAreRefused) {
  Make(8);
  const std::vector<Object> objects = AddMany(100, kPage);
  PushOut();
  const auto image = file->Save();
  const auto expectRefused = [&](const Object& object, const char* what) {
    EXPECT_EQ(Look(object), Read::kNull) << what;
    EXPECT_THAT(engine->GetLastError(), HasSubstr("not what was written"));
    file->Restore(image);
    ExpectIntact(objects);
  };
  const std::uint64_t place = std::uint64_t{PageOf(objects[40].offset)} * kPage;
  for (const std::uint32_t byte : {0U, 17U, kPage - 1}) {
    file->FlipBit(place + byte);
    expectRefused(objects[40], "a bit was changed");
  }
  file->SwapBlocks(place, place + kPage);
  expectRefused(objects[40], "its page has another one's place");
}

// libcrypto without memory at any moment of a page's way out or in, and from its first use on.
TEST_F(EncryptionTest, NothingIsLostWhileLibcryptoRefuses) {
  ASSERT_TRUE(NoCryptoMemory::kInstalled && tcmalloc::CanEncrypt());
  {
    Make(8);
    const NoCryptoMemory none;
    const std::vector<Object> objects = AddUntilFull(kPage, 100);
    EXPECT_LE(objects.size(), 8U) << "there is no key";
    EXPECT_THAT(engine->GetLastError(), HasSubstr("make the paging file"));
    EXPECT_THAT(engine->GetLastError(), HasSubstr("libcrypto"));
    EXPECT_EQ(file->opens.made, 0U);
    ExpectIntact(objects);
  }
  std::vector<Object> objects = AddMany(64, kPage);
  for (std::size_t after = 0; after < 10; ++after) {
    SCOPED_TRACE(testing::Message() << after << " allocations");
    {
      const NoCryptoMemory none(after);
      for (Object& object : objects) {  // each is read, and changed if it could be
        const Read read = Look(object);
        ASSERT_NE(read, Read::kWrong);
        if (read == Read::kNull) {
          ASSERT_THAT(engine->GetLastError(), HasSubstr("libcrypto"));
        } else {
          Change(object, object.seed + 1000);
        }
      }
    }
    ExpectIntact(objects);
  }
  EXPECT_EQ(engine->DamagedReads(), 0U);
  AddMany(64, kPage);
  ExpectIntact(objects);
}

TEST_F(EncryptionTest, WithoutMemoryForTheBufferThereIsNoFileYet) {
  for (std::size_t nth = 1;; ++nth) {
    SCOPED_TRACE(testing::Message() << "allocation " << nth);
    Make(8);
    wasShortOfMemory = true;
    std::vector<Object> objects;
    objects.reserve(200);
    std::size_t asked = 0;
    {
      const FailingNew failing(nth);
      for (std::uint32_t i = 0; i < 100; ++i) {
        if (const Object object = Add(kPage, i); object.offset != 0) {
          objects.push_back(object);
        }
      }
      asked = failing.count();
    }
    EXPECT_GE(objects.size(), 98U) << "one failure is no more than a few refused objects";
    ExpectIntact(objects);
    AddMany(20, kPage);
    ExpectIntact(objects);
    if (asked < nth) {
      EXPECT_GT(nth, 3U);
      break;
    }
  }
}

// Without a cipher nothing is written rather than that it is written as it is.
TEST_F(EncryptionTest, AFileWithoutACipherCannotBeMade) {
  tcmalloc::EncryptedPagingFile bare(std::make_unique<ScriptedPagingFile>(), nullptr, kPage);
  EXPECT_EQ(bare.Open(), tcmalloc::kCipherFailed);
}

}  // namespace
