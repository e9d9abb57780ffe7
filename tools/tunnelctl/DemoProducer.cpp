// A demo producer: mounts one protocol's table as its writer, publishes the
// tunnels, then churns them (metric changes, endpoint moves, via changes,
// deletions and re-adds) for the time asked, stamping each write in the
// shared mapping just before it is made.

#include <algorithm>
#include <random>
#include <unistd.h>
#include <vector>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/TunnelTable/Tables.h"
#include "tools/tunnelctl/Demo.h"
#include "tools/tunnelctl/DemoTunnels.h"

namespace TunnelCtl::Demo {

using namespace Tunnel::TunnelTable;

namespace {

constexpr uint64_t kBatch = 256;

template <typename Table>
class Producer {
 public:
  Producer(SharedRegion const& region, RedistProtocol p, DemoOptions const& o,
           Zent::Ptr<Table> table)
      : region_(region),
        protocol_(p),
        slot_(static_cast<int>(p)),
        options_(o),
        status_(region.header().proc[slot_]),
        table_(std::move(table)),
        states_(o.tunnels + 1),
        rng_(0x5eed0000u + static_cast<uint32_t>(slot_)) {}

  void load() {
    status_.phaseIs(Phase::loading);
    for (uint64_t i = 1; i <= options_.tunnels && !shutdown(); ++i) {
      states_[i] = randomState();
      write(i);
      if (i % kBatch == 0) publish();
    }
    publish();
  }

  void churn() {
    int64_t start = nowNs();
    int64_t end = start + static_cast<int64_t>(options_.seconds * 1e9);
    status_.churnStartNs.store(start, std::memory_order_release);
    status_.phaseIs(Phase::churning);
    uint64_t done = 0;
    for (int64_t now = start; now < end && !shutdown(); now = nowNs()) {
      uint64_t target = options_.rate == 0
                            ? done + kBatch
                            : static_cast<uint64_t>((now - start) / 1e9 * options_.rate);
      if (target <= done) {
        ::usleep(200);
        continue;
      }
      for (uint64_t n = std::min(target - done, kBatch); n > 0; --n, ++done) step();
      status_.churnWrites.store(done, std::memory_order_relaxed);
      publish();
    }
    status_.churnEndNs.store(nowNs(), std::memory_order_release);
  }

  uint64_t digest() const {
    uint64_t d = 0;
    for (uint64_t i = 1; i < states_.size(); ++i) {
      TunnelState const& s = states_[i];
      if (!s.live) continue;
      uint64_t id = TunnelId::convertToTunnelValue(tunnelTypeOf(protocol_), i);
      d += memberDigest(demoPrefix(s.prefix), id, redistributesMetric(protocol_) ? s.metric : 0);
    }
    return d;
  }

 private:
  bool shutdown() const { return region_.header().shutdown.load(std::memory_order_acquire) != 0; }

  TunnelState randomState() {
    TunnelState s;
    s.live = true;
    s.prefix = static_cast<uint16_t>(rng_() % kPrefixes);
    s.vias = static_cast<uint8_t>(1 + rng_() % 4);
    s.firstNeighbour = static_cast<uint8_t>(rng_() % kNeighbours);
    s.metric = static_cast<uint32_t>(10 * (1 + rng_() % 100));
    return s;
  }

  // A deleted tunnel comes back; a live one changes its metric (most often),
  // moves to another endpoint, changes its vias, or goes.
  void step() {
    uint64_t i = 1 + rng_() % options_.tunnels;
    TunnelState& s = states_[i];
    if (!s.live) {
      s = randomState();
      write(i);
      return;
    }
    uint64_t r = rng_() % 100;
    if (r < 55) {
      s.metric = static_cast<uint32_t>(10 * (1 + rng_() % 100));
    } else if (r < 75) {
      s.prefix = static_cast<uint16_t>(rng_() % kPrefixes);
    } else if (r < 85) {
      s.vias = static_cast<uint8_t>(1 + rng_() % 4);
      s.firstNeighbour = static_cast<uint8_t>(rng_() % kNeighbours);
    } else {
      s.live = false;
      remove(i);
      return;
    }
    write(i);
  }

  void write(uint64_t i) {
    auto e = entryOf(i);
    region_.stamp(slot_, i).store(nowNs(), std::memory_order_release);
    table_->entryIs(e);
    ++writes_;
  }

  void remove(uint64_t i) {
    TunnelId id(tunnelTypeOf(protocol_), i);
    region_.stamp(slot_, i).store(nowNs(), std::memory_order_release);
    table_->entryDel(id);
    ++writes_;
  }

  auto entryOf(uint64_t i) const {
    if constexpr (std::is_same_v<Table, LdpTunnelTable>) {
      return ldpEntry(i, states_[i]);
    } else if constexpr (std::is_same_v<Table, IsisSrTunnelTable>) {
      return isisSrEntry(i, states_[i]);
    } else {
      return bgpLuEntry(i, states_[i]);
    }
  }

  void publish() {
    status_.writes.store(writes_, std::memory_order_relaxed);
    status_.tunnels.store(table_->entryCount(), std::memory_order_relaxed);
  }

  SharedRegion const& region_;
  RedistProtocol protocol_;
  int slot_;
  DemoOptions const& options_;
  ProcStatus& status_;
  Zent::Ptr<Table> table_;
  std::vector<TunnelState> states_;  // by tunnel index; 0 unused
  std::mt19937_64 rng_;
  uint64_t writes_ = 0;
};

template <typename Table>
void produce(SharedRegion const& region, RedistProtocol p, DemoOptions const& o,
             Zent::Ptr<TunnelTableBase> const& base) {
  SharedHeader& h = region.header();
  ProcStatus& status = h.proc[static_cast<int>(p)];
  Producer<Table> producer(region, p, o, Zent::dynamicPtrCast<Table>(base));
  status.phaseIs(Phase::waiting);
  // The consumer follows from the first tunnel on, so that it times them all.
  while (!h.consumerReady.load(std::memory_order_acquire) &&
         !h.shutdown.load(std::memory_order_acquire)) {
    ::usleep(1000);
  }
  producer.load();
  status.phaseIs(Phase::loaded);
  while (!h.churnGo.load(std::memory_order_acquire) &&
         !h.shutdown.load(std::memory_order_acquire)) {
    ::usleep(1000);
  }
  producer.churn();
  status.digest.store(producer.digest(), std::memory_order_release);
  status.phaseIs(Phase::finished);
  // An agent keeps its table while it runs: readers still see a live writer.
  while (!h.shutdown.load(std::memory_order_acquire)) ::usleep(5000);
}

}  // namespace

int runProducer(SharedRegion const& region, RedistProtocol protocol, DemoOptions const& o) {
  ProcStatus& status = region.header().proc[static_cast<int>(protocol)];
  status.pid.store(::getpid());
  try {
    ZentTamsel::MountRegistry registry;
    TunnelTableMounter mounter(ZentTamsel::Mount(Zent::String(o.root), registry));
    auto base = mounter.mountWriter(tableIdOf(protocol));
    switch (protocol) {
      case RedistProtocol::ldp:
        produce<LdpTunnelTable>(region, protocol, o, base);
        break;
      case RedistProtocol::isisSr:
        produce<IsisSrTunnelTable>(region, protocol, o, base);
        break;
      case RedistProtocol::bgpLu:
        produce<BgpLuTunnelTable>(region, protocol, o, base);
        break;
    }
    base = nullptr;
    mounter.unmount(tableIdOf(protocol));
  } catch (std::exception const& e) {
    status.fail(e.what());
    return 1;
  }
  return 0;
}

}  // namespace TunnelCtl::Demo
