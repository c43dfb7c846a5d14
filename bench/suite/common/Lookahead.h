#ifndef BENCH_SUITE_COMMON_LOOKAHEAD_H
#define BENCH_SUITE_COMMON_LOOKAHEAD_H

#include <array>
#include <cstddef>
#include <utility>

namespace suite {

/// Draws what is used some places ahead, and announces it then.
template <class Draw, class Announce>
class Lookahead {
 public:
  using Value = decltype(std::declval<Draw&>()());

  Lookahead(Draw draw, Announce announce) : m_draw(draw), m_announce(announce) {
    for (Value& value : m_ahead) {
      value = drawn();
    }
  }

  Value operator()() {
    Value& place = m_ahead[m_at];
    m_at = (m_at + 1) % kPlaces;
    return std::exchange(place, drawn());
  }

 private:
  static constexpr std::size_t kPlaces = 8;

  Value drawn() {
    const Value value = m_draw();
    m_announce(value);
    return value;
  }

  Draw m_draw;
  Announce m_announce;
  std::array<Value, kPlaces> m_ahead{};
  std::size_t m_at = 0;  // place of the next one
};

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_LOOKAHEAD_H
