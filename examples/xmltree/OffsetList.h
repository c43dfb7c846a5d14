#ifndef EXAMPLES_XMLTREE_OFFSETLIST_H
#define EXAMPLES_XMLTREE_OFFSETLIST_H

#include <cstdint>
#include <functional>
#include <vector>

#include "QRTVirtualMemoryMgr.h"

namespace example {

/// Offsets of nodes, kept in the store themselves, so that any number of them fits.
class OffsetList {
 public:
  /// @param manager  keeps the list; must outlive it
  explicit OffsetList(QRTVirtualMemoryMgr& manager) : m_manager(manager) {}
  ~OffsetList();

  OffsetList(const OffsetList&) = delete;
  OffsetList& operator=(const OffsetList&) = delete;

  /// @throws QRTOutOfMemoryError when the store is full
  void add(std::uint64_t offset);

  std::uint64_t size() const { return m_size; }

  /// Visits the offsets in the order in which they were added.
  /// @throws std::runtime_error when the store cannot read something back
  void forEach(const std::function<void(std::uint64_t)>& visit);

 private:
  static constexpr unsigned int kPerBlock = 1024;

  QRTVirtualMemoryMgr& m_manager;            // not owned
  std::vector<QRTVirtualPageItem> m_blocks;  // blocks of kPerBlock offsets, owned
  std::uint64_t m_size = 0;                  // offsets in the list
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_OFFSETLIST_H
