#include "model/ObjectArea.h"

#include <algorithm>
#include <utility>

#include "model/Content.h"

namespace model {

namespace {

constexpr std::uint64_t kMostBytes = 1U << 20;
constexpr std::uint32_t kMostObjectBytes = 300000;
constexpr std::uint32_t kMostPins = 40;

}  // namespace

void ObjectArea::step() {
  const std::uint32_t choice = choices().below(32);
  if (m_objects.empty() || (choice < 8 && m_bytes < kMostBytes)) {
    allocate();
  } else if (choice < 11) {
    resize(any(m_objects));
  } else if (choice < 14) {
    pin(any(m_objects));
  } else if (choice == 14) {
    pinMany();
  } else if (choice < 17) {
    Object& from = any(m_objects);
    movePin(from, any(m_objects));
  } else if (choice < 20) {
    change(any(m_objects));
  } else if (choice < 22) {
    changeUnpinned(any(m_objects));
  } else if (choice < 27) {
    dismiss(any(m_objects));
  } else if (choice < 30) {
    free(any(m_objects));
  } else if (choice == 30 && !m_stale.empty()) {
    useStrange();
  } else if (choice == 31 && choices().oneIn(4)) {
    setMemorySize();
  } else {
    useNothing();
  }
}

void ObjectArea::allocate() {
  Object object;
  object.allocated = choices().size(kMostObjectBytes);
  note("alloc", object.allocated);
  const Attempt tried =
      attempt([&] { object.address = manager().alloc(object.allocated, object.item); });
  if (!tried.well()) {
    require(tried.ended == Ended::kOutOfMemory, "alloc raised ", tried.text);
    require(object.item.empty() == 1 && object.item.getSize() == 0, "a failed alloc set the item");
    return;
  }
  require(object.item.getSize() == object.allocated, "an item of another size");
  require(!owns(object.item.getOffset()), "an offset twice");
  const std::uint32_t alignment = object.allocated & (~object.allocated + 1);
  require(object.allocated == 0 ||
              reinterpret_cast<std::uintptr_t>(object.address) % std::min(alignment, 16U) == 0,
          "not aligned");
  m_bytes += object.allocated;
  object.pins.push_back(true);
  refill(object, object.address);
  m_objects.push_back(std::move(object));
}

// A smaller size trims, any other moves to a new object.
void ObjectArea::resize(Object& object) {
  const std::uint32_t before = object.item.getSize();
  const bool moves = choices().oneIn(2);
  const std::uint32_t size = moves ? before + choices().size(20000) : choices().below(before + 1);
  if (moves && m_bytes > kMostBytes) {
    return;
  }
  const QRTVirtualPageItem old = object.item;
  note(size < before ? "trim" : "move", old.getOffset(), size);
  void* address = nullptr;
  const Attempt tried = attempt([&] { address = manager().alloc(size, object.item); }, May::kLeak);
  if (!tried.well()) {
    require(tried.ended == Ended::kOutOfMemory || (size >= before && tried.ended == Ended::kAssert),
            "alloc raised ", tried.text);
    require(object.item.getOffset() == old.getOffset(), "a failed alloc set the item");
    require(object.item.getSize() == std::min(size, before), "a failed alloc noted another size");
    return;
  }
  require(object.item.getSize() == size, "an item of another size");
  require(holds(address, std::min(size, before), object.seed), "lost its content on the way");
  if (size < before) {
    require(object.item.getOffset() == old.getOffset(), "a trim moved the object");
    require(object.pins.empty() || object.address == address, "moved while it was pinned");
  } else {
    require(!owns(object.item.getOffset()) || object.item.getOffset() != old.getOffset(),
            "the object did not move");
    m_stale.push_back(old.getOffset());
    m_bytes = m_bytes - object.allocated + size;
    object.allocated = size;
    object.pins.clear();
  }
  object.pins.push_back(true);
  object.address = address;
  refill(object, address);
}

void ObjectArea::refill(Object& object, void* address) {
  object.seed = choices().below(65536);
  fill(address, object.item.getSize(), object.seed);
}

void ObjectArea::pin(Object& object) {
  if (object.pins.size() > kMostPins) {
    return;
  }
  const bool forWriting = choices().oneIn(2);
  note("getAddress", object.item.getOffset(), forWriting ? 1 : 0);
  void* address = nullptr;
  const Attempt tried = attempt([&] {
    address = forWriting ? manager().getAddress(object.item, 1)
                         : manager().getAddress(object.item.getOffset(), 0);
  });
  pinned(object, address, forWriting, tried);
}

// Pins some objects in one call, with handles of nothing among them.
void ObjectArea::pinMany() {
  constexpr std::size_t kNothing = SIZE_MAX;
  std::vector<unsigned long long> offsets;
  std::vector<std::size_t> places;
  for (std::uint32_t i = choices().below(20); i > 0; --i) {
    const std::uint32_t place = choices().below(static_cast<std::uint32_t>(m_objects.size()) + 1);
    const bool isObject = place < m_objects.size() && m_objects[place].pins.size() < kMostPins;
    places.push_back(isObject ? place : kNothing);
    offsets.push_back(isObject ? m_objects[place].item.getOffset() : 0);
  }
  const auto count = static_cast<unsigned int>(offsets.size());
  const bool forWriting = choices().oneIn(2);
  note("getAddresses", count, forWriting ? 1 : 0);
  std::vector<void*> addresses(count, this);
  unsigned int got = 0;
  const Attempt tried = attempt([&] {
    got = manager().getAddresses(offsets.data(), addresses.data(), count, forWriting ? 1 : 0);
  });
  for (std::size_t i = 0; i < count; ++i) {
    if (places[i] != kNothing) {
      pinned(m_objects[places[i]], addresses[i], forWriting, tried);
    } else {
      require(addresses[i] == nullptr, "an address of nothing");
    }
    got -= addresses[i] != nullptr ? 1 : 0;
  }
  require(got == 0, "another number was pinned");
  if (choices().oneIn(2)) {
    note("dismiss many", count);
    manager().dismiss(offsets.data(), count);
    for (const std::size_t place : places) {
      if (place != kNothing && !m_objects[place].pins.empty()) {
        m_objects[place].pins.pop_back();
      }
    }
  }
}

// Moves a pin, at times one just taken, which often has a neighbour to go to.
void ObjectArea::movePin(Object& from, Object& to) {
  if (choices().oneIn(2)) {
    pin(from);
  }
  note("movePin", from.item.getOffset(), to.item.getOffset());
  if (!from.pins.empty()) {
    from.pins.pop_back();
  }
  void* address = nullptr;
  const Attempt tried =
      attempt([&] { address = manager().movePin(from.item.getOffset(), to.item.getOffset()); });
  pinned(to, address, true, tried);
}

void ObjectArea::pinned(Object& object, void* address, bool forWriting, const Attempt& tried) {
  require(tried.well(), "a pin raised ", tried.text);
  if (address == nullptr) {
    require(object.pins.empty(), "a pinned object could not be pinned again");
    require(tried.faulted, "no address: ", manager().getLastStoreError());
    return;
  }
  require(object.pins.empty() || address == object.address, "moved while it was pinned");
  object.address = address;
  object.pins.push_back(forWriting);
  require(holds(address, object.item.getSize(), object.seed), "another content");
  const std::uint32_t size = manager().getObjectSize(object.item.getOffset());
  require(size == std::max(object.allocated, 1U), "an object of ", size, " bytes, not ",
          object.allocated);
}

void ObjectArea::change(Object& object) {
  if (object.pins.empty()) {
    return;
  }
  note("change", object.item.getOffset());
  require(holds(object.address, object.item.getSize(), object.seed), "changed while pinned");
  refill(object, object.address);
  if (std::find(object.pins.begin(), object.pins.end(), true) == object.pins.end()) {
    attempt([&] { manager().dirty(object.item); });
  }
}

// Changes an object without a pin of its own, if the manager has it at hand.
void ObjectArea::changeUnpinned(Object& object) {
  note("getUnpinned", object.item.getOffset());
  manager().prefetch(object.item.getOffset());
  if (void* const address = manager().getUnpinned(object.item.getOffset())) {
    require(object.pins.empty() || address == object.address, "not where it is pinned");
    require(holds(address, object.item.getSize(), object.seed), "another content");
    refill(object, address);
  }
}

void ObjectArea::dismiss(Object& object) {
  note("dismiss", object.item.getOffset(), object.pins.size());
  // At times one too many.
  attempt([&] {
    choices().oneIn(2) ? manager().dismiss(object.item)
                       : manager().dismiss(object.item.getOffset());
  });
  if (!object.pins.empty()) {
    object.pins.pop_back();
  }
}

void ObjectArea::free(Object& object) {
  const std::uint64_t offset = object.item.getOffset();
  note("free", offset, object.pins.size());
  const std::uint32_t size = object.item.getSize();
  const Attempt tried = attempt([&] { manager().free(object.item); }, May::kLeak);
  require(tried.well(), "free raised ", tried.text);
  require(object.item.empty() == 1 && object.item.getSize() == size, "free set the item wrong");
  m_stale.push_back(offset);
  m_bytes -= object.allocated;
  std::swap(object, m_objects.back());
  m_objects.pop_back();
}

// Handles that were good once, good ones with a bit changed, and any number.
void ObjectArea::useStrange() {
  m_world.faults.mend();  // what cannot be read cannot be told from what is there
  std::uint64_t offset = any(m_stale);
  const std::uint32_t kind = choices().below(3);
  if (kind == 1) {
    offset = any(m_objects).item.getOffset();
    offset ^= std::uint64_t{1} << choices().below(64);
  } else if (kind == 2) {
    offset = choices().number();
  }
  note("strange", offset, kind);
  if (m_world.isOwned(offset) || offset == 0 || offset + 1 == 0) {
    return;
  }
  QRTVirtualPageItem item(offset, choices().size(5000));
  void* const found = manager().getAddress(offset, 1);
  if (found != nullptr && kind != 0 && m_world.hidesObjects) {
    return manager().dismiss(offset);
  }
  require(found == nullptr, "an address for a handle of nothing");
  require(manager().getLastStoreError()[0] != '\0', "nothing is said about it");
  require(manager().getUnpinned(offset) == nullptr, "an address for a handle of nothing");
  require(manager().getObjectSize(offset) == 0, "a size for a handle of nothing");
  manager().prefetch(offset);
  manager().dirty(item);
  manager().dismiss(item);
  const QRTVirtualPageItem before = item;
  const Attempt tried = attempt(
      [&] {
        const std::uint32_t size = choices().below(item.getSize() + 100);
        static_cast<void>(manager().alloc(size, item));
      },
      May::kRaise);
  require(tried.ended == Ended::kAssert || tried.ended == Ended::kOutOfMemory,
          "an object that is not there was resized");
  require(item.getOffset() == before.getOffset(), "a failed alloc set the item");
  Object& object = any(m_objects);
  if (object.pins.size() <= kMostPins) {
    void* address = nullptr;
    pinned(object, address = manager().movePin(offset, object.item.getOffset()), true, {});
    require(manager().movePin(object.item.getOffset(), offset) == nullptr, "an address of nothing");
    object.pins.pop_back();
  }
  manager().free(item);
  require(item.empty() == 1, "free left the offset");
}

// A budget from one page on, at any time.
void ObjectArea::setMemorySize() {
  const std::uint64_t bytes = (1 + choices().size(300)) * std::uint64_t{4096};
  note("setMemorySize", bytes);
  int result = -1;
  const Attempt tried = attempt([&] { result = manager().setMemorySize(bytes); });
  require(tried.well() && (result == 1 || (result == 0 && tried.faulted)), "it is ", result, ": ",
          manager().getLastStoreError());
  require(result == 0 || manager().getMemorySize() == bytes, "another memory size");
}

void ObjectArea::useNothing() {
  note("nothing");
  const std::string error = manager().getLastStoreError();
  for (const std::uint64_t offset : {std::uint64_t{0}, std::uint64_t{UINT64_MAX}}) {
    QRTVirtualPageItem item(offset, 5);
    require(manager().getAddress(item, 1) == nullptr && manager().getAddress(offset, 0) == nullptr,
            "an address of nothing");
    require(manager().getUnpinned(offset) == nullptr && manager().getObjectSize(offset) == 0,
            "an address of nothing");
    manager().prefetch(offset);
    manager().dirty(item);
    manager().dismiss(item);
    require(manager().movePin(offset, offset) == nullptr, "an address of nothing");
    manager().free(item);
    require(item.getOffset() == offset && item.getSize() == 5, "an item of nothing has changed");
  }
  manager().pageOut(7);
  require(error == manager().getLastStoreError(), "an error about nothing");
}

void ObjectArea::verify() {
  for (Object& object : m_objects) {
    note("verify", object.item.getOffset(), object.item.getSize());
    pinned(object, manager().getAddress(object.item, 0), false, {});
    dismiss(object);
  }
}

void ObjectArea::unpin() {
  for (Object& object : m_objects) {
    while (!object.pins.empty()) {
      dismiss(object);
    }
  }
}

void ObjectArea::clear() {
  while (!m_objects.empty()) {
    Object& object = m_objects[choices().below(static_cast<std::uint32_t>(m_objects.size()))];
    while (!object.pins.empty() && choices().oneIn(2)) {
      dismiss(object);
    }
    free(object);
  }
}

void ObjectArea::addPins(Pins& pins) const {
  for (const Object& object : m_objects) {
    if (!object.pins.empty()) {
      pins[object.item.getOffset()] += static_cast<std::uint32_t>(object.pins.size());
    }
  }
}

bool ObjectArea::owns(std::uint64_t offset) const {
  return std::any_of(m_objects.begin(), m_objects.end(),
                     [&](const Object& object) { return object.item.getOffset() == offset; });
}

}  // namespace model
