#include "Tunnel/TunnelFib/TunnelResolver.h"

#include <vector>

#include "Tunnel/net/UnboundedMplsLabelOperation.h"

namespace Tunnel::TunnelFib {

struct TunnelResolver::Scratch {
  TunnelFibEntry entry;
  Vorn::UnboundedMplsLabelOperation labels;
};

class TunnelResolver::Frame {
 public:
  static constexpr size_t kKeptFrames = 8;
  explicit Frame(TunnelResolver& r) : r_(r) {
    if (r_.frames_.size() == r_.framesInUse_) r_.frames_.push_back(std::make_unique<Scratch>());
    scratch_ = r_.frames_[r_.framesInUse_++].get();
  }
  // A deep chain's scratch (48 KB a level) is not kept once the walk ends.
  ~Frame() {
    if (--r_.framesInUse_ == 0 && r_.frames_.size() > kKeptFrames) r_.frames_.resize(kKeptFrames);
  }
  Frame(Frame const&) = delete;
  Frame& operator=(Frame const&) = delete;
  TunnelFibEntry& entry() { return scratch_->entry; }
  Vorn::UnboundedMplsLabelOperation& labels() { return scratch_->labels; }

 private:
  TunnelResolver& r_;
  Scratch* scratch_;
};

namespace {

// The walk recurses once per level of a chain of tunnels, so everything but
// the recursion lives in these helpers, out of line: they keep the recursive
// frame small enough for chains of thousands of tunnels.
[[gnu::noinline]] bool lookUpEntry(TunnelFib const& fib, TunnelId id, TunnelFibEntry& out) {
  return fib.entry(id, out);
}

[[gnu::noinline]] void lookUpLabels(TunnelFib const& fib, TunnelVia const& via,
                                    Vorn::UnboundedMplsLabelOperation& out) {
  out = fib.labelStackEncap(via.encapId()).labelStack();
}

[[gnu::noinline]] void addFinalVia(TunnelResolver& r, TunnelId id, TunnelVia const& via,
                                   Vorn::UnboundedMplsLabelOperation const& labels) {
  r.consolidatedEntryIs(id)->viaInfoIs(MplsVia(via.nextHop(), via.intfId(), labels));
}

// Adds the child's flattened vias to the tunnel's, each joined onto the
// operation as the earlier ones left it; false when the child has none.
[[gnu::noinline]] bool joinChild(TunnelResolver& r, TunnelId id, TunnelId child,
                                 Vorn::UnboundedMplsLabelOperation& labels) {
  Zent::Ptr<ConsolidatedEntry> childEntry = r.consolidatedEntry(child);
  if (!childEntry) return false;
  Zent::Ptr<ConsolidatedEntry> entry = r.consolidatedEntryIs(id);
  auto join = [&](MplsVia const& childVia) {
    labels.smush(childVia.labels());
    entry->viaInfoIs(MplsVia(childVia.nextHop(), childVia.intfId(), labels));
  };
  if (childEntry == entry) {
    // A tunnel over itself: its own vias are the child's, and adding to a
    // set while walking it is not safe.
    std::vector<MplsVia> const snapshot(childEntry->viaInfo().begin(), childEntry->viaInfo().end());
    for (auto const& v : snapshot) join(v);
  } else {
    for (auto const& v : childEntry->viaInfo()) join(v);
  }
  if (entry->viaInfoCount() == 0) r.consolidatedEntryDel(id);
  return true;
}

}  // namespace

std::pair<MplsVia const*, bool> ViaSet::insert(MplsVia const& v) {
  if (size_t const at = find(v); at != kAbsent) return {&vias_[at], false};
  vias_.push_back(v);
  if (!index_.empty()) {
    index_.emplace(v.hash(), static_cast<uint32_t>(vias_.size() - 1));
  } else if (vias_.size() > kIndexFrom) {
    reindex();
  }
  return {&vias_.back(), true};
}

bool ViaSet::erase(MplsVia const& v) {
  size_t const at = find(v);
  if (at == kAbsent) return false;
  vias_.erase(vias_.begin() + static_cast<std::ptrdiff_t>(at));
  index_.clear();
  if (vias_.size() > kIndexFrom) reindex();
  return true;
}

size_t ViaSet::find(MplsVia const& v) const {
  if (index_.empty()) {
    for (size_t i = 0; i < vias_.size(); ++i) {
      if (vias_[i] == v) return i;
    }
    return kAbsent;
  }
  auto [it, end] = index_.equal_range(v.hash());
  for (; it != end; ++it) {
    if (vias_[it->second] == v) return it->second;
  }
  return kAbsent;
}

void ViaSet::reindex() {
  index_.clear();
  for (size_t i = 0; i < vias_.size(); ++i)
    index_.emplace(vias_[i].hash(), static_cast<uint32_t>(i));
}

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
  TunnelFibEntry const& fibEntry = frame.entry();
  if (!lookUpEntry(*tunnelFib_, tunnelId, frame.entry())) {
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
    lookUpLabels(*tunnelFib_, via, frame.labels());
    if (!via.intfId().isDynamicTunnel()) {
      fmtrace(0, "{} Final nexthop and interface found for  tunnel type: {} index:{}",
              __PRETTY_FUNCTION__, tunnelId.typeCliStr(), tunnelId.tunnelIndex());
      fmtrace(0, "{} Intf: {} Nexthop: {}", __PRETTY_FUNCTION__, via.intfId().stringValue(),
              via.nextHop().stringValue());
      addFinalVia(*this, tunnelId, via, frame.labels());
      continue;
    }
    TunnelId const child(via.intfId().tunnelIdValue());
    if (!consolidatedEntry_.contains(child)) updateFlattenedInfo(child);
    // The rest of this tunnel's vias are deliberately not looked at.
    if (!joinChild(*this, tunnelId, child, frame.labels())) return;
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
