#ifndef TESTS_MODEL_MEMORYPOOLAREA_H
#define TESTS_MODEL_MEMORYPOOLAREA_H

#include "QRTMemoryPool.h"
#include "model/HeapBlocks.h"
#include "model/ModelArea.h"

namespace model {

/// Blocks of a pool of all sizes.
class MemoryPoolArea final : public ModelArea {
 public:
  explicit MemoryPoolArea(ModelWorld& world);

  const char* name() const override { return "memory pool"; }
  void step() override;
  void verify() override;
  void clear() override;

 private:
  std::uint32_t remaining();
  void alloc();
  void free(HeapBlocks::Blocks::iterator block);
  void realloc();
  void mistake();

  const std::uint32_t m_increment;  // of the pool
  QRTMemoryPool m_pool;
  HeapBlocks m_blocks;
};

}  // namespace model

#endif  // TESTS_MODEL_MEMORYPOOLAREA_H
