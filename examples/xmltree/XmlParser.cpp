#include "XmlParser.h"

#include <algorithm>
#include <climits>
#include <new>
#include <utility>

#include "ByteSize.h"
#include "ParserMemory.h"
#include "XmlError.h"

namespace example {

namespace {

// Entities may make a document this many times longer once they have produced this many bytes.
constexpr float kMostAmplification = 20;
constexpr unsigned long long kAmplificationAfter = 1ULL << 20;

}  // namespace

XmlParser::XmlParser(std::string source, XmlHandler& handler)
    : m_source(std::move(source)), m_handler(handler) {
  const XML_Memory_Handling_Suite memory{parser_memory::allocate, parser_memory::reallocate,
                                         parser_memory::release};
  m_parser = XML_ParserCreate_MM(nullptr, &memory, nullptr);
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
}

XmlParser::~XmlParser() {
  XML_ParserFree(m_parser);
}

void XmlParser::parse(std::string_view piece, bool last) {
  do {
    const auto length = static_cast<int>(std::min<std::size_t>(piece.size(), INT_MAX / 2));
    const std::string_view part = piece.substr(0, static_cast<std::size_t>(length));
    piece.remove_prefix(part.size());
    const bool isFinal = last && piece.empty();
    if (XML_Parse(m_parser, part.data(), length, isFinal ? XML_TRUE : XML_FALSE) != XML_STATUS_OK) {
      raise();
    }
  } while (!piece.empty());
}

void XmlParser::raise() const {
  const bool outOfMemory = parser_memory::takeRefusal();
  if (m_failure) {
    std::rethrow_exception(m_failure);
  }
  const XML_Error code = XML_GetErrorCode(m_parser);
  std::string what = XML_ErrorString(code);
  if (code == XML_ERROR_NO_MEMORY && outOfMemory) {
    what = "the parser would need more than " + formatBytes(parser_memory::limit()) +
           " here, see --parser-memory";
  }
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
  } catch (...) {
    parser.m_failure = std::current_exception();
    XML_StopParser(parser.m_parser, XML_FALSE);
  }
}

void XmlParser::onStart(void* self, const XML_Char* name, const XML_Char** attributes) {
  guarded(self, [=](XmlParser& parser) { parser.m_handler.startElement(name, attributes); });
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
}

void XmlParser::onDoctypeEnd(void* self) {
  static_cast<XmlParser*>(self)->m_inDoctype = false;
}

// What an entity stands for must not get lost without a trace.
void XmlParser::onSkippedEntity(void* self, const XML_Char* name, int isParameter) {
  if (isParameter == 0) {  // a parameter can only have declared something
    guarded(self, [=](XmlParser& parser) { parser.raiseUnread(name); });
  }
}

int XmlParser::onExternalEntity(XML_Parser self, const XML_Char* context, const XML_Char*,
                                const XML_Char*, const XML_Char*) {
  guarded(self, [=](XmlParser& parser) { parser.raiseUnread(context); });
  return XML_STATUS_ERROR;
}

void XmlParser::raiseUnread(std::string_view entity) const {
  throw XmlError(m_source, XML_GetCurrentLineNumber(m_parser),
                 XML_GetCurrentColumnNumber(m_parser) + 1,
                 "the entity '" + std::string(entity) +
                     "' stands in another file, and other files are not read");
}

}  // namespace example
