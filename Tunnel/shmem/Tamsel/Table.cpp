#include "Tunnel/shmem/Tamsel/Table.h"

#include <algorithm>

#include <fmt/format.h>

#include "Tunnel/framework/Range.h"

namespace Tamsel {

TablePaths::TablePaths(std::string const& d, std::string const& collection)
    : dir(d),
      table(d + "/" + collection + ".tbl"),
      registry(d + "/" + collection + ".readers"),
      lock(d + "/" + collection + ".lock") {}

SizeClasses::SizeClasses(uint32_t maxSlot) {
  for (uint32_t s = 64; s <= 1024; s += 64) sizes_.push_back(s);
  for (uint64_t base = 1024; sizes_.back() < maxSlot; base *= 2) {
    for (uint64_t k = 1; k <= 8 && sizes_.back() < maxSlot; ++k) {
      sizes_.push_back(static_cast<uint32_t>(base + base * k / 8));
    }
  }
}

uint32_t SizeClasses::classOf(uint32_t bytes) const {
  // Computed rather than searched: every write asks, twice.
  uint32_t cls;
  if (bytes <= 1024) {
    cls = bytes == 0 ? 0 : (bytes + 63) / 64 - 1;
  } else {
    uint32_t const b = bytes - 1;
    uint32_t const p = 31 - static_cast<uint32_t>(__builtin_clz(b));  // 1024 <= 2^p <= b
    uint32_t const base = 1u << p;
    cls = 16 + (p - 10) * 8 + (b - base) / (base >> 3);
  }
  return std::min(cls, count());  // count() when too large
}

void checkPayload(TableShape const& shape, uint32_t len) {
  std::string const& name = shape.allocatorName.empty() ? shape.typeName : shape.allocatorName;
  if (shape.fixedPayload && len != shape.fixedPayload) {
    Zent::throwRangeException(
        fmt::format("{}::alloc() requested payloadSize:{}, but fixed "
                    "payloadSize:{}",
                    name, len, shape.fixedPayload));
  }
  if (len > shape.maxPayload && !shape.fixedPayload) {
    Zent::throwRangeException(
        fmt::format("{}::alloc() requested payloadSize:{}, but max payloadSize:{}", name, len,
                    shape.maxPayload));
  }
}

std::string hexBytes(char const* bytes, uint64_t len, uint64_t shown) {
  std::string hex;
  uint64_t n = std::min(len, shown);
  hex.reserve(n * 2 + 3);
  for (uint64_t i = 0; i < n; ++i) {
    fmt::format_to(std::back_inserter(hex), "{:02x}", static_cast<uint8_t>(bytes[i]));
  }
  if (n < len) hex += "...";
  return hex;
}

}  // namespace Tamsel
