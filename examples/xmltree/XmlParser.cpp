#include "XmlParser.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <utility>

#include "ByteSize.h"
#include "CharacterSet.h"
#include "ParserMemory.h"
#include "XmlError.h"

namespace example {

namespace {

// Entities may make a document this many times longer once they have produced this many bytes.
constexpr float kMostAmplification = 20;
constexpr unsigned long long kAmplificationAfter = 1ULL << 20;

constexpr std::size_t kPieceBytes = std::size_t{64} << 10;  // parsed at once at least, if there

std::string quoted(const char* text) {
  return std::string(1, '\'').append(text).append("'");
}

/// Text of a document's encoding as far as markup goes: UTF-16 becomes bytes, with '?' for what is
/// not ASCII. Other encodings have ASCII as it is.
std::string markupOf(std::string_view raw, bool isLiteral) {
  const bool isWide = raw.size() > 1 && (raw[0] == '\0' || raw[1] == '\0');
  const std::size_t step = isWide ? 2 : 1;
  const std::size_t low = isWide && raw[0] == '\0' ? 1 : 0;
  std::string text;
  for (std::size_t at = 0; at + step <= raw.size(); at += step) {
    const bool isAscii = step == 1 || raw[at + 1 - low] == '\0';
    text.push_back(isAscii ? raw[at + low] : '?');
    // A literal ends with the quote it began with, a reference in its place with a semicolon.
    if (isLiteral && text.size() > 1 && text.back() == (text[0] == '%' ? ';' : text[0])) {
      break;
    }
  }
  return text;
}

constexpr XML_Memory_Handling_Suite kMemory{parser_memory::allocate, parser_memory::reallocate,
                                            parser_memory::release};

}  // namespace

XmlParser::XmlParser(std::string source, XmlHandler& handler)
    : m_source(std::move(source)),
      m_handler(handler),
      m_parser(XML_ParserCreate_MM(nullptr, &kMemory, nullptr)) {
  if (m_parser == nullptr) {
    throw std::bad_alloc();
  }
  XML_SetBillionLaughsAttackProtectionMaximumAmplification(m_parser, kMostAmplification);
  XML_SetBillionLaughsAttackProtectionActivationThreshold(m_parser, kAmplificationAfter);
  XML_SetUserData(m_parser, this);
  XML_SetElementHandler(m_parser, onStart, onEnd);
  XML_SetCharacterDataHandler(m_parser, onText);
  XML_SetCommentHandler(m_parser, onComment);
  XML_SetProcessingInstructionHandler(m_parser, onInstruction);
  XML_SetDoctypeDeclHandler(m_parser, onDoctype, onDoctypeEnd);
  XML_SetSkippedEntityHandler(m_parser, onSkippedEntity);
  XML_SetExternalEntityRefHandler(m_parser, onExternalEntity);
  XML_SetExternalEntityRefHandlerArg(m_parser, reinterpret_cast<XML_Parser>(this));
  XML_SetParamEntityParsing(m_parser, XML_PARAM_ENTITY_PARSING_ALWAYS);
  XML_SetEntityDeclHandler(m_parser, onEntityDecl);
  XML_SetAttlistDeclHandler(m_parser, onAttlistDecl);
  XML_SetUnknownEncodingHandler(m_parser, CharacterSet::handle, nullptr);
}

XmlParser::~XmlParser() {
  XML_ParserFree(m_parser);
}

// The parser looks at an unfinished token from its beginning each time. So it gets half as much
// again before it looks, in its own buffer, where that counts as its memory.
void XmlParser::feed(std::string_view piece) {
  while (!piece.empty()) {
    if (m_buffer == nullptr) {
      const std::uint64_t unfinished = m_parsed - m_tokenStart;
      m_room = std::max<std::size_t>(
          std::min(piece.size(), kPieceBytes),
          static_cast<std::size_t>(std::min<std::uint64_t>(unfinished / 2, INT_MAX / 2)));
      m_buffer = static_cast<char*>(XML_GetBuffer(m_parser, static_cast<int>(m_room)));
      if (m_buffer == nullptr) {
        raise();
      }
    }
    const std::size_t part = std::min(piece.size(), m_room - m_filled);
    std::memcpy(m_buffer + m_filled, piece.data(), part);
    m_filled += part;
    piece.remove_prefix(part);
    if (m_filled == m_room) {
      parseBuffer(false);
    }
    if (m_isPaused) {
      m_rest = piece;
      return;
    }
  }
}

void XmlParser::finish() {
  parseBuffer(true);
}

void XmlParser::parseBuffer(bool last) {
  const int length = static_cast<int>(std::exchange(m_filled, 0));
  const XML_Bool isFinal = last ? XML_TRUE : XML_FALSE;
  m_parsed += static_cast<std::size_t>(length);
  settle(std::exchange(m_buffer, nullptr) != nullptr ? XML_ParseBuffer(m_parser, length, isFinal)
                                                     : XML_Parse(m_parser, "", 0, isFinal));
}

void XmlParser::resume() {
  m_isPaused = false;
  settle(XML_ResumeParser(m_parser));
  if (!m_isPaused && !m_rest.empty()) {
    feed(std::exchange(m_rest, {}));
  }
}

/// Takes note of how far the parser came.
void XmlParser::settle(XML_Status status) {
  if (m_failure || status == XML_STATUS_ERROR) {
    raise();
  }
  const XML_Index index = XML_GetCurrentByteIndex(m_parser);
  if (index >= 0) {  // else no event began since the buffer moved
    m_tokenStart = std::min(m_parsed, static_cast<std::uint64_t>(index));
  }
}

/// The event that is being reported, as it stands in the document: within an entity this is the
/// reference to the outermost one. In a declaration it is the rest of the buffer, which begins with
/// a literal or such a reference.
std::string_view XmlParser::rawEvent() const {
  int offset = 0;
  int size = 0;
  const char* const context = XML_GetInputContext(m_parser, &offset, &size);
  const int length = m_inDoctype ? size - offset : XML_GetCurrentByteCount(m_parser);
  return context == nullptr ? std::string_view()
                            : std::string_view(context + offset, static_cast<std::size_t>(length));
}

/// Refuses references that the parser would drop.
void XmlParser::checkReferences(const std::string& text, const char* marks) const {
  const std::string unknown = m_entities.firstUnknown(text, marks);
  if (!unknown.empty()) {
    raiseHere(
        (unknown.front() == '%' ? "the parameter entity '" : "the entity '") + unknown.substr(1) +
        "' is not declared in this file" +
        (m_unread.empty() ? "" : "; it may be in " + m_unread + ", but other files are not read"));
  }
}

/// Refuses documents that grow by the default attributes of their elements.
void XmlParser::checkDefaults(const char* const* attributes) {
  for (attributes += XML_GetSpecifiedAttributeCount(m_parser); *attributes != nullptr;
       ++attributes) {
    m_defaulted += std::strlen(*attributes) + 2;
  }
  const XML_Index read = XML_GetCurrentByteIndex(m_parser);
  if (m_defaulted > kAmplificationAfter &&
      static_cast<float>(m_defaulted) > kMostAmplification * static_cast<float>(read)) {
    raiseHere("default attributes make the document more than " +
              std::to_string(static_cast<int>(kMostAmplification)) + " times as long");
  }
}

void XmlParser::raise() const {
  const bool outOfMemory = parser_memory::takeRefusal();
  if (m_failure && !outOfMemory) {
    std::rethrow_exception(m_failure);
  }
  if (outOfMemory) {
    throw ParserMemoryError(m_source, XML_GetCurrentLineNumber(m_parser),
                            XML_GetCurrentColumnNumber(m_parser) + 1,
                            "the parser would need more than " +
                                formatBytes(parser_memory::limit()) + " here, see --parser-memory");
  }
  raiseHere(XML_ErrorString(XML_GetErrorCode(m_parser)));
}

void XmlParser::raiseHere(const std::string& what) const {
  throw XmlError(m_source, XML_GetCurrentLineNumber(m_parser),
                 XML_GetCurrentColumnNumber(m_parser) + 1, what);
}

template <class Call>
void XmlParser::guarded(void* self, Call call) noexcept {
  XmlParser& parser = *static_cast<XmlParser*>(self);
  if (parser.m_failure) {
    return;  // a stopped parser may still have a call or two under way
  }
  try {
    call(parser);
    if (!parser.m_isPaused && !parser.m_inDoctype && parser.m_handler.isFull()) {
      parser.m_isPaused = XML_StopParser(parser.m_parser, XML_TRUE) == XML_STATUS_OK;
    }
  } catch (...) {
    parser.m_failure = std::current_exception();
    XML_StopParser(parser.m_parser, XML_FALSE);
  }
}

void XmlParser::onStart(void* self, const XML_Char* name, const XML_Char** attributes) {
  guarded(self, [=](XmlParser& parser) {
    if (parser.m_hasDoctype) {
      const std::string_view raw = parser.rawEvent();
      if (raw.find('&') != std::string_view::npos) {
        parser.checkReferences(markupOf(raw, false), "&");
      }
      parser.checkDefaults(attributes);
    }
    parser.m_handler.startElement(name, attributes);
  });
}

void XmlParser::onEnd(void* self, const XML_Char* name) {
  guarded(self, [=](XmlParser& parser) { parser.m_handler.endElement(name); });
}

void XmlParser::onText(void* self, const XML_Char* text, int length) {
  guarded(self, [=](XmlParser& parser) {
    parser.m_handler.text(std::string_view(text, static_cast<std::size_t>(length)));
  });
}

// Comments and instructions of the document type go with it: neither is part of the content.
void XmlParser::onComment(void* self, const XML_Char* text) {
  guarded(self, [=](XmlParser& parser) {
    if (!parser.m_inDoctype) {
      parser.m_handler.comment(text);
    }
  });
}

void XmlParser::onInstruction(void* self, const XML_Char* target, const XML_Char* data) {
  guarded(self, [=](XmlParser& parser) {
    if (!parser.m_inDoctype) {
      parser.m_handler.instruction(target, data);
    }
  });
}

void XmlParser::onDoctype(void* self, const XML_Char*, const XML_Char*, const XML_Char*, int) {
  static_cast<XmlParser*>(self)->m_inDoctype = true;
  static_cast<XmlParser*>(self)->m_hasDoctype = true;
}

void XmlParser::onDoctypeEnd(void* self) {
  static_cast<XmlParser*>(self)->m_inDoctype = false;
}

// What an entity stands for must not get lost without a trace. A parameter entity can only have
// declared something; the parser passes over the declarations that follow it.
void XmlParser::onSkippedEntity(void* self, const XML_Char* name, int isParameter) {
  guarded(self, [=](XmlParser& parser) {
    if (isParameter == 0) {
      parser.checkReferences(std::string("&").append(name).append(";"), "&");
    } else if (parser.m_unread.empty()) {
      parser.m_unread = "the parameter entity " + quoted(name);
    }
  });
}

// Without a context it is declarations that stand elsewhere: they may not be needed.
int XmlParser::onExternalEntity(XML_Parser self, const XML_Char* context, const XML_Char*,
                                const XML_Char* systemId, const XML_Char*) {
  int status = XML_STATUS_ERROR;
  guarded(self, [&](XmlParser& parser) {
    if (context != nullptr) {
      parser.raiseHere("the entity " + quoted(context) +
                       " stands in another file, and other files are not read");
    }
    if (parser.m_unread.empty()) {
      parser.m_unread = quoted(systemId != nullptr ? systemId : "");
    }
    status = XML_STATUS_OK;
  });
  return status;
}

// In a parameter entity a value can name others, of which the parser would leave out what it does
// not know.
void XmlParser::onEntityDecl(void* self, const XML_Char* name, int isParameter,
                             const XML_Char* value, int length, const XML_Char*, const XML_Char*,
                             const XML_Char*, const XML_Char*) {
  guarded(self, [=](XmlParser& parser) {
    if (const std::string event = markupOf(parser.rawEvent(), true); event.starts_with('%')) {
      parser.checkReferences(event, "%");
    }
    const std::string_view text(value != nullptr ? value : "",
                                value != nullptr ? static_cast<std::size_t>(length) : 0);
    parser.m_entities.declare(isParameter != 0 ? '%' : '&', name, text, value == nullptr);
  });
}

void XmlParser::onAttlistDecl(void* self, const XML_Char*, const XML_Char*, const XML_Char*,
                              const XML_Char* value, int) {
  guarded(self, [=](XmlParser& parser) {
    if (value != nullptr) {
      const std::string event = markupOf(parser.rawEvent(), true);
      parser.checkReferences(event, event.starts_with('%') ? "&%" : "&");
    }
  });
}

}  // namespace example
