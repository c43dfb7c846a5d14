#ifndef EXAMPLES_XMLTREE_XMLHANDLER_H
#define EXAMPLES_XMLTREE_XMLHANDLER_H

#include <string_view>

namespace example {

/// Receives a document piece by piece, as UTF-8: by XmlParser, in document order. What is handed in
/// is good during the call only. An error that a handler raises comes out of XmlParser::feed.
class XmlHandler {
 public:
  virtual ~XmlHandler() = default;

  /// @param name        the element's name as written, prefix included
  /// @param attributes  names and values in turn, a null at the end; defaults of the document's own
  ///                    declarations included
  virtual void startElement(std::string_view name, const char* const* attributes) = 0;
  virtual void endElement(std::string_view name) = 0;

  /// A piece of text, entities replaced; one text may come in many pieces.
  virtual void text(std::string_view text) = 0;
  virtual void comment(std::string_view text) = 0;
  virtual void instruction(std::string_view target, std::string_view data) = 0;

  /// Asked after each call whether the parser is to pause before the next one.
  virtual bool isFull() const { return false; }

 protected:
  XmlHandler() = default;
  XmlHandler(const XmlHandler&) = default;
  XmlHandler& operator=(const XmlHandler&) = default;
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_XMLHANDLER_H
