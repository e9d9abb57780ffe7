#include "Tunnel/config/DecapConfig.h"

#include <array>
#include <cstring>
#include <utility>

#include "Tunnel/TunnelTable/RecordIo.h"
#include "Tunnel/config/ConfigName.h"
#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "Tunnel/net/NetTypes.h"

namespace Tunnel::Decap {
namespace {

constexpr std::array<std::string_view, 6> kPayloadTypeNames = {"unknown", "ipv4", "ipv6",
                                                               "ip",      "mpls", "ethernet"};
constexpr std::array<std::string_view, 4> kDecapTunnelTypeNames = {"unknown", "gre", "ipip", "udp"};

}  // namespace

std::string_view payloadTypeName(PayloadType t) {
  auto const i = static_cast<size_t>(t);
  return i < kPayloadTypeNames.size() ? kPayloadTypeNames[i] : "invalid";
}

bool parsePayloadType(std::string_view text, PayloadType& out) {
  PayloadType t{};
  if (!Zent::enumFromName(kPayloadTypeNames, text, t) || t == PayloadType::unknown) return false;
  out = t;
  return true;
}

bool sequenceToValue(std::string_view text, PayloadType& out) {
  return Zent::enumFromName(kPayloadTypeNames, text, out);
}

std::string_view decapTunnelTypeName(DecapTunnelType t) {
  auto const i = static_cast<size_t>(t);
  return i < kDecapTunnelTypeNames.size() ? kDecapTunnelTypeNames[i] : "invalid";
}

bool parseDecapTunnelType(std::string_view text, DecapTunnelType& out) {
  DecapTunnelType t{};
  if (!Zent::enumFromName(kDecapTunnelTypeNames, text, t) || t == DecapTunnelType::unknown)
    return false;
  out = t;
  return true;
}

bool sequenceToValue(std::string_view text, DecapTunnelType& out) {
  return Zent::enumFromName(kDecapTunnelTypeNames, text, out);
}

DecapGroup::DecapGroup(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  std::string_view const text(it.ptr(), static_cast<size_t>(end - it));
  Zent::ValueTextReader r(text, kTypeName);
  name_ = Zent::parseFieldText<Zent::String>(r.field("name"), "name");
  // Quoted in the text, as the group's other words are.
  tunnelType_ =
      Zent::parseFieldText<DecapTunnelType>(Zent::unquoteText(r.field("tunnelType")), "tunnelType");
  auto const ips = Zent::splitListText(r.field("decapIp"));
  DecapIpArray::validateSize(ips.size());
  for (auto const& ip : ips) decapIp_.push(Vorn::IpGenPrefix(Zent::trimText(ip)));
  it = end;
}

uint32_t DecapGroup::hash(uint32_t seed) const {
  auto const t = static_cast<uint8_t>(tunnelType_);
  uint32_t h = Zent::hashBytes(name_.view().data(), name_.size(), seed);
  h = Zent::hashBytes(&t, sizeof t, h);
  return decapIp_.hash(h);
}

std::string DecapGroup::stringValue() const {
  return Zent::ValueText(kTypeName)
      .field("name", name_)
      .field("tunnelType", Zent::quoteText(decapTunnelTypeName(tunnelType_)))
      .field("decapIp", Zent::arrayText(decapIp_))
      .str();
}

bool DecapGroup::validName(std::string_view name) {
  return Tunnel::Config::validConfigName(name, kMaxNameLen);
}

void DecapGroup::keepdbRecord(std::string& out) const {
  uint8_t const head[2] = {static_cast<uint8_t>(tunnelType_), static_cast<uint8_t>(name_.size())};
  uint32_t const count = decapIp_.count();
  out.clear();
  out.reserve(2 + name_.size() + 4 + count * Vorn::IpGenPrefix::kRecordSize);
  out.append(reinterpret_cast<char const*>(head), sizeof head);
  out.append(name_.view());
  out.append(reinterpret_cast<char const*>(&count), sizeof count);
  out.append(reinterpret_cast<char const*>(decapIp_.data()),
             count * Vorn::IpGenPrefix::kRecordSize);
}

bool DecapGroup::keepdbFromRecord(std::string_view rec, DecapGroup& out) {
  TunnelTable::RecordReader r(rec.data(), rec.size());
  uint8_t type = 0;
  uint8_t nameLen = 0;
  r.get(type);
  r.get(nameLen);
  auto const* name = r.bytes(nameLen);
  if (!r.ok() || !keepdbValid(static_cast<DecapTunnelType>(type))) return false;
  std::string_view const nameText(reinterpret_cast<char const*>(name), nameLen);
  if (!validName(nameText)) return false;
  // Checked in place first, so that a bad count or prefix leaves `out` alone.
  uint32_t const listAt = r.offset();
  if (!r.checkList<DecapIpArray>() || r.offset() != rec.size()) return false;
  TunnelTable::RecordReader list(rec.data() + listAt, rec.size() - listAt);
  out.name_ = Zent::String(nameText);
  out.tunnelType_ = static_cast<DecapTunnelType>(type);
  list.getList(out.decapIp_);  // checked above, so it reads the whole list
  return true;
}

Zent::Ptr<DecapGroup const> DecapGroupIs(DecapGroup const& g) {
  return Zent::Ptr<DecapGroup const>(Zent::newTracked<DecapGroup>(g));
}

void Config::decapGroupIs(Zent::Ptr<DecapGroup const> const& g) {
  fmassert(g, "a null group has no name to be kept under");
  Tunnel::Config::requireConfigName("Tunnel::Decap::DecapGroup::name", g->name().view(),
                                    DecapGroup::kMaxNameLen);
  memberIs(decapGroup_, kDecapGroupId, g->name(), g);
}

Zent::Ptr<DecapGroup const> Config::decapGroupDel(Zent::String const& name) {
  Zent::Ptr<DecapGroup const> old;
  memberDel(decapGroup_, kDecapGroupId, name, &old);
  return old;
}

void Config::NotifieeConst::onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) {
  switch (id) {
    case kGlobalDestPortToPayloadTypeId:
      globalDestPortToPayloadTypeNotify(key.as<uint16_t>());
      break;
    case kDecapGroupId:
      decapGroupNotify(key.as<Zent::String>());
      break;
    case kReadyId:
      handleReady();
      break;
    default:
      break;
  }
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
    attributeIs({Config::kGlobalDestPortToPayloadTypeId, "globalDestPortToPayloadType", true,
                 Zent::type("uint16_t"), Zent::type("Tunnel::Decap::PayloadType")});
    attributeIs({Config::kDecapGroupId, "decapGroup", true, Zent::type("Zent::String"),
                 Zent::type(DecapGroup::kTypeName)});
    attributeIs({Config::kReadyId, "ready", false, nullptr, Zent::type("bool")});
  }

  Zent::Ptr<Zent::Entity> newEntityForDir(Zent::String const&) const override {
    return configFactory();  // a configuration root has no name
  }

  bool genericIfAttributeOp(Zent::Entity* e, Zent::AttributeId id, AttributeOp op, void const* key,
                            void* value) const override {
    auto* c = dynamic_cast<Config*>(e);
    if (!c) return false;
    switch (id) {
      case Config::kGlobalDestPortToPayloadTypeId:
        return mapOp(
            c->globalDestPortToPayloadTypes(), op, key, value,
            [c](uint16_t port) { c->globalDestPortToPayloadTypeDel(port); },
            [](PayloadType t) { return t; });
      case Config::kDecapGroupId:
        return mapOp(
            c->decapGroups(), op, key, value,
            [c](Zent::String const& name) { c->decapGroupDel(name); },
            [](Zent::Ptr<DecapGroup const> const& g) { return DecapGroup(*g); });
      case Config::kReadyId:
        if (op == AttributeOp::get) {
          *static_cast<bool*>(value) = c->ready();
        } else if (op == AttributeOp::set) {
          c->readyIs(*static_cast<bool const*>(value));
        } else {
          return false;
        }
        return true;
      default:
        return false;
    }
  }

  std::unique_ptr<Zent::GenericIterator> genericIfIterator(Zent::Entity const* e,
                                                           Zent::AttributeId id) const override {
    // The iterator removes through the entity's own mutators.
    auto* c = const_cast<Config*>(dynamic_cast<Config const*>(e));  // NOLINT
    if (!c) return nullptr;
    if (id == Config::kGlobalDestPortToPayloadTypeId) {
      return Zent::collectionIterator(c->globalDestPortToPayloadTypes(), [c](uint16_t port) {
        c->globalDestPortToPayloadTypeDel(port);
      });
    }
    if (id == Config::kDecapGroupId) {
      return Zent::collectionIterator(c->decapGroups(),
                                      [c](Zent::String const& name) { c->decapGroupDel(name); });
    }
    return nullptr;
  }

 private:
  // lookup, del and count of a collection; members are handed out by value.
  template <typename Map, typename Del, typename Out>
  static bool mapOp(Map const& m, AttributeOp op, void const* key, void* value, Del del, Out out) {
    using K = typename Map::KeyType;
    switch (op) {
      case AttributeOp::lookup: {
        auto const* v = m.find(*static_cast<K const*>(key));
        if (!v) return false;
        using V = decltype(out(*v));
        *static_cast<V*>(value) = out(*v);
        return true;
      }
      case AttributeOp::del:
        del(*static_cast<K const*>(key));
        return true;
      case AttributeOp::count:
        *static_cast<size_t*>(value) = m.size();
        return true;
      default:
        return false;
    }
  }
};

}  // namespace

Keepdb::Schema const& configSchema() {
  static Keepdb::Schema const schema = [] {
    Keepdb::Schema s;
    s.typeName = Config::kTypeName;
    s.attrs.push_back(Keepdb::collection<Config, Config::PortMap>(
        Config::kGlobalDestPortToPayloadTypeId, "globalDestPortToPayloadType",
        [](Config const& c) -> Config::PortMap const& { return c.globalDestPortToPayloadTypes(); },
        [](Config& c, uint16_t port, PayloadType t) { c.globalDestPortToPayloadTypeIs(port, t); },
        [](Config& c, uint16_t port) { c.globalDestPortToPayloadTypeDel(port); }));
    s.attrs.push_back(Keepdb::collection<Config, Config::GroupMap>(
        Config::kDecapGroupId, "decapGroup",
        [](Config const& c) -> Config::GroupMap const& { return c.decapGroups(); },
        [](Config& c, Zent::String const&, Zent::Ptr<DecapGroup const> const& g) {
          c.decapGroupIs(g);
        },
        [](Config& c, Zent::String const& name) { c.decapGroupDel(name); }));
    s.attrs.push_back(Keepdb::scalar<Config, bool>(
        Config::kReadyId, "ready", [](Config const& c) { return c.ready(); },
        [](Config& c, bool r) { c.readyIs(r); }));
    // Ports and the flag are a few bytes; a group is the largest record.
    s.maxRecord = DecapGroup::kMaxRecord;
    return s;
  }();
  return schema;
}

void registerTypes() {
  static bool done = [] {
    Vorn::registerTypes();
    Zent::registerValueType<uint16_t>("uint16_t");
    Zent::registerValueType<bool>("bool");
    Zent::registerValueType<Zent::String>("Zent::String");
    Zent::registerValueType<PayloadType>("Tunnel::Decap::PayloadType");
    Zent::registerValueType<DecapTunnelType>("Tunnel::Decap::DecapTunnelType");
    Zent::registerValueType<DecapIpIndex>(DecapIpIndexTraits::typeName);
    Zent::registerValueType<DecapGroup>(DecapGroup::kTypeName);
    Zent::typeIs(std::make_unique<ConfigType>());
    return true;
  }();
  (void)done;
}

}  // namespace Tunnel::Decap
