#pragma once
// The plain-data layout of a shared-memory keyed table file. Everything is
// addressed by offsets from the start of the file, never by pointers, so every
// process can map the file anywhere. Fields that change while others read are
// accessed through std::atomic_ref (see Atomic.h).

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace Tamsel {

constexpr uint64_t kMagic = 0x31304c45534d4154ull;  // "TAMSEL01"
constexpr uint32_t kLayoutVersion = 2;
constexpr uint32_t kMaxKeySize = 64;
constexpr uint32_t kMaxRecord = 1u << 30;  // bytes; keeps slot sizes in 32 bits
constexpr uint32_t kTypeNameSize = 128;
constexpr uint32_t kPublishedCounters = 4;

enum SlotState : uint16_t {
  kSlotFree = 0,
  kSlotLive = 1,
  kSlotIndex = 2,
};

struct FileHeader {
  // Fixed at creation.
  uint64_t magic;
  uint32_t layoutVersion;
  uint32_t headerSize;
  uint32_t keySize;
  uint32_t maxPayload;
  uint32_t fixedPayload;   // non-zero: every record has exactly this size
  uint32_t queueCapacity;  // entries, a power of two
  uint32_t queueEntrySize;
  uint32_t reserved0;
  uint64_t queueOffset;
  uint64_t heapOffset;
  char typeName[kTypeNameSize];  // entity type that owns the table, for tools

  // Written by the writer, read by everyone, in three cache lines by how
  // often each changes: a reader polling for news, or looking keys up, then
  // shares no line with what the writer stores on every write but what it
  // came for.
  // Read by every lookup; changes when the file or the index grows.
  alignas(64) uint64_t fileSize;  // bytes reserved in the file
  uint64_t indexOffset;           // the current index region
  // Polled by readers for news; queueHead moves with every write.
  alignas(64) uint64_t queueHead;  // notifications published so far
  uint64_t writerEpoch;            // bumped by every writer that attaches
  uint32_t quiesced;
  // Bookkeeping, for scans and tools.
  alignas(64) uint64_t heapEnd;  // end of the allocated heap
  uint64_t liveCount;            // live records
  uint64_t liveBytes;            // payload bytes of live records
  uint32_t writerPid;
  // Counters the owning entity publishes for tools in other processes (the
  // tunnel tables: entryIs, entryDel, entryNotify).
  uint64_t publishedCounters[kPublishedCounters];
  uint64_t reserved[8 - kPublishedCounters];
};
static_assert(std::is_standard_layout_v<FileHeader> && std::is_trivially_copyable_v<FileHeader>);
static_assert(sizeof(FileHeader) % 64 == 0);
static_assert(offsetof(FileHeader, queueHead) - offsetof(FileHeader, fileSize) == 64);

// A record slot: header, key, payload. `seq` is odd while the writer fills the
// slot; readers copy and re-check it. `slotSize` never changes once the slot
// is carved from the heap, which makes the heap walkable.
// A slot's sequence lock moves only when the slot is filled again, so a
// reader that copied a record before the slot was freed still saw it whole.
struct SlotHeader {
  uint32_t seq;
  uint16_t state;
  uint16_t reserved0;
  uint32_t slotSize;
  uint32_t payloadLen;
  uint32_t hash;  // the key's hash, for rebuilding the index
  uint32_t reserved1;
  uint64_t version;
  // key[keySize rounded up to 8], then the payload
};
static_assert(sizeof(SlotHeader) == 32);

// An index bucket: a word published with one store, and the first eight
// bytes of the key (zero-padded), written before the word. The word holds the
// slot's offset divided by 8 (bits 0-39), its size class (bits 40-47, so a
// reader can prefetch the whole record at once) and the top 16 bits of the
// key's hash (bits 48-63). Word 0 is an empty bucket, 1 a tombstone. Tables
// with keys of at most eight bytes find a key without touching its slot.
struct Bucket {
  uint64_t word;
  uint64_t keyPrefix;
};
static_assert(sizeof(Bucket) == 16);
constexpr uint64_t kEmptyBucket = 0;
constexpr uint64_t kTombstone = 1;
inline constexpr uint64_t makeBucketWord(uint64_t slot, uint32_t sizeClass, uint32_t hash) {
  return (slot >> 3) | (uint64_t{sizeClass & 0xff} << 40) | (uint64_t{hash >> 16} << 48);
}
inline constexpr uint64_t bucketSlot(uint64_t w) { return (w & ((uint64_t{1} << 40) - 1)) << 3; }
inline constexpr uint32_t bucketClass(uint64_t w) { return static_cast<uint32_t>(w >> 40) & 0xff; }
inline constexpr bool bucketLive(uint64_t w) { return w > kTombstone; }
inline constexpr bool bucketTagMatches(uint64_t w, uint32_t hash) {
  return static_cast<uint32_t>(w >> 48) == (hash >> 16);
}
inline uint64_t keyPrefixOf(void const* key, uint32_t keySize) {
  uint64_t p = 0;
  // A load of a fixed size for the usual keys: a copy of a variable size
  // goes through the stack, and the lookup waits on it.
  if (keySize >= 8) {
    __builtin_memcpy(&p, key, 8);
  } else {
    __builtin_memcpy(&p, key, keySize);
  }
  return p;
}

// The payload of an index slot.
struct IndexHeader {
  uint64_t capacity;  // buckets, a power of two
  uint64_t reserved;
  // Bucket buckets[capacity]
};

// A notification: the position it was published at and the key's hash, then
// the key.
struct QueueEntryHeader {
  uint64_t position;
  uint32_t hash;
  uint32_t reserved;
};

inline constexpr uint32_t roundUp8(uint32_t n) { return (n + 7u) & ~7u; }
inline constexpr uint64_t roundUp(uint64_t n, uint64_t a) { return (n + a - 1) / a * a; }

inline constexpr uint32_t slotKeyOffset() { return sizeof(SlotHeader); }
inline constexpr uint32_t slotPayloadOffset(uint32_t keySize) {
  return sizeof(SlotHeader) + roundUp8(keySize);
}

// The reader registry file: who reads, where each reader is in the queue, and
// which readers sleep and want a wake-up.
constexpr uint64_t kRegistryMagic = 0x31304745524d4154ull;  // "TAMREG01"
constexpr uint32_t kMaxReaders = 128;

struct ReaderSlot {
  uint32_t inUse;
  uint32_t pid;
  uint64_t position;  // notifications consumed
  uint64_t wakeId;    // names the reader's wake-up socket
  uint64_t reserved;
};

struct RegistryHeader {
  uint64_t magic;
  uint32_t maxReaders;
  uint32_t reserved0;
  uint64_t asleepMask[kMaxReaders / 64];
  uint64_t reserved[4];
  ReaderSlot readers[kMaxReaders];
};
static_assert(std::is_standard_layout_v<RegistryHeader> &&
              std::is_trivially_copyable_v<RegistryHeader>);

}  // namespace Tamsel
