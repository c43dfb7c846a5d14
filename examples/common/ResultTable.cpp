#include "ResultTable.h"

#include <algorithm>
#include <iomanip>
#include <ostream>

namespace example {

namespace {

constexpr std::size_t kMargin = 2;  // columns before each cell

}  // namespace

void ResultTable::add(const std::string& name, const std::string& value,
                      const std::string& remark) {
  m_rows.push_back({name, value, remark});
}

void ResultTable::print(std::ostream& os, unsigned int columns) const {
  std::size_t nameWidth = 0;
  std::size_t valueWidth = 0;
  for (const Row& row : m_rows) {
    nameWidth = std::max(nameWidth, row.name.size());
    valueWidth = std::max(valueWidth, row.value.size());
  }
  const std::size_t room = columns == 0 ? std::string::npos : columns;
  const std::size_t pair = kMargin + nameWidth + kMargin + valueWidth;
  for (const Row& row : m_rows) {
    if (pair <= room) {
      os << "  " << std::left << std::setw(static_cast<int>(nameWidth)) << row.name << "  "
         << std::right << std::setw(static_cast<int>(valueWidth)) << row.value;
    } else {
      os << "  " << row.name << "\n    " << row.value;
    }
    if (!row.remark.empty()) {
      os << (pair <= room && pair + kMargin + row.remark.size() <= room ? "  " : "\n    ")
         << row.remark;
    }
    os << '\n';
  }
}

}  // namespace example
