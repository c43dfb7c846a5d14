#ifndef QRTOVERWRITEREPORT_H
#define QRTOVERWRITEREPORT_H

#include <cstdint>
#include <ostream>
#include <vector>

#include "QRTCore/QRTExport.h"
#include "QRTCore/QRTStd.h"

class QRTFixedMemoryPool;
class QRTMemoryArena;

/// Names the culprits of overwrites: goes through all headers of a pool or an arena and lists those
/// that were overwritten, each with the slot in front of it, whose user most likely wrote past its
/// end. Unlike the check of the pool itself it looks at every field, raises nothing and ends
/// nothing.
class QRT_EXPORT QRTOverWriteReport {
 public:
  /// One damaged header.
  struct Finding {
    int bin;                   ///< bin of the arena, from 0; -1 for a pool or a large block
    unsigned chunk;            ///< chunk in list order, newest first, from 0
    unsigned slot;             ///< slot in the chunk, from 0
    const void* area;          ///< caller's area after the damaged header
    bool isInUse;              ///< whether the element is handed out
    std::uint8_t header[8];    ///< the bytes found
    std::uint8_t expected[8];  ///< the bytes that belong there
    bool hasCulprit;           ///< whether there is a slot in front; not for slot 0
    const void* culpritArea;   ///< caller's area of the slot in front
    unsigned culpritBytes;     ///< its usable bytes
    bool isCulpritInUse;       ///< whether it is handed out; else it was written after free
  };

  /// Goes through a pool; one without headers has no findings. Cost: O(elements).
  explicit QRTOverWriteReport(const QRTFixedMemoryPool& pool);

  /// Goes through all bins and large blocks of an arena. Cost: O(elements).
  explicit QRTOverWriteReport(const QRTMemoryArena& arena);

  ~QRTOverWriteReport();

  /// @return how many damaged headers there are
  unsigned getCount() const;

  /// @param index  a finding, from 0, below getCount()
  /// @return the finding, valid as long as the report
  const Finding& get(unsigned index) const;

  /// Writes one paragraph per finding: where, the bytes found and expected in hex, the culprit.
  void write(std::ostream& os) const;

 private:
  void inspect(const QRTFixedMemoryPool& pool, int bin);

  QRTStd::vector<Finding> m_findings;  // in list and address order
};

#endif  // QRTOVERWRITEREPORT_H
