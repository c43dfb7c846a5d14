#include <optional>

#include "alloc/FailingHeap.h"
#include "support/FailingNew.h"

namespace {

std::optional<FailingNew> g_failing;

}  // namespace

FailingHeap::FailingHeap(std::size_t nth, Mode mode) {
  g_failing.emplace(nth, mode == eOnce ? FailingNew::eOnce : FailingNew::eFromThenOn);
}

FailingHeap::~FailingHeap() {
  g_failing.reset();
}

std::size_t FailingHeap::count() const {
  return g_failing->count();
}

bool FailingHeap::hasMalloc() {
  return false;
}
