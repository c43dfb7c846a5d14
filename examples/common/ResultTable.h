#ifndef EXAMPLES_COMMON_RESULTTABLE_H
#define EXAMPLES_COMMON_RESULTTABLE_H

#include <iosfwd>
#include <string>
#include <vector>

namespace example {

/// The figures a program ends with: one row each, values in one column, remarks behind them.
class ResultTable {
 public:
  void add(const std::string& name, const std::string& value, const std::string& remark = "");
  /// @param columns  what the rows have to fit: a remark that does not goes below its row, and so
  /// does
  ///                 a value where even a name and a value are too much. 0 for any width
  void print(std::ostream& os, unsigned int columns) const;

 private:
  struct Row {
    std::string name;
    std::string value;
    std::string remark;
  };

  std::vector<Row> m_rows;
};

}  // namespace example

#endif  // EXAMPLES_COMMON_RESULTTABLE_H
