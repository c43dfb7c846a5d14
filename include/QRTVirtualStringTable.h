#ifndef QRTVIRTUALSTRINGTABLE_H
#define QRTVIRTUALSTRINGTABLE_H

#include <string_view>

#include "QRTCore/QRTExport.h"
#include "QRTVirtualHashSeed.h"
#include "QRTVirtualHashTable.h"

/// What stands under QRTVirtualStringMap, for values of any one size: a table whose keys are byte
/// strings. Programs use the map, whose contract this is.
///
/// Short keys lie in the buckets. Long ones are objects of their own, of which a bucket has the
/// offset and the whole hash: only a key whose hash fits is ever read.
class QRT_EXPORT QRTVirtualStringTable {
 public:
  using Present = QRTVirtualHashTable::Present;

  /// What forEach calls.
  class Visitor {
   public:
    /// The key and the value's bytes are good during the call.
    virtual void visit(std::string_view key, const void* value) = 0;

   protected:
    Visitor() = default;
    Visitor(const Visitor&) = default;
    Visitor& operator=(const Visitor&) = default;
    ~Visitor() = default;
  };

  /// Keys up to this length lie in the buckets.
  static constexpr unsigned int kShortKey = 255;

  /// @param memMgr      keeps keys and values; must outlive the table
  /// @param valueBytes  bytes of every value, up to 65,000
  QRTVirtualStringTable(QRTVirtualMemoryMgr& memMgr, unsigned int valueBytes);
  ~QRTVirtualStringTable();

  /// Takes the pairs; the other table is empty then and can be used.
  QRTVirtualStringTable(QRTVirtualStringTable&&) noexcept = default;
  QRTVirtualStringTable& operator=(QRTVirtualStringTable&& other) noexcept;
  QRTVirtualStringTable(const QRTVirtualStringTable&) = delete;
  QRTVirtualStringTable& operator=(const QRTVirtualStringTable&) = delete;
  void swap(QRTVirtualStringTable& other) noexcept;

  bool find(std::string_view key, void* value) const;
  bool insert(std::string_view key, const void* value, Present present);
  bool erase(std::string_view key);
  void forEach(Visitor& visitor) const;
  void clear();
  unsigned long long size() const noexcept { return m_table.size(); }

 private:
  class Keys;
  class KeyEnder;

  QRTVirtualHashSeed m_seed;
  QRTVirtualHashTable m_table;
};

#endif  // QRTVIRTUALSTRINGTABLE_H
