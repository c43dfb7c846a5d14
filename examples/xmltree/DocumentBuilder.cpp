#include "DocumentBuilder.h"

#include <stdexcept>
#include <utility>

#include "NodeRemoval.h"
#include "XmlCharacters.h"

namespace example {

DocumentBuilder::DocumentBuilder(QRTVirtualTree& tree, std::string_view name) : m_tree(tree) {
  QRTVirtualPin<XmlDocument> document(XmlDocument::create(&m_tree));
  m_document = document->getPageOffset();
  m_open = QRTVirtualPin<XmlNode>(document.release());
  try {
    static_cast<XmlDocument&>(*m_open).setText(name);
  } catch (...) {
    discard();
    throw;
  }
  m_counts.documents = 1;
  m_counts.storedBytes = sizeof(XmlDocument) + name.size();
}

void DocumentBuilder::startElement(std::string_view name, const char* const* attributes) {
  storeText();
  m_names.assign(name).push_back('\0');
  m_values.clear();
  for (; *attributes != nullptr; attributes += 2) {
    m_names.append(attributes[0]).push_back('\0');
    m_values.append(attributes[1]).push_back('\0');
    ++m_counts.attributes;
  }
  QRTVirtualPin<XmlElement> element = append<XmlElement>();
  element->setTag(m_names, m_values);
  ++m_counts.elements;
  m_counts.storedBytes += m_values.size();
  m_last.reset();
  m_open = QRTVirtualPin<XmlNode>(element.release());
}

void DocumentBuilder::endElement(std::string_view) {
  storeText();
  const unsigned long long parent = m_open->getParentPageItem().getOffset();
  m_last = std::move(m_open);
  m_open = QRTVirtualPin<XmlNode>(m_tree.getNode(parent));
  if (!m_open) {
    throw std::runtime_error(std::string("a node cannot be read back: ") +
                             m_tree.getMemoryMgr()->getLastStoreError());
  }
}

void DocumentBuilder::text(std::string_view text) {
  if (m_text.size() + text.size() > kMostTextBytes) {
    storeText();
  }
  m_text.append(text);
}

void DocumentBuilder::comment(std::string_view text) {
  storeText();
  QRTVirtualPin<XmlComment> node = append<XmlComment>();
  node->setText(text);
  ++m_counts.comments;
  m_counts.storedBytes += text.size();
  m_last = QRTVirtualPin<XmlNode>(node.release());
}

void DocumentBuilder::instruction(std::string_view target, std::string_view data) {
  storeText();
  QRTVirtualPin<XmlInstruction> node = append<XmlInstruction>();
  node->setTarget(target);
  node->setText(data);
  ++m_counts.instructions;
  m_counts.storedBytes += data.size();
  m_last = QRTVirtualPin<XmlNode>(node.release());
}

void DocumentBuilder::finish() {
  m_last.reset();
  m_tree.getRootNode()->appendChild(m_open.get());
  m_open.reset();
}

void DocumentBuilder::discard() {
  m_last.reset();
  m_open.reset();
  freeSubtree(m_tree, m_document);
}

// The node is in the document before it gets its strings, so that `discard` finds them.
template <class Node>
QRTVirtualPin<Node> DocumentBuilder::append() {
  QRTVirtualPin<Node> node(Node::create(&m_tree));
  m_open->appendChild(node.get());
  m_counts.storedBytes += sizeof(Node);
  return node;
}

void DocumentBuilder::storeText() {
  if (m_text.empty()) {
    return;
  }
  Indentation indentation;
  if (indentation.assign(m_text)) {
    storeIndentation(indentation);
  } else {
    QRTVirtualPin<XmlText> node = append<XmlText>();
    node->setText(m_text);
    ++m_counts.texts;
    m_counts.storedBytes += m_text.size();
    m_last = QRTVirtualPin<XmlNode>(node.release());
  }
  m_text.clear();
}

// White space stands behind the last child, or behind the start tag when there is none. A document
// never gets any: outside of its element a parser reports none.
void DocumentBuilder::storeIndentation(const Indentation& indentation) {
  if (m_last) {
    m_last->setTail(indentation);
  } else {
    static_cast<XmlElement&>(*m_open).setLead(indentation);
  }
  ++m_counts.indentations;
}

}  // namespace example
