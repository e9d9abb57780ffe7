#include "Tunnel/TunnelRibCalc/RibChoice.h"

#include <algorithm>
#include <tuple>

namespace Tunnel::TunnelRibCalc {

namespace {

// The ranking of InternalTunnelCandidateId packed in one number (entry
// preference, the type's default preference, entry metric, type), so that a
// choice sorts its offers once instead of ordering candidates in a map.
uint64_t rankKey(RibOffer const& o) {
  return uint64_t{o.entryPref.value()} << 56 |
         uint64_t{TunnelTable::getDefaultPrefForType(o.type).value()} << 48 |
         uint64_t{o.entryMetric} << 16 | static_cast<uint16_t>(o.type);
}

}  // namespace

RibChoice choose(ColoredTunnelEndpoint const& endpoint, std::span<RibOffer const> offers) {
  RibChoice out{{}, TunnelRibEntry(endpoint)};
  if (offers.empty()) return out;

  struct Ranked {
    uint64_t key;
    RibOffer const* offer;
  };
  std::vector<Ranked> ranked;
  ranked.reserve(offers.size());
  for (RibOffer const& o : offers) ranked.push_back({rankKey(o), &o});
  std::sort(ranked.begin(), ranked.end(), [](Ranked const& a, Ranked const& b) {
    return a.key != b.key ? a.key < b.key : a.offer->tunnelId < b.offer->tunnelId;
  });

  RibOffer const& best = *ranked.front().offer;
  // A winner to start from: the best candidate's tunnels all win.
  RibOffer const* lead = &best;
  for (size_t i = 0; i < ranked.size();) {
    RibOffer const& first = *ranked[i].offer;
    RankedCandidate c{first.candidateId(), {}, false};
    c.winner = first.entryPref == best.entryPref && first.entryMetric == best.entryMetric &&
               TunnelRibEntry::tunnelTypesCanFormEcmp(first.type, best.type);
    for (uint64_t key = ranked[i].key; i < ranked.size() && ranked[i].key == key; ++i) {
      RibOffer const* o = ranked[i].offer;
      c.tunnels.push_back(o->tunnelId);
      if (!c.winner) continue;
      out.entry.addTunnelWithBw(o->tunnelId, o->bw);
      if (std::tie(o->metric, o->pref, o->tunnelId) <
          std::tie(lead->metric, lead->pref, lead->tunnelId)) {
        lead = o;
      }
    }
    out.candidates.push_back(std::move(c));
  }
  out.entry.entryPrefIs(best.entryPref);
  out.entry.entryMetricIs(best.entryMetric);
  out.entry.metricIs(lead->metric);
  out.entry.metric2Is(lead->metric2);
  out.entry.prefIs(lead->pref);
  out.entry.pref2Is(lead->pref2);
  out.entry.metricTypeIs(lead->metricType);
  return out;
}

std::string_view rankReason(InternalTunnelCandidateId const& above,
                            InternalTunnelCandidateId const& below) {
  if (above.entryPref() != below.entryPref()) return "lower entry preference";
  if (TunnelTable::getDefaultPrefForType(above.tunnelType()) !=
      TunnelTable::getDefaultPrefForType(below.tunnelType())) {
    return "lower type preference";
  }
  if (above.entryMetric() != below.entryMetric()) return "lower metric";
  return "type number";
}

}  // namespace Tunnel::TunnelRibCalc
