// BGP-LU entries: vias that name a tunnel, appended up to the array's
// capacity and refused with one trace past it, and which bytes of the label
// slot and the BGP fields are refused.

#include <cstring>
#include <memory>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/BgpLuEntries.h"
#include "Tunnel/TunnelTable/Trace.h"
#include "Tunnel/framework/Dabin.h"

namespace Tunnel::TunnelTable {
namespace {

using Bytes = std::vector<unsigned char>;

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
  EXPECT_EQ(e_->via(1).intfId().stringValue(), "DynamicTunnel0x300000000007");
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
  // The record with `bytes` written at `offset` is refused by both readers.
  auto expectRefused = [&](size_t offset, Bytes const& bytes) {
    Bytes bad = record;
    std::memcpy(&bad[offset], bytes.data(), bytes.size());
    EXPECT_EQ(e->deserializeLen(bad.data(), kBgp + 28), 0u) << "at " << offset;
    auto back = std::make_unique<BgpLuTunnelTableEntry>();
    EXPECT_THROW(back->deserialize(bad.data(), kBgp + 28), RecordError) << "at " << offset;
  };
  expectRefused(kSlot + 10, {1});                   // after the label record
  expectRefused(kSlot + 1, {18});                   // more labels than an operation holds
  expectRefused(kSlot + 2, {0xff, 0xff, 0x1f, 0});  // a label above 20 bits
  expectRefused(kBgp, {3, 0, 0, 0});                // unknown contribution
  expectRefused(kBgp + 8, {3, 0, 0, 0});            // unknown metric type
  expectRefused(kBgp + 8, {1, 0, 0, 1});            // unknown metric type, high byte
}

}  // namespace
}  // namespace Tunnel::TunnelTable
