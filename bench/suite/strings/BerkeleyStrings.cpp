// Strings packed in the pages of a Berkeley DB memory pool, named by page, place and length.

#include <cstring>
#include <optional>

#include "StringWork.h"
#include "common/BerkeleyPool.h"

namespace {

class BerkeleyStrings {
 public:
  BerkeleyStrings(std::size_t count, std::size_t budget) : m_pool(budget) {
    m_strings.reserve(count);
  }

  void add(std::string_view text) {
    if (!m_filling || m_used + text.size() > suite::BerkeleyPool::kPageBytes) {
      m_filling.reset();
      m_filling.emplace(m_pool.create());
      ++m_pages;
      m_used = 0;
    }
    std::memcpy(m_filling->bytes() + m_used, text.data(), text.size());
    m_strings.push_back(
        {m_pages - 1, static_cast<std::uint16_t>(m_used), static_cast<std::uint16_t>(text.size())});
    m_used += text.size();
  }

  template <class Use>
  void read(std::size_t i, Use use) {
    const Place place = m_strings[i];
    const suite::BerkeleyPool::Pin page = m_pool.read(place.page);
    use(std::string_view(page.bytes() + place.offset, place.length));
  }

  bool equal(std::size_t i, std::string_view text) {
    bool same = false;
    if (m_strings[i].length == text.size()) {
      read(i, [&](std::string_view stored) { same = stored == text; });
    }
    return same;
  }

  I18NString convert(std::size_t i) {
    std::optional<I18NString> string;
    read(i, [&](std::string_view stored) { string.emplace(stored); });
    return *string;
  }

 private:
  struct Place {
    std::uint32_t page;
    std::uint16_t offset;
    std::uint16_t length;
  };

  suite::BerkeleyPool m_pool;
  std::optional<suite::BerkeleyPool::Pin> m_filling;  // the page that new strings go to
  std::uint32_t m_pages = 0;
  std::size_t m_used = 0;  // bytes of that page
  std::vector<Place> m_strings;
};

}  // namespace

void measureBerkeley(const StringOptions& options) {
  measureStrings<BerkeleyStrings>("bdb pool", options);
}
