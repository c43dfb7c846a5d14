#ifndef EXAMPLES_LARGESTORE_PLAINOBJECTS_H
#define EXAMPLES_LARGESTORE_PLAINOBJECTS_H

#include "Content.h"
#include "QRTVirtualVector.h"

namespace example {

/// Objects of 64 bytes to 64 KiB, 4.4 KiB on average, named by the bare offsets of their handles.
class PlainObjects final : public Content {
 public:
  /// @param manager  the store; outlives this
  explicit PlainObjects(QRTVirtualMemoryMgr& manager) : m_manager(manager), m_offsets(manager) {}

  const char* name() const override { return "plain objects"; }
  void build(std::uint64_t bytes) override;
  void edit() override;
  void verify() override;
  std::uint64_t count() const override { return m_offsets.size(); }
  std::uint64_t bytes() const override { return m_bytes; }

 private:
  static std::uint32_t wordsOf(std::uint32_t number);
  bool isEdited(std::uint32_t number) const;

  QRTVirtualMemoryMgr& m_manager;
  QRTVirtualVector<std::uint64_t> m_offsets;  // of the handles, by number
  std::uint64_t m_bytes = 0;                  // of all objects
  bool m_edited = false;                      // whether edit was called
};

}  // namespace example

#endif  // EXAMPLES_LARGESTORE_PLAINOBJECTS_H
