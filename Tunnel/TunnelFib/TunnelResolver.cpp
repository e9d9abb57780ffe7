#include "Tunnel/TunnelFib/TunnelResolver.h"

#include <vector>

#include "Tunnel/net/UnboundedMplsLabelOperation.h"

namespace Tunnel::TunnelFib {

class TunnelResolver::Frame {
 public:
  explicit Frame(TunnelResolver& r) : r_(r) {
    if (r_.frames_.size() == r_.framesInUse_)
      r_.frames_.push_back(std::make_unique<TunnelFibEntry>());
    entry_ = r_.frames_[r_.framesInUse_++].get();
  }
  ~Frame() { --r_.framesInUse_; }
  Frame(Frame const&) = delete;
  Frame& operator=(Frame const&) = delete;
  TunnelFibEntry& entry() { return *entry_; }

 private:
  TunnelResolver& r_;
  TunnelFibEntry* entry_;
};

TunnelResolver::TunnelResolver(Zent::Ptr<TunnelFib const> tunnelFib)
    : Entity(Zent::String("TunnelResolver")), tunnelFib_(std::move(tunnelFib)) {
  // A walk mostly asks both sets about tunnels they do not hold yet; with
  // sparse buckets the answer is one load of an empty bucket rather than a
  // walk through other tunnels' nodes, for four bucket pointers per member.
  consolidatedEntry_.maxLoadFactorIs(0.25f);
  renderedTunnelId_.maxLoadFactorIs(0.25f);
}

TunnelResolver::~TunnelResolver() = default;

Zent::Ptr<ConsolidatedEntry> TunnelResolver::consolidatedEntryIs(TunnelId const& id) {
  if (auto const* e = consolidatedEntry_.find(id)) return *e;
  Zent::Ptr<ConsolidatedEntry> e = Zent::newEntity<ConsolidatedEntry>(id);
  consolidatedEntry_.newMember(id, e);
  notify(kConsolidatedEntryId, id);
  return e;
}

void TunnelResolver::renderedTunnelIdIs(TunnelId const& id) {
  if (renderedTunnelId_.newMember(id).second) notify(kRenderedTunnelIdId, id);
}

void TunnelResolver::updateFlattenedInfo(TunnelId tunnelId) {
  fmtrace(0, "{} Current tunnel Info, type: {} tunnel Index: {}", __PRETTY_FUNCTION__,
          tunnelId.typeCliStr(), tunnelId.tunnelIndex());
  // Both sets are asked before the FIB is read, so that their cache misses
  // overlap the read's; the answers are used in the order below.
  bool const rendered = renderedTunnelId(tunnelId);
  bool const consolidated = consolidatedEntry_.contains(tunnelId);
  Frame frame(*this);
  TunnelFibEntry& fibEntry = frame.entry();
  if (!tunnelFib_->entry(tunnelId, fibEntry)) {
    fmtrace(0, "{} No further tunnel entry found in tunnel fib", __PRETTY_FUNCTION__);
    return;
  }
  if (rendered) {
    fmtrace(0, "{} Cycle Detected for this tunnel", __PRETTY_FUNCTION__);
    return;
  }
  if (consolidated) return;
  renderedTunnelIdIs(tunnelId);

  // The index is range-checked: stepping past the last of 600 vias throws.
  for (TunnelViaIndex i = 0; i < fibEntry.tunnelViaCount(); ++i) {
    TunnelVia const& via = fibEntry.tunnelVia()[i];
    Vorn::UnboundedMplsLabelOperation labels =
        tunnelFib_->labelStackEncap(via.encapId()).labelStack();
    Vorn::IntfId const intf = via.intfId();
    if (!intf.isDynamicTunnel()) {
      fmtrace(0, "{} Final nexthop and interface found for  tunnel type: {} index:{}",
              __PRETTY_FUNCTION__, tunnelId.typeCliStr(), tunnelId.tunnelIndex());
      fmtrace(0, "{} Intf: {} Nexthop: {}", __PRETTY_FUNCTION__, intf.stringValue(),
              via.nextHop().stringValue());
      consolidatedEntryIs(tunnelId)->viaInfoIs(MplsVia(via.nextHop(), intf, labels));
      continue;
    }
    TunnelId const child(intf.tunnelIdValue());
    if (!consolidatedEntry_.contains(child)) updateFlattenedInfo(child);
    Zent::Ptr<ConsolidatedEntry> childEntry = consolidatedEntry(child);
    if (!childEntry) return;  // the rest of this tunnel's vias are not looked at
    Zent::Ptr<ConsolidatedEntry> entry = consolidatedEntryIs(tunnelId);
    auto join = [&](MplsVia const& childVia) {
      labels.smush(childVia.labels());
      entry->viaInfoIs(MplsVia(childVia.nextHop(), childVia.intfId(), labels));
    };
    if (childEntry == entry) {
      // A tunnel over itself: its own vias are the child's, and adding to a
      // set while walking it is not safe.
      std::vector<MplsVia> snapshot;
      for (auto const& v : childEntry->viaInfo()) snapshot.push_back(v);
      for (auto const& v : snapshot) join(v);
    } else {
      for (auto const& v : childEntry->viaInfo()) join(v);
    }
    if (entry->viaInfoCount() == 0) consolidatedEntryDel(tunnelId);
  }
}

void TunnelResolver::NotifieeConst::onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) {
  if (id == kConsolidatedEntryId) consolidatedEntryNotify(key.as<TunnelId>());
  if (id == kRenderedTunnelIdId) renderedTunnelIdNotify(key.as<TunnelId>());
}

Zent::Ptr<TunnelResolver> TunnelResolverIs(Zent::Ptr<TunnelFib const> tunnelFib) {
  return Zent::newEntity<TunnelResolver>(std::move(tunnelFib));
}

}  // namespace Tunnel::TunnelFib
