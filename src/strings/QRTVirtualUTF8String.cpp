#include "QRTVirtualUTF8String.h"

#include <climits>
#include <cstdint>
#include <cstring>

#include "QRTCore/QRTAssert.h"
#include "QRTCore/QRTUtUtf8.h"
#include "QRTKeptSize.h"
#include "QRTManagerOf.h"
#include "QRTSameBytes.h"
#include "QRTVirtualPin.h"

namespace {

/// A std::string_view made from null would read there.
std::string_view viewOf(const char* utf8) {
  return utf8 == nullptr ? "" : utf8;
}

}  // namespace

QRTVirtualUTF8String::~QRTVirtualUTF8String() = default;

// 1. Nothing to store, or nowhere: what is stored stays.
// 2. Ask for room for the string's UTF-8; this is what can fail, and then the handle is as it was.
// 3. Write the UTF-8 straight into the store.
// 4. Unpin.
void QRTVirtualUTF8String::setString(const I18NString& s, QRTVirtualMemoryMgr* memMgr) {
  // Step 1
  if (memMgr == nullptr || s.empty()) {
    return;
  }
  // Step 2
  const auto length = static_cast<unsigned int>(s.getUtf8Length());
  QRTKeptSize kept(*this);
  void* const block = QRT_GUARD_ALLOC(memMgr->alloc(length, *this));
  kept.give();
  // Step 3
  s.copyUtf8(static_cast<char*>(block));
  // Step 4
  memMgr->dismiss(*this);
}

void QRTVirtualUTF8String::setString(const QRTI18NBuffer& buf, QRTVirtualMemoryMgr* memMgr) {
  setString(buf.viewString(), memMgr);
}

// The same steps.
void QRTVirtualUTF8String::setString(std::string_view utf8, QRTVirtualMemoryMgr* memMgr) {
  // Step 1
  if (memMgr == nullptr || utf8.empty()) {
    return;
  }
  // Step 2
  const std::uint64_t length = QRTUtUtf8::repairedLength(utf8);
  if (length > UINT_MAX) {
    QRT_THROW(QRTOutOfMemoryError(
        0, "QRTVirtualUTF8String: a stored string is limited to 4294967295 bytes"));
  }
  QRTKeptSize kept(*this);
  void* const block = QRT_GUARD_ALLOC(memMgr->alloc(static_cast<unsigned int>(length), *this));
  kept.give();
  // Step 3
  QRTUtUtf8::repair(utf8, static_cast<char*>(block));
  // Step 4
  memMgr->dismiss(*this);
}

void QRTVirtualUTF8String::setString(const char* utf8, QRTVirtualMemoryMgr* memMgr) {
  setString(viewOf(utf8), memMgr);
}

I18NString QRTVirtualUTF8String::getString(QRTVirtualMemoryMgr* memMgr) {
  I18NString text;
  if (memMgr != nullptr && empty() == 0) {
    const auto pinned = QRTVirtualPin<char>::whole(*memMgr, *this);
    if (pinned) {
      text = I18NString(std::string_view(pinned.get(), getSize()));
    }
  }
  return text;
}

std::string QRTVirtualUTF8String::getUtf8(QRTVirtualMemoryMgr* memMgr) const {
  std::string bytes;
  if (memMgr != nullptr && empty() == 0) {
    const auto pinned = QRTVirtualPin<const char>::whole(*memMgr, *this);
    if (pinned) {
      bytes.assign(pinned.get(), getSize());
    }
  }
  return bytes;
}

void QRTVirtualUTF8String::getI18NBuffer(QRTI18NBuffer& buf, QRTVirtualMemoryMgr* memMgr) {
  if (memMgr == nullptr || empty() != 0) {
    buf.clear();
  } else {
    buf = getString(memMgr);
  }
}

void* QRTVirtualUTF8String::getObjectPtr(QRTVirtualMemoryMgr* memMgr) {
  return memMgr == nullptr ? nullptr : memMgr->getAddress(*this, 1);
}

int QRTVirtualUTF8String::isEqual(const QRTVirtualUTF8String& other,
                                  QRTVirtualMemoryMgr* memMgr) const {
  return memMgr != nullptr && qrtHoldSameBytes(*this, other, *memMgr) ? 1 : 0;
}

int QRTVirtualUTF8String::isEqual(const I18NString& s, QRTVirtualMemoryMgr* memMgr) const {
  if (memMgr == nullptr) {
    return 0;
  }
  if (empty() != 0 && s.empty()) {
    return 1;
  }
  if (!s.hasUtf8Length(getSize())) {
    return 0;
  }
  const auto pinned = QRTVirtualPin<char>::whole(*memMgr, *this);
  return pinned && s.equalsUtf8(pinned.get()) ? 1 : 0;
}

int QRTVirtualUTF8String::isEqual(std::string_view utf8, QRTVirtualMemoryMgr* memMgr) const {
  if (memMgr == nullptr) {
    return 0;
  }
  if (empty() != 0 && utf8.empty()) {
    return 1;
  }
  if (utf8.size() == getSize()) {
    const auto pinned = QRTVirtualPin<char>::whole(*memMgr, *this);
    if (pinned && std::memcmp(pinned.get(), utf8.data(), utf8.size()) == 0) {
      return 1;
    }
  }
  // Other bytes can be the same text only when some of them are to be replaced.
  if (QRTUtUtf8::findInvalid(utf8) == utf8.size() || QRTUtUtf8::repairedLength(utf8) != getSize()) {
    return 0;
  }
  const auto pinned = QRTVirtualPin<char>::whole(*memMgr, *this);
  return pinned && QRTUtUtf8::equalsRepaired(utf8, pinned.get()) ? 1 : 0;
}

int QRTVirtualUTF8String::isEqual(const char* utf8, QRTVirtualMemoryMgr* memMgr) const {
  return isEqual(viewOf(utf8), memMgr);
}

void QRTVirtualUTF8String::setString(const I18NString& s, QRTVirtualContainer* container) {
  setString(s, qrtManagerOf(container));
}

void QRTVirtualUTF8String::setString(const QRTI18NBuffer& buf, QRTVirtualContainer* container) {
  setString(buf, qrtManagerOf(container));
}

void QRTVirtualUTF8String::setString(std::string_view utf8, QRTVirtualContainer* container) {
  setString(utf8, qrtManagerOf(container));
}

void QRTVirtualUTF8String::setString(const char* utf8, QRTVirtualContainer* container) {
  setString(utf8, qrtManagerOf(container));
}

I18NString QRTVirtualUTF8String::getString(QRTVirtualContainer* container) {
  return getString(qrtManagerOf(container));
}

std::string QRTVirtualUTF8String::getUtf8(QRTVirtualContainer* container) const {
  return getUtf8(qrtManagerOf(container));
}

void QRTVirtualUTF8String::getI18NBuffer(QRTI18NBuffer& buf, QRTVirtualContainer* container) {
  getI18NBuffer(buf, qrtManagerOf(container));
}

void* QRTVirtualUTF8String::getObjectPtr(QRTVirtualContainer* container) {
  return getObjectPtr(qrtManagerOf(container));
}

int QRTVirtualUTF8String::isEqual(const QRTVirtualUTF8String& other,
                                  QRTVirtualContainer* container) const {
  return isEqual(other, qrtManagerOf(container));
}

int QRTVirtualUTF8String::isEqual(const I18NString& s, QRTVirtualContainer* container) const {
  return isEqual(s, qrtManagerOf(container));
}

int QRTVirtualUTF8String::isEqual(std::string_view utf8, QRTVirtualContainer* container) const {
  return isEqual(utf8, qrtManagerOf(container));
}

int QRTVirtualUTF8String::isEqual(const char* utf8, QRTVirtualContainer* container) const {
  return isEqual(utf8, qrtManagerOf(container));
}
