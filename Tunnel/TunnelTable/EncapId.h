#pragma once
// EncapId names an encapsulation record of the tunnel FIB (label stack, GRE,
// IPsec GRE, IPsec VTI, VXLAN): the kind of encapsulation and a number
// unique within that kind. FIB vias point at encapsulations by it.

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

#include "Tunnel/framework/String.h"
#include "Tunnel/framework/Text.h"

namespace Tunnel::TunnelTable {

using Zent::valueToStrep;

// Scoped: "none" is too common a name to put into the namespace.
enum class EncapType : uint32_t {
  none = 0,
  labelStackEncap = 1,
  greEncap = 2,
  ipsecGreEncap = 3,
  ipsecVtiEncap = 4,
  vxlanEncap = 5,
};

// The enumerator's name; "invalidEncapType" for a number with no enumerator.
std::string_view stringValue(EncapType type);
// Parses an enumerator's name; false (and `type` unchanged) for any other text.
bool sequenceToValue(std::string_view text, EncapType& type);
std::ostream& operator<<(std::ostream& os, EncapType type);

class EncapId {
 public:
  constexpr EncapId() = default;
  constexpr EncapId(EncapType type, uint32_t value) : encapType_(type), encapValue_(value) {}
  // Parses the canonical text; throws Zent::ParseError on any other text.
  EncapId(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  constexpr EncapType encapType() const { return encapType_; }
  constexpr uint32_t encapValue() const { return encapValue_; }
  // Type and value change together: a value means nothing without its type.
  void encapValueIs(EncapType type, uint32_t value) {
    encapType_ = type;
    encapValue_ = value;
  }

  // Name of the encapsulation type. `keyword` has the meaning it has for
  // TunnelId::tunnelTypeToCliStrep: false gives the display name ("IPsec GRE"),
  // true the lower-case command-line keyword ("ipsec-gre").
  std::string typeCliStr(bool keyword) const;

  uint32_t hash(uint32_t seed = 0) const;
  // "Value('Tunnel::TunnelTable::EncapId', ** {'encapType': ..., 'encapValue': ...})"
  std::string stringValue() const;
  explicit constexpr operator bool() const {
    return encapType_ != EncapType::none || encapValue_ != 0;
  }

  friend constexpr bool operator==(EncapId, EncapId) = default;
  // By type, then by value (the order of the members).
  friend constexpr auto operator<=>(EncapId, EncapId) = default;
  friend std::ostream& operator<<(std::ostream& os, EncapId const& id) {
    return os << id.stringValue();
  }

 private:
  EncapType encapType_ = EncapType::none;
  uint32_t encapValue_ = 0;
};

static_assert(sizeof(EncapId) == 8);
static_assert(std::is_trivially_copyable_v<EncapId>);

}  // namespace Tunnel::TunnelTable
