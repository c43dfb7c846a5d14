#include "core/FailingMalloc.h"

namespace {

std::size_t failingSize = 0;  // 0: none fails
int countdown = 0;

}  // namespace

extern "C" {

// The names are the linker's.
void* __real_malloc(std::size_t size);  // NOLINT(bugprone-reserved-identifier)
void* __wrap_malloc(std::size_t size);  // NOLINT(bugprone-reserved-identifier)

void* __wrap_malloc(std::size_t size) {
  if (failingSize != 0 && size == failingSize && --countdown == 0) {
    return nullptr;
  }
  return __real_malloc(size);
}
}

FailingMalloc::FailingMalloc(std::size_t size, int nth) {
  failingSize = size;
  countdown = nth;
}

FailingMalloc::~FailingMalloc() {
  failingSize = 0;
}
