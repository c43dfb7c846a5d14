#ifndef HZSSTREAMS_GZIPDECOMPRESSOR_H
#define HZSSTREAMS_GZIPDECOMPRESSOR_H

#include <cstddef>
#include <memory>

/// The inflating half of a compression library, like GzipCompressor.
class GzipDecompressor {
 public:
  /// What one step did.
  struct Step {
    std::size_t consumed;  ///< bytes of input taken
    std::size_t produced;  ///< bytes of output made
    bool memberEnds;       ///< whether the member is complete and its checksum fits
    const char* damage;    ///< what is wrong with the input, static text; null when nothing is
  };

  /// Makes the decompressor that this build uses. `begin` comes first.
  /// @throws std::bad_alloc
  static std::unique_ptr<GzipDecompressor> make();

  virtual ~GzipDecompressor() = default;

  /// Begins a member.
  virtual void begin() = 0;

  /// Inflates a stretch of input, or as much of it as the room for output allows. Neither consumed
  /// nor produced means that input is missing.
  virtual Step inflate(const char* input, std::size_t size, char* output, std::size_t room) = 0;
};

#endif  // HZSSTREAMS_GZIPDECOMPRESSOR_H
