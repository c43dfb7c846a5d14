#ifndef EXAMPLES_XMLTREE_NODETEXT_H
#define EXAMPLES_XMLTREE_NODETEXT_H

#include <string>

#include "XmlNode.h"

namespace example {

/// A node in one short line for people: an element's tag and the text in it, or what else the
/// node consists of. White space is shown as one blank, long texts are cut.
/// @throws std::runtime_error when the store cannot read something back
std::string describe(XmlNode& node);

}  // namespace example

#endif  // EXAMPLES_XMLTREE_NODETEXT_H
