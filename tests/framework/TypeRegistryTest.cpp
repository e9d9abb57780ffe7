// Values handled by code that knows their type only by name, as the state
// database and the command line do.

#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "Tunnel/framework/TypeRegistry.h"

namespace {

using Zent::GenericIf;
using Zent::String;

// A value that renders but has no parse constructor.
struct Opaque {
  uint32_t v = 0;
  bool operator==(Opaque const&) const = default;
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(&v, sizeof v, seed); }
  std::string stringValue() const { return std::to_string(v); }
};

// String owns shared storage: a wrong construct, copy or destroy through the
// untyped pointers shows as a leak or a double free under the sanitizer.
TEST(TypeRegistryTest, ValueKnownOnlyByNameIsBuiltCopiedComparedRenderedAndParsed) {
  GenericIf const* t = Zent::registerValueType<String>("Zent::String");
  EXPECT_EQ(Zent::registerValueType<String>("Zent::String"), t);  // the first one stays
  EXPECT_EQ(Zent::type("Zent::String"), t);
  EXPECT_EQ(Zent::type("FrameworkTest::NoSuchType"), nullptr);
  EXPECT_EQ(t->genericIfSize(), sizeof(String));

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

TEST(TypeRegistryTest, ValueWithoutAParseConstructorRefusesToParse) {
  GenericIf const* t = Zent::registerValueType<Opaque>("FrameworkTest::Opaque");
  EXPECT_EQ(t->kind(), GenericIf::Kind::value);
  Opaque o{7};
  EXPECT_EQ(t->genericIfStrRep(&o), "7");
  try {
    t->genericIfStrepToValue(&o, "8");
    ADD_FAILURE() << "parsed";
  } catch (std::logic_error const& e) {
    EXPECT_STREQ(e.what(), "FrameworkTest::Opaque: parse not supported by this type");
  }
  EXPECT_EQ(o.v, 7u);
}

}  // namespace
