#include <map>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "Tunnel/framework/FlatHashMap.h"
#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/HashMap2018.h"
#include "Tunnel/framework/Ptr.h"

namespace {

using Zent::Ptr;

// A member of the internal-key form: it carries its own key.
struct Rec : Zent::PtrInterface {
  Rec(uint32_t k, uint32_t v) : key(k), value(v) {}
  uint32_t const key, value;
};
struct RecKeyFunktor {
  uint32_t operator()(Ptr<Rec const> const& r) const { return r->key; }
};

// The two forms, each reduced to a key -> uint32_t model; 0 stands for absent.
struct ExternalKey {
  using Map = Zent::HashMap2018<uint32_t, uint32_t>;
  static uint32_t make(uint32_t, uint32_t v) { return v; }
  static uint32_t valueOf(uint32_t v) { return v; }
};

struct InternalKey {
  using Map = Zent::HashMap2018<uint32_t, Ptr<Rec const>, RecKeyFunktor>;
  static Ptr<Rec const> make(uint32_t k, uint32_t v) {
    return Ptr<Rec const>(Zent::newTracked<Rec>(k, v));
  }
  static uint32_t valueOf(Ptr<Rec const> const& r) { return r ? r->value : 0; }
};

template <typename Form>
class HashMap2018Test : public ::testing::Test {
 protected:
  using Map = typename Form::Map;
  void TearDown() override { EXPECT_EQ(Zent::liveCount<Rec>(), 0); }

  static std::map<uint32_t, uint32_t> contents(Map const& m) {
    std::map<uint32_t, uint32_t> out;
    for (auto it = m.begin(); it != m.end(); ++it) {
      EXPECT_TRUE(out.emplace(it.key(), Form::valueOf(*it)).second) << "key seen twice";
    }
    return out;
  }
};

// The flat map keeps the external-key contract; the identity hash of small
// integers tests that its probes still spread, and the churn its tombstones.
struct FlatExternalKey : ExternalKey {
  using Map = Zent::FlatHashMap<uint32_t, uint32_t>;
};

using Forms = ::testing::Types<ExternalKey, InternalKey, FlatExternalKey>;
TYPED_TEST_SUITE(HashMap2018Test, Forms);

TYPED_TEST(HashMap2018Test, RandomOperationsMatchAStdMapModel) {
  using Form = TypeParam;
  typename TestFixture::Map m;
  std::map<uint32_t, uint32_t> model;
  std::mt19937 rng(20180);
  auto rand = [&rng](uint32_t n) { return static_cast<uint32_t>(rng() % n); };

  for (int step = 0; step < 20000; ++step) {
    uint32_t const k = rand(64);
    uint32_t const v = 1 + rand(1000);
    auto found = model.find(k);
    uint32_t const had = found == model.end() ? 0 : found->second;
    switch (rand(4)) {
      case 0: {  // newMember keeps an existing member
        auto [member, inserted] = m.newMember(k, Form::make(k, v));
        EXPECT_EQ(inserted, had == 0);
        EXPECT_EQ(Form::valueOf(*member), inserted ? v : had);
        if (inserted) model[k] = v;
        break;
      }
      case 1:  // memberIs overwrites
        EXPECT_EQ(Form::valueOf(m.memberIs(k, Form::make(k, v))), v);
        model[k] = v;
        break;
      case 2: {
        typename TestFixture::Map::ValueType old{};
        EXPECT_EQ(m.deleteMember(k, &old), had != 0);
        EXPECT_EQ(Form::valueOf(old), had);
        model.erase(k);
        break;
      }
      default:
        EXPECT_EQ(Form::valueOf(m.lookup(k)), had);
        EXPECT_EQ(m.contains(k), had != 0);
        EXPECT_EQ(m.find(k) != nullptr, had != 0);
    }
    ASSERT_EQ(m.size(), model.size()) << "after step " << step;
    if (step % 500 == 0) {
      ASSERT_EQ(TestFixture::contents(m), model) << "after step " << step;
    }
  }
  ASSERT_EQ(TestFixture::contents(m), model);

  typename TestFixture::Map copy;
  copy = m;
  EXPECT_TRUE(copy == m);
  copy.deleteMember(model.begin()->first);
  EXPECT_FALSE(copy == m);
  EXPECT_EQ(TestFixture::contents(m), model);
}

TYPED_TEST(HashMap2018Test, DeletingTheCurrentMemberStillVisitsEveryMemberOnce) {
  typename TestFixture::Map m;
  for (uint32_t k = 0; k < 300; ++k) m.newMember(k * 7919, TypeParam::make(k * 7919, k + 1));
  std::multiset<uint32_t> visited;
  for (auto it = m.begin(); it != m.end(); ++it) {
    visited.insert(it.key());
    if (it.key() % 3 != 0) m.deleteMember(it.key());
  }
  EXPECT_EQ(visited.size(), 300u);
  EXPECT_EQ(std::set<uint32_t>(visited.begin(), visited.end()).size(), 300u);
  EXPECT_EQ(m.size(), 100u);  // the multiples of 3
  for (auto it = m.begin(); it; ++it) m.deleteMember(it.key());
  EXPECT_TRUE(m.empty());
}

TEST(HashMap2018DeathTest, InternalKeyMemberUnderAnotherKeyAborts) {
  InternalKey::Map m;
  Ptr<Rec const> r = InternalKey::make(1, 10);
  EXPECT_DEATH(m.newMember(2, r), "fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)");
  EXPECT_DEATH(m.memberIs(2, r), "fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)");
  EXPECT_TRUE(m.newMember(r).second);
  EXPECT_EQ(m.lookup(1), r);
}

// Keys are hashed in every process that maps a table: the inline 64-bit form
// must give exactly the byte hash.
TEST(HashTest, InlineU64HashIsTheByteHashOfItsEightBytes) {
  std::mt19937_64 rng(5);
  for (int i = 0; i < 10000; ++i) {
    uint64_t v = rng();
    uint32_t seed = static_cast<uint32_t>(rng());
    ASSERT_EQ(Zent::hashU64(v, seed), Zent::hashBytes(&v, sizeof v, seed));
  }
  uint64_t zero = 0;
  EXPECT_EQ(Zent::hashU64(0), Zent::hashBytes(&zero, 8));
}

}  // namespace
