#include "model/VectorArea.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "model/Content.h"

namespace model {

namespace {

constexpr std::uint32_t kMostSmall = 12000;  // 190 KB, which no write of one call has to cut
constexpr std::uint32_t kMostLarge = 40;

}  // namespace

VectorArea::VectorArea(ModelWorld& world)
    : ModelArea(world),
      m_small{QRTVirtualVector<Small>(world.manager()), {}},
      m_large{QRTVirtualVector<Large>(world.manager()), {}} {}

void VectorArea::step() {
  choices().oneIn(3) ? step(m_large, kMostLarge) : step(m_small, kMostSmall);
}

template <class T>
bool VectorArea::same(const T& a, const T& b) {
  return a.key == b.key && std::memcmp(&a.rest, &b.rest, sizeof a.rest) == 0;
}

template <class T>
T VectorArea::anyElement() {
  T element{};
  element.key = choices().below(65536);
  fill(&element.rest, sizeof element.rest, static_cast<std::uint32_t>(element.key));
  return element;
}

// A call that may need room. @return whether it succeeded; else nothing has changed
template <class T, class Call>
bool VectorArea::grows(Pair<T>& pair, Call call) {
  const Attempt tried = attempt(call, May::kLeak);
  require(tried.well() || tried.ended == Ended::kOutOfMemory || tried.ended == Ended::kAssert,
          "raised ", tried.text);
  if (tried.faulted) {
    // Blocks whose directory could not be read when they were to be freed stay in the store.
    m_world.leaks += 2 + pair.model.size() * sizeof(T) / 2048;
  }
  require(tried.well() || pair.stored.size() == pair.model.size(),
          "a failed call changed the size");
  return tried.well();
}

// A call that may need what is out.
template <class T, class Call>
bool VectorArea::reads(Pair<T>& pair, Call call) {
  const Attempt tried = attempt(call);
  require(tried.well() || tried.ended == Ended::kAssert, "raised ", tried.text);
  require(pair.stored.size() == pair.model.size(), "another size");
  return tried.well();
}

template <class T>
void VectorArea::step(Pair<T>& pair, std::uint32_t most) {
  QRTVirtualVector<T>& stored = pair.stored;
  std::vector<T>& model = pair.model;
  const auto size = static_cast<std::uint32_t>(model.size());
  const std::uint32_t choice = choices().below(32);
  if (choice < 8) {
    if (size < most) {
      note("push_back", size);
      const T element = anyElement<T>();
      if (grows(pair, [&] { stored.push_back(element); })) {
        model.push_back(element);
      }
    }
  } else if (choice < 11) {
    std::vector<T> more(choices().size((most - std::min(most, size)) / 2));
    std::generate(more.begin(), more.end(), [&] { return anyElement<T>(); });
    note("append", size, more.size());
    if (grows(pair, [&] { stored.append(more.data(), more.size()); })) {
      model.insert(model.end(), more.begin(), more.end());
    }
  } else if (choice < 13) {
    const std::uint32_t to = choices().below(choices().oneIn(2) ? most : size + 1);
    note("resize", size, to);
    if (grows(pair, [&] { stored.resize(to); })) {
      model.resize(to);
    }
  } else if (choice == 13) {
    m_world.faults.mend();  // what cannot be read would stay in the store
    note("clear", size);
    stored.clear();
    model.clear();
  } else if (choice == 14) {
    note("swap", size);
    Pair<T> other{QRTVirtualVector<T>(manager()), {}};
    swap(other.stored, stored);
    require(stored.empty() && other.stored.size() == size, "swapped, the sizes are others");
    stored = std::move(other.stored);
  } else if (size == 0) {
    note("beyond the end");
    T element{};
    for (const std::uint32_t kind : {0U, 1U, 2U, 3U}) {
      const Attempt tried = attempt(
          [&] {
            kind == 0   ? stored.pop_back()
            : kind == 1 ? stored.set(0, element)
            : kind == 2 ? static_cast<void>(stored.get(0))
                        : stored.read(0, &element, 1);
          },
          May::kRaise);
      require(tried.ended == Ended::kAssert, "an element of nothing");
    }
  } else if (choice < 18) {
    note("pop_back", size);
    if (grows(pair, [&] { stored.pop_back(); })) {
      model.pop_back();
    }
  } else if (choice < 21) {
    const std::uint32_t i = choices().below(size);
    note("get", i, size);
    T element{};
    require(!reads(pair, [&] { element = stored.get(i); }) || same(element, model[i]),
            "another element");
  } else if (choice < 24) {
    const std::uint32_t i = choices().below(size);
    note("set", i, size);
    const T element = anyElement<T>();
    if (reads(pair, [&] { stored.set(i, element); })) {
      model[i] = element;
    }
  } else if (choice < 26) {
    const std::uint32_t i = choices().below(size);
    std::vector<T> some(choices().below(size - i) + 1);
    note("read", i, some.size());
    if (reads(pair, [&] { stored.read(i, some.data(), some.size()); })) {
      require(std::equal(some.begin(), some.end(), model.begin() + i, same<T>), "other elements");
    }
  } else if (choice < 28) {
    const std::uint32_t i = choices().below(size);
    std::vector<T> some(std::min<std::size_t>(choices().below(size - i) + 1, 60 * 256));
    std::generate(some.begin(), some.end(), [&] { return anyElement<T>(); });
    note("write", i, some.size());
    if (reads(pair, [&] { stored.write(i, some.data(), some.size()); })) {
      std::copy(some.begin(), some.end(), model.begin() + i);
    }
  } else if (choice == 28) {
    const std::uint32_t i = choices().below(size);
    note("pin", i, size);
    const T element = anyElement<T>();
    if (reads(pair, [&] {
          const auto pin = stored.pin(i);
          require(same(*pin, model[i]), "another element");
          *pin = element;
        })) {
      model[i] = element;
    }
  } else if (choice < 31) {
    sort(pair);
  } else {
    note("loop", size);
    std::size_t at = 0;
    reads(pair, [&] {
      for (const T& each : std::as_const(stored)) {
        require(at < model.size() && same(each, model[at]), "a loop sees another element");
        ++at;
      }
      require(at == model.size(), "a loop ends early");
    });
  }
}

// Sorted, equal elements are equal in all their bytes; not sorted, the elements are the same.
template <class T>
void VectorArea::sort(Pair<T>& pair) {
  note("sort", pair.model.size());
  const auto before = [](const T& a, const T& b) { return a.key < b.key; };
  const Attempt tried = attempt([&] { pair.stored.sort(before); }, May::kLeak);
  require(tried.well() || tried.ended == Ended::kOutOfMemory || tried.ended == Ended::kAssert,
          "sort raised ", tried.text);
  std::stable_sort(pair.model.begin(), pair.model.end(), before);
  if (!tried.well()) {
    m_world.faults.mend();
    std::vector<T> now(pair.model.size());
    require(pair.stored.size() == now.size(), "another size");
    pair.stored.read(0, now.data(), now.size());
    std::vector<T> sorted = now;
    std::stable_sort(sorted.begin(), sorted.end(), before);
    require(std::equal(sorted.begin(), sorted.end(), pair.model.begin(), same<T>),
            "a failed sort lost elements");
    pair.model = std::move(now);
  }
}

template <class T>
void VectorArea::compare(const Pair<T>& pair) {
  note("verify", pair.model.size());
  require(pair.stored.size() == pair.model.size(), "another size");
  std::vector<T> now(pair.model.size());
  pair.stored.read(0, now.data(), now.size());
  require(std::equal(now.begin(), now.end(), pair.model.begin(), same<T>), "other elements");
}

void VectorArea::verify() {
  compare(m_small);
  compare(m_large);
}

void VectorArea::clear() {
  m_small.stored.clear();
  m_small.model.clear();
  m_large.stored.clear();
  m_large.model.clear();
}

}  // namespace model
