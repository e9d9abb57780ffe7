#include "Tunnel/config/NexthopGroupConfig.h"

#include <cstring>
#include <utility>

#include "Tunnel/TunnelTable/RecordIo.h"
#include "Tunnel/config/ConfigName.h"
#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "Tunnel/net/NetTypes.h"

namespace Tunnel::NexthopGroup {

NexthopGroupTunnelConfigEntry::NexthopGroupTunnelConfigEntry(
    Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  std::string_view const text(it.ptr(), static_cast<size_t>(end - it));
  Zent::ValueTextReader r(text, kTypeName);
  prefix_ = Zent::parseFieldText<Vorn::IpGenPrefix>(r.field("prefix"), "prefix");
  nhgName_ = Zent::parseFieldText<Zent::String>(r.field("nhgName"), "nhgName");
  igpPref_ = Zent::parseFieldText<uint32_t>(r.field("igpPref"), "igpPref");
  igpMetric_ = Zent::parseFieldText<uint32_t>(r.field("igpMetric"), "igpMetric");
  it = end;
}

uint32_t NexthopGroupTunnelConfigEntry::hash(uint32_t seed) const {
  uint32_t h = prefix_.hash(seed);
  h = Zent::hashBytes(nhgName_.view().data(), nhgName_.size(), h);
  h = Zent::hashBytes(&igpPref_, sizeof igpPref_, h);
  return Zent::hashBytes(&igpMetric_, sizeof igpMetric_, h);
}

std::string NexthopGroupTunnelConfigEntry::stringValue() const {
  return Zent::ValueText(kTypeName)
      .field("prefix", prefix_)
      .field("nhgName", nhgName_)
      .field("igpPref", igpPref_)
      .field("igpMetric", igpMetric_)
      .str();
}

bool NexthopGroupTunnelConfigEntry::validName(std::string_view name) {
  return Tunnel::Config::validConfigName(name, kMaxNameLen);
}

void NexthopGroupTunnelConfigEntry::keepdbRecord(std::string& out) const {
  auto const nameLen = static_cast<uint8_t>(nhgName_.size());
  out.assign(reinterpret_cast<char const*>(&prefix_), sizeof prefix_);
  out.append(reinterpret_cast<char const*>(&igpPref_), sizeof igpPref_);
  out.append(reinterpret_cast<char const*>(&igpMetric_), sizeof igpMetric_);
  out.append(reinterpret_cast<char const*>(&nameLen), sizeof nameLen);
  out.append(nhgName_.view());
}

bool NexthopGroupTunnelConfigEntry::keepdbFromRecord(std::string_view rec,
                                                     NexthopGroupTunnelConfigEntry& out) {
  TunnelTable::RecordReader r(rec.data(), rec.size());
  NexthopGroupTunnelConfigEntry e;
  uint8_t nameLen = 0;
  r.get(e.prefix_);  // checked with wellFormed()
  r.get(e.igpPref_);
  r.get(e.igpMetric_);
  r.get(nameLen);
  auto const* name = r.bytes(nameLen);
  if (!r.ok() || r.offset() != rec.size()) return false;
  std::string_view const nameText(reinterpret_cast<char const*>(name), nameLen);
  if (!validName(nameText)) return false;
  e.nhgName_ = Zent::String(nameText);
  out = e;
  return true;
}

void Config::entryIs(NexthopGroupTunnelConfigEntry const& e) {
  Tunnel::Config::requireConfigName("Tunnel::NexthopGroup::NexthopGroupTunnelConfigEntry::nhgName",
                                    e.nhgName().view(), NexthopGroupTunnelConfigEntry::kMaxNameLen);
  memberIs(entry_, kEntryId, e.prefix(), e);
}

void Config::NotifieeConst::onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) {
  if (id == kEntryId) entryNotify(key.as<Vorn::IpGenPrefix>());
}

Zent::Ptr<Config> configFactory() { return Zent::newEntity<Config>(); }

Zent::GenericIf const* Config::fwkType() const {
  registerTypes();
  static Zent::GenericIf const* const t = Zent::type(kTypeName);
  return t;
}

namespace {

class ConfigType : public Zent::GenericIf {
 public:
  ConfigType() : GenericIf(Config::kTypeName, Kind::entity) {
    attributeIs({Config::kEntryId, "entry", true, Zent::type("Vorn::IpGenPrefix"),
                 Zent::type(NexthopGroupTunnelConfigEntry::kTypeName)});
  }

  Zent::Ptr<Zent::Entity> newEntityForDir(Zent::String const&) const override {
    return configFactory();  // a configuration root has no name
  }

  bool genericIfAttributeOp(Zent::Entity* e, Zent::AttributeId id, AttributeOp op, void const* key,
                            void* value) const override {
    auto* c = dynamic_cast<Config*>(e);
    if (!c || id != Config::kEntryId) return false;
    switch (op) {
      case AttributeOp::lookup: {
        auto const* v = c->entries().find(*static_cast<Vorn::IpGenPrefix const*>(key));
        if (!v) return false;
        *static_cast<NexthopGroupTunnelConfigEntry*>(value) = *v;
        return true;
      }
      case AttributeOp::del:
        c->entryDel(*static_cast<Vorn::IpGenPrefix const*>(key));
        return true;
      case AttributeOp::count:
        *static_cast<size_t*>(value) = c->entries().size();
        return true;
      default:
        return false;
    }
  }

  std::unique_ptr<Zent::GenericIterator> genericIfIterator(Zent::Entity const* e,
                                                           Zent::AttributeId id) const override {
    // The iterator removes through the entity's own mutator.
    auto* c = const_cast<Config*>(dynamic_cast<Config const*>(e));  // NOLINT
    if (!c || id != Config::kEntryId) return nullptr;
    return Zent::collectionIterator(c->entries(),
                                    [c](Vorn::IpGenPrefix const& p) { c->entryDel(p); });
  }
};

}  // namespace

Keepdb::Schema const& configSchema() {
  static Keepdb::Schema const schema = [] {
    Keepdb::Schema s;
    s.typeName = Config::kTypeName;
    s.attrs.push_back(Keepdb::collection<Config, Config::EntryMap>(
        Config::kEntryId, "entry",
        [](Config const& c) -> Config::EntryMap const& { return c.entries(); },
        [](Config& c, Vorn::IpGenPrefix const&, NexthopGroupTunnelConfigEntry const& e) {
          c.entryIs(e);
        },
        [](Config& c, Vorn::IpGenPrefix const& p) { c.entryDel(p); }));
    s.maxRecord = NexthopGroupTunnelConfigEntry::kMaxRecord;
    return s;
  }();
  return schema;
}

void registerTypes() {
  static bool done = [] {
    Vorn::registerTypes();
    Zent::registerValueType<NexthopGroupTunnelConfigEntry>(
        NexthopGroupTunnelConfigEntry::kTypeName);
    Zent::typeIs(std::make_unique<ConfigType>());
    return true;
  }();
  (void)done;
}

}  // namespace Tunnel::NexthopGroup
