#include "QRTVirtualI18NString.h"

#include <climits>
#include <cstring>

#include "QRTCore/QRTAssert.h"
#include "QRTManagerOf.h"
#include "QRTSameBytes.h"
#include "QRTVirtualPin.h"

QRTVirtualI18NString::~QRTVirtualI18NString() = default;

void QRTVirtualI18NString::setString(const I18NString& s, QRTVirtualMemoryMgr* memMgr) {
  if (memMgr == nullptr || s.empty()) {
    return;
  }
  void* const block = QRT_GUARD_ALLOC(memMgr->alloc(static_cast<unsigned int>(s.size()), *this));
  std::memcpy(block, s.getExternalBuffer(), getSize());
  memMgr->dismiss(*this);
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

int QRTVirtualI18NString::isEqual(QRTVirtualI18NString& other, QRTVirtualMemoryMgr* memMgr) {
  return static_cast<const QRTVirtualI18NString&>(*this).isEqual(
      static_cast<const QRTVirtualI18NString&>(other), memMgr);
}

int QRTVirtualI18NString::isEqual(const QRTVirtualI18NString& other,
                                  QRTVirtualMemoryMgr* memMgr) const {
  return memMgr != nullptr && qrtHoldSameBytes(*this, other, *memMgr) ? 1 : 0;
}

int QRTVirtualI18NString::isEqual(const I18NString& s, QRTVirtualMemoryMgr* memMgr) {
  if (memMgr == nullptr || getSize() != static_cast<unsigned int>(s.size())) {
    return 0;
  }
  const auto pinned = QRTVirtualPin<char>::whole(*memMgr, *this);
  return pinned && std::memcmp(pinned.get(), s.getExternalBuffer(), getSize()) == 0 ? 1 : 0;
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
