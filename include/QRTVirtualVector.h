#ifndef QRTVIRTUALVECTOR_H
#define QRTVIRTUALVECTOR_H

#include <algorithm>
#include <cstring>
#include <functional>
#include <type_traits>
#include <utility>

#include "QRTCore/QRTAssert.h"
#include "QRTVirtualBlocks.h"
#include "QRTVirtualPin.h"
#include "QRTVirtualVectorIterator.h"
#include "QRTVirtualVectorSort.h"

/// An array of plain elements that lives in a store, for what outgrows the process: the handles of
/// ten million objects, records to be sorted, an index. Header-only, C++17.
///
///     QRTVirtualVector<Record> records(manager);
///     records.push_back(record);
///     records.set(17, other);
///     for (const Record& each : std::as_const(records)) ...
///     records.sort([](const Record& a, const Record& b) { return a.key < b.key; });
///
/// Elements stand in blocks of 4 KiB, or of one element when it is larger than that, which are
/// found through a directory that is stored as well: the process keeps nothing but this object,
/// whatever the size. An element stays where it is in its block when the vector grows, so that pins
/// stay good; they die with an element's block, which pop_back, resize, clear, sort and the end of
/// the vector may free.
///
/// Where this page says that room can be refused, QRTOutOfMemoryError is raised and nothing has
/// changed. Whatever looks at elements may have to read a block back, or a node of the directory:
/// when that fails, QRTAssertError names the block, and nothing has changed but what the operation
/// says. Looking at elements costs O(1): some nanoseconds in memory, else a read for the block and,
/// rarely, for its directory.
///
/// The vector owns its blocks: they end with it. It is used by one thread at a time, with all that
/// works in its store.
/// @tparam T  trivially copyable, aligned to 8 bytes at most
template <class T>
class QRTVirtualVector {
  static_assert(std::is_trivially_copyable<T>::value && !std::is_const<T>::value,
                "QRTVirtualVector keeps elements as bytes: their class must be trivially copyable");
  static_assert(alignof(T) <= 8,
                "QRTVirtualVector aligns elements to 8 bytes: their class must not ask for more");
  static_assert(static_cast<unsigned long long>(sizeof(T)) <= 0xFFFFFFFFULL,
                "an element is at most what one object can hold");

 public:
  using value_type = T;
  using iterator = QRTVirtualVectorIterator<T>;
  using const_iterator = QRTVirtualVectorIterator<const T>;

  /// Makes an empty vector, which stores nothing yet.
  /// @param memMgr  the store; must outlive the vector
  explicit QRTVirtualVector(QRTVirtualMemoryMgr& memMgr) noexcept : m_blocks(memMgr, kBlockBytes) {}

  /// Takes another vector over, its store included; the other one is empty then and can be used.
  /// Iterators of both are not to be used any more, pins stay good.
  QRTVirtualVector(QRTVirtualVector&& other) noexcept
      : m_blocks(std::move(other.m_blocks)), m_size(other.m_size) {
    other.m_size = 0;
    ++other.m_changes;
  }
  /// The same. What this vector held is freed.
  QRTVirtualVector& operator=(QRTVirtualVector&& other) noexcept {
    QRTVirtualVector(std::move(other)).swap(*this);
    return *this;
  }
  QRTVirtualVector(const QRTVirtualVector&) = delete;
  QRTVirtualVector& operator=(const QRTVirtualVector&) = delete;

  /// Frees all that the vector holds.
  ~QRTVirtualVector() = default;

  /// Exchanges everything, the stores included. Cost: O(1)
  void swap(QRTVirtualVector& other) noexcept {
    m_blocks.swap(other.m_blocks);
    std::swap(m_size, other.m_size);
    ++m_changes;
    ++other.m_changes;
  }
  friend void swap(QRTVirtualVector& a, QRTVirtualVector& b) noexcept { a.swap(b); }

  /// @return elements there are
  unsigned long long size() const noexcept { return m_size; }
  /// @return whether there are none
  bool empty() const noexcept { return m_size == 0; }
  /// @return the store
  QRTVirtualMemoryMgr& getMemoryMgr() const noexcept { return m_blocks.getMemoryMgr(); }

  /// Adds an element at the end. Room can be refused.
  /// Cost: O(1), some ten nanoseconds; may write pages to disk
  void push_back(const T& value) {
    const Place place = placeOf(m_size);
    growTo(place.block);
    store(place, value);
    ++m_size;
    ++m_changes;
  }

  /// Adds elements at the end. Room can be refused.
  /// @param from  the elements; null only without any
  /// @param n     how many
  /// Cost: O(n); may write pages to disk
  void append(const T* from, unsigned long long n) {
    QRT_ASSERT_NAMED(from || n == 0, "no elements to append");
    checkGrowth(n);
    Growth growth(m_blocks);
    for (unsigned long long done = 0; done < n;) {
      const Place place = placeOf(m_size + done);
      growTo(place.block);
      const unsigned int count = fitting(place.index, n - done);
      copy(pinBlock(place.block).get() + place.index, from + done, count);
      done += count;
    }
    growth.keep();
    m_size += n;
    ++m_changes;
  }

  /// @param i  number of the element, below `size`
  /// @return a copy of the element
  /// @throws QRTAssertError also for a number that is not below `size`, as all that follow do
  T get(unsigned long long i) const {
    QRT_ASSERT_NAMED(i < m_size, "an element beyond the end");
    const Place place = placeOf(i);
    const void* const block = m_blocks.find(place.block, 0);
    return block != nullptr ? static_cast<const T*>(block)[place.index]
                            : pinBlock(place.block).get()[place.index];
  }

  /// Replaces an element.
  void set(unsigned long long i, const T& value) {
    QRT_ASSERT_NAMED(i < m_size, "an element beyond the end");
    store(placeOf(i), value);
  }

  /// Copies elements out. When a block cannot be read back, those before it have been copied.
  /// @param i   number of the first element; i + n is at most `size`
  /// @param to  room for `n` elements; null only for none
  /// Cost: O(n)
  void read(unsigned long long i, T* to, unsigned long long n) const {
    checkRange(i, n, to);
    while (n != 0) {
      const Place place = placeOf(i);
      const unsigned int count = fitting(place.index, n);
      copy(to, pinBlock(place.block).get() + place.index, count);
      i += count;
      to += count;
      n -= count;
    }
  }

  /// Replaces elements. When a block cannot be read back, nothing has changed, or of more than 64
  /// blocks only what lies in whole groups of 64 before it.
  /// @param i     number of the first element; i + n is at most `size`
  /// @param from  the elements; null only without any
  /// Cost: O(n)
  void write(unsigned long long i, const T* from, unsigned long long n) {
    checkRange(i, n, from);
    while (n != 0) {
      QRTVirtualPin<T> pins[kWrittenTogether];
      const unsigned long long first = placeOf(i).block;
      const unsigned long long last = placeOf(i + n - 1).block;
      unsigned int count = 0;
      for (; count < kWrittenTogether && first + count <= last; ++count) {
        pins[count] = pinBlock(first + count);
      }
      for (unsigned int block = 0; block < count; ++block) {
        const unsigned int index = placeOf(i).index;
        const unsigned int here = fitting(index, n);
        copy(pins[block].get() + index, from, here);
        i += here;
        from += here;
        n -= here;
      }
    }
  }

  /// Takes the last element away. Its block is freed when another one has become free behind it.
  /// @throws QRTAssertError when there is none
  void pop_back() {
    QRT_ASSERT_NAMED(m_size != 0, "an empty vector has no last element");
    --m_size;
    ++m_changes;
    m_blocks.shrink(blocksOf(m_size) + 1);
  }

  /// Makes the vector have `n` elements: takes away those behind, or adds elements of zero bytes,
  /// for which room can be refused.
  /// Cost: O(elements added, or blocks taken away); may write pages to disk
  void resize(unsigned long long n) {
    if (n > m_size) {
      checkGrowth(n - m_size);
      Growth growth(m_blocks);
      // What was used before may hold anything, what comes new is zero bytes.
      const unsigned long long used = std::min(n, m_blocks.getCount() * kPerBlock);
      m_blocks.grow(blocksOf(n));
      zero(m_size, used);
      growth.keep();
    } else {
      m_blocks.shrink(blocksOf(n));
    }
    m_size = n;
    ++m_changes;
  }

  /// Takes all elements away and frees their blocks.
  /// Cost: O(blocks), none of which is read
  void clear() noexcept {
    m_blocks.shrink(0);
    m_size = 0;
    ++m_changes;
  }

  /// Pins an element for writing, together with its block.
  /// @param i  number of the element, below `size`
  /// @return a pin that is not empty
  QRTVirtualPin<T> pin(unsigned long long i) { return pinElement(*this, i); }

  /// Pins an element for reading.
  QRTVirtualPin<const T> pin(unsigned long long i) const { return pinElement(*this, i); }

  /// Loops over all elements, which may be changed through the iterators. A loop that only reads
  /// goes over `std::as_const(vector)` or from `cbegin`, so that its blocks do not count as
  /// changed.
  iterator begin() { return iterator(*this, 0, m_size); }
  iterator end() noexcept { return iterator(); }
  const_iterator begin() const { return const_iterator(*this, 0, m_size); }
  const_iterator end() const noexcept { return const_iterator(); }
  const_iterator cbegin() const { return begin(); }
  const_iterator cend() const noexcept { return end(); }

  /// Sorts the elements, far more of them than memory holds; see QRTVirtualVectorSort for what it
  /// takes. Equal elements end in any order. When it fails, for want of room, for a block that
  /// cannot be read back or by an error of the comparison, the vector has the same elements in some
  /// other order.
  /// @param before  whether one element belongs before another: a strict weak order
  /// Cost: O(n log n) comparisons; beyond memory every element is read and written a few times
  template <class Compare = std::less<T>>
  void sort(Compare before = Compare()) {
    QRTVirtualVectorSort<T, Compare>(*this, before).run();
  }

 private:
  template <class Element>
  friend class QRTVirtualVectorIterator;
  template <class Element, class Compare>
  friend class QRTVirtualVectorSort;

  // A page of the store: with 4 KiB a random access beyond memory reads no more than it must, and
  // a scan has one pin for hundreds of elements.
  static constexpr unsigned int kPageBytes = 4096;
  static constexpr unsigned int kPerBlock =
      sizeof(T) < kPageBytes ? static_cast<unsigned int>(kPageBytes / sizeof(T)) : 1;
  static constexpr unsigned int kBlockBytes = static_cast<unsigned int>(kPerBlock * sizeof(T));

  // Blocks that a write pins together: a quarter of the smallest budget.
  static constexpr unsigned int kWrittenTogether = 64;

  // Where an element is.
  struct Place {
    unsigned long long block;  // number of its block
    unsigned int index;        // its number in the block
  };

  // Gives the blocks back by which an operation made the vector longer and then failed.
  class Growth {
   public:
    explicit Growth(QRTVirtualBlocks& blocks) : m_blocks(&blocks), m_before(blocks.getCount()) {}
    Growth(const Growth&) = delete;
    Growth& operator=(const Growth&) = delete;
    ~Growth() {
      if (m_blocks != nullptr) {
        m_blocks->shrink(m_before);
      }
    }
    void keep() { m_blocks = nullptr; }

   private:
    QRTVirtualBlocks* m_blocks;   // not owned; null when all went well
    unsigned long long m_before;  // blocks there were
  };

  static Place placeOf(unsigned long long i) noexcept {
    const auto low = static_cast<unsigned int>(i);
    if (sizeof(void*) == 4 && low == i) {
      return {low / kPerBlock, low % kPerBlock};  // 64-bit division takes ten times as long there
    }
    return {i / kPerBlock, static_cast<unsigned int>(i % kPerBlock)};
  }

  static unsigned long long blocksOf(unsigned long long n) noexcept {
    return n == 0 ? 0 : placeOf(n - 1).block + 1;
  }

  // How many of n elements fit into a block from an index on.
  static unsigned int fitting(unsigned int index, unsigned long long n) noexcept {
    return static_cast<unsigned int>(std::min<unsigned long long>(n, kPerBlock - index));
  }

  // As bytes: a class may be trivially copyable and have no assignment.
  static void copy(T* to, const T* from, unsigned int n) noexcept {
    std::memcpy(static_cast<void*>(to), static_cast<const void*>(from), n * sizeof(T));
  }

  void checkRange(unsigned long long i, unsigned long long n, const T* elements) const {
    QRT_ASSERT_NAMED(i <= m_size && n <= m_size - i, "elements beyond the end");
    QRT_ASSERT_NAMED(elements || n == 0, "no place for the elements");
  }

  void checkGrowth(unsigned long long n) const {
    if (n > QRTVirtualBlocks::kMaxCount * kPerBlock - m_size) {
      QRT_THROW(QRTOutOfMemoryError(0, "QRTVirtualVector: more elements than a store can hold"));
    }
  }

  // Sees to it that there is a block of that number, which is at most one too high.
  void growTo(unsigned long long block) {
    if (block == m_blocks.getCount()) {
      m_blocks.grow(block + 1);
    }
  }

  QRTVirtualPin<T> pinBlock(unsigned long long block) {
    auto pin = m_blocks.pin(block);
    T* const first = reinterpret_cast<T*>(pin.get());
    return QRTVirtualPin<T>(std::move(pin), first);
  }
  QRTVirtualPin<const T> pinBlock(unsigned long long block) const {
    auto pin = m_blocks.pinForReading(block);
    const T* const first = reinterpret_cast<const T*>(pin.get());
    return QRTVirtualPin<const T>(std::move(pin), first);
  }

  template <class Vector>
  static auto pinElement(Vector& vector, unsigned long long i) {
    QRT_ASSERT_NAMED(i < vector.m_size, "an element beyond the end");
    const Place place = placeOf(i);
    auto pin = vector.pinBlock(place.block);
    auto* const element = pin.get() + place.index;
    return decltype(pin)(std::move(pin), element);
  }

  void store(Place place, const T& value) {
    if (void* const block = m_blocks.find(place.block, 1)) {
      copy(static_cast<T*>(block) + place.index, &value, 1);
    } else {
      copy(pinBlock(place.block).get() + place.index, &value, 1);
    }
  }

  // Makes the elements [first, last) zero bytes, which have their blocks.
  void zero(unsigned long long first, unsigned long long last) {
    while (first < last) {
      const Place place = placeOf(first);
      const unsigned int count = fitting(place.index, last - first);
      std::memset(static_cast<void*>(pinBlock(place.block).get() + place.index), 0,
                  count * sizeof(T));
      first += count;
    }
  }

  QRTVirtualBlocks m_blocks;         // the elements; one more block than they need at the most
  unsigned long long m_size = 0;     // elements
  unsigned long long m_changes = 0;  // after which no iterator made before is to be used
};

#endif  // QRTVIRTUALVECTOR_H
