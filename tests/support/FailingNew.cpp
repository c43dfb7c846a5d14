#include "support/FailingNew.h"

#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

bool counting = false;
std::size_t counted = 0;
std::size_t failing = 0;
FailingNew::Mode failingMode = FailingNew::eOnce;
int pauses = 0;

// NOLINTNEXTLINE(performance-no-int-to-ptr): it is to be the address of nothing
void* const kOutOfReach = reinterpret_cast<void*>(static_cast<std::uintptr_t>(1ULL << 48));

void* allocate(std::size_t size) {
  if (counting && pauses == 0) {
    ++counted;
    if (failing != 0 &&
        (counted == failing || (failingMode == FailingNew::eFromThenOn && counted > failing))) {
      return failingMode == FailingNew::eOutOfReach ? kOutOfReach : nullptr;
    }
  }
  return std::malloc(size != 0 ? size : 1);
}

void release(void* block) {
  if (block != kOutOfReach) {
    std::free(block);
  }
}

}  // namespace

FailingNew::FailingNew(std::size_t nth, Mode mode) {
  counted = 0;
  failing = nth;
  failingMode = mode;
  counting = true;
}

FailingNew::~FailingNew() {
  counting = false;
}

std::size_t FailingNew::count() const {
  return counted;
}

FailingNew::Pause::Pause() {
  ++pauses;
}

FailingNew::Pause::~Pause() {
  --pauses;
}

void* operator new(std::size_t size) {
  void* const block = allocate(size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

void* operator new[](std::size_t size) {
  return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
void operator delete(void* block) noexcept {
  release(block);
}
void operator delete[](void* block) noexcept {
  release(block);
}
void operator delete(void* block, std::size_t) noexcept {
  release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  release(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  release(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  release(block);
}
