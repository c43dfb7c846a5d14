#ifndef QRTVIRTUALCONTAINER_H
#define QRTVIRTUALCONTAINER_H

#include <iosfwd>
#include <map>
#include <type_traits>

#include "QRTCore/QRTExport.h"
#include "QRTCore/QRTStd.h"
#include "QRTVirtualMemoryMgr.h"

class QRTVirtualPersistNode;

/// The place where stored nodes live: forwards to a memory manager, its own or a borrowed one, and
/// keeps a registry of creators, so that a node can be made of a class known only by identifier.
/// Every node records its container and reaches other nodes through `getNode`.
///
/// A container takes no lock: it is used by one thread at a time, with its manager and nodes.
class QRT_EXPORT QRTVirtualContainer {
 public:
  /// Makes a new node of one class in the given container.
  /// @return the node, pinned once, or null
  typedef QRTVirtualPersistNode* (*NodeCreator)(QRTVirtualContainer*);

  /// Makes a manager of its own, with the same arguments; see QRTVirtualMemoryMgr.
  /// @param memorySize  bytes of stored objects to hold in memory; 0 means 4,194,304
  /// @throws QRTOutOfMemoryError, or QRTStdExceptionError when the manager fails otherwise
  QRTVirtualContainer(unsigned int memorySize, unsigned int, int);

  /// The same with the size alone. Any unsigned number; a plain 0 is a null manager, see below.
  template <class Size, class = std::enable_if_t<std::is_unsigned<Size>::value>>
  explicit QRTVirtualContainer(Size memorySize) : QRTVirtualContainer(memorySize, 0U, 0) {}

  /// The same for a size that may exceed 4 GiB - 1, such as 8ULL << 30.
  template <class Size, QRTVirtualMemoryMgr::WideSize<Size> = 0>
  QRTVirtualContainer(Size memorySize, unsigned int, int)
      : QRTVirtualContainer(static_cast<QRTVirtualMemoryMgr*>(nullptr)) {
    ownMemoryMgr(static_cast<unsigned long long>(memorySize));
  }

  /// The same; only `memorySize` has an effect.
  QRTVirtualContainer(QRTVirtualMemoryMgr::mappertype, unsigned int memorySize, unsigned int, int);

  template <class Size, QRTVirtualMemoryMgr::WideSize<Size> = 0>
  QRTVirtualContainer(QRTVirtualMemoryMgr::mappertype, Size memorySize, unsigned int, int)
      : QRTVirtualContainer(memorySize, 0U, 0) {}

  /// Borrows a manager.
  /// @param memMgr  must outlive the container; with null, every operation that needs a manager
  ///                raises an assertion
  explicit QRTVirtualContainer(QRTVirtualMemoryMgr* memMgr);

  /// Deletes an own manager and so ends everything stored in it; a borrowed one stays as it is.
  /// Lets no error out. Nodes are not visited.
  virtual ~QRTVirtualContainer();

  QRTVirtualContainer(const QRTVirtualContainer&) = delete;
  QRTVirtualContainer& operator=(const QRTVirtualContainer&) = delete;

  /// Registers the creator of a node class. The first one registered for a class stays.
  /// @param classId  class identifier, as the class's `getClassId` gives it
  /// @param creator  the class's `create`; null is kept and makes `createNode` answer null
  /// @throws std::bad_alloc; nothing has changed then
  /// Cost: O(log classes)
  void registerNodeCreator(unsigned int classId,
                           QRTVirtualPersistNode* (*creator)(QRTVirtualContainer*));

  /// Makes a node of a registered class.
  /// @param classId  identifier under which the creator was registered
  /// @return the node, pinned once, for which the caller owes a dismiss; null when nothing, or
  ///         null, is registered for the identifier
  /// @throws QRTOutOfMemoryError when the creator gives null, and whatever the creator raises
  /// Cost: O(log classes) plus the creator, which may write pages to disk
  QRTVirtualPersistNode* createNode(unsigned int classId);

  /// Makes a node of a class that has to be registered: `createNode`, but a class that is not ends
  /// in an assertion that names its identifier. QRTVirtualNodeClass::make is the way to call it.
  /// @param classId  identifier under which the creator was registered
  /// @return the node, never null, pinned once, for which the caller owes a dismiss
  /// @throws QRTAssertError when nothing, or null, is registered for the identifier; what
  ///         `createNode` throws
  /// Cost: as `createNode`
  QRTVirtualPersistNode* createRegisteredNode(unsigned int classId);

  /// Pins the node at an offset. What lives there is not checked: the caller knows its class.
  /// @param offset  page offset of a node; 0 gives null
  /// @return the node, for which the caller owes a dismiss; null, with nothing owed, when the
  ///         offset names nothing or the node cannot be read back
  /// @throws QRTAssertError without a manager, unless the offset is 0
  /// Cost: as QRTVirtualMemoryMgr::getAddress
  QRTVirtualPersistNode* getNode(unsigned long long offset);

  /// Pins the node that an item names, as above. The item's size is not looked at.
  QRTVirtualPersistNode* getNode(QRTVirtualPageItem& item);

  /// The operations below hand their arguments to the manager's operation of the same name and give
  /// its result. Each raises QRTAssertError when there is no manager.
  void* alloc(unsigned int size, QRTVirtualPageItem& item);
  void free(QRTVirtualPageItem& item);
  void dismiss(unsigned long long offset);
  void dismiss(QRTVirtualPageItem& item);
  void* getAddress(QRTVirtualPageItem& item, int mode);

  /// @return the manager, which stays the container's; null when a null one was borrowed
  QRTVirtualMemoryMgr* getMemoryMgr() const { return m_memMgr; }

  /// Writes both sections of the manager's dump; see QRTVirtualMemoryMgr::dumpMapper.
  /// @param os  receives the text
  /// @throws QRTAssertError without a manager
  void dumpMapper(std::ostream& os);

  /// Kept for hosts that call it; changes made through a pin are kept anyway. Does nothing.
  void dirty(QRTVirtualPageItem& item);

  /// Kept for hosts that call it. Does nothing.
  void unMap(unsigned long long offset);

 private:
  void ownMemoryMgr(unsigned long long memorySize);
  void* getAddress(unsigned long long offset, int mode);

  QRTStd::map<unsigned int, NodeCreator> m_nodeCreators;  // creators by class identifier
  int m_ownsMemMgr;                                       // whether the manager goes with this
  QRTVirtualMemoryMgr* m_memMgr;                          // the manager everything goes through
};

#endif  // QRTVIRTUALCONTAINER_H
