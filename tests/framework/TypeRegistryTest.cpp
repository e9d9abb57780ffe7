// The type registry seen from code that knows a type only by its name, as
// the state database and the command line do.

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/framework/TypeRegistry.h"
#include "tests/framework/TestEntity.h"

namespace FrameworkTest {
namespace {

using Zent::GenericIf;
using Zent::Ptr;
using Zent::String;

// Renders "<key> -> <member>" for every member of a collection, knowing only
// the names of the entity type and of the collection.
std::vector<std::string> renderCollection(Zent::Entity const* e, std::string_view typeName,
                                          std::string_view collection) {
  GenericIf const* t = Zent::type(typeName);
  GenericIf::AttributeInfo const* attr = t ? t->attribute(collection) : nullptr;
  if (!attr || !attr->collection) return {"no such collection"};
  std::vector<std::string> out;
  for (auto it = t->genericIfIterator(e, attr->id); it->iterNonnull(); it->iterInc()) {
    out.push_back(attr->keyType->genericIfStrRep(it->iterKey()) + " -> " +
                  attr->valueType->genericIfStrRep(it->iterObj()));
  }
  std::sort(out.begin(), out.end());
  return out;
}

class Counter : public Root::NotifieeConst {
 public:
  void portNotify(uint16_t) override { ++notifications; }
  void itemNotify(String const&) override { ++notifications; }
  void handleReady() override { ++notifications; }
  int notifications = 0;
};

class TypeRegistryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    registerTypes();
    root_ = rootFactory("root");
    root_->portIs(80, Payload(1, "http"));
    root_->portIs(443, Payload(2, "it's, quoted"));
    root_->itemIs(itemFactory("x", 3));
    root_->itemIs(itemFactory("y", 4));
    counter_ = Ptr<Counter>(Zent::newTracked<Counter>());
    counter_->notifierIs(root_.ptr());
  }
  void TearDown() override {
    counter_ = nullptr;
    root_ = nullptr;
    EXPECT_EQ(Zent::liveCount<Root>(), 0);
    EXPECT_EQ(Zent::liveCount<Item>(), 0);
  }
  GenericIf const* rootType() const { return Zent::type("FrameworkTest::Root"); }

  Ptr<Root> root_;
  Ptr<Counter> counter_;
};

TEST_F(TypeRegistryTest, RendersEveryMemberOfACollectionKnowingOnlyNames) {
  ASSERT_EQ(root_->fwkType(), rootType());
  EXPECT_EQ(renderCollection(root_.ptr(), "FrameworkTest::Root", "port"),
            (std::vector<std::string>{
                "443 -> Value('FrameworkTest::Payload', ** {'id': 2, 'label': 'it\\'s, quoted'})",
                "80 -> Value('FrameworkTest::Payload', ** {'id': 1, 'label': 'http'})"}));
  EXPECT_EQ(renderCollection(root_.ptr(), "FrameworkTest::Root", "item"),
            (std::vector<std::string>{
                "'x' -> Value('FrameworkTest::Item', ** {'name': 'x', 'weight': 3})",
                "'y' -> Value('FrameworkTest::Item', ** {'name': 'y', 'weight': 4})"}));
  EXPECT_EQ(renderCollection(root_.ptr(), "FrameworkTest::Root", "ready"),
            std::vector<std::string>{"no such collection"});
}

TEST_F(TypeRegistryTest, IterDelRemovesThroughTheMutatorWithOneNotificationEach) {
  GenericIf const* t = rootType();
  int visited = 0;
  for (auto it = t->genericIfIterator(root_.ptr(), Root::kItemId); it->iterNonnull();) {
    ++visited;
    it->iterDel();
  }
  EXPECT_EQ(visited, 2);
  EXPECT_TRUE(root_->items().empty());
  EXPECT_EQ(counter_->notifications, 2);
}

TEST_F(TypeRegistryTest, AttributeOpsFollowTheMutatorRules) {
  GenericIf const* t = rootType();
  using Op = GenericIf::AttributeOp;
  bool ready = true;
  ASSERT_TRUE(t->genericIfAttributeOp(root_.ptr(), Root::kReadyId, Op::set, nullptr, &ready));
  ASSERT_TRUE(t->genericIfAttributeOp(root_.ptr(), Root::kReadyId, Op::set, nullptr, &ready));
  EXPECT_EQ(counter_->notifications, 1);
  bool got = false;
  ASSERT_TRUE(t->genericIfAttributeOp(root_.ptr(), Root::kReadyId, Op::get, nullptr, &got));
  EXPECT_TRUE(got);

  uint16_t const port = 443;
  Zent::GenericValue member(t->attribute(Root::kPortId)->valueType);
  ASSERT_TRUE(t->genericIfAttributeOp(root_.ptr(), Root::kPortId, Op::lookup, &port, member.ptr()));
  EXPECT_EQ(*static_cast<Payload const*>(member.ptr()), Payload(2, "it's, quoted"));
  uint16_t const absent = 1;
  EXPECT_FALSE(
      t->genericIfAttributeOp(root_.ptr(), Root::kPortId, Op::lookup, &absent, member.ptr()));

  ASSERT_TRUE(t->genericIfAttributeOp(root_.ptr(), Root::kPortId, Op::del, &port, nullptr));
  ASSERT_TRUE(t->genericIfAttributeOp(root_.ptr(), Root::kPortId, Op::del, &port, nullptr));
  EXPECT_EQ(counter_->notifications, 2);
  size_t count = 0;
  ASSERT_TRUE(t->genericIfAttributeOp(root_.ptr(), Root::kPortId, Op::count, nullptr, &count));
  EXPECT_EQ(count, 1u);

  Item replacement("x", 9);
  ASSERT_TRUE(t->genericIfAttributeOp(root_.ptr(), Root::kItemId, Op::set, &replacement.name(),
                                      &replacement));
  EXPECT_EQ(root_->item("x")->weight(), 9u);
  EXPECT_EQ(counter_->notifications, 3);
}

TEST_F(TypeRegistryTest, ConstructsAnEntityFromArguments) {
  Ptr<Zent::Entity> e = rootType()->genericIfConstructFromCtorArgs({"made"});
  ASSERT_TRUE(e);
  EXPECT_EQ(e->name(), "made");
  EXPECT_TRUE(e->hasNotificationActive());
  EXPECT_TRUE(Zent::dynamicPtrCast<Root>(e));
}

TEST(TypeRegistryNameTest, RegistrationIsIdempotentByName) {
  registerTypes();
  GenericIf const* first = Zent::type("uint16_t");
  EXPECT_EQ(Zent::registerValueType<uint16_t>("uint16_t"), first);
  EXPECT_EQ(Zent::type("FrameworkTest::NoSuchType"), nullptr);
  EXPECT_EQ(Zent::type(Item::kTypeName)->kind(), GenericIf::Kind::value);
  EXPECT_EQ(Zent::type("FrameworkTest::Root")->kind(), GenericIf::Kind::entity);
}

TEST(TypeRegistryNameTest, MemberTypeWithoutAParseConstructorRefusesToParse) {
  registerTypes();
  GenericIf const* t = Zent::type(Item::kTypeName);
  Item i;
  EXPECT_THROW(t->genericIfStrepToValue(&i, "Value('FrameworkTest::Item', ** {})"),
               std::logic_error);
}

}  // namespace
}  // namespace FrameworkTest
