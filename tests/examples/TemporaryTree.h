#ifndef TESTS_EXAMPLES_TEMPORARYTREE_H
#define TESTS_EXAMPLES_TEMPORARYTREE_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

/// A directory of its own for a test, gone with all its files when the test ends.
class TemporaryTree {
 public:
  TemporaryTree() {
    std::string name = (std::filesystem::temp_directory_path() / "qrt-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("cannot make " + name);
    }
    m_root = name;
  }

  ~TemporaryTree() {
    std::error_code ignored;
    std::filesystem::remove_all(m_root, ignored);
  }

  TemporaryTree(const TemporaryTree&) = delete;
  TemporaryTree& operator=(const TemporaryTree&) = delete;

  std::string path(const std::string& name) const { return (m_root / name).string(); }
  std::string root() const { return m_root.string(); }

  /// Writes a file, and the directories that lead to it.
  void write(const std::string& name, const std::string& content) const {
    std::filesystem::create_directories((m_root / name).parent_path());
    std::ofstream(m_root / name, std::ios::binary) << content;
  }

 private:
  std::filesystem::path m_root;
};

#endif  // TESTS_EXAMPLES_TEMPORARYTREE_H
