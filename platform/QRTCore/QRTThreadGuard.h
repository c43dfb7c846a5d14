#ifndef QRTCORE_QRTTHREADGUARD_H
#define QRTCORE_QRTTHREADGUARD_H

#include "QRTCore/QRTThreadCriticalSection.h"

/// Holds a lock for as long as it stands.
class QRTThreadGuard {
 public:
  /// Enters the lock, waiting for other threads to leave it.
  /// @param section  the lock; must outlive the guard
  explicit QRTThreadGuard(QRTThreadCriticalSection& section) : m_section(section) {
    m_section.enter();
  }

  /// Leaves the lock.
  ~QRTThreadGuard() { m_section.leave(); }

  QRTThreadGuard(const QRTThreadGuard&) = delete;
  QRTThreadGuard& operator=(const QRTThreadGuard&) = delete;

 private:
  QRTThreadCriticalSection& m_section;  // not owned
};

#endif  // QRTCORE_QRTTHREADGUARD_H
