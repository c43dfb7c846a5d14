#ifndef BENCH_SUITE_OBJECTS_OBJECTWORK_H
#define BENCH_SUITE_OBJECTS_OBJECTWORK_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "common/Amount.h"
#include "common/Figure.h"

/// What a run was asked for.
struct Settings {
  std::string workload;   ///< such as "hotpin"
  std::string peer;       ///< such as "store"
  suite::Amount objects;  ///< how many; none where bytes were asked for
  suite::Amount bytes;    ///< of all objects; none where a number was asked for
  suite::Amount budget;   ///< bytes of memory the peer may use
  double seconds = 5;     ///< after which a measured phase ends
  bool encrypt = false;   ///< whether the store encrypts its paging file; for paging

  void print(std::string_view variant, std::string_view unit, double value) const {
    suite::print(
        {workload, peer, variant, objects.value != 0 ? objects.text : bytes.text, unit, value});
  }

  /// Ends the program unless the peer gave what it was given.
  void check(bool right) const {
    if (!right) {
      suite::fail(peer + " gave other objects than it was given");
    }
  }
};

/// What a peer is made for. A peer holds `objects` objects, numbered from 0: their keys. Its class
/// is a parameter of the workloads, so that nothing stands between them and the fast ones:
///
///     explicit P(const Space&);
///     void add(const void* object);     // takes the object with the next key
///     std::uint64_t handle(key);        // what names the object; the key itself if kHandleIsKey
///     void read(handle, use);           // calls use(const void*) with the object in place
///     void update(handle, change);      // calls change(void*) and keeps what it made of it
///     void finish();                    // ends a series of adds or of updates
///     void announce(handle);            // if there is such a thing: the object is used soon
///     void readAll(handles, count, use) // likewise: calls use(place, const void*) for each of up
///                                       // to kMostAtOnce objects that are in place at once
///
/// Everything is scratch data: no peer logs or synchronises. Whatever fails ends the program.
struct Space {
  std::uint64_t objects;      ///< how many there will be
  std::uint32_t objectBytes;  ///< of each; divides 4,096
  std::uint64_t budget;       ///< bytes of memory it may use, its own structures included
};

/// Tells a peer of the object with a key.
template <class P>
struct Announcement {
  P* peer;
  void operator()(std::uint64_t key) const { peer->announce(peer->handle(key)); }
};

/// Adds a peer to a workload; `measure` does one run.
using AddPeer = std::function<void(const char* workload, const char* peer,
                                   void (*measure)(const Settings& settings))>;

void addBerkeleyPages(const AddPeer& add);
void addBerkeleyTree(const AddPeer& add);
void addInterprocess(const AddPeer& add);
void addLmdb(const AddPeer& add);
void addPointerTables(const AddPeer& add);
void addPointers(const AddPeer& add);
void addPread(const AddPeer& add);
void addRocksdb(const AddPeer& add);
void addSqlite(const AddPeer& add);
void addStore(const AddPeer& add);
void addStxxl(const AddPeer& add);

/// Workload growth: what the store's operations and its own structures cost as it grows. With a
/// number of objects, they are 64 bytes each and all in memory; with a number of bytes, they are
/// 256 bytes each under the budget given.
void measureGrowth(const Settings& settings);

#endif  // BENCH_SUITE_OBJECTS_OBJECTWORK_H
