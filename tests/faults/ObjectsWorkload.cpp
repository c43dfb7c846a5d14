#include <cstring>
#include <sstream>

#include "QRTVirtualPin.h"
#include "faults/RandomWorkload.h"

namespace {

/// Objects of many sizes: made, changed, trimmed, moved, held pinned, freed.
class Objects : public RandomWorkload {
 public:
  Objects(QRTVirtualMemoryMgr& manager, std::size_t steps, bool cutsFile,
          std::vector<unsigned int> sizes)
      : RandomWorkload(manager), m_steps(steps), m_cutsFile(cutsFile), m_sizes(std::move(sizes)) {}

  void run(Trial& trial) override {
    for (std::size_t step = 0; step < m_steps; ++step) {
      const unsigned int size = m_sizes[draw(m_sizes.size())] + draw(16);
      const unsigned int kind = m_objects.size() < 5 ? 0 : draw(10);
      Stored* const some = m_objects.empty() ? nullptr : &m_objects[draw(m_objects.size())];
      if (kind < 4) {
        make(trial, size);
      } else if (kind == 4) {
        rewrite(trial, *some);
      } else if (kind == 5) {
        resize(trial, *some, static_cast<unsigned int>(some->content.size()) + draw(300));
      } else if (kind == 6) {
        resize(trial, *some, 1 + draw(some->content.size()));
      } else if (kind == 7) {
        compare(trial, *some);
      } else {
        free(trial, some->item);
        *some = std::move(m_objects.back());
        m_objects.pop_back();
      }
      if (step % 16 == 8) {
        holdSome(trial, size);
      }
    }
    if (m_cutsFile) {
      growAndCutFile(trial);
    }
    report(trial);
  }

  void change(Trial& trial) override {
    for (Stored& stored : m_objects) {
      rewrite(trial, stored);
    }
  }

  void check(Trial& trial) override {
    for (const Stored& stored : m_objects) {
      compare(trial, stored);
    }
  }

  void end(Trial& trial) override {
    for (const Stored& stored : std::exchange(m_objects, {})) {
      free(trial, stored.item);
    }
    freeTheRest(trial);
  }

 private:
  struct Stored {
    QRTVirtualPageItem item;
    std::string content;
  };

  void make(Trial& trial, unsigned int size) {
    Stored stored{{}, contentOf(size, ++m_seed)};
    if (trial.attempt([&] {
          std::memcpy(m_manager.alloc(size, stored.item), stored.content.data(), size);
          m_manager.dismiss(stored.item);
          return true;
        })) {
      m_objects.push_back(std::move(stored));
    } else {
      EXPECT_EQ(stored.item.empty(), 1);
    }
  }

  void compare(Trial& trial, const Stored& stored) {
    trial.attempt([&] {
      const QRTVirtualPin<const char> pin(m_manager, stored.item);
      EXPECT_TRUE(!pin || std::memcmp(pin.get(), stored.content.data(), stored.content.size()) == 0)
          << stored.item.getOffset();
      return bool(pin);
    });
  }

  void rewrite(Trial& trial, Stored& stored) {
    std::string content = contentOf(stored.content.size(), ++m_seed);
    if (trial.attempt([&] {
          const QRTVirtualPin<char> pin(m_manager, stored.item);
          if (pin) {
            std::memcpy(pin.get(), content.data(), content.size());
          }
          return bool(pin);
        })) {
      stored.content = std::move(content);
    }
  }

  // A trim that fails has noted the lower size; a move that fails leaves the item as it was.
  void resize(Trial& trial, Stored& stored, unsigned int size) {
    const QRTVirtualPageItem before = stored.item;
    const std::size_t kept = std::min<std::size_t>(size, stored.content.size());
    std::string content = stored.content.substr(0, kept) + contentOf(size - kept, ++m_seed);
    if (trial.attempt([&] {
          auto* const address = static_cast<char*>(m_manager.alloc(size, stored.item));
          EXPECT_EQ(std::memcmp(address, content.data(), kept), 0);
          std::memcpy(address + kept, content.data() + kept, size - kept);
          m_manager.dismiss(stored.item);
          return true;
        })) {
      stored.content = std::move(content);
      return;
    }
    EXPECT_EQ(stored.item.getOffset(), before.getOffset());
    EXPECT_EQ(stored.item.getSize(), std::min(size, before.getSize()));
    stored.content.resize(kept);
  }

  // More pins than are deferred, and objects made beside them.
  void holdSome(Trial& trial, unsigned int size) {
    std::vector<std::pair<std::size_t, void*>> held;
    for (std::size_t i = 0; i < std::min<std::size_t>(m_objects.size(), 7); ++i) {
      void* address = nullptr;
      if (trial.attempt([&] {
            address = m_manager.getAddress(m_objects[i].item, 1);
            return address != nullptr;
          })) {
        held.emplace_back(i, address);
      }
    }
    make(trial, size);
    make(trial, size);
    for (const auto& [index, address] : held) {
      Stored& stored = m_objects[index];
      EXPECT_EQ(std::memcmp(address, stored.content.data(), stored.content.size()), 0);
      trial.attempt([&, at = address] {
        EXPECT_EQ(m_manager.getAddress(stored.item, 0), at) << "pinned, it stays";
        m_manager.dismiss(stored.item);
        m_manager.dismiss(stored.item);
        return true;
      });
    }
  }

  // So much at once that the paging file is cut off when it goes.
  void growAndCutFile(Trial& trial) {
    QRTVirtualPageItem item;
    if (trial.attempt([&] {
          m_manager.alloc(20U << 20, item);
          return true;
        })) {
      free(trial, item);
    }
    make(trial, 100);
  }

  void report(Trial& trial) {
    std::ostringstream os;
    os.exceptions(std::ios::badbit);
    trial.attempt([&] {
      m_manager.dumpMapper(os, QRTVirtualMemoryMgr::eDumpStatistics);
      m_manager.dumpReferences(os);
      return true;
    });
  }

  std::size_t m_steps;
  bool m_cutsFile;
  std::vector<unsigned int> m_sizes;
  std::vector<Stored> m_objects;
};

}  // namespace

std::unique_ptr<Workload> makeObjects(QRTVirtualMemoryMgr& manager) {
  return std::make_unique<Objects>(manager, 160, false,
                                   std::vector<unsigned int>{8, 60, 200, 700, 1500, 3000, 9000});
}

std::unique_ptr<Workload> makeLargeObjects(QRTVirtualMemoryMgr& manager) {
  return std::make_unique<Objects>(manager, 40, true,
                                   std::vector<unsigned int>{3000, 15000, 60000, 100000});
}
