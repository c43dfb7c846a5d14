#ifndef QRTVIRTUALHASHMAP_H
#define QRTVIRTUALHASHMAP_H

#include <functional>
#include <type_traits>
#include <utility>

#include "QRTVirtualHashSeed.h"
#include "QRTVirtualHashTable.h"

/// A hash map whose pairs live in a store, as many as the store can hold: the process keeps some
/// hundred bytes for it, however large it is. Header-only on top of the library, C++17.
///
///     QRTVirtualHashMap<unsigned int, Account> accounts(store);
///     accounts.insert(number, account);
///     if (accounts.find(number, account)) ...
///
/// It grows by one bucket at a time and never moves everything at once. A random seed goes into the
/// hash, so that strangers who choose keys cannot choose such that meet. The pairs go with the map:
/// objects that values name, if they are page items, are the program's to free.
///
/// Every operation but the destructor may raise what it says of QRTOutOfMemoryError, when there is
/// no room, and QRTAssertError that names the bucket, when one cannot be read back; the map is as
/// it was then. So it is when Hash or Equal raise something. Used by one thread at a time, with its
/// manager.
///
/// @tparam K      keys, kept as bytes: trivially copyable, aligned to at most 8
/// @tparam V      values, likewise; with the key at most 64 KiB. May be a QRTVirtualPageItem.
/// @tparam Hash   a hash of keys, the same for equal ones; need not be a good one
/// @tparam Equal  tells whether two keys are equal
template <class K, class V, class Hash = std::hash<K>, class Equal = std::equal_to<K>>
class QRTVirtualHashMap {
  static_assert(std::is_trivially_copyable<K>::value && std::is_trivially_copyable<V>::value,
                "a QRTVirtualHashMap keeps keys and values as bytes: both must be trivially "
                "copyable");
  static_assert(alignof(K) <= 8 && alignof(V) <= 8,
                "a QRTVirtualHashMap keeps keys and values aligned to at most 8 bytes");
  static_assert(sizeof(K) + sizeof(V) <= 65536,
                "a QRTVirtualHashMap keeps pairs of at most 64 KiB: store larger values by "
                "themselves and keep their QRTVirtualPageItem");

 public:
  /// Makes an empty map, which takes no room in the store.
  /// @param memMgr  keeps the pairs; must outlive the map
  explicit QRTVirtualHashMap(QRTVirtualMemoryMgr& memMgr, Hash hash = Hash(), Equal equal = Equal())
      : m_keys(std::move(hash), std::move(equal)), m_table(memMgr, sizeof(V), sizeof(K)) {}

  /// Frees the pairs. What cannot be read back stays in the store until the manager ends.
  ~QRTVirtualHashMap() = default;

  /// Takes the pairs; the other map is empty then and can be used.
  QRTVirtualHashMap(QRTVirtualHashMap&& other) noexcept = default;
  QRTVirtualHashMap& operator=(QRTVirtualHashMap&& other) noexcept {
    QRTVirtualHashMap(std::move(other)).swap(*this);
    return *this;
  }
  QRTVirtualHashMap(const QRTVirtualHashMap&) = delete;
  QRTVirtualHashMap& operator=(const QRTVirtualHashMap&) = delete;

  void swap(QRTVirtualHashMap& other) noexcept {
    std::swap(m_keys, other.m_keys);
    m_table.swap(other.m_table);
  }

  /// Looks a key up.
  /// @param value  receives the value; as it was when there is none
  /// @return whether there is one
  /// @throws QRTAssertError when the bucket cannot be read back
  /// Cost: O(1); beyond memory one read of a page
  bool find(const K& key, V& value) const {
    return m_table.find(m_keys.hash(key), m_keys, &key, &value);
  }

  /// @return whether the key is there. @throws as find, at the same cost
  bool contains(const K& key) const {
    return m_table.find(m_keys.hash(key), m_keys, &key, nullptr);
  }

  /// Adds a pair, unless there is one with the key.
  /// @return whether it was added; if not, the map is unchanged
  /// @throws QRTOutOfMemoryError, QRTAssertError as said above
  /// Cost: O(1) on average; beyond memory one read, and one more for the bucket that is split by
  /// every twentieth pair or so; may write pages
  bool insert(const K& key, const V& value) {
    return m_table.insert(m_keys.hash(key), m_keys, &key, &key, sizeof(K), &value,
                          QRTVirtualHashTable::eKeep);
  }

  /// Adds a pair, or gives the one with the key another value. @throws as insert, at the same cost
  void insertOrAssign(const K& key, const V& value) {
    m_table.insert(m_keys.hash(key), m_keys, &key, &key, sizeof(K), &value,
                   QRTVirtualHashTable::eReplace);
  }

  /// Ends the pair with a key.
  /// @return whether there was one
  /// @throws QRTAssertError when the bucket cannot be read back. Needs no room.
  /// Cost: as insert
  bool erase(const K& key) { return m_table.erase(m_keys.hash(key), m_keys, &key, nullptr); }

  /// @return how many pairs there are
  unsigned long long size() const noexcept { return m_table.size(); }
  bool empty() const noexcept { return size() == 0; }

  /// Ends all pairs. What cannot be read back raises nothing and stays in the store until the
  /// manager ends. Cost: O(size)
  /// @throws QRTAssertError from within forEach; nothing has changed
  void clear() { m_table.clear(nullptr); }

  /// Calls `call(key, value)` for every pair, in an order that nothing is said about. It may look
  /// things up in this map and use others and the store as it likes; what it throws ends the loop.
  /// The references are good during the call.
  /// @throws QRTAssertError when a bucket cannot be read back, and when the call changes this map
  /// Cost: O(size); reads ahead
  template <class Call>
  void forEach(Call call) const {
    Caller<Call> caller(call);
    m_table.forEach(caller);
  }

 private:
  template <class T>
  using Copy = QRTVirtualHashTable::Copy<T>;

  class Keys final : public QRTVirtualHashTable::Keys {
   public:
    Keys(Hash hash, Equal equal) : m_hash(std::move(hash)), m_equal(std::move(equal)) {}

    unsigned long long hash(const K& key) const {
      if constexpr (std::is_integral<K>::value && std::is_same<Hash, std::hash<K>>::value) {
        // All 64 bits, which std::hash does not look at in 32-bit programs.
        return m_seed.ofNumber(static_cast<unsigned long long>(key));
      } else {
        return m_seed.ofNumber(m_hash(key));
      }
    }
    unsigned long long hash(const void* key, unsigned int) const override {
      return hash(Copy<K>(key).get());
    }
    bool matches(const void* wanted, const void* key, unsigned int) const override {
      return m_equal(Copy<K>(key).get(), *static_cast<const K*>(wanted));
    }

   private:
    QRTVirtualHashSeed m_seed;
    Hash m_hash;
    Equal m_equal;
  };

  template <class Call>
  class Caller final : public QRTVirtualHashTable::Visitor {
   public:
    explicit Caller(Call& call) : m_call(call) {}
    void visit(const void* value, const void* key, unsigned int) override {
      const Copy<K> keyCopy(key);
      const Copy<V> valueCopy(value);
      m_call(keyCopy.get(), valueCopy.get());
    }

   private:
    Call& m_call;
  };

  Keys m_keys;
  QRTVirtualHashTable m_table;
};

#endif  // QRTVIRTUALHASHMAP_H
