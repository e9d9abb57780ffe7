#pragma once
// The one writer of a shared-memory keyed table. Writes are copy-on-write: a
// record is filled in a free slot, published with one store in the index,
// announced in the notification queue, and only then is the old slot freed.
// A writer killed at any instant leaves every key on its old or new record; the
// next writer attaches to the same file, recovers, and readers keep going.
// Single-threaded: call it from the owning agent's event loop.

#include <cstdint>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <vector>

#include "Tunnel/shmem/Tamsel/Atomic.h"
#include "Tunnel/shmem/Tamsel/Registry.h"
#include "Tunnel/shmem/Tamsel/ShmFile.h"
#include "Tunnel/shmem/Tamsel/Table.h"

namespace Tamsel {

class Writer {
 public:
  // Creates the table, or attaches to the one a previous writer left. Throws
  // Error when another live process writes it (naming the path and its pid),
  // when the file is not ours, or when the existing table disagrees with `shape`.
  Writer(std::string const& dir, std::string const& collection, TableShape const& shape,
         FilePermissions const& perms = {});
  ~Writer();
  Writer(Writer const&) = delete;
  Writer& operator=(Writer const&) = delete;

  TablePaths const& paths() const { return paths_; }
  TableShape const& shape() const { return shape_; }

  // Inserts or replaces the record of `key`. `fill(char* dst)` writes exactly
  // `len` bytes. An oversize record (Zent::RangeException) or a full file
  // system (Error) is refused before anything changes.
  template <typename Fill>
  void write(void const* key, uint32_t hash, uint32_t len, Fill&& fill) {
    prefetchBucket(hash);  // the index miss overlaps with filling the record
    uint64_t slot = beginWrite(key, hash, len);
    fill(at(slot) + payloadOffset_);
    commitWrite(key, hash, slot);
  }

  // Removes the record of `key`; `old(char const* rec, uint32_t len)` sees it
  // before its slot is released. False when there was none.
  template <typename Old>
  bool remove(void const* key, uint32_t hash, Old&& old) {
    uint64_t bucket = findBucket(key, hash);
    if (bucket == 0) return false;
    uint64_t slot = bucketSlot(bucketAt(bucket)->word);
    auto const* h = slotAt(slot);
    old(at(slot) + payloadOffset_, h->payloadLen);
    commitRemove(key, hash, bucket);
    return true;
  }

  // The stored record, in place. Valid until the next write or remove.
  bool find(void const* key, uint32_t hash, char const** rec, uint32_t* len) const;

  // Every live record in heap order.
  template <typename Fn>
  void forEach(Fn&& fn) const {
    uint64_t off = header()->heapOffset;
    uint64_t end = header()->heapEnd;
    while (off < end) {
      auto const* h = slotAt(off);
      if (h->state == kSlotLive)
        fn(at(off) + slotKeyOffset(), at(off) + payloadOffset_, h->payloadLen);
      off += h->slotSize;
    }
  }

  // Live keys in heap order from position `from` (0: the first slot):
  // fn(void const* key, uint64_t position) returns false to stop at that key
  // without taking it. Returns the stopping key's position, 0 at the end.
  // fn may write and remove: slots keep their place and size, and the walk
  // reads nothing of a slot after calling fn.
  template <typename Fn>
  uint64_t forEachKeyFrom(uint64_t from, Fn&& fn) {
    for (uint64_t off = from ? from : header()->heapOffset; off < header()->heapEnd;) {
      auto const* h = slotAt(off);
      uint32_t size = h->slotSize;
      if (h->state == kSlotLive && !fn(static_cast<void const*>(at(off) + slotKeyOffset()), off)) {
        return off;
      }
      off += size;
    }
    return 0;
  }

  void quiescedIs(bool q);
  // Publishes counter `i` (below kPublishedCounters) for readers and tools.
  void publishedCounterIs(uint32_t i, uint64_t v) {
    if (i < kPublishedCounters) storeRelaxed(header()->publishedCounters[i], v);
  }
  bool quiesced() const { return header()->quiesced != 0; }

  uint64_t count() const { return header()->liveCount; }
  uint64_t liveBytes() const { return header()->liveBytes; }
  uint64_t fileBytes() const { return header()->fileSize; }
  uint64_t epoch() const { return header()->writerEpoch; }
  // Notifications published so far: the table's sequence number.
  uint64_t notifications() const { return header()->queueHead; }
  // Sizes the index for `keys` keys now, so that a burst of writes up to
  // that many keys (a merge filling its output) never stops to rebuild it.
  void reserveKeys(uint64_t keys);

  // Whether this writer found and recovered a table left by an earlier one.
  bool recovered() const { return recovered_; }

  // For tests and tools: the offset of the record of `key`, 0 when absent.
  uint64_t slotOffset(void const* key, uint32_t hash) const;

 private:
  FileHeader* header() const { return reinterpret_cast<FileHeader*>(map_.base()); }
  char* at(uint64_t off) const { return map_.base() + off; }
  SlotHeader* slotAt(uint64_t off) const { return reinterpret_cast<SlotHeader*>(at(off)); }
  Bucket* bucketAt(uint64_t off) const { return reinterpret_cast<Bucket*>(at(off)); }

  void create(TableShape const& shape);
  void attach(TableShape const& shape);
  void recover();

  uint64_t beginWrite(void const* key, uint32_t hash, uint32_t len);
  void prefetchBucket(uint32_t hash) const;
  void commitWrite(void const* key, uint32_t hash, uint64_t slot);
  void commitRemove(void const* key, uint32_t hash, uint64_t bucket);

  uint64_t allocSlot(uint32_t cls);
  void freeSlot(uint64_t slot, uint32_t sizeClass);
  uint64_t carve(uint64_t bytes);
  void grow(uint64_t needEnd);

  // Offset of the bucket holding `key`, 0 when absent.
  uint64_t findBucket(void const* key, uint32_t hash) const;
  // The bucket to insert a key of `hash` into (an empty bucket or a tombstone).
  uint64_t insertBucket(void const* key, uint32_t hash);
  uint64_t bucketBase() const;
  uint64_t indexCapacity() const;
  void maybeGrowIndex();
  static uint64_t indexCapacityFor(uint64_t keys);
  void buildIndex(uint64_t capacity);

  void publishNotification(void const* key, uint32_t hash);
  void wakeSleepers();

  TableShape shape_;
  TablePaths paths_;
  FilePermissions perms_;
  int fd_ = -1;
  int lockFd_ = -1;
  Mapping map_;
  SizeClasses classes_{64};
  uint32_t payloadOffset_ = 0;
  std::vector<std::vector<uint64_t>> free_;  // per size class
  uint64_t tombstones_ = 0;
  uint64_t version_ = 0;
  bool recovered_ = false;
  bool holdsLock_ = false;
  ReaderRegistry registry_;
  int wakeSocket_ = -1;
  bool asymmetricFence_ = false;
};

}  // namespace Tamsel
