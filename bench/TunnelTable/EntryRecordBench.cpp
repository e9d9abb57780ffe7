// Record cost of the largest entry family: serialize, deserializeLen and
// deserialize of an LDP entry with 1 and with 600 vias, each beside memcpy of
// the same number of bytes (the entry's serializeLen), the floor any record
// code pays. Readers deserialize into an entry they keep, as the table's
// marshaller does.

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "Tunnel/TunnelTable/IgpEntries.h"

namespace Tunnel::TunnelTable {
namespace {

// An entry as LDP writes it: endpoint, name, metrics and `vias` labelled vias.
std::unique_ptr<LdpTunnelTableEntry> ldpEntry(uint32_t vias) {
  auto e = std::make_unique<LdpTunnelTableEntry>(TunnelId(ldpTunnel, 7));
  e->entryMetricIs(10);
  e->endpointIs(0, Vorn::IpGenPrefix("10.0.0.1/32"));
  e->nameIs("ldp-10.0.0.1");
  e->igpMetricIs(20);
  e->igpPrefIs(1);
  for (uint32_t i = 0; i < vias; ++i) {
    e->viaIs(i, MplsVia(Vorn::IpGenAddr(0x0a000002u + i), Vorn::IntfId::ethernet(1 + i % 48),
                        Vorn::MplsLabelOperation::push({16 + i})));
  }
  return e;
}

void setBytes(benchmark::State& state, uint32_t len) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * len);
  state.counters["bytes"] = len;
}

void memcpyRecord(benchmark::State& state, uint32_t vias) {
  uint32_t const len = ldpEntry(vias)->serializeLen();
  std::vector<unsigned char> const src(len, 0x5a);
  std::vector<unsigned char> dst(len);
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), len);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  setBytes(state, len);
}

void serializeRecord(benchmark::State& state, uint32_t vias) {
  auto const e = ldpEntry(vias);
  std::vector<unsigned char> buf(e->serializeLen());
  for (auto _ : state) {
    e->serialize(buf.data());
    benchmark::DoNotOptimize(buf.data());
    benchmark::ClobberMemory();
  }
  setBytes(state, e->serializeLen());
}

void deserializeLenRecord(benchmark::State& state, uint32_t vias) {
  auto const e = ldpEntry(vias);
  std::vector<unsigned char> buf(e->serializeLen());
  e->serialize(buf.data());
  unsigned const len = static_cast<unsigned>(buf.size());
  for (auto _ : state) {
    uint32_t n = e->deserializeLen(buf.data(), len);
    benchmark::DoNotOptimize(n);
    benchmark::ClobberMemory();
  }
  setBytes(state, len);
}

void deserializeRecord(benchmark::State& state, uint32_t vias) {
  auto const e = ldpEntry(vias);
  std::vector<unsigned char> buf(e->serializeLen());
  e->serialize(buf.data());
  unsigned const len = static_cast<unsigned>(buf.size());
  auto const out = std::make_unique<LdpTunnelTableEntry>();
  for (auto _ : state) {
    out->deserialize(buf.data(), len);
    benchmark::DoNotOptimize(out.get());
    benchmark::ClobberMemory();
  }
  if (!(*out == *e)) state.SkipWithError("the record did not read back");
  setBytes(state, len);
}

}  // namespace
}  // namespace Tunnel::TunnelTable

int main(int argc, char** argv) {
  using namespace Tunnel::TunnelTable;
  // Each operation next to its memcpy baseline, per via count.
  for (uint32_t vias : {1u, 600u}) {
    std::string const suffix = "/vias:" + std::to_string(vias);
    benchmark::RegisterBenchmark(("memcpy" + suffix).c_str(), memcpyRecord, vias);
    benchmark::RegisterBenchmark(("serialize" + suffix).c_str(), serializeRecord, vias);
    benchmark::RegisterBenchmark(("deserializeLen" + suffix).c_str(), deserializeLenRecord, vias);
    benchmark::RegisterBenchmark(("deserialize" + suffix).c_str(), deserializeRecord, vias);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
