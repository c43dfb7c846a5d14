#ifndef EXAMPLES_XMLTREE_XMLPARSER_H
#define EXAMPLES_XMLTREE_XMLPARSER_H

#include <expat.h>

#include <exception>
#include <string>
#include <string_view>

#include "XmlHandler.h"

namespace example {

/// Parses one document that is fed to it in pieces of any size, in UTF-8, UTF-16, Latin-1 or ASCII.
/// Its memory is bounded by ParserMemory; entities that multiply the document are refused.
class XmlParser {
 public:
  /// @param source   names the document in errors
  /// @param handler  receives what is parsed; must outlive the parser
  XmlParser(std::string source, XmlHandler& handler);
  ~XmlParser();

  XmlParser(const XmlParser&) = delete;
  XmlParser& operator=(const XmlParser&) = delete;

  /// Parses the next piece.
  /// @throws XmlError with file, line and column when the document is malformed; what the handler
  ///         raises. The parser is of no use after that.
  void feed(std::string_view piece) { parse(piece, false); }

  /// Parses the end of the document.
  /// @throws as `feed`
  void finish() { parse({}, true); }

 private:
  void parse(std::string_view piece, bool last);
  [[noreturn]] void raise() const;

  // Errors cannot pass through the parser's own frames: they are kept until it has returned.
  template <class Call>
  static void guarded(void* self, Call call) noexcept;

  static void onStart(void* self, const XML_Char* name, const XML_Char** attributes);
  static void onEnd(void* self, const XML_Char* name);
  static void onText(void* self, const XML_Char* text, int length);
  static void onComment(void* self, const XML_Char* text);
  static void onInstruction(void* self, const XML_Char* target, const XML_Char* data);
  static void onDoctype(void* self, const XML_Char* name, const XML_Char* systemId,
                        const XML_Char* publicId, int hasInternalSubset);
  static void onDoctypeEnd(void* self);
  static void onSkippedEntity(void* self, const XML_Char* name, int isParameter);
  static int onExternalEntity(XML_Parser self, const XML_Char* context, const XML_Char* base,
                              const XML_Char* systemId, const XML_Char* publicId);
  [[noreturn]] void raiseUnread(std::string_view entity) const;

  std::string m_source;          // names the document
  XmlHandler& m_handler;         // not owned
  XML_Parser m_parser;           // owned
  std::exception_ptr m_failure;  // what the handler raised; null when nothing
  bool m_inDoctype = false;      // whether the document type is being declared
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_XMLPARSER_H
