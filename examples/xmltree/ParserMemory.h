#ifndef EXAMPLES_XMLTREE_PARSERMEMORY_H
#define EXAMPLES_XMLTREE_PARSERMEMORY_H

#include <cstddef>
#include <new>

namespace example {

/// The memory of all XML parsers of the process, kept within a bound. A parser keeps some 170 bytes
/// for every element that is open, and the whole of any one tag, comment or instruction; a document
/// made to exhaust memory meets this bound instead.
namespace parser_memory {

constexpr std::size_t kDefaultLimit = std::size_t{3} << 20;  ///< enough for 15,000 levels

/// @param bytes  the bound from now on; not below what is in use
void setLimit(std::size_t bytes);
std::size_t limit();

/// Whether an allocation was refused since the last call of this.
bool takeRefusal();

/// What the C library's functions of these names do, within the bound; null beyond it.
void* allocate(std::size_t size);
void* reallocate(void* block, std::size_t size);
void release(void* block);

/// Lets containers of the standard library take their memory here. They raise std::bad_alloc beyond
/// the bound.
template <class T>
struct Allocator {
  using value_type = T;

  Allocator() = default;
  template <class Other>
  Allocator(const Allocator<Other>&) {}

  T* allocate(std::size_t count) {
    void* const memory = parser_memory::allocate(count * sizeof(T));
    if (memory == nullptr) {
      throw std::bad_alloc();
    }
    return static_cast<T*>(memory);
  }
  void deallocate(T* memory, std::size_t) { release(memory); }

  bool operator==(const Allocator&) const = default;
};

}  // namespace parser_memory
}  // namespace example

#endif  // EXAMPLES_XMLTREE_PARSERMEMORY_H
