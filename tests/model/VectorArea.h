#ifndef TESTS_MODEL_VECTORAREA_H
#define TESTS_MODEL_VECTORAREA_H

#include <array>
#include <cstdint>
#include <vector>

#include "QRTVirtualVector.h"
#include "model/ModelArea.h"

namespace model {

/// Stored vectors of small and of large elements beside vectors in ordinary memory.
class VectorArea final : public ModelArea {
 public:
  explicit VectorArea(ModelWorld& world);

  const char* name() const override { return "vector"; }
  void step() override;
  void verify() override;
  void clear() override;
  bool hidesOffsets() const override { return true; }
  bool hidesCount() const override { return true; }

 private:
  struct Small {
    std::uint64_t key;
    std::uint32_t rest;
  };
  struct Large {
    std::uint64_t key;
    std::array<char, 4995> rest;
  };

  template <class T>
  struct Pair {
    QRTVirtualVector<T> stored;
    std::vector<T> model;
  };

  template <class T>
  T anyElement();
  template <class T>
  void step(Pair<T>& pair, std::uint32_t most);
  template <class T>
  void sort(Pair<T>& pair);
  template <class T>
  void compare(const Pair<T>& pair);
  template <class T, class Call>
  bool grows(Pair<T>& pair, Call call);
  template <class T, class Call>
  bool reads(Pair<T>& pair, Call call);
  template <class T>
  static bool same(const T& a, const T& b);

  Pair<Small> m_small;
  Pair<Large> m_large;
};

}  // namespace model

#endif  // TESTS_MODEL_VECTORAREA_H
