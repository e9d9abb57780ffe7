// tunnelctl rib: what the tunnel RIB chose for each endpoint (the winners,
// their preference, metric and tunnels), and with --candidates every tunnel
// that competed, in rank order, with why each lost to the one above it.
// Both read what the RIB's agent published, in place; nothing is recomputed
// but the reason, which follows the ranking rule from the two candidates.

#include <iostream>
#include <optional>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Tunnel/TunnelRibCalc/RibChoice.h"
#include "Tunnel/TunnelRibCalc/TunnelRibCalculator.h"
#include "Tunnel/TunnelTable/TunnelRib.h"
#include "Tunnel/cli/TunnelPelagStatus.h"
#include "tools/tunnelctl/Commands.h"
#include "tools/tunnelctl/TableAccess.h"
#include "tools/tunnelctl/TunnelIdText.h"

namespace TunnelCtl {

using namespace Tunnel::TunnelTable;
using Json = nlohmann::ordered_json;
using Tunnel::TunnelRibCalc::TunnelRibCalculator;

namespace {

// "10.0.0.1/32", or an address alone for its host prefix.
Vorn::IpGenPrefix parseEndpoint(std::string const& text) {
  try {
    if (text.find('/') == std::string::npos) {
      return Vorn::IpGenPrefix::host(Vorn::IpGenAddr(text));
    }
    return Vorn::IpGenPrefix(text);
  } catch (std::exception const&) {
    throw UsageError(
        fmt::format("'{}' is not an endpoint (a prefix such as 10.0.0.1/32, or an "
                    "address)",
                    text));
  }
}

std::string typeText(TunnelType t) { return std::string(stringValue(t)); }

std::string endpointText(ColoredTunnelEndpoint const& cep) {
  std::string s = cep.tep().stringValue();
  return cep.isColored() ? fmt::format("{} color {}", s, cep.color()) : s;
}

Json endpointJson(ColoredTunnelEndpoint const& cep) {
  Json j{{"endpoint", cep.tep().stringValue()}};
  if (cep.isColored()) j["color"] = cep.color();
  return j;
}

struct RibReader {
  RibReader(std::string const& root, bool colored)
      : mount(Zent::String(root), registry),
        file(inspectPublished(root, colored ? "coloredTunnelRib" : "tunnelRib",
                              colored ? ColoredTunnelRib::kMountPath : TunnelRib::kMountPath,
                              "tunnelRibEntry", TunnelRibEntry::kTypeName,
                              colored ? "colored tunnel RIB" : "tunnel RIB")) {
    if (colored) {
      rib = mountColoredTunnelRib(mount, ZentTamsel::reader());
    } else {
      rib = mountTunnelRib(mount, ZentTamsel::reader());
    }
    if (!rib) throw CtlError(fmt::format("cannot mount the {} under {}", file.name, root));
  }
  ~RibReader() { mount.doUnmount(Zent::String(file.mountPath)); }

  ZentTamsel::MountRegistry registry;
  ZentTamsel::Mount mount;
  TableFile file;
  Zent::Ptr<TunnelRibBase> rib;
};

// The endpoints of the RIB that `p` (when given) and `color` select, in order.
std::vector<ColoredTunnelEndpoint> selected(TunnelRibBase const& rib, RibOptions const& o,
                                            std::optional<Vorn::IpGenPrefix> const& p) {
  std::vector<ColoredTunnelEndpoint> keys = rib.tunnelRibEntryKeys();
  std::sort(keys.begin(), keys.end());
  if (!p) return keys;
  std::vector<ColoredTunnelEndpoint> out;
  for (auto const& k : keys) {
    if (k.tep() == *p && (!o.color || k.color() == *o.color)) out.push_back(k);
  }
  if (out.empty()) {
    throw CtlError(fmt::format("no entry for {}{} in the {}", o.endpoint,
                               o.color ? fmt::format(" color {}", *o.color) : std::string(),
                               rib.isColored() ? "colored tunnel RIB" : "tunnel RIB"));
  }
  return out;
}

Json winnersJson(TunnelRibEntry const& e) {
  Json j = endpointJson(e.coloredTep());
  j["entryPref"] = e.entryPref().value();
  j["entryMetric"] = e.entryMetric();
  j["metric"] = e.metric();
  j["metricType"] = std::string(Vorn::stringValue(e.metricType()));
  j["pref"] = e.pref();
  Json tunnels = Json::array();
  for (uint32_t i = 0; i < e.tunnelIdCount(); ++i) {
    TunnelIdCollIndex x(i);
    tunnels.push_back({{"tunnelId", TunnelTool::tunnelIdLabel(e.tunnelId(x))},
                       {"bandwidth", e.tunnelBw(x).value()}});
  }
  j["tunnels"] = tunnels;
  return j;
}

void printWinners(RibReader const& r, std::vector<ColoredTunnelEndpoint> const& keys, bool whole) {
  fmt::print("{} at {}: {} entries, update counter {}, writer {}\n", r.file.name, r.file.mountPath,
             r.rib->tunnelRibEntryCount(), r.rib->tunnelRibUpdateCounter(), writerText(r.file));
  for (auto const& cep : keys) {
    TunnelRibEntry e;
    if (!r.rib->tunnelRibEntry(cep, e)) continue;
    std::string tunnels;
    uint32_t shown = whole ? e.tunnelIdCount() : std::min<uint32_t>(e.tunnelIdCount(), 4);
    for (uint32_t i = 0; i < shown; ++i) {
      TunnelIdCollIndex x(i);
      tunnels += " " + TunnelTool::tunnelIdLabel(e.tunnelId(x));
      if (whole) tunnels += fmt::format(" (bw {})", e.tunnelBw(x).value());
    }
    if (shown < e.tunnelIdCount()) tunnels += fmt::format(" +{} more", e.tunnelIdCount() - shown);
    fmt::print(
        "  {:<24} entry pref {:>3}  entry metric {:>4}  metric {:>5}  pref {:>3}  {} "
        "tunnel{}:{}\n",
        endpointText(cep), e.entryPref().value(), e.entryMetric(), e.metric(), e.pref(),
        e.tunnelIdCount(), e.tunnelIdCount() == 1 ? "" : "s", tunnels);
  }
}

// Every candidate, best first, marked by whether the RIB took it.
Json candidatesJson(std::vector<Zent::Ptr<InternalCliTunnelRibCandidate>> const& candidates,
                    TunnelRibEntry const& winners) {
  auto taken = [&](TunnelId t) {
    for (uint32_t i = 0; i < winners.tunnelIdCount(); ++i) {
      if (winners.tunnelId(TunnelIdCollIndex(i)) == t) return true;
    }
    return false;
  };
  Json list = Json::array();
  std::optional<InternalTunnelCandidateId> above;
  int rank = 0;
  for (auto const& cand : candidates) {
    InternalTunnelCandidateId const& id = cand->id();
    std::vector<TunnelId> tunnels = cand->tunnelIds();
    Json c{{"rank", ++rank},
           {"tunnelType", typeText(id.tunnelType())},
           {"entryPref", id.entryPref().value()},
           {"typePref", getDefaultPrefForType(id.tunnelType()).value()},
           {"entryMetric", id.entryMetric()}};
    Json ids = Json::array();
    for (TunnelId t : tunnels) ids.push_back(TunnelTool::tunnelIdLabel(t));
    c["tunnels"] = ids;
    bool won = !tunnels.empty() && taken(tunnels.front());
    c["winner"] = won;
    if (!won && above) {
      c["lostTo"] = rank - 1;
      c["reason"] = std::string(Tunnel::TunnelRibCalc::rankReason(*above, id));
    }
    list.push_back(c);
    above = id;
  }
  return list;
}

void printCandidates(ColoredTunnelEndpoint const& cep, Json const& list) {
  fmt::print("{}: {} candidate{}, best first\n", endpointText(cep), list.size(),
             list.size() == 1 ? "" : "s");
  fmt::print("  {:>4}  {:<22} {:>10} {:>9} {:>12}  {}\n", "rank", "tunnel type", "entry pref",
             "type pref", "entry metric", "verdict");
  for (Json const& c : list) {
    std::string verdict =
        c["winner"].get<bool>() ? std::string("in the RIB")
        : c.contains("reason")
            ? fmt::format("lost to #{}: {}", c["lostTo"].get<int>(), c["reason"].get<std::string>())
            : std::string("not in the RIB");
    fmt::print("  {:>4}  {:<22} {:>10} {:>9} {:>12}  {}\n", c["rank"].get<int>(),
               c["tunnelType"].get<std::string>(), c["entryPref"].get<unsigned>(),
               c["typePref"].get<unsigned>(), c["entryMetric"].get<unsigned>(), verdict);
    std::string ids;
    for (Json const& t : c["tunnels"]) ids += " " + t.get<std::string>();
    fmt::print("        tunnels:{}\n", ids);
  }
}

}  // namespace

int runRib(RibOptions const& o) {
  bool colored = o.colored || o.color.has_value();
  if (o.candidates && o.endpoint.empty()) {
    throw UsageError("--candidates needs an ENDPOINT");
  }
  std::optional<Vorn::IpGenPrefix> p;
  if (!o.endpoint.empty()) p = parseEndpoint(o.endpoint);
  RibReader reader(o.root, colored);
  std::vector<ColoredTunnelEndpoint> keys = selected(*reader.rib, o, p);
  if (!o.candidates) {
    if (o.json) {
      Json j{{"rib", reader.file.name},
             {"updateCounter", reader.rib->tunnelRibUpdateCounter()},
             {"writer", writerText(reader.file)}};
      Json entries = Json::array();
      for (auto const& cep : keys) entries.push_back(winnersJson(reader.rib->tunnelRibEntry(cep)));
      j["entries"] = entries;
      std::cout << j.dump(2) << "\n";
    } else {
      printWinners(reader, keys, !o.endpoint.empty());
    }
    return kExitOk;
  }

  TunnelRibId id =
      colored ? TunnelRibCalculator::kColoredTunnelRibId : TunnelRibCalculator::kTunnelRibId;
  Json all = Json::array();
  for (auto const& cep : keys) {
    std::vector<Zent::Ptr<InternalCliTunnelRibCandidate>> candidates;
    try {
      if (!readCandidates(o.root, id, cep, candidates)) {
        throw CtlError(fmt::format("the command-line view of the {} has no entry for {}",
                                   reader.file.name, endpointText(cep)));
      }
    } catch (Tamsel::Error const& e) {
      throw CtlError(fmt::format("no command-line RIB view under {} at {}: {}", o.root,
                                 TunnelPelagStatus::kMountPath, e.what()));
    }
    Json list = candidatesJson(candidates, reader.rib->tunnelRibEntry(cep));
    if (o.json) {
      Json j = endpointJson(cep);
      j["candidates"] = list;
      all.push_back(j);
    } else {
      printCandidates(cep, list);
    }
  }
  if (o.json) std::cout << all.dump(2) << "\n";
  return kExitOk;
}

}  // namespace TunnelCtl
