#ifndef TESTS_ENGINE_SCRIPTEDPAGINGFILE_H
#define TESTS_ENGINE_SCRIPTEDPAGINGFILE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "libtcmalloc_virtualmm/PagingFile.h"

/// A paging file in memory that behaves as its test says. The script can be changed at any time
/// while the engine runs; nothing here counts as an allocation of the engine's (see FailingNew).
class ScriptedPagingFile final : public tcmalloc::PagingFile {
 public:
  static constexpr std::size_t kBlock = 4096;
  static constexpr const char* kPath = "/somewhere/scripted";
  using Blocks = std::map<std::uint64_t, std::vector<char>>;  // by offset / kBlock

  /// One kind of call: how many were made, which of them fail.
  class Calls {
   public:
    /// Fails the `nth` call from now (from 1) and the ones after it, `count` in all.
    void Fail(int error, std::size_t nth = 1, std::size_t count = SIZE_MAX) {
      m_error = error;
      m_failFrom = made + nth;
      m_failCount = count;
    }
    void Mend() { m_failCount = 0; }

    std::size_t made = 0;    // calls so far
    std::size_t failed = 0;  // of them, calls that failed by the script

   private:
    friend class ScriptedPagingFile;
    int Next();

    int m_error = 0;
    std::size_t m_failFrom = 0;
    std::size_t m_failCount = 0;
  };

  // The script.
  Calls opens;
  Calls reads;
  Calls writes;
  Calls reserves;
  std::uint64_t diskBytes = UINT64_MAX;  // ENOSPC past this offset
  std::size_t transferLimit = SIZE_MAX;  // most bytes that one transfer moves
  bool interrupted = false;              // of three calls two are interrupted by a signal
  bool reserveSupported = true;          // whether disk space can be set aside
  bool loseWrites = false;               // writes succeed, but reach the file with DeliverLost
  bool foreign = false;                  // the process is a child of the file's owner
  std::vector<std::pair<std::uint64_t, std::size_t>> expected;  // offset and bytes announced
  std::size_t readsAtLastExpected = 0;  // reads made before the last of these
  std::vector<std::pair<std::uint64_t, std::size_t>> discarded;  // offset and bytes given back
  bool discardSupported = true;                                  // whether they can be
  std::uint64_t reservedBytes = 0;                               // disk space set aside, in all
  std::uint64_t writtenPastReserved = 0;  // writes that met no disk space set aside

  // What a failing disk does to the file.
  void FlipBit(std::uint64_t offset) { m_blocks[offset / kBlock][offset % kBlock] ^= 0x10; }
  void SwapBlocks(std::uint64_t offsetA, std::uint64_t offsetB) {
    std::swap(m_blocks[offsetA / kBlock], m_blocks[offsetB / kBlock]);
  }
  void CutOff(std::uint64_t size) { m_size = size; }
  void DeliverLost();

  /// The content, to be put back after damage.
  struct Image {
    Blocks blocks;
    std::uint64_t size;
  };
  Image Save() const { return {m_blocks, m_size}; }
  void Restore(const Image& image) {
    m_blocks = image.blocks;
    m_size = image.size;
  }

  std::uint64_t Size() const { return m_size; }

  int Open() override { return opens.Next(); }
  const char* Path() const override { return kPath; }
  bool InForeignProcess() const override { return foreign; }
  std::int64_t ReadSome(std::uint64_t offset, const tcmalloc::IoSlice* slices,
                        std::size_t count) override;
  std::int64_t WriteSome(std::uint64_t offset, const tcmalloc::IoSlice* slices,
                         std::size_t count) override;
  void Prefetch(std::uint64_t offset, std::size_t bytes) override;
  int Reserve(std::uint64_t begin, std::uint64_t end) override;
  int Discard(std::uint64_t offset, std::size_t bytes) override;
  int Truncate(std::uint64_t size) override;

 private:
  bool Interrupt() { return interrupted && ++m_interrupts % 3 != 0; }

  Blocks m_blocks;               // a block that was never written reads as zeros
  Blocks m_lost;                 // what was written while writes got lost
  std::uint64_t m_size = 0;      // length of the file
  std::uint64_t m_reserved = 0;  // bytes set aside
  unsigned m_interrupts = 0;     // calls made while interrupted
};

#endif  // TESTS_ENGINE_SCRIPTEDPAGINGFILE_H
