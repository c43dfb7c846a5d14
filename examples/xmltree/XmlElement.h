#ifndef EXAMPLES_XMLTREE_XMLELEMENT_H
#define EXAMPLES_XMLTREE_XMLELEMENT_H

#include <optional>
#include <string>
#include <string_view>

#include "QRTVirtualNodeClass.h"
#include "StoredText.h"
#include "XmlNode.h"

namespace example {

/// Takes a string apart whose parts end with a zero byte each.
class TextParts {
 public:
  explicit TextParts(std::string_view text) : m_rest(text) {}

  bool atEnd() const { return m_rest.empty(); }

  /// The next part without its zero byte; empty at the end.
  std::string_view next() {
    const std::string_view part = m_rest.substr(0, m_rest.find('\0'));
    m_rest.remove_prefix(part.size() < m_rest.size() ? part.size() + 1 : part.size());
    return part;
  }

 private:
  std::string_view m_rest;  // the parts still to come
};

/// An element. Its name and the names of its attributes are one string, shared by all elements of
/// the same shape; the values of its attributes are one string of its own. In both, every part
/// ends with a zero byte, which no XML document can contain.
class XmlElement : public QRTVirtualNodeClass<XmlElement, XmlNode> {
 public:
  static constexpr const char* kClassName = "XmlElement";

  NodeKind kind() const override { return NodeKind::eElement; }

  /// Stores name, attribute names and values.
  /// @param names   the element's name and its attributes' names, each followed by a zero byte
  /// @param values  the values, in the order of the names, each followed by a zero byte
  /// @throws QRTOutOfMemoryError when the store is full; what was stored before it is kept
  void setTag(std::string_view names, std::string_view values);

  void freeTexts(QRTVirtualMemoryMgr& manager) override;

  const QRTVirtualPageItem& names() const { return m_names; }
  const QRTVirtualPageItem& values() const { return m_values; }

  /// Whether the element has a name, as written.
  /// @throws std::runtime_error when the store cannot read something back
  bool isNamed(std::string_view name) const;

  /// Whether it has an attribute of a name and, if one is given, a value. @throws as above
  bool hasAttribute(std::string_view name, const std::optional<std::string>& value) const;

  /// The white space between the element's start and its first child.
  const Indentation& lead() const { return m_lead; }
  void setLead(const Indentation& lead) { m_lead = lead; }

 private:
  Indentation m_lead;           // white space behind the start tag
  QRTVirtualPageItem m_names;   // shared: name, then attribute names
  QRTVirtualPageItem m_values;  // attribute values; empty without attributes
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_XMLELEMENT_H
