// Reading the command-line RIB views from another process, beside reading
// the same number of records of the same size from a plain table:
//
// BM_PelagRead: a writer process publishes one RIB of 100,000 endpoints with
// two candidates each (three tunnel ids per candidate) in the value store,
// and a table of 200,000 records of the candidates' size, and stays alive.
// Each pass of this process
//   - attaches a snapshot of the store and walks every candidate (what a one-shot
//     command-line reader does): `mount_walk_ns` per candidate;
//   - scans the store's nodes, decoding each candidate's tunnel ids:
//     `store_scan_ns` per candidate;
//   - scans the plain table (the baseline): `table_scan_ns` per record.
// The ratios `mount_walk_over_table` and `store_scan_over_table` read as the
// price of the tree over flat records on the same machine, in the same run.
//
//   pelag_bench [benchmark flags]
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

#include <benchmark/benchmark.h>

#include "Tunnel/cli/TunnelPelagStatus.h"
#include "Tunnel/shmem/Tamsel/Reader.h"
#include "Tunnel/shmem/Tamsel/Writer.h"
#include "bench/common/WriterProcess.h"

using namespace Tunnel::TunnelTable;
using Clock = std::chrono::steady_clock;

namespace {

constexpr uint32_t kEndpoints = 100'000;
constexpr uint32_t kCandidates = 2;
constexpr uint32_t kIds = 3;
constexpr uint64_t kRecords = uint64_t{kEndpoints} * kCandidates;
constexpr uint32_t kRecordLen = 16 + 8 * kIds;  // a candidate's record

double nsSince(Clock::time_point t0) {
  return std::chrono::duration<double, std::nano>(Clock::now() - t0).count();
}

Tamsel::TableShape tableShape() {
  Tamsel::TableShape s;
  s.typeName = "Bench::Records";
  s.keySize = 8;
  s.maxPayload = kRecordLen;
  return s;
}

void publish(std::string const& root) {
  auto status = mountTunnelPelagStatus(root, ZentPelag::Mode::writer);
  auto rib = status->cliTunnelRibCollIs("bench", 1);
  for (uint32_t i = 0; i < kEndpoints; ++i) {
    auto e = rib->entryIs(ColoredTunnelEndpoint(
        Vorn::IpGenPrefix(Vorn::IpGenAddr(0x0a000000u + i), 32), i % 4, true));
    for (uint32_t c = 0; c < kCandidates; ++c) {
      auto cand = e->candidatesIs(InternalTunnelCandidateId(c ? isisSrTunnel : ldpTunnel, 0, i), i);
      for (uint32_t k = 0; k < kIds; ++k) {
        cand->tunnelIdIs(TunnelId(ldpTunnel, i * 8 + c * 4 + k));
      }
    }
  }
  status->flush();
  Tamsel::Writer table(root + "/plain", "records", tableShape());
  char rec[kRecordLen] = {};
  for (uint64_t k = 0; k < kRecords; ++k) {
    std::memcpy(rec, &k, 8);
    table.write(&k, Zent::hashU64(k), kRecordLen,
                [&](char* d) { std::memcpy(d, rec, kRecordLen); });
  }
}

void BM_PelagRead(benchmark::State& state) {
  char tmpl[] = "/dev/shm/pelag-bench-XXXXXX";
  std::string const root = ::mkdtemp(tmpl);
  pid_t const writer = BenchSupport::startWriterProcess("store writer", [&root] {
    publish(root);
    return std::shared_ptr<void>();
  });
  if (writer < 0) {
    std::filesystem::remove_all(root);
    state.SkipWithError("the writer process failed");
    return;
  }
  Pelag::Shadow store(root + "/" + TunnelPelagStatus::kMountPath, TunnelPelagStatus::kTypeHash,
                      Tamsel::Reader::Options{false, false, 0});
  Tamsel::Reader table(root + "/plain", "records", 8, Tamsel::Reader::Options{false, false, 0});

  double walkNs = 0, scanNs = 0, tableNs = 0;
  uint64_t walked = 0, scanned = 0, rows = 0;
  for (auto _ : state) {
    auto t0 = Clock::now();
    {
      auto status = mountTunnelPelagStatus(root, ZentPelag::Mode::snapshot);
      uint64_t sum = 0;
      forEachCandidate(*status,
                       [&](auto const&, auto const&, InternalCliTunnelRibCandidate const& c) {
                         for (TunnelId t : c.tunnelIds()) sum += t.value();
                         ++walked;
                       });
      benchmark::DoNotOptimize(sum);
    }
    double const walk = nsSince(t0);

    t0 = Clock::now();
    uint64_t sum = 0;
    // Both reads touch every tunnel id of every record.
    auto sumIds = [&sum](char const* rec, uint32_t len) {
      for (uint32_t off = 16; off + 8 <= len; off += 8) {
        uint64_t v;
        std::memcpy(&v, rec + off, 8);
        sum += v;
      }
    };
    store.forEach([&](Pelag::NodeKey const& k, char const* rec, uint32_t len) {
      if (k.depth() != 3) return;
      sumIds(rec, len);
      ++scanned;
    });
    double const scan = nsSince(t0);

    t0 = Clock::now();
    table.forEach([&](void const*, char const* rec, uint32_t len, uint64_t) {
      sumIds(rec, len);
      ++rows;
    });
    double const plain = nsSince(t0);
    benchmark::DoNotOptimize(sum);

    walkNs += walk;
    scanNs += scan;
    tableNs += plain;
    state.SetIterationTime(walk / 1e9);
  }
  if (walked != scanned || rows != scanned || rows != kRecords * state.iterations()) {
    state.SkipWithError("a pass did not see every candidate");
  }
  double const n = static_cast<double>(kRecords) * static_cast<double>(state.iterations());
  state.counters["candidates"] = static_cast<double>(kRecords);
  state.counters["mount_walk_ns"] = walkNs / n;
  state.counters["store_scan_ns"] = scanNs / n;
  state.counters["table_scan_ns"] = tableNs / n;
  state.counters["mount_walk_over_table"] = walkNs / tableNs;
  state.counters["store_scan_over_table"] = scanNs / tableNs;

  ::kill(writer, SIGKILL);
  ::waitpid(writer, nullptr, 0);
  std::filesystem::remove_all(root);
}
BENCHMARK(BM_PelagRead)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(3.0);

}  // namespace

BENCHMARK_MAIN();
