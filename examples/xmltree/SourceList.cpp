#include "SourceList.h"

#include <filesystem>
#include <system_error>

#include "XmlError.h"

namespace example {

namespace fs = std::filesystem;

void SourceList::add(const std::string& path) {
  std::error_code failure;
  const fs::path resolved = fs::canonical(path, failure);
  if (failure) {
    throw XmlError(path + ": " + failure.message());
  }
  if (!fs::is_directory(resolved, failure)) {
    const std::uint64_t size = fs::file_size(resolved, failure);
    m_sources.push_back({resolved.string(), resolved.filename().string()});
    m_bytes += failure ? 0 : size;
    return;
  }
  m_walk.walk(resolved.string(),
              [&](const std::string& directory, const std::string& name, const FileStatus& status) {
                if (name.ends_with(".xml")) {
                  const fs::path file = fs::path(directory) / name;
                  m_sources.push_back({file.string(), file.lexically_relative(resolved).string()});
                  m_bytes += status.size;
                }
              });
}

}  // namespace example
