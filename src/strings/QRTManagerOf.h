#ifndef QRTMANAGEROF_H
#define QRTMANAGEROF_H

#include "QRTVirtualContainer.h"

/// @return the container's manager; null when there is no container or it has none
inline QRTVirtualMemoryMgr* qrtManagerOf(const QRTVirtualContainer* container) {
  return container == nullptr ? nullptr : container->getMemoryMgr();
}

#endif  // QRTMANAGEROF_H
