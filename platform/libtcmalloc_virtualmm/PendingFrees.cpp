#include "libtcmalloc_virtualmm/PendingFrees.h"

#include <exception>

#include "libtcmalloc_virtualmm/EngineAssert.h"

namespace tcmalloc {

/// Memory doubles by hand, so that it never exceeds what m_most keys take.
bool PendingFrees::Add(std::uint64_t offset) noexcept {
  LIBTCMALLOC_ASSERT(!Has(offset));
  if (m_keys.size() == m_most) {
    return false;
  }
  try {
    if (m_keys.size() == m_keys.capacity()) {
      constexpr std::size_t kFirst = 64;
      m_keys.reserve(std::min(m_most, std::max(kFirst, 2 * m_keys.size())));
    }
    const std::uint64_t key = KeyOf(offset);
    m_keys.insert(std::upper_bound(m_keys.begin(), m_keys.end(), key), key);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

/// In turns: from the page after the last one tried, and from the lowest page again at the end.
/// When no more can be remembered the pauses are over: only a read that succeeds helps then.
std::uint32_t PendingFrees::PageToTry() noexcept {
  if (m_keys.empty()) {
    return PageTable::kNoPage;
  }
  if (m_pause > 0 && m_keys.size() < m_most) {
    --m_pause;
    return PageTable::kNoPage;
  }
  const auto key = FirstOf(m_nextPage);
  const std::uint32_t page = PageOf(key != m_keys.end() ? *key : m_keys.front());
  m_nextPage = page + 1;
  return page;
}

void PendingFrees::OnReadFailed() noexcept {
  m_pause = m_lastPause = std::min(2 * m_lastPause + 1, kMostPause);
}

}  // namespace tcmalloc
