#ifndef TESTS_MODEL_ARENAAREA_H
#define TESTS_MODEL_ARENAAREA_H

#include "QRTMemoryArena.h"
#include "model/HeapBlocks.h"
#include "model/ModelArea.h"

namespace model {

/// Blocks of an arena, whose budget is exact.
class ArenaArea final : public ModelArea {
 public:
  explicit ArenaArea(ModelWorld& world);

  const char* name() const override { return "arena"; }
  void step() override;
  void verify() override;
  void clear() override;

 private:
  struct Budget {
    unsigned used = 0;
    unsigned remaining = 0;
  };

  Budget budget();
  bool isLarge(std::uint32_t size) const { return size > 8 * static_cast<std::uint32_t>(m_bins); }
  bool payable(std::uint32_t size);
  std::uint32_t anySize();
  void alloc();
  void free(HeapBlocks::Blocks::iterator block);
  void realloc();
  void mistake();

  const int m_bins;
  QRTMemoryArena m_arena;
  HeapBlocks m_blocks;       // with the size asked for
  std::uint64_t m_expanded;  // the budget in all
};

}  // namespace model

#endif  // TESTS_MODEL_ARENAAREA_H
