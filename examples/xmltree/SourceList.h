#ifndef EXAMPLES_XMLTREE_SOURCELIST_H
#define EXAMPLES_XMLTREE_SOURCELIST_H

#include <cstdint>
#include <string>
#include <vector>

#include "DirectoryWalk.h"

namespace example {

/// A file to load.
struct Source {
  std::string path;      ///< where it is
  std::string relative;  ///< its path below the directory that was named; else its name
};

/// The XML files that a user named, one by one or by their directories.
class SourceList {
 public:
  /// Adds a file, or every file under a directory whose name ends with ".xml".
  /// @throws XmlError when there is no such file or directory
  void add(const std::string& path);

  const std::vector<Source>& sources() const { return m_sources; }

  /// Bytes of all files.
  std::uint64_t bytes() const { return m_bytes; }

  /// Directories and files that could not be looked at.
  const ProblemLog& unreadable() const { return m_walk.unreadable(); }

 private:
  std::vector<Source> m_sources;  // in the order in which they were named and found
  std::uint64_t m_bytes = 0;      // their sizes together
  DirectoryWalk m_walk;           // finds the files of directories
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_SOURCELIST_H
