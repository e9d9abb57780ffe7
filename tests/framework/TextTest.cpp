#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/framework/Text.h"
#include "tests/framework/TestValues.h"

namespace FrameworkTest {
namespace {

using Zent::ParseError;
using Zent::String;

// A value holding a nested value, a list of values and a bool: the shapes the
// text reader must keep whole while it splits the top-level fields.
struct Bundle {
  static constexpr const char* kTypeName = "FrameworkTest::Bundle";
  String name;
  Payload primary;
  std::vector<Payload> extras;
  bool active = false;

  Bundle() = default;
  Bundle(String n, Payload p, std::vector<Payload> e, bool a)
      : name(std::move(n)), primary(std::move(p)), extras(std::move(e)), active(a) {}
  Bundle(String::IteratorConst& it, String::IteratorConst const& end) {
    Zent::ValueTextReader r(std::string_view(it.ptr(), static_cast<size_t>(end - it)), kTypeName);
    name = Zent::parseFieldText<String>(r.field("name"), kTypeName);
    primary = Zent::parseFieldText<Payload>(r.field("primary"), kTypeName);
    for (std::string_view e : Zent::splitListText(r.field("extras"))) {
      extras.push_back(Zent::parseFieldText<Payload>(e, kTypeName));
    }
    active = Zent::parseFieldText<bool>(r.field("active"), kTypeName);
    it = end;
  }
  bool operator==(Bundle const&) const = default;
  std::string stringValue() const {
    std::string const list = Zent::arrayText(extras);
    return Zent::ValueText(kTypeName)
        .field("name", name)
        .field("primary", primary)
        .field("extras", std::string_view(list))
        .field("active", active)
        .str();
  }
  friend std::ostream& operator<<(std::ostream& os, Bundle const& b) {
    return os << b.stringValue();
  }
};

TEST(TextTest, NestedValuesListsAndAwkwardStringsRoundTrip) {
  Bundle const b("it's, {odd} [really] \\", Payload(1, "a, b"),
                 {Payload(2, "'q'"), Payload(), Payload(3, "x})")}, true);
  std::string const text = b.stringValue();
  EXPECT_EQ(text,
            "Value('FrameworkTest::Bundle', ** {'name': 'it\\'s, {odd} [really] \\\\', "
            "'primary': Value('FrameworkTest::Payload', ** {'id': 1, 'label': 'a, b'}), "
            "'extras': [Value('FrameworkTest::Payload', ** {'id': 2, 'label': '\\'q\\''}), "
            "Value('FrameworkTest::Payload', ** {'id': 0, 'label': ''}), "
            "Value('FrameworkTest::Payload', ** {'id': 3, 'label': 'x})'})], "
            "'active': true})");
  EXPECT_EQ(Zent::strepToValue<Bundle>(String(text)), b);
  EXPECT_EQ(fmt::format("{}", b), text);

  Bundle const empty;
  EXPECT_EQ(Zent::strepToValue<Bundle>(String(empty.stringValue())), empty);
}

TEST(TextTest, ReaderKeepsFieldsWholeAndNamesMissingOnes) {
  std::string const text = Payload(5, "p, q").stringValue();  // the reader views it
  Zent::ValueTextReader r(text, Payload::kTypeName);
  EXPECT_EQ(r.fields(), 2u);
  EXPECT_EQ(r.field("label"), "'p, q'");
  try {
    r.field("weight");
    FAIL() << "missing field accepted";
  } catch (ParseError const& e) {
    EXPECT_STREQ(e.what(), "FrameworkTest::Payload: field 'weight' missing");
  }
}

TEST(TextTest, MalformedTextIsAParseError) {
  auto parse = [](std::string const& text) { return Zent::strepToValue<Payload>(String(text)); };
  EXPECT_THROW(parse("Value('FrameworkTest::Other', ** {'id': 1, 'label': ''})"), ParseError);
  EXPECT_THROW(parse("Value('FrameworkTest::Payload', ** {'id': 1, 'label': 'open})"), ParseError);
  EXPECT_THROW(parse("Value('FrameworkTest::Payload', ** {'id': [1, 'label': ''})"), ParseError);
  EXPECT_THROW(parse("Value('FrameworkTest::Payload', ** {'id': x1, 'label': ''})"), ParseError);
  EXPECT_THROW(parse("Value('FrameworkTest::Payload', ** {'id' 1})"), ParseError);
  EXPECT_THROW(parse(""), ParseError);
}

TEST(TextTest, SplitListTextSplitsOnlyTopLevelCommas) {
  EXPECT_TRUE(Zent::splitListText("[]").empty());
  EXPECT_TRUE(Zent::splitListText(" [ ] ").empty());
  EXPECT_EQ(Zent::splitListText("[1, 2,3]"), (std::vector<std::string_view>{"1", "2", "3"}));
  EXPECT_EQ(Zent::splitListText("[[1, 2], 'a, \\'b', (x, y)]"),
            (std::vector<std::string_view>{"[1, 2]", "'a, \\'b'", "(x, y)"}));
  EXPECT_THROW(Zent::splitListText("1, 2"), ParseError);
  EXPECT_THROW(Zent::splitListText("[1, [2]"), ParseError);
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

TEST(TextTest, QuoteAndUnquoteAreInverse) {
  for (std::string s : {"", "plain", "it's", "back\\slash\\", "'", "\\'"}) {
    EXPECT_EQ(Zent::unquoteText(Zent::quoteText(s)), s) << s;
  }
  EXPECT_THROW(Zent::unquoteText("no quotes"), ParseError);
  EXPECT_TRUE(Zent::parseBoolText(" True"));
  EXPECT_THROW(Zent::parseBoolText("yes"), ParseError);
}

}  // namespace
}  // namespace FrameworkTest
