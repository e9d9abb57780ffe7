#pragma once
// Decapsulation configuration: the named groups of destination addresses on
// which the device terminates tunnels, and the payload each UDP destination
// port carries. Written by configuration agents into the state database,
// read by the forwarding agents.

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "Tunnel/TunnelTable/Indexes.h"
#include "Tunnel/config/ConfigPaths.h"
#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/HashMap2018.h"
#include "Tunnel/framework/PodArray.h"
#include "Tunnel/framework/Ptr.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/net/IpGenPrefix.h"
#include "Tunnel/shmem/Keepdb/Keepdb.h"

namespace Tunnel::Decap {

// What follows the UDP header on a port: the payload the decapsulator hands on.
enum class PayloadType : uint8_t {
  unknown = 0,
  ipv4 = 1,
  ipv6 = 2,
  ip = 3,
  mpls = 4,
  ethernet = 5
};
std::string_view payloadTypeName(PayloadType t);
// False for text that names no payload ("unknown" included: it is no choice).
bool parsePayloadType(std::string_view text, PayloadType& out);
// Records from another process hold a byte; only these are payload types.
inline bool keepdbValid(PayloadType t) { return static_cast<uint8_t>(t) <= 5; }
inline std::string_view stringValue(PayloadType t) { return payloadTypeName(t); }
bool sequenceToValue(std::string_view text, PayloadType& out);

// The tunnel encapsulation a group terminates.
enum class DecapTunnelType : uint8_t { unknown = 0, gre = 1, ipip = 2, udp = 3 };
std::string_view decapTunnelTypeName(DecapTunnelType t);
bool parseDecapTunnelType(std::string_view text, DecapTunnelType& out);
inline bool keepdbValid(DecapTunnelType t) { return static_cast<uint8_t>(t) <= 3; }
inline std::string_view stringValue(DecapTunnelType t) { return decapTunnelTypeName(t); }
bool sequenceToValue(std::string_view text, DecapTunnelType& out);

struct DecapIpIndexTraits {
  using Rep = uint16_t;
  static constexpr Rep min = 0, max = 599, defaultValue = 0;
  static constexpr const char* typeName = "Tunnel::Decap::DecapIpIndex";
};
// Index of a group's destination list (capacity 600).
using DecapIpIndex = TunnelTable::BoundedIndex<DecapIpIndexTraits>;

// A decapsulation group. Config holds it as Ptr<DecapGroup const> (hence the
// PtrInterface base), but it is a value in every other respect: copies carry
// the fields and start with no references of their own.
class DecapGroup : public Zent::PtrInterface {
 public:
  static constexpr const char* kTypeName = "Tunnel::Decap::DecapGroup";
  // The name is the group's key in the state database (61 bytes at most).
  static constexpr size_t kMaxNameLen = 60;
  static constexpr uint32_t kMaxDecapIp = 600;
  using DecapIpArray = Zent::PodArray<Vorn::IpGenPrefix, DecapIpIndex, kMaxDecapIp, 0>;

  DecapGroup() = default;
  DecapGroup(Zent::String const& name, DecapTunnelType tunnelType)
      : name_(name), tunnelType_(tunnelType) {}
  // Parses the canonical text.
  DecapGroup(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);
  DecapGroup(DecapGroup const& o) = default;
  DecapGroup& operator=(DecapGroup const& o) = default;

  Zent::String const& name() const { return name_; }
  DecapTunnelType tunnelType() const { return tunnelType_; }
  void tunnelTypeIs(DecapTunnelType t) { tunnelType_ = t; }

  // The destination addresses (as /32 or /128) or prefixes the group accepts.
  DecapIpArray const& decapIp() const { return decapIp_; }
  uint32_t decapIpCount() const { return decapIp_.count(); }
  // Setting past the end grows the list, with default prefixes in the gap.
  void decapIpIs(DecapIpIndex i, Vorn::IpGenPrefix const& p) { decapIp_.memberIs(i, p); }
  void decapIpDelAll() { decapIp_.clear(); }

  bool operator==(DecapGroup const& o) const {
    return name_ == o.name_ && tunnelType_ == o.tunnelType_ && decapIp_ == o.decapIp_;
  }
  explicit operator bool() const { return !(*this == DecapGroup()); }
  uint32_t hash(uint32_t seed = 0) const;
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, DecapGroup const& g) {
    return os << g.stringValue();
  }

  // 1 to 60 characters of A-Z a-z 0-9 _ . : -
  static bool validName(std::string_view name);

  // Record: u8 tunnelType, u8 nameLen, the name, u32 count, count prefix
  // records. keepdbFromRecord refuses anything else and leaves `out` alone.
  void keepdbRecord(std::string& out) const;
  static bool keepdbFromRecord(std::string_view rec, DecapGroup& out);
  static constexpr uint32_t kMaxRecord =
      2 + kMaxNameLen + 4 + kMaxDecapIp * Vorn::IpGenPrefix::kRecordSize;

 private:
  Zent::String name_;
  DecapTunnelType tunnelType_ = DecapTunnelType::unknown;
  DecapIpArray decapIp_;
};

// A group held for Config: a new counted copy of `g`.
Zent::Ptr<DecapGroup const> DecapGroupIs(DecapGroup const& g);

struct DecapGroupKeyFunktor {
  Zent::String operator()(Zent::Ptr<DecapGroup const> const& g) const { return g->name(); }
};

class Config : public Zent::Entity {
 public:
  static constexpr Zent::AttributeId kGlobalDestPortToPayloadTypeId = 258;
  static constexpr Zent::AttributeId kDecapGroupId = 259;
  static constexpr Zent::AttributeId kReadyId = 260;
  static constexpr const char* kTypeName = "Tunnel::Decap::Config";
  using PortMap = Zent::HashMap2018<uint16_t, PayloadType>;
  using GroupMap =
      Zent::HashMap2018<Zent::String, Zent::Ptr<DecapGroup const>, DecapGroupKeyFunktor>;

  Config() = default;
  Zent::GenericIf const* fwkType() const override;

  // unknown when the port has no mapping.
  PayloadType globalDestPortToPayloadType(uint16_t port) const {
    return globalDestPortToPayloadType_.lookup(port);
  }
  PortMap const& globalDestPortToPayloadTypes() const { return globalDestPortToPayloadType_; }
  void globalDestPortToPayloadTypeIs(uint16_t port, PayloadType t) {
    memberIs(globalDestPortToPayloadType_, kGlobalDestPortToPayloadTypeId, port, t);
  }
  void globalDestPortToPayloadTypeDel(uint16_t port) {
    memberDel(globalDestPortToPayloadType_, kGlobalDestPortToPayloadTypeId, port);
  }
  void globalDestPortToPayloadTypeDelAll() {
    memberDelAll(globalDestPortToPayloadType_, kGlobalDestPortToPayloadTypeId);
  }

  // Null when there is no such group.
  Zent::Ptr<DecapGroup const> decapGroup(Zent::String const& name) const {
    return decapGroup_.lookup(name);
  }
  GroupMap const& decapGroups() const { return decapGroup_; }
  // Stores the group under its own name; no notification when an equal group
  // is stored. A name that validName refuses throws Zent::RangeException: it
  // could not be kept in the state database.
  void decapGroupIs(Zent::Ptr<DecapGroup const> const& g);
  // The removed group, or null (and no notification) when there was none.
  Zent::Ptr<DecapGroup const> decapGroupDel(Zent::String const& name);
  void decapGroupDelAll() { memberDelAll(decapGroup_, kDecapGroupId); }

  // Set by the writer once the configuration is complete.
  bool ready() const { return ready_; }
  void readyIs(bool r) { attributeIs(ready_, r, kReadyId); }

  class NotifieeConst : public Zent::PtrInterface::NotifieeConst {
   public:
    virtual void globalDestPortToPayloadTypeNotify(uint16_t) {}
    virtual void decapGroupNotify(Zent::String const&) {}
    virtual void handleReady() {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override;
  };

 private:
  PortMap globalDestPortToPayloadType_;
  GroupMap decapGroup_;
  bool ready_ = false;
};

Zent::Ptr<Config> configFactory();
inline Zent::Ptr<Config> ConfigIs() { return configFactory(); }

// How the state database keeps a Config.
Keepdb::Schema const& configSchema();

// DecapGroup, DecapIpIndex and the Config entity type.
void registerTypes();

}  // namespace Tunnel::Decap
