#include "Tunnel/shmem/Tamsel/Writer.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include <fmt/format.h>

#include "Tunnel/framework/Range.h"

namespace Tamsel {
namespace {

constexpr uint64_t kMinIndexCapacity = 1024;
constexpr uint64_t kGrowChunk = 1u << 20;
// The write that outgrows the file pays for reserving the next step, so the
// step is capped: reserving 4 MB takes about a millisecond, and no single
// write stalls its agent's event loop for longer. The total cost is the same.
constexpr uint64_t kMaxGrowStep = 4ull << 20;

uint32_t headerBytes() { return static_cast<uint32_t>(roundUp(sizeof(FileHeader), 64)); }

// Who holds a table's writer lock, recorded at the start of the lock file by
// the holder once it has the lock: the kernel names no holder of an
// open-file-description lock. The start time tells the holder from an
// earlier writer whose pid was reused.
struct LockHolder {
  uint32_t pid;
  uint32_t reserved;
  uint64_t startTime;
};

// The start time of process `pid` (clock ticks after boot), 0 when unknown.
uint64_t processStartTime(uint32_t pid) {
  int fd = ::open(fmt::format("/proc/{}/stat", pid).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return 0;
  char buf[1024];
  ssize_t n = ::read(fd, buf, sizeof(buf) - 1);
  ::close(fd);
  if (n <= 0) return 0;
  buf[n] = '\0';
  // The command name may hold anything; the fields after it are numbers.
  char const* p = std::strrchr(buf, ')');
  if (!p) return 0;
  for (int field = 2; *p && field < 22;) {
    if (*p++ == ' ') ++field;
  }
  return std::strtoull(p, nullptr, 10);
}

void holderIs(int lockFd, uint32_t pid) {
  LockHolder h{pid, 0, pid ? processStartTime(pid) : 0};
  // Only the refusal message of a rival depends on it.
  (void)!::pwrite(lockFd, &h, sizeof(h), 0);
}

// Waits briefly for the winner of a race to record itself, and names it.
std::string lockHolder(int lockFd) {
  for (int tries = 0; tries < 100; ++tries) {
    LockHolder h{};
    if (::pread(lockFd, &h, sizeof(h), 0) == static_cast<ssize_t>(sizeof(h)) && h.pid != 0 &&
        h.startTime != 0 && processStartTime(h.pid) == h.startTime && byteLocked(lockFd, 0)) {
      return fmt::format("pid {}", h.pid);
    }
    ::usleep(1000);
  }
  return "a live process whose pid could not be determined";
}

}  // namespace

Writer::Writer(std::string const& dir, std::string const& collection, TableShape const& shape,
               FilePermissions const& perms)
    : shape_(shape), paths_(dir, collection), perms_(perms) {
  if (shape.keySize == 0 || shape.keySize > kMaxKeySize) {
    throw Error(
        fmt::format("{}: key size {} outside 1..{}", paths_.table, shape.keySize, kMaxKeySize),
        EINVAL);
  }
  if (shape.queueCapacity < 2 || (shape.queueCapacity & (shape.queueCapacity - 1)) != 0) {
    throw Error(fmt::format("{}: queue capacity {} is not a power of two", paths_.table,
                            shape.queueCapacity),
                EINVAL);
  }
  if (shape_.fixedPayload) shape_.maxPayload = shape_.fixedPayload;
  if (shape_.maxPayload > kMaxRecord) {
    throw Error(fmt::format("{}: records up to {} bytes exceed the largest a table holds, {}",
                            paths_.table, shape_.maxPayload, kMaxRecord),
                EINVAL);
  }
  if (shape_.allocatorName.empty()) shape_.allocatorName = shape_.typeName;
  makeDirs(dir, perms);
  try {
    lockFd_ = openOwnedFile(paths_.lock, true, perms);
    if (!tryLockByte(lockFd_, 0)) {
      throw Error(
          fmt::format("table {} already has a writer ({})", paths_.table, lockHolder(lockFd_)),
          EBUSY);
    }
    holderIs(lockFd_, static_cast<uint32_t>(::getpid()));
    holdsLock_ = true;
    bool created = false;
    fd_ = openOwnedFile(paths_.table, true, perms, &created);
    FileHeader existing{};
    bool valid =
        !created &&
        ::pread(fd_, &existing, sizeof(existing), 0) == static_cast<ssize_t>(sizeof(existing)) &&
        existing.magic == kMagic;
    payloadOffset_ = slotPayloadOffset(shape_.keySize);
    classes_ = SizeClasses(slotBytesFor(shape_.keySize, shape_.maxPayload));
    if (classes_.count() > 255) {
      throw Error(fmt::format("{}: records up to {} bytes need more size classes than an index "
                              "bucket can name",
                              paths_.table, shape_.maxPayload),
                  EINVAL);
    }
    free_.assign(classes_.count(), {});
    if (valid) {
      attach(shape_);
    } else {
      create(shape_);
    }
    registry_.open(paths_, true, perms);
    wakeSocket_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (wakeSocket_ < 0) {
      int err = errno;
      throw Error(fmt::format("cannot create wake-up socket: {}", errnoText(err)), err);
    }
    asymmetricFence_ = registerAsymmetricWriter();
    storeRelease(header()->writerPid, static_cast<uint32_t>(::getpid()));
  } catch (...) {
    map_.unmap();
    if (fd_ >= 0) ::close(fd_);
    if (lockFd_ >= 0) {
      if (holdsLock_) holderIs(lockFd_, 0);
      ::close(lockFd_);
    }
    throw;
  }
}

Writer::~Writer() {
  map_.unmap();
  if (wakeSocket_ >= 0) ::close(wakeSocket_);
  if (fd_ >= 0) ::close(fd_);
  // This process may live on: a rival must not name it once the lock is gone.
  holderIs(lockFd_, 0);
  ::close(lockFd_);  // drops the writer lock
}

void Writer::create(TableShape const& shape) {
  if (::ftruncate(fd_, 0) != 0) {
    int err = errno;
    throw Error(fmt::format("cannot truncate {}: {}", paths_.table, errnoText(err)), err);
  }
  uint32_t entrySize = queueEntrySizeFor(shape.keySize);
  uint64_t queueOffset = headerBytes();
  uint64_t heapOffset = roundUp(queueOffset + uint64_t{shape.queueCapacity} * entrySize, 64);
  uint64_t size = roundUp(heapOffset + kGrowChunk, kGrowChunk);
  reserveSpace(fd_, paths_.table, size);
  map_.map(fd_, paths_.table, size, true);
  FileHeader* h = header();
  h->layoutVersion = kLayoutVersion;
  h->headerSize = headerBytes();
  h->keySize = shape.keySize;
  h->maxPayload = shape.maxPayload;
  h->fixedPayload = shape.fixedPayload;
  h->queueCapacity = shape.queueCapacity;
  h->queueEntrySize = entrySize;
  h->queueOffset = queueOffset;
  h->heapOffset = heapOffset;
  std::snprintf(h->typeName, sizeof(h->typeName), "%s", shape.typeName.c_str());
  h->fileSize = size;
  h->heapEnd = heapOffset;
  h->writerEpoch = 1;
  buildIndex(kMinIndexCapacity);
  // Readers accept the table only once the magic is there.
  storeRelease(header()->magic, kMagic);
}

void Writer::attach(TableShape const& shape) {
  FileHeader h{};
  if (::pread(fd_, &h, sizeof(h), 0) != static_cast<ssize_t>(sizeof(h))) {
    throw Error(fmt::format("cannot read the header of {}", paths_.table), EIO);
  }
  if (h.layoutVersion != kLayoutVersion || h.keySize != shape.keySize ||
      h.maxPayload != shape.maxPayload || h.fixedPayload != shape.fixedPayload ||
      h.queueCapacity != shape.queueCapacity || shape.typeName != h.typeName) {
    throw Error(fmt::format("{} holds a table of {} (key {} bytes, records up to {}); this writer "
                            "is for {} (key {} bytes, records up to {})",
                            paths_.table, h.typeName, h.keySize, h.maxPayload, shape.typeName,
                            shape.keySize, shape.maxPayload),
                EINVAL);
  }
  uint64_t size = fileSize(fd_, paths_.table);
  map_.map(fd_, paths_.table, size, true);
  storeRelease(header()->fileSize, size);
  recover();
  recovered_ = true;
}

void Writer::recover() {
  FileHeader* h = header();
  uint64_t const heapOffset = h->heapOffset;
  uint64_t const heapEnd = h->heapEnd;
  uint64_t const index = h->indexOffset;
  auto corrupt = [&](uint64_t off, const char* what) {
    return Error(fmt::format("{} is corrupt at offset {}: {}", paths_.table, off, what), EINVAL);
  };
  if (heapEnd > map_.size() || heapOffset > heapEnd) throw corrupt(0, "heap bounds");
  if (index < heapOffset || index + sizeof(SlotHeader) + sizeof(IndexHeader) > heapEnd ||
      slotAt(index)->state != kSlotIndex) {
    throw corrupt(index, "no index");
  }
  // Which slots does the index reference? One bit per 8 bytes of heap.
  std::vector<uint64_t> referenced((heapEnd - heapOffset) / 8 / 64 + 1, 0);
  auto* ih = reinterpret_cast<IndexHeader*>(at(index + sizeof(SlotHeader)));
  auto* buckets = reinterpret_cast<Bucket*>(ih + 1);
  uint64_t cap = ih->capacity;
  if (cap == 0 || (cap & (cap - 1)) != 0 ||
      index + sizeof(SlotHeader) + sizeof(IndexHeader) + cap * sizeof(Bucket) > heapEnd) {
    throw corrupt(index, "index capacity");
  }
  tombstones_ = 0;
  for (uint64_t i = 0; i < cap; ++i) {
    if (buckets[i].word == kTombstone) ++tombstones_;
    if (!bucketLive(buckets[i].word)) continue;
    uint64_t s = bucketSlot(buckets[i].word);
    if (s < heapOffset || s >= heapEnd) throw corrupt(s, "bucket points outside");
    uint64_t bit = (s - heapOffset) / 8;
    referenced[bit / 64] |= uint64_t{1} << (bit % 64);
  }
  uint64_t live = 0, bytes = 0;
  version_ = 0;
  for (uint64_t off = heapOffset; off < heapEnd;) {
    SlotHeader* s = slotAt(off);
    if (s->slotSize < sizeof(SlotHeader) || s->slotSize % 8 != 0 || off + s->slotSize > heapEnd) {
      throw corrupt(off, "slot size");
    }
    // Freed slots keep the version of their last record, so the largest
    // version in the heap is the largest ever given: versions never repeat,
    // and a reader's "version differs" means "record changed".
    version_ = std::max(version_, s->version);
    uint64_t bit = (off - heapOffset) / 8;
    bool isReferenced = (referenced[bit / 64] >> (bit % 64)) & 1;
    if (s->state == kSlotIndex) {
      // An old index no reader can reach any more.
      if (off != index) storeRelaxed(s->state, uint16_t{kSlotFree});
    } else if (isReferenced) {
      if (s->seq & 1) storeRelease(s->seq, s->seq + 1);
      storeRelaxed(s->state, uint16_t{kSlotLive});
      ++live;
      bytes += s->slotSize;
    } else if (s->state != kSlotFree || (s->seq & 1)) {
      // Left by a write or a free that the previous writer did not finish.
      storeRelaxed(s->state, uint16_t{kSlotFree});
      storeRelease(s->seq, (s->seq | 1) + 1);
    }
    if (s->state == kSlotFree) {
      uint32_t cls = classes_.classOf(s->slotSize);
      if (cls < classes_.count() && classes_.size(cls) == s->slotSize) {
        free_[cls].push_back(off);
      }
      // Other sizes (old indexes) stay unused until the table is recreated.
    }
    off += s->slotSize;
  }
  storeRelaxed(h->liveCount, live);
  storeRelaxed(h->liveBytes, bytes);
  // A notification written but not published may describe a change that
  // readers can already see: every reader resynchronises on a new epoch.
  storeRelease(h->writerEpoch, h->writerEpoch + 1);
}

void Writer::grow(uint64_t needEnd) {
  uint64_t cur = header()->fileSize;
  uint64_t step = std::min(std::max(cur, kGrowChunk), kMaxGrowStep);
  uint64_t size = roundUp(std::max(needEnd, cur + step), kGrowChunk);
  reserveSpace(fd_, paths_.table, size);
  map_.remap(size);
  storeRelease(header()->fileSize, size);
}

uint64_t Writer::carve(uint64_t bytes) {
  uint64_t off = header()->heapEnd;
  if (off + bytes > header()->fileSize) grow(off + bytes);
  SlotHeader* s = slotAt(off);
  std::memset(s, 0, sizeof(SlotHeader));
  s->slotSize = static_cast<uint32_t>(bytes);
  s->state = kSlotFree;
  // The header is complete before heap walkers can reach it.
  storeRelease(header()->heapEnd, off + bytes);
  return off;
}

uint64_t Writer::allocSlot(uint32_t cls) {
  auto& list = free_[cls];
  if (!list.empty()) {
    uint64_t off = list.back();
    list.pop_back();
    return off;
  }
  return carve(classes_.size(cls));
}

void Writer::freeSlot(uint64_t off, uint32_t cls) {
  // A store only: the slot's line need not be read here, and a reader that
  // copies it meanwhile still sees an intact record.
  storeRelease(slotAt(off)->state, uint16_t{kSlotFree});
  free_[cls].push_back(off);
}

uint64_t Writer::beginWrite(void const* key, uint32_t hash, uint32_t len) {
  checkPayload(shape_, len);
  uint64_t off = allocSlot(classes_.classOf(slotBytesFor(shape_.keySize, len)));
  SlotHeader* s = slotAt(off);
  storeRelaxed(s->seq, s->seq + 1);
  std::atomic_thread_fence(std::memory_order_release);
  // Readers still copying the slot's previous record load these fields; the
  // sequence check discards what they saw.
  storeRelaxed(s->payloadLen, len);
  storeRelaxed(s->hash, hash);
  storeRelaxed(s->version, ++version_);
  std::memcpy(at(off) + slotKeyOffset(), key, shape_.keySize);
  return off;
}

void Writer::commitWrite(void const* key, uint32_t hash, uint64_t slot) {
  SlotHeader* s = slotAt(slot);
  uint32_t cls = classes_.classOf(s->slotSize);
  uint64_t bucket = findBucket(key, hash);
  uint64_t old = 0;
  if (bucket == 0) {
    try {
      maybeGrowIndex();
    } catch (...) {
      // No room for a larger index: the slot goes back unpublished, so the
      // refused write leaves nothing a scan could find.
      storeRelease(s->seq, s->seq + 1);
      free_[cls].push_back(slot);
      throw;
    }
    bucket = insertBucket(key, hash);
  } else {
    old = bucketAt(bucket)->word;
  }
  storeRelaxed(s->state, uint16_t{kSlotLive});
  storeRelease(s->seq, s->seq + 1);
  uint64_t pos = header()->queueHead;
  publishNotification(key, hash);
  storeRelease(bucketAt(bucket)->word, makeBucketWord(slot, cls, hash));
  FileHeader* h = header();
  if (old) {
    storeRelaxed(h->liveBytes, h->liveBytes - classes_.size(bucketClass(old)) + classes_.size(cls));
  } else {
    storeRelaxed(h->liveCount, h->liveCount + 1);
    storeRelaxed(h->liveBytes, h->liveBytes + classes_.size(cls));
  }
  storeRelease(h->queueHead, pos + 1);
  if (old) freeSlot(bucketSlot(old), bucketClass(old));
  wakeSleepers();
}

void Writer::commitRemove(void const* key, uint32_t hash, uint64_t bucket) {
  uint64_t pos = header()->queueHead;
  uint64_t old = bucketAt(bucket)->word;
  publishNotification(key, hash);
  storeRelease(bucketAt(bucket)->word, kTombstone);
  ++tombstones_;
  FileHeader* h = header();
  storeRelaxed(h->liveCount, h->liveCount - 1);
  storeRelaxed(h->liveBytes, h->liveBytes - classes_.size(bucketClass(old)));
  storeRelease(h->queueHead, pos + 1);
  freeSlot(bucketSlot(old), bucketClass(old));
  wakeSleepers();
}

void Writer::publishNotification(void const* key, uint32_t hash) {
  FileHeader const* h = header();
  uint64_t pos = h->queueHead;
  char* e = at(h->queueOffset + (pos & (h->queueCapacity - 1)) * h->queueEntrySize);
  auto* qe = reinterpret_cast<QueueEntryHeader*>(e);
  storeRelaxed(qe->position, pos);
  storeRelaxed(qe->hash, hash);
  std::memcpy(e + sizeof(QueueEntryHeader), key, shape_.keySize);
}

void Writer::wakeSleepers() {
  // Pairs with the reader's barrier between announcing sleep and re-reading
  // the queue head: either it sees our entry or we see its bit.
  writerPublishFence(asymmetricFence_);
  for (uint32_t w = 0; w < kMaxReaders / 64; ++w) {
    uint64_t mask = registry_.takeSleepers(w);
    while (mask) {
      uint32_t i = w * 64 + static_cast<uint32_t>(__builtin_ctzll(mask));
      mask &= mask - 1;
      socklen_t len = 0;
      sockaddr_un addr = wakeAddress(loadRelaxed(registry_.header()->readers[i].wakeId), &len);
      char byte = 1;
      // A reader that is gone, or already has a wake-up pending, needs no other.
      (void)::sendto(wakeSocket_, &byte, 1, MSG_DONTWAIT | MSG_NOSIGNAL,
                     reinterpret_cast<sockaddr*>(&addr), len);
    }
  }
}

void Writer::quiescedIs(bool q) {
  if ((header()->quiesced != 0) == q) return;
  storeRelease(header()->quiesced, q ? 1u : 0u);
  wakeSleepers();
}

uint64_t Writer::bucketBase() const {
  return header()->indexOffset + sizeof(SlotHeader) + sizeof(IndexHeader);
}

uint64_t Writer::indexCapacity() const {
  return reinterpret_cast<IndexHeader const*>(at(header()->indexOffset + sizeof(SlotHeader)))
      ->capacity;
}

void Writer::prefetchBucket(uint32_t hash) const {
  __builtin_prefetch(at(bucketBase() + (hash & (indexCapacity() - 1)) * sizeof(Bucket)));
}

uint64_t Writer::findBucket(void const* key, uint32_t hash) const {
  uint64_t cap = indexCapacity();
  uint64_t base = bucketBase();
  uint64_t prefix = keyPrefixOf(key, shape_.keySize);
  bool prefixIsKey = shape_.keySize <= 8;
  for (uint64_t n = 0, i = hash & (cap - 1); n < cap; ++n, i = (i + 1) & (cap - 1)) {
    Bucket const* b = bucketAt(base + i * sizeof(Bucket));
    if (b->word == kEmptyBucket) return 0;
    if (bucketLive(b->word) && bucketTagMatches(b->word, hash) && b->keyPrefix == prefix &&
        (prefixIsKey ||
         std::memcmp(at(bucketSlot(b->word)) + slotKeyOffset(), key, shape_.keySize) == 0)) {
      return base + i * sizeof(Bucket);
    }
  }
  return 0;
}

uint64_t Writer::insertBucket(void const* key, uint32_t hash) {
  uint64_t cap = indexCapacity();
  uint64_t base = bucketBase();
  for (uint64_t i = hash & (cap - 1);; i = (i + 1) & (cap - 1)) {
    Bucket* b = bucketAt(base + i * sizeof(Bucket));
    if (!bucketLive(b->word)) {
      if (b->word == kTombstone) --tombstones_;
      // The key goes in before the word that makes the bucket live.
      storeRelaxed(b->keyPrefix, keyPrefixOf(key, shape_.keySize));
      return base + i * sizeof(Bucket);
    }
  }
}

// The capacity an index is rebuilt with for `keys` keys: room to double.
uint64_t Writer::indexCapacityFor(uint64_t keys) {
  uint64_t want = kMinIndexCapacity;
  while (want < (keys + 1) * 4) want *= 2;
  return want;
}

void Writer::maybeGrowIndex() {
  uint64_t cap = indexCapacity();
  uint64_t live = header()->liveCount;
  if ((live + tombstones_ + 1) * 2 <= cap) return;
  buildIndex(indexCapacityFor(live));
}

void Writer::reserveKeys(uint64_t keys) {
  uint64_t want = indexCapacityFor(keys);
  if (want > indexCapacity()) buildIndex(want);
}

void Writer::buildIndex(uint64_t capacity) {
  uint64_t bytes =
      roundUp(sizeof(SlotHeader) + sizeof(IndexHeader) + capacity * sizeof(Bucket), 64);
  uint64_t off = carve(bytes);
  // A heap walker may already see the slot (carve published it).
  storeRelaxed(slotAt(off)->state, uint16_t{kSlotIndex});
  auto* ih = reinterpret_cast<IndexHeader*>(at(off + sizeof(SlotHeader)));
  ih->capacity = capacity;
  auto* buckets = reinterpret_cast<Bucket*>(ih + 1);
  std::memset(static_cast<void*>(buckets), 0, capacity * sizeof(Bucket));
  uint64_t old = header()->indexOffset;
  if (old) {
    auto const* oh = reinterpret_cast<IndexHeader const*>(at(old + sizeof(SlotHeader)));
    auto const* ob = reinterpret_cast<Bucket const*>(oh + 1);
    for (uint64_t i = 0; i < oh->capacity; ++i) {
      if (!bucketLive(ob[i].word)) continue;
      uint32_t hash = slotAt(bucketSlot(ob[i].word))->hash;
      for (uint64_t j = hash & (capacity - 1);; j = (j + 1) & (capacity - 1)) {
        if (buckets[j].word == kEmptyBucket) {
          buckets[j] = ob[i];
          break;
        }
      }
    }
  }
  tombstones_ = 0;
  // Readers switch to the new index with this one store; the old one stays
  // intact for those still probing it.
  storeRelease(header()->indexOffset, off);
}

bool Writer::find(void const* key, uint32_t hash, char const** rec, uint32_t* len) const {
  uint64_t b = findBucket(key, hash);
  if (b == 0) return false;
  uint64_t slot = bucketSlot(bucketAt(b)->word);
  *rec = at(slot) + payloadOffset_;
  *len = slotAt(slot)->payloadLen;
  return true;
}

uint64_t Writer::slotOffset(void const* key, uint32_t hash) const {
  uint64_t b = findBucket(key, hash);
  return b ? bucketSlot(bucketAt(b)->word) : 0;
}

}  // namespace Tamsel
