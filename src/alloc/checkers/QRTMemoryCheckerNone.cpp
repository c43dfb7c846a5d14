#include "QRTMemoryChecker.h"

// No checker that takes announcements is known on this system.

bool QRTMemoryChecker::isActive() noexcept {
  return false;
}

void QRTMemoryChecker::poolCreated(const void*, unsigned) noexcept {}

void QRTMemoryChecker::poolDestroyed(const void*) noexcept {}

void QRTMemoryChecker::close(const void*, std::size_t) noexcept {}

void QRTMemoryChecker::open(const void*, std::size_t) noexcept {}

void QRTMemoryChecker::handedOut(const void*, const void*, std::size_t) noexcept {}

void QRTMemoryChecker::resized(const void*, const void*, std::size_t, std::size_t) noexcept {}

void QRTMemoryChecker::givenBack(const void*, const void*, std::size_t) noexcept {}

void QRTMemoryChecker::Pass::begin() noexcept {}

void QRTMemoryChecker::Pass::end() noexcept {}
