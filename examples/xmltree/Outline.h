#ifndef EXAMPLES_XMLTREE_OUTLINE_H
#define EXAMPLES_XMLTREE_OUTLINE_H

#include <iosfwd>
#include <string>

#include "XmlNode.h"

namespace example {

/// Draws the upper levels of a document as a tree.
class Outline {
 public:
  /// @param depth     levels to draw below the document; also how deep this calls itself
  /// @param children  children to draw of each node; the rest is counted
  Outline(std::ostream& os, unsigned int depth, unsigned int children)
      : m_os(os), m_depth(depth), m_children(children) {}

  /// @throws std::runtime_error when the store cannot read something back
  void draw(XmlNode& document);

 private:
  void drawChildren(QRTVirtualContainer& container, unsigned long long offset, unsigned int count,
                    const std::string& prefix, unsigned int depth);

  std::ostream& m_os;
  const unsigned int m_depth;
  const unsigned int m_children;
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_OUTLINE_H
