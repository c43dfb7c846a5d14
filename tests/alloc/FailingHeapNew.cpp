#include <optional>

#include "alloc/FailingHeap.h"
#include "support/FailingNew.h"

namespace {

std::optional<FailingNew> fails;

}  // namespace

FailingHeap::FailingHeap(std::size_t nth, Mode mode) {
  fails.emplace(nth, mode == eOnce ? FailingNew::eOnce : FailingNew::eFromThenOn);
}

FailingHeap::~FailingHeap() {
  fails.reset();
}

std::size_t FailingHeap::count() const {
  return fails->count();
}

bool FailingHeap::hasMalloc() {
  return false;
}
