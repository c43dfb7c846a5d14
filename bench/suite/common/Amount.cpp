#include "common/Amount.h"

#include <cstdlib>
#include <string_view>

#include "common/Figure.h"

namespace suite {

Amount::Amount(const std::string& given) : text(given) {
  char* rest = nullptr;
  const double number = std::strtod(given.c_str(), &rest);
  const std::string_view unit(rest);
  const double factor = unit.empty()  ? 1
                        : unit == "K" ? 1024
                        : unit == "M" ? 1024 * 1024
                        : unit == "G" ? 1024 * 1024 * 1024
                                      : 0;
  if (rest == given.c_str() || factor == 0 || !(number * factor >= 1 && number * factor < 1e15)) {
    fail("not an amount: " + given);
  }
  value = static_cast<std::size_t>(number * factor);
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
