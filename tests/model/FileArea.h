#ifndef TESTS_MODEL_FILEAREA_H
#define TESTS_MODEL_FILEAREA_H

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "QRTVirtualFile.h"
#include "model/ModelArea.h"

namespace model {

/// Virtual files, plain ones beside strings of bytes, compressing ones beside what was written.
class FileArea final : public ModelArea {
 public:
  explicit FileArea(ModelWorld& world);

  const char* name() const override { return "file"; }
  void step() override;
  void verify() override;
  void unpin() override;
  void clear() override;
  std::uint64_t objects() const override;
  bool hidesOffsets() const override { return true; }
  std::size_t hiddenPins() const override { return m_files.size(); }

 private:
  struct File {
    std::unique_ptr<QRTVirtualFile> file;
    std::uint32_t pageSize = 0;
    bool compress = false;
    std::string content;              // of a plain file; of a compressing one all that was written
    std::string known;                // of a plain file: per byte 1 when it was written, else 0
    std::uint32_t position = 0;       // of a plain file
    std::set<std::uint32_t> touched;  // pages that are allocated
    bool open = false;                // of a compressing file: whether a member has begun
    bool lost = false;                // whether a write failed, after which it is good for nothing
    bool mustSay = false;             // whether the next close has to say so
  };

  std::uint32_t mostBytes(const File& file) const;
  std::string anyBytes(std::uint32_t most);
  void reopen(File& file);
  void write(File& file);
  void read(File& file);
  void seek(File& file);
  void close(File& file);
  void reset(File& file);
  void dispose(File& file);
  void readBack(File& file);
  void touch(File& file, std::uint32_t begin, std::uint32_t end);
  void touchCompressed(File& file);
  void compareContent(File& file);

  std::vector<File> m_files;
};

}  // namespace model

#endif  // TESTS_MODEL_FILEAREA_H
