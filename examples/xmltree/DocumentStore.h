#ifndef EXAMPLES_XMLTREE_DOCUMENTSTORE_H
#define EXAMPLES_XMLTREE_DOCUMENTSTORE_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "LoadCounts.h"
#include "QRTVirtualTree.h"

namespace example {

/// Documents in a store: children of the root of one tree.
class DocumentStore {
 public:
  /// Told the bytes read since the last call.
  using Progress = std::function<void(std::uint64_t bytes)>;

  /// @param budget  bytes of stored objects to hold in memory
  explicit DocumentStore(unsigned int budget);

  /// Loads a file as one more document.
  /// @throws XmlError when it cannot be read or is malformed; what the store raises when it is
  ///         full. Nothing of the document is left then but names that it shared.
  void load(const std::string& path, const Progress& progress);

  /// Loads a document from memory, as above.
  /// @param name  names it in errors
  void loadText(const std::string& name, std::string_view xml);

  QRTVirtualTree& tree() { return m_tree; }
  QRTVirtualMemoryMgr& manager() { return *m_tree.getMemoryMgr(); }

  /// What was loaded.
  const LoadCounts& counts() const { return m_counts; }

 private:
  template <class Feed>
  void build(const std::string& name, Feed feed);

  QRTVirtualTree m_tree;  // the documents, in a store of its own
  LoadCounts m_counts;    // what was loaded
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_DOCUMENTSTORE_H
