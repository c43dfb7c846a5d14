#include <memory>
#include <vector>

#include "DocumentStore.h"
#include "Fuzzer.h"
#include "PathFinder.h"
#include "QRTVirtualPin.h"
#include "StoreStatistics.h"
#include "XmlError.h"

// Anything as a path: refused, or searched for in a document of many alike elements. The outermost
// matches are among all matches.

namespace {

example::DocumentStore& store() {
  static const std::unique_ptr<example::DocumentStore> documents = [] {
    auto made = std::make_unique<example::DocumentStore>(1);
    made->loadText("document",
                   "<r><a i='1' k='x'><b>1</b><b i='2'>2</b></a><a i='2'><c><b>3</b><a i='3'>"
                   "<b>4</b></a></c></a><p:a>t<!--no--><b>5</b>u<?no no?></p:a></r>");
    return made;
  }();
  return *documents;
}

std::vector<std::uint64_t> found(const example::PathExpression& path, bool outermost) {
  std::vector<std::uint64_t> matches;
  const QRTVirtualPin<example::XmlNode> document(store().tree().getRootNode()->getLastChild());
  example::PathFinder(path, outermost).search(*document, [&](example::XmlNode& match) {
    matches.push_back(match.getPageOffset());
    return true;
  });
  return matches;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const example::PathExpression path({reinterpret_cast<const char*>(data), size});
    require(!path.steps().empty() && path.steps().size() <= example::PathExpression::kMostSteps,
            "a path of no steps, or too many");
    const std::vector<std::uint64_t> all = found(path, false);
    const std::vector<std::uint64_t> outermost = found(path, true);
    std::size_t next = 0;
    for (const std::uint64_t match : all) {
      next += next < outermost.size() && outermost[next] == match ? 1 : 0;
    }
    require(next == outermost.size() && all.empty() == outermost.empty(),
            "an outermost match is no match");
  } catch (const example::XmlError&) {
    // As it should be.
  }
  require(example::readStatistics(store().manager()).pinnedObjects == 0, "a pin is left");
  return 0;
}
