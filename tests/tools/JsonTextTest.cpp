// The canonical-text-to-JSON converter behind `show --json`: one converter for
// every registered type, so its rules are what these tests pin down.

#include <gtest/gtest.h>

#include "Tunnel/framework/Text.h"
#include "tools/tunnelctl/JsonText.h"

namespace {

using TunnelCtl::canonicalTextToJson;

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
      {"push 100 200", R"("push 100 200")"},
      {"007", R"("007")"},
      {"99999999999999999999999", R"("99999999999999999999999")"},
      {"18446744073709551615", "18446744073709551615"},
      {"0", "0"},
  };
  for (auto const& [text, json] : cases) EXPECT_EQ(canonicalTextToJson(text).dump(), json) << text;
  EXPECT_THROW(canonicalTextToJson("Value('T', ** {'a': [1, 2})"), Zent::ParseError);
  EXPECT_THROW(canonicalTextToJson("[Value('T', ** {'a': 'x})]"), Zent::ParseError);
}

}  // namespace
