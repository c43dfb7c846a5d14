#include <sstream>
#include <vector>

#include "DocumentEditor.h"
#include "NodeText.h"
#include "Outline.h"
#include "PathFinder.h"
#include "QRTVirtualPin.h"
#include "XmlTreeFixture.h"

namespace {

using example::PathExpression;
using testing::ElementsAreArray;
using testing::HasSubstr;

constexpr const char* kDocument =
    "<r>\n"
    "  <a i='1' k='x'><b>1.1</b><b i='2'>1.2</b></a>\n"
    "  <a i='2'><c><b>2.1</b><a i='3'><b>3.1</b></a></c></a>\n"
    "  <p:a>t<!--no--><b>4.1</b>u<?no no?></p:a>\n"
    "</r>";

class XmlPathTest : public XmlTreeFixture {
 protected:
  std::vector<std::string> found(const std::string& path, bool outermost = false) {
    std::vector<std::string> matches;
    QRTVirtualPin<example::XmlNode> document(m_store.tree().getRootNode()->getLastChild());
    example::PathFinder(PathExpression(path), outermost)
        .search(*document, [&](example::XmlNode& match) {
          matches.push_back(example::describe(match));
          return true;
        });
    return matches;
  }

  /// Why an edit was refused; empty when it was not.
  template <class Edit>
  static std::string refusal(Edit edit) {
    try {
      edit();
      return {};
    } catch (const example::XmlError& error) {
      return error.what();
    }
  }
};

TEST_F(XmlPathTest, steps_and_conditions_lead_where_they_say) {
  load(kDocument);
  struct Case {
    const char* path;
    std::vector<std::string> matches;
  };
  const std::vector<Case> cases{
      {"/r", {"<r>"}},
      {"/a", {}},
      {"/r/a[@i='2']", {R"(<a i="2">)"}},
      {"/r/*[3]", {"<p:a>tu"}},
      {"/*/p:a/text()", {"\"t\"", "\"u\""}},
      {"/r/p:a/text()[2]", {"\"u\""}},
      {"/r/a/b", {"<b>1.1", R"(<b i="2">1.2)"}},
      {"/r//b", {"<b>1.1", R"(<b i="2">1.2)", "<b>2.1", "<b>3.1", "<b>4.1"}},
      {"//b[@i]", {R"(<b i="2">1.2)"}},
      {"//b[2]", {R"(<b i="2">1.2)"}},
      {"//b[@i='2'][1]", {R"(<b i="2">1.2)"}},
      {"//b[1][@i='2']", {}},
      {"//a//a", {R"(<a i="3">)"}},
      {"//a[@i='2']//b", {"<b>2.1", "<b>3.1"}},
      {"//a[@k=\"x\"][@i='1']/b[1]/text()", {"\"1.1\""}},
      {"//a[@i='x']", {}},
      {"//c/*", {"<b>2.1", R"(<a i="3">)"}},
      {"//*//*[1]//b", {"<b>1.1", R"(<b i="2">1.2)", "<b>2.1", "<b>3.1"}},
  };
  for (const Case& each : cases) {
    EXPECT_THAT(found(each.path), testing::UnorderedElementsAreArray(each.matches)) << each.path;
  }
  EXPECT_THAT(found("//a", true), ElementsAreArray({R"(<a i="1" k="x">)", R"(<a i="2">)"}));
}

TEST_F(XmlPathTest, what_is_no_path_is_refused_with_its_place) {
  const std::vector<std::pair<std::string, const char*>> cases{
      {"", "character 1: expected '/'"},
      {"a/b", "character 1: expected '/'"},
      {"/a/", "character 4: expected a name"},
      {"///a", "character 3: expected a name"},
      {"/a[@b", "character 6: expected ']'"},
      {"/a[@b=c]", "character 7: expected a value in quotes"},
      {"/a[@b='c]", "character 7: expected a value in quotes"},
      {"/a[0]", "character 4: expected @name, @name='value' or a number from 1"},
      {"/a[99999999999999999999]", "character 4: expected @name"},
      {"/a[-1]", "character 4: expected @name"},
      {"/a b", "character 3: expected '/'"},
  };
  for (const auto& [path, error] : cases) {
    EXPECT_THAT(refusal([&p = path] { PathExpression{p}; }), HasSubstr(error)) << path;
  }
  std::string longest;
  for (std::size_t step = 0; step < PathExpression::kMostSteps; ++step) {
    longest.append("/a");
  }
  EXPECT_EQ(refusal([&] { PathExpression{longest}; }), "");
  EXPECT_THAT(refusal([&] { PathExpression{longest + "/a"}; }), HasSubstr("no more than 63 steps"));
}

TEST_F(XmlPathTest, edits_change_what_they_name_and_free_what_they_take_out) {
  load(kDocument);
  example::DocumentEditor editor(m_store);
  const std::uint64_t objects = statistics().currentObjects;
  EXPECT_EQ(editor.append(PathExpression("//c"), "<?x?><n m='&lt;'>new<!--n--></n>"), 1U);
  EXPECT_EQ(editor.remove(PathExpression("//n")), 1U);
  EXPECT_EQ(statistics().currentObjects, objects + 2) << "new names stay shared";

  EXPECT_EQ(editor.move(PathExpression("//a[@i='3']"), PathExpression("/r/p:a")), 1U);
  EXPECT_EQ(editor.remove(PathExpression("//b[@i]")), 1U);
  EXPECT_EQ(editor.append(PathExpression("/r/a"), "<n/>"), 2U);
  EXPECT_EQ(difference("<r>\n"
                       "  <a i='1' k='x'><b>1.1</b><n/></a>\n"
                       "  <a i='2'><c><b>2.1</b></c><n/></a>\n"
                       "  <p:a>t<!--no--><b>4.1</b>u<?no no?><a i='3'><b>3.1</b></a></p:a>\n"
                       "</r>",
                       exported()),
            "");
}

TEST_F(XmlPathTest, edits_that_would_break_a_document_are_refused) {
  load(kDocument);
  const std::string before = exported();
  example::DocumentEditor editor(m_store);
  const PathExpression all("/r");
  EXPECT_THAT(refusal([&] { editor.remove(all); }), HasSubstr("has to stay"));
  EXPECT_THAT(refusal([&] { editor.move(PathExpression("//a"), PathExpression("//c")); }),
              HasSubstr("into itself"));
  EXPECT_THAT(refusal([&] { editor.move(PathExpression("//a"), PathExpression("//none")); }),
              HasSubstr("no element to move to"));
  EXPECT_THAT(refusal([&] { editor.append(PathExpression("//text()"), "<n/>"); }),
              HasSubstr("only elements"));
  EXPECT_THAT(refusal([&] { editor.append(all, "<n>"); }), HasSubstr("1:4: no element found"));
  EXPECT_EQ(exported(), before);
}

TEST_F(XmlPathTest, an_outline_shows_as_much_as_it_is_asked_for) {
  load(kDocument);
  QRTVirtualPin<example::XmlNode> document(m_store.tree().getRootNode()->getLastChild());
  std::ostringstream picture;
  example::Outline(picture, 3, 2).draw(*document);
  EXPECT_EQ(picture.str(), m_files.path("doc.xml") +
                               "\n"
                               "└── <r>\n"
                               "    ├── <a i=\"1\" k=\"x\">\n"
                               "    │   ├── <b>1.1\n"
                               "    │   └── <b i=\"2\">1.2\n"
                               "    ├── <a i=\"2\">\n"
                               "    │   └── <c>\n"
                               "    │       └── ... 2 below\n"
                               "    └── ... 1 more\n");
}

}  // namespace
