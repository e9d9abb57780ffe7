#include "Tunnel/cli/TunnelPelagStatus.h"

#include <algorithm>
#include <memory>

#include "Tunnel/framework/Reinstantiation.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "Tunnel/shmem/Pelag/Store.h"

namespace Tunnel::TunnelTable {

namespace {

Pelag::StoreShape statusShape() {
  return {TunnelPelagStatus::kTypeName, TunnelPelagStatus::kTypeHash,
          InternalCliTunnelRibCandidate::kMaxRecord};
}

class TunnelPelagStatusType : public Zent::GenericIf {
 public:
  TunnelPelagStatusType() : GenericIf(TunnelPelagStatus::kTypeName, Kind::entity) {
    attributeIs(
        {TunnelPelagStatus::cliTunnelRibCollId, "cliTunnelRibColl", true, nullptr, nullptr});
  }
  Zent::Ptr<Zent::Entity> newEntityForDir(Zent::String const& name) const override {
    return tunnelPelagStatusFactory(name);
  }
};

}  // namespace

TunnelPelagStatus::TunnelPelagStatus(Zent::String const& name)
    : ZentPelag::RootEntity(name, statusShape()) {}

// Pending nodes are released while the tree is whole.
TunnelPelagStatus::~TunnelPelagStatus() { pelagTeardown(); }

Zent::Ptr<InternalCliTunnelRib> TunnelPelagStatus::cliTunnelRibCollIs(Zent::String const& name,
                                                                      TunnelRibId id) {
  if (InternalCliTunnelRib* rib = ribs_.find(id)) {
    if (rib->name() != name) {
      Zent::throwMutatorReinstantiation("cliTunnelRibColl", std::to_string(id), rib->name().view(),
                                        name.view());
    }
    return Zent::Ptr<InternalCliTunnelRib>(rib);
  }
  bool created = false;
  auto rib = ribs_.is(
      id, [&] { return Zent::newEntity<InternalCliTunnelRib>(name, id); }, created);
  if (created && !pelagCorruption()) notify(cliTunnelRibCollId, id);
  return rib;
}

bool TunnelPelagStatus::cliTunnelRibCollDel(TunnelRibId id) {
  if (!ribs_.del(id)) return false;
  notify(cliTunnelRibCollId, id);
  return true;
}

void TunnelPelagStatus::cliTunnelRibCollDelAll() {
  for (TunnelRibId id : ribs_.keys()) cliTunnelRibCollDel(id);
}

void TunnelPelagStatus::handleFlush(ZentPelag::FlushTask& task) {
  ZentPelag::RootEntity::handleFlush(task);
}

void TunnelPelagStatus::handleChild(uint64_t offset, ZentPelag::ChildView const* pointer,
                                    Zent::AttributeId attrId) {
  ribs_.childNotified(offset, *pointer, attrId);
}

void TunnelPelagStatus::handleChildRestart(ZentPelag::ChildView const* pointer,
                                           Zent::AttributeId attrId) {
  ribs_.childNotified(0, *pointer, attrId);
}

void TunnelPelagStatus::handleChildDel(Pelag::NodeKey const& key, Zent::AttributeId attrId) {
  ribs_.childDelNotified(key, attrId);
}

void TunnelPelagStatus::NotifieeConst::onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) {
  if (id == cliTunnelRibCollId) cliTunnelRibCollNotify(key.as<TunnelRibId>());
}

Zent::Ptr<TunnelPelagStatus> tunnelPelagStatusFactory(Zent::String const& name) {
  return Zent::newEntity<TunnelPelagStatus>(name);
}

void registerPelagStatusTypes() {
  static bool done = [] {
    Zent::registerValueType<InternalTunnelCandidateId>(
        "Tunnel::TunnelTable::InternalTunnelCandidateId");
    Zent::typeIs(std::make_unique<TunnelPelagStatusType>());
    return true;
  }();
  (void)done;
}

Zent::Ptr<TunnelPelagStatus> mountTunnelPelagStatus(ZentTamsel::Mount const& mount,
                                                    ZentPelag::Mode mode,
                                                    Zent::String const& path) {
  registerPelagStatusTypes();
  if (mode == ZentPelag::Mode::snapshot)
    return mountTunnelPelagStatus(std::string(mount.stateRoot().view()), mode, path);
  ZentTamsel::MountInfo info(mode == ZentPelag::Mode::writer ? ZentTamsel::MountType::writer
                                                             : ZentTamsel::MountType::keyShadow);
  return mount.doMountAs<TunnelPelagStatus>(path, info);
}

Zent::Ptr<TunnelPelagStatus> mountTunnelPelagStatus(std::string const& stateRoot,
                                                    ZentPelag::Mode mode,
                                                    Zent::String const& path) {
  std::string p(path.view());
  while (!p.empty() && p.back() == '/') p.pop_back();
  auto status = tunnelPelagStatusFactory(Zent::String(p.substr(p.rfind('/') + 1)));
  status->pelagAttach(stateRoot + "/" + p, mode);
  return status;
}

bool readCandidates(std::string const& stateRoot, TunnelRibId id, ColoredTunnelEndpoint const& cep,
                    std::vector<Zent::Ptr<InternalCliTunnelRibCandidate>>& out,
                    Zent::String const& path) {
  out.clear();
  Pelag::Shadow store(stateRoot + "/" + std::string(path.view()), TunnelPelagStatus::kTypeHash,
                      Tamsel::Reader::Options{false, false});
  Pelag::NodeKey const entry = Pelag::NodeKey()
                                   .child(TunnelPelagStatus::cliTunnelRibCollId, id)
                                   .child(InternalCliTunnelRib::entryId, cep);
  std::vector<char> rec;
  if (!store.read(entry, rec)) return false;
  store.forEach([&](Pelag::NodeKey const& k, char const* r, uint32_t len) {
    InternalTunnelCandidateId cid;
    if (k.depth() != 3 || !k.lastKeyAs(cid) || !(k.parent() == entry)) return;
    if (auto c = InternalCliTunnelRibCandidate::pelagNew(cid, r, len)) out.push_back(c);
  });
  std::sort(out.begin(), out.end(), [](auto const& a, auto const& b) { return a->id() < b->id(); });
  return true;
}

void forEachCandidate(
    TunnelPelagStatus const& status,
    std::function<void(InternalCliTunnelRib const&, InternalCliTunnelRibEntry const&,
                       InternalCliTunnelRibCandidate const&)> const& fn) {
  for (auto const& [id, rib] : status.cliTunnelRibCollMap()) {
    for (auto const& [cep, entry] : rib->entryMap()) {
      for (auto const& [cid, c] : entry->candidatesMap()) fn(*rib, *entry, *c);
    }
  }
}

}  // namespace Tunnel::TunnelTable
