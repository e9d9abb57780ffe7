#include <string>
#include <unordered_set>

#include <gtest/gtest.h>

#include "Tunnel/framework/String.h"

namespace {

using Zent::String;

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
