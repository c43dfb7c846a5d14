#include "CanonicalComparison.h"

#include <algorithm>

#include "XmlError.h"

namespace example {

namespace {

constexpr std::size_t kMostPending = std::size_t{64} << 10;  // of the file, but for one event

/// A stretch of a canonical form for people: its marks are shown as dots.
std::string excerpt(const std::string& text, std::size_t place) {
  constexpr std::size_t kBefore = 30;
  constexpr std::size_t kLength = 60;
  const std::size_t from = place < kBefore ? 0 : place - kBefore;
  std::string part = text.substr(from, kLength);
  std::replace_if(
      part.begin(), part.end(), [](char each) { return each >= 0 && each < ' '; }, '.');
  return "'" + part + "'";
}

}  // namespace

CanonicalComparison::CanonicalComparison(const std::string& file, const std::string& name)
    : m_path(file),
      m_file(file),
      m_expected(kMostPending),
      m_fileParser(file, m_expected),
      m_parser(name, m_actual) {}

void CanonicalComparison::feed(std::string_view piece) {
  m_parser.feed(piece);
  compare();
}

void CanonicalComparison::finish() {
  m_parser.finish();
  while (advanceFile()) {
    compare();
  }
  compare();
  if (m_expected.pending().size() != m_actual.pending().size()) {
    raiseDifference(0);
  }
}

void CanonicalComparison::compare() {
  while (m_expected.pending().size() < m_actual.pending().size() && advanceFile()) {
  }
  const std::string& expected = m_expected.pending();
  const std::string& actual = m_actual.pending();
  const std::size_t length = std::min(expected.size(), actual.size());
  const auto end = expected.begin() + static_cast<std::ptrdiff_t>(length);
  const auto different = std::mismatch(expected.begin(), end, actual.begin()).first;
  if (different != end) {
    raiseDifference(static_cast<std::size_t>(different - expected.begin()));
  }
  m_expected.drop(length);
  m_actual.drop(length);
}

// One piece of a file can say a lot, by entities and default attributes: it is read in steps.
bool CanonicalComparison::advanceFile() {
  if (m_fileParser.isPaused()) {
    m_fileParser.resume();
    return true;
  }
  if (m_fileAtEnd) {
    return false;
  }
  const std::string_view piece = m_file.next();
  if (piece.empty()) {
    m_fileAtEnd = true;
    m_fileParser.finish();
  } else {
    m_fileParser.feed(piece);
  }
  return true;
}

void CanonicalComparison::raiseDifference(std::size_t place) const {
  throw XmlError(m_path + ": the documents differ: " + excerpt(m_expected.pending(), place) +
                 " here, " + excerpt(m_actual.pending(), place) + " there");
}

}  // namespace example
