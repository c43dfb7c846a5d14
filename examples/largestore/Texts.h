#ifndef EXAMPLES_LARGESTORE_TEXTS_H
#define EXAMPLES_LARGESTORE_TEXTS_H

#include <string>
#include <vector>

#include "Content.h"
#include "QRTVirtualUTF8String.h"

namespace example {

/// Strings of 64 bytes to 4 KiB. An edit writes every eighth anew: half of those become shorter
/// and keep their place, the other half become longer and move.
class Texts final : public Content {
 public:
  /// @param manager  the store; outlives this
  explicit Texts(QRTVirtualMemoryMgr& manager) : m_manager(manager) {}

  const char* name() const override { return "strings"; }
  void build(std::uint64_t bytes) override;
  void edit() override;
  void verify() override;
  std::uint64_t count() const override { return m_strings.size(); }
  std::uint64_t bytes() const override { return m_bytes; }

 private:
  /// Makes the text that a string has to hold, in a buffer that the next call uses again.
  const std::string& textOf(std::uint32_t number);

  bool isEdited(std::uint32_t number) const;

  QRTVirtualMemoryMgr& m_manager;
  std::vector<QRTVirtualUTF8String> m_strings;  // by number
  std::vector<std::uint32_t> m_words;           // what a text is made of
  std::string m_text;                           // the last text made
  std::uint64_t m_bytes = 0;                    // of all strings
  bool m_edited = false;                        // whether edit was called
};

}  // namespace example

#endif  // EXAMPLES_LARGESTORE_TEXTS_H
