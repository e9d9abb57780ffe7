// LdpTunnelTable::entryIs of a one-via entry (a 680-byte record) on a mounted
// table, with a key-shadow reader dispatching in another process, beside the
// raw service write of the same record under the same reader in the same run.
#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/TunnelTable/Tables.h"
#include "Tunnel/shmem/Tamsel/Reader.h"
#include "Tunnel/shmem/Tamsel/Writer.h"

using namespace Tunnel::TunnelTable;

namespace {

constexpr uint64_t kKeys = 100000;

std::string makeRoot() {
  char tmpl[] = "/dev/shm/table-bench-XXXXXX";
  return ::mkdtemp(tmpl);
}

LdpTunnelTableEntry oneViaEntry(uint64_t index) {
  LdpTunnelTableEntry e(TunnelId(ldpTunnel, index));
  e.endpointIs(0, Vorn::IpGenPrefix(Vorn::IpGenAddr(0x0a000000u | (index & 0xffff)), 32));
  e.igpMetricIs(10);
  e.viaIs(0, MplsVia(Vorn::IpGenAddr(0x0b000001u), Vorn::IntfId::ethernet(1),
                     Vorn::MplsLabelOperation::push({100})));
  return e;
}

// A reader process that dispatches every notification until killed.
pid_t startReader(std::function<void()> run) {
  pid_t pid = ::fork();
  if (pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    run();
    ::_exit(0);
  }
  return pid;
}

void stopReader(pid_t pid) {
  ::kill(pid, SIGKILL);
  ::waitpid(pid, nullptr, 0);
}

void BM_RawServiceWrite(benchmark::State& state) {
  std::string root = makeRoot();
  std::string dir = root + "/tunnel/table/ldp";
  Tamsel::TableShape shape;
  shape.typeName = "Tunnel::TunnelTable::LdpTunnelTable";
  shape.keySize = 8;
  shape.maxPayload = 65372;
  auto w = std::make_unique<Tamsel::Writer>(dir, "entry", shape);
  auto e = oneViaEntry(1);
  std::vector<char> rec(e.serializeLen());
  e.serialize(rec.data());
  pid_t reader = startReader([&] {
    Tamsel::Reader r(dir, "entry", 8);
    struct : Tamsel::Reader::Handler {
      void keyChanged(void const*) override {}
    } h;
    for (;;) {
      pollfd p{r.fd(), POLLIN, 0};
      ::poll(&p, 1, 100);
      r.dispatch(h);
    }
  });
  uint64_t i = 0;
  for (auto _ : state) {
    uint64_t key = TunnelId::convertToTunnelValue(ldpTunnel, i++ % kKeys);
    w->write(&key, Zent::hashBytes(&key, 8), static_cast<uint32_t>(rec.size()),
             [&](char* d) { std::memcpy(d, rec.data(), rec.size()); });
  }
  state.SetItemsProcessed(state.iterations());
  stopReader(reader);
  w.reset();
  std::filesystem::remove_all(root);
}
BENCHMARK(BM_RawServiceWrite)->MinTime(2.0);

void BM_LdpTableEntryIs(benchmark::State& state) {
  std::string root = makeRoot();
  ZentTamsel::MountRegistry registry;
  TunnelTableMounter mounter{ZentTamsel::Mount(Zent::String(root), registry)};
  auto table = Zent::dynamicPtrCast<LdpTunnelTable>(
      mounter.mountWriter(TunnelTableIdentifier::ldpTunnelTable));
  std::vector<LdpTunnelTableEntry> entries;
  for (uint64_t k = 0; k < 64; ++k) entries.push_back(oneViaEntry(k));
  pid_t reader = startReader([&] {
    auto shadow = mounter.mountKeyshadow(TunnelTableIdentifier::ldpTunnelTable);
    for (;;) registry.dispatchAll(100);
  });
  uint64_t i = 0;
  for (auto _ : state) {
    auto& e = entries[i % entries.size()];
    e.tunnelIdIs(TunnelId(ldpTunnel, i++ % kKeys));
    table->entryIs(e);
  }
  state.SetItemsProcessed(state.iterations());
  stopReader(reader);
  table = nullptr;
  mounter.unmount(TunnelTableIdentifier::ldpTunnelTable);
  std::filesystem::remove_all(root);
}
BENCHMARK(BM_LdpTableEntryIs)->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
