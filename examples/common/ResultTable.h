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
  void print(std::ostream& os) const;

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
