#pragma once
// What the forwarding side needs to build the outer header of an interface
// tunnel (GRE, IPsec over GRE, IPsec VTI) or an EVPN VXLAN tunnel, as fixed
// records inside interface tunnel entries and the FIB's encapsulations.

#include <cstdint>
#include <ostream>
#include <string>
#include <type_traits>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/net/IpGenAddr.h"

namespace Tunnel {

using Zent::valueToStrep;

// A GRE interface tunnel. Record layout (64 bytes):
//   0 source (IpGenAddr, 20)      20 destination (IpGenAddr, 20)
//  40 key (4)  44 mtu (2)  46 ttl (1)  47 tos (1)
//  48 keyPresent (1)  49 pathMtuDiscovery (1)  50-63 zero
// Flags are bytes holding 0 or 1 so that a foreign record can be checked.
class GreTunnelInfo {
 public:
  static constexpr uint32_t kRecordSize = 64;

  GreTunnelInfo() = default;
  // `ttl` 0 copies the inner packet's TTL. `keyPresent` says whether the GRE
  // key field is sent: key 0 is a valid key.
  GreTunnelInfo(Vorn::IpGenAddr const& source, Vorn::IpGenAddr const& destination, uint32_t key,
                uint16_t mtu, uint8_t ttl, uint8_t tos, bool keyPresent, bool pathMtuDiscovery)
      : source_(source),
        destination_(destination),
        key_(key),
        mtu_(mtu),
        ttl_(ttl),
        tos_(tos),
        keyPresent_(keyPresent ? 1 : 0),
        pathMtuDiscovery_(pathMtuDiscovery ? 1 : 0) {}
  GreTunnelInfo(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  Vorn::IpGenAddr const& source() const { return source_; }
  void sourceIs(Vorn::IpGenAddr const& a) { source_ = a; }
  Vorn::IpGenAddr const& destination() const { return destination_; }
  void destinationIs(Vorn::IpGenAddr const& a) { destination_ = a; }
  uint32_t key() const { return key_; }
  void keyIs(uint32_t key) { key_ = key; }
  uint16_t mtu() const { return mtu_; }
  void mtuIs(uint16_t mtu) { mtu_ = mtu; }
  uint8_t ttl() const { return ttl_; }
  void ttlIs(uint8_t ttl) { ttl_ = ttl; }
  uint8_t tos() const { return tos_; }
  void tosIs(uint8_t tos) { tos_ = tos; }
  bool keyPresent() const { return keyPresent_ != 0; }
  void keyPresentIs(bool b) { keyPresent_ = b ? 1 : 0; }
  bool pathMtuDiscovery() const { return pathMtuDiscovery_ != 0; }
  void pathMtuDiscoveryIs(bool b) { pathMtuDiscovery_ = b ? 1 : 0; }

  bool wellFormed() const;

  friend bool operator==(GreTunnelInfo const&, GreTunnelInfo const&) = default;
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(this, sizeof(*this), seed); }
  // "Value('Tunnel::GreTunnelInfo', ** {'source': ..., 'destination': ..., 'key': ...,
  // 'mtu': ..., 'ttl': ..., 'tos': ..., 'keyPresent': ..., 'pathMtuDiscovery': ...})"
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, GreTunnelInfo const& i) {
    return os << i.stringValue();
  }
  explicit operator bool() const { return *this != GreTunnelInfo(); }

 private:
  Vorn::IpGenAddr source_;
  Vorn::IpGenAddr destination_;
  uint32_t key_ = 0;
  uint16_t mtu_ = 0;
  uint8_t ttl_ = 0;
  uint8_t tos_ = 0;
  uint8_t keyPresent_ = 0;
  uint8_t pathMtuDiscovery_ = 0;
  uint8_t reserved_[14] = {};
};

// GRE protected by IPsec. Record layout (68 bytes): the 64-byte GreTunnelInfo
// record, then the IPsec security association identifier (4 bytes; 0 while
// none is established).
class IpsecGreTunnelInfo {
 public:
  static constexpr uint32_t kRecordSize = 68;

  IpsecGreTunnelInfo() = default;
  IpsecGreTunnelInfo(GreTunnelInfo const& greInfo, uint32_t ipsecSaId)
      : greInfo_(greInfo), ipsecSaId_(ipsecSaId) {}
  IpsecGreTunnelInfo(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  GreTunnelInfo const& greInfo() const { return greInfo_; }
  void greInfoIs(GreTunnelInfo const& i) { greInfo_ = i; }
  uint32_t ipsecSaId() const { return ipsecSaId_; }
  void ipsecSaIdIs(uint32_t id) { ipsecSaId_ = id; }

  bool wellFormed() const { return greInfo_.wellFormed(); }

  friend bool operator==(IpsecGreTunnelInfo const&, IpsecGreTunnelInfo const&) = default;
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(this, sizeof(*this), seed); }
  // "Value('Tunnel::IpsecGreTunnelInfo', ** {'greInfo': ..., 'ipsecSaId': ...})"
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, IpsecGreTunnelInfo const& i) {
    return os << i.stringValue();
  }
  explicit operator bool() const { return *this != IpsecGreTunnelInfo(); }

 private:
  GreTunnelInfo greInfo_;
  uint32_t ipsecSaId_ = 0;
};

// An IPsec virtual tunnel interface. Record layout (48 bytes):
//   0 source (IpGenAddr, 20)   20 destination (IpGenAddr, 20)
//  40 ipsecSaId (4)  44 mtu (2)  46 ttl (1)  47 tos (1)
class IpsecVtiTunnelInfo {
 public:
  static constexpr uint32_t kRecordSize = 48;

  IpsecVtiTunnelInfo() = default;
  IpsecVtiTunnelInfo(Vorn::IpGenAddr const& source, Vorn::IpGenAddr const& destination,
                     uint32_t ipsecSaId, uint16_t mtu, uint8_t ttl, uint8_t tos)
      : source_(source),
        destination_(destination),
        ipsecSaId_(ipsecSaId),
        mtu_(mtu),
        ttl_(ttl),
        tos_(tos) {}
  IpsecVtiTunnelInfo(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  Vorn::IpGenAddr const& source() const { return source_; }
  void sourceIs(Vorn::IpGenAddr const& a) { source_ = a; }
  Vorn::IpGenAddr const& destination() const { return destination_; }
  void destinationIs(Vorn::IpGenAddr const& a) { destination_ = a; }
  uint32_t ipsecSaId() const { return ipsecSaId_; }
  void ipsecSaIdIs(uint32_t id) { ipsecSaId_ = id; }
  uint16_t mtu() const { return mtu_; }
  void mtuIs(uint16_t mtu) { mtu_ = mtu; }
  uint8_t ttl() const { return ttl_; }
  void ttlIs(uint8_t ttl) { ttl_ = ttl; }
  uint8_t tos() const { return tos_; }
  void tosIs(uint8_t tos) { tos_ = tos; }

  bool wellFormed() const { return source_.wellFormed() && destination_.wellFormed(); }

  friend bool operator==(IpsecVtiTunnelInfo const&, IpsecVtiTunnelInfo const&) = default;
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(this, sizeof(*this), seed); }
  // "Value('Tunnel::IpsecVtiTunnelInfo', ** {'source': ..., 'destination': ...,
  // 'ipsecSaId': ..., 'mtu': ..., 'ttl': ..., 'tos': ...})"
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, IpsecVtiTunnelInfo const& i) {
    return os << i.stringValue();
  }
  explicit operator bool() const { return *this != IpsecVtiTunnelInfo(); }

 private:
  Vorn::IpGenAddr source_;
  Vorn::IpGenAddr destination_;
  uint32_t ipsecSaId_ = 0;
  uint16_t mtu_ = 0;
  uint8_t ttl_ = 0;
  uint8_t tos_ = 0;
};

// The VXLAN encapsulation of an EVPN tunnel. Record layout (48 bytes):
//   0 remoteVtep (IpGenAddr, 20)   20 localVtep (IpGenAddr, 20)
//  40 vni (4, 24 bits used)  44 udpPort (2)  46-47 zero
class VxlanTunnelInfo {
 public:
  static constexpr uint32_t kRecordSize = 48;
  static constexpr uint32_t kMaxVni = 0xffffff;
  static constexpr uint16_t kDefaultUdpPort = 4789;  // the IANA VXLAN port

  VxlanTunnelInfo() = default;
  // A VNI above 16777215 throws Zent::RangeException.
  VxlanTunnelInfo(Vorn::IpGenAddr const& remoteVtep, Vorn::IpGenAddr const& localVtep, uint32_t vni,
                  uint16_t udpPort = kDefaultUdpPort);
  VxlanTunnelInfo(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  Vorn::IpGenAddr const& remoteVtep() const { return remoteVtep_; }
  void remoteVtepIs(Vorn::IpGenAddr const& a) { remoteVtep_ = a; }
  Vorn::IpGenAddr const& localVtep() const { return localVtep_; }
  void localVtepIs(Vorn::IpGenAddr const& a) { localVtep_ = a; }
  uint32_t vni() const { return vni_; }
  // Above 16777215 throws Zent::RangeException and keeps the old VNI.
  void vniIs(uint32_t vni);
  uint16_t udpPort() const { return udpPort_; }
  void udpPortIs(uint16_t port) { udpPort_ = port; }

  bool wellFormed() const;

  friend bool operator==(VxlanTunnelInfo const&, VxlanTunnelInfo const&) = default;
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(this, sizeof(*this), seed); }
  // "Value('Tunnel::VxlanTunnelInfo', ** {'remoteVtep': ..., 'localVtep': ...,
  // 'vni': ..., 'udpPort': ...})"
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, VxlanTunnelInfo const& i) {
    return os << i.stringValue();
  }
  explicit operator bool() const { return *this != VxlanTunnelInfo(); }

 private:
  Vorn::IpGenAddr remoteVtep_;
  Vorn::IpGenAddr localVtep_;
  uint32_t vni_ = 0;
  uint16_t udpPort_ = kDefaultUdpPort;
  uint8_t reserved_[2] = {};
};

static_assert(sizeof(GreTunnelInfo) == GreTunnelInfo::kRecordSize);
static_assert(sizeof(IpsecGreTunnelInfo) == IpsecGreTunnelInfo::kRecordSize);
static_assert(sizeof(IpsecVtiTunnelInfo) == IpsecVtiTunnelInfo::kRecordSize);
static_assert(sizeof(VxlanTunnelInfo) == VxlanTunnelInfo::kRecordSize);
static_assert(std::is_trivially_copyable_v<GreTunnelInfo> &&
              std::is_trivially_copyable_v<IpsecGreTunnelInfo> &&
              std::is_trivially_copyable_v<IpsecVtiTunnelInfo> &&
              std::is_trivially_copyable_v<VxlanTunnelInfo>);
static_assert(std::is_standard_layout_v<GreTunnelInfo> &&
              std::is_standard_layout_v<IpsecGreTunnelInfo> &&
              std::is_standard_layout_v<IpsecVtiTunnelInfo> &&
              std::is_standard_layout_v<VxlanTunnelInfo>);

}  // namespace Tunnel
