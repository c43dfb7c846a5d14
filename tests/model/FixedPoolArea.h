#ifndef TESTS_MODEL_FIXEDPOOLAREA_H
#define TESTS_MODEL_FIXEDPOOLAREA_H

#include <memory>
#include <new>
#include <vector>

#include "QRTFixedMemoryPool.h"
#include "model/HeapBlocks.h"
#include "model/ModelArea.h"

namespace model {

/// Elements of a fixed-size pool, whose chunks come, go and come back.
class FixedPoolArea final : public ModelArea {
 public:
  explicit FixedPoolArea(ModelWorld& world);
  ~FixedPoolArea() override;

  const char* name() const override { return "fixed pool"; }
  void step() override;
  void verify() override;
  void clear() override;

 private:
  struct Info {
    int chunks = 0;
    int perChunk = 0;
    int inUse = 0;
  };

  Info info();
  std::size_t capacity() { return static_cast<std::size_t>(m_chunks) * m_perChunk; }
  void alloc();
  void free();
  void realloc();
  void grow();
  void reclaim();
  void trim();
  void mistake();

  const std::uint32_t m_size;
  const bool m_grows;
  const bool m_hasHeaders;
  QRTFixedMemoryPool m_pool;
  HeapBlocks m_blocks;
  std::vector<void*> m_reclaimed;  // chunks that were taken out, owned
  std::uint32_t m_chunks = 0;      // chunks in the pool
  std::uint32_t m_perChunk;        // elements in each
};

}  // namespace model

#endif  // TESTS_MODEL_FIXEDPOOLAREA_H
