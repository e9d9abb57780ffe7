// One contract for the value operations every registered value type offers
// through untyped pointers.

#include <cstddef>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "Tunnel/framework/Text.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "tests/framework/TestEntity.h"

namespace FrameworkTest {
namespace {

using Zent::GenericIf;
using Zent::String;

// Per type: its registered name, a value other than the default, and its text.
template <typename T>
struct Sample;
template <>
struct Sample<bool> {
  static constexpr const char* name = "bool";
  static bool value() { return true; }
  static constexpr const char* text = "true";
};
template <>
struct Sample<uint16_t> {
  static constexpr const char* name = "uint16_t";
  static uint16_t value() { return 4789; }
  static constexpr const char* text = "4789";
};
template <>
struct Sample<String> {
  static constexpr const char* name = "Zent::String";
  static String value() { return String("a 'b', \\c"); }
  static constexpr const char* text = "'a \\'b\\', \\\\c'";
};
template <>
struct Sample<Payload> {
  static constexpr const char* name = "FrameworkTest::Payload";
  static Payload value() { return Payload(7, "x, 'y'"); }
  static constexpr const char* text =
      "Value('FrameworkTest::Payload', ** {'id': 7, 'label': 'x, \\'y\\''})";
};

// Raw storage for one object of a type known at run time.
class Slot {
 public:
  explicit Slot(GenericIf const* t)
      : mem_(new std::max_align_t[t->genericIfSize() / sizeof(std::max_align_t) + 1]) {}
  void* ptr() { return mem_.get(); }

 private:
  std::unique_ptr<std::max_align_t[]> mem_;
};

template <typename T>
class TypeImplTest : public ::testing::Test {
 protected:
  void SetUp() override {
    registerTypes();
    type_ = Zent::type(Sample<T>::name);
    ASSERT_NE(type_, nullptr);
  }
  static T const& as(void* p) { return *static_cast<T const*>(p); }
  GenericIf const* type_ = nullptr;
};

using ValueTypes = ::testing::Types<bool, uint16_t, String, Payload>;
TYPED_TEST_SUITE(TypeImplTest, ValueTypes);

TYPED_TEST(TypeImplTest, ConstructsCopiesComparesAndHashesThroughVoidPointers) {
  GenericIf const* t = this->type_;
  TypeParam const sample = Sample<TypeParam>::value();
  EXPECT_EQ(t->genericIfSize(), sizeof(TypeParam));

  Slot a(t), b(t);
  t->genericIfConstruct(a.ptr());
  EXPECT_EQ(this->as(a.ptr()), TypeParam());
  t->genericIfConstruct(b.ptr(), &sample);
  EXPECT_EQ(this->as(b.ptr()), sample);
  EXPECT_FALSE(t->genericIfEqual(a.ptr(), b.ptr()));

  t->genericIfVoidPtrIs(a.ptr(), b.ptr());
  EXPECT_TRUE(t->genericIfEqual(a.ptr(), b.ptr()));
  EXPECT_EQ(t->genericIfHash(a.ptr()), t->genericIfHash(&sample));
  t->genericIfDestruct(a.ptr());
  t->genericIfDestruct(b.ptr());
}

TYPED_TEST(TypeImplTest, RendersAndParsesTheCanonicalText) {
  GenericIf const* t = this->type_;
  TypeParam const sample = Sample<TypeParam>::value();
  EXPECT_EQ(t->genericIfStrRep(&sample), Sample<TypeParam>::text);

  Zent::GenericValue v(t);
  t->genericIfStrepToValue(v.ptr(), Sample<TypeParam>::text);
  EXPECT_EQ(this->as(v.ptr()), sample);
  EXPECT_EQ(v.strRep(), Sample<TypeParam>::text);

  // Bad text leaves the object as it was.
  EXPECT_THROW(t->genericIfStrepToValue(v.ptr(), "Value('Other', ** {})"), Zent::ParseError);
  EXPECT_EQ(this->as(v.ptr()), sample);
}

}  // namespace
}  // namespace FrameworkTest
