// Tunnel ids as typed on the command line (the end-to-end tests use each
// form): the label tunnelctl prints reads back to the id it came from.

#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "tools/tunnelctl/TunnelIdText.h"

namespace {

using namespace Tunnel::TunnelTable;
using TunnelTool::parseTunnelIdText;
using TunnelTool::tunnelIdLabel;

TEST(TunnelIdTextTest, LabelReadsBackForEveryTypeAndTheWholeIndex) {
  // isisFlexAlgoTunnel shows 35 bits as its index; the label keeps all 43.
  for (TunnelType t : {bgpLuTunnel, isisSrTunnel, isisFlexAlgoTunnel, reservedTunnel31}) {
    for (uint64_t index : {uint64_t{0}, uint64_t{0x7ffffffff} + 5, TunnelId::kIndexMask}) {
      TunnelId id(TunnelId::convertToTunnelValue(t, index));
      EXPECT_EQ(parseTunnelIdText(tunnelIdLabel(id)), id) << tunnelIdLabel(id);
    }
  }
  EXPECT_EQ(parseTunnelIdText("ldpTunnel:0x7"), parseTunnelIdText("ldpTunnel:7"));
  EXPECT_THROW(parseTunnelIdText("ldpTunnel:"), Zent::ParseError);
  EXPECT_THROW(parseTunnelIdText("ldpTunnel:0x80000000000"), Zent::ParseError);  // 44 bits
  EXPECT_THROW(parseTunnelIdText("12abc"), Zent::ParseError);
}

}  // namespace
