// The tunnel FIB and its resolver, each beside its baseline in the same run:
//
// BM_FibEntryIs: TunnelFib::entryIs of a two-via entry on a FIB mounted as
// writer, alternating in batches with the raw service write of the same
// record (Tamsel::Writer::write of its serialized bytes into a table of the
// same shape). raw_ns / entryIs_ns is the counter `raw_over_entryIs`.
//
// BM_FibResolve: a writer process fills a FIB of 100,000 tunnels riding on
// 1,000 tunnels riding on 100 tunnels over real interfaces, and stays alive;
// this process mounts it as reader and resolves every tunnel with a
// TunnelResolver. The baseline replays, through the same reader-mounted FIB,
// the lookups the resolution makes (each FIB entry and label-stack encap it
// visits, in the same order), decoding each. resolve_ns / reads_ns is the
// counter `resolve_over_reads`.
//
//   fib_bench [benchmark flags]
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <unordered_set>
#include <vector>

#include <benchmark/benchmark.h>

#include "Tunnel/TunnelFib/TunnelFib.h"
#include "Tunnel/TunnelFib/TunnelResolver.h"
#include "Tunnel/shmem/Tamsel/Writer.h"
#include "bench/common/WriterProcess.h"

using namespace Tunnel::TunnelFib;
using Tunnel::TunnelTable::TunnelType;
using Clock = std::chrono::steady_clock;

namespace {

std::string makeRoot() {
  char tmpl[] = "/dev/shm/fib-bench-XXXXXX";
  return ::mkdtemp(tmpl);
}

double nsSince(Clock::time_point t0) {
  return std::chrono::duration<double, std::nano>(Clock::now() - t0).count();
}

TunnelId tunnelId(TunnelType type, uint64_t index) { return TunnelId(type, index); }

EncapId labelEncap(uint32_t value) { return EncapId(EncapType::labelStackEncap, value); }

// ---- entryIs beside the raw write ------------------------------------------

constexpr uint64_t kWriteKeys = 100'000;
constexpr int kWriteBatch = 250;

TunnelFibEntry twoViaEntry(uint64_t index) {
  TunnelFibEntry e(tunnelId(Tunnel::TunnelTable::bgpLuTunnel, index));
  e.seqNoIs(7);
  e.tunnelViaIs(0,
                TunnelVia(Vorn::IpGenAddr(0x0b000001u), Vorn::IntfId::ethernet(1), labelEncap(1)));
  e.tunnelViaIs(1,
                TunnelVia(Vorn::IpGenAddr(0x0b000101u), Vorn::IntfId::ethernet(2), labelEncap(2)));
  return e;
}

void BM_FibEntryIs(benchmark::State& state) {
  std::string root = makeRoot();
  ZentTamsel::MountRegistry registry;
  ZentTamsel::Mount mount(Zent::String(root), registry);
  auto fib = mountTunnelFib(mount, ZentTamsel::writer());

  // The raw table has the FIB entry table's shape, in a directory of its own.
  Tamsel::TableShape shape;
  shape.typeName = TunnelFib::kTypeName;
  shape.allocatorName = "entry";
  shape.keySize = sizeof(TunnelId);
  shape.maxPayload = TunnelFibEntry::kMaxSerializedLen;
  auto raw = std::make_unique<Tamsel::Writer>(root + "/raw", "entry", shape);

  // Both sides write records prepared before the timed region: the raw side
  // its serialized bytes, entryIs the values (an entry is 48 KB, and building
  // one is the caller's work, not the write's).
  std::vector<std::unique_ptr<TunnelFibEntry>> entries(kWriteBatch);
  std::vector<std::vector<char>> records(kWriteBatch);
  uint64_t next = 0;
  auto prepare = [&] {
    for (int k = 0; k < kWriteBatch; ++k) {
      entries[k] = std::make_unique<TunnelFibEntry>(twoViaEntry((next + k) % kWriteKeys));
      records[k].resize(entries[k]->serializeLen());
      entries[k]->serialize(records[k].data());
    }
    next += kWriteBatch;
  };
  auto rawWrite = [&](TunnelFibEntry const& e, std::vector<char> const& rec) {
    uint64_t const key = e.tunnelId().value();
    raw->write(&key, Zent::hashU64(key), static_cast<uint32_t>(rec.size()),
               [&](char* d) { std::memcpy(d, rec.data(), rec.size()); });
  };
  // Every timed write replaces a record: both tables hold all keys first.
  for (uint64_t i = 0; i < kWriteKeys; i += kWriteBatch) {
    prepare();
    for (int k = 0; k < kWriteBatch; ++k) {
      rawWrite(*entries[k], records[k]);
      fib->entryIs(*entries[k]);
    }
  }

  // Alternating batches keep both under the same machine load; which goes
  // first alternates too, so neither always meets the other's cache leavings.
  double rawNs = 0, fibNs = 0;
  bool rawFirst = true;
  for (auto _ : state) {
    prepare();
    double batch = 0;
    for (int side = 0; side < 2; ++side) {
      bool const isRaw = (side == 0) == rawFirst;
      auto const t0 = Clock::now();
      for (int k = 0; k < kWriteBatch; ++k) {
        if (isRaw) {
          rawWrite(*entries[k], records[k]);
        } else {
          fib->entryIs(*entries[k]);
        }
      }
      double const ns = nsSince(t0);
      (isRaw ? rawNs : fibNs) += ns;
      if (!isRaw) batch = ns;
    }
    rawFirst = !rawFirst;
    state.SetIterationTime(batch / 1e9);
  }
  double const ops = static_cast<double>(state.iterations()) * kWriteBatch;
  state.counters["raw_ns"] = rawNs / ops;
  state.counters["entryIs_ns"] = fibNs / ops;
  state.counters["raw_over_entryIs"] = rawNs / fibNs;

  raw.reset();
  fib = nullptr;
  mount.doUnmount(Zent::String(TunnelFib::kMountPath));
  std::filesystem::remove_all(root);
}
BENCHMARK(BM_FibEntryIs)->UseManualTime()->MinTime(2.0);

// ---- resolving a three-level FIB beside its reads --------------------------

constexpr uint64_t kTop = 100'000, kMid = 1'000, kBottom = 100;
constexpr TunnelType kTopType = Tunnel::TunnelTable::bgpLuTunnel;
constexpr TunnelType kMidType = Tunnel::TunnelTable::ldpTunnel;
constexpr TunnelType kBottomType = Tunnel::TunnelTable::rsvpLerTunnel;

// Every via has a label-stack encap of its own: one label each.
class FibFiller {
 public:
  explicit FibFiller(TunnelFib& fib) : fib_(fib) {}

  void fill() {
    // Bottom tunnels: two vias over Ethernet ports.
    for (uint64_t b = 0; b < kBottom; ++b) {
      TunnelFibEntry e(tunnelId(kBottomType, b));
      for (uint16_t v = 0; v < 2; ++v) {
        auto nextHop = Vorn::IpGenAddr(0x0a000000u | static_cast<uint32_t>(b << 8) | (v + 1u));
        e.tunnelViaIs(v, TunnelVia(nextHop, Vorn::IntfId::ethernet(1 + (b + v) % 48), encap()));
      }
      fib_.entryIs(e);
    }
    // Middle tunnels: one via over a bottom tunnel.
    for (uint64_t m = 0; m < kMid; ++m) {
      TunnelFibEntry e(tunnelId(kMidType, m));
      e.tunnelViaIs(0, overTunnel(tunnelId(kBottomType, m % kBottom)));
      fib_.entryIs(e);
    }
    // Top tunnels: one via over a middle tunnel, every other one a second.
    for (uint64_t t = 0; t < kTop; ++t) {
      TunnelFibEntry e(tunnelId(kTopType, t));
      e.tunnelViaIs(0, overTunnel(tunnelId(kMidType, t % kMid)));
      if (t % 2) e.tunnelViaIs(1, overTunnel(tunnelId(kMidType, (t + 1) % kMid)));
      fib_.entryIs(e);
    }
  }

 private:
  EncapId encap() {
    uint32_t const id = ++encaps_;
    fib_.labelStackEncapIs(LabelStackEncap(
        labelEncap(id), Vorn::MplsLabelOperation::push({Vorn::MplsLabel(16 + id % 1'000'000)})));
    return labelEncap(id);
  }
  TunnelVia overTunnel(TunnelId child) {
    return TunnelVia(Vorn::IpGenAddr(), Vorn::IntfId::fromTunnelIdValue(child.value()), encap());
  }

  TunnelFib& fib_;
  uint32_t encaps_ = 0;
};

// The writer process: fills the FIB and keeps it until killed. -1 when it
// failed.
pid_t startFibWriter(std::string const& root) {
  return BenchSupport::startWriterProcess("FIB writer", [&root] {
    struct Kept {
      ZentTamsel::MountRegistry registry;
      ZentTamsel::Mount mount;
      Zent::Ptr<TunnelFib> fib;
      explicit Kept(std::string const& r) : mount(Zent::String(r), registry) {}
    };
    auto k = std::make_shared<Kept>(root);
    k->fib = mountTunnelFib(k->mount, ZentTamsel::writer());
    FibFiller(*k->fib).fill();
    return std::shared_ptr<void>(k);
  });
}

// The lookups one resolution pass makes, in order.
struct Read {
  bool entry;  // a FIB entry, else a label-stack encap
  uint64_t key;
};

// Follows the resolver's walk over `fib` without building anything: which
// entries and encaps it reads, given the tunnels it has visited and the ones
// it has flattened so far. Every tunnel of this FIB flattens.
class ReadPlanner {
 public:
  explicit ReadPlanner(TunnelFib const& fib) : fib_(fib) {}

  std::vector<Read> plan(std::vector<TunnelId> const& ids) {
    for (TunnelId id : ids) visit(id);
    return std::move(reads_);
  }

 private:
  void visit(TunnelId id) {
    reads_.push_back({true, id.value()});
    auto e = std::make_unique<TunnelFibEntry>();
    if (!fib_.entry(id, *e) || !visited_.insert(id.value()).second) return;
    for (TunnelVia const& via : e->tunnelVia()) {
      EncapId const encap = via.encapId();
      reads_.push_back(
          {false, (uint64_t{static_cast<uint32_t>(encap.encapType())} << 32) | encap.encapValue()});
      if (!via.intfId().isDynamicTunnel()) continue;
      TunnelId const child(via.intfId().tunnelIdValue());
      if (!flattened_.count(child.value())) visit(child);
    }
    flattened_.insert(id.value());
  }

  TunnelFib const& fib_;
  std::vector<Read> reads_;
  std::unordered_set<uint64_t> visited_, flattened_;
};

void BM_FibResolve(benchmark::State& state) {
  std::string root = makeRoot();
  pid_t writer = startFibWriter(root);
  if (writer < 0) {
    std::filesystem::remove_all(root);
    state.SkipWithError("the FIB writer process failed");
    return;
  }
  ZentTamsel::MountRegistry registry;
  ZentTamsel::Mount mount(Zent::String(root), registry);
  Zent::Ptr<TunnelFib const> fib = mountTunnelFib(mount, ZentTamsel::reader());
  auto resolver = TunnelResolverIs(fib);

  // Every tunnel, in the FIB's key order, as an owner scanning it would.
  std::vector<TunnelId> const ids = fib->entryKeys();
  std::vector<Read> const reads = ReadPlanner(*fib).plan(ids);
  auto scratch = std::make_unique<TunnelFibEntry>();

  double resolveNs = 0, readsNs = 0;
  for (auto _ : state) {
    // A pass starts fresh; the clearing is outside both timed regions.
    resolver->renderedTunnelIdDelAll();
    resolver->consolidatedEntryDelAll();

    auto t0 = Clock::now();
    for (TunnelId id : ids) resolver->updateFlattenedInfo(id);
    double const resolve = nsSince(t0);

    t0 = Clock::now();
    for (Read const& r : reads) {
      if (r.entry) {
        benchmark::DoNotOptimize(fib->entry(TunnelId(r.key), *scratch));
      } else {
        LabelStackEncap encap = fib->labelStackEncap(
            EncapId(static_cast<EncapType>(r.key >> 32), static_cast<uint32_t>(r.key)));
        benchmark::DoNotOptimize(encap);
      }
    }
    double const read = nsSince(t0);
    benchmark::ClobberMemory();

    resolveNs += resolve;
    readsNs += read;
    state.SetIterationTime(resolve / 1e9);
  }
  if (resolver->consolidatedEntries().size() != ids.size()) {
    state.SkipWithError("not every tunnel flattened");
  }
  size_t vias = 0;
  for (auto const& e : resolver->consolidatedEntries()) vias += e->viaInfoCount();
  state.counters["flattened_vias"] = static_cast<double>(vias);
  double const passes = static_cast<double>(state.iterations());
  state.counters["tunnels"] = static_cast<double>(ids.size());
  state.counters["reads_per_pass"] = static_cast<double>(reads.size());
  state.counters["resolve_ns"] = resolveNs / passes / static_cast<double>(ids.size());
  state.counters["reads_ns"] = readsNs / passes / static_cast<double>(ids.size());
  state.counters["resolve_over_reads"] = resolveNs / readsNs;

  resolver = nullptr;
  fib = nullptr;
  mount.doUnmount(Zent::String(TunnelFib::kMountPath));
  ::kill(writer, SIGKILL);
  ::waitpid(writer, nullptr, 0);
  std::filesystem::remove_all(root);
}
BENCHMARK(BM_FibResolve)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(3.0);

}  // namespace

BENCHMARK_MAIN();
