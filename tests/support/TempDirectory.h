#ifndef TESTS_SUPPORT_TEMPDIRECTORY_H
#define TESTS_SUPPORT_TEMPDIRECTORY_H

#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <system_error>

/// Paths to UTF-8 and back: what std::filesystem makes of narrow text differs between systems.
inline std::string utf8Of(const std::filesystem::path& path) {
  const auto text = path.u8string();
  return std::string(text.begin(), text.end());
}
inline std::filesystem::path pathOf(const std::string& utf8) {
  return std::u8string(utf8.begin(), utf8.end());
}

/// A fresh directory that goes with the object, contents included.
class TempDirectory {
 public:
  TempDirectory() {
    std::random_device random;
    do {
      m_path = std::filesystem::temp_directory_path() / ("qrt-test-" + std::to_string(random()));
    } while (!std::filesystem::create_directory(m_path));
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

/// Sets the variable of the environment that tells the library where temporary files go, TMPDIR on
/// POSIX systems and TMP on Windows, and puts back what it was.
class ScopedTmpdir {
 public:
  /// @param value  the directory, UTF-8
  explicit ScopedTmpdir(const std::string& value) : m_old(get()) { set(value); }
  ~ScopedTmpdir() { set(m_old); }
  ScopedTmpdir(const ScopedTmpdir&) = delete;
  ScopedTmpdir& operator=(const ScopedTmpdir&) = delete;

 private:
  // One source file per system.
  static std::optional<std::string> get();
  static void set(const std::optional<std::string>& value);

  std::optional<std::string> m_old;  // what it was; nothing when it was not set
};

#endif  // TESTS_SUPPORT_TEMPDIRECTORY_H
