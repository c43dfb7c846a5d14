#ifndef EXAMPLES_XMLTREE_LOADCOUNTS_H
#define EXAMPLES_XMLTREE_LOADCOUNTS_H

#include <cstdint>

namespace example {

/// What documents were made of.
struct LoadCounts {
  std::uint64_t documents = 0;
  std::uint64_t elements = 0;
  std::uint64_t attributes = 0;
  std::uint64_t texts = 0;         ///< text nodes
  std::uint64_t indentations = 0;  ///< white space kept beside its neighbour, without a node
  std::uint64_t comments = 0;
  std::uint64_t instructions = 0;
  std::uint64_t unread = 0;       ///< documents with declarations in files that were not read
  std::uint64_t xmlBytes = 0;     ///< bytes of the files
  std::uint64_t storedBytes = 0;  ///< bytes of the nodes and the strings they do not share

  std::uint64_t nodes() const { return documents + elements + texts + comments + instructions; }

  LoadCounts& operator+=(const LoadCounts& other) {
    documents += other.documents;
    elements += other.elements;
    attributes += other.attributes;
    texts += other.texts;
    indentations += other.indentations;
    comments += other.comments;
    instructions += other.instructions;
    unread += other.unread;
    xmlBytes += other.xmlBytes;
    storedBytes += other.storedBytes;
    return *this;
  }
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_LOADCOUNTS_H
