// The RIB calculator in steady state: 100,000 IS-IS SR and LDP tunnels over
// 20,000 endpoints, followed as key shadows, with both RIBs and the
// command-line view published in shared memory. Each round writes 20,000
// updates (not timed), then times the consumer taking them: the calculator
// flushing after every notification or after each turn of 256, beside a raw
// reader of the same tables taking the same notifications. Two mixes of
// updates: churn, where every update moves its tunnel to another candidate
// (a new endpoint and entry metric), and a mix closer to a network's day (half
// via changes, a quarter IGP metric changes, the rest entry metric changes and
// endpoint moves).
#include <filesystem>
#include <random>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/TunnelRibCalc/TunnelRibCalculator.h"
#include "Tunnel/TunnelTable/Tables.h"
#include "Tunnel/shmem/Tamsel/Reader.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"

using namespace Tunnel::TunnelTable;
using Tunnel::TunnelRibCalc::TunnelRibCalculator;

namespace {

constexpr uint64_t kTunnels = 100000;  // per table: half SR, half LDP
constexpr uint32_t kEndpoints = 20000;
constexpr uint64_t kUpdates = 20000;

std::string makeRoot() {
  char tmpl[] = "/dev/shm/ribcalc-bench-XXXXXX";
  return ::mkdtemp(tmpl);
}

struct Tunnel {
  uint32_t tep = 0;
  uint32_t entryMetric = 0;
  uint32_t igpMetric = 10;
  uint32_t label = 100;
};

template <typename Entry>
Entry entry(TunnelType t, uint64_t i, Tunnel const& s) {
  Entry e(TunnelId(t, i));
  e.endpointIs(0, Vorn::IpGenPrefix(Vorn::IpGenAddr(0x0a000000u | s.tep), 32));
  e.entryMetricIs(s.entryMetric);
  e.igpMetricIs(s.igpMetric);
  e.tunnelBwIs(TunnelBandwidth(1000));
  e.viaIs(0, MplsVia(Vorn::IpGenAddr(0x0b000001u), Vorn::IntfId::ethernet(1),
                     Vorn::MplsLabelOperation::push({s.label})));
  return e;
}

// kFlushEvery: 0 for the raw reader; otherwise the calculator, flushing every
// kFlushEvery notifications.
template <size_t kFlushEvery, bool kMixed = false>
void steadyState(benchmark::State& state) {
  std::string root = makeRoot();
  {
    ZentTamsel::MountRegistry registry;
    ZentTamsel::Mount mount(Zent::String(root), registry);
    TunnelTableMounter mounter{mount};
    auto sr = Zent::dynamicPtrCast<IsisSrTunnelTable>(
        mounter.mountWriter(TunnelTableIdentifier::isisSrTunnelTable));
    auto ldp = Zent::dynamicPtrCast<LdpTunnelTable>(
        mounter.mountWriter(TunnelTableIdentifier::ldpTunnelTable));
    std::mt19937_64 rng(5);
    std::vector<Tunnel> tunnels(kTunnels);
    auto write = [&](uint64_t i) {
      Tunnel& t = tunnels[i];
      uint64_t kind = kMixed ? rng() % 20 : 19;
      if (kind < 10) {
        t.label = 100 + static_cast<uint32_t>(rng() % 1000);
      } else if (kind < 15) {
        t.igpMetric = 10 * (1 + static_cast<uint32_t>(rng() % 100));
      } else if (kind < 18) {
        t.entryMetric = static_cast<uint32_t>(rng() % 4);
      } else if (kind < 19) {
        t.tep = static_cast<uint32_t>(rng() % kEndpoints);
      } else {
        t.tep = static_cast<uint32_t>(rng() % kEndpoints);
        t.entryMetric = static_cast<uint32_t>(rng() % 4);
      }
      if (i % 2) {
        sr->entryIs(entry<SrTunnelTableEntry>(isisSrTunnel, i, t));
      } else {
        ldp->entryIs(entry<LdpTunnelTableEntry>(ldpTunnel, i, t));
      }
    };
    for (uint64_t i = 0; i < kTunnels; ++i) {
      tunnels[i].tep = static_cast<uint32_t>(rng() % kEndpoints);
      tunnels[i].entryMetric = static_cast<uint32_t>(rng() % 4);
      write(i);
    }

    std::unique_ptr<TunnelRibCalculator> calc;
    std::vector<Zent::Ptr<TunnelTableBase>> shadows;
    std::vector<std::unique_ptr<Tamsel::Reader>> raws;
    if (kFlushEvery == 0) {
      for (auto const* name : {"sr", "ldp"}) {
        raws.push_back(std::make_unique<Tamsel::Reader>(
            mounter.tamselMounter().dir(std::string("tunnel/table/") + name), "entry", 8));
      }
    } else {
      calc = std::make_unique<TunnelRibCalculator>(
          mountTunnelRib(mount, ZentTamsel::writer()),
          mountColoredTunnelRib(mount, ZentTamsel::writer()),
          mountTunnelPelagStatus(mount, ZentPelag::Mode::writer));
      for (auto id :
           {TunnelTableIdentifier::isisSrTunnelTable, TunnelTableIdentifier::ldpTunnelTable}) {
        shadows.push_back(mounter.mountKeyshadow(id));
        calc->inputIs(shadows.back());
      }
      calc->flush();
    }
    struct H : Tamsel::Reader::Handler {
      void keyChanged(void const*) override {}
    } h;
    for (auto _ : state) {
      state.PauseTiming();
      for (uint64_t u = 0; u < kUpdates; ++u) write(rng() % kTunnels);
      state.ResumeTiming();
      if (kFlushEvery == 0) {
        for (auto& r : raws) {
          while (r->pending()) r->dispatch(h);
        }
      } else {
        for (auto& s : shadows) {
          auto& core = s->entryCore();
          while (core.reader()->pending()) {
            core.dispatch(kFlushEvery);
            calc->flush();
          }
        }
      }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kUpdates));
    if (calc) {
      state.counters["endpointsPerUpdate"] = static_cast<double>(calc->stats().computations) /
                                             static_cast<double>(calc->stats().notifications);
    }
    calc.reset();
    shadows.clear();
    raws.clear();
    for (auto const* p :
         {TunnelRib::kMountPath, ColoredTunnelRib::kMountPath, TunnelPelagStatus::kMountPath}) {
      mount.doUnmount(Zent::String(p));
    }
    mounter.unmount(TunnelTableIdentifier::isisSrTunnelTable);
    mounter.unmount(TunnelTableIdentifier::ldpTunnelTable);
  }
  std::filesystem::remove_all(root);
}

void BM_RawNotification(benchmark::State& state) { steadyState<0>(state); }
BENCHMARK(BM_RawNotification)->Unit(benchmark::kMillisecond)->Iterations(10);

void BM_CalculatorFlushEach(benchmark::State& state) { steadyState<1>(state); }
BENCHMARK(BM_CalculatorFlushEach)->Unit(benchmark::kMillisecond)->Iterations(10);

void BM_CalculatorFlushPerTurn(benchmark::State& state) { steadyState<256>(state); }
BENCHMARK(BM_CalculatorFlushPerTurn)->Unit(benchmark::kMillisecond)->Iterations(10);

void BM_CalculatorMixFlushPerTurn(benchmark::State& state) { steadyState<256, true>(state); }
BENCHMARK(BM_CalculatorMixFlushPerTurn)->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace

BENCHMARK_MAIN();
