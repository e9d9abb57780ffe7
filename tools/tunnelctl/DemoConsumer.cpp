// The demo's consumer: mounts the three tables as key shadows, runs the three
// redistribution machines over them, times every notification against the
// producer's stamp, and once the producers are done and every notification is
// in, checks each configuration against what its table implies and against
// the producer's own digest.

#include <algorithm>
#include <array>
#include <memory>
#include <poll.h>
#include <unistd.h>
#include <vector>

#include "tools/tunnelctl/Demo.h"
#include "tools/tunnelctl/KeyReactor.h"

namespace TunnelCtl::Demo {

using namespace Tunnel::TunnelTable;

namespace {

constexpr size_t kTurn = 1024;  // notifications per table per turn

void publishLatency(std::vector<uint64_t>& samples, LatencyResult& out) {
  out.samples.store(samples.size());
  if (samples.empty()) return;
  auto at = [&](double q) {
    size_t k = std::min(samples.size() - 1, static_cast<size_t>(q * samples.size()));
    std::nth_element(samples.begin(), samples.begin() + static_cast<ptrdiff_t>(k), samples.end());
    return samples[k];
  };
  out.p50Ns.store(at(0.50));
  out.p99Ns.store(at(0.99));
  out.maxNs.store(*std::max_element(samples.begin(), samples.end()));
}

struct Following {
  // Outlives the followers, which unmount through it.
  ZentTamsel::MountRegistry registry;
  std::array<std::unique_ptr<RedistFollower>, kProducers> followers;
  std::array<Zent::Ptr<KeyReactor>, kProducers> reactors;
  std::array<uint64_t, kProducers> notifications{};
  std::vector<uint64_t> loadSamples;
  std::vector<uint64_t> churnSamples;

  ~Following() {
    for (auto& r : reactors) {
      if (r) r->notifierIs(nullptr);
    }
  }

  uint64_t total() const { return notifications[0] + notifications[1] + notifications[2]; }

  // Waits up to `timeoutMs` for news, then gives each table a bounded turn,
  // so that a busy table neither starves the others nor the progress line.
  void dispatchSome(int timeoutMs) {
    std::array<pollfd, kProducers> fds{};
    for (int i = 0; i < kProducers; ++i)
      fds[i] = {followers[i]->table()->entryCore().fd(), POLLIN, 0};
    if (::poll(fds.data(), fds.size(), timeoutMs) <= 0) return;
    for (int i = 0; i < kProducers; ++i) {
      if (fds[i].revents) followers[i]->table()->entryCore().dispatch(kTurn);
    }
  }

  // Dispatches each table until nothing is queued for it.
  void drain() {
    for (bool more = true; more;) {
      more = false;
      for (auto const& f : followers) {
        auto& core = f->table()->entryCore();
        if (core.dispatch() > 0 || (core.reader() && core.reader()->pending())) more = true;
      }
    }
  }

  void publish(ProcStatus& status) const {
    // The configurations go out to the state database with the progress.
    for (auto const& f : followers) f->flush();
    uint64_t entries = 0, members = 0;
    for (auto const& f : followers) {
      auto const& config = *f->config();
      entries += config.entryCount();
      for (auto it = config.entries().begin(); it != config.entries().end(); ++it) {
        members += (*it)->memberTunnelInfoCount();
      }
    }
    status.entries.store(entries, std::memory_order_relaxed);
    status.tunnels.store(members, std::memory_order_relaxed);
    status.writes.store(total(), std::memory_order_relaxed);
  }
};

void follow(SharedRegion const& region, DemoOptions const& o, Following& f) {
  SharedHeader& h = region.header();
  ProcStatus& status = h.proc[kConsumer];
  TunnelTableMounter mounter(ZentTamsel::Mount(Zent::String(o.root), f.registry));
  for (int i = 0; i < kProducers; ++i) {
    f.followers[i] = RedistFollower::create(kRedistProtocols[i], mounter);
    f.followers[i]->publish(o.root);
    ProcStatus const& producer = h.proc[i];
    f.reactors[i] = KeyReactor::attach(f.followers[i]->table().ptr(), [&, i](TunnelId const& id) {
      ++f.notifications[i];
      uint64_t index = id.value() & TunnelId::kIndexMask;
      if (index == 0 || index > region.tunnels()) return;
      int64_t stamp = region.stamp(i, index).load(std::memory_order_acquire);
      if (stamp == 0) return;
      int64_t churnStart = producer.churnStartNs.load(std::memory_order_acquire);
      auto latency = static_cast<uint64_t>(std::max<int64_t>(0, nowNs() - stamp));
      (churnStart != 0 && stamp >= churnStart ? f.churnSamples : f.loadSamples).push_back(latency);
    });
  }
  f.loadSamples.reserve(3 * size_t{o.tunnels});
  h.followStartNs.store(nowNs());
  status.phaseIs(Phase::following);
  h.consumerReady.store(1, std::memory_order_release);

  int64_t lastPublish = 0;
  while (!producersIn(h, Phase::finished)) {
    if (shouldStop(h)) return;
    if (!h.churnGo.load(std::memory_order_relaxed) && producersIn(h, Phase::loaded)) {
      f.drain();
      h.churnGo.store(1, std::memory_order_release);
    }
    f.dispatchSome(50);
    if (nowNs() - lastPublish > 100'000'000) {
      f.publish(status);
      lastPublish = nowNs();
    }
  }
  // Every write is made; take in every notification still queued.
  status.phaseIs(Phase::settling);
  f.drain();
  h.followEndNs.store(nowNs());
  f.publish(status);
}

}  // namespace

int runConsumer(SharedRegion const& region, DemoOptions const& o) {
  SharedHeader& h = region.header();
  ProcStatus& status = h.proc[kConsumer];
  status.pid.store(::getpid());
  try {
    // The tables exist once their producers wait for us.
    while (!producersIn(h, Phase::waiting)) {
      if (shouldStop(h)) return 1;
      ::usleep(1000);
    }
    Following f;
    follow(region, o, f);
    if (shouldStop(h)) return 1;
    status.phaseIs(Phase::verifying);
    for (int i = 0; i < kProducers; ++i) {
      RedistFollower const& follower = *f.followers[i];
      ConfigView current = follower.current();
      ProtocolResult& r = h.result[i];
      r.tableEntries.store(follower.table()->entryCount());
      auto first = follower.table()->entryKeys(nullptr, 1);
      r.sampleTunnel.store(first.empty() ? 0 : first.front().value());
      r.redistEntries.store(current.size());
      r.members.store(memberCount(current));
      r.notifications.store(f.notifications[i]);
      r.matchesTable.store(current == follower.expected());
      r.matchesProducer.store(configDigest(current) == h.proc[i].digest.load());
    }
    publishLatency(f.loadSamples, h.loadLatency);
    publishLatency(f.churnSamples, h.churnLatency);
    status.phaseIs(Phase::done);
  } catch (std::exception const& e) {
    status.fail(e.what());
    return 1;
  }
  return 0;
}

}  // namespace TunnelCtl::Demo
