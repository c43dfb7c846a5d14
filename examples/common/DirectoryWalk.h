#ifndef EXAMPLES_COMMON_DIRECTORYWALK_H
#define EXAMPLES_COMMON_DIRECTORYWALK_H

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ProblemLog.h"
#include "SourceFile.h"

namespace example {

/// Finds the regular files under directories, in the order of their names. Symbolic links below a
/// starting directory are not followed. Every file is found once, however many names it has and
/// however often its directory is reached.
class DirectoryWalk {
 public:
  using Visitor = std::function<void(const std::string& directory, const std::string& name,
                                     const FileStatus& status)>;

  /// Visits the files under `root`; what cannot be read is noted and passed over.
  void walk(const std::string& root, const Visitor& visit);

  /// Directories and files that could not be looked at.
  const ProblemLog& unreadable() const { return m_unreadable; }

 private:
  void walkDirectory(const std::string& directory, const Visitor& visit);
  bool firstVisit(const FileStatus& status);

  // Only directories and files of several names are remembered: a file of one name stands in one
  // directory, and each directory is visited once. This keeps the set small on any tree.
  std::set<std::pair<std::uint64_t, std::uint64_t>> m_visited;
  std::vector<std::string> m_pending;  // directories still to be visited, the next one last
  ProblemLog m_unreadable;             // what could not be looked at
};

}  // namespace example

#endif  // EXAMPLES_COMMON_DIRECTORYWALK_H
