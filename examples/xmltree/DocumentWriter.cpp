#include "DocumentWriter.h"

#include <array>

#include "DocumentWalk.h"
#include "XmlCharacters.h"

namespace example {

namespace {

constexpr std::size_t kPieceBytes = std::size_t{64} << 10;

/// What has to be written in place of a character; null for the character itself. A parser would
/// take the white space among them for a line end or a blank.
constexpr const char* replacement(char each, bool inAttribute) {
  switch (each) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '\r':
      return "&#13;";
    case '"':
      return inAttribute ? "&quot;" : nullptr;
    case '\t':
      return inAttribute ? "&#9;" : nullptr;
    case '\n':
      return inAttribute ? "&#10;" : nullptr;
    default:
      return nullptr;
  }
}

using Replacements = std::array<const char*, 256>;

constexpr Replacements replacements(bool inAttribute) {
  Replacements table{};
  for (std::size_t each = 0; each < table.size(); ++each) {
    table[each] = replacement(static_cast<char>(each), inAttribute);
  }
  return table;
}

constexpr Replacements kInText = replacements(false);
constexpr Replacements kInAttribute = replacements(true);

/// Whether an element is written as one empty tag.
bool isEmpty(const XmlElement& element) {
  return element.getChildCount() == 0 && element.lead().empty();
}

}  // namespace

void DocumentWriter::writeDocument(XmlNode& document) {
  m_manager = &storeOf(document);
  m_buffer = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  for (DocumentWalk walk(document); !walk.atEnd(); walk.advance()) {
    if (walk.entering()) {
      enter(walk.node());
    } else {
      leave(walk.node());
      if (walk.depth() == 1) {
        m_buffer.push_back('\n');
      }
    }
    flushIfFull();
  }
  flush();
}

void DocumentWriter::enter(XmlNode& node) {
  switch (node.kind()) {
    case NodeKind::eDocument:
      break;
    case NodeKind::eElement:
      startTag(static_cast<XmlElement&>(node));
      break;
    case NodeKind::eText:
      escaped(StoredTextView(*m_manager, static_cast<XmlText&>(node).text()).view(), false);
      break;
    case NodeKind::eComment:
      raw("<!--", static_cast<XmlComment&>(node).text(), "-->");
      break;
    case NodeKind::eInstruction: {
      const auto& instruction = static_cast<XmlInstruction&>(node);
      raw("<?", instruction.target(), "");
      raw(instruction.text().empty() != 0 ? "" : " ", instruction.text(), "?>");
      break;
    }
  }
}

void DocumentWriter::leave(XmlNode& node) {
  if (node.kind() == NodeKind::eElement && !isEmpty(static_cast<XmlElement&>(node))) {
    endTag(static_cast<XmlElement&>(node));
  }
  node.tail().appendTo(m_buffer);
}

void DocumentWriter::startTag(const XmlElement& element) {
  const StoredTextView names(*m_manager, element.names());
  const StoredTextView values(*m_manager, element.values());
  TextParts namesLeft(names.view());
  TextParts valuesLeft(values.view());
  m_buffer.append("<").append(namesLeft.next());
  while (!namesLeft.atEnd()) {
    m_buffer.append(" ").append(namesLeft.next()).append("=\"");
    escaped(valuesLeft.next(), true);
    m_buffer.append("\"");
  }
  m_buffer.append(isEmpty(element) ? "/>" : ">");
  element.lead().appendTo(m_buffer);
}

void DocumentWriter::endTag(const XmlElement& element) {
  const StoredTextView names(*m_manager, element.names());
  m_buffer.append("</").append(TextParts(names.view()).next()).append(">");
}

void DocumentWriter::raw(const char* before, const QRTVirtualPageItem& item, const char* after) {
  const StoredTextView text(*m_manager, item);
  m_buffer.append(before);
  for (std::size_t at = 0; at < text.view().size(); at += kPieceBytes) {
    m_buffer.append(text.view().substr(at, kPieceBytes));
    flushIfFull();
  }
  m_buffer.append(after);
}

// Long texts leave in pieces: what is escaped takes up to six times as much.
void DocumentWriter::escaped(std::string_view text, bool inAttribute) {
  const Replacements& table = inAttribute ? kInAttribute : kInText;
  std::size_t done = 0;
  for (std::size_t place = 0; place < text.size(); ++place) {
    const char* const instead = table[static_cast<unsigned char>(text[place])];
    if (instead != nullptr) {
      m_buffer.append(text, done, place - done).append(instead);
      done = place + 1;
      flushIfFull();
    }
  }
  for (; done < text.size(); done += kPieceBytes) {
    m_buffer.append(text.substr(done, kPieceBytes));
    flushIfFull();
  }
}

void DocumentWriter::flushIfFull() {
  if (m_buffer.size() >= kPieceBytes) {
    flush();
  }
}

void DocumentWriter::flush() {
  m_sink(m_buffer);
  m_buffer.clear();
}

}  // namespace example
