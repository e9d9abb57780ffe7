// The canonical-text-to-JSON converter behind `show --json`: one converter for
// every registered type, so its rules are what these tests pin down.

#include <gtest/gtest.h>

#include "Tunnel/TunnelRedist/TunnelRedistConfig.h"
#include "Tunnel/framework/Text.h"
#include "tools/tunnelctl/JsonText.h"

namespace {

using TunnelCtl::canonicalTextToJson;
using Json = nlohmann::ordered_json;

TEST(JsonTextTest, ValueBecomesAnObjectWithItsFieldsInOrder) {
  Tunnel::TunnelRedist::TunnelInfo info(Tunnel::TunnelTable::TunnelId(77), 12);
  Json j = canonicalTextToJson(info.stringValue());
  EXPECT_EQ(j.dump(), R"({"tunnelId":77,"igpMetric":12})");
}

TEST(JsonTextTest, NestedValuesListsStringsAndBooleansConvertRecursively) {
  Json j =
      canonicalTextToJson("Value('A::Outer', ** {'name': " + Zent::quoteText("it's, [1") +
                          ", 'on': true, 'off': false, "
                          "'inner': Value('A::Inner', ** {'list': [1, 2], 'empty': []}), "
                          "'values': [Value('A::V', ** {'x': 3}), Value('A::V', ** {'x': 4})]})");
  EXPECT_EQ(j.dump(),
            R"({"name":"it's, [1","on":true,"off":false,"inner":{"list":[1,2],"empty":[]},)"
            R"("values":[{"x":3},{"x":4}]})");
}

TEST(JsonTextTest, QuotedStringsAreUnescaped) {
  EXPECT_EQ(canonicalTextToJson(Zent::quoteText("a 'b' \\ c")), "a 'b' \\ c");
  EXPECT_EQ(canonicalTextToJson("Value('T', ** {'s': '[not, a list]'})").dump(),
            R"({"s":"[not, a list]"})");
}

TEST(JsonTextTest, TextsThatAreNotNumbersStayStrings) {
  EXPECT_EQ(canonicalTextToJson("10.0.0.1/32"), "10.0.0.1/32");
  EXPECT_EQ(canonicalTextToJson("push 100 200"), "push 100 200");
  EXPECT_EQ(canonicalTextToJson("Ethernet1"), "Ethernet1");
  EXPECT_EQ(canonicalTextToJson("007"), "007");
  EXPECT_EQ(canonicalTextToJson("99999999999999999999999"), "99999999999999999999999");
  EXPECT_EQ(canonicalTextToJson("18446744073709551615"), 18446744073709551615ull);
  EXPECT_EQ(canonicalTextToJson("0"), 0);
}

TEST(JsonTextTest, ValueWithoutFieldsIsAnEmptyObject) {
  EXPECT_EQ(canonicalTextToJson("Value('T', ** {})").dump(), "{}");
}

TEST(JsonTextTest, UnbalancedTextIsAParseError) {
  EXPECT_THROW(canonicalTextToJson("Value('T', ** {'a': [1, 2})"), Zent::ParseError);
  EXPECT_THROW(canonicalTextToJson("[Value('T', ** {'a': 'x})]"), Zent::ParseError);
}

}  // namespace
