#ifndef EXAMPLES_XMLTREE_DOCUMENTWRITER_H
#define EXAMPLES_XMLTREE_DOCUMENTWRITER_H

#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "XmlElement.h"

namespace example {

/// Writes documents as XML in UTF-8. A document comes out with the content it was loaded with; its
/// document type is left out, for what it declared has been put in place already.
class DocumentWriter {
 public:
  /// Takes the text piece by piece; may raise.
  using Sink = std::function<void(std::string_view)>;

  explicit DocumentWriter(Sink sink) : m_sink(std::move(sink)) {}

  /// Writes a whole document.
  /// @throws std::runtime_error when the store cannot read something back; what the sink raises
  void writeDocument(XmlNode& document);

 private:
  void enter(XmlNode& node);
  void leave(XmlNode& node);
  void startTag(const XmlElement& element);
  void endTag(const XmlElement& element);
  void raw(const char* before, const QRTVirtualPageItem& item, const char* after);
  void escaped(std::string_view text, bool inAttribute);
  void flushIfFull();
  void flush();

  Sink m_sink;
  QRTVirtualMemoryMgr* m_manager = nullptr;  // of the document being written, not owned
  std::string m_buffer;                      // text on its way to the sink
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_DOCUMENTWRITER_H
