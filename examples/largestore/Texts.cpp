#include "Texts.h"

#include <cstddef>
#include <cstring>

#include "Pattern.h"
#include "QRTVirtualMemoryMgr.h"

namespace example {

namespace {

constexpr std::uint32_t kTextEditStep = 8;
constexpr std::uint64_t kAverageTextBytes = 2080;

/// Turns four bytes into text: two bytes of ASCII and a character of two bytes.
std::uint32_t toUtf8(std::uint32_t word) {
  return (word & 0x3F1D7F7FU) | 0x80C20000U;
}

}  // namespace

bool Texts::isEdited(std::uint32_t number) const {
  return m_edited && number % kTextEditStep == 0;
}

const std::string& Texts::textOf(std::uint32_t number) {
  std::uint32_t words = 16 + number * 2654435761U % 1009;
  if (isEdited(number)) {
    words = number % (2 * kTextEditStep) == 0 ? words * 9 / 8 : words * 7 / 8;
  }
  m_words.resize(words);
  Pattern(number, isEdited(number) ? 1 : 0).fill(m_words.data(), words);
  for (std::uint32_t& word : m_words) {
    word = toUtf8(word);
  }
  m_text.resize(std::size_t{words} * sizeof(std::uint32_t));
  std::memcpy(m_text.data(), m_words.data(), m_text.size());
  return m_text;
}

void Texts::build(std::uint64_t bytes) {
  m_strings.reserve(
      static_cast<std::size_t>(bytes / kAverageTextBytes + bytes / kAverageTextBytes / 32));
  while (m_bytes < bytes) {
    const std::string& text = textOf(static_cast<std::uint32_t>(m_strings.size()));
    m_strings.emplace_back().setString(text, &m_manager);
    m_bytes += text.size();
  }
}

void Texts::edit() {
  m_edited = true;
  for (std::uint32_t number = 0; number < m_strings.size(); number += kTextEditStep) {
    m_bytes -= m_strings[number].getSize();
    m_strings[number].setString(textOf(number), &m_manager);
    m_bytes += m_text.size();
  }
}

void Texts::verify() {
  for (std::uint32_t number = 0; number < m_strings.size(); ++number) {
    if (m_strings[number].isEqual(textOf(number), &m_manager) == 0) {
      throw Mismatch("string " + std::to_string(number) + " is not what was stored");
    }
  }
}

}  // namespace example
