// One block from a plain file for each access, without any cache but the system's: what the disk
// allows. Neighbours in the same block need no read of their own.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ByKey.h"
#include "common/ScratchDirectory.h"

namespace {

class Pread : public ByKey {
 public:
  explicit Pread(const Space& space) : ByKey(space), m_inBlock(kBlockBytes / space.objectBytes) {
    m_file =
        ::open(suite::scratchPath("objects").c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    suite::require(m_file >= 0, std::strerror(errno));
  }
  ~Pread() { ::close(m_file); }

  /// Writes a block when it is full; there are no others.
  void add(const void* object) {
    std::memcpy(m_bytes + m_added % m_inBlock * m_objectBytes, object, m_objectBytes);
    m_block = m_added++ / m_inBlock;
    if (m_added % m_inBlock == 0) {
      writeBlock();
    }
  }

  template <class Use>
  void read(std::uint64_t handle, Use use) {
    use(at(handle));
  }
  template <class Change>
  void update(std::uint64_t handle, Change change) {
    change(at(handle));
    writeBlock();
  }

 private:
  static constexpr std::uint64_t kBlockBytes = 4096;

  void* at(std::uint64_t key) {
    if (key / m_inBlock != m_block) {
      m_block = key / m_inBlock;
      const ssize_t bytes = ::pread(m_file, m_bytes, kBlockBytes, position());
      suite::require(bytes == static_cast<ssize_t>(kBlockBytes), "pread does not give a block");
    }
    return m_bytes + key % m_inBlock * m_objectBytes;
  }

  void writeBlock() {
    const ssize_t bytes = ::pwrite(m_file, m_bytes, kBlockBytes, position());
    suite::require(bytes == static_cast<ssize_t>(kBlockBytes), "pwrite does not take a block");
  }

  off_t position() const { return static_cast<off_t>(m_block * kBlockBytes); }

  std::uint64_t m_inBlock;    // objects in a block
  std::uint64_t m_block = 0;  // the block that is held
  int m_file = -1;
  alignas(64) char m_bytes[kBlockBytes]{};  // its bytes
};

}  // namespace

void addPread(const AddPeer& add) {
  add("paging", "pread", measurePaging<Pread>);
}
