#include "ResultTable.h"

#include <algorithm>
#include <iomanip>
#include <ostream>

namespace example {

void ResultTable::add(const std::string& name, const std::string& value,
                      const std::string& remark) {
  m_rows.push_back({name, value, remark});
}

void ResultTable::print(std::ostream& os) const {
  std::size_t nameWidth = 0;
  std::size_t valueWidth = 0;
  for (const Row& row : m_rows) {
    nameWidth = std::max(nameWidth, row.name.size());
    valueWidth = std::max(valueWidth, row.value.size());
  }
  for (const Row& row : m_rows) {
    os << "  " << std::left << std::setw(static_cast<int>(nameWidth)) << row.name << "  "
       << std::right << std::setw(static_cast<int>(valueWidth)) << row.value;
    if (!row.remark.empty()) {
      os << "  " << row.remark;
    }
    os << '\n';
  }
}

}  // namespace example
