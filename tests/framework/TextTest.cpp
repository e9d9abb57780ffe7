// Text in both directions, values known only by their type's name, and the
// shared string they are made of.

#include <memory>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/framework/String.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "tests/net/ErrorText.h"

namespace {

using Vorn::test::errorOf;
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
  EXPECT_EQ(errorOf<ParseError>([&] { Zent::strepToValue<Node>(String(v + "'name': 'a, b'})")); }),
            "FrameworkTest::Node: field 'id' missing");
  // The pieces the readers are made of: unbalanced lists, unquoted strings, other bools.
  EXPECT_THROW(Zent::splitListText("1, 2"), ParseError);
  EXPECT_THROW(Zent::splitListText("[1, [2]"), ParseError);
  EXPECT_THROW(Zent::unquoteText("no quotes"), ParseError);
  EXPECT_TRUE(Zent::parseBoolText(" True"));
  EXPECT_THROW(Zent::parseBoolText("yes"), ParseError);
}

TEST(TextTest, ParseUnsignedTextAcceptsOnlyWholeNumbersThatFit) {
  EXPECT_EQ(Zent::parseUnsignedText<uint8_t>(" 255 ", "pref"), 255u);
  EXPECT_EQ(Zent::parseUnsignedText<uint32_t>("0x2A", "id"), 42u);
  EXPECT_EQ(Zent::parseUnsignedText<uint64_t>("18446744073709551615", "id"), ~uint64_t{0});
  for (char const* bad : {"", "256", "-1", "+1", "12x", "0x", "0xg", "1 2", "1.0"}) {
    EXPECT_THROW(Zent::parseUnsignedText<uint8_t>(bad, "pref"), ParseError) << bad;
  }
  EXPECT_EQ(errorOf<ParseError>([] {
              Zent::parseUnsignedText<uint8_t>("300", "Tunnel::TunnelTable::TunnelEntryPref");
            }),
            "Tunnel::TunnelTable::TunnelEntryPref: '300' is not an unsigned number that fits");
}

// Values handled by code that knows their type only by name, as the state
// database and the command line do.
using Zent::GenericIf;

// String owns shared storage: a wrong construct, copy or destroy through the
// untyped pointers shows as a leak or a double free under the sanitizer.
TEST(TypeRegistryTest, ValueKnownOnlyByNameIsBuiltCopiedComparedRenderedAndParsed) {
  GenericIf const* t = Zent::registerValueType<String>("Zent::String");
  EXPECT_EQ(Zent::registerValueType<String>("Zent::String"), t);  // the first one stays
  EXPECT_EQ(Zent::type("Zent::String"), t);
  EXPECT_EQ(Zent::type("FrameworkTest::NoSuchType"), nullptr);

  String const sample("a 'b', \\c");
  char const* const text = "'a \\'b\\', \\\\c'";
  alignas(String) unsigned char copy[sizeof(String)];
  t->genericIfConstruct(copy, &sample);
  EXPECT_EQ(sample.sharedReferences(), 2u);
  Zent::GenericValue v(t);
  EXPECT_FALSE(t->genericIfEqual(v.ptr(), copy));
  t->genericIfVoidPtrIs(v.ptr(), copy);
  EXPECT_TRUE(t->genericIfEqual(v.ptr(), &sample));
  EXPECT_EQ(t->genericIfHash(v.ptr()), sample.hash());
  t->genericIfDestruct(copy);
  EXPECT_EQ(sample.sharedReferences(), 2u);  // v and sample

  EXPECT_EQ(v.strRep(), text);
  Zent::GenericValue parsed(t);
  t->genericIfStrepToValue(parsed.ptr(), text);
  EXPECT_EQ(*static_cast<String const*>(parsed.ptr()), sample);
  // Bad text leaves the object as it was.
  EXPECT_THROW(t->genericIfStrepToValue(parsed.ptr(), "'open"), Zent::ParseError);
  EXPECT_EQ(*static_cast<String const*>(parsed.ptr()), sample);
}

TEST(StringTest, CopiesShareOneStorageAndReleaseIt) {
  String a("tunnel/table/");
  {
    String b(a);
    String c("other");
    String keep(c);
    c = b;  // releases "other"
    EXPECT_EQ(keep.sharedReferences(), 1u);
    EXPECT_EQ(a.sharedReferences(), 3u);
    String d(std::move(c));
    EXPECT_EQ(a.sharedReferences(), 3u);
    EXPECT_TRUE(c.empty());   // NOLINT(bugprone-use-after-move): moved-from is empty by contract
    String path = d + "ldp";  // a new string; the operand is untouched
    EXPECT_EQ(path, "tunnel/table/ldp");
    EXPECT_EQ(path.c_str()[path.size()], '\0');
  }
  String const& alias = a;
  a = alias;
  EXPECT_EQ(a.sharedReferences(), 1u);
  EXPECT_EQ(a, "tunnel/table/");
}

TEST(StringTest, ComparesAndHashesByContentIncludingEmbeddedNul) {
  EXPECT_LT(String("abc"), String("abd"));
  EXPECT_LT(String("ab"), String("abc"));
  EXPECT_NE(String("a\0b", 3), String("a"));
  String a("ldp");
  String b(std::string("l") + "dp");  // separate storage
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.hash(7), b.hash(7));
  std::unordered_set<uint32_t> hashes;
  for (int i = 0; i < 1000; ++i) hashes.insert(String(std::to_string(i)).hash());
  EXPECT_GT(hashes.size(), 990u);
  EXPECT_EQ(String(a.begin() + 1, a.end()), "dp");  // parse constructors cut by iterators
  EXPECT_TRUE(String(a.end(), a.begin()).empty());
}

TEST(StringTest, EmptyStringHasNoStorageButBehavesAsEmptyText) {
  for (String const& s : {String(), String(""), String(nullptr), String(std::string())}) {
    EXPECT_EQ(s.sharedReferences(), 0u);
    EXPECT_STREQ(s.c_str(), "");
    EXPECT_EQ(s.begin(), s.end());
    EXPECT_EQ(s, String());
    EXPECT_EQ(s.hash(), String().hash());
  }
}

}  // namespace
