#include <signal.h>
#include <sys/resource.h>

#include <vector>

#include "PathFinder.h"
#include "QRTCore/QRTThrowable.h"
#include "QRTVirtualPin.h"
#include "XmlTreeFixture.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

using XmlDocumentTest = XmlTreeFixture;

std::string repeated(std::string_view part, std::size_t times) {
  std::string text;
  for (; times > 0; --times) {
    text.append(part);
  }
  return text;
}

TEST_F(XmlDocumentTest, documents_come_back_with_all_they_said) {
  const std::string longName(300, 'n');
  std::string utf16 = "\xFF\xFE";
  for (const char each : std::string("<a b='c'> \n<d/>e</a>")) {
    utf16.append({each, '\0'});
  }
  const std::vector<std::string> documents{
      "<a/>",
      "<a></a>",
      "<a> </a>",
      "<!-- x --><?p?><a/><?q  r s?><!---->",
      "<a z='1' y='&#9;&#10;&#13;&lt;&amp;&quot;&apos;>' x=''/>",
      "<a>&lt;&amp;]]&gt;<![CDATA[<b>&amp;]]]]><![CDATA[>]]>&#13;\r\n\t</a>",
      "<p:a xmlns:p='u' xmlns='v' p:b='c'><d xmlns=''/></p:a>",
      "<a>x<b>y</b> <b/>\n<!-- c -->\t\t<?p d?>  z</a>",
      "<!DOCTYPE a [<!--c--><?p d?><!ENTITY e '<b>f</b>'><!ATTLIST a d CDATA 'v'>]><a>&e; &e;</a>",
      "<a>" + repeated("\n", 15) + "<b/>" + repeated("\n", 16) + "<b/>\n\t <b/>\n \t<b/></a>",
      "<a>" + repeated("\t", 2047) + "<b/>" + repeated(" ", 2048) + "<b/>\n\r&#13;\n</a>",
      "<" + longName + " " + longName + "='v'><?" + longName + " d?></" + longName + ">",
      "<a>" + repeated("\xF0\x9F\x98\x80\xE4\xB8\xAD<![CDATA[x]]>&#10;", 30'000) + "</a>",
      "<a b='" + std::string(300'000, 'v') + "'><!--" + std::string(300'000, 'c') + "--></a>",
      "<?xml version='1.0' encoding='ISO-8859-1'?><a b='\xE9'>\xFC</a>",
      utf16,
  };
  for (const std::string& document : documents) {
    load(document);
    EXPECT_EQ(difference(document, exported()), "") << document.substr(0, 200);
  }
  EXPECT_EQ(m_store.counts().documents, documents.size());
}

TEST_F(XmlDocumentTest, the_comparison_tells_documents_apart_and_nothing_else) {
  const std::string base = "<a b='1' c='2'>x<d/>y<!--z--><?p q?></a>";
  for (const char* same : {"<a c=\"2\"  b='1'>x<d></d>y<!--z--><?p  q?></a>",
                           "<?xml version='1.0'?>\n<!DOCTYPE a><a b='&#49;' c='2'>&#x78;<d/>"
                           "<![CDATA[y]]><!--z--><?p q?></a>\n"}) {
    EXPECT_EQ(difference(base, same), "");
    EXPECT_EQ(difference(same, base), "");
  }
  for (const char* other :
       {"<a b='1'>x<d/>y<!--z--><?p q?></a>", "<a b='1' c='3'>x<d/>y<!--z--><?p q?></a>",
        "<a b='1' c='2'>x<e/>y<!--z--><?p q?></a>", "<a b='1' c='2'>x<d>y</d><!--z--><?p q?></a>",
        "<a b='1' c='2'>x <d/>y<!--z--><?p q?></a>", "<a b='1' c='2'>x<d/>y<?p q?></a>",
        "<a b='1' c='2'>x<d/>y<!--z--><?p r?></a>", "<a b='1' c='2'>x<d/>y<!--z--><?p q?></a><?e?>",
        "<a b='1' c='2'>y<d/>x<!--z--><?p q?></a>"}) {
    EXPECT_THAT(difference(base, other), HasSubstr("the documents differ")) << other;
    EXPECT_THAT(difference(other, base), HasSubstr("the documents differ")) << other;
  }
}

TEST_F(XmlDocumentTest, a_file_that_fails_is_named_with_line_and_column_and_leaves_nothing) {
  load("<a b='shared'><a/></a>");  // names, being shared, are there to stay
  const std::uint64_t objects = statistics().currentObjects;
  struct Case {
    std::string xml;
    const char* error;
  };
  const std::vector<Case> cases{
      {"", ":1:1: no element found"},
      {"<a b='1'>text<a b='2'/>\n  <a>", ":2:6: no element found"},
      {"<a b='1'>\n<a b='2'/></b>", ":2:13: mismatched tag"},
      {"<a b='1'>\n\xFF</a>", ":2:1: not well-formed"},
      {"<a b='1'/><a/>", ":1:11: junk after document element"},
      {"<?xml version='1.0' encoding='none'?><a/>", ":1:31: unknown encoding"},
      {"<!DOCTYPE a SYSTEM 'd'><a>&e;</a>", ":1:27: the entity 'e' stands in another file"},
      {"<!DOCTYPE a [<!ENTITY e SYSTEM '/etc/passwd'>]><a>&e;</a>", "the entity 'e' stands"},
      {"<!DOCTYPE a [<!ENTITY x '" + std::string(100'000, 'x') + "'>]><a>" +
           repeated("&x;", 1'000) + "</a>",
       "amplification factor"},
      {"<a b='" + std::string(3'000'000, 'x') + "'/>", "the parser would need more than 2.0 MiB"},
      {repeated("<a>", 100'000), "the parser would need more than 2.0 MiB"},
  };
  example::parser_memory::setLimit(2 << 20);
  for (const Case& each : cases) {
    EXPECT_THAT(loadError(each.xml),
                AllOf(HasSubstr(m_files.path("doc.xml:")), HasSubstr(each.error)))
        << each.xml.substr(0, 100);
    EXPECT_EQ(statistics().currentObjects, objects) << each.xml.substr(0, 100);
  }
  EXPECT_EQ(m_store.counts().documents, 1U);
  EXPECT_EQ(m_store.counts().elements, 2U);
  EXPECT_THROW(m_store.load(m_files.path("missing"), {}), example::XmlError);
  EXPECT_THROW(m_store.load(m_files.root(), {}), example::XmlError);
}

TEST_F(XmlDocumentTest, a_document_that_fills_the_store_is_given_up_and_the_rest_stays) {
  load("<a>" + repeated("<b c='d'>text</b>", 1'000) + "</a>");
  const std::string before = exported();
  const std::uint64_t objects = statistics().currentObjects;
  m_files.write("large.xml", "<a>" + repeated("<b c='d'>text</b>", 300'000) + "</a>");

  rlimit unlimited{};
  getrlimit(RLIMIT_FSIZE, &unlimited);
  const rlimit limited{8U << 20, unlimited.rlim_max};
  const auto handler = signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &limited);
  EXPECT_THROW(m_store.load(m_files.path("large.xml"), [](std::uint64_t) {}), QRTOutOfMemoryError);
  setrlimit(RLIMIT_FSIZE, &unlimited);
  signal(SIGXFSZ, handler);

  EXPECT_EQ(statistics().currentObjects, objects);
  EXPECT_EQ(exported(), before);
}

TEST_F(XmlDocumentTest, depth_costs_neither_stack_nor_pins) {
  constexpr std::size_t kLevels = 150'000;
  const std::string document = repeated("<a>\n<b/>", kLevels) + "x" + repeated("<c/></a>", kLevels);
  load(document);
  EXPECT_EQ(difference(document, exported()), "");
  QRTVirtualPin<example::XmlNode> root(m_store.tree().getRootNode()->getLastChild());
  std::size_t found = 0;
  example::PathFinder(example::PathExpression("//a//text()"), false)
      .search(*root, [&](example::XmlNode&) { return ++found != 0; });
  EXPECT_EQ(found, 1U);
  root.reset();

  const std::uint64_t objects = statistics().currentObjects;
  EXPECT_NE(loadError(repeated("<a>\n<b/>", kLevels)), "");
  EXPECT_EQ(statistics().currentObjects, objects);
}

}  // namespace
