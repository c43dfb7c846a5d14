#ifndef EXAMPLES_XMLTREE_INDENTATION_H
#define EXAMPLES_XMLTREE_INDENTATION_H

#include <cstdint>
#include <string>
#include <string_view>

namespace example {

/// White space that lays a document out, in two bytes: some line ends, then tabs or blanks. Every
/// other node of a typical document would be such a text; kept beside its neighbour instead it
/// takes no node and no stored object. Longer or mixed white space is a text like any other.
class Indentation {
 public:
  Indentation() = default;

  /// Takes a text.
  /// @param text  any text
  /// @return whether the text could be taken; if not, this is as it was
  bool assign(std::string_view text) {
    const std::size_t lineEnds = leading(text, '\n');
    const std::string_view rest = text.substr(lineEnds);
    const char filler = rest.empty() ? ' ' : rest.front();
    if (text.empty() || lineEnds > kMostLineEnds || rest.size() > kMostFillers ||
        (filler != ' ' && filler != '\t') || leading(rest, filler) != rest.size()) {
      return false;
    }
    m_code = static_cast<std::uint16_t>(lineEnds << kLineEndShift | (filler == '\t' ? kTabs : 0U) |
                                        rest.size());
    return true;
  }

  bool empty() const { return m_code == 0; }

  /// Appends the text.
  void appendTo(std::string& text) const {
    text.append(m_code >> kLineEndShift, '\n');
    text.append(m_code & kMostFillers, (m_code & kTabs) != 0 ? '\t' : ' ');
  }

 private:
  static constexpr unsigned int kLineEndShift = 12;
  static constexpr unsigned int kMostLineEnds = 15;  // the four bits above
  static constexpr unsigned int kTabs = 1U << 11;    // set for tabs, clear for blanks
  static constexpr unsigned int kMostFillers = kTabs - 1;

  static std::size_t leading(std::string_view text, char each) {
    const std::size_t end = text.find_first_not_of(each);
    return end == std::string_view::npos ? text.size() : end;
  }

  std::uint16_t m_code = 0;  // line ends, kind and number of fillers; 0 for no text
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_INDENTATION_H
