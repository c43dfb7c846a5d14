#include <cstdlib>
#include <new>

#include "AllocTestSupport.h"

namespace {

thread_local int g_successesLeft = -1;  // -1: never fail
thread_local long g_alive = 0;

void* obtain(std::size_t bytes) {
  if (g_successesLeft == 0) {
    return nullptr;
  }
  if (g_successesLeft > 0) {
    --g_successesLeft;
  }
  void* const p = std::malloc(bytes != 0 ? bytes : 1);
  g_alive += p != nullptr ? 1 : 0;
  return p;
}

void giveBack(void* p) {
  g_alive -= p != nullptr ? 1 : 0;
  std::free(p);
}

}  // namespace

NewFails::NewFails(int after) {
  g_successesLeft = after;
}
NewFails::~NewFails() {
  g_successesLeft = -1;
}

long newBlocksAlive() {
  return g_alive;
}

void* operator new(std::size_t bytes) {
  if (void* const p = obtain(bytes)) {
    return p;
  }
  throw std::bad_alloc();
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  return obtain(bytes);
}
void operator delete(void* p) noexcept {
  giveBack(p);
}
void operator delete(void* p, std::size_t) noexcept {
  giveBack(p);
}
