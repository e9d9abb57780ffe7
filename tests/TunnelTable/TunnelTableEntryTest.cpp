// What single entry types do beyond the contract suite and the golden records.
// The base entry: which damaged base records are refused and how deserialize
// reports one, tep(), and the dump's indent with and without a dump context.
// BGP-LU: vias that name a tunnel, appended up to the array's capacity and
// refused with one trace past it, and which bytes of the label slot and the
// BGP fields are refused. SBFD sessions: endpoint and name stay out of the
// compact record, and the records it refuses leave the entry unchanged.

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/BgpLuEntries.h"
#include "Tunnel/TunnelTable/DumpContext.h"
#include "Tunnel/TunnelTable/SbfdSessionEntry.h"
#include "Tunnel/TunnelTable/Trace.h"
#include "Tunnel/TunnelTable/TunnelTableEntry.h"
#include "Tunnel/framework/Dabin.h"
#include "tests/common/ValueContract.h"
#include "tests/net/ErrorText.h"

namespace Tunnel::TunnelTable {
namespace {

using valuecontract::Bytes;
using Vorn::IpGenPrefix;

TEST(BaseRecordTest, DamagedBaseRecordsAreRefusedAndDeserializeNamesTheOffset) {
  TunnelTableEntry e(TunnelId(rsvpLerTunnel, 7), 45);
  e.endpointIs(0, IpGenPrefix("10.0.0.0/8"));
  e.endpointIs(1, IpGenPrefix("2001:db8::/32"));
  e.nameIs("tun");
  Bytes record(e.serializeLen());
  e.serialize(record.data());
  ASSERT_EQ(e.deserializeLen(record.data(), 552), 552u);
  using valuecontract::expectPatchRefused;
  expectPatchRefused<void>(e, record, 6, {0x02});        // tunnelId above its range
  expectPatchRefused<void>(e, record, 15, {0x80});       // nexthopTunnelId too
  expectPatchRefused<void>(e, record, 25, {2});          // viasOrdered neither 0 nor 1
  expectPatchRefused<void>(e, record, 27 + 4 + 1, {1});  // endpoint with host bits
  expectPatchRefused<void>(e, record, 75 + 5, {1});      // unused endpoint slot
  expectPatchRefused<void>(e, record, 415, {'x'});       // unused name byte
  expectPatchRefused<void>(e, record, 551, {1});         // reserved tail
  Bytes bad = record;
  bad[25] = 7;
  EXPECT_EQ(
      Vorn::test::errorOf<RecordError>([&] { TunnelTableEntry().deserialize(bad.data(), 552); }),
      "Tunnel::TunnelTable::TunnelTableEntry: invalid record of 552 bytes at offset 25");
}

TEST(TunnelTableEntryTest, TepIsTheFirstEndpointOrTheDefaultPrefix) {
  TunnelTableEntry e(TunnelId(ldpTunnel, 1));
  EXPECT_EQ(e.tep(), IpGenPrefix());
  e.endpointIs(1, IpGenPrefix("10.1.0.0/16"));
  EXPECT_EQ(e.tep(), IpGenPrefix());  // the gap before index 1 is a default prefix
  e.endpointIs(0, IpGenPrefix("10.0.0.1/32"));
  EXPECT_EQ(e.tep(), IpGenPrefix("10.0.0.1/32"));
  e.endpointDel(0);
  EXPECT_EQ(e.tep(), IpGenPrefix("10.1.0.0/16"));
}

TEST(EntryDumpTest, LinesStartWithTheIndentAsPrintfPadsABlankOrNoneWithoutAContext) {
  std::ostringstream defaultOut;
  DumpContext::defaultOutputIs(&defaultOut);
  TunnelTableEntry e(TunnelId(isisFlexAlgoTunnel, (uint64_t{0xff} << 35) | 12));
  e.endpointIs(0, IpGenPrefix("10.0.0.1/32"));
  auto dump = [&](int indent) {
    std::ostringstream os;
    DumpContext ctx(os);
    e.dumpState(&ctx, indent);
    return os.str();
  };
  // The flex-algo identifier shows its 35-bit index only.
  EXPECT_EQ(dump(3), "   TunnelId: (Type: IS-IS Flex Algo, Index: 12)\n   tep: 10.0.0.1/32\n");
  // "%*c" prints at least the blank itself.
  EXPECT_EQ(dump(0), " TunnelId: (Type: IS-IS Flex Algo, Index: 12)\n tep: 10.0.0.1/32\n");
  EXPECT_EQ(dump(-2), "  TunnelId: (Type: IS-IS Flex Algo, Index: 12)\n  tep: 10.0.0.1/32\n");
  EXPECT_EQ(defaultOut.str(), "");
  e.dumpState(nullptr, 8);
  EXPECT_EQ(defaultOut.str(), "TunnelId: (Type: IS-IS Flex Algo, Index: 12)\ntep: 10.0.0.1/32\n");
  DumpContext::defaultOutputIs(nullptr);
}

// Collects the traces of the tunnel table facility, level 0 switched on.
class TunnelIdViaTest : public ::testing::Test {
 protected:
  TunnelIdViaTest() : wasOn_(dabinFacility_.enabled(0)) {
    dabinFacility_.levelIs(0, true);
    Dabin::sinkIs(&sink_);
  }
  ~TunnelIdViaTest() override {
    Dabin::sinkIs(nullptr);
    dabinFacility_.levelIs(0, wasOn_);
  }

  Dabin::CaptureSink sink_;
  bool wasOn_;
  std::unique_ptr<BgpLuPushTunnelTableEntry> e_ =
      std::make_unique<BgpLuPushTunnelTableEntry>(TunnelId(bgpLuPushTunnel, 1));
};

TEST_F(TunnelIdViaTest, AppendsAViaToTheDynamicInterfaceOfTheTunnel) {
  Via const first(Vorn::IpGenAddr("10.0.0.2"), Vorn::IntfId::ethernet(1));
  e_->viaIs(0, first);
  TunnelId const rideOn = TunnelId(ldpTunnel, 7);
  e_->tunnelIdViaIs(rideOn);
  ASSERT_EQ(e_->via().count(), 2u);
  EXPECT_EQ(e_->via(0), first);
  EXPECT_EQ(e_->via(1),
            Via(Vorn::IpGenAddr("0.0.0.0"), Vorn::IntfId::fromTunnelIdValue(rideOn.value())));
  EXPECT_TRUE(sink_.lines().empty());
}

TEST_F(TunnelIdViaTest, TheVia601IsRefusedWithOneTraceAndNoChange) {
  for (uint64_t i = 0; i < 600; ++i) e_->tunnelIdViaIs(TunnelId(isisSrTunnel, i));
  ASSERT_EQ(e_->via().count(), 600u);
  EXPECT_TRUE(sink_.lines().empty());
  auto const before = std::make_unique<BgpLuPushTunnelTableEntry>(*e_);

  TunnelId const extra = TunnelId(ldpTunnel, 601);
  EXPECT_NO_THROW(e_->tunnelIdViaIs(extra));
  EXPECT_EQ(e_->via().count(), 600u);
  EXPECT_EQ(*e_, *before);
  ASSERT_EQ(sink_.lines().size(), 1u);
  EXPECT_EQ(sink_.lines()[0].facility, "Tunnel::TunnelTable");
  EXPECT_EQ(sink_.lines()[0].message,
            fmt::format("BgpLuPushTunnelTableEntry already has the maximum number of vias (600), "
                        "so cannot add tunnelId {}",
                        extra.value()));
}

// An entry with two vias: the label slot at 628, the BGP fields at 701.
TEST(BgpLuRecordTest, BytesNoEntryWouldWriteAreRefused) {
  constexpr size_t kSlot = 552 + 4 + 2 * 36;
  constexpr size_t kBgp = kSlot + 73;
  auto e = std::make_unique<BgpLuTunnelTableEntry>(TunnelId(bgpLuTunnel, 4));
  e->viaIs(1, Via(Vorn::IpGenAddr("10.0.0.3"), Vorn::IntfId::ethernet(2)));
  e->labelsIs(Vorn::MplsLabelOperation::swap({100, 200}));
  Bytes record(e->serializeLen());
  e->serialize(record.data());
  ASSERT_EQ(record.size(), kBgp + 28);
  ASSERT_EQ(e->deserializeLen(record.data(), kBgp + 28), kBgp + 28);
  auto expectRefused = [&](size_t at, Bytes const& patch) {
    valuecontract::expectPatchRefused<RecordError>(*e, record, at, patch);
  };
  expectRefused(kSlot + 10, {1});                   // after the label record
  expectRefused(kSlot + 1, {18});                   // more labels than an operation holds
  expectRefused(kSlot + 2, {0xff, 0xff, 0x1f, 0});  // a label above 20 bits
  expectRefused(kBgp, {3, 0, 0, 0});                // unknown contribution
  expectRefused(kBgp + 8, {3, 0, 0, 0});            // unknown metric type
  expectRefused(kBgp + 8, {1, 0, 0, 1});            // unknown metric type, high byte
}

using Entry = ZorbSdkSbfdSessionTunnelTableEntry;

using valuecontract::recordOf;

class SbfdSessionEntryTest : public ::testing::Test {
 protected:
  SbfdSessionEntryTest() {
    e_.nexthopTunnelIdIs(TunnelId(ldpTunnel, 9));
    e_.entryPrefIs(7);
    e_.entryMetricIs(0x01020304);
    e_.tunnelBwIs(0x0a0b0c0d);
    e_.viasOrderedIs(true);
    e_.viaIs(Via(Vorn::IpGenAddr("10.0.0.2"), Vorn::IntfId::ethernet(1)));
    record_ = recordOf(e_);
  }
  Entry e_{TunnelId(zorbSdkSbfdSessionTunnel, 3)};
  Bytes record_;
};

// Deliberate: the slot has no room for them; a reader sees none.
TEST_F(SbfdSessionEntryTest, EndpointAndNameAreNotCarried) {
  Entry named = e_;
  named.endpointIs(0, Vorn::IpGenPrefix("10.0.0.1/32"));
  named.nameIs("session");
  EXPECT_EQ(recordOf(named), record_);
  named.deserialize(record_.data(), static_cast<unsigned>(record_.size()));
  EXPECT_EQ(named, e_);
}

TEST_F(SbfdSessionEntryTest, RecordsNoEntryWouldWriteAreRefused) {
  MplsCosVia labelled(MplsVia(e_.via(), Vorn::MplsLabelOperation::push({16})));
  MplsCosVia someClasses(MplsVia(e_.via(), Vorn::MplsLabelOperation::forward()), 0x0f);
  struct Patch {
    size_t offset;
    Bytes bytes;
  };
  std::vector<Patch> const patches = {
      {7, {0x02}},   // tunnelId above TunnelId::maxValue
      {25, {2}},     // viasOrdered neither 0 nor 1
      {26, {1}},     // reserved
      {27, {0x80}},  // reserved
      {28, Bytes(reinterpret_cast<unsigned char const*>(&labelled),
                 reinterpret_cast<unsigned char const*>(&labelled) + sizeof labelled)},
      {28, Bytes(reinterpret_cast<unsigned char const*>(&someClasses),
                 reinterpret_cast<unsigned char const*>(&someClasses) + sizeof someClasses)},
      {28 + 21, {1}},  // the interface's reserved bytes: not a well-formed via
  };
  for (Patch const& p : patches) {
    valuecontract::expectPatchRefused<RecordError>(e_, record_, p.offset, p.bytes, true);
  }
}

}  // namespace
}  // namespace Tunnel::TunnelTable
