#ifndef BENCH_SUITE_OBJECTS_PEER_H
#define BENCH_SUITE_OBJECTS_PEER_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace objects {

/// What a run was asked for.
struct Settings {
  std::string workload;             ///< such as "hotpin"
  std::string peer;                 ///< a name of a peer
  std::uint64_t objects = 0;        ///< how many; 0 where bytes were asked for
  std::uint64_t bytes = 0;          ///< of all objects; 0 where a number was asked for
  std::uint64_t budget = 0;         ///< bytes of memory the peer may use
  double seconds = 0;               ///< after which a measured phase ends
  std::filesystem::path directory;  ///< where its files go
};

/// What a peer is made for. A peer holds `objects` objects, numbered from 0: their keys. Its class
/// is a parameter of the workloads, so that nothing stands between them and the fast ones:
///
///     explicit P(const Space&);
///     void add(const void* object);     // takes the object with the next key
///     std::uint64_t handle(key);        // what names the object; the key itself if kHandleIsKey
///     void read(handle, use);           // calls use(const void*) with the object in place
///     void update(handle, change);      // calls change(void*) and keeps what it made of the
///     object void finish();                    // ends a series of adds or of updates
///
/// Everything is scratch data: no peer logs or synchronises. Whatever fails ends the program.
struct Space {
  std::filesystem::path directory;  ///< where its files go
  std::uint64_t objects;            ///< how many there will be
  std::uint32_t objectBytes;        ///< of each; divides 4,096
  std::uint64_t budget;             ///< bytes of memory it may use, its own structures included
};

/// A peer as the program knows it: what it is measured by, null where it does not take part.
struct Peer {
  std::string_view name;
  void (*resident)(const Settings&) = nullptr;  ///< hotpin and dependent
  void (*paging)(const Settings&) = nullptr;
  void (*churn)(const Settings&) = nullptr;
  void (*growth)(const Settings&) = nullptr;
};

/// Every peer that was built.
std::vector<Peer>& peers();

/// Adds malloc, and those of its kind that can be loaded. They take part in churn only.
void registerHeaps();

/// Adds a peer; its source file has one of these.
struct Registration {
  explicit Registration(const Peer& peer) { peers().push_back(peer); }
};

/// Ends the program unless `good`, naming what failed.
void require(bool good, const char* what);

/// Writes a count as a row's label: "1e6" for round ones.
std::string countLabel(std::uint64_t count);

/// Writes a byte count as a row's label: "2G", "512M" for round ones.
std::string bytesLabel(std::uint64_t bytes);

}  // namespace objects

#endif  // BENCH_SUITE_OBJECTS_PEER_H
