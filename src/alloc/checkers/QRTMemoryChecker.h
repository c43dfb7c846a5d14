#ifndef QRTMEMORYCHECKER_H
#define QRTMEMORYCHECKER_H

#include <cstddef>

/// Tells the memory checker that watches the process, if one does, what the allocators do inside
/// their heap blocks. Without it a checker sees one large block and finds no error in it.
///
/// The allocators ask `isActive` once when they are constructed and call the rest only then, so
/// that a process without a checker pays for none of it. There is one source per system.
class QRTMemoryChecker {
 public:
  /// Whether a checker watches the process. Cost: cheap, but not for a hot path.
  static bool isActive() noexcept;

  /// Announces a pool, named by its address from now on.
  /// @param fence  bytes in front of each block that belong to nobody but the pool
  static void poolCreated(const void* pool, unsigned fence) noexcept;

  /// Ends a pool. Its heap blocks are released after this.
  static void poolDestroyed(const void* pool) noexcept;

  /// Closes memory for everybody but the allocators: fences, free blocks, trailers.
  static void close(const void* memory, std::size_t bytes) noexcept;

  /// Opens memory that leaves the allocators for good.
  static void open(const void* memory, std::size_t bytes) noexcept;

  /// Opens a block of a pool that is handed out now.
  static void handedOut(const void* pool, const void* block, std::size_t bytes) noexcept;

  /// Opens what a block of a pool that is handed out gained at its end, or closes what it lost.
  static void resized(const void* pool, const void* block, std::size_t before,
                      std::size_t after) noexcept;

  /// Closes a block of a pool that is given back, and reports it when it was not handed out.
  static void givenBack(const void* pool, const void* block, std::size_t bytes) noexcept;

  /// While one lives, this thread may read and write closed memory. The allocators hold one in
  /// every operation that touches a header or a link.
  class Pass {
   public:
    explicit Pass(bool active) noexcept : m_active(active) {
      if (m_active) {
        begin();
      }
    }
    ~Pass() {
      if (m_active) {
        end();
      }
    }
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;

   private:
    static void begin() noexcept;
    static void end() noexcept;

    const bool m_active;
  };
};

#endif  // QRTMEMORYCHECKER_H
