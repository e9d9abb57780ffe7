#include "Tunnel/shmem/Tamsel/Reader.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <sched.h>
#include <sys/random.h>
#include <thread>
#include <unistd.h>

#include <fmt/format.h>

namespace Tamsel {

namespace {
// Readers of this process that take notifications.
std::atomic<int> gNotifiedReaders{0};
}  // namespace

Reader::Reader(std::string const& dir, std::string const& collection, uint32_t keySize,
               Options const& options)
    : paths_(dir, collection), options_(options) {
  try {
    fd_ = openExistingFile(paths_.table, false);
    FileHeader h{};
    if (::pread(fd_, &h, sizeof(h), 0) != static_cast<ssize_t>(sizeof(h)) || h.magic != kMagic) {
      throw Error(fmt::format("{} is not a table (yet): no valid header", paths_.table), EINVAL);
    }
    if (h.layoutVersion != kLayoutVersion) {
      throw Error(fmt::format("{} has layout version {}, this reader knows {}", paths_.table,
                              h.layoutVersion, kLayoutVersion),
                  EINVAL);
    }
    if (keySize != 0 && h.keySize != keySize) {
      throw Error(
          fmt::format("{} has keys of {} bytes, expected {}", paths_.table, h.keySize, keySize),
          EINVAL);
    }
    // The writer reserves space before it records it, so the file is at
    // least as large as the header read before it says.
    uint64_t size = fileSize(fd_, paths_.table);
    map_.map(fd_, paths_.table, size, false);
    checkGeometry(h, size);
    keySize_ = h.keySize;
    keys_ = KeyIndex(keySize_);
    payloadOffset_ = slotPayloadOffset(keySize_);
    SizeClasses classes(slotBytesFor(h.keySize, h.maxPayload));
    for (uint32_t c = 0; c < 256; ++c) {
      classBytes_[c] = c < classes.count() ? classes.size(c) : sizeof(SlotHeader);
    }
    heapOffset_ = h.heapOffset;
    queueOffset_ = h.queueOffset;
    queueCap_ = h.queueCapacity;
    entrySize_ = h.queueEntrySize;
    map_.populate(loadAcquire(header()->heapEnd));
    lockFd_ = openExistingFile(paths_.lock, true);
    if (options_.notifications) {
      registry_.open(paths_, false, {});
      wakeFd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
      if (wakeFd_ < 0) {
        int err = errno;
        throw Error(fmt::format("cannot create wake-up socket: {}", errnoText(err)), err);
      }
      uint64_t wakeId = 0;
      for (int tries = 0;; ++tries) {
        if (::getrandom(&wakeId, sizeof(wakeId), 0) != sizeof(wakeId)) {
          wakeId = (uint64_t{static_cast<uint32_t>(::getpid())} << 32) ^
                   static_cast<uint64_t>(reinterpret_cast<uintptr_t>(this)) ^ uint64_t(tries);
        }
        socklen_t len = 0;
        sockaddr_un addr = wakeAddress(wakeId, &len);
        if (::bind(wakeFd_, reinterpret_cast<sockaddr*>(&addr), len) == 0) break;
        if (errno != EADDRINUSE || tries > 8) {
          int err = errno;
          throw Error(fmt::format("cannot bind wake-up socket: {}", errnoText(err)), err);
        }
      }
      slot_ = registry_.claim(lockFd_, wakeId);
      registered_ = true;
      gNotifiedReaders.fetch_add(1, std::memory_order_relaxed);
    }
    // Start from the present: the caller scans or resynchronises for the past.
    epoch_ = loadAcquire(header()->writerEpoch);
    pos_ = loadAcquire(header()->queueHead);
    quiesced_ = loadAcquire(header()->quiesced) != 0;
    if (options_.keyIndex) {
      forEachSlot([&](void const* key, char const*, uint32_t, uint64_t version, uint32_t hash) {
        keys_.put(key, hash, version);
      });
    }
    if (registered_) {
      // Caught up by construction: sleep until the writer has news, and
      // make the fd readable if news came while we were starting.
      registry_.asleepIs(slot_, true);
      readerSleepFence();
      if (pending()) selfWake();
    }
  } catch (...) {
    if (registered_) {
      registry_.release(lockFd_, slot_);
      gNotifiedReaders.fetch_sub(1, std::memory_order_relaxed);
    }
    if (wakeFd_ >= 0) ::close(wakeFd_);
    if (lockFd_ >= 0) ::close(lockFd_);
    if (fd_ >= 0) ::close(fd_);
    throw;
  }
}

Reader::~Reader() {
  if (registered_) {
    registry_.release(lockFd_, slot_);
    gNotifiedReaders.fetch_sub(1, std::memory_order_relaxed);
  }
  if (wakeFd_ >= 0) ::close(wakeFd_);
  map_.unmap();
  if (lockFd_ >= 0) ::close(lockFd_);
  if (fd_ >= 0) ::close(fd_);
}

std::string Reader::typeName() const {
  char const* n = header()->typeName;
  return std::string(n, strnlen(n, kTypeNameSize));
}

bool Reader::writerAlive() const { return byteLocked(lockFd_, 0); }

void Reader::checkGeometry(FileHeader const& h, uint64_t size) const {
  // Everything a reader computes an address from, so that a damaged or
  // hostile file is an error here rather than a wild read later.
  uint64_t queueEnd = h.queueOffset + uint64_t{h.queueCapacity} * h.queueEntrySize;
  if (h.headerSize != roundUp(sizeof(FileHeader), 64)) {
    throw corruptAt(offsetof(FileHeader, headerSize), "header size");
  }
  if (h.keySize == 0 || h.keySize > kMaxKeySize) {
    throw corruptAt(offsetof(FileHeader, keySize), "key size");
  }
  if (h.maxPayload > kMaxRecord || (h.fixedPayload != 0 && h.fixedPayload != h.maxPayload)) {
    throw corruptAt(offsetof(FileHeader, maxPayload), "record bounds");
  }
  if (h.queueCapacity < 2 || (h.queueCapacity & (h.queueCapacity - 1)) != 0 ||
      h.queueEntrySize != queueEntrySizeFor(h.keySize)) {
    throw corruptAt(offsetof(FileHeader, queueCapacity), "queue geometry");
  }
  if (h.queueOffset < h.headerSize || h.queueOffset % 8 != 0 || h.queueOffset > h.heapOffset ||
      queueEnd > h.heapOffset || h.heapOffset % 8 != 0 || h.heapOffset > h.heapEnd ||
      h.heapEnd > h.fileSize) {
    throw corruptAt(offsetof(FileHeader, queueOffset), "queue and heap bounds");
  }
  if (h.indexOffset < h.heapOffset || h.indexOffset % 8 != 0 || h.indexOffset > h.heapEnd ||
      h.indexOffset + sizeof(SlotHeader) + sizeof(IndexHeader) > h.heapEnd) {
    throw corruptAt(offsetof(FileHeader, indexOffset), "index offset");
  }
  if (size < h.fileSize) throw truncatedAt(size, h.fileSize);
}

Error Reader::truncatedAt(uint64_t size, uint64_t expected) const {
  return Error(fmt::format("{} is corrupt at offset {}: the file ends there, its header says it "
                           "has {} bytes",
                           paths_.table, size, expected),
               EINVAL);
}

bool Reader::follow(uint64_t end) const {
  uint64_t size = loadAcquire(header()->fileSize);
  if (end > size) return false;
  // The writer reserves the space before it records the size: a shorter
  // file was cut by someone else, and touching what is gone would kill us.
  uint64_t actual = fileSize(fd_, paths_.table);
  if (actual < size) throw truncatedAt(actual, size);
  map_.remap(size);
  map_.populate(loadAcquire(header()->heapEnd));
  return true;
}

void Reader::copyBytes(char* dst, char const* src, uint32_t n) { std::memcpy(dst, src, n); }

bool Reader::readIntoProbing(void const* key, uint32_t hash, char* out, uint32_t cap,
                             uint32_t& len) const {
  return read(key, hash, [&](char const* rec, uint32_t n) {
    copyBytes(out, rec, std::min(n, cap));
    len = n;
  });
}

bool Reader::viewIndex(uint64_t index, uint64_t* where, uint64_t* what) const {
  // One test for both: an index past any mapping, or not 8-byte aligned.
  if ((index & (~(Mapping::kReserve - 1) | 7)) != 0 ||
      !mapped(index + sizeof(SlotHeader) + sizeof(IndexHeader))) {
    retryAt(where, what, offsetof(FileHeader, indexOffset), index);
    return false;
  }
  auto const* ih = reinterpret_cast<IndexHeader const*>(at(index + sizeof(SlotHeader)));
  uint64_t cap = loadRelaxed(ih->capacity);
  uint64_t base = index + sizeof(SlotHeader) + sizeof(IndexHeader);
  if (cap - 1 >= Mapping::kReserve / sizeof(Bucket) || (cap & (cap - 1)) != 0 ||
      !mapped(base + cap * sizeof(Bucket))) {
    retryAt(where, what, index + sizeof(SlotHeader), cap);
    return false;
  }
  view_ = IndexView{index, cap, &ih->capacity, reinterpret_cast<Bucket const*>(at(base))};
  return true;
}

void Reader::backoff(int attempt) {
  if (attempt < 16) return;
  if (attempt < 64) {
    sched_yield();
  } else {
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
}

Error Reader::corruptAt(uint64_t off, const char* what) const {
  uint64_t there = off < map_.size() ? std::min<uint64_t>(map_.size() - off, 32) : 0;
  std::string hex = there ? hexBytes(at(off), there, 32) : "none, beyond the file";
  return Error(
      fmt::format("{} is corrupt at offset {}: {}, contents: {}", paths_.table, off, what, hex),
      EINVAL);
}

void Reader::retried(Retries& r, uint64_t where, uint64_t what) const {
  if (r.attempts > 0 && where == r.where && what == r.what) {
    if (++r.same >= kStuckRetries) throw corruptAt(where, "every lookup through it fails");
  } else {
    r.where = where;
    r.what = what;
    r.same = 0;
  }
  backoff(static_cast<int>(std::min<uint32_t>(r.attempts++, 1u << 20)));
}

bool Reader::readCopy(void const* key, uint32_t hash, std::vector<char>& out) const {
  // The buffer's whole capacity is room for the copy, which then needs no
  // second read for records up to the largest this buffer held before.
  out.resize(std::max<size_t>(out.capacity(), 256));
  for (;;) {
    uint32_t len = 0;
    if (!readInto(key, hash, out.data(), static_cast<uint32_t>(out.size()), len)) {
      out.clear();
      return false;
    }
    bool const whole = len <= out.size();
    out.resize(len);
    if (whole) return true;
  }
}

bool Reader::pending() const {
  return loadAcquire(header()->queueHead) != pos_ || loadAcquire(header()->writerEpoch) != epoch_ ||
         (loadAcquire(header()->quiesced) != 0) != quiesced_;
}

bool Reader::newsWithinSpin() const {
  // On one CPU the writer cannot write while we look. With other readers in
  // the process, its event loop must move on to them rather than wait here.
  static bool const oneCpu = ::sysconf(_SC_NPROCESSORS_ONLN) < 2;
  if (options_.spinNs == 0 || oneCpu || gNotifiedReaders.load(std::memory_order_relaxed) > 1) {
    return false;
  }
  auto until = std::chrono::steady_clock::now() + std::chrono::nanoseconds(options_.spinNs);
  do {
    for (int i = 0; i < 32; ++i) {
      if (pending()) return true;
#if defined(__x86_64__) || defined(__i386__)
      __builtin_ia32_pause();
#elif defined(__aarch64__)
      asm volatile("yield");
#endif
    }
    // A writer on this CPU gets it at once.
    sched_yield();
  } while (std::chrono::steady_clock::now() < until);
  return false;
}

void Reader::drainWake() {
  char buf[64];
  while (::recv(wakeFd_, buf, sizeof(buf), MSG_DONTWAIT) > 0) {
  }
}

void Reader::selfWake() {
  socklen_t len = 0;
  sockaddr_un addr = wakeAddress(loadRelaxed(registry_.header()->readers[slot_].wakeId), &len);
  char byte = 1;
  (void)::sendto(wakeFd_, &byte, 1, MSG_DONTWAIT | MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&addr),
                 len);
}

void Reader::observed(void const* key, uint32_t hash, bool present, uint64_t version) const {
  if (present) {
    keys_.put(key, hash, version);
  } else {
    keys_.erase(key, hash);
  }
}

void Reader::keyNotified(void const* key, uint32_t hash, Handler& handler) {
  if (options_.keyIndex) read(key, hash, [](char const*, uint32_t) {});
  handler.keyChanged(key);
}

void Reader::resync(Handler& handler, bool overflow) {
  ++resyncs_;
  if (overflow) ++overflows_;
  uint64_t from = pos_;
  epoch_ = loadAcquire(header()->writerEpoch);
  // Changes after this point arrive through the queue as well.
  pos_ = loadAcquire(header()->queueHead);
  if (!options_.keyIndex) {
    // Nothing here tells which keys changed: report every key that may
    // have. After a writer restart the entries we had not read are intact
    // unless the writer lapped us; a deleted key is known only from them.
    if (!overflow) notifyQueued(from, pos_, handler);
    forEachSlot([&](void const* key, char const*, uint32_t, uint64_t, uint32_t) {
      handler.keyChanged(key);
    });
    handler.resynchronised(overflow);
    return;
  }
  // Mark every indexed key unseen by a bit kept in the top of its version;
  // versions never reach it.
  constexpr uint64_t kSeen = uint64_t{1} << 63;
  std::vector<char> changed;  // keys, back to back
  auto change = [&](void const* key) {
    auto const* k = static_cast<char const*>(key);
    changed.insert(changed.end(), k, k + keySize_);
  };
  forEachSlot([&](void const* key, char const*, uint32_t, uint64_t version, uint32_t hash) {
    uint64_t* seen = keys_.find(key, hash);
    if (!seen) {
      keys_.put(key, hash, version | kSeen);
      change(key);
    } else if (!(*seen & kSeen)) {
      // A key seen twice keeps its first verdict.
      if (*seen != version) change(key);
      *seen = version | kSeen;
    }
  });
  // A key the scan did not see may have moved behind it rather than gone:
  // only a lookup by key tells. Either way it is reported.
  std::vector<char> unseen;
  std::vector<uint32_t> unseenHashes;
  keys_.forEach([&](void const* key, uint32_t hash, uint64_t& version) {
    if (version & kSeen) {
      version &= ~kSeen;
    } else {
      auto const* k = static_cast<char const*>(key);
      unseen.insert(unseen.end(), k, k + keySize_);
      unseenHashes.push_back(hash);
    }
  });
  for (size_t i = 0; i < unseenHashes.size(); ++i) {
    char const* k = unseen.data() + i * keySize_;
    uint64_t before = *keys_.find(k, unseenHashes[i]);
    read(k, unseenHashes[i], [](char const*, uint32_t) {});  // updates or drops the entry
    uint64_t const* now = keys_.find(k, unseenHashes[i]);
    if (!now || *now != before) change(k);
  }
  for (size_t at = 0; at < changed.size(); at += keySize_) handler.keyChanged(&changed[at]);
  handler.resynchronised(overflow);
}

bool Reader::copyQueued(uint64_t from, uint64_t n, std::vector<char>& out) const {
  out.resize(n * entrySize_);
  {
    // Entries the writer overwrites meanwhile are caught by the check below
    // and by each entry's position.
    OptimisticReads copy;
    for (uint64_t k = 0; k < n; ++k) {
      std::memcpy(out.data() + k * entrySize_,
                  at(queueOffset_ + ((from + k) & (queueCap_ - 1)) * entrySize_), entrySize_);
    }
  }
  std::atomic_thread_fence(std::memory_order_acquire);
  return loadRelaxed(header()->queueHead) - from < queueCap_;
}

void Reader::notifyQueued(uint64_t from, uint64_t to, Handler& handler) {
  std::vector<char> batch;
  if (to - from >= queueCap_ || !copyQueued(from, to - from, batch)) return;
  for (uint64_t p = from; p < to; ++p) {
    char const* e = batch.data() + (p - from) * entrySize_;
    if (reinterpret_cast<QueueEntryHeader const*>(e)->position == p) {
      handler.keyChanged(e + sizeof(QueueEntryHeader));
    }
  }
}

size_t Reader::dispatch(Handler& handler, size_t max) {
  if (!registered_) {
    throw Error(fmt::format("{}: reader opened without notifications", paths_.table), EINVAL);
  }
  drainWake();
  size_t delivered = 0;
  uint32_t const entrySize = entrySize_;
  uint64_t const cap = queueCap_;
  for (;;) {
    if (delivered >= max) {
      selfWake();  // come back through the event loop for the rest
      break;
    }
    if (loadAcquire(header()->writerEpoch) != epoch_) {
      resync(handler, false);
      continue;
    }
    bool q = loadAcquire(header()->quiesced) != 0;
    if (q != quiesced_) {
      quiesced_ = q;
      handler.quiescedChanged(q);
    }
    uint64_t head = loadAcquire(header()->queueHead);
    if (head == pos_) {
      if (delivered > 0 && newsWithinSpin()) continue;
      registry_.asleepIs(slot_, true);
      readerSleepFence();
      if (loadAcquire(header()->queueHead) == pos_ &&
          loadAcquire(header()->writerEpoch) == epoch_ &&
          (loadAcquire(header()->quiesced) != 0) == quiesced_) {
        break;
      }
      registry_.asleepIs(slot_, false);
      continue;
    }
    if (head - pos_ >= cap) {
      resync(handler, true);
      continue;
    }
    uint64_t n = std::min<uint64_t>({head - pos_, 256, max - delivered});
    if (!copyQueued(pos_, n, batch_)) {
      resync(handler, true);  // the writer lapped us while we copied
      continue;
    }
    // The keys' buckets are asked for a few keys ahead and their records a
    // few less, so that the read of each key (and the handler's, which
    // follows) finds them on hand rather than waiting for each in turn.
    auto entry = [&](uint64_t k) {
      return reinterpret_cast<QueueEntryHeader const*>(batch_.data() + k * entrySize);
    };
    constexpr uint64_t kBucketsAhead = 8, kRecordsAhead = 4;
    for (uint64_t k = 0; k < std::min(n, kBucketsAhead); ++k) prefetchBucket(entry(k)->hash);
    for (uint64_t k = 0; k < n; ++k) {
      if (k + kBucketsAhead < n) prefetchBucket(entry(k + kBucketsAhead)->hash);
      if (k + kRecordsAhead < n) {
        auto const* a = entry(k + kRecordsAhead);
        prefetchRecord(reinterpret_cast<char const*>(a) + sizeof(QueueEntryHeader), a->hash);
      }
      auto const* e = entry(k);
      if (e->position != pos_) {
        resync(handler, true);
        break;
      }
      ++pos_;
      keyNotified(batch_.data() + k * entrySize + sizeof(QueueEntryHeader), e->hash, handler);
      ++delivered;
    }
  }
  storeRelaxed(registry_.header()->readers[slot_].position, pos_);
  return delivered;
}

}  // namespace Tamsel
