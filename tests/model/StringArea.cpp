#include "model/StringArea.h"

#include <algorithm>
#include <cstring>

#include "QRTVirtualUTF8Reader.h"
#include "model/ModelText.h"

namespace model {

namespace {

constexpr std::size_t kStrings = 10;
constexpr std::uint32_t kMostCharacters = 6000;

I18NString i18n(const std::u16string& units) {
  return I18NString(static_cast<const void*>(units.data()), static_cast<int>(units.size() * 2),
                    nullptr, nullptr);
}

std::u16string unitsOf(const I18NString& text) {
  std::u16string units(static_cast<std::size_t>(text.size()) / 2, u'\0');
  std::memcpy(units.data(), text.getExternalBuffer(), units.size() * 2);
  return units;
}

}  // namespace

StringArea::StringArea(ModelWorld& world)
    : ModelArea(world), m_container(&world.manager()), m_utf8(kStrings), m_utf16(kStrings) {}

void StringArea::step() {
  Utf8& utf8 = any(m_utf8);
  Utf16& utf16 = any(m_utf16);
  switch (choices().below(16)) {
    case 0:
    case 1:
    case 2:
    case 3:
      return setUtf8(utf8);
    case 4:
    case 5:
    case 6:
      return setUtf16(utf16);
    case 7:
    case 8:
      return getUtf8(utf8);
    case 9:
      return getUtf16(utf16);
    case 10:
    case 11:
    case 12:
      return compareUtf8(utf8);
    case 13:
      return compareUtf16(utf16);
    case 14:
      utf8.text.clear();
      return free(utf8.handle);
    default:
      utf16.text.clear();
      return free(utf16.handle);
  }
}

// Characters of all lengths; at times bytes among them that are no text.
std::string StringArea::anyBytes() {
  const bool illFormed = choices().oneIn(3);
  std::uint32_t left = choices().size(kMostCharacters);
  std::string bytes;
  for (Choices letters = choices().fork(); left > 0; --left) {
    const std::uint32_t kind = letters.below(16);
    if (illFormed && kind < 2) {
      bytes += static_cast<char>(0x80U | letters.below(128));
    } else {
      static constexpr std::uint32_t kReach[] = {0x800, 0xD800, 0x110000};
      appendUtf8(bytes, kind < 12 ? letters.below(128) : letters.below(kReach[kind % 3]));
    }
  }
  return bytes;
}

std::u16string StringArea::anyUnits() {
  std::u16string units = utf16Of(pointsOf(anyBytes()));
  if (!units.empty() && choices().oneIn(3)) {
    any(units) = static_cast<char16_t>(0xD800U + choices().below(0x800));
  }
  return units;
}

// What is stored after a call that was to store a text: this, or what was there before.
template <class String, class Text>
void StringArea::noteStored(String& string, const QRTVirtualPageItem& before, const Text& text,
                            std::size_t bytes, const Attempt& tried) {
  if (!tried.well()) {
    require(tried.ended == Ended::kOutOfMemory ||
                (tried.ended == Ended::kAssert && bytes >= before.getSize()),
            "storing raised ", tried.text);
  } else if (bytes != 0) {
    string.text = text;
    require(string.handle.getSize() == bytes, "stored ", string.handle.getSize(), " bytes");
    require((string.handle.getOffset() == before.getOffset()) == (bytes < before.getSize()),
            "stored in the wrong place");
    return;
  }
  require(string.handle.getOffset() == before.getOffset() &&
              string.handle.getSize() == before.getSize(),
          "the old string is lost");
}

void StringArea::setUtf8(Utf8& string) {
  const QRTVirtualPageItem before = string.handle;
  const std::uint32_t kind = choices().below(5);
  std::string bytes = anyBytes();
  if (kind == 0) {
    std::replace(bytes.begin(), bytes.end(), '\0', ' ');
  }
  std::string stored = utf8Of(pointsOf(bytes));
  note("set UTF-8", stored.size(), before.getSize());
  const I18NString text{std::string_view(bytes)};
  const QRTI18NBuffer buffer(text);
  const Attempt tried = attempt(
      [&] {
        switch (kind) {
          case 0:
            return string.handle.setString(bytes.c_str(), &m_container);
          case 1:
            return string.handle.setString(std::string_view(bytes), &manager());
          case 2:
            return string.handle.setString(text, &m_container);
          case 3:
            return string.handle.setString(buffer, &manager());
          default:
            return string.handle.setString(text, &manager());
        }
      },
      May::kLeak);
  noteStored(string, before, stored, stored.size(), tried);
}

void StringArea::setUtf16(Utf16& string) {
  const QRTVirtualPageItem before = string.handle;
  const std::u16string units = anyUnits();
  note("set UTF-16", units.size() * 2, before.getSize());
  const I18NString text = i18n(units);
  const Attempt tried = attempt(
      [&] {
        choices().oneIn(2) ? string.handle.setString(text, &manager())
                           : string.handle.setString(text, &m_container);
      },
      May::kLeak);
  noteStored(string, before, units, units.size() * 2, tried);
}

void StringArea::getUtf8(Utf8& string) {
  note("get UTF-8", string.handle.getOffset(), string.text.size());
  I18NString text;
  QRTI18NBuffer buffer(I18NString("before"));
  const std::uint32_t kind = choices().below(3);
  const Attempt tried = attempt([&] {
    if (kind == 0) {
      text = string.handle.getString(&manager());
    } else if (kind == 1) {
      text = string.handle.getString(&m_container);
    } else {
      string.handle.getI18NBuffer(buffer, &manager());
    }
  });
  require(tried.well() || tried.memoryFaulted, "reading raised ", tried.text);
  if (!tried.well()) {
    require(buffer.viewString() == I18NString("before"), "a failed read changed the buffer");
    return;
  }
  const std::u16string got = unitsOf(kind == 2 ? buffer.getString() : text);
  require(got == utf16Of(pointsOf(string.text)) || (tried.faulted && got.empty()),
          "another string");
}

void StringArea::getUtf16(Utf16& string) {
  note("get UTF-16", string.handle.getOffset(), string.text.size());
  I18NString text;
  const Attempt tried = attempt([&] {
    text = choices().oneIn(2) ? string.handle.getString(&manager())
                              : string.handle.getString(&m_container);
  });
  require(tried.well() || tried.memoryFaulted, "reading raised ", tried.text);
  const std::u16string got = unitsOf(text);
  require(got == string.text || (tried.faulted && got.empty()), "another string");
}

// What cannot be read is equal to nothing.
template <class Call>
void StringArea::expectEqual(bool equal, Call call) {
  int result = -1;
  const Attempt tried = attempt([&] { result = call(); });
  require(tried.well(), "a comparison raised ", tried.text);
  require(result == (equal ? 1 : 0) || (tried.faulted && result == 0), "compared to ", result);
}

void StringArea::compareUtf8(Utf8& string) {
  std::string bytes = choices().oneIn(2) ? string.text : anyBytes();
  if (!bytes.empty() && choices().oneIn(4)) {
    any(bytes) = static_cast<char>(choices().byte());
  }
  const Utf8& other = any(m_utf8);
  note("compare UTF-8", string.text.size(), bytes.size());
  const std::string stored = utf8Of(pointsOf(bytes));
  const bool equal = stored == string.text;
  const I18NString text{std::string_view(bytes)};
  expectEqual(equal, [&] { return string.handle.isEqual(std::string_view(bytes), &manager()); });
  expectEqual(equal, [&] { return string.handle.isEqual(text, &m_container); });
  if (bytes.find('\0') == std::string::npos) {
    expectEqual(equal, [&] { return string.handle.isEqual(bytes.c_str(), &manager()); });
  }
  expectEqual(!string.text.empty() && string.text == other.text,
              [&] { return string.handle.isEqual(other.handle, &manager()); });
}

void StringArea::compareUtf16(Utf16& string) {
  std::u16string units = choices().oneIn(2) ? string.text : anyUnits();
  if (!units.empty() && choices().oneIn(4)) {
    any(units) = static_cast<char16_t>(choices().below(65536));
  }
  Utf16& other = any(m_utf16);
  note("compare UTF-16", string.text.size(), units.size());
  const I18NString text = i18n(units);
  expectEqual(!units.empty() && units == string.text,
              [&] { return string.handle.isEqual(text, &manager()); });
  expectEqual(!string.text.empty() && string.text == other.text,
              [&] { return string.handle.isEqual(other.handle, &m_container); });
}

void StringArea::free(QRTVirtualPageItem& handle) {
  note("free", handle.getOffset(), handle.getSize());
  attempt([&] { manager().free(handle); }, May::kLeak);
  handle.clear();
}

void StringArea::verify() {
  for (Utf8& string : m_utf8) {
    getUtf8(string);
    const QRTVirtualUTF8Reader reader(string.handle, &m_container);
    require(reader.view() == string.text, "another string");
  }
  for (Utf16& string : m_utf16) {
    getUtf16(string);
  }
}

void StringArea::clear() {
  for (Utf8& string : m_utf8) {
    free(string.handle);
    string.text.clear();
  }
  for (Utf16& string : m_utf16) {
    free(string.handle);
    string.text.clear();
  }
}

std::uint64_t StringArea::objects() const {
  const auto isStored = [](const auto& string) { return string.handle.empty() == 0; };
  return static_cast<std::uint64_t>(std::count_if(m_utf8.begin(), m_utf8.end(), isStored) +
                                    std::count_if(m_utf16.begin(), m_utf16.end(), isStored));
}

bool StringArea::owns(std::uint64_t offset) const {
  const auto isIt = [&](const auto& string) { return string.handle.getOffset() == offset; };
  return std::any_of(m_utf8.begin(), m_utf8.end(), isIt) ||
         std::any_of(m_utf16.begin(), m_utf16.end(), isIt);
}

}  // namespace model
