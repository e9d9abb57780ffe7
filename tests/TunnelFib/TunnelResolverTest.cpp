// The resolver over hand-built FIBs: each behaviour it keeps on purpose gets
// its own test, because each is easy to "fix" by accident.

#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelFib/TunnelResolver.h"
#include "tests/net/ErrorText.h"

using namespace Tunnel::TunnelFib;
using Tunnel::TunnelTable::EncapType;
using Vorn::MplsLabelOperation;
using Vorn::test::errorOf;
using Vias = std::set<std::string>;

namespace {

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
