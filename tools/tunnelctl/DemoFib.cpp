#include "tools/tunnelctl/DemoFib.h"

#include <initializer_list>
#include <unistd.h>

#include "Tunnel/TunnelFib/TunnelResolver.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"

namespace TunnelCtl::Demo {

using namespace Tunnel::TunnelFib;
using Tunnel::TunnelTable::TunnelType;
namespace T = Tunnel::TunnelTable;

namespace {

TunnelId tid(TunnelType type, uint64_t index) { return TunnelId(type, index); }

// Neighbour n: 10.2.n.2 on Ethernet n+1.
TunnelVia overEthernet(uint32_t n, EncapId encap) {
  return TunnelVia(Vorn::IpGenAddr((10u << 24) | (2u << 16) | (n << 8) | 2),
                   Vorn::IntfId::ethernet(n + 1), encap);
}
TunnelVia overTunnel(TunnelId child, EncapId encap) {
  return TunnelVia(Vorn::IpGenAddr(), Vorn::IntfId::fromTunnelIdValue(child.value()), encap);
}

class Writer {
 public:
  explicit Writer(TunnelFib& fib) : fib_(fib) {}

  EncapId stack(uint32_t value, std::initializer_list<uint32_t> labels) {
    std::vector<Vorn::MplsLabel> l;
    for (uint32_t x : labels) l.emplace_back(x);
    EncapId id(EncapType::labelStackEncap, value);
    fib_.labelStackEncapIs(
        LabelStackEncap(id, Vorn::MplsLabelOperation(Vorn::MplsLabelStackDepth(0), l)));
    return id;
  }
  void put(TunnelId id, std::initializer_list<TunnelVia> vias,
           std::initializer_list<TunnelVia> backups = {}, TunnelFlags flags = {}) {
    TunnelFibEntry e(id);
    uint16_t i = 0;
    for (auto const& v : vias) e.tunnelViaIs(TunnelViaIndex(i++), v);
    i = 0;
    for (auto const& v : backups) e.backupTunnelViaIs(TunnelViaIndex(i++), v);
    e.flagsIs(flags);
    e.seqNoIs(static_cast<uint16_t>(1 + id.value() % 7));
    fib_.entryIs(e);
  }
  TunnelFib& fib() { return fib_; }

 private:
  TunnelFib& fib_;
};

}  // namespace

TunnelId fibExample() { return tid(T::bgpLuTunnel, 1); }
TunnelId fibBlackHole() { return tid(T::bgpLuTunnel, 4); }

void writeDemoFib(TunnelFib& fib) {
  Writer w(fib);
  // Node SIDs over Ethernet; the third over two neighbours.
  auto sr = [](uint64_t i) { return tid(T::isisSrTunnel, i); };
  for (uint32_t k = 1; k <= 4; ++k) {
    EncapId sid = w.stack(k, {16000 + k});
    if (k == 1) {
      w.put(sr(k), {overEthernet(0, sid)}, {overEthernet(1, sid)}, TunnelFlags(false, true));
    } else if (k == 3) {
      w.put(sr(k), {overEthernet(2, sid), overEthernet(3, sid)});
    } else {
      w.put(sr(k), {overEthernet(k - 1, sid)});
    }
  }
  // SR-TE policies over them; the third rides on a tunnel that is not there.
  auto te = [](uint64_t i) { return tid(T::srTePolicyTunnel, i); };
  w.put(te(1), {overTunnel(sr(1), w.stack(21, {24001}))});
  w.put(te(2), {overTunnel(sr(2), w.stack(22, {24002}))});
  EncapId te3 = w.stack(23, {24003});
  w.put(te(3), {overTunnel(sr(4), te3), overTunnel(sr(9), te3), overTunnel(sr(1), te3)});
  // BGP-LU over both levels, over a missing tunnel, and over a cycle.
  auto lu = [](uint64_t i) { return tid(T::bgpLuTunnel, i); };
  EncapId lu1 = w.stack(31, {300001});
  w.put(lu(1), {overTunnel(te(1), lu1), overTunnel(te(2), lu1)});
  w.put(lu(2), {overTunnel(sr(4), w.stack(32, {300002}))});
  w.put(lu(3), {overTunnel(te(3), w.stack(33, {300003}))});
  w.put(lu(4), {overTunnel(sr(9), w.stack(34, {300004}))});
  auto st = [](uint64_t i) { return tid(T::staticTunnel, i); };
  w.put(st(1), {overTunnel(st(2), w.stack(41, {500001}))});
  w.put(st(2), {overTunnel(st(1), w.stack(42, {500002}))});
  w.put(lu(5), {overTunnel(st(1), w.stack(35, {300005}))});
  // Interface tunnels with their outer headers.
  Vorn::IpGenAddr const local((10u << 24) | 1), remote((10u << 24) | 2);
  Tunnel::GreTunnelInfo gre(local, remote, 7, 1476, 64, 0, true, true);
  EncapId greId(EncapType::greEncap, 101), ipsecGreId(EncapType::ipsecGreEncap, 102),
      vtiId(EncapType::ipsecVtiEncap, 103);
  fib.greEncapIs(GreEncap(greId, gre));
  fib.ipsecGreEncapIs(IpsecGreEncap(ipsecGreId, Tunnel::IpsecGreTunnelInfo(gre, 4097)));
  fib.ipsecVtiEncapIs(
      IpsecVtiEncap(vtiId, Tunnel::IpsecVtiTunnelInfo(local, remote, 4098, 1438, 64, 0)));
  auto intf = [](uint64_t i) { return tid(T::staticInterfaceTunnel, i); };
  w.put(intf(1), {overEthernet(0, greId)});
  w.put(intf(2), {overEthernet(1, ipsecGreId)});
  TunnelFibEntry vti(intf(3));
  vti.tunnelViaIs(TunnelViaIndex(0), overEthernet(2, vtiId));
  vti.arePrimaryViasUsableIs(false);  // its SA is being rekeyed
  vti.flagsIs(TunnelFlags(true, false));
  fib.entryIs(vti);
}

int runFibProducer(SharedRegion const& region, DemoOptions const& o) {
  SharedHeader& h = region.header();
  ProcStatus& status = h.fibProducer;
  status.pid.store(::getpid());
  try {
    ZentTamsel::MountRegistry registry;
    ZentTamsel::Mount mount(Zent::String(o.root), registry);
    Zent::Ptr<TunnelFib> fib = mountTunnelFib(mount, ZentTamsel::writer());
    status.phaseIs(Phase::loading);
    writeDemoFib(*fib);
    auto resolver = TunnelResolverIs(fib);
    resolver->updateFlattenedInfo(fibExample());
    auto example = resolver->consolidatedEntry(fibExample());
    h.fibExampleVias.store(example ? example->viaInfoCount() : 0);
    status.tunnels.store(fib->entryCount());
    status.entries.store(fib->labelStackEncapCount() + fib->greEncapCount() +
                         fib->ipsecGreEncapCount() + fib->ipsecVtiEncapCount());
    status.phaseIs(Phase::finished);
    resolver = nullptr;
    while (!h.shutdown.load(std::memory_order_acquire)) ::usleep(5000);
    fib = nullptr;
    mount.doUnmount(Zent::String(TunnelFib::kMountPath));
  } catch (std::exception const& e) {
    status.fail(e.what());
    return 1;
  }
  return 0;
}

}  // namespace TunnelCtl::Demo
