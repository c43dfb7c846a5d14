#ifndef TESTS_CONTAINERS_MAPKINDS_H
#define TESTS_CONTAINERS_MAPKINDS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "QRTVirtualHashMap.h"
#include "QRTVirtualStringMap.h"

// The maps as their tests use them: keys by number, and what the standard library has in their
// place.

struct NumberKind {
  using Key = std::uint64_t;
  using Value = std::uint64_t;
  using Map = QRTVirtualHashMap<std::uint64_t, std::uint64_t>;
  static Key key(unsigned int i) { return std::uint64_t{i} << 40; }  // low bits that are all equal
  static Key owned(const Key& key) { return key; }
};

// Keys of which one in sixteen is an object of its own, and one is the empty string.
struct TextKind {
  using Key = std::string;
  using Value = std::uint64_t;
  using Map = QRTVirtualStringMap<std::uint64_t>;
  static Key key(unsigned int i) {
    return i == 0 ? "" : std::string(i % 16 == 1 ? 250 + i % 32 : i % 40, '\0') + std::to_string(i);
  }
  static Key owned(std::string_view key) { return Key(key); }
};

// Functors that serve a map worst: everything in one bucket.
struct OneHash {
  std::size_t operator()(std::uint64_t) const { return 7; }
};
struct CrowdedKind {
  using Key = std::uint64_t;
  using Value = std::uint64_t;
  using Map = QRTVirtualHashMap<std::uint64_t, std::uint64_t, OneHash>;
  static Key key(unsigned int i) { return i; }
  static Key owned(const Key& key) { return key; }
};

// Pairs of which a page holds two.
struct LargeValue {
  std::uint64_t number;
  std::uint64_t rest[200];
  LargeValue(std::uint64_t n = 0) : number(n), rest{n} {}  // NOLINT(google-explicit-constructor)
  operator std::uint64_t() const { return number; }        // NOLINT(google-explicit-constructor)
};
struct LargeKind {
  using Key = std::uint16_t;
  using Value = LargeValue;
  using Map = QRTVirtualHashMap<std::uint16_t, LargeValue>;
  static Key key(unsigned int i) { return static_cast<Key>(i); }
  static Key owned(const Key& key) { return key; }
};

template <class Kind>
using Model = std::map<typename Kind::Key, std::uint64_t>;

/// What forEach and size say, as a model.
template <class Kind>
Model<Kind> contentOf(const typename Kind::Map& map) {
  Model<Kind> content;
  unsigned long long visited = 0;
  map.forEach([&](const auto& key, const auto& value) {
    content[Kind::owned(key)] = value;
    ++visited;
  });
  EXPECT_EQ(visited, content.size()) << "a pair came twice";
  EXPECT_EQ(visited, map.size());
  return content;
}

/// One random operation on a map and its model, on one of `keys` keys. Raises what the map raises,
/// with the model as it was.
template <class Kind, class Random>
void randomOperation(typename Kind::Map& map, Model<Kind>& model, Random& random, unsigned int keys,
                     unsigned int erasesInTen) {
  const typename Kind::Key key = Kind::key(static_cast<unsigned int>(random() % keys));
  const std::uint64_t value = random();
  const auto known = model.find(key);
  const bool there = known != model.end();
  const auto action = random() % 10;
  if (action < erasesInTen) {
    ASSERT_EQ(map.erase(key), there);
    model.erase(key);
  } else if (action == 9) {
    map.insertOrAssign(key, value);
    model[key] = value;
  } else if (action % 2 == 0) {
    ASSERT_EQ(map.insert(key, value), !there);
    model.emplace(key, value);
  } else {
    typename Kind::Value found = 1;
    ASSERT_EQ(map.find(key, found), there);
    ASSERT_EQ(std::uint64_t{found}, there ? known->second : 1);
    ASSERT_EQ(map.contains(key), there);
  }
}

#endif  // TESTS_CONTAINERS_MAPKINDS_H
