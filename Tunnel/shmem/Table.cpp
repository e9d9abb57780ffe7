#include "Tunnel/shmem/Table.h"

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
  auto it = std::lower_bound(sizes_.begin(), sizes_.end(), bytes);
  return static_cast<uint32_t>(it - sizes_.begin());  // count() when too large
}

void checkPayload(TableSpec const& spec, uint32_t len) {
  std::string const& name = spec.allocatorName.empty() ? spec.typeName : spec.allocatorName;
  if (spec.fixedPayload && len != spec.fixedPayload) {
    Zent::throwRangeException(
        fmt::format("{}::alloc() requested payloadSize:{}, but fixed "
                    "payloadSize:{}",
                    name, len, spec.fixedPayload));
  }
  if (len > spec.maxPayload && !spec.fixedPayload) {
    Zent::throwRangeException(
        fmt::format("{}::alloc() requested payloadSize:{}, but max payloadSize:{}", name, len,
                    spec.maxPayload));
  }
}

}  // namespace Tamsel
