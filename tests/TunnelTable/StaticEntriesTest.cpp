// Static and SR-TE segment list entries: where the static entry's backup list
// sits in its record, and the segment list's dump lines with and without a
// dump context.

#include <cstring>
#include <memory>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/DumpContext.h"
#include "Tunnel/TunnelTable/StaticEntries.h"

namespace Tunnel::TunnelTable {
namespace {

using Bytes = std::vector<unsigned char>;

TunnelId id(TunnelType type, uint64_t index) {
  return TunnelId(TunnelId::convertToTunnelValue(type, index));
}

MplsVia mplsVia(const char* nextHop, uint32_t port, Vorn::MplsLabelOperation const& labels) {
  return MplsVia(Vorn::IpGenAddr(nextHop), Vorn::IntfId::ethernet(port), labels);
}

TEST(StaticEntryRecordTest, BackupListFollowsThePrimaryList) {
  auto e = std::make_unique<StaticTunnelTableEntry>(id(staticTunnel, 1));
  MplsVia const primary = mplsVia("10.0.0.2", 1, Vorn::MplsLabelOperation::push({16}));
  MplsVia const backup = mplsVia("10.0.0.3", 2, Vorn::MplsLabelOperation::pop());
  for (uint32_t i = 0; i < 3; ++i) e->viaIs(i, primary);
  e->backupViaIs(0, backup);
  Bytes b(e->serializeLen());
  e->serialize(b.data());
  ASSERT_EQ(b.size(), 552u + 8 + 108 * 4);
  uint32_t count = 0;
  std::memcpy(&count, &b[552], 4);
  EXPECT_EQ(count, 3u);
  size_t const backupAt = 556 + 108 * 3;
  std::memcpy(&count, &b[backupAt], 4);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(std::memcmp(&b[backupAt + 4], &backup, sizeof backup), 0);

  auto back = std::make_unique<StaticTunnelTableEntry>();
  back->deserialize(b.data(), static_cast<unsigned>(b.size()));
  EXPECT_EQ(back->via().count(), 3u);
  EXPECT_EQ(back->backupVia(0), backup);
}

class SegmentListDumpTest : public ::testing::Test {
 protected:
  SegmentListDumpTest() {
    e_.nexthopTunnelIdIs(id(isisSrTunnel, 2));
    e_.endpointIs(0, Vorn::IpGenPrefix("10.0.0.1/32"));
    e_.viaIs(0, mplsVia("10.0.0.2", 1, Vorn::MplsLabelOperation::push({100, 200})));
    e_.viaIs(1, mplsVia("10.0.0.3", 2, Vorn::MplsLabelOperation::forward()));
  }
  ~SegmentListDumpTest() override { DumpContext::defaultOutputIs(nullptr); }

  SrTeSegmentListTunnelTableEntry e_{id(srTeSegmentListTunnel, 5)};
};

TEST_F(SegmentListDumpTest, LinesAreIndentedInAContext) {
  std::ostringstream os;
  DumpContext ctx(os);
  e_.dumpState(&ctx, 3);
  EXPECT_EQ(os.str(),
            "   TunnelId: (Type: SR-TE Segment List, Index: 5)\n"
            "   nextHopTunnelId: (Type: IS-IS SR, Index: 2)\n"
            "   tep: 10.0.0.1/32\n"
            "   Vias #2 \n"
            "   nextHop: 10.0.0.2, intfId: Ethernet1, labels: [push 100 200]\n"
            "   nextHop: 10.0.0.3, intfId: Ethernet2, labels: [forward]\n");
}

TEST_F(SegmentListDumpTest, LinesHaveNoIndentWithoutAContext) {
  std::ostringstream os;
  DumpContext::defaultOutputIs(&os);
  e_.viaDelAll();
  e_.dumpState(nullptr, 3);
  EXPECT_EQ(os.str(),
            "TunnelId: (Type: SR-TE Segment List, Index: 5)\n"
            "nextHopTunnelId: (Type: IS-IS SR, Index: 2)\n"
            "tep: 10.0.0.1/32\n"
            "Vias #0 \n");
}

}  // namespace
}  // namespace Tunnel::TunnelTable
