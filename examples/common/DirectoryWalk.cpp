#include "DirectoryWalk.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

namespace example {

namespace fs = std::filesystem;

void DirectoryWalk::walk(const std::string& root, const Visitor& visit) {
  // The user may name a directory by a link; below it links are left alone.
  std::error_code failure;
  const std::string resolved = fs::canonical(root, failure).string();
  FileStatus status;
  std::string error = failure.message();
  if (failure || !readStatus(resolved, status, error)) {
    m_unreadable.add(root, error);
    return;
  }
  if (firstVisit(status)) {
    m_pending.push_back(resolved);
  }
  while (!m_pending.empty()) {
    const std::string directory = std::move(m_pending.back());
    m_pending.pop_back();
    walkDirectory(directory, visit);
  }
}

void DirectoryWalk::walkDirectory(const std::string& directory, const Visitor& visit) {
  std::vector<std::string> names;
  std::error_code failure;
  fs::directory_iterator entry(directory, failure);
  while (!failure && entry != fs::directory_iterator()) {
    names.push_back(entry->path().filename().string());
    entry.increment(failure);
  }
  if (failure) {
    m_unreadable.add(directory, failure.message());
  }
  std::sort(names.begin(), names.end());

  std::vector<std::string> subdirectories;
  for (const std::string& name : names) {
    const std::string path = (fs::path(directory) / name).string();
    FileStatus status;
    std::string error;
    if (!readStatus(path, status, error)) {
      m_unreadable.add(path, error);
    } else if (status.isDirectory && firstVisit(status)) {
      subdirectories.push_back(path);
    } else if (status.isRegularFile && (status.links == 1 || firstVisit(status))) {
      visit(directory, name, status);
    }
  }
  m_pending.insert(m_pending.end(), subdirectories.rbegin(), subdirectories.rend());
}

bool DirectoryWalk::firstVisit(const FileStatus& status) {
  return m_visited.emplace(status.device, status.inode).second;
}

}  // namespace example
