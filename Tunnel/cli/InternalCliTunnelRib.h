#pragma once
// The command-line view of a tunnel RIB: for every colored endpoint, every
// candidate that competed for it (not only the winners the RIB publishes),
// each candidate listing the tunnels that share its type, preference and
// metric. A tree of value-store entities: RIB -> entries -> candidates. Bound
// to a store (under a TunnelPelagStatus) its nodes are published for other
// processes; unbound it lives in this process only.

#include <algorithm>
#include <cstdint>
#include <vector>

#include "Tunnel/TunnelTable/ColoredTunnelEndpoint.h"
#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/TunnelTable/TunnelRibId.h"
#include "Tunnel/cli/InternalTunnelCandidateId.h"
#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/Ptr.h"
#include "Tunnel/shmem/ZentPelag/Entity.h"
#include "Tunnel/shmem/ZentPelag/EntityMap.h"

namespace Tunnel::TunnelTable {

// One candidate: the set of tunnel ids (at most kMaxTunnelIds) and a 64-bit
// value stored with it for its producer.
class InternalCliTunnelRibCandidate : public ZentPelag::Entity {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::InternalCliTunnelRibCandidate";
  static constexpr Zent::AttributeId tunnelIdId = 541;
  static constexpr uint32_t kMaxTunnelIds = 600;
  // Record: value (8), count (4), zero (4), then count tunnel ids (8 each).
  static constexpr uint32_t kMaxRecord = 16 + 8 * kMaxTunnelIds;

  explicit InternalCliTunnelRibCandidate(InternalTunnelCandidateId const& id, uint64_t value = 0);

  InternalTunnelCandidateId const& id() const { return id_; }
  uint64_t value() const { return value_; }

  // Adds `t` and notifies tunnelId with it; no notification when present.
  // A 601st id throws Zent::RangeException and changes nothing.
  void tunnelIdIs(TunnelId t);
  // Removes `t`; notifies only when it was present.
  bool tunnelIdDel(TunnelId t);
  // One removal and one notification per id.
  void tunnelIdDelAll();
  // Notifies tunnelId with `t` (for reactors that re-read).
  void tunnelIdNotify(TunnelId t);
  bool tunnelIdHas(TunnelId t) const {
    return std::binary_search(tunnelIds_.begin(), tunnelIds_.end(), t);
  }
  std::vector<TunnelId> const& tunnelIds() const { return tunnelIds_; }
  uint32_t tunnelIdCount() const { return static_cast<uint32_t>(tunnelIds_.size()); }

  void pelagDelAll() override { tunnelIdDelAll(); }
  void pelagRecord(std::string& out) const override;
  ZentPelag::RecordUpdate pelagRecordIs(char const* rec, uint32_t len) override;
  static Zent::Ptr<InternalCliTunnelRibCandidate> pelagNew(InternalTunnelCandidateId const& id,
                                                           char const* rec, uint32_t len);

  class NotifieeConst : public Zent::PtrInterface::NotifieeConst {
   public:
    virtual void tunnelIdNotify(TunnelId) {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override;
  };

 private:
  InternalTunnelCandidateId id_;
  uint64_t value_ = 0;
  std::vector<TunnelId> tunnelIds_;  // ascending: few, and read far more than changed
};

// The candidates of one colored endpoint, in rank order.
class InternalCliTunnelRibEntry : public ZentPelag::Entity {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::InternalCliTunnelRibEntry";
  static constexpr Zent::AttributeId candidatesId = 531;

  explicit InternalCliTunnelRibEntry(ColoredTunnelEndpoint const& cep);

  ColoredTunnelEndpoint const& cep() const { return cep_; }

  // The candidate `id`, created (and candidates notified) when absent.
  Zent::Ptr<InternalCliTunnelRibCandidate> candidatesIs(InternalTunnelCandidateId const& id);
  // The same, created with `value` when absent (an existing one keeps its value).
  Zent::Ptr<InternalCliTunnelRibCandidate> candidatesIs(InternalTunnelCandidateId const& id,
                                                        uint64_t value);
  bool candidatesDel(InternalTunnelCandidateId const& id);
  void candidatesDelAll();
  Zent::Ptr<InternalCliTunnelRibCandidate> candidates(InternalTunnelCandidateId const& id) const {
    return candidates_.member(id);
  }
  size_t candidatesCount() const { return candidates_.size(); }
  // Best first.
  std::vector<InternalTunnelCandidateId> candidateIds() const { return candidates_.keys(); }
  // The members, best first, for walks that copy nothing.
  ZentPelag::EntityMap<InternalTunnelCandidateId, InternalCliTunnelRibCandidate> const&
  candidatesMap() const {
    return candidates_;
  }

  void pelagDelAll() override { candidatesDelAll(); }
  void handleChild(uint64_t offset, ZentPelag::ChildView const* pointer,
                   Zent::AttributeId attrId) override;
  void handleChildDel(Pelag::NodeKey const& key, Zent::AttributeId attrId) override;
  void handleChildRestart(ZentPelag::ChildView const* pointer, Zent::AttributeId attrId) override;
  void pelagChildren(std::vector<ZentPelag::Entity*>& out) const override {
    candidates_.children(out);
  }
  static Zent::Ptr<InternalCliTunnelRibEntry> pelagNew(ColoredTunnelEndpoint const& cep,
                                                       char const* rec, uint32_t len);

  class NotifieeConst : public Zent::PtrInterface::NotifieeConst {
   public:
    virtual void candidatesNotify(InternalTunnelCandidateId const&) {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override;
  };

 private:
  ColoredTunnelEndpoint cep_;
  ZentPelag::EntityMap<InternalTunnelCandidateId, InternalCliTunnelRibCandidate> candidates_{
      *this, candidatesId};
};

// One RIB's view: its entries by colored endpoint.
class InternalCliTunnelRib : public ZentPelag::Entity {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::InternalCliTunnelRib";
  static constexpr Zent::AttributeId entryId = 521;
  // Record: tunnelRibId (4), then the name's bytes.
  static constexpr uint32_t kMaxNameLen = 255;

  InternalCliTunnelRib(Zent::String const& name, TunnelRibId id);

  TunnelRibId tunnelRibId() const { return id_; }

  // The entry of `cep`, created (and entry notified) when absent.
  Zent::Ptr<InternalCliTunnelRibEntry> entryIs(ColoredTunnelEndpoint const& cep);
  bool entryDel(ColoredTunnelEndpoint const& cep);
  void entryDelAll();
  Zent::Ptr<InternalCliTunnelRibEntry> entry(ColoredTunnelEndpoint const& cep) const {
    return entries_.member(cep);
  }
  size_t entryCount() const { return entries_.size(); }
  // In endpoint order.
  std::vector<ColoredTunnelEndpoint> entryKeys() const { return entries_.keys(); }
  // The members in endpoint order, for walks that copy nothing.
  ZentPelag::EntityMap<ColoredTunnelEndpoint, InternalCliTunnelRibEntry> const& entryMap() const {
    return entries_;
  }

  void pelagDelAll() override { entryDelAll(); }
  void handleChild(uint64_t offset, ZentPelag::ChildView const* pointer,
                   Zent::AttributeId attrId) override;
  void handleChildDel(Pelag::NodeKey const& key, Zent::AttributeId attrId) override;
  void handleChildRestart(ZentPelag::ChildView const* pointer, Zent::AttributeId attrId) override;
  void pelagChildren(std::vector<ZentPelag::Entity*>& out) const override {
    entries_.children(out);
  }
  // The RIB's own attributes (its id and name) and the store in step: a
  // writer publishes its record again at the next flush; a shadow checks the
  // record the store holds, reporting one that does not decode (a RIB
  // replaced under its id reaches the status as a child change).
  ZentPelag::RecordUpdate handleSyncAttributes() { return pelagSyncOwnRecord(); }
  void pelagRecord(std::string& out) const override;
  ZentPelag::RecordUpdate pelagRecordIs(char const* rec, uint32_t len) override;
  static Zent::Ptr<InternalCliTunnelRib> pelagNew(TunnelRibId id, char const* rec, uint32_t len);

  class NotifieeConst : public Zent::PtrInterface::NotifieeConst {
   public:
    virtual void entryNotify(ColoredTunnelEndpoint const&) {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override;
  };

 private:
  TunnelRibId id_;
  ZentPelag::EntityMap<ColoredTunnelEndpoint, InternalCliTunnelRibEntry> entries_{*this, entryId};
};

}  // namespace Tunnel::TunnelTable
