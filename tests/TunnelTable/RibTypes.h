#pragma once
// Random tunnel RIB entries, in the form the entry tests use, for the value
// contract and the record fuzzer's seeds.

#include "Tunnel/TunnelTable/TunnelRibEntry.h"
#include "tests/TunnelTable/EntryTypes.h"

namespace Tunnel::TunnelTable::test {

template <>
struct EntryTraits<TunnelRibEntry> {
  static void randomize(TunnelRibEntry& e, EntryRng& r, bool full) {
    Vorn::IpGenPrefix const tep = r.prefix();
    uint32_t const color = r.u32();
    e = TunnelRibEntry(ColoredTunnelEndpoint(tep, color, r.coin()));
    e.metricIs(r.u32());
    e.metricTypeIs(static_cast<Vorn::MetricType>(r.below(3)));
    e.metric2Is(r.u32());
    e.prefIs(r.u32());
    e.pref2Is(r.u32());
    e.entryPrefIs(r.u8());
    e.entryMetricIs(r.u32());
    // Bandwidths may be fewer than ids: the two lists are kept apart.
    for (uint32_t i = 0, n = r.count(full, 600); i < n; ++i) e.tunnelIdIs(i, r.tunnelId());
    for (uint32_t i = 0, n = r.count(full, 600); i < n; ++i) e.tunnelBwIs(i, r.u32());
  }
};

}  // namespace Tunnel::TunnelTable::test
