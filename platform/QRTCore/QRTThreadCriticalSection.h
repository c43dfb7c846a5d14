#ifndef QRTCORE_QRTTHREADCRITICALSECTION_H
#define QRTCORE_QRTTHREADCRITICALSECTION_H

#include <mutex>

#include "QRTCore/QRTExport.h"

/// A lock that one thread at a time holds. The thread that holds it may enter again and leaves as
/// often as it entered. Enter it through a QRTThreadGuard, which leaves by itself.
class QRT_EXPORT QRTThreadCriticalSection {
 public:
  /// Makes a lock that nobody holds.
  /// @param spinCount  tries before a thread goes to sleep, a hint that may be ignored; 0 or more
  explicit QRTThreadCriticalSection(int spinCount) { static_cast<void>(spinCount); }

  ~QRTThreadCriticalSection() = default;
  QRTThreadCriticalSection(const QRTThreadCriticalSection&) = delete;
  QRTThreadCriticalSection& operator=(const QRTThreadCriticalSection&) = delete;

  /// Waits until no other thread holds the lock, then holds it.
  /// @throws std::system_error when the system cannot lock
  void enter() { m_mutex.lock(); }

  /// Gives the lock up once; the calling thread must hold it.
  void leave() noexcept { m_mutex.unlock(); }

 private:
  std::recursive_mutex m_mutex;  // the lock itself
};

#endif  // QRTCORE_QRTTHREADCRITICALSECTION_H
