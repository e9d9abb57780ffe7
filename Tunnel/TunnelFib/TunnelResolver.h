#pragma once
// The tunnel resolver: flattens tunnels that ride on other tunnels. For one
// tunnel it follows the primary vias through the FIB until they reach real
// interfaces, joins the label stacks met on the way, and keeps the result as
// the tunnel's ConsolidatedEntry, a set of MPLS vias.
//
// The resolver reacts to nothing: its owner clears renderedTunnelId, and the
// consolidated entries it wants recomputed, before a fresh resolution.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Tunnel/TunnelFib/TunnelFib.h"
#include "Tunnel/TunnelTable/MplsVia.h"
#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/HashMap2018.h"
#include "Tunnel/framework/Ptr.h"

namespace Tunnel::TunnelFib {

DABIN_FACILITY("Tunnel/TunnelFib");

using TunnelTable::MplsVia;

template <typename T>
struct SelfKey {
  T const& operator()(T const& v) const { return v; }
};

// A set of vias in the order they were added. A walk adds a few vias to each
// of many tunnels: a small set finds a via by comparing the members, without
// an allocation per member; a larger one keeps a hash index beside them.
class ViaSet {
 public:
  using const_iterator = std::vector<MplsVia>::const_iterator;

  size_t size() const { return vias_.size(); }
  bool empty() const { return vias_.empty(); }
  const_iterator begin() const { return vias_.begin(); }
  const_iterator end() const { return vias_.end(); }
  bool contains(MplsVia const& v) const { return find(v) != kAbsent; }
  // Adds `v` unless an equal via is there; the member stays where it is
  // until the set changes.
  std::pair<MplsVia const*, bool> insert(MplsVia const& v);
  bool erase(MplsVia const& v);
  void clear() {
    vias_.clear();
    index_.clear();
  }

 private:
  static constexpr size_t kAbsent = SIZE_MAX;
  static constexpr size_t kIndexFrom = 16;
  size_t find(MplsVia const& v) const;
  void reindex();

  std::vector<MplsVia> vias_;
  std::unordered_multimap<uint32_t, uint32_t> index_;  // hash to position, once large
};

// The flattened vias of one tunnel, keyed by the whole via, in the order
// they were flattened: the order a parent joins them in, so a resolution
// comes out the same in every process.
class ConsolidatedEntry : public Zent::Entity {
 public:
  static constexpr Zent::AttributeId kViaInfoId = 1;

  // Unnamed: the resolver makes one per tunnel, and the key says which.
  explicit ConsolidatedEntry(TunnelId tunnelId) : tunnelId_(tunnelId) {}

  TunnelId tunnelId() const { return tunnelId_; }
  ViaSet const& viaInfo() const { return viaInfo_; }
  size_t viaInfoCount() const { return viaInfo_.size(); }
  bool viaInfoHas(MplsVia const& v) const { return viaInfo_.contains(v); }
  // Adds `v` unless an equal via is there; returns the member.
  MplsVia const& viaInfoIs(MplsVia const& v) {
    auto [member, added] = viaInfo_.insert(v);
    if (added) notify(kViaInfoId, v);
    return *member;
  }
  void viaInfoDel(MplsVia const& v) {
    if (viaInfo_.erase(v)) notify(kViaInfoId, v);
  }
  void viaInfoDelAll() {
    std::vector<MplsVia> const old(viaInfo_.begin(), viaInfo_.end());
    viaInfo_.clear();
    for (MplsVia const& v : old) notify(kViaInfoId, v);
  }

 private:
  TunnelId tunnelId_;
  ViaSet viaInfo_;
};

class TunnelResolver : public Zent::Entity {
 public:
  static constexpr Zent::AttributeId kConsolidatedEntryId = 1;
  static constexpr Zent::AttributeId kRenderedTunnelIdId = 2;
  using ConsolidatedEntries = Zent::HashMap2018<TunnelId, Zent::Ptr<ConsolidatedEntry>>;
  using RenderedTunnelIds = Zent::HashMap2018<TunnelId, TunnelId, SelfKey<TunnelId>>;

  explicit TunnelResolver(Zent::Ptr<TunnelFib const> tunnelFib);
  ~TunnelResolver() override;

  Zent::Ptr<TunnelFib const> const& tunnelFib() const { return tunnelFib_; }

  // The entry of `id`, created empty when there is none.
  Zent::Ptr<ConsolidatedEntry> consolidatedEntryIs(TunnelId const& id);
  // Null when absent.
  Zent::Ptr<ConsolidatedEntry> consolidatedEntry(TunnelId const& id) const {
    return consolidatedEntry_.lookup(id);
  }
  void consolidatedEntryDel(TunnelId const& id) {
    memberDel(consolidatedEntry_, kConsolidatedEntryId, id);
  }
  void consolidatedEntryDelAll() { memberDelAll(consolidatedEntry_, kConsolidatedEntryId); }
  ConsolidatedEntries const& consolidatedEntries() const { return consolidatedEntry_; }

  bool renderedTunnelId(TunnelId const& id) const { return renderedTunnelId_.contains(id); }
  void renderedTunnelIdIs(TunnelId const& id);
  void renderedTunnelIdDel(TunnelId const& id) {
    memberDel(renderedTunnelId_, kRenderedTunnelIdId, id);
  }
  void renderedTunnelIdDelAll() { memberDelAll(renderedTunnelId_, kRenderedTunnelIdId); }
  RenderedTunnelIds const& renderedTunnelIds() const { return renderedTunnelId_; }

  // Flattens `tunnelId` and, on the way, every tunnel it rides on; the result
  // is the state of the consolidated entries. Along a tunnel's primary vias
  // in index order:
  //  - a via over a real interface adds (nexthop, interface, its label stack);
  //  - a via over another tunnel adds the child's flattened vias, each with
  //    this via's stack joined onto the child via's. The stack is not reset
  //    between the child's vias, so each one accumulates the ones before it;
  //  - a child that cannot be flattened (missing from the FIB, or met again
  //    before renderedTunnelId is cleared, as in a cycle) ends this tunnel's
  //    walk there; vias already added stay.
  // There is deliberately no depth limit: a tunnel is entered at most once
  // until renderedTunnelId is cleared. A joined stack deeper than a label
  // operation holds, and a via count of 600, throw Zent::RangeException.
  void updateFlattenedInfo(TunnelId tunnelId);

  class NotifieeConst : public Zent::PtrInterface::NotifieeConst {
   public:
    virtual void consolidatedEntryNotify(TunnelId const&) {}
    virtual void renderedTunnelIdNotify(TunnelId const&) {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override;
  };

 private:
  // One scratch FIB entry and label operation per level of the walk, a few
  // kept between calls: an entry is 48 KB, too big for a stack frame.
  struct Scratch;
  class Frame;

  Zent::Ptr<TunnelFib const> tunnelFib_;
  ConsolidatedEntries consolidatedEntry_;
  RenderedTunnelIds renderedTunnelId_;
  std::vector<std::unique_ptr<Scratch>> frames_;
  size_t framesInUse_ = 0;
};

Zent::Ptr<TunnelResolver> TunnelResolverIs(Zent::Ptr<TunnelFib const> tunnelFib);

}  // namespace Tunnel::TunnelFib
