#ifndef QRTVIRTUALVECTORITERATOR_H
#define QRTVIRTUALVECTORITERATOR_H

#include <cstddef>
#include <iterator>
#include <type_traits>
#include <utility>

#include "QRTCore/QRTAssert.h"
#include "QRTVirtualBlocks.h"
#include "QRTVirtualPin.h"

template <class T>
class QRTVirtualVector;
template <class T, class Compare>
class QRTVirtualVectorSort;

/// Goes through the elements of a QRTVirtualVector from first to last. An input iterator that holds
/// one pin, on the block of the element it is at, and asks for the blocks ahead; a copy holds a pin
/// of its own. A reference to an element is good until the iterator goes on to another block.
///
/// Once the vector was changed by anything but `set`, `write` and writes through pins and
/// iterators, the iterators made before are not to be used but to be assigned to and to end; where
/// NDEBUG is not defined such a use raises QRTAssertError.
///
/// A block that cannot be read back raises QRTAssertError where it is reached; the iterator is at
/// the end then.
/// @tparam T  class of the elements; const for an iterator that reads only
template <class T>
class QRTVirtualVectorIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = std::remove_const_t<T>;
  using difference_type = std::ptrdiff_t;
  using pointer = T*;
  using reference = T&;

  /// Makes an iterator of no vector, which equals the end of every one.
  QRTVirtualVectorIterator() noexcept = default;
  ~QRTVirtualVectorIterator() = default;

  /// Pins the block once more. @throws QRTAssertError when the pin cannot be had
  QRTVirtualVectorIterator(const QRTVirtualVectorIterator& other)
      : m_vector(other.m_vector),
        m_changes(other.m_changes),
        m_next(other.m_next),
        m_last(other.m_last) {
    if (other.m_at != nullptr) {
      other.check();
      m_pin = pinBlock(other.blockNow());
      m_at = other.m_at;
      m_end = other.m_end;
    }
  }
  QRTVirtualVectorIterator(QRTVirtualVectorIterator&& other) noexcept { swap(other); }
  QRTVirtualVectorIterator& operator=(QRTVirtualVectorIterator other) noexcept {
    swap(other);
    return *this;
  }

  void swap(QRTVirtualVectorIterator& other) noexcept {
    std::swap(m_at, other.m_at);
    std::swap(m_end, other.m_end);
    std::swap(m_vector, other.m_vector);
    std::swap(m_changes, other.m_changes);
    std::swap(m_next, other.m_next);
    std::swap(m_last, other.m_last);
    m_pin.swap(other.m_pin);
  }

  /// @return the element the iterator is at, which must not be the end
  T& operator*() const {
    check();
    return *m_at;
  }
  T* operator->() const { return &**this; }

  /// Goes on to the next element. @throws QRTAssertError when its block cannot be read back
  /// Cost: O(1); a pin for each block, which may read a page back
  QRTVirtualVectorIterator& operator++() {
    check();
    if (++m_at == m_end) {
      load();
    }
    return *this;
  }
  QRTVirtualVectorIterator operator++(int) {
    QRTVirtualVectorIterator before(*this);
    ++*this;
    return before;
  }

  /// Compares iterators of one vector: while its block is pinned, an element has one address.
  friend bool operator==(const QRTVirtualVectorIterator& a, const QRTVirtualVectorIterator& b) {
    return a.m_at == b.m_at;
  }
  friend bool operator!=(const QRTVirtualVectorIterator& a, const QRTVirtualVectorIterator& b) {
    return a.m_at != b.m_at;
  }

 private:
  template <class Element>
  friend class QRTVirtualVector;
  template <class Element, class Compare>
  friend class QRTVirtualVectorSort;

  using Vector = std::conditional_t<std::is_const<T>::value, const QRTVirtualVector<value_type>,
                                    QRTVirtualVector<value_type>>;

  // Blocks from the one that is pinned to the one that is asked for ahead.
  static constexpr unsigned int kAhead = 8;

  // Goes through the elements [first, last) of a vector, which has them all.
  QRTVirtualVectorIterator(Vector& vector, unsigned long long first, unsigned long long last)
      : m_vector(&vector), m_changes(vector.m_changes), m_next(first), m_last(last) {
    load();
  }

  unsigned long long blockNow() const noexcept { return (m_next - 1) / Vector::kPerBlock; }

  QRTVirtualPin<T> pinBlock(unsigned long long block) const { return m_vector->pinBlock(block); }

  // Moves on to the block of the element m_next; to the end if there is none.
  void load() {
    m_at = m_end = nullptr;
    m_pin.reset();
    if (m_next < m_last) {
      const unsigned long long block = m_next / Vector::kPerBlock;
      const auto index = static_cast<unsigned int>(m_next % Vector::kPerBlock);
      const auto count = Vector::fitting(index, m_last - m_next);
      m_vector->m_blocks.prefetch(block + kAhead);
      m_pin = pinBlock(block);
      m_at = m_pin.get() + index;
      m_end = m_at + count;
      m_next += count;
    }
  }

  // Whether the iterator may still be used.
  void check() const {
#ifndef NDEBUG
    QRT_ASSERT_NAMED(m_at, "an iterator at the end has no element");
    QRT_ASSERT_NAMED(m_changes == m_vector->m_changes, "the vector changed under an iterator");
#endif
  }

  T* m_at = nullptr;                 // the element it is at; null at the end
  T* m_end = nullptr;                // behind the last element of the block
  Vector* m_vector = nullptr;        // not owned
  unsigned long long m_changes = 0;  // of the vector, when the iterator was made
  unsigned long long m_next = 0;     // number of the element behind those up to m_end
  unsigned long long m_last = 0;     // number of the element to end before
  QRTVirtualPin<T> m_pin;            // the block; names its first element
};

#endif  // QRTVIRTUALVECTORITERATOR_H
