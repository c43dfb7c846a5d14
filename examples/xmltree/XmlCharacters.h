#ifndef EXAMPLES_XMLTREE_XMLCHARACTERS_H
#define EXAMPLES_XMLTREE_XMLCHARACTERS_H

#include <string_view>

#include "QRTVirtualNodeClass.h"
#include "StoredText.h"
#include "XmlNode.h"

namespace example {

/// A node that is one string: what documents, texts, comments and instructions have in common.
/// @tparam Node   the class itself
/// @tparam kKind  what it is
template <class Node, NodeKind kKind>
class XmlCharacters : public QRTVirtualNodeClass<Node, XmlNode> {
 public:
  NodeKind kind() const override { return kKind; }

  /// @throws QRTOutOfMemoryError when the store is full
  void setText(std::string_view text) { m_text = stored_text::put(storeOf(*this), text); }

  const QRTVirtualPageItem& text() const { return m_text; }

  void freeTexts(QRTVirtualMemoryMgr& manager) override { stored_text::free(manager, m_text); }

 private:
  QRTVirtualPageItem m_text;  // the string, not shared
};

/// A run of text, entities replaced. A long text is several neighbours.
class XmlText : public XmlCharacters<XmlText, NodeKind::eText> {
 public:
  static constexpr const char* kClassName = "XmlText";
};

/// A comment.
class XmlComment : public XmlCharacters<XmlComment, NodeKind::eComment> {
 public:
  static constexpr const char* kClassName = "XmlComment";
};

/// A document: a child of the tree's root. Its string is the file's path.
class XmlDocument : public XmlCharacters<XmlDocument, NodeKind::eDocument> {
 public:
  static constexpr const char* kClassName = "XmlDocument";
};

/// A processing instruction. Its string is the data; the target is shared.
class XmlInstruction : public XmlCharacters<XmlInstruction, NodeKind::eInstruction> {
 public:
  static constexpr const char* kClassName = "XmlInstruction";

  /// @throws QRTOutOfMemoryError when the store is full
  void setTarget(std::string_view target) {
    m_target = stored_text::putShared(storeOf(*this), target);
  }

  const QRTVirtualPageItem& target() const { return m_target; }

  void freeTexts(QRTVirtualMemoryMgr& manager) override {
    XmlCharacters::freeTexts(manager);
    stored_text::freeShared(manager, m_target);
  }

 private:
  QRTVirtualPageItem m_target;  // shared
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_XMLCHARACTERS_H
