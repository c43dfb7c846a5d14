#include "DocumentEditor.h"

#include <stdexcept>

#include "NodeRemoval.h"
#include "PathFinder.h"
#include "QRTVirtualTreeRange.h"
#include "XmlElement.h"
#include "XmlError.h"

namespace example {

std::uint64_t DocumentEditor::remove(const PathExpression& path) {
  const Offsets matches = collect(path);
  for (const std::uint64_t offset : matches) {
    takeOut(*pinned(offset));
    freeSubtree(m_store.tree(), offset);
  }
  return matches.size();
}

std::uint64_t DocumentEditor::move(const PathExpression& path, const PathExpression& to) {
  const Offsets matches = collect(path);
  const std::uint64_t target = firstElement(to);
  for (const std::uint64_t offset : matches) {
    if (liesIn(target, offset)) {
      throw XmlError("an element cannot be moved into itself");
    }
  }
  for (const std::uint64_t offset : matches) {
    const QRTVirtualPin<XmlNode> node = pinned(offset);
    takeOut(*node);
    pinned(target)->appendChild(node.get());
  }
  return matches.size();
}

// The element is parsed once for every match, as a document of its own from which it is taken.
std::uint64_t DocumentEditor::append(const PathExpression& path, const std::string& xml) {
  const Offsets matches = collect(path);
  QRTVirtualTreeNode* const root = m_store.tree().getRootNode();
  for (const std::uint64_t offset : matches) {
    const QRTVirtualPin<XmlNode> parent = pinned(offset);
    if (parent->kind() != NodeKind::eElement) {
      throw XmlError("only elements can be appended to");
    }
    m_store.loadText("the element to append", xml);
    const std::uint64_t documentOffset = root->getLastChildPageItem().getOffset();
    QRTVirtualPin<XmlNode> document = pinned(documentOffset);
    QRTVirtualPin<XmlNode> element = pinned(document->getFirstChildPageItem().getOffset());
    while (element->kind() != NodeKind::eElement) {
      element = pinned(element->getNextSiblingPageItem().getOffset());
    }
    document->removeChild(element.get());
    parent->appendChild(element.get());
    root->removeChild(document.get());
    document.reset();
    freeSubtree(m_store.tree(), documentOffset);
  }
  return matches.size();
}

DocumentEditor::Offsets DocumentEditor::collect(const PathExpression& path) {
  Offsets matches(m_store.manager());
  PathFinder finder(path, true);
  for (XmlNode& document : QRTVirtualChildren<XmlNode>(*m_store.tree().getRootNode())) {
    finder.search(document, [&](XmlNode& match) {
      matches.push_back(match.getPageOffset());
      return true;
    });
  }
  return matches;
}

std::uint64_t DocumentEditor::firstElement(const PathExpression& path) {
  std::uint64_t found = 0;
  PathFinder finder(path, false);
  for (XmlNode& document : QRTVirtualChildren<XmlNode>(*m_store.tree().getRootNode())) {
    finder.search(document, [&](XmlNode& match) {
      found = match.kind() == NodeKind::eElement ? match.getPageOffset() : 0;
      return found == 0;
    });
    if (found != 0) {
      return found;
    }
  }
  throw XmlError("there is no element to move to");
}

QRTVirtualPin<XmlNode> DocumentEditor::pinned(std::uint64_t offset) {
  QRTVirtualPin<XmlNode> node(m_store.tree().getNode(offset));
  if (!node) {
    throw std::runtime_error(std::string("a node cannot be read back: ") +
                             m_store.manager().getLastStoreError());
  }
  return node;
}

void DocumentEditor::takeOut(XmlNode& node) {
  const QRTVirtualPin<XmlNode> parent = pinned(node.getParentPageItem().getOffset());
  if (parent->kind() == NodeKind::eDocument && node.kind() == NodeKind::eElement) {
    throw XmlError("the outermost element of a document has to stay");
  }
  parent->removeChild(&node);
}

bool DocumentEditor::liesIn(std::uint64_t inner, std::uint64_t outer) {
  while (inner != outer && inner != QRTVirtualPageItem::kInvalidOffset) {
    inner = pinned(inner)->getParentPageItem().getOffset();
  }
  return inner == outer;
}

}  // namespace example
