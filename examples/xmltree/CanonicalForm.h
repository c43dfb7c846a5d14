#ifndef EXAMPLES_XMLTREE_CANONICALFORM_H
#define EXAMPLES_XMLTREE_CANONICALFORM_H

#include <cstddef>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "XmlHandler.h"

namespace example {

/// Turns a document into a form in which two documents are equal exactly when they say the same:
/// attributes sorted, adjacent text merged, nothing left of how it was written down. It is no XML:
/// characters that no document can contain mark where things begin and end.
class CanonicalForm : public XmlHandler {
 public:
  /// @param most  bytes not dropped from which on the parser is to pause
  explicit CanonicalForm(std::size_t most = std::numeric_limits<std::size_t>::max())
      : m_most(most) {}

  void startElement(std::string_view name, const char* const* attributes) override;
  void endElement(std::string_view name) override;
  void text(std::string_view text) override;
  void comment(std::string_view text) override;
  void instruction(std::string_view target, std::string_view data) override;
  bool isFull() const override { return m_pending.size() >= m_most; }

  /// What was produced and not dropped yet.
  const std::string& pending() const { return m_pending; }

  /// Drops the first bytes of it.
  void drop(std::size_t bytes) { m_pending.erase(0, bytes); }

 private:
  const std::size_t m_most;  // bytes from which on this is full
  std::string m_pending;     // what was produced
  std::vector<std::pair<std::string_view, std::string_view>> m_attributes;  // of one element
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_CANONICALFORM_H
