#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/framework/Text.h"

namespace {

using Zent::ParseError;
using Zent::String;

// A value holding a string, a number and a list of its own kind: the
// shapes the text reader must keep whole while it splits the top-level fields.
struct Node {
  static constexpr const char* kTypeName = "FrameworkTest::Node";
  String name;
  uint32_t id = 0;
  std::vector<Node> kids;

  Node() = default;
  Node(String n, uint32_t i, std::vector<Node> k = {})
      : name(std::move(n)), id(i), kids(std::move(k)) {}
  Node(String::IteratorConst& it, String::IteratorConst const& end) {
    Zent::ValueTextReader r(std::string_view(it.ptr(), static_cast<size_t>(end - it)), kTypeName);
    name = Zent::parseFieldText<String>(r.field("name"), kTypeName);
    id = Zent::parseFieldText<uint32_t>(r.field("id"), kTypeName);
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
        .field("kids", std::string_view(list))
        .str();
  }
};

TEST(TextTest, NestedValuesListsAndAwkwardStringsRoundTrip) {
  Node const n("it's, {odd} [really] \\", 1, {Node("'q'", 2, {Node("x})", 3)}), Node()});
  std::string const text = n.stringValue();
  EXPECT_EQ(text,
            "Value('FrameworkTest::Node', ** {'name': 'it\\'s, {odd} [really] \\\\', 'id': 1, "
            "'kids': [Value('FrameworkTest::Node', ** {'name': '\\'q\\'', 'id': 2, 'kids': "
            "[Value('FrameworkTest::Node', ** {'name': 'x})', 'id': 3, 'kids': []})]}), "
            "Value('FrameworkTest::Node', ** {'name': '', 'id': 0, 'kids': []})]})");
  EXPECT_EQ(Zent::strepToValue<Node>(String(text)), n);
  EXPECT_EQ(fmt::format("{}", n), text);
}

TEST(TextTest, MalformedTextIsAParseErrorAndAMissingFieldIsNamed) {
  std::string const v = "Value('FrameworkTest::Node', ** {";
  for (std::string text :
       {v + "'name': 'open})", v + "'name': '', 'id': [1, 'kids': []})",
        v + "'name': '', 'id': x1, 'kids': []})", v + "'name': '', 'id' 1})",
        std::string("Value('Other', ** {'name': '', 'id': 1, 'kids': []})"), std::string()}) {
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

TEST(TextTest, UnbalancedListsUnquotedStringsAndOtherBoolsAreRefused) {
  EXPECT_THROW(Zent::splitListText("1, 2"), ParseError);
  EXPECT_THROW(Zent::splitListText("[1, [2]"), ParseError);
  EXPECT_THROW(Zent::unquoteText("no quotes"), ParseError);
  EXPECT_TRUE(Zent::parseBoolText(" True"));
  EXPECT_THROW(Zent::parseBoolText("yes"), ParseError);
}

}  // namespace
