// A cache that drops what was longest unused. Its values, the order of their use and the index that
// finds them live in a store, so that the cache may be far larger than the memory it takes.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>

#include "ByteSize.h"
#include "CheckedBy.h"
#include "ExitStatus.h"
#include "HostProcess.h"
#include "ProgressBar.h"
#include "QRTVirtualHashMap.h"
#include "QRTVirtualPin.h"
#include "ResultTable.h"

using namespace example;

class Cache {
 public:
  Cache(QRTVirtualMemoryMgr& store, std::uint64_t capacity)
      : m_store(store), m_capacity(capacity), m_index(store) {}

  /// Looks a value up, which makes it the one used last. @return whether it is there
  bool get(std::uint64_t key, std::string& value) {
    QRTVirtualPageItem item;
    if (!m_index.find(key, item)) {
      return false;
    }
    value.assign(pin(item)->value(), item.getSize() - sizeof(Entry));
    unlink(item);
    linkNewest(item);
    return true;
  }

  /// Keeps a value whose key is not there, and drops the oldest ones if they are too many.
  void put(std::uint64_t key, const std::string& value) {
    QRTVirtualPageItem item;
    auto entry = QRTVirtualPin<Entry>::alloc(m_store, unsigned(sizeof(Entry) + value.size()), item);
    entry->key = key;
    std::memcpy(entry->value(), value.data(), value.size());
    entry.reset();  // unpinned: may now live in the paging file
    m_index.insert(key, item);
    linkNewest(item);
    m_bytes += value.size();
    while (m_bytes > m_capacity) {
      item = m_oldest;
      m_index.erase(pin(item)->key);
      unlink(item);
      m_bytes -= item.getSize() - sizeof(Entry);
      m_store.free(item);  // NOLINT(clang-analyzer-unix.Malloc): not the heap's
    }
  }

  std::uint64_t size() const { return m_index.size(); }
  std::uint64_t bytes() const { return m_bytes; }

 private:
  // What stands in front of each value in the store.
  struct Entry {
    std::uint64_t key;
    QRTVirtualPageItem newer;  // the entry used next after this one; empty for the newest
    QRTVirtualPageItem older;  // the one used before; empty for the oldest
    char* value() { return reinterpret_cast<char*>(this + 1); }
  };

  QRTVirtualPin<Entry> pin(const QRTVirtualPageItem& item) { return {m_store, item}; }

  void linkNewest(const QRTVirtualPageItem& item) {
    const auto entry = pin(item);
    entry->newer.clear();
    entry->older = m_newest;
    (m_newest.empty() ? m_oldest : pin(m_newest)->newer) = item;
    m_newest = item;
  }

  void unlink(const QRTVirtualPageItem& item) {
    const auto entry = pin(item);
    (entry->newer.empty() ? m_newest : pin(entry->newer)->older) = entry->older;
    (entry->older.empty() ? m_oldest : pin(entry->older)->newer) = entry->newer;
  }

  QRTVirtualMemoryMgr& m_store;
  std::uint64_t m_capacity;                                      // bytes of values to keep
  std::uint64_t m_bytes = 0;                                     // bytes of values there are
  QRTVirtualHashMap<std::uint64_t, QRTVirtualPageItem> m_index;  // entries by key
  QRTVirtualPageItem m_newest, m_oldest;                         // both ends of the order of use
};

/// What the cache saves the making of: 16 to 271 bytes that only this key has.
static std::string makeValue(std::uint64_t key) {
  return std::string(key * 2654435761U % 256, static_cast<char>('a' + key % 26)) +
         std::to_string(1000000000000000 + key);
}

static void run(std::uint64_t items, unsigned int budget) {
  const std::uint64_t before = residentBytes();
  QRTVirtualMemoryMgr store(budget);
  Cache cache(store, items * 72);  // half of what all values take
  std::mt19937_64 random(1);
  std::uniform_real_distribution fraction;
  const auto keys = static_cast<double>(items);
  double hits = 0;
  ProgressBar bar("requests", 2 * items);
  for (std::uint64_t i = 0; i < 2 * items; ++i, bar.advance(1)) {  // most for a fifth of the keys
    const auto key = static_cast<std::uint64_t>(std::pow(fraction(random), 7.2) * keys);
    std::string value;
    if (!cache.get(key, value)) {
      cache.put(key, makeValue(key));
    } else if (++hits; value != makeValue(key)) {
      throw std::runtime_error("the value of " + std::to_string(key) + " came back different");
    }
  }
  bar.finish(std::to_string(std::lround(50 * hits / keys)) + " % found in the cache");
  const std::uint64_t peak = peakResidentBytes();
  ResultTable table;
  table.add("values cached", formatCount(cache.size()), formatBytes(cache.bytes()));
  table.add("memory budget", formatBytes(budget));
  table.add("peak process memory", formatBytes(peak), formatBytes(before) + " before the cache");
  table.add("beside the budget", formatBytes(peak - std::min(peak, before + budget)));
  table.print(std::cout, standardOutputColumns());
}

int main(int argc, char** argv) {
  try {
    CLI::App app("Asks a cache that outgrows its memory for values and checks what comes back.");
    std::uint64_t items = 1000000;
    std::string budget = "16M";
    app.option_defaults()->always_capture_default();
    app.add_option("--items", items, "Different values; twice as many are asked for")
        ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 40));
    app.add_option("--budget", budget, "Memory budget of the store")->check(checkedBy(parseBudget));
    app.footer("\nExit status: 0 all values were right, 1 a failure, 2 wrong arguments.");
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      return exitStatus("cache", app.exit(error) == 0 ? 0 : 2);
    }
    run(items, parseBudget(budget));
    return exitStatus("cache", 0);
  } catch (const std::exception& error) {
    std::cerr << "cache: " << error.what() << '\n';
    return 1;
  }
}
