// The FIB entity: its mutators' notifications and counters in process, a FIB
// written by one process and flattened by another, and the resolver's rules.

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
#include "tests/net/ErrorText.h"
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
  fib->vxlanEncapIs(vx);
  EXPECT_EQ(fib->vxlanEncap(vx.encapId()), vx);
  std::string const one = "entry " + id(1).stringValue();
  EXPECT_EQ(rec->heard, (std::vector<std::string>{one, one, "labelStack 3", "ipsecGre 4",
                                                  "ipsecVti 5", "gre 6", "gre 6"}));
  auto const& c = fib->counters();
  EXPECT_EQ(c.value("entryIs") * 100 + c.value("entryDel") * 10 + c.value("entryNotify"), 212u);
  rec->notifierIs(nullptr);
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

// The resolver over hand-built FIBs: each behaviour it keeps on purpose gets
// its own test, because each is easy to "fix" by accident.

using Vorn::MplsLabelOperation;
using Vorn::test::errorOf;
using Vias = std::set<std::string>;

MplsLabelOperation push(std::initializer_list<Vorn::MplsLabel> labels) {
  return MplsLabelOperation::push(labels);
}
// The flattened via over Ethernet<n> with nexthop 10.0.0.<n>.
std::string flat(uint32_t n, MplsLabelOperation const& op = {}) {
  return MplsVia(Vorn::IpGenAddr(0x0a000000 + n), Vorn::IntfId::ethernet(n), op).stringValue();
}

class ResolverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Dabin::sinkIs(&capture_);
    Tunnel::TunnelFib::dabinFacility_.levelIs(0, true);
  }
  void TearDown() override {
    Dabin::sinkIs(nullptr);
    Tunnel::TunnelFib::dabinFacility_.levelsUpTo(-1);
  }
  static TunnelId id(uint64_t i) { return TunnelId(Tunnel::TunnelTable::ldpTunnel, i); }
  // A via over Ethernet<n> with nexthop 10.0.0.<n>, or over tunnel `child`.
  TunnelVia real(uint32_t n, MplsLabelOperation const& op = {}) {
    return TunnelVia(Vorn::IpGenAddr(0x0a000000 + n), Vorn::IntfId::ethernet(n), encap(op));
  }
  TunnelVia over(uint64_t child, MplsLabelOperation const& op = {}) {
    return TunnelVia({}, Vorn::IntfId::fromTunnelIdValue(id(child).value()), encap(op));
  }
  EncapId encap(MplsLabelOperation const& op) {
    EncapId const e(EncapType::labelStackEncap, ++encaps_);
    if (op.isForward()) return EncapId();
    fib_->labelStackEncapIs(LabelStackEncap(e, op));
    return e;
  }
  void tunnelIs(uint64_t i, std::vector<TunnelVia> const& vias) {
    auto e = std::make_unique<TunnelFibEntry>(id(i));
    for (uint16_t k = 0; k < vias.size(); ++k) e->tunnelViaIs(k, vias[k]);
    fib_->entryIs(*e);
  }
  // The flattened vias of tunnel i, after resolving it when asked.
  Vias resolved(uint64_t i, bool resolve = true) {
    if (resolve) r_->updateFlattenedInfo(id(i));
    Vias out;
    if (auto e = r_->consolidatedEntry(id(i))) {
      for (auto const& v : e->viaInfo()) out.insert(v.stringValue());
    }
    return out;
  }
  size_t traces(std::string const& text) const {
    size_t n = 0;
    for (auto const& l : capture_.lines()) n += l.message.find(text) != std::string::npos;
    return n;
  }

  Dabin::CaptureSink capture_;
  Zent::Ptr<TunnelFib> fib_ = tunnelFibFactory(Zent::String("fib"));
  Zent::Ptr<TunnelResolver> r_ = TunnelResolverIs(fib_);
  uint32_t encaps_ = 0;
};

TEST_F(ResolverTest, ChainOf2000LevelsResolvesWithoutADepthLimit) {
  Tunnel::TunnelFib::dabinFacility_.levelsUpTo(-1);
  tunnelIs(0, {real(1, push({16}))});
  for (uint64_t i = 1; i < 2000; ++i) tunnelIs(i, {over(i - 1)});
  EXPECT_EQ(resolved(1999), Vias{flat(1, push({16}))});
  EXPECT_EQ(r_->consolidatedEntries().size(), 2000u);
}

TEST_F(ResolverTest, AnUnresolvableChildEndsTheWalkAndLaterViasAreNeverRead) {
  tunnelIs(1, {real(1, push({100})), over(9), real(3)});
  tunnelIs(2, {over(9), real(4)});
  EXPECT_EQ(resolved(1), Vias{flat(1, push({100}))});
  EXPECT_EQ(traces("Ethernet3"), 0u);
  EXPECT_EQ(resolved(2), Vias());
  EXPECT_FALSE(r_->consolidatedEntry(id(2)));
  // Every line opens with the signature; the texts name the tunnel.
  for (auto const& l : capture_.lines()) {
    EXPECT_EQ(l.facility + std::to_string(l.level), "Tunnel/TunnelFib0");
    EXPECT_EQ(l.message.rfind("void Tunnel::TunnelFib::TunnelResolver::updateFlattenedInfo(", 0),
              0u);
  }
  std::string const type = id(1).typeCliStr();
  EXPECT_EQ(traces(" Current tunnel Info, type: " + type + " tunnel Index: 9"), 2u);
  EXPECT_EQ(traces(" No further tunnel entry found in tunnel fib"), 2u);
  EXPECT_EQ(traces(" Final nexthop and interface found for  tunnel type: " + type + " index:1"),
            1u);
  EXPECT_EQ(traces(" Intf: Ethernet1 Nexthop: 10.0.0.1"), 1u);
}

// The child's vias are joined in the order they were flattened.
TEST_F(ResolverTest, LabelStackAccumulatesAcrossTheChildsVias) {
  tunnelIs(2, {real(1, push({200})), real(2, push({300}))});
  tunnelIs(1, {over(2, push({100}))});
  EXPECT_EQ(resolved(1), (Vias{flat(1, push({200, 100})), flat(2, push({300, 200, 100}))}));
}

TEST_F(ResolverTest, RenderedIdsStayUntilTheOwnerClearsThem) {
  tunnelIs(1, {real(1), real(1)});  // equal flattened vias collapse
  EXPECT_EQ(resolved(1), Vias{flat(1)});
  tunnelIs(1, {real(2)});
  EXPECT_EQ(resolved(1), Vias{flat(1)});
  EXPECT_EQ(traces("Cycle Detected for this tunnel"), 1u);
  r_->renderedTunnelIdDelAll();
  r_->consolidatedEntryDelAll();
  EXPECT_EQ(resolved(1), Vias{flat(2)});
}

TEST_F(ResolverTest, CyclesEndAtTheSecondVisit) {
  tunnelIs(1, {over(2)});
  tunnelIs(2, {over(1)});
  EXPECT_EQ(resolved(1), Vias());
  EXPECT_TRUE(r_->consolidatedEntries().empty());
  EXPECT_EQ(traces("Cycle Detected for this tunnel"), 1u);
  // A via ahead of the one that closes the cycle still counts, for both.
  tunnelIs(4, {over(5)});
  tunnelIs(5, {real(5), over(4)});
  EXPECT_EQ(resolved(4), Vias{flat(5)});
  EXPECT_EQ(resolved(5, false), Vias{flat(5)});
}

TEST_F(ResolverTest, SharedChildIsResolvedOnceAndATunnelMayRideOnItself) {
  tunnelIs(3, {real(3, push({30}))});
  tunnelIs(1, {over(3)});
  tunnelIs(2, {over(3, push({20}))});
  EXPECT_EQ(resolved(1), Vias{flat(3, push({30}))});
  EXPECT_EQ(resolved(2), Vias{flat(3, push({30, 20}))});
  EXPECT_EQ(traces("Current tunnel Info"), 3u);
  tunnelIs(4, {real(4, push({100})), over(4, push({5}))});
  EXPECT_EQ(resolved(4), (Vias{flat(4, push({100})), flat(4, push({100, 5}))}));
  tunnelIs(5, {over(5), real(5)});
  EXPECT_EQ(resolved(5), Vias());
}

TEST_F(ResolverTest, OutOfRangeValuesThrowTheirRangeExceptions) {
  Tunnel::TunnelFib::dabinFacility_.levelsUpTo(-1);
  auto e = std::make_unique<TunnelFibEntry>(id(1));
  for (uint16_t k = 0; k < 600; ++k) e->tunnelViaIs(k, real(k % 7));
  fib_->entryIs(*e);
  EXPECT_EQ(errorOf<Zent::RangeException>([&] { r_->updateFlattenedInfo(id(1)); }),
            "Tunnel::TunnelFib::TunnelViaIndex::value < Tunnel::TunnelFib::TunnelViaIndex::min "
            "or > Tunnel::TunnelFib::TunnelViaIndex::max not allowed");
  tunnelIs(2, {TunnelVia({}, Vorn::IntfId::fromTunnelIdValue(1ull << 49), {})});
  EXPECT_EQ(errorOf<Zent::RangeException>([&] { r_->updateFlattenedInfo(id(2)); }),
            "Tunnel::TunnelTable::TunnelId::value < Tunnel::TunnelTable::TunnelId::minValue or > "
            "Tunnel::TunnelTable::TunnelId::maxValue not allowed");
  // Nine labels over nine: a stack is never cut short to fit.
  MplsLabelOperation const nine = push({1, 2, 3, 4, 5, 6, 7, 8, 9});
  tunnelIs(3, {real(3, nine)});
  tunnelIs(4, {over(3, nine)});
  EXPECT_THROW(r_->updateFlattenedInfo(id(4)), Zent::RangeException);
}

}  // namespace
