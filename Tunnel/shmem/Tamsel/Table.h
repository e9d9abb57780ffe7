#pragma once
// What the writer and the readers of a shared-memory keyed table share: the
// file names, the size classes, and the bounds-checked way from an offset to
// a header, a slot or a bucket.

#include <cstdint>
#include <string>
#include <vector>

#include "Tunnel/shmem/Tamsel/Layout.h"

namespace Tamsel {

// Fixed when the table is created; a later writer or reader must agree.
struct TableShape {
  std::string typeName;               // entity type owning the table, recorded for tools
  std::string allocatorName;          // names the allocator in the oversize message
  uint32_t keySize = 8;               // bytes of the fixed key record
  uint32_t maxPayload = 0;            // largest record accepted (dynamic tables)
  uint32_t fixedPayload = 0;          // non-zero: fixed-size records of exactly this size
  uint32_t queueCapacity = 1u << 16;  // notifications kept for readers
};

struct TablePaths {
  TablePaths(std::string const& dir, std::string const& collection);
  std::string dir;
  std::string table;
  std::string registry;
  std::string lock;
};

// Size classes of slots: 64-byte steps to 1 KiB, then eight per power of two,
// up to the largest slot the table needs.
class SizeClasses {
 public:
  explicit SizeClasses(uint32_t maxSlot);
  uint32_t classOf(uint32_t slotBytes) const;  // smallest class that fits
  uint32_t size(uint32_t cls) const { return sizes_[cls]; }
  uint32_t count() const { return static_cast<uint32_t>(sizes_.size()); }
  uint32_t maxSlot() const { return sizes_.back(); }

 private:
  std::vector<uint32_t> sizes_;
};

// Refuses a record the table's allocator cannot take, with the allocator's
// message (Zent::RangeException), before anything is written.
void checkPayload(TableShape const& shape, uint32_t len);

// The first `shown` of `len` bytes in hex, "..." after them when there are
// more: how corruption reports show what they found.
std::string hexBytes(char const* bytes, uint64_t len, uint64_t shown);

inline uint32_t slotBytesFor(uint32_t keySize, uint32_t payload) {
  return slotPayloadOffset(keySize) + roundUp8(payload);
}

inline uint32_t queueEntrySizeFor(uint32_t keySize) {
  return sizeof(QueueEntryHeader) + roundUp8(keySize);
}

}  // namespace Tamsel
