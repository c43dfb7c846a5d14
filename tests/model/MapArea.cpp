#include "model/MapArea.h"

#include <algorithm>
#include <set>
#include <utility>

#include "model/Content.h"

namespace model {

namespace {

constexpr std::size_t kMostPairs = 3000;

}  // namespace

MapArea::MapArea(ModelWorld& world)
    : ModelArea(world), m_numbers(world.manager()), m_strings(world.manager()) {}

void MapArea::step() {
  // At times many at once, else the maps never have many buckets.
  for (std::uint32_t i = choices().oneIn(16) ? choices().below(200) : 1; i > 0; --i) {
    choices().oneIn(2) ? step(m_numbers, m_numberModel) : step(m_strings, m_stringModel);
  }
}

MapArea::Value MapArea::anyValue() {
  const std::uint32_t number = choices().below(65536);
  return {number, {number, ~number, 7}};
}

bool MapArea::same(const Value& a, const Value& b) {
  return a.number == b.number && std::equal(std::begin(a.rest), std::end(a.rest), b.rest);
}

// One that is there, or any.
MapArea::Key MapArea::anyKey(const std::map<Key, Value>& model) {
  const Key key = choices().below(65536) * Key{0x100000001};
  const auto there = model.lower_bound(key);
  return there != model.end() && choices().oneIn(2) ? there->first : key;
}

std::string MapArea::anyKey(const std::map<std::string, Value>& model) {
  std::string key(choices().oneIn(8) ? choices().size(6000) : choices().below(300), 'k');
  fill(key.data(), std::min<std::size_t>(key.size(), 5), choices().below(4096));
  const auto there = model.lower_bound(key);
  return there != model.end() && choices().oneIn(2) ? there->first : key;
}

template <class Stored, class Model>
void MapArea::step(Stored& stored, Model& model) {
  const auto key = anyKey(model);
  const auto there = model.find(key);
  const bool isThere = there != model.end();
  const std::uint32_t choice = choices().below(32);
  const Value value = anyValue();
  Value found{};
  bool result = false;
  Attempt tried;
  if (choice < 12) {
    if (model.size() < kMostPairs) {
      note("insert", model.size(), isThere ? 1 : 0);
      tried = attempt([&] { result = stored.insert(key, value); });
      require(!tried.well() || result == !isThere, "inserted once too often, or not");
      if (tried.well()) {
        model.emplace(key, value);
      }
    }
  } else if (choice < 16) {
    note("insertOrAssign", model.size(), isThere ? 1 : 0);
    tried = attempt([&] { stored.insertOrAssign(key, value); });
    if (tried.well()) {
      model[key] = value;
    }
  } else if (choice < 23) {
    note("erase", model.size(), isThere ? 1 : 0);
    tried = attempt([&] { result = stored.erase(key); }, May::kLeak);
    require(tried.ended != Ended::kOutOfMemory, "erase needs room");
    require(!tried.well() || result == isThere, "erased what is not there, or not");
    if (tried.well() && isThere) {
      model.erase(there);
    }
  } else if (choice < 30) {
    note("find", model.size(), isThere ? 1 : 0);
    tried = attempt([&] { result = stored.find(key, found); });
    require(tried.ended != Ended::kOutOfMemory, "find needs room");
    require(!tried.well() || result == isThere, "found what is not there, or not");
    require(!tried.well() || !isThere || same(found, there->second), "another value");
    tried = attempt([&] { result = stored.contains(key); });
    require(!tried.well() || result == isThere, "contains what is not there, or not");
  } else if (choice == 30) {
    note("move", model.size());
    Stored other(manager());
    stored.swap(other);
    require(stored.empty(), "swapped, a map is not empty");
    stored = std::move(other);
  } else if (choices().oneIn(8)) {
    m_world.faults.mend();  // what cannot be read would stay in the store
    note("clear", model.size());
    stored.clear();
    model.clear();
  }
  require(tried.ended != Ended::kIllegalState, "raised ", tried.text);
  require(stored.size() == model.size(), "the map has ", stored.size(), " pairs, not ",
          model.size());
}

template <class Stored, class Model>
void MapArea::compare(const Stored& stored, const Model& model) {
  note("verify", model.size());
  std::set<typename Model::key_type> seen;
  stored.forEach([&](const auto& key, const Value& value) {
    const auto there = model.find(typename Model::key_type(key));
    require(there != model.end() && same(value, there->second), "a pair too many, or another");
    require(seen.insert(there->first).second, "a pair twice");
  });
  require(seen.size() == model.size(), "a pair is missing");
}

void MapArea::verify() {
  compare(m_numbers, m_numberModel);
  compare(m_strings, m_stringModel);
}

void MapArea::clear() {
  m_numbers.clear();
  m_numberModel.clear();
  m_strings.clear();
  m_stringModel.clear();
}

}  // namespace model
