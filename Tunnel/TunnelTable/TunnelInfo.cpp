#include "Tunnel/TunnelTable/TunnelInfo.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "Tunnel/framework/Range.h"

namespace Tunnel {

namespace {

constexpr const char* kGreName = "Tunnel::GreTunnelInfo";
constexpr const char* kIpsecGreName = "Tunnel::IpsecGreTunnelInfo";
constexpr const char* kIpsecVtiName = "Tunnel::IpsecVtiTunnelInfo";
constexpr const char* kVxlanName = "Tunnel::VxlanTunnelInfo";

Zent::ValueTextReader readFields(Zent::String::IteratorConst const& it,
                                 Zent::String::IteratorConst const& end, const char* typeName,
                                 size_t fields) {
  Zent::ValueTextReader reader(std::string_view(it.ptr(), static_cast<size_t>(end - it)), typeName);
  if (reader.fields() != fields) {
    throw Zent::ParseError(
        fmt::format("{}: expected {} fields, got {}", typeName, fields, reader.fields()));
  }
  return reader;
}

template <typename T>
T field(Zent::ValueTextReader const& reader, std::string_view name, const char* typeName) {
  return Zent::parseFieldText<T>(reader.field(name), typeName);
}

template <size_t N>
bool allZero(uint8_t const (&bytes)[N]) {
  return std::all_of(bytes, bytes + N, [](uint8_t b) { return b == 0; });
}

}  // namespace

GreTunnelInfo::GreTunnelInfo(Zent::String::IteratorConst& it,
                             Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader r = readFields(it, end, kGreName, 8);
  source_ = field<Vorn::IpGenAddr>(r, "source", kGreName);
  destination_ = field<Vorn::IpGenAddr>(r, "destination", kGreName);
  key_ = field<uint32_t>(r, "key", kGreName);
  mtu_ = field<uint16_t>(r, "mtu", kGreName);
  ttl_ = field<uint8_t>(r, "ttl", kGreName);
  tos_ = field<uint8_t>(r, "tos", kGreName);
  keyPresentIs(field<bool>(r, "keyPresent", kGreName));
  pathMtuDiscoveryIs(field<bool>(r, "pathMtuDiscovery", kGreName));
  it = end;
}

bool GreTunnelInfo::wellFormed() const {
  return source_.wellFormed() && destination_.wellFormed() && keyPresent_ <= 1 &&
         pathMtuDiscovery_ <= 1 && allZero(reserved_);
}

std::string GreTunnelInfo::stringValue() const {
  Zent::ValueText text(kGreName);
  text.field("source", source_)
      .field("destination", destination_)
      .field("key", key_)
      .field("mtu", mtu_)
      .field("ttl", ttl_)
      .field("tos", tos_)
      .field("keyPresent", keyPresent())
      .field("pathMtuDiscovery", pathMtuDiscovery());
  return std::move(text).str();
}

IpsecGreTunnelInfo::IpsecGreTunnelInfo(Zent::String::IteratorConst& it,
                                       Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader r = readFields(it, end, kIpsecGreName, 2);
  greInfo_ = field<GreTunnelInfo>(r, "greInfo", kIpsecGreName);
  ipsecSaId_ = field<uint32_t>(r, "ipsecSaId", kIpsecGreName);
  it = end;
}

std::string IpsecGreTunnelInfo::stringValue() const {
  Zent::ValueText text(kIpsecGreName);
  text.field("greInfo", greInfo_).field("ipsecSaId", ipsecSaId_);
  return std::move(text).str();
}

IpsecVtiTunnelInfo::IpsecVtiTunnelInfo(Zent::String::IteratorConst& it,
                                       Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader r = readFields(it, end, kIpsecVtiName, 6);
  source_ = field<Vorn::IpGenAddr>(r, "source", kIpsecVtiName);
  destination_ = field<Vorn::IpGenAddr>(r, "destination", kIpsecVtiName);
  ipsecSaId_ = field<uint32_t>(r, "ipsecSaId", kIpsecVtiName);
  mtu_ = field<uint16_t>(r, "mtu", kIpsecVtiName);
  ttl_ = field<uint8_t>(r, "ttl", kIpsecVtiName);
  tos_ = field<uint8_t>(r, "tos", kIpsecVtiName);
  it = end;
}

std::string IpsecVtiTunnelInfo::stringValue() const {
  Zent::ValueText text(kIpsecVtiName);
  text.field("source", source_)
      .field("destination", destination_)
      .field("ipsecSaId", ipsecSaId_)
      .field("mtu", mtu_)
      .field("ttl", ttl_)
      .field("tos", tos_);
  return std::move(text).str();
}

VxlanTunnelInfo::VxlanTunnelInfo(Vorn::IpGenAddr const& remoteVtep,
                                 Vorn::IpGenAddr const& localVtep, uint32_t vni, uint16_t udpPort)
    : remoteVtep_(remoteVtep), localVtep_(localVtep), udpPort_(udpPort) {
  vniIs(vni);
}

VxlanTunnelInfo::VxlanTunnelInfo(Zent::String::IteratorConst& it,
                                 Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader r = readFields(it, end, kVxlanName, 4);
  remoteVtep_ = field<Vorn::IpGenAddr>(r, "remoteVtep", kVxlanName);
  localVtep_ = field<Vorn::IpGenAddr>(r, "localVtep", kVxlanName);
  vniIs(field<uint32_t>(r, "vni", kVxlanName));
  udpPort_ = field<uint16_t>(r, "udpPort", kVxlanName);
  it = end;
}

void VxlanTunnelInfo::vniIs(uint32_t vni) {
  if (vni > kMaxVni) {
    Zent::throwRangeException(
        fmt::format("Tunnel::VxlanTunnelInfo::vni < 0 or > {} not allowed, got {}", kMaxVni, vni));
  }
  vni_ = vni;
}

bool VxlanTunnelInfo::wellFormed() const {
  return remoteVtep_.wellFormed() && localVtep_.wellFormed() && vni_ <= kMaxVni &&
         allZero(reserved_);
}

std::string VxlanTunnelInfo::stringValue() const {
  Zent::ValueText text(kVxlanName);
  text.field("remoteVtep", remoteVtep_)
      .field("localVtep", localVtep_)
      .field("vni", vni_)
      .field("udpPort", udpPort_);
  return std::move(text).str();
}

}  // namespace Tunnel
