#include "QRTVirtualStringTable.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>

#include "QRTCore/QRTAssert.h"
#include "QRTVirtualPin.h"

// A key as the table keeps it:
//
//     short     byte 0      0
//               byte 1...   the key
//     long      byte 0      1
//               byte 1..8   its hash
//               byte 9..16  offset of the object that is the key
//               byte 17..20 its length
namespace {

constexpr unsigned char kShort = 0;
constexpr unsigned char kLong = 1;
constexpr std::uint32_t kLongBytes = 21;

struct LongKey {
  std::uint64_t hash = 0;
  std::uint64_t offset = 0;
  std::uint32_t length = 0;

  void write(unsigned char* to) const {
    to[0] = kLong;
    std::memcpy(to + 1, &hash, sizeof hash);
    std::memcpy(to + 9, &offset, sizeof offset);
    std::memcpy(to + 17, &length, sizeof length);
  }
  static LongKey read(const unsigned char* from) {
    LongKey key;
    std::memcpy(&key.hash, from + 1, sizeof key.hash);
    std::memcpy(&key.offset, from + 9, sizeof key.offset);
    std::memcpy(&key.length, from + 17, sizeof key.length);
    return key;
  }
};

// A key that an operation was given.
struct Wanted {
  std::string_view text;
  std::uint64_t hash;
};

QRTVirtualPin<const char> pinKey(QRTVirtualMemoryMgr& memMgr, const LongKey& key) {
  QRTVirtualPin<const char> pin(memMgr, key.offset);
  if (!pin) {
    char text[QRTThrowable::kTextCapacity];
    std::snprintf(text, sizeof text, "a key of a map, at offset %llu, cannot be read back: %s",
                  static_cast<unsigned long long>(key.offset), memMgr.getLastStoreError());
    QRT_THROW(QRTAssertError(0, text));
  }
  return pin;
}

}  // namespace

class QRTVirtualStringTable::Keys final : public QRTVirtualHashTable::Keys {
 public:
  explicit Keys(const QRTVirtualStringTable& table)
      : m_memMgr(table.m_table.getMemoryMgr()), m_seed(table.m_seed) {}

  unsigned long long hash(const void* key, unsigned int bytes) const override {
    const auto* const from = static_cast<const unsigned char*>(key);
    return from[0] == kShort ? m_seed.ofBytes(from + 1, bytes - 1) : LongKey::read(from).hash;
  }

  bool matches(const void* wanted, const void* key, unsigned int bytes) const override {
    const auto& [text, hash] = *static_cast<const Wanted*>(wanted);
    const auto* const from = static_cast<const unsigned char*>(key);
    if (from[0] == kShort) {
      return text == std::string_view(static_cast<const char*>(key) + 1, bytes - 1);
    }
    const LongKey found = LongKey::read(from);
    return found.hash == hash && found.length == text.size() &&
           text == std::string_view(pinKey(m_memMgr, found).get(), text.size());
  }

 private:
  QRTVirtualMemoryMgr& m_memMgr;
  const QRTVirtualHashSeed& m_seed;
};

// Frees the long keys of records that end.
class QRTVirtualStringTable::KeyEnder final : public QRTVirtualHashTable::Visitor {
 public:
  explicit KeyEnder(QRTVirtualMemoryMgr& memMgr) : m_memMgr(memMgr) {}

  void visit(const void*, const void* key, unsigned int) override {
    const auto* const from = static_cast<const unsigned char*>(key);
    if (from[0] == kLong) {
      const LongKey found = LongKey::read(from);
      QRTVirtualPageItem item(found.offset, found.length);
      m_memMgr.free(item);  // NOLINT(clang-analyzer-unix.Malloc): not the heap's
    }
  }

 private:
  QRTVirtualMemoryMgr& m_memMgr;
};

QRTVirtualStringTable::QRTVirtualStringTable(QRTVirtualMemoryMgr& memMgr, unsigned int valueBytes)
    : m_table(memMgr, valueBytes, 0) {}

QRTVirtualStringTable::~QRTVirtualStringTable() {
  KeyEnder ender(m_table.getMemoryMgr());
  m_table.freeAll(&ender);
}

QRTVirtualStringTable& QRTVirtualStringTable::operator=(QRTVirtualStringTable&& other) noexcept {
  QRTVirtualStringTable(std::move(other)).swap(*this);
  return *this;
}

void QRTVirtualStringTable::swap(QRTVirtualStringTable& other) noexcept {
  std::swap(m_seed, other.m_seed);
  m_table.swap(other.m_table);
}

bool QRTVirtualStringTable::find(std::string_view key, void* value) const {
  const Wanted wanted{key, m_seed.ofBytes(key.data(), key.size())};
  return m_table.find(wanted.hash, Keys(*this), &wanted, value);
}

// A long key gets its object before the table hears of it, and loses it again if that fails.
bool QRTVirtualStringTable::insert(std::string_view key, const void* value, Present present) {
  QRT_ASSERT_NAMED(key.size() <= std::numeric_limits<std::uint32_t>::max(),
                   "a key of a QRTVirtualStringMap has at most 4 GiB - 1 bytes");
  const Wanted wanted{key, m_seed.ofBytes(key.data(), key.size())};
  const Keys keys(*this);
  if (key.size() <= kShortKey) {
    unsigned char kept[1 + kShortKey];
    kept[0] = kShort;
    key.copy(reinterpret_cast<char*>(kept + 1), key.size());
    return m_table.insert(wanted.hash, keys, &wanted, kept,
                          static_cast<std::uint32_t>(1 + key.size()), value, present);
  }
  QRTVirtualMemoryMgr& memMgr = m_table.getMemoryMgr();
  QRTVirtualPageItem object;
  const auto length = static_cast<std::uint32_t>(key.size());
  if (!m_table.find(wanted.hash, keys, &wanted, nullptr)) {
    key.copy(QRTVirtualPin<char>::alloc(memMgr, length, object).get(), length);
  }
  unsigned char kept[kLongBytes];
  LongKey{wanted.hash, object.getOffset(), length}.write(kept);
  try {
    return m_table.insert(wanted.hash, keys, &wanted, kept, kLongBytes, value, present);
  } catch (...) {
    memMgr.free(object);
    throw;
  }
}

bool QRTVirtualStringTable::erase(std::string_view key) {
  const Wanted wanted{key, m_seed.ofBytes(key.data(), key.size())};
  KeyEnder ender(m_table.getMemoryMgr());
  return m_table.erase(wanted.hash, Keys(*this), &wanted, &ender);
}

void QRTVirtualStringTable::forEach(Visitor& visitor) const {
  class Reader final : public QRTVirtualHashTable::Visitor {
   public:
    Reader(QRTVirtualMemoryMgr& memMgr, QRTVirtualStringTable::Visitor& visitor)
        : m_memMgr(memMgr), m_visitor(visitor) {}
    void visit(const void* value, const void* key, unsigned int bytes) override {
      const auto* const from = static_cast<const char*>(key);
      if (static_cast<unsigned char>(from[0]) == kShort) {
        m_visitor.visit({from + 1, bytes - 1}, value);
      } else {
        const LongKey found = LongKey::read(reinterpret_cast<const unsigned char*>(from));
        const auto pin = pinKey(m_memMgr, found);
        m_visitor.visit({pin.get(), found.length}, value);
      }
    }

   private:
    QRTVirtualMemoryMgr& m_memMgr;
    QRTVirtualStringTable::Visitor& m_visitor;
  };
  Reader reader(m_table.getMemoryMgr(), visitor);
  m_table.forEach(reader);
}

void QRTVirtualStringTable::clear() {
  KeyEnder ender(m_table.getMemoryMgr());
  m_table.clear(&ender);
}
