#ifndef TESTS_SUPPORT_TEMPDIRECTORY_H
#define TESTS_SUPPORT_TEMPDIRECTORY_H

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

/// A fresh directory that goes with the object, contents included.
class TempDirectory {
 public:
  TempDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "qrt-test-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), name);
    }
    m_path = name;
  }
  ~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  const std::filesystem::path& path() const { return m_path; }

 private:
  std::filesystem::path m_path;
};

/// Sets TMPDIR, which tells the library where temporary files go, and puts back what it was.
class ScopedTmpdir {
 public:
  explicit ScopedTmpdir(const std::string& value) {
    const char* const old = std::getenv("TMPDIR");
    m_wasSet = old != nullptr;
    m_old = m_wasSet ? old : "";
    ::setenv("TMPDIR", value.c_str(), 1);
  }
  ~ScopedTmpdir() {
    if (m_wasSet) {
      ::setenv("TMPDIR", m_old.c_str(), 1);
    } else {
      ::unsetenv("TMPDIR");
    }
  }
  ScopedTmpdir(const ScopedTmpdir&) = delete;
  ScopedTmpdir& operator=(const ScopedTmpdir&) = delete;

 private:
  bool m_wasSet = false;
  std::string m_old;
};

#endif  // TESTS_SUPPORT_TEMPDIRECTORY_H
