#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/framework/Text.h"

namespace FrameworkTest {
namespace {

using Zent::ParseError;
using Zent::String;

// A value holding strings, a number, a bool and a list of its own kind: the
// shapes the text reader must keep whole while it splits the top-level fields.
struct Node {
  static constexpr const char* kTypeName = "FrameworkTest::Node";
  String name;
  uint32_t id = 0;
  bool on = false;
  std::vector<Node> kids;

  Node() = default;
  Node(String n, uint32_t i, bool o = false, std::vector<Node> k = {})
      : name(std::move(n)), id(i), on(o), kids(std::move(k)) {}
  Node(String::IteratorConst& it, String::IteratorConst const& end) {
    Zent::ValueTextReader r(std::string_view(it.ptr(), static_cast<size_t>(end - it)), kTypeName);
    name = Zent::parseFieldText<String>(r.field("name"), kTypeName);
    id = Zent::parseFieldText<uint32_t>(r.field("id"), kTypeName);
    on = Zent::parseFieldText<bool>(r.field("on"), kTypeName);
    for (std::string_view e : Zent::splitListText(r.field("kids"))) {
      kids.push_back(Zent::parseFieldText<Node>(e, kTypeName));
    }
    it = end;
  }
  bool operator==(Node const&) const = default;
  std::string stringValue() const {
    std::string const list = Zent::arrayText(kids);
    return Zent::ValueText(kTypeName)
        .field("name", name)
        .field("id", id)
        .field("on", on)
        .field("kids", std::string_view(list))
        .str();
  }
  friend std::ostream& operator<<(std::ostream& os, Node const& n) { return os << n.stringValue(); }
};

TEST(TextTest, NestedValuesListsAndAwkwardStringsRoundTrip) {
  Node const n("it's, {odd} [really] \\", 1, true,
               {Node("'q'", 2, false, {Node("x})", 3)}), Node()});
  std::string const text = n.stringValue();
  EXPECT_EQ(text,
            "Value('FrameworkTest::Node', ** {'name': 'it\\'s, {odd} [really] \\\\', 'id': 1, "
            "'on': true, 'kids': [Value('FrameworkTest::Node', ** {'name': '\\'q\\'', 'id': 2, "
            "'on': false, 'kids': [Value('FrameworkTest::Node', ** {'name': 'x})', 'id': 3, "
            "'on': false, 'kids': []})]}), Value('FrameworkTest::Node', ** {'name': '', 'id': 0, "
            "'on': false, 'kids': []})]})");
  EXPECT_EQ(Zent::strepToValue<Node>(String(text)), n);
  EXPECT_EQ(fmt::format("{}", n), text);
}

TEST(TextTest, MalformedTextIsAParseErrorAndAMissingFieldIsNamed) {
  std::string const v = "Value('FrameworkTest::Node', ** {";
  for (std::string text :
       {v + "'name': 'open})", v + "'name': '', 'id': [1, 'on': true})",
        v + "'name': '', 'id': x1, 'on': true, 'kids': []})", v + "'name': '', 'id' 1})",
        std::string("Value('Other', ** {'name': '', 'id': 1, 'on': true, 'kids': []})"),
        std::string()}) {
    EXPECT_THROW(Zent::strepToValue<Node>(String(text)), ParseError) << text;
  }
  try {
    Zent::strepToValue<Node>(String(v + "'name': 'a, b'})"));
    FAIL() << "missing field accepted";
  } catch (ParseError const& e) {
    EXPECT_STREQ(e.what(), "FrameworkTest::Node: field 'id' missing");
  }
}

TEST(TextTest, ParseUnsignedTextAcceptsOnlyWholeNumbersThatFit) {
  EXPECT_EQ(Zent::parseUnsignedText<uint8_t>(" 255 ", "pref"), 255u);
  EXPECT_EQ(Zent::parseUnsignedText<uint32_t>("0x2A", "id"), 42u);
  EXPECT_EQ(Zent::parseUnsignedText<uint64_t>("18446744073709551615", "id"), ~uint64_t{0});
  for (char const* bad : {"", "256", "-1", "+1", "12x", "0x", "0xg", "1 2", "1.0"}) {
    EXPECT_THROW(Zent::parseUnsignedText<uint8_t>(bad, "pref"), ParseError) << bad;
  }
  try {
    Zent::parseUnsignedText<uint8_t>("300", "Tunnel::TunnelTable::TunnelEntryPref");
    FAIL() << "300 accepted";
  } catch (ParseError const& e) {
    EXPECT_STREQ(e.what(),
                 "Tunnel::TunnelTable::TunnelEntryPref: '300' is not an unsigned number that fits");
  }
}

TEST(TextTest, ListsSplitOnlyAtTopLevelCommasAndQuotingIsInverse) {
  EXPECT_TRUE(Zent::splitListText(" [ ] ").empty());
  EXPECT_EQ(Zent::splitListText("[[1, 2], 'a, \\'b', (x, y),3]"),
            (std::vector<std::string_view>{"[1, 2]", "'a, \\'b'", "(x, y)", "3"}));
  EXPECT_THROW(Zent::splitListText("1, 2"), ParseError);
  EXPECT_THROW(Zent::splitListText("[1, [2]"), ParseError);
  for (std::string s : {"", "plain", "it's", "back\\slash\\", "'", "\\'"}) {
    EXPECT_EQ(Zent::unquoteText(Zent::quoteText(s)), s) << s;
  }
  EXPECT_THROW(Zent::unquoteText("no quotes"), ParseError);
  EXPECT_TRUE(Zent::parseBoolText(" True"));
  EXPECT_THROW(Zent::parseBoolText("yes"), ParseError);
}

}  // namespace
}  // namespace FrameworkTest
