#ifndef QRTVIRTUALVECTORSORT_H
#define QRTVIRTUALVECTORSORT_H

#include <algorithm>
#include <cstring>
#include <utility>

#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualPageItem.h"
#include "QRTVirtualPin.h"

template <class T>
class QRTVirtualVector;

/// How a QRTVirtualVector sorts: an external merge sort over the store itself.
///  1. As many elements as a buffer holds are sorted at a time, which makes a run of them.
///  2. Up to 64 runs are merged into a longer one, until there is one left.
/// Each step reads the vector and writes another one, which takes its place when it is complete:
/// whatever fails on the way, no element is lost.
///
/// Takes, while it runs: in the store room for a second copy of the elements; of the memory size a
/// quarter for the buffer, up to 64 MiB, and a block for each of the runs that are merged; of the
/// process some 5 KiB on the stack. Elements that are larger than these shares still get a buffer
/// of one, and two runs.
template <class T, class Compare>
class QRTVirtualVectorSort {
 public:
  /// @param vector  what is to be sorted
  /// @param before  whether one element belongs before another
  QRTVirtualVectorSort(QRTVirtualVector<T>& vector, Compare& before)
      : m_vector(vector),
        m_before(before),
        m_shareBlocks(static_cast<unsigned int>(
            std::min(vector.getMemoryMgr().getMemorySize() / 4, kLargestShare) /
            Vector::kBlockBytes)),
        m_mergedTogether(std::min(kMostMerged, std::max(2U, m_shareBlocks))) {}

  QRTVirtualVectorSort(const QRTVirtualVectorSort&) = delete;
  QRTVirtualVectorSort& operator=(const QRTVirtualVectorSort&) = delete;

  /// Frees the buffer.
  ~QRTVirtualVectorSort() {
    m_buffer.reset();
    m_vector.getMemoryMgr().free(m_bufferItem);
  }

  /// Sorts. @throws what QRTVirtualVector::sort throws
  void run() {
    if (m_vector.size() < 2) {
      return;
    }
    // Runs are whole blocks, so that merging reads none twice.
    const unsigned int most = std::max(1U, m_shareBlocks) * Vector::kPerBlock;
    unsigned long long length = std::min<unsigned long long>(most, m_vector.size());
    m_buffer = QRTVirtualPin<T>::alloc(m_vector.getMemoryMgr(),
                                       static_cast<unsigned int>(length * sizeof(T)), m_bufferItem);
    makeRuns(length);
    for (; length < m_vector.size(); length *= m_mergedTogether) {
      mergeRuns(length);
    }
  }

 private:
  using Vector = QRTVirtualVector<T>;
  using Cursor = typename Vector::const_iterator;

  // With runs of 64 MiB, 64 at a time, 4 GiB are sorted in one merge and 256 GiB in two.
  static constexpr unsigned long long kLargestShare = 64U << 20;
  static constexpr unsigned int kMostMerged = 64;

  // Step 1: sorts the elements, `length` at a time.
  void makeRuns(unsigned long long length) {
    Vector runs(m_vector.getMemoryMgr());
    T* const buffer = m_buffer.get();
    for (unsigned long long at = 0; at < m_vector.size(); at += length) {
      const unsigned long long count = std::min(length, m_vector.size() - at);
      m_vector.read(at, buffer, count);
      std::sort(buffer, buffer + count, m_before);
      runs.append(buffer, count);
    }
    m_vector.swap(runs);
  }

  // Step 2: makes one run of as many as can be merged together, throughout the vector.
  void mergeRuns(unsigned long long length) {
    Vector merged(m_vector.getMemoryMgr());
    for (unsigned long long at = 0; at < m_vector.size(); at += length * m_mergedTogether) {
      mergeInto(merged, at, length);
    }
    m_vector.swap(merged);
  }

  // Merges the runs from an element on. They meet in a tournament: each inner node of a tree keeps
  // the run that lost there, and when the winner has given its element away only its own way up is
  // played again. Leaf r of n is number n + r, the root 1, the node above i number i / 2.
  void mergeInto(Vector& merged, unsigned long long at, unsigned long long length) {
    const Vector& vector = m_vector;
    Cursor runs[kMostMerged];
    unsigned int losers[kMostMerged];
    unsigned int n = 0;
    for (; n < m_mergedTogether && at < vector.size(); ++n) {
      const unsigned long long end = at + std::min(length, vector.size() - at);
      runs[n] = Cursor(vector, at, end);
      at = end;
    }

    T* const buffer = m_buffer.get();
    unsigned int filled = 0;
    unsigned int winner = play(1, n, runs, losers);
    while (runs[winner] != Cursor()) {
      Vector::copy(buffer + filled, &*runs[winner], 1);
      if (++filled == Vector::kPerBlock) {
        merged.append(buffer, filled);
        filled = 0;
      }
      ++runs[winner];
      for (unsigned int node = (n + winner) / 2; node != 0; node /= 2) {
        if (wins(runs[losers[node]], runs[winner])) {
          std::swap(losers[node], winner);
        }
      }
    }
    merged.append(buffer, filled);
  }

  // Plays everything below a node. @return the run that won
  unsigned int play(unsigned int node, unsigned int n, const Cursor* runs, unsigned int* losers) {
    if (node >= n) {
      return node - n;
    }
    unsigned int winner = play(2 * node, n, runs, losers);
    losers[node] = play(2 * node + 1, n, runs, losers);
    if (wins(runs[losers[node]], runs[winner])) {
      std::swap(losers[node], winner);
    }
    return winner;
  }

  // Whether the next element of one run belongs before that of another. A run at its end loses.
  bool wins(const Cursor& one, const Cursor& other) {
    if (one == Cursor() || other == Cursor()) {
      return one != Cursor();
    }
    return m_before(*one, *other);
  }

  Vector& m_vector;                 // what is sorted
  Compare& m_before;                // its order
  unsigned int m_shareBlocks;       // blocks that each of the two steps may take of the memory size
  unsigned int m_mergedTogether;    // runs that are merged at a time
  QRTVirtualPageItem m_bufferItem;  // room for a run, an object of the store
  QRTVirtualPin<T> m_buffer;        // pinned while the sort runs
};

#endif  // QRTVIRTUALVECTORSORT_H
