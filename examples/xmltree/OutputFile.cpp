#include "OutputFile.h"

#include <cerrno>
#include <system_error>

#include "XmlError.h"

namespace example {

OutputFile::OutputFile(const std::string& path)
    : m_path(path),
      m_temporary(path + ".part"),
      m_file(path.empty() ? stdout : std::fopen(m_temporary.c_str(), "wb")) {
  if (m_file == nullptr) {
    raise();
  }
}

OutputFile::~OutputFile() {
  if (m_file != nullptr && m_file != stdout) {
    std::fclose(m_file);
    std::remove(m_temporary.c_str());
  }
}

void OutputFile::write(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), m_file) != text.size()) {
    raise();
  }
}

void OutputFile::finish() {
  if (std::fflush(m_file) != 0) {
    raise();
  }
  if (m_file != stdout) {
    std::FILE* const file = m_file;
    m_file = nullptr;
    if (std::fclose(file) != 0 || std::rename(m_temporary.c_str(), m_path.c_str()) != 0) {
      const int error = errno;
      std::remove(m_temporary.c_str());
      errno = error;
      raise();
    }
  }
}

void OutputFile::raise() const {
  throw XmlError((m_path.empty() ? "standard output" : m_temporary) + ": " +
                 std::system_category().message(errno));
}

}  // namespace example
