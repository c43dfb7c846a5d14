#ifndef TESTS_MODEL_MODELAREA_H
#define TESTS_MODEL_MODELAREA_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "model/ModelWorld.h"

namespace model {

/// One part of the library beside its model in ordinary memory. Every result of a call is compared
/// with what the model says; a difference raises Mismatch.
class ModelArea {
 public:
  using Pins = std::map<std::uint64_t, std::uint32_t>;

  explicit ModelArea(ModelWorld& world) : m_world(world) {}

  /// For an area whose work depends on more than its choices, such as the addresses that the heap
  /// gives: with choices of its own it does not change what the others do.
  ModelArea(ModelWorld& world, Choices own) : m_world(world), m_own(own) {}
  virtual ~ModelArea() = default;
  ModelArea(const ModelArea&) = delete;
  ModelArea& operator=(const ModelArea&) = delete;

  /// A literal.
  virtual const char* name() const = 0;

  /// Does one operation.
  virtual void step() = 0;

  /// Compares everything. Nothing fails meanwhile.
  virtual void verify() = 0;

  /// Takes every pin away. Nothing fails meanwhile.
  virtual void unpin() {}

  /// Gives everything back. Nothing fails meanwhile.
  virtual void clear() = 0;

  /// Objects of the store that the area has.
  virtual std::uint64_t objects() const { return 0; }

  /// Adds the pins that it holds, by offset.
  virtual void addPins(Pins&) const {}

  /// Pins that it may hold on objects whose offsets it does not know, one each.
  virtual std::size_t hiddenPins() const { return 0; }

  /// Whether it has objects whose offsets, or whose number, it does not know.
  virtual bool hidesOffsets() const { return false; }
  virtual bool hidesCount() const { return false; }

  /// Whether an object is the area's.
  virtual bool owns(std::uint64_t) const { return false; }

 protected:
  Choices& choices() { return m_own ? *m_own : m_world.choices; }
  QRTVirtualMemoryMgr& manager() { return m_world.manager(); }
  void note(const char* operation, std::uint64_t a = 0, std::uint64_t b = 0) {
    m_world.history.note(name(), operation, a, b);
  }
  template <typename... Parts>
  void require(bool holds, const Parts&... parts) const {
    m_world.require(holds, parts...);
  }
  template <class Call>
  Attempt attempt(Call&& call, May may = May::kNothing) {
    return m_world.attempt(call, may);
  }

  /// One of a list's elements.
  template <class List>
  auto& any(List& list) {
    return list[choices().below(static_cast<std::uint32_t>(list.size()))];
  }

  ModelWorld& m_world;

 private:
  std::optional<Choices> m_own;  // nothing for an area that draws from the run's
};

}  // namespace model

#endif  // TESTS_MODEL_MODELAREA_H
