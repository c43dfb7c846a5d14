#ifndef EXAMPLES_LARGESTORE_CONTENT_H
#define EXAMPLES_LARGESTORE_CONTENT_H

#include <cstdint>
#include <stdexcept>

class QRTVirtualMemoryMgr;

namespace example {

/// Raised when the store gives back something else than what was put into it.
class Mismatch : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One kind of things that a store is filled with. Whatever it holds can be told from its place, so
/// that hardly anything has to be kept outside of the store to verify it.
class Content {
 public:
  virtual ~Content() = default;

  /// What the kind is called, for people.
  virtual const char* name() const = 0;

  /// Puts about `bytes` into the store. @throws QRTThrowable
  virtual void build(std::uint64_t bytes) = 0;

  /// Changes a part of everything, and moves some of what can move. @throws QRTThrowable, Mismatch
  virtual void edit() = 0;

  /// Visits everything in order and compares every byte. @throws QRTThrowable, Mismatch
  virtual void verify() = 0;

  /// Things in the store, and their bytes without what the store adds to them.
  virtual std::uint64_t count() const = 0;
  virtual std::uint64_t bytes() const = 0;
};

}  // namespace example

#endif  // EXAMPLES_LARGESTORE_CONTENT_H
