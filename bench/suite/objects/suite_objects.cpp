// Objects in the store beside pointers, heaps and the stores of other libraries: pins, allocation,
// and more objects than memory holds. What is measured is also checked.

#include "ObjectWork.h"
#include "common/Heaps.h"
#include "common/Program.h"

namespace {

/// What a peer gets: the defaults for what was left open depend on the workload.
Settings complete(Settings settings) {
  const bool paging = settings.workload == "paging";
  const bool growth = settings.workload == "growth";
  if (paging || (growth && settings.objects.value == 0)) {
    settings.objects = {};
    if (settings.bytes.value == 0) {
      settings.bytes = suite::Amount(paging ? "2G" : "64M");
    }
    if (settings.bytes.value % 4096 != 0 || settings.bytes.value >= 1ULL << 40) {
      suite::fail("--bytes takes a multiple of 4K below 1024G");
    }
  } else if (settings.objects.value == 0) {
    settings.objects = suite::Amount("1e6");
  }
  if (settings.objects.value >= 1ULL << 32) {
    suite::fail("--objects takes a number below 2^32");
  }
  if (settings.budget.value == 0) {
    settings.budget.value = paging   ? 256U << 20
                            : growth ? 64U << 20
                                     : settings.objects.value * 160 + (256U << 20);
  }
  return settings;
}

}  // namespace

int main(int argc, char** argv) {
  Settings settings;
  suite::Program program("Objects beside other ways to keep them");
  suite::loadHeaps(argv, program);
  program.option("--objects", settings.objects, "how many objects, such as 1e6; all in memory");
  program.option("--bytes", settings.bytes, "bytes of all objects, for paging and growth");
  program.option("--budget", settings.budget, "memory of the peer, instead of 256M, growth 64M");
  program.option("--seconds", settings.seconds, "after which a phase ends");
  program.flag("--encrypt", settings.encrypt, "the store encrypts what leaves memory; for paging");
  const AddPeer add = [&](const char* workload, const char* peer, auto measure) {
    program.add(workload, peer, [=, &settings] {
      settings.workload = workload;
      settings.peer = peer;
      measure(complete(settings));
    });
  };
  addStore(add);
  addPointers(add);
  addPointerTables(add);
  addPread(add);
#ifdef SUITE_BERKELEY_DB
  addBerkeleyPages(add);
  addBerkeleyTree(add);
#endif
#ifdef SUITE_INTERPROCESS
  addInterprocess(add);
#endif
#ifdef SUITE_LMDB
  addLmdb(add);
#endif
#ifdef SUITE_SQLITE
  addSqlite(add);
#endif
#ifdef SUITE_ROCKSDB
  addRocksdb(add);
#endif
#ifdef SUITE_STXXL
  addStxxl(add);
#endif
  return program.main(argc, argv);
}
