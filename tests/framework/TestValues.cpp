#include "tests/framework/TestValues.h"

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/Text.h"

namespace FrameworkTest {

Payload::Payload(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader reader(std::string_view(it.ptr(), static_cast<size_t>(end - it)),
                               kTypeName);
  id_ = Zent::parseFieldText<uint32_t>(reader.field("id"), kTypeName);
  label_ = Zent::parseFieldText<Zent::String>(reader.field("label"), kTypeName);
  it = end;
}

uint32_t Payload::hash(uint32_t seed) const {
  return label_.hash(Zent::hashBytes(&id_, sizeof(id_), seed));
}

std::string Payload::stringValue() const {
  return Zent::ValueText(kTypeName).field("id", id_).field("label", label_).str();
}

}  // namespace FrameworkTest
