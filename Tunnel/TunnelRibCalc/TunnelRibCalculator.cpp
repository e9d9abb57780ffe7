#include "Tunnel/TunnelRibCalc/TunnelRibCalculator.h"

#include <algorithm>
#include <iterator>

#include "Tunnel/framework/Dabin.h"

namespace Tunnel::TunnelRibCalc {

using namespace TunnelTable;

DABIN_FACILITY("Tunnel::TunnelRibCalc");

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
  std::vector<TunnelId> const keys = table->entryKeys(nullptr, SIZE_MAX);
  fmtrace(8, "TunnelRibCalculator::inputIs {} with {} tunnels", stringValue(table->tunnelTableId()),
          keys.size());
  for (TunnelId const& id : keys) handleEntry(*table, id);
  return true;
}

void TunnelRibCalculator::inputDel(TunnelTableIdentifier id) {
  auto it = inputs_.find(static_cast<uint8_t>(id));
  if (it == inputs_.end()) return;
  it->second.reactor->notifierIs(nullptr);
  std::vector<TunnelId> gone;
  for (auto const& [tid, where] : where_) {
    if (where.input == it->first) gone.push_back(tid);
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
  auto it = where_.find(id);
  if (it != where_.end()) {
    ColoredTunnelEndpoint const old = it->second.endpoint;
    auto& offers = endpoints_[old].offers;
    auto pos = std::find_if(offers.begin(), offers.end(),
                            [&](RibOffer const& o) { return o.tunnelId == id; });
    if (offer && *offer == *pos) return;
    dirty_.insert(old);
    if (offer && offer->endpoint == old) {
      *pos = *offer;
      it->second.input = input;
      return;
    }
    offers.erase(pos);
    if (!offer) {
      where_.erase(it);
      return;
    }
    it->second = Where{offer->endpoint, input};
  } else {
    if (!offer) return;
    where_.emplace(id, Where{offer->endpoint, input});
  }
  endpoints_[offer->endpoint].offers.push_back(*offer);
  dirty_.insert(offer->endpoint);
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
    // flush() left only endpoints with tunnels.
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
  auto it = endpoints_.find(cep);
  if (it == endpoints_.end()) return;
  Endpoint& ep = it->second;
  RibChoice choice = choose(cep, ep.offers);
  fmtrace(8, "TunnelRibCalculator::recompute {}: {} offers, {} candidates, {} winners", cep,
          ep.offers.size(), choice.candidates.size(), choice.entry.tunnelIdCount());
  writeRib(cep, ep, choice);
  writeCli(cep, ep, choice);
  if (ep.offers.empty()) endpoints_.erase(it);
}

void TunnelRibCalculator::writeRib(ColoredTunnelEndpoint const& cep, Endpoint& ep,
                                   RibChoice const& choice) {
  TunnelRibBase& rib = cep.isColored() ? static_cast<TunnelRibBase&>(*coloredRib_)
                                       : static_cast<TunnelRibBase&>(*rib_);
  if (choice.candidates.empty()) {
    if (ep.ribRecord.empty() && !rib.tunnelRibEntryHas(cep)) return;
    ++stats_.ribWrites;
    rib.tunnelRibEntryDel(cep);
    ep.ribRecord.clear();
    return;
  }
  std::string record(choice.entry.serializeLen(), '\0');
  choice.entry.serialize(record.data());
  if (record == ep.ribRecord) return;
  // The colored RIB counts every write, equal or not: a RIB an earlier run
  // left is compared before it is first written.
  TunnelRibEntry stored;
  bool const same =
      ep.ribRecord.empty() && rib.tunnelRibEntry(cep, stored) && stored == choice.entry;
  ep.ribRecord = std::move(record);
  if (same) return;
  ++stats_.ribWrites;
  rib.tunnelRibEntryIs(choice.entry);
}

void TunnelRibCalculator::writeCli(ColoredTunnelEndpoint const& cep, Endpoint& ep,
                                   RibChoice const& choice) {
  InternalCliTunnelRib& cli = *(cep.isColored() ? coloredCliRib_ : cliRib_);
  if (choice.candidates.empty()) {
    if (ep.cli || cli.entry(cep)) cli.entryDel(cep);
    ep.cli = nullptr;
    ep.shown.clear();
    return;
  }
  if (!ep.cli) {
    // First publication here: start from what the view holds (an earlier
    // run may have left it).
    ep.cli = cli.entryIs(cep);
    for (InternalTunnelCandidateId const& id : ep.cli->candidateIds()) {
      ep.shown.push_back(RankedCandidate{id, ep.cli->candidates(id)->tunnelIds(), false});
    }
  }
  InternalCliTunnelRibEntry& entry = *ep.cli;
  // Both lists are in rank order: merge them.
  auto old = ep.shown.begin();
  for (RankedCandidate const& c : choice.candidates) {
    for (; old != ep.shown.end() && old->id < c.id; ++old) entry.candidatesDel(old->id);
    bool const had = old != ep.shown.end() && old->id == c.id;
    if (had && old->tunnels == c.tunnels) {
      ++old;
      continue;
    }
    Zent::Ptr<InternalCliTunnelRibCandidate> cand = entry.candidatesIs(c.id);
    static std::vector<TunnelId> const kNone;
    std::vector<TunnelId> const& have = had ? old->tunnels : kNone;
    std::vector<TunnelId> gone, added;
    std::set_difference(have.begin(), have.end(), c.tunnels.begin(), c.tunnels.end(),
                        std::back_inserter(gone));
    std::set_difference(c.tunnels.begin(), c.tunnels.end(), have.begin(), have.end(),
                        std::back_inserter(added));
    for (TunnelId const& id : gone) cand->tunnelIdDel(id);
    for (TunnelId const& id : added) cand->tunnelIdIs(id);
    if (had) ++old;
  }
  for (; old != ep.shown.end(); ++old) entry.candidatesDel(old->id);
  ep.shown = choice.candidates;
}

}  // namespace Tunnel::TunnelRibCalc
