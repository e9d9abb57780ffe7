// Interface tunnel and nexthop-group entries: where their fixed fields sit in
// the record after the base part, and their dump lines.

#include <cstring>
#include <memory>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/DumpContext.h"
#include "Tunnel/TunnelTable/L3IntfEntries.h"
#include "Tunnel/TunnelTable/NexthopGroupEntry.h"

namespace Tunnel::TunnelTable {
namespace {

using Bytes = std::vector<unsigned char>;

TunnelId id(TunnelType type, uint64_t index) {
  return TunnelId(TunnelId::convertToTunnelValue(type, index));
}

template <typename T>
Bytes recordOf(T const& e) {
  Bytes b(e.serializeLen());
  e.serialize(b.data());
  return b;
}

template <typename T>
T at(Bytes const& b, size_t offset) {
  T v;
  std::memcpy(&v, &b[offset], sizeof v);
  return v;
}

TEST(NexthopGroupEntryTest, RecordIs564BytesWithItsFieldsAt552To560) {
  NexthopGroupTunnelTableEntry e(id(nexthopGroupTunnel, 1));
  e.nhgIdIs(0x11111111);
  e.igpMetricIs(0x22222222);
  e.igpPrefIs(0x33333333);
  Bytes const b = recordOf(e);
  ASSERT_EQ(b.size(), 564u);
  EXPECT_EQ(at<uint32_t>(b, 552), 0x11111111u);
  EXPECT_EQ(at<uint32_t>(b, 556), 0x22222222u);
  EXPECT_EQ(at<uint32_t>(b, 560), 0x33333333u);
  EXPECT_EQ(e.deserializeLen(b.data(), 564), 564u);
}

TEST(NexthopGroupEntryTest, DumpShowsTheGroupAfterTheTep) {
  NexthopGroupTunnelTableEntry e(id(nexthopGroupTunnel, 1));
  e.nhgIdIs(4);
  e.igpMetricIs(20);
  e.igpPrefIs(2);
  std::ostringstream os;
  DumpContext ctx(os);
  e.dumpState(&ctx, 0);
  EXPECT_EQ(os.str(),
            " TunnelId: (Type: Nexthop Group, Index: 1)\n tep: 0.0.0.0/0\n nhgId: 4\n"
            " igpMetric: 20\n igpPref: 2\n");
}

class GreEntryTest : public ::testing::Test {
 protected:
  GreEntryTest() {
    info_.sourceIs(Vorn::IpGenAddr("192.0.2.1"));
    info_.destinationIs(Vorn::IpGenAddr("192.0.2.2"));
    info_.keyIs(5);
    e_->tunnelInfoIs(info_);
    e_->viaIs(0, Via(Vorn::IpGenAddr("10.0.0.2"), Vorn::IntfId::tunnel(7)));
  }

  Tunnel::GreTunnelInfo info_;
  std::unique_ptr<GreIntfTunnelTableEntry> e_ =
      std::make_unique<GreIntfTunnelTableEntry>(id(staticInterfaceTunnel, 7));
};

TEST_F(GreEntryTest, TunnelInfoPrecedesTheViaList) {
  Bytes const b = recordOf(*e_);
  ASSERT_EQ(b.size(), 552u + 64 + 4 + 36);
  EXPECT_EQ(std::memcmp(&b[552], &info_, sizeof info_), 0);
  EXPECT_EQ(at<uint32_t>(b, 616), 1u);
  EXPECT_EQ(at<Via>(b, 620), e_->via(0));
  // A damaged tunnel information record is refused.
  Bytes bad = b;
  bad[552 + 63] = 1;
  EXPECT_EQ(e_->deserializeLen(bad.data(), static_cast<unsigned>(bad.size())), 0u);
}

TEST_F(GreEntryTest, DumpShowsTheTunnelInfoBeforeTheVias) {
  std::ostringstream os;
  DumpContext ctx(os);
  e_->dumpState(&ctx, 1);
  EXPECT_EQ(os.str(),
            " TunnelId: (Type: Static Interface, Index: 7)\n tep: 0.0.0.0/0\n tunnelInfo: " +
                info_.stringValue() + "\n Vias #1 \n nextHop: 10.0.0.2, intfId: Tunnel7\n");
}

}  // namespace
}  // namespace Tunnel::TunnelTable
