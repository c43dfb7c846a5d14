#include "model/SharedArea.h"

#include <algorithm>

#include "QRTVirtualPin.h"

namespace model {

void SharedArea::step() {
  const std::uint32_t choice = choices().below(16);
  if (choice == 0) {
    m_bound = choices().below(12);
    note("setVirtualPageItemPoolSize", m_bound);
    manager().setVirtualPageItemPoolSize(static_cast<unsigned int>(m_bound));
  } else if (choice == 1) {
    checkForLeaks();
  } else if (choice < 5) {
    freeForgotten();
  } else {
    set();
  }
}

SharedArea::Entries::iterator SharedArea::find(const std::string& bytes) {
  return std::find_if(m_entries.begin(), m_entries.end(),
                      [&](const auto& entry) { return entry.first == bytes; });
}

// The item is empty, or names an object of its own.
void SharedArea::set() {
  std::string bytes(choices().below(12) == 0 ? choices().size(6000) : choices().below(3), 'b');
  Choices letters = choices().fork();
  for (char& byte : bytes) {
    byte = static_cast<char>('a' + letters.below(3));
  }
  QRTVirtualPageItem item;
  const std::string old(choices().oneIn(4) ? choices().below(9) + 1 : 0, 'o');
  if (!old.empty()) {
    void* address = nullptr;
    if (!attempt([&] {
           address = manager().alloc(static_cast<unsigned int>(old.size()), item);
         }).well()) {
      return;
    }
    old.copy(static_cast<char*>(address), old.size());
    manager().dismiss(item);
    m_objects[item.getOffset()] = old;
  }
  const QRTVirtualPageItem before = item;
  const auto found = find(bytes);
  note(found != m_entries.end() ? "share" : "store", bytes.size(), old.size());
  const Attempt tried = attempt(
      [&] {
        manager().allocUsingPool(bytes.data(), static_cast<unsigned int>(bytes.size()), item);
      },
      old.empty() ? May::kNothing : May::kLeak);
  if (bytes.empty()) {
    require(item.getOffset() == before.getOffset() && item.getSize() == before.getSize(),
            "storing nothing set the item");
    return;
  }
  if (found != m_entries.end()) {
    require(tried.well(), "sharing raised ", tried.text);
    require(item.getOffset() == found->second && item.getSize() == bytes.size(),
            "equal bytes are not shared");
    m_entries.splice(m_entries.begin(), m_entries, found);
    return;
  }
  if (!tried.well() && item.getOffset() == before.getOffset() &&
      (before.empty() != 0 || tried.text != "std::bad_alloc")) {
    require(tried.ended != Ended::kIllegalState, "storing raised ", tried.text);
    if (before.empty() == 0) {
      require(item.getSize() == std::min(before.getSize(), static_cast<unsigned int>(bytes.size())),
              "a failed alloc noted another size");
      m_objects[item.getOffset()].resize(item.getSize());
    }
    return;
  }
  // Stored, though it may be that the pool had no memory to remember it.
  require(tried.well() || tried.memoryFaulted, "storing raised ", tried.text);
  m_objects.erase(before.getOffset());
  require(!m_world.isOwned(item.getOffset()), "an offset twice");
  require(item.empty() == 0 && item.getSize() == bytes.size(), "an item of another size");
  m_objects[item.getOffset()] = bytes;
  if (tried.well()) {
    m_entries.emplace_front(bytes, item.getOffset());
    if (m_entries.size() > m_bound) {
      m_entries.pop_back();
    }
  }
}

void SharedArea::checkForLeaks() {
  const std::size_t pinned = m_world.store.pins().size();
  note("throwExceptionOnReferenceLeak", pinned);
  QRTVirtualMemoryMgr::setExceptionOnReferenceLeak(1);
  const Attempt tried = attempt([&] { manager().throwExceptionOnReferenceLeak(); }, May::kRaise);
  QRTVirtualMemoryMgr::setExceptionOnReferenceLeak(0);
  require(tried.well() == (pinned == 0), "the leak check and the pins do not agree");
  require(tried.well() || tried.text ==
                              "Reference Leak Error, total objects with reference count > "
                              "0 : " +
                                  std::to_string(pinned),
          tried.text);
  m_entries.clear();
}

// What the pool does not remember has no holder but this.
void SharedArea::freeForgotten() {
  for (auto object = m_objects.begin(); object != m_objects.end(); ++object) {
    const auto isThis = [&](const auto& entry) { return entry.second == object->first; };
    if (std::none_of(m_entries.begin(), m_entries.end(), isThis)) {
      note("free", object->first);
      QRTVirtualPageItem item(object->first, static_cast<unsigned int>(object->second.size()));
      attempt([&] { manager().free(item); }, May::kLeak);
      m_objects.erase(object);
      return;
    }
  }
}

void SharedArea::verify() {
  for (const auto& [offset, bytes] : m_objects) {
    note("verify", offset, bytes.size());
    const QRTVirtualPin<const char> pin(manager(), offset);
    require(bool(pin), "cannot be read: ", manager().getLastStoreError());
    require(bytes.compare(0, bytes.size(), pin.get(), bytes.size()) == 0, "another content");
  }
}

void SharedArea::clear() {
  checkForLeaks();
  while (!m_objects.empty()) {
    freeForgotten();
  }
}

}  // namespace model
