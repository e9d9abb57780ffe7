// The converters tunnelctl is made of: canonical text to JSON, one for every
// registered type, and the tunnel id label, which must read back to the id.

#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "tools/tunnelctl/JsonText.h"
#include "tools/tunnelctl/TunnelIdText.h"

namespace {

using namespace Tunnel::TunnelTable;
using TunnelCtl::canonicalTextToJson;
using TunnelTool::parseTunnelIdText;
using TunnelTool::tunnelIdLabel;

TEST(JsonTextTest, ValuesBecomeObjectsInFieldOrderAndOnlyWholeNumbersBecomeNumbers) {
  std::vector<std::pair<std::string, std::string>> const cases = {
      {"Value('A::Outer', ** {'name': " + Zent::quoteText("it's, [1") +
           ", 'on': true, 'off': false, 'inner': Value('A::Inner', ** {'list': [1, 2], "
           "'empty': []}), 'values': [Value('A::V', ** {'x': 3}), Value('A::V', ** {'x': 4})]})",
       R"({"name":"it's, [1","on":true,"off":false,"inner":{"list":[1,2],"empty":[]},)"
       R"("values":[{"x":3},{"x":4}]})"},
      {"Value('T', ** {'b': 7, 'a': '[not, a list]'})", R"({"b":7,"a":"[not, a list]"})"},
      {"Value('T', ** {})", "{}"},
      {Zent::quoteText("a 'b' \\ c"), R"("a 'b' \\ c")"},
      {"10.0.0.1/32", R"("10.0.0.1/32")"},
      {"007", R"("007")"},
      {"99999999999999999999999", R"("99999999999999999999999")"},
      {"18446744073709551615", "18446744073709551615"},
      {"0", "0"},
  };
  for (auto const& [text, json] : cases) EXPECT_EQ(canonicalTextToJson(text).dump(), json) << text;
  EXPECT_THROW(canonicalTextToJson("Value('T', ** {'a': [1, 2})"), Zent::ParseError);
  EXPECT_THROW(canonicalTextToJson("[Value('T', ** {'a': 'x})]"), Zent::ParseError);
}

TEST(TunnelIdTextTest, LabelReadsBackForEveryTypeAndTheWholeIndex) {
  // isisFlexAlgoTunnel shows 35 bits as its index; the label keeps all 43.
  for (TunnelType t : {bgpLuTunnel, isisSrTunnel, isisFlexAlgoTunnel, reservedTunnel31}) {
    for (uint64_t index : {uint64_t{0}, uint64_t{0x7ffffffff} + 5, TunnelId::kIndexMask}) {
      TunnelId id(t, index);
      EXPECT_EQ(parseTunnelIdText(tunnelIdLabel(id)), id) << tunnelIdLabel(id);
    }
  }
  EXPECT_EQ(parseTunnelIdText("ldpTunnel:0x7"), parseTunnelIdText("ldpTunnel:7"));
  EXPECT_THROW(parseTunnelIdText("ldpTunnel:"), Zent::ParseError);
  EXPECT_THROW(parseTunnelIdText("ldpTunnel:0x80000000000"), Zent::ParseError);  // 44 bits
  EXPECT_THROW(parseTunnelIdText("12abc"), Zent::ParseError);
}

}  // namespace
