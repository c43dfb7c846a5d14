#ifndef EXAMPLES_XMLTREE_NODEREMOVAL_H
#define EXAMPLES_XMLTREE_NODEREMOVAL_H

#include "QRTVirtualContainer.h"

namespace example {

/// Frees a node that is in no tree, everything below it, and the strings they do not share.
/// @param offset  the node, not pinned
/// @throws std::runtime_error when a node cannot be read back; it and what follows it stay
void freeSubtree(QRTVirtualContainer& container, unsigned long long offset);

}  // namespace example

#endif  // EXAMPLES_XMLTREE_NODEREMOVAL_H
