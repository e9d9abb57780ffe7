#include "Tunnel/TunnelRedist/TunnelRedistConfig.h"

#include <algorithm>
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

namespace {

// One member in an entry's record.
struct MemberRecord {
  uint64_t tunnelId;
  uint32_t igpMetric;
} __attribute__((packed));
static_assert(sizeof(MemberRecord) == 12);
constexpr uint32_t kMaxMembersKept = 600;

void entryRecord(TunnelRedistEntry const& e, std::string& out) {
  std::vector<MemberRecord> members;
  members.reserve(e.memberTunnelInfoCount());
  for (auto it = e.memberTunnelInfos().begin(); it != e.memberTunnelInfos().end(); ++it) {
    members.push_back({it.key().value(), it->igpMetric()});
  }
  // Ascending, so that equal entries have equal records whatever order the
  // members arrived in.
  std::sort(members.begin(), members.end(),
            [](MemberRecord const& a, MemberRecord const& b) { return a.tunnelId < b.tunnelId; });
  auto n = static_cast<uint32_t>(members.size());
  out.assign(reinterpret_cast<char const*>(&n), sizeof n);
  out.append(reinterpret_cast<char const*>(members.data()), members.size() * sizeof(MemberRecord));
}

// The members of a record, ascending and each a valid tunnel id; false when
// the record is anything else.
bool parseEntryRecord(std::string_view rec, std::vector<TunnelInfo>& out) {
  uint32_t n = 0;
  if (rec.size() < sizeof n) return false;
  std::memcpy(&n, rec.data(), sizeof n);
  if (n > kMaxMembersKept || rec.size() != sizeof n + size_t{n} * sizeof(MemberRecord))
    return false;
  out.clear();
  uint64_t last = 0;
  for (uint32_t i = 0; i < n; ++i) {
    MemberRecord m{};
    std::memcpy(&m, rec.data() + sizeof n + i * sizeof m, sizeof m);
    if (m.tunnelId > TunnelId::maxValue || (i > 0 && m.tunnelId <= last)) return false;
    last = m.tunnelId;
    out.emplace_back(TunnelId(m.tunnelId), uint32_t{m.igpMetric});
  }
  return true;
}

Keepdb::Schema makeSchema() {
  using Config = TunnelRedistConfig;
  Keepdb::Schema s;
  s.typeName = "Tunnel::TunnelRedist::TunnelRedistConfig";
  s.maxRecord = sizeof(uint32_t) + kMaxMembersKept * sizeof(MemberRecord);
  // Keys, key lists and removal as for any keyed collection; the record is
  // the entry's members, applied member by member so that a reader's
  // reactors hear each change once.
  Keepdb::Attr a = Keepdb::keyed<Config, Config::EntryMap>(
      Config::kEntryId, "entry",
      [](Config const& c) -> Config::EntryMap const& { return c.entries(); },
      [](Config& c, Vorn::IpGenPrefix const& p) { c.entryDel(p); });
  a.read = [](Zent::Entity const& e, std::string_view key, std::string& out) {
    Vorn::IpGenPrefix prefix;
    if (!Keepdb::Codec<Vorn::IpGenPrefix>::get(key, prefix)) return false;
    auto entry = static_cast<Config const&>(e).entry(prefix);
    if (!entry) return false;
    entryRecord(*entry, out);
    return true;
  };
  a.apply = [](Zent::Entity& e, std::string_view key, std::string_view rec) {
    Vorn::IpGenPrefix prefix;
    std::vector<TunnelInfo> members;
    if (!Keepdb::Codec<Vorn::IpGenPrefix>::get(key, prefix) || !parseEntryRecord(rec, members)) {
      return false;
    }
    auto entry = static_cast<Config&>(e).entryIs(prefix);
    std::vector<TunnelId> gone;
    for (auto it = entry->memberTunnelInfos().begin(); it != entry->memberTunnelInfos().end();
         ++it) {
      bool kept = std::binary_search(
          members.begin(), members.end(), TunnelInfo(it.key(), 0),
          [](TunnelInfo const& x, TunnelInfo const& y) { return x.tunnelId() < y.tunnelId(); });
      if (!kept) gone.push_back(it.key());
    }
    for (TunnelId const& id : gone) entry->memberTunnelInfoDel(id);
    for (TunnelInfo const& m : members) entry->memberTunnelInfoIs(m);
    return true;
  };
  a.child = [](Zent::Entity const& e, std::string_view key) -> Zent::Entity const* {
    Vorn::IpGenPrefix prefix;
    if (!Keepdb::Codec<Vorn::IpGenPrefix>::get(key, prefix)) return nullptr;
    return static_cast<Config const&>(e).entry(prefix).ptr();
  };
  s.attrs.push_back(std::move(a));
  return s;
}

}  // namespace

Keepdb::Schema const& tunnelRedistConfigSchema() {
  static Keepdb::Schema const schema = makeSchema();
  return schema;
}

std::string tunnelRedistConfigPath(std::string_view name) {
  return "tunnel/redist/" + std::string(name);
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
