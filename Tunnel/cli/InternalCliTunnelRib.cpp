#include "Tunnel/cli/InternalCliTunnelRib.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "Tunnel/TunnelTable/Indexes.h"
#include "Tunnel/framework/Range.h"

namespace Tunnel::TunnelTable {

// ---- InternalCliTunnelRibCandidate

InternalCliTunnelRibCandidate::InternalCliTunnelRibCandidate(InternalTunnelCandidateId const& id,
                                                             uint64_t value)
    : id_(id), value_(value) {}

void InternalCliTunnelRibCandidate::tunnelIdIs(TunnelId t) {
  requireMutable("tunnelIdIs");
  auto at = std::lower_bound(tunnelIds_.begin(), tunnelIds_.end(), t);
  if (at != tunnelIds_.end() && *at == t) return;
  TunnelIdCollIndex(tunnelIds_.size());  // throws when the set is full
  tunnelIds_.insert(at, t);
  pelagChanged();
  if (pelagCorruption()) return;
  notify(tunnelIdId, t);
}

bool InternalCliTunnelRibCandidate::tunnelIdDel(TunnelId t) {
  requireMutable("tunnelIdDel");
  auto at = std::lower_bound(tunnelIds_.begin(), tunnelIds_.end(), t);
  if (at == tunnelIds_.end() || !(*at == t)) return false;
  tunnelIds_.erase(at);
  pelagChanged();
  notify(tunnelIdId, t);
  return true;
}

void InternalCliTunnelRibCandidate::tunnelIdDelAll() {
  std::vector<TunnelId> const all = tunnelIds_;  // tunnelIdDel changes the list
  for (TunnelId t : all) tunnelIdDel(t);
}

void InternalCliTunnelRibCandidate::tunnelIdNotify(TunnelId t) { notify(tunnelIdId, t); }

void InternalCliTunnelRibCandidate::pelagRecord(std::string& out) const {
  uint32_t n = static_cast<uint32_t>(tunnelIds_.size());
  out.assign(16 + 8 * size_t{n}, '\0');
  std::memcpy(out.data(), &value_, 8);
  std::memcpy(out.data() + 8, &n, 4);
  char* p = out.data() + 16;
  for (TunnelId t : tunnelIds_) {
    uint64_t v = t.value();
    std::memcpy(p, &v, 8);
    p += 8;
  }
}

ZentPelag::RecordUpdate InternalCliTunnelRibCandidate::pelagRecordIs(char const* rec,
                                                                     uint32_t len) {
  uint64_t value = 0;
  uint32_t n = 0, zero = 0;
  if (len < 16) return ZentPelag::RecordUpdate::malformed;
  std::memcpy(&value, rec, 8);
  std::memcpy(&n, rec + 8, 4);
  std::memcpy(&zero, rec + 12, 4);
  if (zero != 0 || n > kMaxTunnelIds || len != 16 + 8 * n) {
    return ZentPelag::RecordUpdate::malformed;
  }
  // Written ascending, each id once.
  std::vector<TunnelId> ids;
  ids.reserve(n);
  for (uint32_t i = 0; i < n; ++i) {
    uint64_t v;
    std::memcpy(&v, rec + 16 + 8 * size_t{i}, 8);
    try {
      ids.emplace_back(v);
    } catch (Zent::RangeException const&) {
      return ZentPelag::RecordUpdate::malformed;
    }
    if (i > 0 && !(ids[i - 1] < ids[i])) return ZentPelag::RecordUpdate::malformed;
  }
  if (value == value_ && ids == tunnelIds_) return ZentPelag::RecordUpdate::unchanged;
  value_ = value;
  std::vector<TunnelId> changed;
  std::set_symmetric_difference(ids.begin(), ids.end(), tunnelIds_.begin(), tunnelIds_.end(),
                                std::back_inserter(changed));
  tunnelIds_ = std::move(ids);
  for (TunnelId t : changed) notify(tunnelIdId, t);
  return ZentPelag::RecordUpdate::changed;
}

Zent::Ptr<InternalCliTunnelRibCandidate> InternalCliTunnelRibCandidate::pelagNew(
    InternalTunnelCandidateId const& id, char const* rec, uint32_t len) {
  auto c = Zent::newEntity<InternalCliTunnelRibCandidate>(id);
  if (c->pelagRecordIs(rec, len) == ZentPelag::RecordUpdate::malformed) return nullptr;
  return c;
}

void InternalCliTunnelRibCandidate::NotifieeConst::onAttribute(Zent::AttributeId id,
                                                               Zent::KeyRef const& key) {
  if (id == tunnelIdId) tunnelIdNotify(key.as<TunnelId>());
}

// ---- InternalCliTunnelRibEntry

InternalCliTunnelRibEntry::InternalCliTunnelRibEntry(ColoredTunnelEndpoint const& cep)
    : cep_(cep) {}

Zent::Ptr<InternalCliTunnelRibCandidate> InternalCliTunnelRibEntry::candidatesIs(
    InternalTunnelCandidateId const& id) {
  return candidatesIs(id, 0);
}

Zent::Ptr<InternalCliTunnelRibCandidate> InternalCliTunnelRibEntry::candidatesIs(
    InternalTunnelCandidateId const& id, uint64_t value) {
  bool created = false;
  auto c = candidates_.is(
      id, [&] { return Zent::newEntity<InternalCliTunnelRibCandidate>(id, value); }, created);
  if (created && !pelagCorruption()) notify(candidatesId, id);
  return c;
}

bool InternalCliTunnelRibEntry::candidatesDel(InternalTunnelCandidateId const& id) {
  if (!candidates_.del(id)) return false;
  notify(candidatesId, id);
  return true;
}

void InternalCliTunnelRibEntry::candidatesDelAll() {
  for (auto const& id : candidates_.keys()) candidatesDel(id);
}

void InternalCliTunnelRibEntry::handleChild(uint64_t offset, ZentPelag::ChildView const* pointer,
                                            Zent::AttributeId attrId) {
  candidates_.childNotified(offset, *pointer, attrId);
}

void InternalCliTunnelRibEntry::handleChildRestart(ZentPelag::ChildView const* pointer,
                                                   Zent::AttributeId attrId) {
  candidates_.childNotified(0, *pointer, attrId);
}

void InternalCliTunnelRibEntry::handleChildDel(Pelag::NodeKey const& key,
                                               Zent::AttributeId attrId) {
  candidates_.childDelNotified(key, attrId);
}

Zent::Ptr<InternalCliTunnelRibEntry> InternalCliTunnelRibEntry::pelagNew(
    ColoredTunnelEndpoint const& cep, char const*, uint32_t len) {
  if (len != 0 || !cep.wellFormed()) return nullptr;
  return Zent::newEntity<InternalCliTunnelRibEntry>(cep);
}

void InternalCliTunnelRibEntry::NotifieeConst::onAttribute(Zent::AttributeId id,
                                                           Zent::KeyRef const& key) {
  if (id == candidatesId) candidatesNotify(key.as<InternalTunnelCandidateId>());
}

// ---- InternalCliTunnelRib

InternalCliTunnelRib::InternalCliTunnelRib(Zent::String const& name, TunnelRibId id)
    : ZentPelag::Entity(name), id_(id) {
  if (name.view().size() > kMaxNameLen) {
    Zent::throwRangeException(
        "Tunnel::TunnelTable::InternalCliTunnelRib::name longer than 255 bytes not allowed");
  }
}

Zent::Ptr<InternalCliTunnelRibEntry> InternalCliTunnelRib::entryIs(
    ColoredTunnelEndpoint const& cep) {
  bool created = false;
  auto e = entries_.is(
      cep, [&] { return Zent::newEntity<InternalCliTunnelRibEntry>(cep); }, created);
  if (created && !pelagCorruption()) notify(entryId, cep);
  return e;
}

bool InternalCliTunnelRib::entryDel(ColoredTunnelEndpoint const& cep) {
  if (!entries_.del(cep)) return false;
  notify(entryId, cep);
  return true;
}

void InternalCliTunnelRib::entryDelAll() {
  for (auto const& cep : entries_.keys()) entryDel(cep);
}

void InternalCliTunnelRib::handleChild(uint64_t offset, ZentPelag::ChildView const* pointer,
                                       Zent::AttributeId attrId) {
  entries_.childNotified(offset, *pointer, attrId);
}

void InternalCliTunnelRib::handleChildRestart(ZentPelag::ChildView const* pointer,
                                              Zent::AttributeId attrId) {
  entries_.childNotified(0, *pointer, attrId);
}

void InternalCliTunnelRib::handleChildDel(Pelag::NodeKey const& key, Zent::AttributeId attrId) {
  entries_.childDelNotified(key, attrId);
}

void InternalCliTunnelRib::pelagRecord(std::string& out) const {
  auto n = name().view();
  out.assign(4 + n.size(), '\0');
  std::memcpy(out.data(), &id_, 4);
  std::memcpy(out.data() + 4, n.data(), n.size());
}

ZentPelag::RecordUpdate InternalCliTunnelRib::pelagRecordIs(char const* rec, uint32_t len) {
  TunnelRibId id;
  if (len < 4 || len > 4 + kMaxNameLen) return ZentPelag::RecordUpdate::malformed;
  std::memcpy(&id, rec, 4);
  if (id != id_) return ZentPelag::RecordUpdate::malformed;
  // The name is fixed at creation: another name is another RIB under this id.
  if (std::string_view(rec + 4, len - 4) != name().view()) return ZentPelag::RecordUpdate::replaced;
  return ZentPelag::RecordUpdate::unchanged;
}

Zent::Ptr<InternalCliTunnelRib> InternalCliTunnelRib::pelagNew(TunnelRibId id, char const* rec,
                                                               uint32_t len) {
  TunnelRibId stored;
  if (len < 4 || len > 4 + kMaxNameLen) return nullptr;
  std::memcpy(&stored, rec, 4);
  if (stored != id) return nullptr;
  return Zent::newEntity<InternalCliTunnelRib>(Zent::String(std::string_view(rec + 4, len - 4)),
                                               id);
}

void InternalCliTunnelRib::NotifieeConst::onAttribute(Zent::AttributeId id,
                                                      Zent::KeyRef const& key) {
  if (id == entryId) entryNotify(key.as<ColoredTunnelEndpoint>());
}

}  // namespace Tunnel::TunnelTable
