#ifndef TESTS_MODEL_MAPAREA_H
#define TESTS_MODEL_MAPAREA_H

#include <cstdint>
#include <map>
#include <string>

#include "QRTVirtualHashMap.h"
#include "QRTVirtualStringMap.h"
#include "model/ModelArea.h"

namespace model {

/// Stored hash maps from numbers and from byte strings beside ordered ones in ordinary memory.
class MapArea final : public ModelArea {
 public:
  explicit MapArea(ModelWorld& world);

  const char* name() const override { return "map"; }
  void step() override;
  void verify() override;
  void clear() override;
  bool hidesOffsets() const override { return true; }
  bool hidesCount() const override { return true; }

 private:
  using Key = std::uint64_t;
  struct Value {
    std::uint64_t number;
    std::uint32_t rest[3];
  };

  Value anyValue();
  Key anyKey(const std::map<Key, Value>& model);
  std::string anyKey(const std::map<std::string, Value>& model);
  template <class Stored, class Model>
  void step(Stored& stored, Model& model);
  template <class Stored, class Model>
  void compare(const Stored& stored, const Model& model);
  static bool same(const Value& a, const Value& b);

  QRTVirtualHashMap<Key, Value> m_numbers;
  std::map<Key, Value> m_numberModel;
  QRTVirtualStringMap<Value> m_strings;
  std::map<std::string, Value> m_stringModel;
};

}  // namespace model

#endif  // TESTS_MODEL_MAPAREA_H
