#ifndef EXAMPLES_LARGESTORE_FILES_H
#define EXAMPLES_LARGESTORE_FILES_H

#include <memory>
#include <vector>

#include "Content.h"
#include "QRTVirtualFile.h"

namespace example {

/// Scratch files of up to 2.5 GiB, written in records that do not fit their pages. An edit goes
/// through the files and writes every eighth record anew.
class Files final : public Content {
 public:
  /// @param manager  the store; outlives this
  explicit Files(QRTVirtualMemoryMgr& manager) : m_manager(manager) {}

  const char* name() const override { return "records of files"; }
  void build(std::uint64_t bytes) override;
  void edit() override;
  void verify() override;
  std::uint64_t count() const override { return m_count; }
  std::uint64_t bytes() const override;

 private:
  QRTVirtualMemoryMgr& m_manager;
  std::vector<std::unique_ptr<QRTVirtualFile>> m_files;
  std::uint32_t m_count = 0;  // records in all files
  bool m_edited = false;      // whether edit was called
};

}  // namespace example

#endif  // EXAMPLES_LARGESTORE_FILES_H
