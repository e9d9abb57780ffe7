// What the demo shows: one progress line per process while it runs, and the
// summary at the end, both read from the shared mapping.

#include <fmt/format.h>

#include "tools/tunnelctl/Demo.h"
#include "tools/tunnelctl/DemoFib.h"
#include "tools/tunnelctl/DemoMulticast.h"
#include "tools/tunnelctl/TunnelIdText.h"

namespace TunnelCtl::Demo {

namespace {

std::string duration(uint64_t ns) {
  if (ns < 1'000) return fmt::format("{} ns", ns);
  if (ns < 1'000'000) return fmt::format("{:.0f} µs", ns / 1e3);
  if (ns < 1'000'000'000) return fmt::format("{:.1f} ms", ns / 1e6);
  return fmt::format("{:.1f} s", ns / 1e9);
}

double seconds(int64_t fromNs, int64_t toNs) {
  return toNs > fromNs ? static_cast<double>(toNs - fromNs) / 1e9 : 0.0;
}

std::string latencyText(LatencyResult const& l) {
  if (l.samples.load() == 0) return "no samples";
  return fmt::format("p50 {}, p99 {} (max {}, {} notifications)", duration(l.p50Ns.load()),
                     duration(l.p99Ns.load()), duration(l.maxNs.load()), grouped(l.samples.load()));
}

const char* yesNo(bool b) { return b ? "yes" : "NO"; }

}  // namespace

std::string grouped(uint64_t n) {
  std::string digits = std::to_string(n);
  std::string out;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
    out += digits[i];
  }
  return out;
}

ProcStatus const& statusOf(SharedRegion const& region, int slot) {
  SharedHeader const& h = region.header();
  switch (slot) {
    case kRibCalc:
      return h.ribCalc;
    case kMldpProducer:
    case kStaticMcastProducer:
      return h.mcast[slot - kMldpProducer];
    case kMergeAgent:
      return h.mergeAgent;
    default:
      return h.proc[slot];
  }
}

std::string processName(int slot) {
  switch (slot) {
    case kConsumer:
      return "consumer";
    case kRibCalc:
      return "RIB calculator";
    case kMldpProducer:
      return "producer mldp";
    case kStaticMcastProducer:
      return "producer static-mc";
    case kMergeAgent:
      return "merge agent";
    default:
      return fmt::format("producer {}", keyword(kRedistProtocols[slot]));
  }
}

std::string progressLine(SharedRegion const& region, int slot, double rate) {
  ProcStatus const& s = statusOf(region, slot);
  Phase phase = s.phaseNow();
  std::string head =
      fmt::format("{:<18} pid {:<7} {:<10}", processName(slot), s.pid.load(), phaseText(phase));
  if (phase == Phase::failed) return head + " " + s.message;
  if (slot == kRibCalc) {
    return fmt::format("{} {:>9} notifications {:>9}/s   tunnel RIB {} endpoints", head,
                       grouped(s.writes.load()), grouped(static_cast<uint64_t>(rate)),
                       grouped(s.tunnels.load()));
  }
  if (slot == kMergeAgent) {
    return fmt::format("{} {:>9} merged        {:>9}/s   multicast table {} tunnels", head,
                       grouped(s.writes.load()), grouped(static_cast<uint64_t>(rate)),
                       grouped(s.tunnels.load()));
  }
  if (slot == kConsumer) {
    return fmt::format("{} {:>9} notifications {:>9}/s   redistribution {} entries, {} members",
                       head, grouped(s.writes.load()), grouped(static_cast<uint64_t>(rate)),
                       grouped(s.entries.load()), grouped(s.tunnels.load()));
  }
  return fmt::format("{} {:>9} writes        {:>9}/s   {} tunnels", head, grouped(s.writes.load()),
                     grouped(static_cast<uint64_t>(rate)), grouped(s.tunnels.load()));
}

void printSummary(SharedRegion const& region, DemoOptions const& o, std::string const& bin,
                  std::string const& rootOption) {
  SharedHeader const& h = region.header();
  fmt::print(
      "\nSummary: 3 producers and 1 consumer of unicast tables, {} tunnels per table ({} per "
      "multicast table), "
      "{:.1f} "
      "s of churn\n\n",
      grouped(o.tunnels), grouped(multicastTunnels(o)), o.seconds);
  fmt::print("  {:<8} {:>8} {:>10} {:>14} {:>14} {:>8} {:>14}  {}\n", "table", "tunnels", "writes",
             "churn writes/s", "redist entries", "members", "notifications", "matches");
  uint64_t tunnels = 0, writes = 0, entries = 0, members = 0, notifications = 0;
  double churnRate = 0;
  bool all = true;
  for (int i = 0; i < kProducers; ++i) {
    ProcStatus const& p = h.proc[i];
    ProtocolResult const& r = h.result[i];
    double secs = seconds(p.churnStartNs.load(), p.churnEndNs.load());
    double rate = secs > 0 ? static_cast<double>(p.churnWrites.load()) / secs : 0;
    bool match = r.matchesTable.load() && r.matchesProducer.load() && r.matchesPublished.load();
    all = all && match;
    fmt::print("  {:<8} {:>8} {:>10} {:>14} {:>14} {:>8} {:>14}  {}\n",
               tableNameOf(kRedistProtocols[i]), grouped(r.tableEntries.load()),
               grouped(p.writes.load()), grouped(static_cast<uint64_t>(rate)),
               grouped(r.redistEntries.load()), grouped(r.members.load()),
               grouped(r.notifications.load()), yesNo(match));
    tunnels += r.tableEntries.load();
    writes += p.writes.load();
    entries += r.redistEntries.load();
    members += r.members.load();
    notifications += r.notifications.load();
    churnRate += rate;
  }
  fmt::print("  {:<8} {:>8} {:>10} {:>14} {:>14} {:>8} {:>14}\n\n", "total", grouped(tunnels),
             grouped(writes), grouped(static_cast<uint64_t>(churnRate)), grouped(entries),
             grouped(members), grouped(notifications));
  double follow = seconds(h.followStartNs.load(), h.followEndNs.load());
  std::string pace =
      o.rate ? fmt::format("paced at {}/s per producer; --rate 0 for flat out", grouped(o.rate))
             : std::string("flat out");
  fmt::print(
      "  updates per second: {} written while churning ({}), {} notifications "
      "handled by the consumer ({} in {:.1f} s)\n",
      grouped(static_cast<uint64_t>(churnRate)), pace,
      grouped(follow > 0 ? static_cast<uint64_t>(notifications / follow) : 0),
      grouped(notifications), follow);
  fmt::print("  notification latency, write to consumer:\n");
  fmt::print("    while churning   {}\n", latencyText(h.churnLatency));
  fmt::print("    initial load     {}\n", latencyText(h.loadLatency));
  ProcStatus const& fib = h.fibProducer;
  fmt::print("  tunnel FIB: {} entries, {} encapsulations; {} resolves to {} flattened vias\n",
             fib.tunnels.load(), fib.entries.load(), TunnelTool::tunnelIdLabel(fibExample()),
             h.fibExampleVias.load());
  RibResult const& rib = h.rib;
  fmt::print(
      "  tunnel RIB: {} endpoints ({} colored), {} candidates; {} notifications took {} endpoint "
      "computations and {} RIB writes; equal to a calculation afresh from the tables: {}\n",
      grouped(rib.endpoints.load()), grouped(rib.coloredEndpoints.load()),
      grouped(rib.candidates.load()), grouped(h.ribCalc.writes.load()),
      grouped(rib.computations.load()), grouped(rib.ribWrites.load()),
      rib.matches.load() ? "match" : "MISMATCH");
  MulticastResult const& mc = h.multicast;
  fmt::print(
      "  multicast: mldpTunnel {} entries, staticMcast {} ({} overriding MLDP), mplsMulticast {}; "
      "merge ready: {}; equal to the merge of the inputs: {}\n",
      grouped(mc.mldpEntries.load()), grouped(mc.staticEntries.load()),
      grouped(mc.overrides.load()), grouped(mc.mergedEntries.load()), yesNo(mc.ready.load()),
      mc.matches.load() ? "match" : "MISMATCH");
  fmt::print(
      "  consumer configuration equals what the producers' tables imply, and so does what it "
      "published in the state database: {}\n\n",
      all ? "match" : "MISMATCH");
  if (o.keep) {
    fmt::print("Look further (the tables stay in {}, their writers gone, until the next demo):\n",
               o.root);
  } else {
    fmt::print("Look further (run the demo with --keep first: the tables were removed):\n");
  }
  fmt::print("  {} tables{}\n", bin, rootOption);
  const char* forms[] = {"", " --dump", " --json"};
  for (int i = 0; i < kProducers; ++i) {
    uint64_t id = h.result[i].sampleTunnel.load();
    std::string table = tableNameOf(kRedistProtocols[i]);
    if (id == 0) {
      fmt::print("  {} show {}{}{}\n", bin, table, forms[i], rootOption);
    } else {
      fmt::print("  {} show {} {}{}{}\n", bin, table,
                 TunnelTool::tunnelIdLabel(Tunnel::TunnelTable::TunnelId(id)), forms[i],
                 rootOption);
    }
  }
  fmt::print("  {} fib{}\n", bin, rootOption);
  for (auto id : {fibExample(), fibBlackHole()}) {
    fmt::print("  {} resolve {}{}\n", bin, TunnelTool::tunnelIdLabel(id), rootOption);
  }
  fmt::print("  {} rib{}\n", bin, rootOption);
  fmt::print("  {} rib {} --candidates{}\n", bin, h.rib.sampleEndpoint, rootOption);
  fmt::print("  {} multicast{}\n", bin, rootOption);
  fmt::print("  {} counters ldp{}\n", bin, rootOption);
  fmt::print("  {} redist isis-sr{}\n", bin, rootOption);
}

}  // namespace TunnelCtl::Demo
