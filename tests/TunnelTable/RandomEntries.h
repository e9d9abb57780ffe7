#pragma once
// Random contents for tunnel table entries: the field values every family
// shares and the base fields. `full` fills every array to its capacity, the
// shape that gives the largest records.

#include <cstdint>

#include "Tunnel/TunnelTable/TunnelTableEntry.h"
#include "tests/net/RandomValues.h"

namespace Tunnel::TunnelTable::test {

class EntryRng : public Vorn::test::RandomValues {
 public:
  using RandomValues::RandomValues;

  uint32_t u32() { return static_cast<uint32_t>(upTo(UINT32_MAX)); }
  uint16_t u16() { return static_cast<uint16_t>(upTo(UINT16_MAX)); }
  TunnelId tunnelId() {
    // Every type a TunnelId can carry without tripping getDefaultPrefForType.
    uint64_t type = below(25);
    if (type == 24) type = reservedTunnel31;
    return TunnelId(
        TunnelId::convertToTunnelValue(static_cast<TunnelType>(type), upTo(TunnelId::kIndexMask)));
  }
  Via via() { return Via(addr(), intf()); }
  MplsVia mplsVia() { return MplsVia(addr(), intf(), labelOp()); }
  TristateU32 tristate() { return TristateU32(u32(), static_cast<TristateState>(below(3))); }

  // How many elements to put in an array: all of them when full, else a
  // few (often none).
  uint32_t count(bool full, uint32_t capacity) {
    return full ? capacity : static_cast<uint32_t>(upTo(3));
  }
};

// Sets every base field. Arrays go through the entry's own setters.
inline void randomizeBase(TunnelTableEntry& e, EntryRng& r, bool full) {
  e.tunnelIdIs(r.tunnelId());
  e.nexthopTunnelIdIs(r.tunnelId());
  e.entryPrefIs(static_cast<uint8_t>(r.upTo(255)));
  e.entryMetricIs(r.u32());
  e.tunnelBwIs(r.u32());
  e.viasOrderedIs(r.coin());
  e.endpointDelAll();
  uint32_t const endpoints = r.count(full, EndpointArray::capacity);
  for (uint32_t i = 0; i < endpoints; ++i) e.endpointIs(i, r.prefix());
  e.nameDelAll();
  uint32_t const nameLen = full ? NameArray::capacity : static_cast<uint32_t>(r.upTo(12));
  for (uint32_t i = 0; i < nameLen; ++i) e.nameIs(i, static_cast<uint8_t>(r.below(256)));
}

}  // namespace Tunnel::TunnelTable::test
