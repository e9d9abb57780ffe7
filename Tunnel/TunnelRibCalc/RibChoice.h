#pragma once
// How the tunnels offered to one endpoint become a RIB entry: they are
// grouped into candidates (one per tunnel type, entry preference and entry
// metric), the candidates are ranked, and the best one wins together with
// every candidate of equal preference and metric whose type may share an
// ECMP set with it. Pure functions over values, so that the agent, tunnelctl
// and tests all reason with the same rule.

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "Tunnel/TunnelTable/ColoredTunnelEndpoint.h"
#include "Tunnel/TunnelTable/EntryFields.h"
#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/TunnelTable/TunnelRibEntry.h"
#include "Tunnel/TunnelTableKeepdbTypes/TunnelEntryPref.h"
#include "Tunnel/TunnelTableKeepdbTypes/TunnelType.h"
#include "Tunnel/cli/InternalTunnelCandidateId.h"
#include "Tunnel/net/MetricType.h"

namespace Tunnel::TunnelRibCalc {

using TunnelTable::ColoredTunnelEndpoint;
using TunnelTable::InternalTunnelCandidateId;
using TunnelTable::TunnelBandwidth;
using TunnelTable::TunnelEntryPref;
using TunnelTable::TunnelId;
using TunnelTable::TunnelRibEntry;
using TunnelTable::TunnelType;

// What one protocol tunnel offers the RIB of its endpoint.
struct RibOffer {
  TunnelId tunnelId;
  ColoredTunnelEndpoint endpoint;
  TunnelType type = TunnelTable::unknownTunnel;
  TunnelEntryPref entryPref;
  uint32_t entryMetric = 0;
  // The protocol's own metrics and preferences, carried into the RIB entry.
  uint32_t metric = 0;
  uint32_t metric2 = 0;
  uint32_t pref = 0;
  uint32_t pref2 = 0;
  Vorn::MetricType metricType = Vorn::kDefaultMetricType;
  TunnelBandwidth bw;

  InternalTunnelCandidateId candidateId() const {
    return InternalTunnelCandidateId(type, entryPref, entryMetric);
  }
  friend bool operator==(RibOffer const&, RibOffer const&) = default;
};

struct RankedCandidate {
  InternalTunnelCandidateId id;
  std::vector<TunnelId> tunnels;  // ascending
  bool winner = false;
};

struct RibChoice {
  std::vector<RankedCandidate> candidates;  // best first
  // The winners; no tunnels when nothing was offered.
  TunnelRibEntry entry;
};

// The candidates of `offers` (all to `endpoint`), ranked, and the entry of
// their winners: tunnels in rank order, then ascending id, each with its
// bandwidth; the entry's metrics and preferences are those of the winner
// with the lowest (metric, pref, tunnel id).
RibChoice choose(ColoredTunnelEndpoint const& endpoint, std::span<RibOffer const> offers);

// Why `below` ranks after `above`: "lower entry preference",
// "lower type preference", "lower metric" or "type number" (the reason is
// the first rule of the ranking that tells them apart, said of `above`).
std::string_view rankReason(InternalTunnelCandidateId const& above,
                            InternalTunnelCandidateId const& below);

}  // namespace Tunnel::TunnelRibCalc
