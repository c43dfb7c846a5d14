#ifndef TESTS_EXAMPLES_XMLTREEFIXTURE_H
#define TESTS_EXAMPLES_XMLTREEFIXTURE_H

#include <gmock/gmock.h>

#include <string>
#include <string_view>

#include "CanonicalComparison.h"
#include "DocumentStore.h"
#include "DocumentWriter.h"
#include "ParserMemory.h"
#include "QRTVirtualPin.h"
#include "StoreStatistics.h"
#include "TemporaryTree.h"
#include "XmlCharacters.h"
#include "XmlError.h"

/// Documents in a store with the smallest budget. Whatever a test does, no pin may be left.
class XmlTreeFixture : public testing::Test {
 protected:
  ~XmlTreeFixture() override {
    EXPECT_EQ(statistics().pinnedObjects, 0U);
    example::parser_memory::setLimit(example::parser_memory::kDefaultLimit);
  }

  example::StoreStatistics statistics() { return example::readStatistics(m_store.manager()); }

  /// Loads a text as a file of the name given.
  void load(std::string_view xml, const std::string& name = "doc.xml") {
    m_files.write(name, std::string(xml));
    m_store.load(m_files.path(name), [](std::uint64_t) {});
  }

  /// What goes wrong when a text is loaded; empty when nothing does.
  std::string loadError(std::string_view xml) {
    try {
      load(xml);
      return {};
    } catch (const example::XmlError& error) {
      return error.what();
    }
  }

  /// The last document, written back.
  std::string exported() {
    std::string xml;
    QRTVirtualPin<example::XmlNode> document(m_store.tree().getRootNode()->getLastChild());
    example::DocumentWriter([&](std::string_view piece) {
      xml.append(piece);
    }).writeDocument(*document);
    return xml;
  }

  /// The first difference between two documents; empty when they say the same. The second comes
  /// in small pieces.
  std::string difference(std::string_view expected, std::string_view actual) {
    m_files.write("expected.xml", std::string(expected));
    try {
      example::CanonicalComparison comparison(m_files.path("expected.xml"), "actual.xml");
      for (std::size_t place = 0; place < actual.size(); place += 1000) {
        comparison.feed(actual.substr(place, 1000));
      }
      comparison.finish();
      return {};
    } catch (const example::XmlError& error) {
      return error.what();
    }
  }

  TemporaryTree m_files;
  example::DocumentStore m_store{1};
};

#endif  // TESTS_EXAMPLES_XMLTREEFIXTURE_H
