#include "Tunnel/TunnelRibCalc/RibChoice.h"

#include <algorithm>
#include <map>
#include <tuple>

namespace Tunnel::TunnelRibCalc {

namespace {

struct ByRank {
  bool operator()(InternalTunnelCandidateId const& a, InternalTunnelCandidateId const& b) const {
    return a < b;
  }
};

}  // namespace

RibChoice choose(ColoredTunnelEndpoint const& endpoint, std::span<RibOffer const> offers) {
  RibChoice out;
  out.entry = TunnelRibEntry(endpoint);
  if (offers.empty()) return out;

  std::map<InternalTunnelCandidateId, std::vector<RibOffer const*>, ByRank> groups;
  for (RibOffer const& o : offers) groups[o.candidateId()].push_back(&o);

  InternalTunnelCandidateId const& best = groups.begin()->first;
  // A winner to start from: the best candidate's tunnels all win.
  RibOffer const* lead = groups.begin()->second.front();
  out.candidates.reserve(groups.size());
  for (auto& [id, members] : groups) {
    std::sort(members.begin(), members.end(),
              [](RibOffer const* a, RibOffer const* b) { return a->tunnelId < b->tunnelId; });
    RankedCandidate c{id, {}, false};
    c.tunnels.reserve(members.size());
    for (RibOffer const* o : members) c.tunnels.push_back(o->tunnelId);
    c.winner = id.entryPref() == best.entryPref() && id.entryMetric() == best.entryMetric() &&
               TunnelRibEntry::tunnelTypesCanFormEcmp(id.tunnelType(), best.tunnelType());
    if (c.winner) {
      for (RibOffer const* o : members) {
        out.entry.addTunnelWithBw(o->tunnelId, o->bw);
        if (std::tie(o->metric, o->pref, o->tunnelId) <
            std::tie(lead->metric, lead->pref, lead->tunnelId)) {
          lead = o;
        }
      }
    }
    out.candidates.push_back(std::move(c));
  }
  out.entry.entryPrefIs(best.entryPref());
  out.entry.entryMetricIs(best.entryMetric());
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
