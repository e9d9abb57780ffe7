#pragma once
// The agent-side piece that makes the tunnel RIB real. It follows protocol
// tunnel tables (mounted as key shadows by its owner) and keeps, for every
// endpoint:
//   - the TunnelRib entry (ColoredTunnelRib for colored tunnels) of the
//     winners, and
//   - the InternalCliTunnelRib entry with every candidate and its tunnels,
//     for the command line.
// Table notifications only record what changed; flush() recomputes the
// endpoints touched since the last flush and writes the outputs, so a burst
// of updates to one endpoint costs one computation. Single-threaded: run it
// on the agent's event loop, and call flush() when a burst is handled.

#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Tunnel/TunnelRibCalc/Offers.h"
#include "Tunnel/TunnelRibCalc/RibChoice.h"
#include "Tunnel/TunnelTable/TunnelRib.h"
#include "Tunnel/TunnelTable/TunnelTableBase.h"
#include "Tunnel/cli/TunnelPelagStatus.h"
#include "Tunnel/framework/Ptr.h"

namespace Tunnel::TunnelRibCalc {

class TunnelRibCalculator {
 public:
  // Names and ids of the two RIBs and of their command-line views.
  static constexpr TunnelTable::TunnelRibId kTunnelRibId = 0;
  static constexpr TunnelTable::TunnelRibId kColoredTunnelRibId = 1;
  static constexpr const char* kTunnelRibName = "tunnelRib";
  static constexpr const char* kColoredTunnelRibName = "coloredTunnelRib";

  struct Stats {
    uint64_t notifications = 0;  // table notifications handled
    uint64_t computations = 0;   // endpoints recomputed
    uint64_t ribWrites = 0;      // RIB entries written or deleted
  };

  // The outputs, bound by the owner (mounted as writers, or in process).
  TunnelRibCalculator(Zent::Ptr<TunnelTable::TunnelRib> rib,
                      Zent::Ptr<TunnelTable::ColoredTunnelRib> coloredRib,
                      Zent::Ptr<TunnelTable::TunnelPelagStatus> status);
  ~TunnelRibCalculator();
  TunnelRibCalculator(TunnelRibCalculator const&) = delete;
  TunnelRibCalculator& operator=(TunnelRibCalculator const&) = delete;

  // Follows `table` from now on and takes in what it holds. A table whose
  // tunnels do not compete for endpoints is ignored (false).
  bool inputIs(Zent::Ptr<TunnelTable::TunnelTableBase const> const& table);
  // Stops following the table and withdraws its tunnels.
  void inputDel(TunnelTable::TunnelTableIdentifier id);

  // A tunnel of input `table` changed (what the reactors call).
  void handleEntry(TunnelTable::TunnelTableBase const& table, TunnelId const& id);
  // Writes every endpoint touched since the last flush; returns how many.
  size_t flush();
  // Removes from the RIBs and their views every endpoint no input offers a
  // tunnel to: what an earlier run left that no longer holds. Call it once
  // every input is in. Returns how many endpoints it removed.
  size_t reconcile();

  Zent::Ptr<TunnelTable::InternalCliTunnelRib> const& cliRib(bool colored) const {
    return colored ? coloredCliRib_ : cliRib_;
  }
  Stats const& stats() const { return stats_; }

 private:
  class Reactor;
  struct Input {
    Zent::Ptr<TunnelTable::TunnelTableBase const> table;
    OfferReader read = nullptr;
    Zent::Ptr<Reactor> reactor;
  };
  struct CepHash {
    size_t operator()(ColoredTunnelEndpoint const& c) const { return c.hash(); }
  };
  struct IdHash {
    size_t operator()(TunnelId const& t) const { return t.hash(); }
  };

  // Where a tunnel's offer is kept, and which input it came from.
  struct Where {
    ColoredTunnelEndpoint endpoint;
    uint8_t input = 0;
  };

  // An endpoint: the offers made to it (kept together, so that a
  // recomputation reads them in one place), and what was last published for
  // it, so that it changes the outputs only where they differ without
  // reading them back.
  struct Endpoint {
    std::vector<RibOffer> offers;
    std::string ribRecord;  // the RIB entry's record; empty: not written yet
    Zent::Ptr<TunnelTable::InternalCliTunnelRibEntry> cli;  // null: not read yet
    std::vector<RankedCandidate> shown;                     // what `cli` holds
  };

  void offerIs(TunnelId const& id, RibOffer const* offer, uint8_t input);
  void recompute(ColoredTunnelEndpoint const& cep);
  void writeRib(ColoredTunnelEndpoint const& cep, Endpoint& ep, RibChoice const& choice);
  void writeCli(ColoredTunnelEndpoint const& cep, Endpoint& ep, RibChoice const& choice);

  Zent::Ptr<TunnelTable::TunnelRib> rib_;
  Zent::Ptr<TunnelTable::ColoredTunnelRib> coloredRib_;
  Zent::Ptr<TunnelTable::TunnelPelagStatus> status_;
  Zent::Ptr<TunnelTable::InternalCliTunnelRib> cliRib_;
  Zent::Ptr<TunnelTable::InternalCliTunnelRib> coloredCliRib_;
  std::unordered_map<uint8_t, Input> inputs_;
  std::unordered_map<TunnelId, Where, IdHash> where_;
  // Every endpoint offered a tunnel, and those whose last tunnel went since
  // the last flush.
  std::unordered_map<ColoredTunnelEndpoint, Endpoint, CepHash> endpoints_;
  std::unordered_set<ColoredTunnelEndpoint, CepHash> dirty_;
  Stats stats_;
};

}  // namespace Tunnel::TunnelRibCalc
