#include "Tunnel/TunnelRedist/TunnelRedistConfig.h"

#include <vector>

#include "Tunnel/framework/Text.h"
#include "Tunnel/framework/TypeRegistry.h"

namespace Tunnel::TunnelRedist {
namespace {
std::string_view textOf(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  return std::string_view(it.ptr(), static_cast<size_t>(end - it));
}
}  // namespace

TunnelInfo::TunnelInfo(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader r(textOf(it, end), "Tunnel::TunnelRedist::TunnelInfo");
  tunnelId_ = Zent::parseFieldText<TunnelId>(r.field("tunnelId"), "tunnelId");
  igpMetric_ = Zent::parseFieldText<uint32_t>(r.field("igpMetric"), "igpMetric");
  it = end;
}

uint32_t TunnelInfo::hash(uint32_t seed) const {
  return Zent::hashBytes(&igpMetric_, sizeof igpMetric_, tunnelId_.hash(seed));
}

std::string TunnelInfo::stringValue() const {
  return Zent::ValueText("Tunnel::TunnelRedist::TunnelInfo")
      .field("tunnelId", tunnelId_)
      .field("igpMetric", igpMetric_)
      .str();
}

TunnelIdToEndPoint::TunnelIdToEndPoint(Zent::String::IteratorConst& it,
                                       Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader r(textOf(it, end), "Tunnel::TunnelRedist::TunnelIdToEndPoint");
  tunnelId_ = Zent::parseFieldText<TunnelId>(r.field("tunnelId"), "tunnelId");
  tep_ = Zent::parseFieldText<Vorn::IpGenPrefix>(r.field("tep"), "tep");
  it = end;
}

uint32_t TunnelIdToEndPoint::hash(uint32_t seed) const { return tep_.hash(tunnelId_.hash(seed)); }

std::string TunnelIdToEndPoint::stringValue() const {
  return Zent::ValueText("Tunnel::TunnelRedist::TunnelIdToEndPoint")
      .field("tunnelId", tunnelId_)
      .field("tep", tep_)
      .str();
}

TunnelRedistEntry::TunnelRedistEntry(Vorn::IpGenPrefix const& prefix)
    : Entity(Zent::String(prefix.stringValue())), prefix_(prefix) {}

void TunnelRedistEntry::NotifieeConst::onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) {
  if (id == kMemberTunnelInfoId) memberTunnelInfoNotify(key.as<TunnelId>());
}

Zent::Ptr<TunnelRedistEntry> TunnelRedistConfig::entryIs(Vorn::IpGenPrefix const& prefix) {
  if (auto const* e = entry_.find(prefix)) return *e;
  auto e = Zent::newEntity<TunnelRedistEntry>(prefix);
  e->parentIs(this);
  entry_.newMember(prefix, e);
  notify(kEntryId, prefix);
  return e;
}

Zent::Ptr<TunnelRedistEntry> TunnelRedistConfig::entryDel(Vorn::IpGenPrefix const& prefix) {
  Zent::Ptr<TunnelRedistEntry> old;
  if (memberDel(entry_, kEntryId, prefix, &old) && old) old->parentIs(nullptr);
  return old;
}

void TunnelRedistConfig::entryDelAll() {
  std::vector<Vorn::IpGenPrefix> keys;
  for (auto it = entry_.begin(); it != entry_.end(); ++it) keys.push_back(it.key());
  for (auto const& k : keys) entryDel(k);
}

void TunnelRedistConfig::NotifieeConst::onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) {
  if (id == kEntryId) entryNotify(key.as<Vorn::IpGenPrefix>());
}

Zent::Ptr<TunnelRedistConfig> tunnelRedistConfigFactory(Zent::String const& name) {
  return Zent::newEntity<TunnelRedistConfig>(name);
}

void registerTypes() {
  static bool done = [] {
    Zent::registerValueType<TunnelInfo>("Tunnel::TunnelRedist::TunnelInfo");
    Zent::registerValueType<TunnelIdToEndPoint>("Tunnel::TunnelRedist::TunnelIdToEndPoint");
    return true;
  }();
  (void)done;
}

}  // namespace Tunnel::TunnelRedist
