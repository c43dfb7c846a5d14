// FailingHeap where the C runtime is glibc's and no sanitizer stands in for malloc itself.

#include <cstdlib>

#include "alloc/FailingHeap.h"

namespace {

bool counting = false;
std::size_t counted = 0;
std::size_t failing = 0;
FailingHeap::Mode failingMode = FailingHeap::eOnce;

}  // namespace

extern "C" {

// The name is the C runtime's.
void* __libc_malloc(std::size_t size);  // NOLINT(bugprone-reserved-identifier)

void* malloc(std::size_t size) noexcept {
  if (counting) {
    ++counted;
    if (counted == failing || (failingMode == FailingHeap::eFromThenOn && counted > failing)) {
      return nullptr;
    }
  }
  return __libc_malloc(size);
}
}

FailingHeap::FailingHeap(std::size_t nth, Mode mode) {
  counted = 0;
  failing = nth;
  failingMode = mode;
  counting = true;
}

FailingHeap::~FailingHeap() {
  counting = false;
}

std::size_t FailingHeap::count() const {
  return counted;
}

bool FailingHeap::hasMalloc() {
  return true;
}
