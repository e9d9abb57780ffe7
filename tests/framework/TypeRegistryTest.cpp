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

}  // namespace
