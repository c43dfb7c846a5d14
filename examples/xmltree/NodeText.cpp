#include "NodeText.h"

#include <string_view>

#include "DocumentWalk.h"
#include "XmlCharacters.h"
#include "XmlElement.h"

namespace example {

namespace {

constexpr std::size_t kMostBytes = 60;   // of one text
constexpr unsigned int kMostNodes = 50;  // looked at for the text in an element

/// Appends a text in short: stretches of white space as one blank, cut between characters.
void appendShort(std::string& line, std::string_view text) {
  const std::size_t most = line.size() + kMostBytes;
  for (const char each : text) {
    const bool blank = each == ' ' || each == '\t' || each == '\n' || each == '\r';
    if (blank && (line.empty() || line.back() == ' ')) {
      continue;
    }
    const bool beginsCharacter = (static_cast<unsigned char>(each) & 0xC0U) != 0x80U;
    if (line.size() >= most && beginsCharacter) {
      line.append("...");
      return;
    }
    line.push_back(blank ? ' ' : each);
  }
}

void appendTag(std::string& line, const XmlElement& element) {
  const StoredTextView names(storeOf(element), element.names());
  const StoredTextView values(storeOf(element), element.values());
  TextParts namesLeft(names.view());
  TextParts valuesLeft(values.view());
  line.push_back('<');
  appendShort(line, namesLeft.next());
  while (!namesLeft.atEnd()) {
    line.push_back(' ');
    appendShort(line, namesLeft.next());
    line.append("=\"");
    appendShort(line, valuesLeft.next());
    line.push_back('"');
  }
  line.push_back('>');
}

/// The text directly in an element, without that of elements in it.
std::string directText(XmlNode& node) {
  std::string text;
  unsigned int visited = 0;
  for (DocumentWalk walk(node); !walk.atEnd() && text.size() < kMostBytes && visited < kMostNodes;
       walk.advance()) {
    if (walk.entering() && walk.node().kind() == NodeKind::eText) {
      const StoredTextView part(storeOf(node), static_cast<XmlText&>(walk.node()).text());
      text.append(part.view().substr(0, 2 * kMostBytes));
    }
    if (walk.entering() && walk.depth() == 1) {
      walk.skipChildren();
    }
    ++visited;
  }
  return text;
}

}  // namespace

std::string describe(XmlNode& node) {
  QRTVirtualMemoryMgr& manager = storeOf(node);
  std::string line;
  switch (node.kind()) {
    case NodeKind::eDocument:
      line.append(StoredTextView(manager, static_cast<XmlDocument&>(node).text()).view());
      break;
    case NodeKind::eElement:
      appendTag(line, static_cast<XmlElement&>(node));
      appendShort(line, directText(node));
      break;
    case NodeKind::eText:
      line.push_back('"');
      appendShort(line, StoredTextView(manager, static_cast<XmlText&>(node).text()).view());
      line.push_back('"');
      break;
    case NodeKind::eComment:
      line.append("<!--");
      appendShort(line, StoredTextView(manager, static_cast<XmlComment&>(node).text()).view());
      line.append("-->");
      break;
    case NodeKind::eInstruction:
      line.append("<?");
      appendShort(line,
                  StoredTextView(manager, static_cast<XmlInstruction&>(node).target()).view());
      line.append("?>");
      break;
  }
  return line;
}

}  // namespace example
