#include <dlfcn.h>
#include <expat.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <vector>

#include "CanonicalForm.h"

#include "PathFinder.h"
#include "QRTCore/QRTThrowable.h"
#include "QRTVirtualPin.h"
#include "XmlParser.h"
#include "XmlTreeFixture.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

using XmlDocumentTest = XmlTreeFixture;

std::size_t g_goes = 0;  // calls of the parser since it was set to 0

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
      {"<!DOCTYPE a SYSTEM 'd'><a>&e;</a>", ":1:27: the entity 'e' is not declared in this file"},
      {"<!DOCTYPE a [<!ENTITY e SYSTEM '/etc/passwd'>]><a>&e;</a>", "the entity 'e' stands"},
      {"<!DOCTYPE a [<!ENTITY x '" + std::string(100'000, 'x') + "'>]><a>" +
           repeated("&x;", 1'000) + "</a>",
       "amplification factor"},
      {"<a b='" + std::string(5'000'000, 'x') + "'/>", "the parser would need more than 3.0 MiB"},
      {repeated("<a>", 100'000), "the parser would need more than 3.0 MiB"},
  };
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

// The parser leaves out what it does not know of an attribute's value when a declaration may be
// elsewhere. Nothing of that kind may pass, whichever way the reference takes.
TEST_F(XmlDocumentTest, a_reference_that_cannot_be_told_is_refused_wherever_it_stands) {
  const std::string unread = "<!ENTITY % p SYSTEM 'e.ent'> %p;]>";
  struct Case {
    std::string xml;
    const char* error;
  };
  const std::vector<Case> cases{
      {"<!DOCTYPE a SYSTEM 'd.dtd'><a b='1&x;2'/>",
       ":1:28: the entity 'x' is not declared in this file; it may be in 'd.dtd'"},
      {"<!DOCTYPE a [" + unread + "\n<a><b c='' d='&amp;&#65;&x;'/></a>",
       ":2:4: the entity 'x' is not declared in this file; it may be in 'e.ent'"},
      {"<!DOCTYPE a [<!ENTITY y '1&x;2'> " + unread + "<a b='&y;'/>", "the entity 'x' is not"},
      {"<!DOCTYPE a [<!ENTITY y '<b c=\"&x;\"/>'> " + unread + "<a>&y;</a>", "the entity 'x' is"},
      {"<!DOCTYPE a [" + unread + "<a>&x;</a>", "the entity 'x' is not"},
      {"<!DOCTYPE a [%q; ]><a b='&x;'/>", "it may be in the parameter entity 'q'"},
      {"<!DOCTYPE a [<!ENTITY % p ''> %p;]><a b='&x;'/>", "the entity 'x' is not declared in this"},
      {"<!DOCTYPE a [<!ENTITY % p ''> %p; <!ATTLIST a b CDATA 'x' c CDATA '&x;'>]><a/>",
       "the entity 'x' is not declared in this file"},
      {"<!DOCTYPE a [<!ENTITY % p '<!ATTLIST a b CDATA \"&x;\">'> %p;]><a/>", "the entity 'x' is"},
      {"<!DOCTYPE a [<!ENTITY % p '<!ENTITY y \"&#37;q;\">'> %p;]><a b='&y;'/>",
       "the parameter entity 'q' is not declared"},
      {"<!DOCTYPE a [<!ENTITY e SYSTEM 'f'>]><a>&e;</a>", "the entity 'e' stands in another file"},
  };
  for (const Case& each : cases) {
    EXPECT_THAT(loadError(each.xml), HasSubstr(each.error)) << each.xml;
    std::string wide = "\xFE\xFF";
    for (const char character : each.xml) {
      wide.append({'\0', character});
    }
    EXPECT_NE(loadError(wide), "") << "in UTF-16: " << each.xml;
  }
  const std::vector<std::pair<std::string, const char*>> known{
      {"<!DOCTYPE a [<!ENTITY y 'ok'> " + unread + "<a b='&y;&lt;&#65;'>&y;</a>",
       "<a b='ok&lt;A'>ok</a>"},
      {"<!DOCTYPE a [<!ENTITY % p '<!ENTITY x \"y\">'> %p; <!ATTLIST a b CDATA '&x;'>]><a>&x;</a>",
       "<a b='y'>y</a>"},
      {"<!DOCTYPE a [<!ENTITY % p '<!ATTLIST a b CDATA \"c\">'> %p; <!ATTLIST a d CDATA 'e'>]><a/>",
       "<a b='c' d='e'/>"},
  };
  for (const auto& [xml, expected] : known) {
    load(xml);
    EXPECT_EQ(difference(expected, exported()), "") << xml;
  }
}

TEST_F(XmlDocumentTest, encodings_the_parser_does_not_know_are_read_as_far_as_it_takes_them) {
  const auto document = [](const std::string& encoding, const std::string& text) {
    return "<?xml version='1.0' encoding='" + encoding + "'?><a b='" + text + "'>" + text + "</a>";
  };
  struct Case {
    const char* encoding;
    const char* text;
    const char* utf8;  // or why it is refused, behind a '!'
  };
  const std::vector<Case> cases{
      {"ASCII", "x", "x"},
      {"ascii", "\xE9", "!:1:45: not well-formed"},
      {"ISO-8859-2", "\xB1\xE9", "\xC4\x85\xC3\xA9"},
      {"ISO-8859-15", "\xA4", "\xE2\x82\xAC"},
      {"windows-1252", "\x80x", "\xE2\x82\xACx"},
      {"windows-1258", "a\xCC", "a\xCC\x80"},  // a converter that waits for the combining character
      {"KOI8-R", "\xC1", "\xD0\xB0"},
      {"Shift_JIS", "\x93\xFA\xB1x", "\xE6\x97\xA5\xEF\xBD\xB1x"},
      {"EUC-JP", "\xC6\xFC\x8F\xB0\xA1", "\xE6\x97\xA5\xE4\xB8\x82"},  // two bytes, then three
      {"Big5", "\xA4\xE9", "\xE6\x97\xA5"},
      {"GB18030", "\xC8\xD5", "\xE6\x97\xA5"},
      {"GB18030", "\x81\x30\x81\x30", "!not well-formed"},  // four bytes behind a first one of two
      {"ISO-2022-JP", "\x1B$BF|\x1B(B", "!not well-formed"},
      {"UTF-7", "x", "!unknown encoding"},
      {"EBCDIC-US", "x", "!unknown encoding"},
      {"none", "x", "!:1:31: unknown encoding"},
  };
  for (const Case& each : cases) {
    const std::string xml = document(each.encoding, each.text);
    if (each.utf8[0] == '!') {
      EXPECT_THAT(loadError(xml), HasSubstr(each.utf8 + 1)) << each.encoding;
    } else {
      EXPECT_EQ(loadError(xml), "") << each.encoding;
      EXPECT_EQ(difference(document("UTF-8", each.utf8), exported()), "") << each.encoding;
    }
  }
}

TEST_F(XmlDocumentTest, a_document_cannot_multiply_itself_beyond_its_bounds) {
  const std::string attributes =
      "<!DOCTYPE a [<!ATTLIST b c CDATA '" + std::string(3'000, 'v') + "'>";
  EXPECT_THAT(loadError(attributes + "]><a>" + repeated("<b/>", 10'000) + "</a>"),
              HasSubstr("default attributes make the document more than 20 times as long"));
  EXPECT_THAT(loadError(attributes + "<!ENTITY e '" + repeated("<b/>", 1'000) + "'>]><a>" +
                        repeated("&e;", 10) + "</a>"),
              HasSubstr("default attributes make the document more than 20 times as long"));

  // What is allowed must not be held in memory at once when a stored document is compared.
  example::CanonicalForm form(1000);
  example::XmlParser parser("a.xml", form);
  parser.feed(attributes + "]><a>" + repeated("<b/>", 300));
  std::size_t most = form.pending().size();
  while (parser.isPaused()) {
    form.drop(form.pending().size());
    parser.resume();
    most = std::max(most, form.pending().size());
  }
  EXPECT_LT(most, 10'000U);
  const std::string within = attributes + "]><a>" + repeated("<b/>", 300) + "</a>";
  load(within);
  EXPECT_EQ(difference(within, exported()), "");
}

TEST_F(XmlDocumentTest, a_long_attribute_is_parsed_in_few_goes) {
  example::parser_memory::setLimit(64U << 20);
  example::CanonicalForm form;
  example::XmlParser parser("a.xml", form);
  g_goes = 0;
  parser.feed("<a b='");
  const std::string piece(64 << 10, 'v');
  for (int pieces = 0; pieces < 128; ++pieces) {
    parser.feed(piece);
  }
  parser.feed("'/>");
  parser.finish();
  EXPECT_EQ(form.pending().size(), (128U << 16) + 7);
  EXPECT_LT(g_goes, 25U) << "each looks at the whole attribute so far";
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
  example::parser_memory::setLimit(256U << 20);
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

// Stand before the parser's own, to count.
XML_Status XML_Parse(XML_Parser parser, const char* text, int length, int isFinal) {
  ++g_goes;
  static auto* const real = reinterpret_cast<decltype(&XML_Parse)>(dlsym(RTLD_NEXT, "XML_Parse"));
  return real(parser, text, length, isFinal);
}

XML_Status XML_ParseBuffer(XML_Parser parser, int length, int isFinal) {
  ++g_goes;
  static auto* const real =
      reinterpret_cast<decltype(&XML_ParseBuffer)>(dlsym(RTLD_NEXT, "XML_ParseBuffer"));
  return real(parser, length, isFinal);
}
