#include "Words.h"

#include <algorithm>

namespace example {

namespace {

constexpr std::size_t kColumnsBefore = 30;  // of context, half of what a terminal has beside a path
constexpr std::size_t kColumnsBehind = 40;  // the word itself included

bool isTrail(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

std::size_t columns(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char byte) { return !isTrail(byte); }));
}

}  // namespace

// Bytes of the letter at a place; 0 when there is something else.
std::size_t Words::letterAt(std::size_t at) const {
  const auto byte = static_cast<unsigned char>(m_text[at]);
  if (byte < 0x80U) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ? 1 : 0;
  }
  const auto next = at + 1 < m_text.size() ? static_cast<unsigned char>(m_text[at + 1]) : 0U;
  const bool isSign = byte == 0xC2U || (byte == 0xE2U && (next == 0x80U || next == 0x81U));
  return isSign ? 0 : 1 + otherAt(at + 1);
}

// Continuation bytes from a place on.
std::size_t Words::otherAt(std::size_t at) const {
  std::size_t end = at;
  while (end < m_text.size() && isTrail(m_text[end])) {
    ++end;
  }
  return end - at;
}

bool Words::next() {
  while (m_at < m_text.size() && letterAt(m_at) == 0) {
    m_at += 1 + otherAt(m_at + 1);
  }
  m_begin = m_at;
  while (m_at < m_text.size()) {
    const std::size_t bytes = letterAt(m_at);
    if (bytes == 0) {
      break;
    }
    m_at += bytes;
  }
  m_word.assign(m_text.substr(m_begin, m_at - m_begin));
  for (char& byte : m_word) {
    byte = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte | 0x20) : byte;
  }
  return m_begin != m_at;
}

std::string singleWord(std::string_view argument) {
  Words words(argument);
  const bool isWord = words.next() && words.begin() == 0 && words.end() == argument.size();
  return isWord ? words.word() : std::string();
}

std::string keywordInContext(std::string_view line, std::size_t begin, std::size_t end) {
  std::size_t from = begin;
  std::size_t used = 0;
  while (from > 0 && used < kColumnsBefore) {
    --from;
    used += isTrail(line[from]) ? 0U : 1U;
  }
  std::size_t to = end;
  std::size_t usedBehind = columns(line.substr(begin, end - begin));
  while (to < line.size() && (usedBehind < kColumnsBehind || isTrail(line[to]))) {
    usedBehind += isTrail(line[to]) ? 0U : 1U;
    ++to;
  }
  std::string shown(kColumnsBefore - used, ' ');
  shown += line.substr(from, to - from);
  std::replace_if(
      shown.begin(), shown.end(),
      [](char byte) { return static_cast<unsigned char>(byte) < 0x20U || byte == 0x7F; }, ' ');
  if (usedBehind < kColumnsBehind) {
    shown.append(kColumnsBehind - usedBehind, ' ');
  }
  return shown;
}

}  // namespace example
