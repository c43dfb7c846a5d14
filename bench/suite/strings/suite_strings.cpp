// Real text in pieces of 10 to 2,000 bytes: putting them in, reading them in order and at random,
// comparing and converting. Copies in std::string, the store, pages of another library.

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualUTF8Reader.h"
#include "QRTVirtualUTF8String.h"
#include "StringWork.h"
#include "common/Program.h"

namespace {

class StdStrings {
 public:
  StdStrings(std::size_t count, std::size_t) { m_strings.reserve(count); }
  void add(std::string_view text) { m_strings.emplace_back(text); }
  template <class Use>
  void read(std::size_t i, Use use) const {
    use(std::string_view(m_strings[i]));
  }
  bool equal(std::size_t i, std::string_view text) const { return m_strings[i] == text; }
  I18NString convert(std::size_t i) const { return I18NString(std::string_view(m_strings[i])); }

 private:
  std::vector<std::string> m_strings;
};

class StoredStrings {
 public:
  StoredStrings(std::size_t count, std::size_t budget)
      : m_manager(static_cast<unsigned int>(std::min(budget, std::size_t{0xFFFFF000U})), 0, 0) {
    m_strings.reserve(count);
  }
  void add(std::string_view text) { m_strings.emplace_back().setString(text, &m_manager); }
  template <class Use>
  void read(std::size_t i, Use use) {
    const QRTVirtualUTF8Reader reader(m_strings[i], &m_manager);
    use(reader.view());
  }
  bool equal(std::size_t i, std::string_view text) {
    return m_strings[i].isEqual(text, &m_manager) != 0;
  }
  I18NString convert(std::size_t i) { return m_strings[i].getString(&m_manager); }

 private:
  QRTVirtualMemoryMgr m_manager;
  std::vector<QRTVirtualUTF8String> m_strings;
};

}  // namespace

int main(int argc, char** argv) {
  StringOptions options;
  suite::Program program("Strings beside other ways to keep them");
  program.option("--strings", options.strings, "how many strings, about 1,000 bytes each");
  program.option("--reads", options.reads, "random reads, instead of 1e6, or 1e5 with a budget");
  program.option("--budget", options.budget, "memory: ample, 16M, or 1/6 of the text");
  program.add("strings", "std::string",
              [&] { measureStrings<StdStrings>("std::string", options); });
  program.add("strings", "store", [&] { measureStrings<StoredStrings>("store", options); });
#ifdef SUITE_BERKELEY_DB
  program.add("strings", "bdb pool", [&] { measureBerkeley(options); });
#endif
  return program.main(argc, argv);
}
