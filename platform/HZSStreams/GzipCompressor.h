#ifndef HZSSTREAMS_GZIPCOMPRESSOR_H
#define HZSSTREAMS_GZIPCOMPRESSOR_H

#include <cstddef>
#include <memory>

/// The compressing half of a compression library, reduced to what this library needs of it. One
/// source file for each library stands behind this class; the build chooses.
class GzipCompressor {
 public:
  /// How much of what was given has to come out.
  enum Mode {
    eMore,    ///< as much as is worth it
    eFlush,   ///< all of it; the member goes on
    eFinish,  ///< all of it and the end of the member
  };

  /// What one step did.
  struct Step {
    std::size_t consumed;  ///< bytes of input taken
    std::size_t produced;  ///< bytes of output made
    bool done;             ///< whether the mode is satisfied; else give more room for output
  };

  /// Makes the compressor that this build uses. `begin` comes first.
  /// @throws std::bad_alloc
  static std::unique_ptr<GzipCompressor> make();

  virtual ~GzipCompressor() = default;

  /// Begins a member; an unfinished one is dropped.
  /// @param level  0, fastest, to 9, smallest
  virtual void begin(int level) = 0;

  /// Compresses a stretch of input, or as much of it as the room for output allows. A mode other
  /// than eMore is repeated, with the input that is left, until it is done.
  /// @throws QRTIllegalStateError when the library refuses
  virtual Step compress(const char* input, std::size_t size, char* output, std::size_t room,
                        Mode mode) = 0;
};

#endif  // HZSSTREAMS_GZIPCOMPRESSOR_H
