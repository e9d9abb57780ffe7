#include <sstream>
#include <string>
#include <unordered_set>

#include <gtest/gtest.h>

#include "Tunnel/framework/String.h"

namespace {

using Zent::String;

TEST(StringTest, CopiesShareOneStorageAndReleaseIt) {
  String a("tunnel/table/");
  EXPECT_EQ(a.sharedReferences(), 1u);
  {
    String b(a);
    String c;
    c = b;
    EXPECT_EQ(a.sharedReferences(), 3u);
    EXPECT_EQ(c.data(), a.data());
    String d(std::move(c));
    EXPECT_EQ(a.sharedReferences(), 3u);
    EXPECT_TRUE(c.empty());  // NOLINT(bugprone-use-after-move): moved-from is empty by contract
  }
  EXPECT_EQ(a.sharedReferences(), 1u);

  String const& alias = a;
  a = alias;
  EXPECT_EQ(a.sharedReferences(), 1u);
  EXPECT_EQ(a, "tunnel/table/");
}

TEST(StringTest, AssignmentReleasesThePreviousStorage) {
  String a("first");
  String keep(a);
  String b("second");
  a = b;
  EXPECT_EQ(keep.sharedReferences(), 1u);
  EXPECT_EQ(b.sharedReferences(), 2u);
  a = String();
  EXPECT_EQ(b.sharedReferences(), 1u);
}

TEST(StringTest, ConcatenationBuildsANewString) {
  String base("tunnel/table/");
  String path = base + "ldp";
  EXPECT_EQ(path, "tunnel/table/ldp");
  EXPECT_EQ(base, "tunnel/table/");
  EXPECT_EQ(base.sharedReferences(), 1u);
  EXPECT_EQ(String() + "x", "x");
  EXPECT_EQ(base + String(), base);
  EXPECT_EQ(path.c_str()[path.size()], '\0');
}

TEST(StringTest, EmbeddedNulIsKeptByLength) {
  String s("a\0b", 3);
  EXPECT_EQ(s.size(), 3u);
  EXPECT_NE(s, String("a"));
  EXPECT_EQ(s.view(), std::string_view("a\0b", 3));
}

TEST(StringTest, IteratorWalksEveryCharacter) {
  String s("abc");
  std::string seen;
  for (auto it = s.begin(); it != s.end(); ++it) seen += *it;
  EXPECT_EQ(seen, "abc");
  EXPECT_EQ(s.end() - s.begin(), 3);
  EXPECT_EQ(String(s.begin() + 1, s.end()), "bc");
  EXPECT_TRUE(String(s.end(), s.begin()).empty());
}

TEST(StringTest, ComparesByContent) {
  EXPECT_EQ(String("abc"), String(std::string("abc")));
  EXPECT_LT(String("abc"), String("abd"));
  EXPECT_LT(String("ab"), String("abc"));
  EXPECT_LT(String(), String("a"));
  EXPECT_GT(String("b"), String("abc"));
}

TEST(StringTest, EqualStringsHashEqual) {
  String a("ldp");
  String b(std::string("l") + "dp");
  ASSERT_NE(a.data(), b.data());
  EXPECT_EQ(a.hash(), b.hash());
  EXPECT_EQ(a.hash(7), b.hash(7));
  EXPECT_NE(a.hash(), String("rsvp").hash());

  std::unordered_set<uint32_t> hashes;
  for (int i = 0; i < 1000; ++i) hashes.insert(String(std::to_string(i)).hash());
  EXPECT_GT(hashes.size(), 990u);
}

TEST(StringTest, EmptyStringHasNoStorageButBehavesAsEmptyText) {
  for (String const& s : {String(), String(""), String(nullptr), String(std::string())}) {
    EXPECT_TRUE(s.empty());
    EXPECT_EQ(s.sharedReferences(), 0u);
    EXPECT_STREQ(s.c_str(), "");
    EXPECT_EQ(s.begin(), s.end());
    EXPECT_EQ(s, String());
    EXPECT_EQ(s.hash(), String().hash());
  }
  std::ostringstream os;
  os << String() << String("x");
  EXPECT_EQ(os.str(), "x");
}

}  // namespace
