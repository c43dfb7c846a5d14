#ifndef EXAMPLES_FILESTORE_UPDATEPATTERN_H
#define EXAMPLES_FILESTORE_UPDATEPATTERN_H

#include <cstddef>
#include <cstdint>

namespace example {

/// Decides from a seed which objects are updated and how. An update turns over bits of an object in
/// a pattern that only seed and object number decide, so that the expected content can be worked
/// out from the file again and a second application takes the update back.
class UpdatePattern {
 public:
  explicit UpdatePattern(std::uint64_t seed) : m_seed(seed) {}

  /// Whether the object is among the tenth to be updated.
  bool selects(std::uint64_t object) const;

  /// Updates an object's bytes, or takes the update back.
  void apply(std::uint64_t object, std::byte* bytes, std::size_t size) const;

 private:
  std::uint64_t m_seed;  // two seeds choose different objects and patterns
};

}  // namespace example

#endif  // EXAMPLES_FILESTORE_UPDATEPATTERN_H
