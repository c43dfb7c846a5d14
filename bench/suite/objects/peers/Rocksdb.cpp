// RocksDB without its log, uncompressed, with filters; write buffers, index and block cache share
// the budget.

#include <rocksdb/cache.h>
#include <rocksdb/db.h>
#include <rocksdb/filter_policy.h>
#include <rocksdb/options.h>
#include <rocksdb/table.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "ByKey.h"
#include "common/ScratchDirectory.h"

namespace {

void check(const rocksdb::Status& status) {
  if (!status.ok()) [[unlikely]] {
    suite::require(false, status.ToString().c_str());
  }
}

class Rocksdb : public ByKey {
 public:
  explicit Rocksdb(const Space& space) : ByKey(space) {
    rocksdb::BlockBasedTableOptions table;
    // Index and filters stay in memory beside the cache: some four bytes for each object.
    const std::uint64_t cache = space.budget / 4 * 3;
    const std::uint64_t index = std::min(4 * space.objects, cache / 2);
    table.block_cache = rocksdb::NewLRUCache(cache - index);
    table.filter_policy.reset(rocksdb::NewBloomFilterPolicy(10));
    table.data_block_index_type =
        rocksdb::BlockBasedTableOptions::DataBlockIndexType::kDataBlockBinaryAndHash;
    rocksdb::Options options;
    options.create_if_missing = true;
    options.compression = rocksdb::kNoCompression;
    options.write_buffer_size = space.budget / 8;  // of two, one is written to disk
    options.info_log_level = rocksdb::InfoLogLevel::FATAL_LEVEL;
    options.table_factory.reset(rocksdb::NewBlockBasedTableFactory(table));
    m_unlogged.disableWAL = true;
    rocksdb::DB* database = nullptr;
    check(rocksdb::DB::Open(options, suite::scratchPath("rocksdb"), &database));
    m_database.reset(database);
  }

  void add(const void* object) { write(m_added++, object); }

  template <class Use>
  void read(std::uint64_t handle, Use use) {
    const Key key(handle);
    check(m_database->Get(m_reading, m_database->DefaultColumnFamily(), key.slice(), &m_value));
    use(m_value.data());
    m_value.Reset();
  }

  template <class Use>
  void scan(Use use) {
    const std::unique_ptr<rocksdb::Iterator> at(m_database->NewIterator(m_reading));
    at->SeekToFirst();
    while (at->Valid() && use(at->value().data())) {
      at->Next();
    }
    check(at->status());
  }

  template <class Change>
  void update(std::uint64_t handle, Change change) {
    char object[4096];
    read(handle,
         [this, &object](const void* stored) { std::memcpy(object, stored, m_objectBytes); });
    change(static_cast<void*>(object));
    write(handle, object);
  }

  /// After the load, everything goes to the files where it is to stay. Later it works along.
  void finish() {
    if (!m_loaded) {
      m_loaded = true;
      check(m_database->Flush(rocksdb::FlushOptions()));
      check(m_database->CompactRange(rocksdb::CompactRangeOptions(), nullptr, nullptr));
    }
  }

 private:
  /// Keys are compared as bytes, so the high one comes first.
  struct Key {
    explicit Key(std::uint64_t number) : bytes(__builtin_bswap64(number)) {}
    rocksdb::Slice slice() const { return {reinterpret_cast<const char*>(&bytes), sizeof bytes}; }
    std::uint64_t bytes;
  };

  void write(std::uint64_t number, const void* object) {
    const Key key(number);
    const rocksdb::Slice value(static_cast<const char*>(object), m_objectBytes);
    check(m_database->Put(m_unlogged, key.slice(), value));
  }

  bool m_loaded = false;
  rocksdb::ReadOptions m_reading;
  rocksdb::WriteOptions m_unlogged;
  std::unique_ptr<rocksdb::DB> m_database;
  rocksdb::PinnableSlice m_value;  // what was found, in place
};

}  // namespace

void addRocksdb(const AddPeer& add) {
  addByKey<Rocksdb>(add, "rocksdb");
}
