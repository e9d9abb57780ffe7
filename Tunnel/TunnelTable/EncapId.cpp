#include "Tunnel/TunnelTable/EncapId.h"

#include <utility>

#include "Tunnel/framework/Hash.h"

namespace Tunnel::TunnelTable {

namespace {

constexpr const char* kEncapIdName = "Tunnel::TunnelTable::EncapId";
constexpr uint32_t kLastEncapType = static_cast<uint32_t>(EncapType::vxlanEncap);

struct EncapCliNames {
  const char* display;
  const char* keyword;
};

EncapCliNames encapCliNames(EncapType type) {
  switch (type) {
    case EncapType::none:
      return {"None", "none"};
    case EncapType::labelStackEncap:
      return {"Label Stack", "label-stack"};
    case EncapType::greEncap:
      return {"GRE", "gre"};
    case EncapType::ipsecGreEncap:
      return {"IPsec GRE", "ipsec-gre"};
    case EncapType::ipsecVtiEncap:
      return {"IPsec VTI", "ipsec-vti"};
    case EncapType::vxlanEncap:
      return {"VXLAN", "vxlan"};
  }
  return {"Unknown", "unknown"};
}

}  // namespace

std::string_view stringValue(EncapType type) {
  switch (type) {
    case EncapType::none:
      return "none";
    case EncapType::labelStackEncap:
      return "labelStackEncap";
    case EncapType::greEncap:
      return "greEncap";
    case EncapType::ipsecGreEncap:
      return "ipsecGreEncap";
    case EncapType::ipsecVtiEncap:
      return "ipsecVtiEncap";
    case EncapType::vxlanEncap:
      return "vxlanEncap";
  }
  return "invalidEncapType";
}

bool sequenceToValue(std::string_view text, EncapType& type) {
  for (uint32_t v = 0; v <= kLastEncapType; ++v) {
    auto candidate = static_cast<EncapType>(v);
    if (stringValue(candidate) == text) {
      type = candidate;
      return true;
    }
  }
  return false;
}

std::ostream& operator<<(std::ostream& os, EncapType type) { return os << stringValue(type); }

EncapId::EncapId(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader reader(std::string_view(it.ptr(), static_cast<size_t>(end - it)),
                               kEncapIdName);
  if (reader.fields() != 2) {
    throw Zent::ParseError(
        fmt::format("{}: expected 2 fields, got {}", kEncapIdName, reader.fields()));
  }
  encapType_ = Zent::parseFieldText<EncapType>(reader.field("encapType"), kEncapIdName);
  encapValue_ = Zent::parseFieldText<uint32_t>(reader.field("encapValue"), kEncapIdName);
  it = end;
}

std::string EncapId::typeCliStr(bool keyword) const {
  EncapCliNames names = encapCliNames(encapType_);
  return keyword ? names.keyword : names.display;
}

uint32_t EncapId::hash(uint32_t seed) const {
  // Both words, packed without padding, so equal ids hash equal.
  uint32_t const words[2] = {static_cast<uint32_t>(encapType_), encapValue_};
  return Zent::hashBytes(words, sizeof words, seed);
}

std::string EncapId::stringValue() const {
  Zent::ValueText text(kEncapIdName);
  text.field("encapType", encapType_).field("encapValue", encapValue_);
  return std::move(text).str();
}

}  // namespace Tunnel::TunnelTable
