#pragma once
// A reader of a shared-memory keyed table, in any process. It maps the table
// read-only, reads records in place under each slot's sequence lock (retrying
// when the writer changed the slot meanwhile), and never waits for the writer.
// Notifications arrive per key, in order, through dispatch(); fd() is a file
// descriptor that becomes readable when the writer woke this reader, so the
// reader plugs into any event loop. A reader that fell behind the queue, or
// whose table got a new writer, resynchronises: with a key index it still
// reports every key that changed meanwhile, deletions included.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "Tunnel/shmem/Tamsel/Atomic.h"
#include "Tunnel/shmem/Tamsel/KeyIndex.h"
#include "Tunnel/shmem/Tamsel/Registry.h"
#include "Tunnel/shmem/Tamsel/ShmFile.h"
#include "Tunnel/shmem/Tamsel/Table.h"
#include "Tunnel/shmem/Tamsel/Tsan.h"

namespace Tamsel {

class Reader {
 public:
  struct Options {
    // Keep a local index of keys and versions, so that a resynchronisation
    // reports exactly the keys that changed (the key-shadow mode).
    bool keyIndex = true;
    // Register for notifications (a reader that only looks up does not).
    bool notifications = true;
    // Once dispatch has delivered and caught up, it keeps looking for news
    // this long before it tells the writer it sleeps (about what a sleep and
    // a wake-up cost here). While updates flow, the writer then sends no
    // wake-ups and takes no barriers, and the reader does not sleep between
    // them. 0: sleep at once. Only a process's one notified reader looks:
    // with several, the event loop must move on to the others.
    uint32_t spinNs = 20000;
  };

  class Handler {
   public:
    virtual ~Handler() = default;
    // The record of `key` changed or went away; look it up to see which.
    virtual void keyChanged(void const* key) = 0;
    // The reader resynchronised after falling behind or a writer restart.
    // The keys that may have changed meanwhile arrived through keyChanged()
    // first: exactly those that did with a key index; without one, every
    // live key and those the queue still held (a key deleted while the queue
    // overflowed is lost to such a reader).
    virtual void resynchronised(bool overflow) { (void)overflow; }
    virtual void quiescedChanged(bool quiesced) { (void)quiesced; }
  };

  // Throws Error when the table does not exist, is not a regular file or not
  // a table, is corrupt or cut short, or has a key size other than `keySize`
  // (0 accepts any).
  Reader(std::string const& dir, std::string const& collection, uint32_t keySize,
         Options const& options);
  Reader(std::string const& dir, std::string const& collection, uint32_t keySize)
      : Reader(dir, collection, keySize, Options{}) {}
  ~Reader();
  Reader(Reader const&) = delete;
  Reader& operator=(Reader const&) = delete;

  TablePaths const& paths() const { return paths_; }
  uint32_t keySize() const { return keySize_; }
  std::string typeName() const;
  uint32_t maxPayload() const { return header()->maxPayload; }

  // Calls fn(char const* rec, uint32_t len) with the record of `key` in place.
  // fn may run more than once; only its last run saw a stable record, and it
  // must not trust the bytes before that (copy first, decode after). False
  // when the key is absent. Throws Error when the table is corrupt where the
  // key's lookup leads. ThreadSanitizer does not check what fn does.
  template <typename Fn>
  bool read(void const* key, uint32_t hash, Fn&& fn) const {
    if (options_.keyIndex) keys_.prefetch(hash);
    Retries retries;
    for (;;) {
      Probe p;
      int r = probe(key, hash, p);
      if (r == kAbsent) {
        if (options_.keyIndex) observed(key, hash, false, 0);
        return false;
      }
      if (r == kFound) {
        SlotHeader const* s = slotAt(p.slot);
        {
          OptimisticReads copy;
          fn(at(p.slot) + payloadOffset_, p.len);
        }
        uint64_t version = options_.keyIndex ? loadRelaxed(s->version) : 0;
        // The slot's sequence confirms the key, the length and the copy.
        std::atomic_thread_fence(std::memory_order_acquire);
        if (loadRelaxed(s->seq) == p.seq) {
          lastSlot_ = p.slot;
          // What this process last saw of the key: a resynchronisation
          // reports it again if the table moves away from it.
          if (options_.keyIndex) observed(key, hash, true, version);
          return true;
        }
      }
      retried(retries, p.slot, p.seq);
    }
  }

  // Copies the record of `key` into `out`; false (and `out` empty) when
  // absent.
  bool readCopy(void const* key, uint32_t hash, std::vector<char>& out) const;

  // Copies the record of `key` into out[0, cap) and sets `len` to its
  // length, which may exceed `cap` (then only its first `cap` bytes are
  // copied); false when absent. The copy is one version of the record. It
  // starts as soon as the key's bucket arrives, before the record's header
  // says how long the record is, so out[0, cap) is scratch: bytes past
  // `len`, or all of them when the key is absent, may be overwritten.
  bool readInto(void const* key, uint32_t hash, char* out, uint32_t cap, uint32_t& len) const {
    if (options_.keyIndex) keys_.prefetch(hash);
    // The common case in a straight line: the index as last seen, the key
    // in its home bucket, its slot of the size its bucket says and not
    // being written. The copy starts right after the slot's sequence is
    // asked for, and every check waits until after it, so the record's
    // lines are fetched together.
    uint64_t where = 0, what = 0;
    if (currentIndex(&where, &what)) {
      Bucket const* bp = view_.buckets + (hash & (view_.cap - 1));
      uint64_t b = loadAcquire(bp->word);
      uint64_t const prefix = keyPrefixOf(key, keySize_);
      uint64_t s = bucketSlot(b);
      uint32_t size = classBytes_[bucketClass(b)];
      if (bucketLive(b) && bucketTagMatches(b, hash) && loadRelaxed(bp->keyPrefix) == prefix &&
          size > payloadOffset_ && mapped(s + size)) {
        SlotHeader const* sh = slotAt(s);
        uint32_t const room = size - payloadOffset_;
        uint32_t seq = loadAcquire(sh->seq);
        {
          OptimisticReads copy;
          copyBytes(out, at(s) + payloadOffset_, std::min(room, cap));
        }
        bool whole = loadRelaxed(sh->slotSize) == size && loadRelaxed(sh->state) == kSlotLive &&
                     slotKeyIs(s, key, prefix);
        uint32_t got = std::min(loadRelaxed(sh->payloadLen), room);
        uint64_t version = options_.keyIndex ? loadRelaxed(sh->version) : 0;
        std::atomic_thread_fence(std::memory_order_acquire);
        if (whole && (seq & 1) == 0 && loadRelaxed(sh->seq) == seq) {
          lastSlot_ = s;
          if (options_.keyIndex) observed(key, hash, true, version);
          len = got;
          return true;
        }
      }
    }
    return readIntoProbing(key, hash, out, cap, len);
  }

  // Looks up `n` keys (keySize() bytes each, back to back, with their
  // hashes) and calls fn(size_t i, char const* rec, uint32_t len) once for
  // each present key with a stable copy of its record, valid during the
  // call. The memory accesses of a group of keys overlap: their index
  // buckets are fetched together, then their records, then each is read as
  // read() does, from the cache. At a million keys a lookup is two misses;
  // this way a group pays about two. Returns how many keys were present.
  template <typename Fn>
  size_t readBatch(void const* keys, uint32_t const* hashes, size_t n, Fn&& fn) const {
    auto const* k = static_cast<char const*>(keys);
    std::vector<char> copy(4096);  // per call: fn may itself look keys up
    size_t found = 0;
    for (size_t g = 0; g < n; g += kBatchGroup) {
      size_t const e = std::min(n, g + kBatchGroup);
      for (size_t i = g; i < e; ++i) prefetchBucket(hashes[i]);
      for (size_t i = g; i < e; ++i) prefetchRecord(k + i * keySize_, hashes[i]);
      for (size_t i = g; i < e; ++i) {
        uint32_t len = 0;
        bool present = false;
        while ((present = readInto(k + i * keySize_, hashes[i], copy.data(),
                                   static_cast<uint32_t>(copy.size()), len)) &&
               len > copy.size()) {
          copy.resize(len);
        }
        if (present) {
          ++found;
          fn(i, static_cast<char const*>(copy.data()), len);
        }
      }
    }
    return found;
  }

  // Every live record, in the order of the file, as a stable copy:
  // fn(void const* key, char const* rec, uint32_t len, uint64_t version).
  // A key left alone during the scan is seen exactly once. A key written
  // during the scan may be seen with its old record, its new one, both, or
  // (when its new record lands behind the scan) neither; its notification
  // follows either way, so a view built from a scan and the notifications
  // published since just before it is complete.
  //
  // With a key index, each key handed out is recorded as seen: a key the
  // scan showed and that goes away while the queue overflows is then
  // reported by the resynchronisation, though no notification of it was read.
  template <typename Fn>
  void forEach(Fn&& fn) const {
    forEachSlot(
        [&](void const* key, char const* rec, uint32_t len, uint64_t version, uint32_t hash) {
          if (options_.keyIndex) observed(key, hash, true, version);
          fn(key, rec, len, version);
        });
  }

  // Live keys in file order from heap position `from` (0: the first slot):
  // fn(void const* key, uint64_t position) returns false to stop at that key
  // without taking it. Returns the stopping key's position, 0 at the end. A
  // position stays a slot boundary while the same writer keeps the table
  // (slots keep their place and size); under another writer, start again.
  template <typename Fn>
  uint64_t forEachKeyFrom(uint64_t from, Fn&& fn) const {
    std::vector<char> key(keySize_);
    return walkLiveSlots(from, [&](uint64_t off, SlotHeader const* s, uint32_t seq) {
      {
        OptimisticReads copy;
        std::memcpy(key.data(), at(off) + slotKeyOffset(), keySize_);
      }
      std::atomic_thread_fence(std::memory_order_acquire);
      return loadRelaxed(s->seq) != seq || fn(static_cast<void const*>(key.data()), off);
    });
  }

  uint64_t count() const { return loadAcquire(header()->liveCount); }
  uint64_t publishedCounter(uint32_t i) const {
    return i < kPublishedCounters ? loadRelaxed(header()->publishedCounters[i]) : 0;
  }
  uint64_t notifications() const { return loadAcquire(header()->queueHead); }
  uint64_t writerEpoch() const { return loadAcquire(header()->writerEpoch); }
  uint64_t liveBytes() const { return loadAcquire(header()->liveBytes); }
  uint64_t fileBytes() const { return loadAcquire(header()->fileSize); }
  uint32_t writerPid() const { return loadAcquire(header()->writerPid); }
  bool writerAlive() const;
  bool quiesced() const { return loadAcquire(header()->quiesced) != 0; }

  // Pollable: readable when the writer has woken this reader.
  int fd() const { return wakeFd_; }
  // Delivers pending notifications (at most `max`), then, when caught up,
  // tells the writer it sleeps. Returns the number delivered. If it stops
  // at `max`, fd() stays readable so the event loop comes back.
  size_t dispatch(Handler& handler, size_t max = SIZE_MAX);
  // Whether notifications are waiting (without consuming them).
  bool pending() const;

  // The local key index (key -> record version), when kept.
  size_t indexedKeys() const { return keys_.size(); }
  template <typename Fn>
  void forEachIndexedKey(Fn&& fn) const {
    keys_.forEach([&](void const* key, uint32_t, uint64_t&) { fn(key); });
  }

  // For tests: the read-only mapping of the table.
  char const* mappingBase() const { return map_.base(); }

  // The file offset of the slot the last successful read() used; corruption
  // reports name it.
  uint64_t lastSlot() const { return lastSlot_; }

  uint64_t overflows() const { return overflows_; }
  uint64_t resyncs() const { return resyncs_; }

 private:
  enum { kAbsent = 0, kFound = 1, kRetry = 2 };
  // Where the failed attempts of one lookup failed: the writer moves on
  // from any state a reader can catch, so a lookup that fails the same way
  // at the same place for long has met a corrupt table.
  struct Retries {
    uint64_t where = 0;
    uint64_t what = 0;
    uint32_t attempts = 0;
    uint32_t same = 0;
  };
  static constexpr uint32_t kStuckRetries = 1000;
  static int retryAt(uint64_t* where, uint64_t* what, uint64_t w, uint64_t v) {
    *where = w;
    *what = v;
    return kRetry;
  }
  FileHeader const* header() const { return reinterpret_cast<FileHeader const*>(map_.base()); }
  char const* at(uint64_t off) const { return map_.base() + off; }
  SlotHeader const* slotAt(uint64_t off) const {
    return reinterpret_cast<SlotHeader const*>(at(off));
  }
  uint32_t maxLen(SlotHeader const* s) const {
    uint32_t size = loadRelaxed(s->slotSize);
    return size > payloadOffset_ ? size - payloadOffset_ : 0;
  }
  // Makes [0, end) addressable, following the writer's growth. False when
  // `end` lies beyond the file; Error when the file is shorter than its
  // header says.
  bool mapped(uint64_t end) const { return end <= map_.size() || follow(end); }
  bool follow(uint64_t end) const;
  // Keys whose accesses readBatch overlaps: enough to cover a miss's
  // latency, few enough that their lines stay in the cache until read.
  static constexpr size_t kBatchGroup = 16;
  // The index bucket and record `hash` leads to first, asked for ahead of
  // the read; hints only, so a moving index or a bucket in use for another
  // key costs nothing but the hint.
  Bucket const* homeBucket(uint32_t hash) const {
    uint64_t where = 0, what = 0;
    if (!currentIndex(&where, &what)) return nullptr;
    return view_.buckets + (hash & (view_.cap - 1));
  }
  void prefetchBucket(uint32_t hash) const {
    if (Bucket const* b = homeBucket(hash)) __builtin_prefetch(b);
  }
  void prefetchRecord(void const* key, uint32_t hash) const {
    Bucket const* bp = homeBucket(hash);
    if (!bp) return;
    uint64_t b = loadRelaxed(bp->word);
    if (!bucketLive(b) || !bucketTagMatches(b, hash) ||
        loadRelaxed(bp->keyPrefix) != keyPrefixOf(key, keySize_)) {
      return;
    }
    uint64_t s = bucketSlot(b);
    uint64_t size = classBytes_[bucketClass(b)];
    if (!mapped(s + size)) return;
    for (uint64_t line = 0; line < size; line += 64) __builtin_prefetch(at(s) + line);
  }
  // Whether news arrives within options_.spinNs.
  bool newsWithinSpin() const;
  // What a lookup found: the slot and the sequence it holds, and the record's
  // length; on a retry, slot and seq say where and on what it failed.
  struct Probe {
    uint64_t slot = 0;
    uint64_t seq = 0;
    uint32_t len = 0;
  };
  // A copy of a length the compiler cannot see: inlined, a copy bounded by
  // a small constant becomes a string move, which on these machines waits
  // for older branches and trails the library's vector copy.
  static void copyBytes(char* dst, char const* src, uint32_t n);
  // readInto() past its common case: probing, retries, absent keys.
  bool readIntoProbing(void const* key, uint32_t hash, char* out, uint32_t cap,
                       uint32_t& len) const;
  int probe(void const* key, uint32_t hash, Probe& p) const;
  // The index the table uses now, checked once per index rather than once
  // per lookup: its offset and capacity, and where its buckets are mapped.
  struct IndexView {
    uint64_t offset = ~uint64_t{0};
    uint64_t cap = 0;
    uint64_t const* capacity = nullptr;  // the index's own capacity word
    Bucket const* buckets = nullptr;
  };
  // Brings view_ to the table's current index; false (with where and on
  // what it failed) when that index is not yet or not sanely mapped.
  bool currentIndex(uint64_t* where, uint64_t* what) const {
    uint64_t index = loadAcquire(header()->indexOffset);
    if (index == view_.offset && loadRelaxed(*view_.capacity) == view_.cap) return true;
    return viewIndex(index, where, what);
  }
  bool viewIndex(uint64_t index, uint64_t* where, uint64_t* what) const;
  // Whether the slot at `off` holds `key`: an optimistic read, to be
  // confirmed by the slot's sequence.
  bool slotKeyIs(uint64_t off, void const* key, uint64_t prefix) const {
    OptimisticReads compare;
    return keySize_ == 8
               ? loadRelaxed(*reinterpret_cast<uint64_t const*>(at(off) + slotKeyOffset())) ==
                     prefix
               : std::memcmp(at(off) + slotKeyOffset(), key, keySize_) == 0;
  }
  // "<table> is corrupt at offset <off>: <what>, contents: <bytes there>".
  Error corruptAt(uint64_t off, const char* what) const;
  Error truncatedAt(uint64_t size, uint64_t expected) const;
  void checkGeometry(FileHeader const& h, uint64_t size) const;
  // forEach, with each key's hash as a fifth argument.
  template <typename Fn>
  void forEachSlot(Fn&& fn) const {
    std::vector<char> buf;
    std::vector<char> key(keySize_);
    walkLiveSlots(0, [&](uint64_t off, SlotHeader const* s, uint32_t seq) {
      uint32_t len = std::min<uint32_t>(loadRelaxed(s->payloadLen), maxLen(s));
      buf.resize(len);
      {
        OptimisticReads copy;
        std::memcpy(key.data(), at(off) + slotKeyOffset(), keySize_);
        if (len != 0) std::memcpy(buf.data(), at(off) + payloadOffset_, len);
      }
      uint64_t version = loadRelaxed(s->version);
      uint32_t hash = loadRelaxed(s->hash);
      std::atomic_thread_fence(std::memory_order_acquire);
      if (loadRelaxed(s->seq) == seq) {
        fn(static_cast<void const*>(key.data()), buf.data(), len, version, hash);
      }
      return true;
    });
  }
  // The heap walk of both scans: from `from` (0: the first slot), checks each
  // slot's geometry and calls visit(offset, slot, seq) for every live slot no
  // write holds; visit returns false to stop there. Returns the stopping
  // slot's offset, 0 at the end.
  template <typename Visit>
  uint64_t walkLiveSlots(uint64_t from, Visit&& visit) const {
    uint64_t end = loadAcquire(header()->heapEnd);
    if (!mapped(end)) throw corruptAt(end, "heap end beyond the file");
    for (uint64_t off = from ? from : heapOffset_; off < end;) {
      SlotHeader const* s = slotAt(off);
      uint32_t size = loadRelaxed(s->slotSize);
      if (size < sizeof(SlotHeader) || size % 8 != 0 || off + size > end) {
        throw corruptAt(off, "slot size");
      }
      uint32_t seq = loadAcquire(s->seq);
      if ((seq & 1) == 0 && loadRelaxed(s->state) == kSlotLive) {
        if (size < payloadOffset_) throw corruptAt(off, "slot smaller than its key");
        if (!visit(off, s, seq)) return off;
      }
      off += size;
    }
    return 0;
  }
  // Records what this process saw of `key`: its version, or its absence.
  void observed(void const* key, uint32_t hash, bool present, uint64_t version) const;
  static void backoff(int attempt);
  // Waits before the next attempt of a lookup that failed at `where` (an
  // offset) on `what` (a sequence or a word); throws Error when it keeps
  // failing there.
  void retried(Retries& r, uint64_t where, uint64_t what) const;
  // Reports the keys of the queue entries [from, to) that are still intact.
  void notifyQueued(uint64_t from, uint64_t to, Handler& handler);
  // Copies the queue entries [from, from + n) into `out`; false when the
  // writer lapped them meanwhile, so that the copies are not to be trusted.
  bool copyQueued(uint64_t from, uint64_t n, std::vector<char>& out) const;

  void resync(Handler& handler, bool overflow);
  void keyNotified(void const* key, uint32_t hash, Handler& handler);
  void drainWake();
  void selfWake();

  TablePaths paths_;
  uint32_t keySize_ = 0;
  uint32_t payloadOffset_ = 0;
  // Slot bytes by size class, as a bucket names it; a class the table does
  // not have reads as a bare slot header, which no record fits.
  uint32_t classBytes_[256] = {};
  mutable IndexView view_;
  // Fixed when the table was created; checked once when it is mapped.
  uint64_t heapOffset_ = 0;
  uint64_t queueOffset_ = 0;
  uint64_t queueCap_ = 0;
  uint32_t entrySize_ = 0;
  Options options_;
  int fd_ = -1;
  int lockFd_ = -1;
  int wakeFd_ = -1;
  mutable Mapping map_;
  ReaderRegistry registry_;
  uint32_t slot_ = 0;
  bool registered_ = false;
  uint64_t pos_ = 0;
  uint64_t epoch_ = 0;
  bool quiesced_ = false;
  uint64_t overflows_ = 0;
  uint64_t resyncs_ = 0;
  mutable uint64_t lastSlot_ = 0;
  // What this process last saw of each key (a lookup, a scan, a
  // notification or a resynchronisation).
  mutable KeyIndex keys_{0};
  std::vector<char> batch_;
};

// Inline with read(): at a million keys a lookup is two cache misses, and
// the fewer instructions around them, the more of the next lookup the CPU
// overlaps with this one.
inline int Reader::probe(void const* key, uint32_t hash, Probe& p) const {
  if (!currentIndex(&p.slot, &p.seq)) return kRetry;
  uint64_t const cap = view_.cap;
  uint64_t const prefix = keyPrefixOf(key, keySize_);
  for (uint64_t n = 0, i = hash & (cap - 1); n < cap; ++n, i = (i + 1) & (cap - 1)) {
    Bucket const* bp = view_.buckets + i;
    uint64_t b = loadAcquire(bp->word);
    if (b == kEmptyBucket) break;
    if (!bucketLive(b) || !bucketTagMatches(b, hash) || loadRelaxed(bp->keyPrefix) != prefix) {
      continue;
    }
    uint64_t const bucketAt = static_cast<uint64_t>(reinterpret_cast<char const*>(bp) - at(0));
    uint64_t s = bucketSlot(b);
    uint64_t size = classBytes_[bucketClass(b)];
    if (!mapped(s + size)) return retryAt(&p.slot, &p.seq, bucketAt, b);
    // Ask for the whole record now: its lines arrive while the header is read.
    for (uint64_t line = 0; line < size; line += 64) __builtin_prefetch(at(s) + line);
    SlotHeader const* sh = slotAt(s);
    uint32_t seq = loadAcquire(sh->seq);
    uint32_t slotSize = loadRelaxed(sh->slotSize);
    if ((seq & 1) || loadRelaxed(sh->state) != kSlotLive || slotSize < payloadOffset_ ||
        !mapped(s + slotSize)) {
      return retryAt(&p.slot, &p.seq, s, seq);
    }
    if (slotKeyIs(s, key, prefix)) {
      // The caller confirms the key with the sequence, after its copy.
      p.slot = s;
      p.seq = seq;
      p.len = std::min<uint32_t>(loadRelaxed(sh->payloadLen), slotSize - payloadOffset_);
      return kFound;
    }
    std::atomic_thread_fence(std::memory_order_acquire);
    if (loadRelaxed(sh->seq) != seq) return retryAt(&p.slot, &p.seq, s, seq);
    // The slot holds another key. If the bucket moved on meanwhile, the slot
    // may have been reused and our key may sit in the bucket's new slot.
    if (loadAcquire(bp->word) != b) return retryAt(&p.slot, &p.seq, bucketAt, b);
  }
  // A rehash while we probed the old index may hide a present key.
  if (loadAcquire(header()->indexOffset) == view_.offset) return kAbsent;
  return retryAt(&p.slot, &p.seq, offsetof(FileHeader, indexOffset), view_.offset);
}

}  // namespace Tamsel
