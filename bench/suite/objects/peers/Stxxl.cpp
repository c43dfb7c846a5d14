// STXXL: a vector of 4 KiB blocks in a file, with a least-recently-used cache of blocks.

#include <stxxl/vector>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>

#include "ByKey.h"
#include "common/ScratchDirectory.h"

namespace {

struct Block {
  char bytes[4096];
};

class Stxxl : public ByKey {
 public:
  explicit Stxxl(const Space& space) : ByKey(space), m_inBlock(sizeof(Block) / space.objectBytes) {
    configure();
    const std::uint64_t blocks = (space.objects + m_inBlock - 1) / m_inBlock;
    m_blocks = std::make_unique<Vector>(blocks, space.budget / sizeof(Block));
  }

  void add(const void* object) { std::memcpy(mutableAt(m_added++), object, m_objectBytes); }

  template <class Use>
  void read(std::uint64_t handle, Use use) {
    const Vector& blocks = *m_blocks;  // reads through it do not mark the block as changed
    use(static_cast<const void*>(blocks[handle / m_inBlock].bytes +
                                 handle % m_inBlock * m_objectBytes));
  }
  template <class Change>
  void update(std::uint64_t handle, Change change) {
    change(mutableAt(handle));
  }

 private:
  using Vector = stxxl::vector<Block, 1, stxxl::lru_pager<>, sizeof(Block)>;

  /// Makes a file that goes with the process, and keeps its messages off the figures.
  static void configure() {
    ::setenv("STXXLLOGFILE", "/dev/null", 1);
    ::setenv("STXXLERRLOGFILE", "/dev/null", 1);
    std::cout.rdbuf(nullptr);
    stxxl::disk_config disk(suite::scratchPath("objects"), 0, "syscall unlink direct=off");
    disk.autogrow = true;
    stxxl::config::get_instance()->add_disk(disk);
  }

  void* mutableAt(std::uint64_t key) {
    return (*m_blocks)[key / m_inBlock].bytes + key % m_inBlock * m_objectBytes;
  }

  std::uint64_t m_inBlock;  // objects in a block
  std::unique_ptr<Vector> m_blocks;
};

}  // namespace

void addStxxl(const AddPeer& add) {
  addByKey<Stxxl>(add, "stxxl");
}
