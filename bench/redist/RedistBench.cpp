// The LDP redistribution machine at 100,000 tunnels: how long after the
// producer's last write the consumer's configuration holds them all, and what
// one update costs the consumer in steady state (endpoint moves and metric
// changes), each beside the raw notification cost of the service.
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <poll.h>
#include <random>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "Tunnel/LdpTunnelRedistConfigSm/LdpTunnelRedistConfigSm.h"
#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/shmem/Tamsel/Reader.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"

using namespace Tunnel::TunnelTable;
using namespace Tunnel::TunnelRedist;

namespace {

constexpr uint64_t kTunnels = 100000;
constexpr uint64_t kUpdates = 20000;

int64_t nowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

std::string makeRoot() {
  char tmpl[] = "/dev/shm/redist-bench-XXXXXX";
  return ::mkdtemp(tmpl);
}

LdpTunnelTableEntry entry(uint64_t i, uint32_t tep, uint32_t metric) {
  LdpTunnelTableEntry e(TunnelId(ldpTunnel, i));
  e.endpointIs(0, Vorn::IpGenPrefix(Vorn::IpGenAddr(0x0a000000u | tep), 32));
  e.igpMetricIs(metric);
  e.viaIs(0, MplsVia(Vorn::IpGenAddr(0x0b000001u), Vorn::IntfId::ethernet(1),
                     Vorn::MplsLabelOperation::push({100})));
  return e;
}

struct Shared {
  std::atomic<int> stage;
  std::atomic<int64_t> firstWrite;
  std::atomic<int64_t> lastWrite;
};

// A producer process writes kTunnels LDP tunnels once the consumer is ready;
// `consume` runs in this process and returns when it holds them all.
template <typename Consume>
void catchUp(benchmark::State& state, Consume&& consume) {
  for (auto _ : state) {
    std::string root = makeRoot();
    ZentTamsel::MountRegistry registry;
    TunnelTableMounter mounter{ZentTamsel::Mount(Zent::String(root), registry)};
    auto* sh = static_cast<Shared*>(
        ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    sh->stage = 0;
    pid_t producer = ::fork();
    if (producer == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      auto table = Zent::dynamicPtrCast<LdpTunnelTable>(
          mounter.mountWriter(TunnelTableIdentifier::ldpTunnelTable));
      sh->stage = 1;
      while (sh->stage.load() != 2) ::usleep(100);
      sh->firstWrite = nowNs();
      for (uint64_t i = 0; i < kTunnels; ++i) table->entryIs(entry(i, i % 500, 10));
      sh->lastWrite = nowNs();
      while (sh->stage.load() != 3) ::usleep(1000);
      ::_exit(0);
    }
    while (sh->stage.load() != 1) ::usleep(100);
    int64_t done = consume(mounter, [&] { sh->stage = 2; });
    state.SetIterationTime(static_cast<double>(done - sh->lastWrite.load()) / 1e9);
    state.counters["fromFirstWrite_ms"] = static_cast<double>(done - sh->firstWrite.load()) / 1e6;
    sh->stage = 3;
    ::waitpid(producer, nullptr, 0);
    ::munmap(sh, sizeof(Shared));
    mounter.unmount(TunnelTableIdentifier::ldpTunnelTable);
    std::filesystem::remove_all(root);
  }
}

// Baseline: a raw reader of the service, taking every notification.
void BM_CatchUpRawNotifications(benchmark::State& state) {
  catchUp(state, [](TunnelTableMounter const& mounter, auto&& go) {
    std::string dir = mounter.tamselMounter().dir("tunnel/table/ldp");
    Tamsel::Reader r(dir, "entry", 8);
    struct H : Tamsel::Reader::Handler {
      uint64_t n = 0;
      void keyChanged(void const*) override { ++n; }
    } h;
    go();
    while (h.n < kTunnels) {
      pollfd p{r.fd(), POLLIN, 0};
      ::poll(&p, 1, 100);
      r.dispatch(h);
    }
    return nowNs();
  });
}
BENCHMARK(BM_CatchUpRawNotifications)
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// The consumer: a key shadow of the LDP table and the redistribution machine.
void BM_CatchUpLdpRedistConfig(benchmark::State& state) {
  catchUp(state, [](TunnelTableMounter const& mounter, auto&& go) {
    auto table = Zent::dynamicPtrCast<LdpTunnelTable>(
        mounter.mountKeyshadow(TunnelTableIdentifier::ldpTunnelTable));
    auto config = tunnelRedistConfigFactory("ldp");
    auto sm = ldpTunnelRedistConfigSmFactory(config, table);
    sm->handleInitialized();
    go();
    while (sm->tidToTeps().size() < kTunnels) mounter.tamselMounter().registry()->dispatchAll(100);
    int64_t done = nowNs();
    sm = nullptr;
    table = nullptr;
    return done;
  });
}
BENCHMARK(BM_CatchUpLdpRedistConfig)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

// Steady state, one process: a writer table, a key shadow of it and the
// machine on the shadow. Each round writes kUpdates endpoint moves and metric
// changes (not timed), then times the consumer taking them.
template <bool kMachine>
void steadyState(benchmark::State& state) {
  std::string root = makeRoot();
  ZentTamsel::MountRegistry registry;
  TunnelTableMounter mounter{ZentTamsel::Mount(Zent::String(root), registry)};
  auto writer = Zent::dynamicPtrCast<LdpTunnelTable>(
      mounter.mountWriter(TunnelTableIdentifier::ldpTunnelTable));
  for (uint64_t i = 0; i < kTunnels; ++i) writer->entryIs(entry(i, i % 500, 10));
  std::string dir = mounter.tamselMounter().dir("tunnel/table/ldp");
  auto raw = std::make_unique<Tamsel::Reader>(dir, "entry", 8);
  Zent::Ptr<LdpTunnelTable> shadow;
  Zent::Ptr<LdpTunnelRedistConfigSm> sm;
  auto config = tunnelRedistConfigFactory("ldp");
  if (kMachine) {
    raw.reset();
    shadow = Zent::dynamicPtrCast<LdpTunnelTable>(
        mounter.mountKeyshadow(TunnelTableIdentifier::ldpTunnelTable));
    sm = ldpTunnelRedistConfigSmFactory(config, shadow);
    sm->handleInitialized();
  }
  struct H : Tamsel::Reader::Handler {
    void keyChanged(void const*) override {}
  } h;
  std::mt19937_64 rng(3);
  for (auto _ : state) {
    state.PauseTiming();
    for (uint64_t u = 0; u < kUpdates; ++u) {
      uint64_t i = rng() % kTunnels;
      writer->entryIs(
          entry(i, static_cast<uint32_t>(rng() % 500), static_cast<uint32_t>(rng() % 100)));
    }
    state.ResumeTiming();
    if (kMachine) {
      while (shadow->entryCore().reader()->pending()) shadow->entryCore().dispatch();
    } else {
      while (raw->pending()) raw->dispatch(h);
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kUpdates));
  sm = nullptr;
  shadow = nullptr;
  raw.reset();
  writer = nullptr;
  mounter.unmount(TunnelTableIdentifier::ldpTunnelTable);
  std::filesystem::remove_all(root);
}

void BM_SteadyStateRawNotification(benchmark::State& state) { steadyState<false>(state); }
BENCHMARK(BM_SteadyStateRawNotification)->Unit(benchmark::kMillisecond)->Iterations(10);

void BM_SteadyStateLdpMachineUpdate(benchmark::State& state) { steadyState<true>(state); }
BENCHMARK(BM_SteadyStateLdpMachineUpdate)->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace

BENCHMARK_MAIN();
