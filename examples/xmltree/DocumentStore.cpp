#include "DocumentStore.h"

#include <exception>

#include "DocumentBuilder.h"
#include "FilePieces.h"
#include "XmlParser.h"

namespace example {

namespace {

// Shapes of elements that the page item pool remembers. All of a large collection of documents has
// about a thousand; with the longest names there can be, these take less than 2 MiB.
constexpr unsigned int kSharedNames = 4096;

}  // namespace

DocumentStore::DocumentStore(unsigned int budget) : m_tree(budget, 0, 0) {
  manager().setVirtualPageItemPoolSize(kSharedNames);
}

void DocumentStore::load(const std::string& path, const Progress& progress) {
  FilePieces file(path);
  build(path, [&](XmlParser& parser) {
    std::uint64_t bytes = 0;
    for (std::string_view piece = file.next(); !piece.empty(); piece = file.next()) {
      parser.feed(piece);
      progress(piece.size());
      bytes += piece.size();
    }
    return bytes;
  });
}

void DocumentStore::loadText(const std::string& name, std::string_view xml) {
  build(name, [&](XmlParser& parser) {
    parser.feed(xml);
    return std::uint64_t{xml.size()};
  });
}

template <class Feed>
void DocumentStore::build(const std::string& name, Feed feed) {
  DocumentBuilder builder(m_tree, name);
  try {
    XmlParser parser(name, builder);
    const std::uint64_t bytes = feed(parser);
    parser.finish();
    builder.finish();
    m_counts += builder.counts();
    m_counts.xmlBytes += bytes;
    m_counts.unread += parser.unread().empty() ? 0U : 1U;
  } catch (...) {
    const std::exception_ptr failure = std::current_exception();
    try {
      builder.discard();
    } catch (const std::exception&) {
      // What cannot be read back cannot be freed either; the first failure is the one to tell.
    }
    std::rethrow_exception(failure);
  }
}

}  // namespace example
