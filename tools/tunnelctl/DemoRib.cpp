#include "tools/tunnelctl/DemoRib.h"

#include <unistd.h>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/TunnelRibCalc/TunnelRibCalculator.h"
#include "tools/tunnelctl/RedistFollower.h"

namespace TunnelCtl::Demo {

using namespace Tunnel::TunnelTable;
using Tunnel::TunnelRibCalc::TunnelRibCalculator;

namespace {

// Whether two calculators published the same RIBs and the same candidates.
bool sameOutputs(TunnelRibCalculator const& a, TunnelRibCalculator const& b,
                 TunnelRibBase const& ribA, TunnelRibBase const& ribB) {
  if (ribA.tunnelRibEntryCount() != ribB.tunnelRibEntryCount()) return false;
  for (ColoredTunnelEndpoint const& cep : ribA.tunnelRibEntryKeys()) {
    TunnelRibEntry x, y;
    if (!ribA.tunnelRibEntry(cep, x) || !ribB.tunnelRibEntry(cep, y) || !(x == y)) return false;
  }
  InternalCliTunnelRib const& cliA = *a.cliRib(ribA.isColored());
  InternalCliTunnelRib const& cliB = *b.cliRib(ribB.isColored());
  if (cliA.entryKeys() != cliB.entryKeys()) return false;
  for (ColoredTunnelEndpoint const& cep : cliA.entryKeys()) {
    auto ea = cliA.entry(cep), eb = cliB.entry(cep);
    if (ea->candidateIds() != eb->candidateIds()) return false;
    for (InternalTunnelCandidateId const& id : ea->candidateIds()) {
      if (ea->candidates(id)->tunnelIds() != eb->candidates(id)->tunnelIds()) return false;
    }
  }
  return true;
}

// The candidates of a view, and the endpoint with the most of them.
uint64_t candidateCount(InternalCliTunnelRib const& cli, ColoredTunnelEndpoint* richest) {
  uint64_t n = 0;
  size_t most = 0;
  for (ColoredTunnelEndpoint const& cep : cli.entryKeys()) {
    size_t c = cli.entry(cep)->candidatesCount();
    n += c;
    if (richest && c > most) {
      most = c;
      *richest = cep;
    }
  }
  return n;
}

}  // namespace

int runRibCalculator(SharedRegion const& region, DemoOptions const& o) {
  SharedHeader& h = region.header();
  ProcStatus& status = h.ribCalc;
  status.pid.store(::getpid());
  try {
    // The tables exist once no producer is starting.
    auto started = [&] {
      for (int i = 0; i < kProducers; ++i) {
        if (h.proc[i].phaseNow() == Phase::starting) return false;
      }
      return true;
    };
    while (!started()) {
      if (shouldStop(h)) return 1;
      ::usleep(1000);
    }
    ZentTamsel::MountRegistry registry;
    ZentTamsel::Mount mount(Zent::String(o.root), registry);
    TunnelTableMounter mounter(mount);
    auto rib = mountTunnelRib(mount, ZentTamsel::writer());
    auto coloredRib = mountColoredTunnelRib(mount, ZentTamsel::writer());
    auto cli = mountTunnelPelagStatus(mount, ZentPelag::Mode::writer);
    TunnelRibCalculator calc(rib, coloredRib, cli);
    std::vector<Zent::Ptr<TunnelTableBase>> tables;
    for (RedistProtocol p : kRedistProtocols) {
      tables.push_back(mounter.mountKeyshadow(tableIdOf(p)));
      calc.inputIs(tables.back());
    }
    calc.reconcile();  // a RIB an earlier run left
    status.phaseIs(Phase::following);
    auto publish = [&] {
      status.writes.store(calc.stats().notifications, std::memory_order_relaxed);
      status.tunnels.store(rib->tunnelRibEntryCount(), std::memory_order_relaxed);
    };
    while (!producersIn(h, Phase::finished)) {
      if (shouldStop(h)) return 1;
      registry.dispatchAll(50);
      calc.flush();
      publish();
    }
    status.phaseIs(Phase::settling);
    while (registry.dispatchAll(0) > 0) calc.flush();
    calc.flush();
    publish();

    status.phaseIs(Phase::verifying);
    auto freshRib = tunnelRibFactory("check");
    auto freshColored = coloredTunnelRibFactory("checkColored");
    TunnelRibCalculator fresh(freshRib, freshColored, tunnelPelagStatusFactory("checkStatus"));
    for (auto const& t : tables) fresh.inputIs(t);
    fresh.flush();
    RibResult& r = h.rib;
    r.endpoints.store(rib->tunnelRibEntryCount());
    r.coloredEndpoints.store(coloredRib->tunnelRibEntryCount());
    ColoredTunnelEndpoint sample;
    r.candidates.store(candidateCount(*calc.cliRib(false), &sample) +
                       candidateCount(*calc.cliRib(true), nullptr));
    std::string text = sample.tep().stringValue();
    text.copy(r.sampleEndpoint, sizeof r.sampleEndpoint - 1);
    r.computations.store(calc.stats().computations);
    r.ribWrites.store(calc.stats().ribWrites);
    r.updateCounter.store(rib->tunnelRibUpdateCounter());
    r.matches.store(sameOutputs(calc, fresh, *rib, *freshRib) &&
                    sameOutputs(calc, fresh, *coloredRib, *freshColored));
    status.phaseIs(Phase::done);
    // The RIBs keep a live writer while the demo reports.
    while (!h.shutdown.load()) ::usleep(10'000);
  } catch (std::exception const& e) {
    status.fail(e.what());
    return 1;
  }
  return 0;
}

}  // namespace TunnelCtl::Demo
