#ifndef EXAMPLES_XMLTREE_XMLPARSER_H
#define EXAMPLES_XMLTREE_XMLPARSER_H

#include <expat.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

#include "EntityTable.h"
#include "XmlHandler.h"

namespace example {

/// Parses one document that is fed to it in pieces of any size, in UTF-8, UTF-16 or what
/// CharacterSet reads.
///
/// Nothing that the document says is lost in silence. Other files are never read; a reference that
/// cannot be replaced, because it is declared nowhere or in such a file, is refused. The parser's
/// memory is bounded by ParserMemory. Entities and default attributes that multiply the document
/// are refused.
class XmlParser {
 public:
  /// @param source   names the document in errors
  /// @param handler  receives what is parsed; must outlive the parser
  XmlParser(std::string source, XmlHandler& handler);
  ~XmlParser();

  XmlParser(const XmlParser&) = delete;
  XmlParser& operator=(const XmlParser&) = delete;

  /// Parses the next piece. While a tag or a comment goes on that pieces did not end, several are
  /// parsed at once, so that none is looked at over and over.
  /// @throws XmlError with file, line and column when the document is malformed; what the handler
  ///         raises. The parser is of no use after that.
  void feed(std::string_view piece);

  /// Parses the end of the document.
  /// @throws as `feed`
  void finish();

  /// Whether parsing paused because the handler is full. `resume` is all that may follow.
  bool isPaused() const { return m_isPaused; }

  /// Goes on. @throws as `feed`
  void resume();

  /// What the document says is declared in other files, which were not read; empty when nothing is.
  const std::string& unread() const { return m_unread; }

 private:
  void parseBuffer(bool last);
  void settle(XML_Status status);
  std::string_view rawEvent() const;
  void checkReferences(const std::string& text, const char* marks) const;
  void checkDefaults(const char* const* attributes);
  [[noreturn]] void raise() const;
  [[noreturn]] void raiseHere(const std::string& what) const;

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
  static void onEntityDecl(void* self, const XML_Char* name, int isParameter, const XML_Char* value,
                           int length, const XML_Char* base, const XML_Char* systemId,
                           const XML_Char* publicId, const XML_Char* notation);
  static void onAttlistDecl(void* self, const XML_Char* element, const XML_Char* attribute,
                            const XML_Char* type, const XML_Char* value, int isRequired);

  std::string m_source;            // names the document
  XmlHandler& m_handler;           // not owned
  XML_Parser m_parser;             // owned
  std::exception_ptr m_failure;    // what the handler raised; null when nothing
  bool m_inDoctype = false;        // whether the document type is being declared
  bool m_hasDoctype = false;       // whether it was
  bool m_isPaused = false;         // whether the handler was full
  mutable EntityTable m_entities;  // what the document declares; remembers what was checked
  std::string m_unread;            // names the first thing that was not read
  char* m_buffer = nullptr;        // the parser's, being filled; null between parses
  std::size_t m_room = 0;          // bytes of it
  std::size_t m_filled = 0;        // bytes filled
  std::string m_rest;              // of a piece during which the parser paused
  std::uint64_t m_parsed = 0;      // bytes parsed, up to the end of the last buffer
  std::uint64_t m_tokenStart = 0;  // where the last event began: what follows is not done with
  std::uint64_t m_defaulted = 0;   // bytes of default attributes that elements got
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_XMLPARSER_H
