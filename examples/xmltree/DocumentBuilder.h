#ifndef EXAMPLES_XMLTREE_DOCUMENTBUILDER_H
#define EXAMPLES_XMLTREE_DOCUMENTBUILDER_H

#include <string>
#include <string_view>

#include "LoadCounts.h"
#include "QRTVirtualPin.h"
#include "QRTVirtualTree.h"
#include "XmlElement.h"
#include "XmlHandler.h"

namespace example {

/// Builds the nodes of one document from what a parser hands it. Two nodes are pinned at a time,
/// the open element and its last child, however deep the document is.
class DocumentBuilder : public XmlHandler {
 public:
  /// Begins with an empty document that is not in the tree yet.
  /// @param tree  where the nodes are made; must outlive the builder
  /// @param name  names the document
  /// @throws what the store raises when it is full, here and in every operation
  DocumentBuilder(QRTVirtualTree& tree, std::string_view name);

  void startElement(std::string_view name, const char* const* attributes) override;
  void endElement(std::string_view name) override;
  void text(std::string_view text) override;
  void comment(std::string_view text) override;
  void instruction(std::string_view target, std::string_view data) override;

  /// Puts the document into the tree. Nothing may follow.
  void finish();

  /// Frees all that was built.
  void discard();

  const LoadCounts& counts() const { return m_counts; }

 private:
  /// Longest text of one node; a longer one becomes several, so that it never has to fit memory.
  static constexpr std::size_t kMostTextBytes = std::size_t{64} << 10;

  template <class Node>
  QRTVirtualPin<Node> append();
  void storeText();
  void storeIndentation(const Indentation& indentation);

  QRTVirtualTree& m_tree;         // not owned
  QRTVirtualPin<XmlNode> m_open;  // the element, or the document, that is being filled
  QRTVirtualPin<XmlNode> m_last;  // its last child, if any
  unsigned long long m_document;  // offset of the document
  std::string m_text;             // text that came since the last node
  std::string m_names;            // names of the element that begins
  std::string m_values;           // values of its attributes
  LoadCounts m_counts;            // what was built
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_DOCUMENTBUILDER_H
