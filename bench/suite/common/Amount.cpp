#include "common/Amount.h"

#include <cmath>
#include <cstdlib>
#include <string_view>

#include "common/Figure.h"

namespace suite {

Amount::Amount(const std::string& given) : text(given) {
  char* rest = nullptr;
  const double number = std::strtod(given.c_str(), &rest);
  const std::string_view unit(rest);
  const double factor = unit.empty()                 ? 1
                        : unit == "K" || unit == "k" ? 1024
                        : unit == "M" || unit == "m" ? 1024 * 1024
                        : unit == "G" || unit == "g" ? 1024 * 1024 * 1024
                                                     : 0;
  const double amount = number * factor;
  if (rest == given.c_str() || !(amount >= 1 && amount < 1e15 && amount == std::floor(amount))) {
    fail("not an amount: " + given);
  }
  value = static_cast<std::size_t>(amount);
}

Budget::Budget(const std::string& text) : m_text(text) {
  if (text.rfind("1/", 0) == 0) {
    m_divisor = Amount(text.substr(2)).value;
  } else if (!isAmple()) {
    m_bytes = Amount(text).value;
  }
}

std::size_t Budget::bytes(std::size_t dataBytes) const {
  if (isAmple()) {
    return 2 * dataBytes + (std::size_t{64} << 20);
  }
  return m_divisor != 0 ? dataBytes / m_divisor : m_bytes;
}

std::string Budget::label(const std::string& what) const {
  return isAmple() ? what : what + " in " + m_text;
}

}  // namespace suite
