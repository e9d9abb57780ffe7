// The multicast merge from its start to ready(), beside a plain read of its
// inputs.
//
// A writer process publishes an MLDP table and a static multicast table of
// 100,000 tunnels each (a tree name, 2 to 4 vias), the static table replacing
// 20,000 of MLDP's tunnel ids and holding 80,000 of its own, and stays alive.
// This process mounts both as key shadows and the merged table as writer. Each
// pass
//   - scans both inputs, reading every entry with entry(key, out): `scan_ns` per
//     input entry, the baseline;
//   - runs a MergedTunnelTableSm from handleInitialized() to ready(), on a task
//     scheduler driven by runUntilIdle() (slice `yield_us`) or, with yield_us 0,
//     synchronously: `merge_ns` per input entry, and `merge_over_scan`.
// The output is either a new table (full:0, an agent's first start: the table
// grows as the merge fills it) or as an earlier run left it (full:1): the
// 180,000 merged entries and 10,000 tunnels no input holds any more, which the
// reconciliation removes.
//
// Asynchronous passes report, over all passes, the scheduler's longest single
// task run (`longest_run_us`) beside the slice and the cost of one input entry
// (`entry_us`, merge_ns in microseconds): a run that yields as it should ends
// within about `yield_us` + `entry_us`. `longest_gap_us` is the longest time
// between two consecutive looks at the scheduler's clock, that is the costliest
// single entry or stretch of work that never asks whether to yield; a run can
// pass its slice by that much. `ctx_switches` counts the times the merge lost
// the CPU: on a busy machine a run's wall time includes them.
//
//   merge_bench [benchmark flags]
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/framework/Rivy/Task.h"
#include "Tunnel/multicast/MergedTunnelTableSm.h"
#include "bench/common/WriterProcess.h"

using namespace Tunnel::TunnelTable;
using Clock = std::chrono::steady_clock;

namespace {

constexpr uint64_t kMldp = 100'000;
constexpr uint64_t kStaticShared = 20'000;  // every fifth MLDP id
constexpr uint64_t kStaticOwn = 80'000;
constexpr uint64_t kStale = 10'000;
constexpr uint64_t kInputs = kMldp + kStaticShared + kStaticOwn;
constexpr uint64_t kMerged = kMldp + kStaticOwn;

double nsSince(Clock::time_point t0) {
  return std::chrono::duration<double, std::nano>(Clock::now() - t0).count();
}

double us(std::chrono::nanoseconds t) {
  return std::chrono::duration<double, std::micro>(t).count();
}

int64_t involuntarySwitches() {
  rusage u{};
  ::getrusage(RUSAGE_THREAD, &u);
  return u.ru_nivcsw;
}

TunnelId mldpId(uint64_t i) { return TunnelId(mldpTunnel, i); }
TunnelId staticId(uint64_t i) { return TunnelId(staticMcastTunnel, i); }

// Reuses `e`: an entry has room for 600 vias.
MplsMulticastTunnelTableEntry const& tunnel(MplsMulticastTunnelTableEntry& e, TunnelId id,
                                            TunnelType type, uint64_t i) {
  e.tunnelIdIs(id);
  e.tunnelTypeIs(type);
  std::string const tree = (type == mldpTunnel ? "mldp-p2mp-" : "static-p2mp-") +
                           std::to_string(i % 4096) + "-lsp-" + std::to_string(i);
  e.mcastTreeIdIs(Routing::Multicast::MulticastTreeId(tree));
  e.viaDelAll();
  for (uint32_t v = 0; v < 2 + i % 3; ++v) {
    e.viaIs(v, MplsVia(Vorn::IpGenAddr(0x0b000001u + static_cast<uint32_t>(i % 251) + v),
                       Vorn::IntfId::ethernet(1 + v),
                       Vorn::MplsLabelOperation::push({16 + static_cast<uint32_t>(i % 1000)})));
  }
  return e;
}

std::shared_ptr<void> publish(std::string const& root) {
  struct Writer {
    ZentTamsel::MountRegistry registry;
    Zent::Ptr<TunnelTableBase> mldp, statics;
  };
  auto w = std::make_shared<Writer>();
  TunnelTableMounter mounter{ZentTamsel::Mount(Zent::String(root), w->registry)};
  w->mldp = mounter.mountWriter(TunnelTableIdentifier::mldpTunnelTable);
  w->statics = mounter.mountWriter(TunnelTableIdentifier::staticMcastTunnelTable);
  auto mldp = Zent::dynamicPtrCast<MldpTunnelTable>(w->mldp);
  auto statics = Zent::dynamicPtrCast<StaticMcastTunnelTable>(w->statics);
  if (!mldp || !statics) throw std::runtime_error("the input tables did not mount");
  auto e = std::make_unique<MplsMulticastTunnelTableEntry>();
  for (uint64_t i = 0; i < kMldp; ++i) mldp->entryIs(tunnel(*e, mldpId(i), mldpTunnel, i));
  for (uint64_t i = 0; i < kStaticShared; ++i) {
    statics->entryIs(tunnel(*e, mldpId(i * 5), staticMcastTunnel, i * 5));
  }
  for (uint64_t i = 0; i < kStaticOwn; ++i) {
    statics->entryIs(tunnel(*e, staticId(i), staticMcastTunnel, i));
  }
  return w;
}

// The writer process and this process's mounts, shared by every case.
struct Setup {
  std::string root;
  pid_t writer = -1;
  ZentTamsel::MountRegistry registry;
  ZentTamsel::Mount mount;
  Zent::Ptr<MldpTunnelTable> mldp;
  Zent::Ptr<StaticMcastTunnelTable> statics;
  Zent::Ptr<MplsMulticastTunnelTable> merged;
  std::unique_ptr<MplsMulticastTunnelTableEntry> scratch =
      std::make_unique<MplsMulticastTunnelTableEntry>();

  bool start() {
    char tmpl[] = "/dev/shm/merge-bench-XXXXXX";
    if (!::mkdtemp(tmpl)) return false;
    root = tmpl;
    writer = BenchSupport::startWriterProcess("input writer", [this] { return publish(root); });
    if (writer < 0) return false;
    mount = ZentTamsel::Mount(Zent::String(root), registry);
    TunnelTableMounter mounter{mount};
    mldp = Zent::dynamicPtrCast<MldpTunnelTable>(
        mounter.mountKeyshadow(TunnelTableIdentifier::mldpTunnelTable));
    statics = Zent::dynamicPtrCast<StaticMcastTunnelTable>(
        mounter.mountKeyshadow(TunnelTableIdentifier::staticMcastTunnelTable));
    merged = mountMplsMulticastTunnelTable(mount, ZentTamsel::writer());
    return mldp && statics && merged;
  }

  ~Setup() {
    mldp = nullptr;
    statics = nullptr;
    merged = nullptr;
    if (mount) {
      TunnelTableMounter mounter{mount};
      mount.doUnmount(Zent::String(MplsMulticastTunnelTable::kMountPath));
      mounter.unmount(TunnelTableIdentifier::mldpTunnelTable);
      mounter.unmount(TunnelTableIdentifier::staticMcastTunnelTable);
    }
    if (writer > 0) {
      ::kill(writer, SIGKILL);
      ::waitpid(writer, nullptr, 0);
    }
    if (!root.empty()) std::filesystem::remove_all(root);
  }

  // The baseline: every key of both inputs, each entry decoded.
  uint64_t readInputs() const {
    uint64_t n = 0, vias = 0;
    auto readAll = [&](auto const& table) {
      typename MplsMulticastTunnelTable::ScanCursor cursor;
      TunnelId next;
      table.entryScan(cursor, next, [&](TunnelId const& k) {
        if (table.entry(k, *scratch)) {
          vias += scratch->via().count();
          ++n;
        }
        return true;
      });
    };
    readAll(*mldp);
    readAll(*statics);
    benchmark::DoNotOptimize(vias);
    return n;
  }

  // A new table, or the output as an earlier run of the agent left it: what
  // the merge makes of today's inputs, and tunnels withdrawn while the agent
  // was down.
  void outputIs(bool full) {
    if (!full || merged->entryCount() < kMerged) {
      Zent::String const path(MplsMulticastTunnelTable::kMountPath);
      merged = nullptr;
      mount.doUnmount(path);
      mount.cleanup(path);
      merged = mountMplsMulticastTunnelTable(mount, ZentTamsel::writer());
      if (!full) return;
      mergeOnce(std::chrono::nanoseconds(0));
    }
    for (uint64_t i = 0; i < kStale; ++i) {
      merged->entryIs(tunnel(*scratch, mldpId(kMldp + i), mldpTunnel, kMldp + i));
    }
  }

  struct Run {
    double ns = 0;
    std::chrono::nanoseconds longestRun{0};
    std::chrono::nanoseconds longestGap{0};
    int64_t ctxSwitches = 0;
    uint64_t taskRuns = 0;
    uint64_t merges = 0;
    uint64_t reconciledDeletes = 0;
    bool ready = false;
  };

  // One merge from handleInitialized() to ready(); a zero slice runs it
  // synchronously.
  Run mergeOnce(std::chrono::nanoseconds yieldTime) {
    bool const async = yieldTime.count() > 0;
    Rivy::TaskScheduler scheduler(async ? yieldTime : std::chrono::milliseconds(10));
    // The scheduler's own clock, also noting the longest time between two
    // readings: a task reads it once per item when it asks whether to yield.
    std::chrono::nanoseconds last{0}, longestGap{0};
    scheduler.clockIs([&] {
      auto const t = std::chrono::duration_cast<std::chrono::nanoseconds>(
          std::chrono::steady_clock::now().time_since_epoch());
      if (last.count() != 0) longestGap = std::max(longestGap, t - last);
      last = t;
      return t;
    });
    Rivy::SmControl control;
    control.taskScheduler = &scheduler;
    control.yieldTime = yieldTime;
    control.synchronousMode =
        async ? Rivy::SynchronousMode::asynchronous : Rivy::SynchronousMode::synchronous;
    Run r;
    r.ctxSwitches = -involuntarySwitches();
    auto const t0 = Clock::now();
    auto sm = mergedTunnelTableSmFactory(mldp, statics, merged, control);
    sm->handleInitialized();
    r.taskRuns = scheduler.runUntilIdle();
    r.ns = nsSince(t0);
    r.ctxSwitches += involuntarySwitches();
    r.ready = sm->ready();
    r.merges = sm->merges();
    r.reconciledDeletes = sm->reconciledDeletes();
    r.longestRun = scheduler.longestRun();
    r.longestGap = longestGap;
    sm = nullptr;  // its tasks go before their scheduler
    return r;
  }
};

Setup* setup = nullptr;

void BM_Merge(benchmark::State& state) {
  auto const yieldTime = std::chrono::microseconds(state.range(0));
  bool const full = state.range(1) != 0;
  if (!setup) {
    state.SkipWithError("no input tables");
    return;
  }
  double scanNs = 0, mergeNs = 0;
  std::chrono::nanoseconds longestRun{0}, longestGap{0};
  uint64_t taskRuns = 0;
  int64_t ctxSwitches = 0;
  bool right = true;
  for (auto _ : state) {
    setup->outputIs(full);
    auto t0 = Clock::now();
    right &= setup->readInputs() == kInputs;
    scanNs += nsSince(t0);
    Setup::Run const r = setup->mergeOnce(yieldTime);
    // Each input entry goes through the merge rule once, in the second scans.
    right &= r.ready && r.merges == kInputs && setup->merged->entryCount() == kMerged &&
             r.reconciledDeletes == (full ? kStale : 0);
    mergeNs += r.ns;
    longestRun = std::max(longestRun, r.longestRun);
    longestGap = std::max(longestGap, r.longestGap);
    taskRuns += r.taskRuns;
    ctxSwitches += r.ctxSwitches;
    state.SetIterationTime(r.ns / 1e9);
  }
  if (!right) state.SkipWithError("a merge did not end with the merged inputs");
  double const passes = static_cast<double>(state.iterations());
  double const n = static_cast<double>(kInputs) * passes;
  state.counters["inputs"] = static_cast<double>(kInputs);
  state.counters["scan_ns"] = scanNs / n;
  state.counters["merge_ns"] = mergeNs / n;
  state.counters["merge_over_scan"] = mergeNs / scanNs;
  state.counters["ctx_switches"] = static_cast<double>(ctxSwitches) / passes;
  if (yieldTime.count() > 0) {
    state.counters["task_runs"] = static_cast<double>(taskRuns) / passes;
    state.counters["longest_run_us"] = us(longestRun);
    state.counters["longest_gap_us"] = us(longestGap);
    state.counters["entry_us"] = mergeNs / n / 1e3;
  }
}
BENCHMARK(BM_Merge)
    ->ArgNames({"yield_us", "full"})
    ->ArgsProduct({{0, 2000, 5000}, {0, 1}})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  auto s = std::make_unique<Setup>();
  if (s->start()) {
    setup = s.get();
  } else {
    std::fprintf(stderr, "merge_bench: the input tables could not be set up under %s\n",
                 s->root.c_str());
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  setup = nullptr;
  s.reset();
  return 0;
}
