#ifndef EXAMPLES_XMLTREE_DOCUMENTEDITOR_H
#define EXAMPLES_XMLTREE_DOCUMENTEDITOR_H

#include <cstdint>
#include <string>

#include "DocumentStore.h"
#include "PathExpression.h"
#include "QRTVirtualPin.h"
#include "QRTVirtualVector.h"
#include "XmlNode.h"

namespace example {

/// Changes the documents of a store. A match of a path inside another match goes with that one; the
/// element that a document consists of stays where it is. Every operation raises
/// std::runtime_error when the store cannot read something back.
class DocumentEditor {
 public:
  explicit DocumentEditor(DocumentStore& store) : m_store(store) {}

  /// Removes what a path leads to, with all that is below it.
  /// @return nodes removed
  /// @throws XmlError when the path leads to a whole document
  std::uint64_t remove(const PathExpression& path);

  /// Moves what a path leads to behind the children of the first element another path leads to.
  /// @return nodes moved
  /// @throws XmlError when there is no such element, when it lies in what is to be moved, and as
  ///         above
  std::uint64_t move(const PathExpression& path, const PathExpression& to);

  /// Appends a new element to every element a path leads to.
  /// @param xml  the element as XML
  /// @return elements appended
  /// @throws XmlError when `xml` is malformed
  std::uint64_t append(const PathExpression& path, const std::string& xml);

 private:
  using Offsets = QRTVirtualVector<std::uint64_t>;  // of nodes; as many as there may be

  Offsets collect(const PathExpression& path);
  std::uint64_t firstElement(const PathExpression& path);
  QRTVirtualPin<XmlNode> pinned(std::uint64_t offset);
  void takeOut(XmlNode& node);
  bool liesIn(std::uint64_t inner, std::uint64_t outer);

  DocumentStore& m_store;
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_DOCUMENTEDITOR_H
