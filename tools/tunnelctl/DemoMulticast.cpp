// The demo's multicast producers and merge agent. The MLDP producer owns
// tunnel indexes 1..n of type mldpTunnel; the static producer configures as
// many tunnels, every fourth of them under the MLDP tunnel id of the same
// index, which it overrides in the merge, the others under ids of its own.

#include "tools/tunnelctl/DemoMulticast.h"

#include <algorithm>
#include <random>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/net/IntfId.h"
#include "Tunnel/net/MplsLabelOperation.h"

namespace TunnelCtl::Demo {

using namespace Tunnel::TunnelTable;

namespace {

constexpr uint64_t kMulticastBatch = 64;

bool isStatic(int slot) { return slot == kStaticMcastProducer; }

TunnelId multicastId(int slot, uint64_t index) {
  bool own = isStatic(slot) && index % 4 != 0;
  return TunnelId(own ? staticMcastTunnel : mldpTunnel, index);
}

// A tree with two to five replication branches over the eight neighbours;
// `gen` moves the labels and the branches on each rewrite.
template <typename Entry>
Entry multicastEntry(int slot, uint64_t index, uint32_t gen) {
  Entry e(multicastId(slot, index));
  e.mcastTreeIdIs(Routing::Multicast::MulticastTreeId(
      fmt::format("{}-tree-{}", isStatic(slot) ? "static" : "mldp", index)));
  uint32_t branches = 2 + (index + gen) % 4;
  for (uint32_t v = 0; v < branches; ++v) {
    uint32_t n = (index + gen + v) % 8;
    e.viaIs(ViaIndex(v),
            MplsVia(Vorn::IpGenAddr((10u << 24) | (2u << 16) | (n << 8) | 2),
                    Vorn::IntfId::ethernet(n + 1),
                    Vorn::MplsLabelOperation::push({Vorn::MplsLabel(
                        static_cast<uint32_t>(200000 + (index * 8 + n) % 100000 + gen % 16))})));
  }
  return e;
}

template <typename Table, typename Entry>
void produceMulticast(SharedRegion const& region, int slot, DemoOptions const& o,
                      Zent::Ptr<Table> const& table) {
  SharedHeader& h = region.header();
  ProcStatus& status = h.mcast[slot - kMldpProducer];
  uint32_t const n = multicastTunnels(o);
  std::vector<uint32_t> gen(n + 1, 0);  // 0: absent
  std::mt19937_64 rng(0x5eed1000u + static_cast<uint32_t>(slot));
  uint64_t writes = 0;
  auto publish = [&] {
    status.writes.store(writes, std::memory_order_relaxed);
    status.tunnels.store(table->entryCount(), std::memory_order_relaxed);
  };
  auto write = [&](uint64_t i) {
    table->entryIs(multicastEntry<Entry>(slot, i, ++gen[i]));
    ++writes;
  };
  status.phaseIs(Phase::loading);
  for (uint64_t i = 1; i <= n && !shouldStop(h); ++i) write(i);
  publish();
  status.phaseIs(Phase::loaded);
  while (!h.churnGo.load(std::memory_order_acquire) && !shouldStop(h)) ::usleep(1000);

  // A tenth of the unicast pace: a tree changes less often than a path.
  uint32_t const rate = std::max<uint32_t>(1, o.rate / 10);
  int64_t const start = nowNs();
  int64_t const end = start + static_cast<int64_t>(o.seconds * 1e9);
  status.phaseIs(Phase::churning);
  uint64_t done = 0;
  for (int64_t now = start; now < end && !shouldStop(h); now = nowNs()) {
    uint64_t target =
        o.rate == 0 ? done + kMulticastBatch : static_cast<uint64_t>((now - start) / 1e9 * rate);
    if (target <= done) {
      ::usleep(500);
      continue;
    }
    for (uint64_t k = std::min(target - done, kMulticastBatch); k > 0; --k, ++done) {
      uint64_t i = 1 + rng() % n;
      if (gen[i] != 0 && rng() % 100 < 15) {
        table->entryDel(multicastId(slot, i));
        gen[i] = 0;
        ++writes;
      } else {
        write(i);
      }
    }
    publish();
  }
  publish();
  status.phaseIs(Phase::finished);
  while (!h.shutdown.load(std::memory_order_acquire)) ::usleep(5000);
}

}  // namespace

uint32_t multicastTunnels(DemoOptions const& o) { return std::max<uint32_t>(1, o.tunnels / 10); }

int runMulticastProducer(SharedRegion const& region, int slot, DemoOptions const& o) {
  ProcStatus& status = region.header().mcast[slot - kMldpProducer];
  status.pid.store(::getpid());
  auto const id = isStatic(slot) ? TunnelTableIdentifier::staticMcastTunnelTable
                                 : TunnelTableIdentifier::mldpTunnelTable;
  try {
    ZentTamsel::MountRegistry registry;
    TunnelTableMounter mounter(ZentTamsel::Mount(Zent::String(o.root), registry));
    auto base = mounter.mountWriter(id);
    if (isStatic(slot)) {
      produceMulticast<StaticMcastTunnelTable, StaticMcastTunnelTableEntry>(
          region, slot, o, Zent::dynamicPtrCast<StaticMcastTunnelTable>(base));
    } else {
      produceMulticast<MldpTunnelTable, MldpTunnelTableEntry>(
          region, slot, o, Zent::dynamicPtrCast<MldpTunnelTable>(base));
    }
    base = nullptr;
    mounter.unmount(id);
  } catch (std::exception const& e) {
    status.fail(e.what());
    return 1;
  }
  return 0;
}

int runMergeAgent(SharedRegion const& region, DemoOptions const& o) {
  SharedHeader& h = region.header();
  ProcStatus& status = h.mergeAgent;
  status.pid.store(::getpid());
  try {
    Rivy::EventLoop loop;
    // Started with the producers: it waits for their tables by itself.
    MulticastMergeAgent agent(o.root, loop);
    status.phaseIs(Phase::following);
    auto publish = [&] {
      status.writes.store(agent.status().merges + agent.status().mergeDeletes,
                          std::memory_order_relaxed);
      status.tunnels.store(agent.status().mergedEntries, std::memory_order_relaxed);
    };
    auto mcastFinished = [&] {
      return h.mcast[0].phaseNow() == Phase::finished && h.mcast[1].phaseNow() == Phase::finished;
    };
    auto following = loop.timerIs(
        std::chrono::milliseconds(20),
        [&] {
          publish();
          if (shouldStop(h) || mcastFinished()) loop.stop();
        },
        std::chrono::milliseconds(20));
    loop.run();
    loop.timerDel(following);
    if (shouldStop(h)) return 1;

    // Settled when the merge is ready and neither input has news left.
    status.phaseIs(Phase::settling);
    auto settled = [&] {
      MergedTunnelTableSm const* sm = agent.sm();
      if (!sm || !sm->ready() || !loop.taskScheduler().idle()) return false;
      for (auto const* core : {&sm->mldpTable()->entryCore(), &sm->staticTable()->entryCore()}) {
        if (core->reader() && core->reader()->pending()) return false;
      }
      return true;
    };
    while (!settled() && !shouldStop(h)) loop.runOnce(10);
    if (shouldStop(h)) return 1;
    agent.statusRefresh();
    publish();

    status.phaseIs(Phase::verifying);
    MergedTunnelTableSm const& sm = *agent.sm();
    MulticastResult& r = h.multicast;
    r.mldpEntries.store(sm.mldpTable()->entryCount());
    r.staticEntries.store(sm.staticTable()->entryCount());
    uint64_t overrides = 0;
    for (TunnelId const& k : sm.staticTable()->entryKeys(nullptr, SIZE_MAX)) {
      overrides += sm.mldpTable()->entryHas(k) ? 1 : 0;
    }
    r.overrides.store(overrides);
    r.mergedEntries.store(agent.mergedTable()->entryCount());
    r.merges.store(sm.merges());
    r.ready.store(sm.ready());
    r.matches.store(
        multicastMergeDifferences(*sm.mldpTable(), *sm.staticTable(), *agent.mergedTable()) == 0);
    status.phaseIs(Phase::done);
    // The merged table and the status keep a live writer while the demo reports.
    loop.timerIs(
        std::chrono::milliseconds(10),
        [&] {
          if (h.shutdown.load()) loop.stop();
        },
        std::chrono::milliseconds(10));
    loop.run();
  } catch (std::exception const& e) {
    status.fail(e.what());
    return 1;
  }
  return 0;
}

}  // namespace TunnelCtl::Demo
