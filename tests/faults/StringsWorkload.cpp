#include <cstring>
#include <map>

#include "QRTCore/I18NString.h"
#include "QRTVirtualI18NString.h"
#include "QRTVirtualPin.h"
#include "QRTVirtualUTF8String.h"
#include "faults/RandomWorkload.h"

namespace {

/// Strings of both kinds, and byte strings that share objects.
class Strings : public RandomWorkload {
 public:
  explicit Strings(QRTVirtualMemoryMgr& manager) : RandomWorkload(manager) {
    m_manager.setVirtualPageItemPoolSize(6);
  }

  void run(Trial& trial) override {
    for (std::size_t step = 0; step < 90; ++step) {
      if (step % 3 == 0) {
        share(trial, textOf(20 + 60 * draw(12), draw(12)));
      } else if (m_strings.size() < 8 || draw(2) == 0) {
        m_strings.emplace_back();
        set(trial, m_strings.back(), textOf(1 + draw(900), ++m_seed));
        m_wide.emplace_back();
        set(trial, m_wide.back(), textOf(1 + draw(400), ++m_seed));
      } else {  // shorter, as long or longer than before
        set(trial, m_strings[draw(m_strings.size())], textOf(1 + draw(1200), ++m_seed));
        set(trial, m_wide[draw(m_wide.size())], textOf(1 + draw(600), ++m_seed));
        compare(trial, m_strings[draw(m_strings.size())]);
      }
    }
  }

  void change(Trial& trial) override {
    for (auto& stored : m_strings) {
      set(trial, stored, textOf(1 + draw(900), ++m_seed));
    }
    for (auto& stored : m_wide) {
      set(trial, stored, textOf(1 + draw(400), ++m_seed));
    }
  }

  void check(Trial& trial) override {
    for (auto& stored : m_strings) {
      compare(trial, stored);
    }
    for (auto& stored : m_wide) {
      compare(trial, stored);
    }
    for (const auto& [offset, text] : m_shared) {
      trial.attempt([&, at = offset, &expected = text] {
        const QRTVirtualPin<const char> pin(m_manager, at);
        EXPECT_TRUE(!pin || std::memcmp(pin.get(), expected.data(), expected.size()) == 0);
        return bool(pin);
      });
    }
  }

  void end(Trial& trial) override {
    for (auto& stored : std::exchange(m_strings, {})) {
      freeString(trial, stored.string);
    }
    for (auto& stored : std::exchange(m_wide, {})) {
      freeString(trial, stored.string);
    }
    for (const auto& [offset, text] : std::exchange(m_shared, {})) {
      free(trial, QRTVirtualPageItem(offset, 0));
    }
    freeTheRest(trial);
  }

 private:
  template <class String>
  struct Stored {
    String string;
    std::string text;
  };

  void freeString(Trial& trial, const QRTVirtualPageItem& string) {
    if (string.empty() == 0) {
      free(trial, string);
    }
  }

  // What was there can still be read.
  template <class String>
  void set(Trial& trial, Stored<String>& stored, const std::string& text) {
    const I18NString wide(text.c_str());
    const QRTVirtualPageItem before = stored.string;
    if (trial.attempt([&] {
          stored.string.setString(wide, &m_manager);
          return true;
        })) {
      stored.text = text;
    } else {
      EXPECT_EQ(stored.string.getOffset(), before.getOffset());
      EXPECT_EQ(stored.string.getSize(), before.getSize());
    }
  }

  template <class String>
  void compare(Trial& trial, Stored<String>& stored) {
    if (stored.text.empty()) {
      return;
    }
    const I18NString expected(stored.text.c_str());
    trial.attempt([&] {
      const I18NString text = stored.string.getString(&m_manager);
      EXPECT_TRUE(text.empty() || text == expected);
      return !text.empty();
    });
    trial.attempt([&] { return stored.string.isEqual(expected, &m_manager) == 1; });
  }

  // Of a string that was stored but could not be remembered the item is given all the same.
  void share(Trial& trial, const std::string& text) {
    QRTVirtualPageItem item;
    const bool done = trial.attempt([&] {
      m_manager.allocUsingPool(text.data(), static_cast<unsigned int>(text.size()), item);
      return true;
    });
    EXPECT_TRUE(!done || item.empty() == 0);
    if (!done && item.empty() == 0) {
      const bool isPinned = trial.failure() == Trial::Failure::eOutOfMemoryError;
      EXPECT_EQ(TestEngine::get().pinned(), isPinned ? 1U : 0U);
      m_manager.dismiss(item);
    }
    if (item.empty() == 0) {
      m_shared[item.getOffset()] = text;
    }
  }

  std::vector<Stored<QRTVirtualUTF8String>> m_strings;
  std::vector<Stored<QRTVirtualI18NString>> m_wide;
  std::map<unsigned long long, std::string> m_shared;  // by offset
};

}  // namespace

std::unique_ptr<Workload> makeStrings(QRTVirtualMemoryMgr& manager) {
  return std::make_unique<Strings>(manager);
}
