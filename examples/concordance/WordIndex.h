#ifndef EXAMPLES_CONCORDANCE_WORDINDEX_H
#define EXAMPLES_CONCORDANCE_WORDINDEX_H

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualVector.h"
#include "StoredValue.h"

namespace example {

/// What the index knows of a word.
struct WordRecord {
  QRTVirtualPageItem text;        ///< the word, a stored string
  std::uint64_t firstChunk = 0;   ///< chunk of its lines behind the first line; 0 for none
  std::uint64_t lastChunk = 0;    ///< the last such chunk
  std::uint32_t firstLine = 0;    ///< most words stand in one line only: it needs no chunk
  std::uint32_t lastLine = 0;     ///< line noted last
  std::uint32_t lines = 0;        ///< lines that hold the word
  std::uint32_t occurrences = 0;  ///< times that it stands in them
};

/// Which lines hold which words. All of it lives in a store: the words as strings, their records in
/// an array, the numbers of their lines in chained chunks, and a hash table of buckets of a page's
/// half each. The process keeps the table's directory, 8 bytes for about 170 words.
///
/// The table is an extendible hash: a bucket holds the words whose hashes agree in its `depth` low
/// bits, the directory has one entry for every value of the deepest bucket's bits, and a full
/// bucket is split in two without a look at the others.
class WordIndex {
 public:
  static constexpr std::uint32_t kNone = UINT32_MAX;

  /// @param manager  keeps the index; must outlive it
  explicit WordIndex(QRTVirtualMemoryMgr& manager);

  WordIndex(const WordIndex&) = delete;
  WordIndex& operator=(const WordIndex&) = delete;

  /// Notes that a line holds a word. Lines come in ascending order. Throws what the manager throws
  /// when the store is full; what was noted before stays.
  void add(std::string_view word, std::uint32_t line);

  /// @return the word's number, kNone when no line holds it
  std::uint32_t find(std::string_view word) const;

  WordRecord record(std::uint32_t word) const { return m_records.get(word); }
  std::string text(std::uint32_t word) const;

  /// Visits the lines that hold a word, in order, until the visitor returns false.
  void forEachLine(std::uint32_t word, const std::function<bool(std::uint32_t)>& visit) const;

  /// Distinct words.
  std::uint32_t size() const { return static_cast<std::uint32_t>(m_records.size()); }

  /// Bytes that the process keeps for the index.
  std::uint64_t memoryBytes() const { return m_directory.size() * sizeof(std::uint64_t); }

 private:
  struct Entry {
    std::uint32_t hash;  // of the word
    std::uint32_t word;  // its number
  };

  struct Bucket {
    std::uint32_t depth = 0;           // low bits that all its hashes share
    std::uint32_t used = 0;            // entries
    std::array<Entry, 255> entries{};  // 2,048 bytes together: two buckets to a page
  };

  struct LineChunk {
    std::uint64_t next;      // 0 for the last one
    std::uint32_t used;      // line numbers
    std::uint32_t capacity;  // line numbers that there is room for; they follow
    std::uint32_t* lines() { return reinterpret_cast<std::uint32_t*>(this + 1); }
    const std::uint32_t* lines() const { return reinterpret_cast<const std::uint32_t*>(this + 1); }
  };

  std::uint64_t& bucketOf(std::uint32_t hash);
  std::uint32_t findHashed(std::string_view word, std::uint32_t hash) const;
  std::uint32_t insert(std::string_view word, std::uint32_t hash);
  void split(std::uint32_t hash);
  void appendLine(WordRecord& record, std::uint32_t line);
  std::uint64_t makeChunk(std::uint32_t capacity, std::uint32_t line);

  QRTVirtualMemoryMgr& m_manager;          // not owned
  QRTVirtualVector<WordRecord> m_records;  // by word number
  std::vector<std::uint64_t> m_directory;  // offset of the bucket for each value of the low bits
  std::uint32_t m_depth = 0;               // how many low bits those are
};

}  // namespace example

#endif  // EXAMPLES_CONCORDANCE_WORDINDEX_H
