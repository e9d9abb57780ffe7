// The FIB entity: its mutators' notifications and counters in process, and a
// FIB written by one process and flattened by another.

#include <map>
#include <memory>
#include <random>
#include <set>
#include <signal.h>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelFib/TunnelResolver.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"
#include "tests/shmem/ShmTestUtil.h"

using namespace Tunnel::TunnelFib;
using Tunnel::TunnelTable::EncapType;

namespace {

TunnelId id(uint64_t i) { return TunnelId(Tunnel::TunnelTable::rsvpLerTunnel, i); }

struct Recorder : TunnelFib::NotifieeConst {
  std::vector<std::string> heard;
  void entryNotify(TunnelId const& k) override { heard.push_back("entry " + k.stringValue()); }
  void labelStackEncapNotify(EncapId const& k) override { note("labelStack", k); }
  void ipsecGreEncapNotify(EncapId const& k) override { note("ipsecGre", k); }
  void ipsecVtiEncapNotify(EncapId const& k) override { note("ipsecVti", k); }
  void greEncapNotify(EncapId const& k) override { note("gre", k); }
  void note(std::string const& what, EncapId const& k) {
    heard.push_back(what + " " + std::to_string(k.encapValue()));
  }
};

// Each collection's changes reach its own handler; the counting is the shared
// collection binding's, checked here once for the entries.
TEST(TunnelFibTest, EachCollectionNotifiesItsOwnHandler) {
  auto fib = tunnelFibFactory(Zent::String("fib"));
  auto rec = Zent::Ptr<Recorder>(Zent::newTracked<Recorder>());
  rec->notifierIs(fib.ptr());
  auto e = std::make_unique<TunnelFibEntry>(id(1));
  fib->entryIs(*e);
  fib->entryIs(*e);                                   // an equal rewrite is notified again
  EXPECT_EQ(fib->entryDel(id(2)), TunnelFibEntry());  // absent: counted, not notified
  fib->labelStackEncapIs(LabelStackEncap(EncapId(EncapType::labelStackEncap, 3)));
  fib->ipsecGreEncapIs(IpsecGreEncap(EncapId(EncapType::ipsecGreEncap, 4)));
  fib->ipsecVtiEncapIs(IpsecVtiEncap(EncapId(EncapType::ipsecVtiEncap, 5)));
  fib->greEncapIs(GreEncap(EncapId(EncapType::greEncap, 6)));
  fib->greEncapDelAll();
  // VXLAN encapsulations stay in process, unheard.
  VxlanEncap const vx(EncapId(EncapType::vxlanEncap, 8));
  EXPECT_EQ(fib->vxlanEncap(vx.encapId()), VxlanEncap());
  fib->vxlanEncapIs(vx);
  EXPECT_EQ(fib->vxlanEncap(vx.encapId()), vx);
  std::string const one = "entry " + id(1).stringValue();
  EXPECT_EQ(rec->heard, (std::vector<std::string>{one, one, "labelStack 3", "ipsecGre 4",
                                                  "ipsecVti 5", "gre 6", "gre 6"}));
  auto const& c = fib->counters();
  EXPECT_EQ(c.value("entryIs") * 100 + c.value("entryDel") * 10 + c.value("entryNotify"), 212u);
  rec->notifierIs(nullptr);
}

TEST(TunnelFibDeathTest, WritingThroughAReaderIsRefused) {
  TamselTest::StateRoot root;
  ZentTamsel::MountRegistry registry;
  ZentTamsel::Mount const mount(Zent::String(root.path()), registry);
  auto writer = mountTunnelFib(mount, ZentTamsel::MountType::writer);
  auto reader = mountTunnelFib(mount, ZentTamsel::MountType::reader);
  ASSERT_TRUE(reader);
  EXPECT_DEATH(reader->greEncapIs(GreEncap(EncapId(EncapType::greEncap, 1))),
               "safeWrite not allowed");
}

// Three levels of tunnels over real interfaces, and vias over missing
// tunnels and over two-tunnel cycles. A via is over Ethernet<intf> (child < 0)
// or over tunnel `child`, pushing `label` unless it is 0.
struct ViaPlan {
  int64_t child;
  uint32_t intf, label;
};
using Topology = std::map<uint64_t, std::vector<ViaPlan>>;

Topology topology() {
  std::mt19937 rng(5);
  auto pick = [&](uint32_t n) { return static_cast<uint32_t>(rng() % n); };
  Topology t;
  for (uint32_t i = 0; i < 1200; ++i) {
    for (uint32_t k = 0, n = 1 + pick(2); k < n; ++k)
      t[i].push_back({-1, 1 + pick(40), pick(2) * (16 + pick(1000))});
  }
  for (int64_t i = 3000; i < 3200; i += 2) t[i] = {{i + 1, 0, 0}}, t[i + 1] = {{i, 0, 0}};
  // Labels at most on the first two levels: joined stacks stay within 17.
  for (uint64_t i = 1200; i < 2500; ++i) {
    int64_t const below = i < 2000 ? pick(1199) : 1200 + pick(799);
    for (uint32_t k = 0, n = 1 + pick(2); k < n; ++k) {
      uint32_t const kind = pick(20);
      t[i].push_back({kind == 0   ? 90000
                      : kind == 1 ? 3000 + pick(200)
                                  : below + k,
                      0, i < 2000 ? pick(2) * (16 + pick(1000)) : 0});
    }
  }
  return t;
}

Vorn::IpGenAddr nexthop(uint64_t tunnel, uint32_t k) {
  return Vorn::IpGenAddr(static_cast<uint32_t>(0x0b000000 + tunnel * 4 + k));
}

// The (interface, nexthop) pairs a tunnel's flattened vias must have,
// whatever the order of the walk: those at the bottom of its vias ahead of
// the first over a tunnel with none (missing, or in a cycle).
struct Model {
  Topology const& t;
  std::map<uint64_t, std::set<std::string>> memo;
  std::set<std::string> bottom(uint64_t i) {
    if (memo.count(i) || !t.count(i)) return memo[i];  // a cycle meets the empty set
    memo[i] = {};
    std::set<std::string> found;
    for (uint32_t k = 0; k < t.at(i).size(); ++k) {
      ViaPlan const& s = t.at(i)[k];
      std::set<std::string> const below =
          s.child < 0 ? std::set<std::string>{Vorn::IntfId::ethernet(s.intf).stringValue() + " " +
                                              nexthop(i, k).stringValue()}
                      : bottom(uint64_t(s.child));
      if (below.empty()) break;
      found.insert(below.begin(), below.end());
    }
    return memo[i] = found;
  }
};

TEST(TunnelFibProcessTest, ReaderFlattensAFibWhoseWriterWasKilled) {
  Topology const t = topology();
  TamselTest::StateRoot root;
  ZentTamsel::MountRegistry registry;
  ZentTamsel::Mount const mount(Zent::String(root.path()), registry);
  TamselTest::Pipe ready, never;
  pid_t writer = TamselTest::forkChild([&] {
    auto fib = mountTunnelFib(mount, ZentTamsel::MountType::writer);
    for (uint32_t label = 16; label < 1016; ++label) {
      fib->labelStackEncapIs(LabelStackEncap(EncapId(EncapType::labelStackEncap, label),
                                             Vorn::MplsLabelOperation::push({label})));
    }
    auto e = std::make_unique<TunnelFibEntry>();
    for (auto const& [i, vias] : t) {
      *e = TunnelFibEntry(id(i));
      for (uint16_t k = 0; k < vias.size(); ++k) {
        ViaPlan const& s = vias[k];
        EncapId const encap = s.label ? EncapId(EncapType::labelStackEncap, s.label) : EncapId();
        e->tunnelViaIs(
            k, s.child < 0
                   ? TunnelVia(nexthop(i, k), Vorn::IntfId::ethernet(s.intf), encap)
                   : TunnelVia({}, Vorn::IntfId::fromTunnelIdValue(id(s.child).value()), encap));
      }
      fib->entryIs(*e);
    }
    ready.signal();
    never.wait();
    return true;
  });
  ASSERT_TRUE(ready.wait());
  ::kill(writer, SIGKILL);
  EXPECT_EQ(TamselTest::waitChild(writer), 128 + SIGKILL);
  auto fib = mountTunnelFib(mount, ZentTamsel::MountType::reader);
  ASSERT_EQ(fib->entryCount(), t.size());
  auto resolver = TunnelResolverIs(fib);
  Model model{t, {}};
  size_t flattened = 0;
  for (auto const& [i, vias] : t) {
    resolver->updateFlattenedInfo(id(i));
    std::set<std::string> bottoms;
    if (auto c = resolver->consolidatedEntry(id(i))) {
      for (MplsVia const& v : c->viaInfo()) {
        EXPECT_FALSE(v.intfId().isDynamicTunnel()) << i;
        bottoms.insert(v.intfId().stringValue() + " " + v.nextHop().stringValue());
        flattened += v.labels().labelCount() > 1;
      }
    }
    EXPECT_EQ(bottoms, model.bottom(i)) << "tunnel " << i;
  }
  EXPECT_GT(flattened, t.size() / 4);  // joined stacks are common
}

}  // namespace
