#ifndef QRTSAMEBYTES_H
#define QRTSAMEBYTES_H

#include <cstring>

#include "QRTVirtualPin.h"

/// @return whether two items of a manager name objects of the same bytes. Sizes are compared before
///         anything is pinned.
inline bool qrtHoldSameBytes(const QRTVirtualPageItem& a, const QRTVirtualPageItem& b,
                             QRTVirtualMemoryMgr& memMgr) {
  if (a.getSize() != b.getSize()) {
    return false;
  }
  auto pinnedA = QRTVirtualPin<char>::whole(memMgr, a);
  const auto pinnedB = QRTVirtualPin<char>::whole(memMgr, b);
  const bool same =
      pinnedA && pinnedB && std::memcmp(pinnedA.get(), pinnedB.get(), a.getSize()) == 0;
  pinnedA.reset();
  return same;
}

#endif  // QRTSAMEBYTES_H
