#include "common/Heaps.h"

#include <dlfcn.h>
#include <unistd.h>

#include <string>

namespace suite {

LoadedHeap g_mimalloc;
LoadedHeap g_jemalloc;

namespace {

constexpr const char* kTunables = "GLIBC_TUNABLES";

void load(const char* library, const char* get, const char* put, LoadedHeap& heap,
          Program& program) {
  void* const handle = ::dlopen(library, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    program.remark(std::string(library) + " is left out: " + ::dlerror());
    return;
  }
  heap.get = reinterpret_cast<void* (*)(std::size_t)>(::dlsym(handle, get));
  heap.put = reinterpret_cast<void (*)(void*)>(::dlsym(handle, put));
}

}  // namespace

void loadHeaps(char** argv, Program& program) {
  if (std::getenv(kTunables) == nullptr) {
    ::setenv(kTunables, "glibc.rtld.optional_static_tls=16384", 1);
    ::execv("/proc/self/exe", argv);
  }
  load("libmimalloc.so.2", "mi_malloc", "mi_free", g_mimalloc, program);
  load("libjemalloc.so.2", "malloc", "free", g_jemalloc, program);
}

}  // namespace suite
