#ifndef EXAMPLES_POOLMAP_NAMELESSFILE_H
#define EXAMPLES_POOLMAP_NAMELESSFILE_H

#include <string>

namespace example {

/// A temporary file without a name: nobody can put something in its place, and it is gone when the
/// program ends, however that comes about.
class NamelessFile {
 public:
  /// Makes an empty file in the directory for temporary files.
  /// @throws std::runtime_error when none can be made
  NamelessFile();
  ~NamelessFile();
  NamelessFile(const NamelessFile&) = delete;
  NamelessFile& operator=(const NamelessFile&) = delete;

  /// A path under which this process, and those it starts, can open the file while this stands.
  std::string path() const;

 private:
  int m_descriptor;  // the system's handle
};

}  // namespace example

#endif  // EXAMPLES_POOLMAP_NAMELESSFILE_H
