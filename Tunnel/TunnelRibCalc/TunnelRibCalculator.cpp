#include "Tunnel/TunnelRibCalc/TunnelRibCalculator.h"

#include <algorithm>
#include <iterator>

namespace Tunnel::TunnelRibCalc {

using namespace TunnelTable;

class TunnelRibCalculator::Reactor : public TunnelTableBase::NotifieeConst {
 public:
  Reactor(TunnelRibCalculator& calc, TunnelTableBase const& table) : calc_(calc), table_(table) {}
  void entryNotify(TunnelId const& id) override { calc_.handleEntry(table_, id); }

 private:
  TunnelRibCalculator& calc_;
  TunnelTableBase const& table_;
};

TunnelRibCalculator::TunnelRibCalculator(Zent::Ptr<TunnelRib> rib,
                                         Zent::Ptr<ColoredTunnelRib> coloredRib,
                                         Zent::Ptr<TunnelPelagStatus> status)
    : rib_(std::move(rib)), coloredRib_(std::move(coloredRib)), status_(std::move(status)) {
  rib_->idIs(kTunnelRibId);
  coloredRib_->idIs(kColoredTunnelRibId);
  cliRib_ = status_->cliTunnelRibCollIs(Zent::String(kTunnelRibName), kTunnelRibId);
  coloredCliRib_ =
      status_->cliTunnelRibCollIs(Zent::String(kColoredTunnelRibName), kColoredTunnelRibId);
}

TunnelRibCalculator::~TunnelRibCalculator() {
  for (auto& [id, in] : inputs_) in.reactor->notifierIs(nullptr);
}

bool TunnelRibCalculator::inputIs(Zent::Ptr<TunnelTableBase const> const& table) {
  OfferReader read = offerReader(table->tunnelTableId());
  if (!read) return false;
  auto key = static_cast<uint8_t>(table->tunnelTableId());
  if (inputs_.count(key)) inputDel(table->tunnelTableId());
  Input& in = inputs_[key];
  in.table = table;
  in.read = read;
  in.reactor = Zent::Ptr<Reactor>(Zent::newTracked<Reactor>(*this, *table));
  in.reactor->notifierIs(table.ptr());
  for (TunnelId const& id : table->entryKeys(nullptr, SIZE_MAX)) handleEntry(*table, id);
  return true;
}

void TunnelRibCalculator::inputDel(TunnelTableIdentifier id) {
  auto it = inputs_.find(static_cast<uint8_t>(id));
  if (it == inputs_.end()) return;
  it->second.reactor->notifierIs(nullptr);
  std::vector<TunnelId> gone;
  for (auto const& [tid, held] : offers_) {
    if (held.input == it->first) gone.push_back(tid);
  }
  for (TunnelId const& tid : gone) offerIs(tid, nullptr, it->first);
  inputs_.erase(it);
}

void TunnelRibCalculator::handleEntry(TunnelTableBase const& table, TunnelId const& id) {
  ++stats_.notifications;
  auto it = inputs_.find(static_cast<uint8_t>(table.tunnelTableId()));
  if (it == inputs_.end()) return;
  RibOffer o;
  bool present = it->second.read(table, id, o);
  offerIs(id, present ? &o : nullptr, it->first);
}

void TunnelRibCalculator::offerIs(TunnelId const& id, RibOffer const* offer, uint8_t input) {
  auto it = offers_.find(id);
  if (it != offers_.end()) {
    if (offer && *offer == it->second.offer) return;
    ColoredTunnelEndpoint old = it->second.offer.endpoint;
    dirty_.insert(old);
    if (!offer || offer->endpoint != old) {
      auto ep = endpoints_.find(old);
      auto& ids = ep->second;
      ids.erase(std::find(ids.begin(), ids.end(), id));
      if (ids.empty()) endpoints_.erase(ep);
    }
    if (!offer) {
      offers_.erase(it);
      return;
    }
    if (offer->endpoint != old) endpoints_[offer->endpoint].push_back(id);
    it->second = Held{*offer, input};
  } else {
    if (!offer) return;
    offers_.emplace(id, Held{*offer, input});
    endpoints_[offer->endpoint].push_back(id);
  }
  dirty_.insert(offer->endpoint);
}

bool TunnelRibCalculator::offer(TunnelId const& id, RibOffer& out) const {
  auto it = offers_.find(id);
  if (it == offers_.end()) return false;
  out = it->second.offer;
  return true;
}

size_t TunnelRibCalculator::flush() {
  size_t n = dirty_.size();
  for (ColoredTunnelEndpoint const& cep : dirty_) recompute(cep);
  dirty_.clear();
  status_->flush();
  return n;
}

size_t TunnelRibCalculator::reconcile() {
  flush();
  size_t removed = 0;
  for (TunnelRibBase* rib :
       {static_cast<TunnelRibBase*>(rib_.ptr()), static_cast<TunnelRibBase*>(coloredRib_.ptr())}) {
    InternalCliTunnelRib& cli = *cliRib(rib->isColored());
    std::vector<ColoredTunnelEndpoint> stale;
    for (ColoredTunnelEndpoint const& cep : rib->tunnelRibEntryKeys()) {
      if (!endpoints_.count(cep)) stale.push_back(cep);
    }
    for (ColoredTunnelEndpoint const& cep : cli.entryKeys()) {
      if (!endpoints_.count(cep) && !rib->tunnelRibEntryHas(cep)) stale.push_back(cep);
    }
    for (ColoredTunnelEndpoint const& cep : stale) {
      if (rib->tunnelRibEntryHas(cep)) {
        ++stats_.ribWrites;
        rib->tunnelRibEntryDel(cep);
      }
      cli.entryDel(cep);
    }
    removed += stale.size();
  }
  status_->flush();
  return removed;
}

void TunnelRibCalculator::recompute(ColoredTunnelEndpoint const& cep) {
  ++stats_.computations;
  std::vector<RibOffer> offers;
  if (auto ep = endpoints_.find(cep); ep != endpoints_.end()) {
    offers.reserve(ep->second.size());
    for (TunnelId const& id : ep->second) offers.push_back(offers_.at(id).offer);
  }
  RibChoice choice = choose(cep, offers);
  writeRib(cep, choice);
  writeCli(cep, choice);
}

void TunnelRibCalculator::writeRib(ColoredTunnelEndpoint const& cep, RibChoice const& choice) {
  TunnelRibBase& rib = cep.isColored() ? static_cast<TunnelRibBase&>(*coloredRib_)
                                       : static_cast<TunnelRibBase&>(*rib_);
  if (choice.candidates.empty()) {
    if (!rib.tunnelRibEntryHas(cep)) return;
    ++stats_.ribWrites;
    rib.tunnelRibEntryDel(cep);
    return;
  }
  // The colored RIB counts every write, equal or not: write only changes.
  TunnelRibEntry stored;
  if (rib.tunnelRibEntry(cep, stored) && stored == choice.entry) return;
  ++stats_.ribWrites;
  rib.tunnelRibEntryIs(choice.entry);
}

void TunnelRibCalculator::writeCli(ColoredTunnelEndpoint const& cep, RibChoice const& choice) {
  InternalCliTunnelRib& cli = *(cep.isColored() ? coloredCliRib_ : cliRib_);
  if (choice.candidates.empty()) {
    if (cli.entry(cep)) cli.entryDel(cep);
    return;
  }
  Zent::Ptr<InternalCliTunnelRibEntry> entry = cli.entryIs(cep);
  for (InternalTunnelCandidateId const& id : entry->candidateIds()) {
    bool kept = std::any_of(choice.candidates.begin(), choice.candidates.end(),
                            [&](RankedCandidate const& c) { return c.id == id; });
    if (!kept) entry->candidatesDel(id);
  }
  for (RankedCandidate const& c : choice.candidates) {
    Zent::Ptr<InternalCliTunnelRibCandidate> cand = entry->candidatesIs(c.id);
    std::vector<TunnelId> have = cand->tunnelIds();
    std::vector<TunnelId> gone, added;
    std::set_difference(have.begin(), have.end(), c.tunnels.begin(), c.tunnels.end(),
                        std::back_inserter(gone));
    std::set_difference(c.tunnels.begin(), c.tunnels.end(), have.begin(), have.end(),
                        std::back_inserter(added));
    for (TunnelId const& id : gone) cand->tunnelIdDel(id);
    for (TunnelId const& id : added) cand->tunnelIdIs(id);
  }
}

}  // namespace Tunnel::TunnelRibCalc
