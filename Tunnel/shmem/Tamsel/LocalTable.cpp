#include "Tunnel/shmem/Tamsel/LocalTable.h"

namespace Tamsel {

void LocalTable::checkLen(uint32_t len) const { checkPayload(shape_, len); }

uint64_t LocalTable::liveBytes() const {
  uint64_t n = 0;
  for (auto const& [k, r] : records_) n += r.size();
  return n;
}

}  // namespace Tamsel
