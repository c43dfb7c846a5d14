#ifndef TESTS_SUPPORT_FAILINGNEW_H
#define TESTS_SUPPORT_FAILINGNEW_H

#include <cstddef>

/// Lets operator new fail while it lives, in a program that compiles FailingNew.cpp. Allocations
/// made inside a FailingNew::Pause neither count nor fail, so that a test's own bookkeeping does
/// not disturb the count.
class FailingNew {
 public:
  enum Mode {
    eOnce,        ///< the nth fails
    eFromThenOn,  ///< and those after it
    eOutOfReach   ///< the nth gets an address of more than 48 bits, where nothing is; 64-bit only
  };

  /// @param nth   the allocation that fails, from 1; 0 for none
  /// @param mode  whether later ones work again
  explicit FailingNew(std::size_t nth, Mode mode = eOnce);
  ~FailingNew();
  FailingNew(const FailingNew&) = delete;
  FailingNew& operator=(const FailingNew&) = delete;

  /// @return allocations asked for since the object was made
  std::size_t count() const;

  class Pause {
   public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
  };
};

#endif  // TESTS_SUPPORT_FAILINGNEW_H
