#ifndef QRTVIRTUALPAGEITEMPOOL_H
#define QRTVIRTUALPAGEITEMPOOL_H

#include <list>
#include <map>
#include <utility>

#include "QRTCore/QRTExport.h"
#include "QRTCore/QRTStd.h"
#include "QRTVirtualPageItem.h"

class QRTVirtualMemoryMgr;

/// Lets equal small byte strings share one stored object. The pool remembers a bounded number of
/// byte strings and forgets the least recently used one when the bound is passed; it owns no stored
/// object, so forgetting only ends the sharing and items handed out stay valid.
///
/// Used by one thread at a time, together with its manager.
class QRT_EXPORT QRTVirtualPageItemPool {
 public:
  /// A byte string as the pool looks it up.
  struct PoolEntry {
    const void* data;   ///< the bytes
    unsigned int size;  ///< how many
  };

  /// Orders byte strings by length, then by their bytes as unsigned values.
  struct cmp_void {
    /// @return whether `a` sorts before `b`
    QRT_EXPORT bool operator()(const PoolEntry& a, const PoolEntry& b) const noexcept;
  };

  /// Entries a pool keeps unless told otherwise.
  static const unsigned int kDefaultPoolSize = 1000;

  /// Makes an empty pool that keeps 1,000 entries.
  /// @param memMgr  the manager to allocate in, not owned; it must outlive the calls of `set`
  explicit QRTVirtualPageItemPool(QRTVirtualMemoryMgr* memMgr);

  /// Makes an empty pool.
  /// @param memMgr    the manager to allocate in, not owned; it must outlive the calls of `set`
  /// @param poolSize  entries to keep; with 0 nothing is ever shared
  QRTVirtualPageItemPool(QRTVirtualMemoryMgr* memMgr, unsigned int poolSize);

  /// Forgets every entry; stored objects stay.
  ~QRTVirtualPageItemPool();

  QRTVirtualPageItemPool(const QRTVirtualPageItemPool&) = delete;
  QRTVirtualPageItemPool& operator=(const QRTVirtualPageItemPool&) = delete;

  /// Makes an item name an object that holds the given bytes: one remembered from an earlier call,
  /// or a new one that is remembered from now on. The object is left unpinned, and since others may
  /// share it, it is neither changed nor freed by its holders.
  /// @param data  the bytes, outside of the object that `item` names; null does nothing
  /// @param size  how many; 0 does nothing
  /// @param item  receives the object. When the bytes are remembered, what it named before is
  ///              simply dropped; otherwise it goes to `QRTVirtualMemoryMgr::alloc`, so it is empty
  ///              or names an object that nobody else holds.
  /// @throws QRTThrowable what the manager's `alloc` raises, with `item` as `alloc` leaves it;
  ///         QRTOutOfMemoryError when the pool's own copy of the bytes cannot be made, with `item`
  ///         naming the new object, still pinned; std::bad_alloc when the entry cannot be made,
  ///         with `item` naming the new object, unpinned. The pool is unchanged in every case.
  /// Cost: O(log entries) comparisons; a new object may write pages to disk.
  void set(const void* data, unsigned int size, QRTVirtualPageItem& item);

  /// Forgets every entry. Stored objects and items handed out are not touched.
  /// Cost: O(entries)
  void reset();

  /// Sets how many entries the pool keeps. A pool above the new bound does not shrink, it only
  /// stops growing until `reset` empties it.
  /// @param poolSize  entries to keep
  void setPoolSize(unsigned int poolSize);

 private:
  using EntryList = QRTStd::list<std::pair<PoolEntry, QRTVirtualPageItem>>;

  QRTStd::map<PoolEntry, EntryList::iterator, cmp_void> m_entryMap;  // finds the entry of a string
  EntryList m_entryList;          // every entry once, most recently used first; keys made by malloc
  QRTVirtualMemoryMgr* m_memMgr;  // the manager to allocate in, not owned
  unsigned int m_poolSize;        // entries to keep
};

#endif  // QRTVIRTUALPAGEITEMPOOL_H
