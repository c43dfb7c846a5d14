#include <string>

#include "DocumentStore.h"
#include "DocumentWriter.h"
#include "Fuzzer.h"
#include "QRTVirtualPin.h"
#include "StoreStatistics.h"
#include "XmlError.h"

// Anything as a document: refused with an error that leaves nothing behind, or loaded; what is
// written of it loads again and is then written the same.

namespace {

std::string exported(example::DocumentStore& store) {
  std::string xml;
  const QRTVirtualPin<example::XmlNode> document(store.tree().getRootNode()->getLastChild());
  example::DocumentWriter([&](std::string_view piece) {
    xml.append(piece);
  }).writeDocument(*document);
  return xml;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view xml(reinterpret_cast<const char*>(data), size);
  example::DocumentStore store(1);
  bool loaded = false;
  try {
    store.loadText("input", xml);
    loaded = true;
  } catch (const example::XmlError&) {
    require(store.tree().getRootNode()->hasChildren() == 0, "a refused document is in the tree");
  }
  if (loaded) {
    const std::string once = exported(store);
    try {
      store.loadText("exported", once);
    } catch (const example::XmlError& error) {
      require(false, error.what());
    }
    require(exported(store) == once, "written again, the document is another");
  }
  require(example::readStatistics(store.manager()).pinnedObjects == 0, "a pin is left");
  return 0;
}
