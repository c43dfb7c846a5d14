// Plain pointers to objects from malloc and its like: what a program does that keeps everything in
// memory.

#include "ByHandle.h"
#include "Churn.h"
#include "Heap.h"
#include "Resident.h"
#include "common/Heaps.h"

void addPointers(const AddPeer& add) {
  addResident<ByHandle<Heap<suite::Malloc>>>(add, "pointer");
  suite::eachHeap([&]<class Functions>(const char* peer, Functions) {
    add("churn", peer, measureChurn<Heap<Functions>>);
  });
}
