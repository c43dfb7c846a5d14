#include "QRTVirtualI18NString.h"

#include <climits>
#include <cstdint>
#include <cstring>

#include "QRTCore/QRTAssert.h"
#include "QRTCore/QRTUtUtf8.h"
#include "QRTKeptSize.h"
#include "QRTManagerOf.h"
#include "QRTSameBytes.h"
#include "QRTVirtualI18NReader.h"
#include "QRTVirtualPin.h"

namespace {

/// @return whether an item of a manager names an object of a string's external buffer
bool holdsUnitsOf(const I18NString& s, const QRTVirtualPageItem& item,
                  QRTVirtualMemoryMgr* memMgr) {
  if (memMgr == nullptr || item.getSize() != static_cast<unsigned int>(s.size())) {
    return false;
  }
  const auto pinned = QRTVirtualPin<char>::whole(*memMgr, item);
  return pinned && std::memcmp(pinned.get(), s.getExternalBuffer(), item.getSize()) == 0;
}

}  // namespace

QRTVirtualI18NString::~QRTVirtualI18NString() = default;

void QRTVirtualI18NString::setString(const I18NString& s, QRTVirtualMemoryMgr* memMgr) {
  if (memMgr == nullptr || s.empty()) {
    return;
  }
  QRTKeptSize kept(*this);
  void* const block = QRT_GUARD_ALLOC(memMgr->alloc(static_cast<unsigned int>(s.size()), *this));
  kept.give();
  std::memcpy(block, s.getExternalBuffer(), getSize());
  memMgr->dismiss(*this);
}

void QRTVirtualI18NString::setString(std::string_view utf8, QRTVirtualMemoryMgr* memMgr) {
  if (memMgr != nullptr) {
    setString(I18NString(utf8), memMgr);
  }
}

void QRTVirtualI18NString::setString(const char* utf8, QRTVirtualMemoryMgr* memMgr) {
  if (memMgr != nullptr) {
    setString(I18NString(utf8), memMgr);
  }
}

I18NString QRTVirtualI18NString::getString(QRTVirtualMemoryMgr* memMgr) {
  I18NString text;
  // No string is longer than an int can tell; a size above that is not from here.
  if (memMgr != nullptr && empty() == 0 && getSize() <= INT_MAX) {
    const auto pinned = QRTVirtualPin<char>::whole(*memMgr, *this);
    text = I18NString(static_cast<const void*>(pinned.get()), static_cast<int>(getSize()), nullptr,
                      nullptr);
  }
  return text;
}

// Straight from the stored units, which are an array of them: objects are aligned to 8 bytes.
std::string QRTVirtualI18NString::getUtf8(QRTVirtualMemoryMgr* memMgr) const {
  const QRTVirtualI18NReader reader(*this, memMgr);
  const std::u16string_view units = reader.view();
  const std::uint64_t length = QRTUtUtf8::utf8Length(units);
  if (length > INT_MAX) {
    QRT_THROW(QRTOutOfMemoryError(
        0, "QRTVirtualI18NString: a string in UTF-8 is limited to 2147483647 bytes"));
  }
  std::string bytes(static_cast<std::size_t>(length), '\0');
  QRTUtUtf8::toUtf8(units, bytes.data());
  return bytes;
}

int QRTVirtualI18NString::isEqual(QRTVirtualI18NString& other, QRTVirtualMemoryMgr* memMgr) {
  return static_cast<const QRTVirtualI18NString&>(*this).isEqual(
      static_cast<const QRTVirtualI18NString&>(other), memMgr);
}

int QRTVirtualI18NString::isEqual(const QRTVirtualI18NString& other,
                                  QRTVirtualMemoryMgr* memMgr) const {
  return memMgr != nullptr && qrtHoldSameBytes(*this, other, *memMgr) ? 1 : 0;
}

int QRTVirtualI18NString::isEqual(const I18NString& s, QRTVirtualMemoryMgr* memMgr) {
  return holdsUnitsOf(s, *this, memMgr) ? 1 : 0;
}

int QRTVirtualI18NString::isEqual(std::string_view utf8, QRTVirtualMemoryMgr* memMgr) const {
  return memMgr != nullptr && holdsUnitsOf(I18NString(utf8), *this, memMgr) ? 1 : 0;
}

int QRTVirtualI18NString::isEqual(const char* utf8, QRTVirtualMemoryMgr* memMgr) const {
  return memMgr != nullptr && holdsUnitsOf(I18NString(utf8), *this, memMgr) ? 1 : 0;
}

std::string QRTVirtualI18NString::getUtf8(QRTVirtualContainer* container) const {
  return getUtf8(qrtManagerOf(container));
}

void QRTVirtualI18NString::setString(std::string_view utf8, QRTVirtualContainer* container) {
  setString(utf8, qrtManagerOf(container));
}

void QRTVirtualI18NString::setString(const char* utf8, QRTVirtualContainer* container) {
  setString(utf8, qrtManagerOf(container));
}

int QRTVirtualI18NString::isEqual(std::string_view utf8, QRTVirtualContainer* container) const {
  return isEqual(utf8, qrtManagerOf(container));
}

int QRTVirtualI18NString::isEqual(const char* utf8, QRTVirtualContainer* container) const {
  return isEqual(utf8, qrtManagerOf(container));
}

I18NString QRTVirtualI18NString::getString(QRTVirtualContainer* container) {
  return getString(qrtManagerOf(container));
}

void QRTVirtualI18NString::setString(const I18NString& s, QRTVirtualContainer* container) {
  setString(s, qrtManagerOf(container));
}

int QRTVirtualI18NString::isEqual(QRTVirtualI18NString& other, QRTVirtualContainer* container) {
  return isEqual(other, qrtManagerOf(container));
}

int QRTVirtualI18NString::isEqual(const I18NString& s, QRTVirtualContainer* container) {
  return isEqual(s, qrtManagerOf(container));
}
