#include <algorithm>
#include <vector>

#include "Fuzzer.h"
#include "QRTCore/QRTThrowable.h"
#include "model/Content.h"
#include "model/ModelStore.h"

// Any offset to every call of the manager: eight bytes of the input, as they are or laid over the
// offset of an object. What is no object's gives no address, and no object changes.

namespace {

struct Object {
  QRTVirtualPageItem item;
  std::uint32_t seed;
};

class Handles {
 public:
  Handles(const std::uint8_t* data, std::size_t size) : m_choices(data, size) {
    static constexpr std::uint32_t kSizes[] = {1, 24, 100, 1000, 3000, 10000, 50000};
    for (std::uint32_t i = 0; i < 60; ++i) {
      Object object{{}, i};
      const std::uint32_t bytes = kSizes[i % std::size(kSizes)];
      model::fill(m_manager.alloc(bytes, object.item), bytes, i);
      m_manager.dismiss(object.item);
      m_objects.push_back(object);
    }
    for (std::size_t i = 0; i < m_objects.size(); i += 5) {  // leave stale handles
      m_stale.push_back(m_objects[i].item.getOffset());
      m_manager.free(m_objects[i].item);
      m_objects.erase(m_objects.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }

  void run() {
    while (!m_choices.atEnd()) {
      call(offset());
    }
    for (const Object& object : m_objects) {
      const void* const address = m_manager.getAddress(object.item.getOffset(), 0);
      require(address != nullptr, m_manager.getLastStoreError());
      require(model::holds(address, object.item.getSize(), object.seed), "an object has changed");
      m_manager.dismiss(object.item.getOffset());
    }
    require(m_store.objects() == m_objects.size(), "there are more objects or fewer");
    require(m_store.pins().empty(), "an object is pinned");
    const std::string findings = m_store.engine().Check();
    require(findings.empty(), findings);
  }

 private:
  std::uint64_t offset() {
    const auto any = [&](std::size_t count) {
      return m_choices.below(static_cast<std::uint32_t>(count));
    };
    const std::uint32_t kind = m_choices.below(4);
    std::uint64_t offset = kind == 0   ? m_choices.number()
                           : kind == 1 ? m_stale[any(m_stale.size())]
                                       : m_objects[any(m_objects.size())].item.getOffset();
    if (kind != 0) {
      offset ^= std::uint64_t{m_choices.byte()} << m_choices.below(64);
      offset += m_choices.byte();
    }
    return offset;
  }

  void call(std::uint64_t offset) {
    const auto object = std::find_if(m_objects.begin(), m_objects.end(), [&](const Object& one) {
      return one.item.getOffset() == offset;
    });
    const bool isGood = object != m_objects.end();
    const std::uint64_t other = m_objects[m_choices.below(7)].item.getOffset();
    QRTVirtualPageItem item(offset, m_choices.size(100000));
    switch (m_choices.below(9)) {
      case 0:
        return expect(m_manager.getAddress(offset, 1), isGood, offset);
      case 1:
        return expect(m_manager.getAddress(item, 0), isGood, offset);
      case 2:
        require((m_manager.getUnpinned(offset) == nullptr) || isGood, "an address of nothing");
        return;
      case 3:
        return m_manager.dismiss(item);
      case 4:
        return m_manager.dirty(item);
      case 5:
        return m_manager.prefetch(offset);
      case 6:
        require(isGood || m_manager.getObjectSize(offset) == 0, "a size of nothing");
        return;
      case 7:
        m_manager.movePin(offset, other);
        return expect(m_manager.movePin(other, offset), isGood, offset);
      default:
        if (!isGood && offset != 0) {  // which is an empty item
          try {
            static_cast<void>(m_manager.alloc(m_choices.size(100000), item));
            require(item.getOffset() == 0, "what is no object was resized");
          } catch (const QRTThrowable&) {
            // As it should be.
          }
          m_manager.free(item);
        }
    }
  }

  void expect(const void* address, bool isGood, std::uint64_t offset) {
    require((address != nullptr) == isGood, isGood ? "no address" : "an address of nothing");
    if (isGood) {
      m_manager.dismiss(offset);
    }
  }

  static tcmalloc::EngineOptions options() {
    tcmalloc::EngineOptions options;
    options.minimumFrames = 1;
    options.budgetBytes = 16 * 4096;
    options.firstGeneration = std::uint16_t{77};
    return options;
  }

  model::Choices m_choices;
  model::ModelStore m_store{options(), std::nullopt};
  QRTVirtualMemoryMgr& m_manager = m_store.manager();
  std::vector<Object> m_objects;
  std::vector<std::uint64_t> m_stale;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Handles(data, size).run();
  return 0;
}
