#ifndef QRTVIRTUALHASHTABLE_H
#define QRTVIRTUALHASHTABLE_H

#include <cstring>

#include "QRTCore/QRTExport.h"
#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualVector.h"

struct HashBlock;
struct HashRecordShape;

/// What QRTVirtualHashMap and QRTVirtualStringMap stand on: a table of records in a store, each a
/// value and a key, both plain bytes. Programs use one of the maps.
///
/// Linear hashing: records live in buckets, objects of some hundred bytes, whose offsets stand in a
/// stored vector. When records have come in for one bucket more, one bucket is split in two, and
/// when enough have gone, two become one, so that no operation ever touches many of them. What the
/// process keeps is this object.
///
/// A record that cannot be added raises QRTOutOfMemoryError and a bucket that cannot be read back
/// raises QRTAssertError that names it; the table is then as it was.
class QRT_EXPORT QRTVirtualHashTable {
 public:
  /// What a table asks the map above it about keys.
  class Keys {
   public:
    /// @return the hash under which a record with this key was added
    virtual unsigned long long hash(const void* key, unsigned int bytes) const = 0;

    /// @param wanted  what the map handed to the operation under way
    /// @return whether the key of a record is the one wanted
    virtual bool matches(const void* wanted, const void* key, unsigned int bytes) const = 0;

   protected:
    Keys() = default;
    Keys(const Keys&) = default;
    Keys& operator=(const Keys&) = default;
    ~Keys() = default;
  };

  /// What is called for records, one after the other.
  class Visitor {
   public:
    /// Addresses are good during the call, and may have any alignment.
    virtual void visit(const void* value, const void* key, unsigned int keyBytes) = 0;

   protected:
    Visitor() = default;
    Visitor(const Visitor&) = default;
    Visitor& operator=(const Visitor&) = default;
    ~Visitor() = default;
  };

  /// A key or a value that was kept as bytes, where its type can be read.
  template <class T>
  class Copy {
   public:
    explicit Copy(const void* bytes) noexcept { std::memcpy(m_bytes, bytes, sizeof(T)); }
    const T& get() const noexcept { return *reinterpret_cast<const T*>(m_bytes); }

   private:
    alignas(T) unsigned char m_bytes[sizeof(T)];
  };

  /// Whether an operation changes the record that is there already.
  enum Present { eKeep, eReplace };

  /// Makes an empty table.
  /// @param memMgr      keeps the records; must outlive the table
  /// @param valueBytes  bytes of every value, up to 64 KiB with the key
  /// @param keyBytes    bytes of every key; 0 when they have 1 to 65,535, each its own
  QRTVirtualHashTable(QRTVirtualMemoryMgr& memMgr, unsigned int valueBytes, unsigned int keyBytes);

  /// Frees the buckets. What cannot be read back stays in the store until the manager ends.
  ~QRTVirtualHashTable();

  /// Takes the records; the other table is empty then, and as good as new.
  QRTVirtualHashTable(QRTVirtualHashTable&& other) noexcept;
  QRTVirtualHashTable& operator=(QRTVirtualHashTable&& other) noexcept;
  QRTVirtualHashTable(const QRTVirtualHashTable&) = delete;
  QRTVirtualHashTable& operator=(const QRTVirtualHashTable&) = delete;

  void swap(QRTVirtualHashTable& other) noexcept;

  /// Looks a record up.
  /// @param hash    of its key: 64 random bits, as a QRTVirtualHashSeed makes them
  /// @param wanted  handed to Keys::matches
  /// @param value   receives the value; null when it is not wanted
  /// @return whether there is one
  /// Cost: O(1); beyond memory one read, as long as the vector of buckets stays in it
  bool find(unsigned long long hash, const Keys& keys, const void* wanted, void* value) const;

  /// Adds a record, unless there is one with the key.
  /// @param present  whether the value of one that is there is replaced
  /// @return whether a record was added
  bool insert(unsigned long long hash, const Keys& keys, const void* wanted, const void* key,
              unsigned int keyBytes, const void* value, Present present);

  /// Ends a record.
  /// @param removed  called with it just before; may be null
  /// @return whether there was one
  bool erase(unsigned long long hash, const Keys& keys, const void* wanted, Visitor* removed);

  /// Calls `visitor` for every record, in no order that means anything. It may look things up in
  /// this table, and do as it likes with everything else; what it throws ends the loop. Operations
  /// that would change the table raise QRTAssertError meanwhile.
  void forEach(Visitor& visitor) const;

  /// Ends every record, whatever cannot be read back.
  /// @param removed  called for each record that can be read; may be null
  /// @throws QRTAssertError from within forEach
  void clear(Visitor* removed);

  /// The same, and raises nothing: for destructors.
  void freeAll(Visitor* removed) noexcept;

  /// @return records
  unsigned long long size() const noexcept { return m_size; }

  QRTVirtualMemoryMgr& getMemoryMgr() const noexcept { return *m_memMgr; }

 private:
  class Chain;
  template <class Block>
  struct Place;

  HashRecordShape shape() const noexcept;
  unsigned long long bucketOf(unsigned long long hash) const noexcept;
  template <class Block>
  Place<Block> search(unsigned long long hash, const Keys& keys, const void* wanted) const;
  template <class Visit>
  void forEachBlock(unsigned long long bucket, unsigned long long head, Visit visit) const;
  void add(unsigned long long hash, const void* key, unsigned int keyBytes, const void* value);
  void tidy(Place<HashBlock>& place, unsigned long long bucket);
  void adapt(const Keys& keys) noexcept;
  void split(const Keys& keys);
  void merge();
  void setBucket(unsigned long long bucket, unsigned long long head);
  void freeChain(unsigned long long head, Visitor* removed,
                 unsigned long long blocks = ~0ULL) const noexcept;
  void expectUnvisited() const;

  QRTVirtualMemoryMgr* m_memMgr;                     // keeps the records, not owned
  unsigned int m_valueBytes;                         // of every value
  unsigned int m_keyBytes;                           // of every key; 0 when they differ
  QRTVirtualVector<unsigned long long> m_directory;  // first block of each bucket; 0 when empty
  unsigned long long m_buckets = 0;   // of the directory's entries: what lies behind is not in use
  unsigned long long m_size = 0;      // records
  unsigned long long m_content = 0;   // bytes of all records and their tags
  mutable unsigned int m_visits = 0;  // calls of forEach that are under way
};

#endif  // QRTVIRTUALHASHTABLE_H
