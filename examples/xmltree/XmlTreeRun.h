#ifndef EXAMPLES_XMLTREE_XMLTREERUN_H
#define EXAMPLES_XMLTREE_XMLTREERUN_H

#include <functional>
#include <string>

#include "DocumentStore.h"
#include "Options.h"
#include "ProblemLog.h"
#include "SourceList.h"
#include "Stopwatch.h"
#include "XmlCharacters.h"

namespace example {

/// One run of the program: loads the documents, then does what the user asked for.
class XmlTreeRun {
 public:
  explicit XmlTreeRun(const Options& options);

  /// @return the program's exit status
  /// @throws XmlError for a wrong path or input
  int run();

 private:
  int check();
  void checkPaths() const;
  void loadFiles();
  void verifyDocuments();
  int find();
  void exportDocuments();
  void edit();
  void printTable();
  int status();
  void forEachDocument(const std::function<void(XmlDocument&, const Source&)>& visit);

  const Options m_options;
  SourceList m_sources;               // the files named
  DocumentStore m_store;              // the documents
  std::vector<std::size_t> m_loaded;  // numbers of the files that became documents, in order
  Stopwatch m_loading;                // runs while files are loaded
  ProblemLog m_failed;                // files that could not be loaded
  ProblemLog m_uncompared;            // documents that there was no memory to compare
  ProblemLog m_different;             // documents that differ from their files
  std::uint64_t m_compared = 0;       // documents compared with their files
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_XMLTREERUN_H
