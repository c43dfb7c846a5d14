#include "PlainObjects.h"

#include <string>
#include <utility>

#include "Pattern.h"
#include "QRTVirtualMemoryMgr.h"

namespace example {

namespace {

// Every eighth object is written anew by an edit, every 64th is moved into a new object as well.
constexpr std::uint32_t kObjectEditStep = 8;
constexpr std::uint32_t kObjectMoveStep = 64;

}  // namespace

/// One object in 32 has 64 KiB, the others spread over 64 bytes to 4.8 KiB.
std::uint32_t PlainObjects::wordsOf(std::uint32_t number) {
  return number % 32 == 31 ? 16384 : 16 + number * 2654435761U % 1184;
}

bool PlainObjects::isEdited(std::uint32_t number) const {
  return m_edited && number % kObjectEditStep == 0;
}

void PlainObjects::build(std::uint64_t bytes) {
  while (m_bytes < bytes) {
    const auto number = static_cast<std::uint32_t>(m_offsets.size());
    const std::uint32_t words = wordsOf(number);
    QRTVirtualPageItem item;
    Pattern(number, 0).fill(static_cast<std::uint32_t*>(m_manager.alloc(words * 4, item)), words);
    m_manager.dismiss(item);
    m_offsets.push_back(item.getOffset());
    m_bytes += std::uint64_t{words} * 4;
  }
}

void PlainObjects::edit() {
  for (std::uint32_t number = 0; number < m_offsets.size(); number += kObjectEditStep) {
    const std::uint32_t words = wordsOf(number);
    QRTVirtualPageItem item(m_offsets.get(number), words * 4);
    void* const address = number % kObjectMoveStep == 0 ? m_manager.alloc(words * 4, item)
                                                        : m_manager.getAddress(item, 1);
    if (address == nullptr) {
      throw Mismatch("object " + std::to_string(number) + " cannot be read");
    }
    Pattern(number, 1).fill(static_cast<std::uint32_t*>(address), words);
    m_manager.dismiss(item);
    m_offsets.set(number, item.getOffset());
  }
  m_edited = true;
}

void PlainObjects::verify() {
  std::uint32_t number = 0;
  for (const std::uint64_t offset : std::as_const(m_offsets)) {
    const auto* const words = static_cast<const std::uint32_t*>(m_manager.getAddress(offset, 0));
    if (words == nullptr ||
        !Pattern(number, isEdited(number) ? 1 : 0).matches(words, wordsOf(number))) {
      throw Mismatch("object " + std::to_string(number) + " is not what was stored");
    }
    m_manager.dismiss(offset);
    ++number;
  }
}

}  // namespace example
