// Plain pointers to objects from malloc: what a program does that keeps everything in memory.

#include "objects/ByHandle.h"
#include "objects/Heap.h"
#include "objects/Resident.h"

namespace objects {

namespace {

struct Malloc {
  static void* get(std::size_t size) { return std::malloc(size); }
  static void put(void* object) { std::free(object); }
};

const Registration kRegistration({.name = "pointer",
                                  .resident = measureResident<ByHandle<Heap<Malloc>>>});

}  // namespace

}  // namespace objects
