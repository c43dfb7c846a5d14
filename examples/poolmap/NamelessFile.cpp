#include "NamelessFile.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace example {

NamelessFile::NamelessFile() {
  const std::string directory = std::filesystem::temp_directory_path().string();
  m_descriptor = ::open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (m_descriptor < 0) {
    // Not every file system knows such files: a name of its own, and that only for a moment.
    std::string name = directory + "/poolmap-XXXXXX";
    m_descriptor = ::mkostemp(name.data(), O_CLOEXEC);
    if (m_descriptor < 0) {
      throw std::runtime_error("no temporary file in " + directory + ": " +
                               std::system_category().message(errno));
    }
    ::unlink(name.c_str());
  }
}

NamelessFile::~NamelessFile() {
  ::close(m_descriptor);
}

std::string NamelessFile::path() const {
  return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(m_descriptor);
}

}  // namespace example
