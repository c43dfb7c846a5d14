// malloc, mimalloc and jemalloc. The last two would replace malloc if they were linked; loaded
// privately they do not.

#include <dlfcn.h>

#include <cstdio>

#include "objects/Churn.h"
#include "objects/Heap.h"

namespace objects {

namespace {

struct Malloc {
  static void* get(std::size_t size) { return std::malloc(size); }
  static void put(void* object) { std::free(object); }
};

/// The functions of a library loaded at run time; `Tag` keeps libraries apart.
template <class Tag>
struct Loaded {
  static inline void* (*get)(std::size_t) = nullptr;
  static inline void (*put)(void*) = nullptr;

  static void add(std::string_view name, const char* library, const char* getter,
                  const char* putter) {
    void* const handle = ::dlopen(library, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      std::fprintf(stderr, "left out: %s\n", ::dlerror());
      return;
    }
    get = reinterpret_cast<void* (*)(std::size_t)>(::dlsym(handle, getter));
    put = reinterpret_cast<void (*)(void*)>(::dlsym(handle, putter));
    Registration({.name = name, .churn = measureChurn<Heap<Loaded>>});
  }
};

}  // namespace

void registerHeaps() {
  Registration({.name = "malloc", .churn = measureChurn<Heap<Malloc>>});
  Loaded<struct Mimalloc>::add("mimalloc", "libmimalloc.so.2", "mi_malloc", "mi_free");
  Loaded<struct Jemalloc>::add("jemalloc", "libjemalloc.so.2", "malloc", "free");
}

}  // namespace objects
