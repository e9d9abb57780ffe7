// tunnelctl resolve: runs the tunnel resolver on one tunnel against the FIB
// and explains the result as a tree: each tunnel on the path with its primary
// vias, the label operation of each and what it joins to, where a walk
// stopped and why, then the flattened vias, which are the resolver's own.
//
// The tree is rebuilt by a second walk that follows the resolver's rules
// step by step (a tunnel entered once, a child that cannot be flattened ends
// its parent's walk, the parent's operation accumulating across the child's
// vias); the resolver is the truth, and a disagreement is reported.

#include <memory>
#include <unordered_map>
#include <unordered_set>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Tunnel/TunnelFib/TunnelResolver.h"
#include "Tunnel/TunnelTableKeepdbTypes/TunnelType.h"
#include "tools/tunnelctl/Commands.h"
#include "tools/tunnelctl/FibText.h"
#include "tools/tunnelctl/TunnelIdText.h"

namespace TunnelCtl {

using namespace Tunnel::TunnelFib;
using Json = nlohmann::ordered_json;
using TunnelTool::tunnelIdLabel;

namespace {

enum class Status { resolved, missing, cycle, unresolved };

const char* statusText(Status s) {
  switch (s) {
    case Status::resolved:
      return "resolved";
    case Status::missing:
      return "missing";
    case Status::cycle:
      return "cycle";
    case Status::unresolved:
      return "unresolved";
  }
  return "?";
}

struct TunnelStep;

struct ViaStep {
  uint32_t index = 0;
  TunnelVia via;
  Vorn::MplsLabelOperation labels;
  bool examined = true;
  std::unique_ptr<TunnelStep> child;  // for a via over a tunnel
  std::vector<MplsVia> joined;        // what this via adds to its tunnel
  std::string stop;                   // why the walk ended here
};

struct TunnelStep {
  TunnelId id;
  Status status = Status::resolved;
  uint32_t viaCount = 0;
  std::vector<ViaStep> vias;
};

class Explainer {
 public:
  explicit Explainer(TunnelFib const& fib) : fib_(fib) {}

  std::unique_ptr<TunnelStep> walk(TunnelId id) {
    auto step = std::make_unique<TunnelStep>();
    step->id = id;
    auto entry = std::make_unique<TunnelFibEntry>();  // 48 KB: not on the stack
    if (!fib_.entry(id, *entry)) {
      step->status = Status::missing;
      return step;
    }
    step->viaCount = entry->tunnelViaCount();
    if (rendered_.count(id.value())) {
      step->status = Status::cycle;
      return step;
    }
    rendered_.insert(id.value());
    for (uint32_t i = 0; i < entry->tunnelViaCount(); ++i) {
      ViaStep& v = step->vias.emplace_back();
      v.index = i;
      v.via = entry->tunnelVia()[TunnelViaIndex(static_cast<uint16_t>(i))];
      v.labels = fib_.labelStackEncap(v.via.encapId()).labelStack();
      Vorn::IntfId const intf = v.via.intfId();
      if (!intf.isDynamicTunnel()) {
        v.joined.emplace_back(v.via.nextHop(), intf, v.labels);
        add(id, v.joined.back());
        continue;
      }
      TunnelId const child(intf.tunnelIdValue());
      if (!flattened_.count(child.value())) v.child = walk(child);
      auto found = flattened_.find(child.value());
      if (found == flattened_.end()) {
        v.stop = v.child->status == Status::missing ? "missing"
                 : v.child->status == Status::cycle ? "cycle"
                                                    : "unresolved";
        for (uint32_t j = i + 1; j < entry->tunnelViaCount(); ++j) {
          ViaStep& rest = step->vias.emplace_back();
          rest.index = j;
          rest.via = entry->tunnelVia()[TunnelViaIndex(static_cast<uint16_t>(j))];
          rest.examined = false;
        }
        break;
      }
      Vorn::UnboundedMplsLabelOperation labels = v.labels;
      for (MplsVia const& cv : *found->second) {
        labels.smush(cv.labels());
        v.joined.emplace_back(cv.nextHop(), cv.intfId(), labels);
      }
      for (MplsVia const& j : v.joined) add(id, j);
    }
    if (!flattened_.count(id.value())) step->status = Status::unresolved;
    return step;
  }

  // Whether this walk flattened `id` to exactly `vias`.
  bool agrees(TunnelId id, std::vector<MplsVia> const& vias) const {
    auto it = flattened_.find(id.value());
    if (it == flattened_.end()) return vias.empty();
    if (it->second->size() != vias.size()) return false;
    for (auto const& v : vias) {
      if (!it->second->contains(v)) return false;
    }
    return true;
  }

 private:
  void add(TunnelId id, MplsVia const& v) {
    auto& set = flattened_[id.value()];
    if (!set) set = std::make_unique<ViaSet>();
    set->insert(v);
  }

  TunnelFib const& fib_;
  std::unordered_set<uint64_t> rendered_;
  std::unordered_map<uint64_t, std::unique_ptr<ViaSet>> flattened_;
};

std::string tunnelText(TunnelId id) {
  return fmt::format("{} ({})", tunnelIdLabel(id), id.typeCliStr());
}

std::string mplsViaText(MplsVia const& v) {
  return fmt::format("nexthop {} intf {} labels {}", v.nextHop().stringValue(),
                     v.intfId().stringValue(), v.labels().stringValue());
}

// Where the walk below `t` ended without forwarding, for the verdict.
std::string rootCause(TunnelStep const& t) {
  switch (t.status) {
    case Status::missing:
      return tunnelIdLabel(t.id) + " missing from the FIB";
    case Status::cycle:
      return "cycle: " + tunnelIdLabel(t.id) + " met again on its own path";
    default:
      break;
  }
  for (auto const& v : t.vias) {
    if (!v.stop.empty()) return v.child ? rootCause(*v.child) : v.stop;
  }
  if (t.viaCount == 0) return tunnelIdLabel(t.id) + " has no primary vias";
  return tunnelIdLabel(t.id) + " has no flattened vias";
}

// The first via, depth first, at which a walk stopped, as "at T via N: cause".
std::string firstStop(TunnelStep const& t) {
  for (auto const& v : t.vias) {
    if (v.stop.empty()) {
      if (v.child) {
        std::string below = firstStop(*v.child);
        if (!below.empty()) return below;
      }
      continue;
    }
    return fmt::format("at {} via {}: {}", tunnelIdLabel(t.id), v.index, rootCause(*v.child));
  }
  return {};
}

void printTree(TunnelStep const& t, int indent) {
  std::string pad(static_cast<size_t>(indent), ' ');
  switch (t.status) {
    case Status::missing:
      fmt::print("{}{}: missing from the FIB\n", pad, tunnelText(t.id));
      return;
    case Status::cycle:
      fmt::print("{}{}: cycle, met again on its own path\n", pad, tunnelText(t.id));
      return;
    default:
      break;
  }
  fmt::print("{}{}: {} primary via{}\n", pad, tunnelText(t.id), t.viaCount,
             t.viaCount == 1 ? "" : "s");
  for (auto const& v : t.vias) {
    // A via over a tunnel has no nexthop of its own, as a rule.
    std::string nextHop =
        v.via.nextHop() ? "nexthop " + v.via.nextHop().stringValue() + " " : std::string();
    std::string head =
        fmt::format("{}  via {}: {}intf {}", pad, v.index, nextHop, intfText(v.via.intfId()));
    if (!v.examined) {
      fmt::print("{}: not examined\n", head);
      continue;
    }
    fmt::print("{} encap {} labels {}\n", head, encapIdText(v.via.encapId()),
               v.labels.stringValue());
    if (v.child) printTree(*v.child, indent + 4);
    if (!v.child && v.via.intfId().isDynamicTunnel()) {
      // A child shared with an earlier via: its vias are shown there.
      fmt::print("{}    {}: flattened above\n", pad,
                 tunnelText(TunnelId(v.via.intfId().tunnelIdValue())));
    }
    for (auto const& j : v.joined) fmt::print("{}    joined: {}\n", pad, mplsViaText(j));
    if (!v.stop.empty())
      fmt::print("{}    stop: {}, the walk of {} ends here\n", pad, v.stop, tunnelIdLabel(t.id));
  }
}

Json mplsViaJson(MplsVia const& v) {
  return {{"nextHop", v.nextHop().stringValue()},
          {"intf", v.intfId().stringValue()},
          {"labels", v.labels().stringValue()}};
}

Json treeJson(TunnelStep const& t) {
  Json j{{"tunnel", tunnelIdLabel(t.id)},
         {"tunnelId", t.id.value()},
         {"type", t.id.typeCliStr()},
         {"status", statusText(t.status)}};
  if (t.status == Status::missing || t.status == Status::cycle) return j;
  j["primaryVias"] = t.viaCount;
  j["vias"] = Json::array();
  for (auto const& v : t.vias) {
    Json jv{{"index", v.index},
            {"nextHop", v.via.nextHop().stringValue()},
            {"intf", v.via.intfId().stringValue()},
            {"examined", v.examined}};
    if (v.examined) {
      jv["encap"] = encapIdText(v.via.encapId());
      jv["labels"] = v.labels.stringValue();
      if (v.child) jv["child"] = treeJson(*v.child);
      jv["joined"] = Json::array();
      for (auto const& m : v.joined) jv["joined"].push_back(mplsViaJson(m));
      if (!v.stop.empty()) jv["stop"] = v.stop;
    }
    j["vias"].push_back(jv);
  }
  return j;
}

}  // namespace

int runResolve(ResolveOptions const& o) {
  TunnelId const top = parseTunnelIds({o.tunnel}).front();
  MountedFib m(o.root);
  if (m.file().writerPid != 0 && !m.file().writerAlive) {
    printNote(fmt::format("the writer of the tunnel FIB (pid {}) is gone; resolving what it left",
                          m.file().writerPid));
  }
  Zent::Ptr<TunnelResolver> resolver = TunnelResolverIs(m.fibPtr());
  resolver->updateFlattenedInfo(top);
  std::vector<MplsVia> vias;
  if (auto ce = resolver->consolidatedEntry(top)) {
    for (MplsVia const& v : ce->viaInfo()) vias.push_back(v);
  }
  Explainer explainer(m.fib());
  std::unique_ptr<TunnelStep> tree = explainer.walk(top);

  std::string verdict;
  if (vias.empty()) {
    verdict = "no forwarding: " + rootCause(*tree);
  } else {
    verdict = fmt::format("{} flattened via{}", vias.size(), vias.size() == 1 ? "" : "s");
    std::string stop = firstStop(*tree);
    if (!stop.empty()) verdict += "; a walk stopped " + stop;
  }
  bool agrees = explainer.agrees(top, vias);
  if (o.json) {
    Json j{{"tunnel", tunnelIdLabel(top)}, {"tunnelId", top.value()}, {"path", treeJson(*tree)}};
    j["flattenedVias"] = Json::array();
    for (auto const& v : vias) j["flattenedVias"].push_back(mplsViaJson(v));
    j["verdict"] = verdict;
    fmt::print("{}\n", j.dump(2));
  } else {
    printTree(*tree, 0);
    fmt::print("flattened vias of {} (from the resolver): {}\n", tunnelIdLabel(top), vias.size());
    for (auto const& v : vias) fmt::print("  {}\n", mplsViaText(v));
    fmt::print("verdict: {}\n", verdict);
  }
  std::fflush(stdout);
  int rc = vias.empty() ? kExitRuntime : kExitOk;
  for (auto const& c : m.takeCorruptions()) {
    printError(c);
    rc = kExitRuntime;
  }
  if (!agrees) {
    printError("the tree above disagrees with the resolver: the flattened vias are the resolver's");
    rc = kExitRuntime;
  }
  return rc;
}

}  // namespace TunnelCtl
