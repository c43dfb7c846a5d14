#ifndef QRTVIRTUALSTRINGMAP_H
#define QRTVIRTUALSTRINGMAP_H

#include <string_view>
#include <type_traits>
#include <utility>

#include "QRTVirtualStringTable.h"

/// A hash map from byte strings to values that lives in a store, keys included; else like
/// QRTVirtualHashMap, also in what it raises. Header-only on top of the library, C++17.
///
///     QRTVirtualStringMap<QRTVirtualPageItem> pages(store);
///     pages.insert(url, page);
///     if (pages.find(url, page)) ...
///
/// Keys have 0 to 4 GiB - 1 bytes of any value. Up to 255 bytes lie beside their values; a longer
/// key is an object of its own, which goes with its pair, and is read when its hash of 64 bits is
/// the wanted one.
///
/// @tparam V  values, kept as bytes: trivially copyable, aligned to at most 8, at most 64 KiB. May
///            be a QRTVirtualPageItem.
template <class V>
class QRTVirtualStringMap {
  static_assert(std::is_trivially_copyable<V>::value,
                "a QRTVirtualStringMap keeps values as bytes: they must be trivially copyable");
  static_assert(alignof(V) <= 8, "a QRTVirtualStringMap keeps values aligned to at most 8 bytes");
  static_assert(sizeof(V) <= 65536,
                "a QRTVirtualStringMap keeps values of at most 64 KiB: store larger ones by "
                "themselves and keep their QRTVirtualPageItem");

 public:
  /// Makes an empty map, which takes no room in the store.
  /// @param memMgr  keeps the pairs; must outlive the map
  explicit QRTVirtualStringMap(QRTVirtualMemoryMgr& memMgr) : m_table(memMgr, sizeof(V)) {}

  /// Frees the pairs. What cannot be read back stays in the store until the manager ends, and with
  /// it the long keys of those pairs.
  ~QRTVirtualStringMap() = default;

  /// Takes the pairs; the other map is empty then and can be used.
  QRTVirtualStringMap(QRTVirtualStringMap&&) noexcept = default;
  QRTVirtualStringMap& operator=(QRTVirtualStringMap&&) noexcept = default;
  QRTVirtualStringMap(const QRTVirtualStringMap&) = delete;
  QRTVirtualStringMap& operator=(const QRTVirtualStringMap&) = delete;

  void swap(QRTVirtualStringMap& other) noexcept { m_table.swap(other.m_table); }

  /// Looks a key up.
  /// @param value  receives the value; as it was when there is none
  /// @return whether there is one
  /// @throws QRTAssertError when the bucket or a long key cannot be read back
  /// Cost: O(bytes of the key); beyond memory one read of a page, and one of a long key
  bool find(std::string_view key, V& value) const { return m_table.find(key, &value); }

  /// @return whether the key is there. @throws as find, at the same cost
  bool contains(std::string_view key) const { return m_table.find(key, nullptr); }

  /// Adds a pair, unless there is one with the key.
  /// @return whether it was added; if not, the map is unchanged
  /// @throws QRTOutOfMemoryError when there is no room; QRTAssertError when a bucket or a long key
  ///         cannot be read back, or the key is longer than 4 GiB - 1; the map is as it was
  /// Cost: as find, and that of QRTVirtualHashMap::insert
  bool insert(std::string_view key, const V& value) {
    return m_table.insert(key, &value, QRTVirtualHashTable::eKeep);
  }

  /// Adds a pair, or gives the one with the key another value. @throws as insert, at the same cost
  void insertOrAssign(std::string_view key, const V& value) {
    m_table.insert(key, &value, QRTVirtualHashTable::eReplace);
  }

  /// Ends the pair with a key.
  /// @return whether there was one
  /// @throws QRTAssertError when the bucket or a long key cannot be read back. Needs no room.
  /// Cost: as insert
  bool erase(std::string_view key) { return m_table.erase(key); }

  /// @return how many pairs there are
  unsigned long long size() const noexcept { return m_table.size(); }
  bool empty() const noexcept { return size() == 0; }

  /// Ends all pairs. What cannot be read back raises nothing and stays in the store until the
  /// manager ends. Cost: O(size)
  /// @throws QRTAssertError from within forEach; nothing has changed
  void clear() { m_table.clear(); }

  /// Calls `call(key, value)` with a string_view and a const V& for every pair, in an order that
  /// nothing is said about. It may look things up in this map and use others and the store as it
  /// likes; what it throws ends the loop. Key and value are good during the call.
  /// @throws QRTAssertError when a bucket or a long key cannot be read back, and when the call
  ///         changes this map
  /// Cost: O(bytes of all pairs); reads ahead
  template <class Call>
  void forEach(Call call) const {
    class Caller final : public QRTVirtualStringTable::Visitor {
     public:
      explicit Caller(Call& call) : m_call(call) {}
      void visit(std::string_view key, const void* value) override {
        const QRTVirtualHashTable::Copy<V> copy(value);
        m_call(key, copy.get());
      }

     private:
      Call& m_call;
    };
    Caller caller(call);
    m_table.forEach(caller);
  }

 private:
  QRTVirtualStringTable m_table;
};

#endif  // QRTVIRTUALSTRINGMAP_H
