#pragma once
// TunnelPelagStatus: the root through which an agent publishes its
// command-line RIB views in a value store, so that a command-line process
// reads them in place, without copying and without the agent's help. One
// writer (the agent); any number of shadows.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Tunnel/TunnelTable/TunnelRibId.h"
#include "Tunnel/cli/InternalCliTunnelRib.h"
#include "Tunnel/framework/Ptr.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/shmem/ZentPelag/Entity.h"
#include "Tunnel/shmem/ZentPelag/EntityMap.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"

namespace Tunnel::TunnelTable {

class TunnelPelagStatus : public ZentPelag::RootEntity {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::TunnelPelagStatus";
  // Recorded in the store and checked on attach; mixed into every node's hash.
  static constexpr uint32_t kTypeHash = 3252355566u;
  static constexpr const char* kMountPath = "tunnel/cli/status";
  // The only child attribute.
  static constexpr Zent::AttributeId cliTunnelRibCollId = 514;

  explicit TunnelPelagStatus(Zent::String const& name);
  ~TunnelPelagStatus() override;

  // The RIB view `id`, created (and cliTunnelRibColl notified) when absent;
  // an existing one named alike is returned unchanged. A different name
  // throws Zent::ReinstantiationError (Tunnel/framework/Reinstantiation.h) and changes nothing.
  Zent::Ptr<InternalCliTunnelRib> cliTunnelRibCollIs(Zent::String const& name, TunnelRibId id);
  bool cliTunnelRibCollDel(TunnelRibId id);
  void cliTunnelRibCollDelAll();
  Zent::Ptr<InternalCliTunnelRib> cliTunnelRibColl(TunnelRibId id) const {
    return ribs_.member(id);
  }
  size_t cliTunnelRibCollCount() const { return ribs_.size(); }
  std::vector<TunnelRibId> cliTunnelRibCollKeys() const { return ribs_.keys(); }
  // The members in key order, for walks that copy nothing.
  ZentPelag::EntityMap<TunnelRibId, InternalCliTunnelRib> const& cliTunnelRibCollMap() const {
    return ribs_;
  }

  void doPelagInit() override {}
  void pelagDelAll() override { cliTunnelRibCollDelAll(); }
  void handleFlush(ZentPelag::FlushTask& task) override;
  // Each accepts attribute 514 only; any other throws "invalid attrId:<id>".
  void handleChild(uint64_t offset, ZentPelag::ChildView const* pointer,
                   Zent::AttributeId attrId) override;
  void handleChildDel(Pelag::NodeKey const& key, Zent::AttributeId attrId) override;
  void handleChildRestart(ZentPelag::ChildView const* pointer, Zent::AttributeId attrId) override;
  void pelagChildren(std::vector<ZentPelag::Entity*>& out) const override { ribs_.children(out); }

  class NotifieeConst : public Zent::PtrInterface::NotifieeConst {
   public:
    virtual void cliTunnelRibCollNotify(TunnelRibId) {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override;
  };

 private:
  ZentPelag::EntityMap<TunnelRibId, InternalCliTunnelRib> ribs_{*this, cliTunnelRibCollId};
};

// A status with notifications on, bound to no store (kept in this process).
Zent::Ptr<TunnelPelagStatus> tunnelPelagStatusFactory(Zent::String const& name);

// Registers the status's type (and newEntityForDir) and the candidate id with
// the type registry.
void registerPelagStatusTypes();

// Attaches a new status to the store at `path` under the mount's state root
// (or `stateRoot`): a writer creates the store or continues the one an
// earlier writer left; a shadow reads it, and the mount's registry dispatches
// its changes; a snapshot reads it once (not held by the mount). Throws Tamsel::Error when the
// store cannot be opened or holds another type.
Zent::Ptr<TunnelPelagStatus> mountTunnelPelagStatus(
    ZentTamsel::Mount const& mount, ZentPelag::Mode mode,
    Zent::String const& path = Zent::String(TunnelPelagStatus::kMountPath));
Zent::Ptr<TunnelPelagStatus> mountTunnelPelagStatus(
    std::string const& stateRoot, ZentPelag::Mode mode,
    Zent::String const& path = Zent::String(TunnelPelagStatus::kMountPath));

// One endpoint's candidates straight from the records of the store at `path`
// under `stateRoot`, best first, without building the tree: what a one-shot
// reader asking about one endpoint wants (one pass over the records, some
// milliseconds for 100,000 endpoints, where building the tree takes a
// hundred times longer). False when the store holds no entry for `cep` in
// RIB `id`. Throws Tamsel::Error when the store cannot be opened or holds
// another type.
bool readCandidates(std::string const& stateRoot, TunnelRibId id, ColoredTunnelEndpoint const& cep,
                    std::vector<Zent::Ptr<InternalCliTunnelRibCandidate>>& out,
                    Zent::String const& path = Zent::String(TunnelPelagStatus::kMountPath));

// Walks every RIB, entry and candidate of a status (for a one-shot reader, a
// snapshot: attaching builds the tree from one scan): fn(rib, entry, candidate), ribs by id,
// entries by endpoint, candidates best first.
void forEachCandidate(
    TunnelPelagStatus const& status,
    std::function<void(InternalCliTunnelRib const&, InternalCliTunnelRibEntry const&,
                       InternalCliTunnelRibCandidate const&)> const& fn);

}  // namespace Tunnel::TunnelTable
