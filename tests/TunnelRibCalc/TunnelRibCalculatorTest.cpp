// The RIB calculator against the rule said plainly: per endpoint, the best
// candidate by (entry preference, type preference, entry metric, type) wins,
// together with the candidates of equal preference and metric whose type may
// share an ECMP set with it; every candidate is listed for the command line.
#include <algorithm>
#include <map>
#include <random>
#include <tuple>

#include <gtest/gtest.h>

#include "Tunnel/TunnelRibCalc/TunnelRibCalculator.h"
#include "Tunnel/TunnelTable/Tables.h"

using namespace Tunnel::TunnelTable;
using namespace Tunnel::TunnelRibCalc;

namespace {

// What the model remembers of a tunnel it wrote.
struct Written {
  ColoredTunnelEndpoint cep;
  TunnelEntryPref pref;
  uint32_t metric = 0;
  uint32_t bw = 0;
};

using Rank = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t>;
Rank rankOf(TunnelType t, Written const& w) {
  return {static_cast<uint32_t>(w.pref.value()), getDefaultPrefForType(t).value(), w.metric,
          static_cast<uint32_t>(t)};
}

class Fixture {
 public:
  static constexpr TunnelType kTypes[] = {isisSrTunnel, isisFlexAlgoTunnel, ldpTunnel, ospfSrTunnel,
                                          srTePolicyTunnel};

  Fixture() : calc(rib, coloredRib, status) {
    for (TunnelType t : kTypes) {
      withTable(t, [&](auto& table) {
        EXPECT_TRUE(calc.inputIs(Zent::Ptr<TunnelTableBase const>(&table)));
      });
    }
  }

  static Vorn::IpGenPrefix prefix(uint32_t i) {
    return Vorn::IpGenPrefix(Vorn::IpGenAddr((10u << 24) | (i + 1)), 32);
  }

  // Calls f with the input table of type t.
  template <typename F>
  void withTable(TunnelType t, F&& f) {
    switch (t) {
      case srTePolicyTunnel:
        return f(*policy);
      case isisFlexAlgoTunnel:
        return f(*flex);
      case ldpTunnel:
        return f(*ldp);
      case isisSrTunnel:
        return f(*sr);
      default:
        return f(*ospf);
    }
  }

  // Writes tunnel `index` of type `t` with the model's values.
  void write(TunnelType t, uint64_t index, Written w) {
    TunnelId id(t, index);
    withTable(t, [&](auto& table) {
      typename std::decay_t<decltype(table)>::EntryType e(id);
      e.endpointIs(TepIndex(0), w.cep.tep());
      e.entryPrefIs(w.pref);
      e.entryMetricIs(w.metric);
      e.tunnelBwIs(TunnelBandwidth(w.bw));
      if constexpr (requires { e.colorIs(0u); }) e.colorIs(w.cep.color());
      if constexpr (requires { e.isColoredIs(true); }) e.isColoredIs(w.cep.isColored());
      table.entryIs(e);
    });
    model[id] = w;
  }
  void erase(TunnelId id) {
    withTable(id.tunnelType(), [&](auto& table) { table.entryDel(id); });
    model.erase(id);
  }

  // Compares both RIBs and their command-line views with the rule.
  void check() {
    std::map<ColoredTunnelEndpoint, std::vector<TunnelId>> byCep;
    for (auto const& [id, w] : model) byCep[w.cep].push_back(id);
    size_t plain = 0, colored = 0;
    for (auto& [cep, ids] : byCep) {
      (cep.isColored() ? colored : plain) += 1;
      std::sort(ids.begin(), ids.end(), [&](TunnelId a, TunnelId b) {
        return std::pair(rankOf(a.tunnelType(), model[a]), a) <
               std::pair(rankOf(b.tunnelType(), model[b]), b);
      });
      Written const& bestW = model[ids[0]];
      TunnelType bestT = ids[0].tunnelType();
      std::vector<std::pair<TunnelId, TunnelBandwidth>> want, got;
      for (TunnelId id : ids) {
        Written const& w = model[id];
        // Equal types form an ECMP set, and so do IS-IS SR and flex-algo.
        bool const ecmp =
            id.tunnelType() == bestT ||
            std::minmax(id.tunnelType(), bestT) == std::minmax(isisSrTunnel, isisFlexAlgoTunnel);
        if (w.pref == bestW.pref && w.metric == bestW.metric && ecmp) want.push_back({id, w.bw});
      }
      TunnelRibBase& r = cep.isColored() ? static_cast<TunnelRibBase&>(*coloredRib)
                                         : static_cast<TunnelRibBase&>(*rib);
      TunnelRibEntry e;
      ASSERT_TRUE(r.tunnelRibEntry(cep, e)) << cep;
      for (uint32_t i = 0; i < e.tunnelIdCount(); ++i) {
        got.push_back({e.tunnelId(TunnelIdCollIndex(i)), e.tunnelBw(TunnelIdCollIndex(i))});
      }
      ASSERT_EQ(got, want) << cep;
      EXPECT_EQ(e.entryPref(), bestW.pref);
      EXPECT_EQ(e.entryMetric(), bestW.metric);

      // Every candidate, in rank order, with its tunnels in id order.
      std::vector<std::pair<InternalTunnelCandidateId, std::vector<TunnelId>>> cands, listed;
      for (TunnelId id : ids) {
        InternalTunnelCandidateId cid(id.tunnelType(), model[id].pref, model[id].metric);
        if (cands.empty() || !(cands.back().first == cid)) cands.push_back({cid, {}});
        cands.back().second.push_back(id);
      }
      auto entry = calc.cliRib(cep.isColored())->entry(cep);
      ASSERT_TRUE(entry) << cep;
      for (auto const& cid : entry->candidateIds()) {
        listed.push_back({cid, entry->candidates(cid)->tunnelIds()});
      }
      ASSERT_EQ(listed, cands) << cep;
    }
    EXPECT_EQ(rib->tunnelRibEntryCount(), plain);
    EXPECT_EQ(coloredRib->tunnelRibEntryCount(), colored);
    EXPECT_EQ(calc.cliRib(false)->entryCount(), plain);
    EXPECT_EQ(calc.cliRib(true)->entryCount(), colored);
  }

  Zent::Ptr<IsisSrTunnelTable> sr = isisSrTunnelTableFactory("sr");
  Zent::Ptr<IsisFlexAlgoTunnelTable> flex = isisFlexAlgoTunnelTableFactory("flex");
  Zent::Ptr<LdpTunnelTable> ldp = ldpTunnelTableFactory("ldp");
  Zent::Ptr<OspfSrTunnelTable> ospf = ospfSrTunnelTableFactory("ospf");
  Zent::Ptr<SrTePolicyTunnelTable> policy = srTePolicyTunnelTableFactory("policy");
  Zent::Ptr<TunnelRib> rib = tunnelRibFactory("rib");
  Zent::Ptr<ColoredTunnelRib> coloredRib = coloredTunnelRibFactory("coloredRib");
  Zent::Ptr<TunnelPelagStatus> status = tunnelPelagStatusFactory("status");
  TunnelRibCalculator calc;
  std::map<TunnelId, Written> model;
};

TEST(TunnelRibCalculatorTest, RibsFollowTheRuleThroughRandomChanges) {
  Fixture f;
  std::mt19937_64 rng(11);
  // Few values, so that ties in every rule of the ranking are common.
  const uint8_t prefs[] = {10, 55, 60, 65, 65, 65};
  for (int step = 0; step < 3000; ++step) {
    TunnelType t = Fixture::kTypes[rng() % 5];
    uint64_t index = 1 + rng() % 12;
    if (rng() % 5 == 0) {
      f.erase(TunnelId(t, index));
    } else {
      Written w;
      auto p = Fixture::prefix(static_cast<uint32_t>(rng() % 4));
      bool colored = t == srTePolicyTunnel || (t == isisFlexAlgoTunnel && rng() % 2);
      w.cep = colored ? ColoredTunnelEndpoint(p, static_cast<uint32_t>(rng() % 2))
                      : ColoredTunnelEndpoint(p);
      w.pref = TunnelEntryPref(prefs[rng() % 6]);
      w.metric = static_cast<uint32_t>(rng() % 3) * 5;
      w.bw = static_cast<uint32_t>(rng() % 1000);
      f.write(t, index, w);
    }
    // Bursts of several updates before a flush, as an agent's event loop has.
    if (rng() % 4 == 0) {
      f.calc.flush();
      ASSERT_NO_FATAL_FAILURE(f.check()) << "after step " << step;
    }
  }
  for (auto const& [id, w] : std::map<TunnelId, Written>(f.model)) f.erase(id);
  f.calc.flush();
  EXPECT_EQ(f.rib->tunnelRibEntryCount() + f.coloredRib->tunnelRibEntryCount(), 0u);
  EXPECT_EQ(f.calc.cliRib(false)->entryCount() + f.calc.cliRib(true)->entryCount(), 0u);
}

TEST(TunnelRibCalculatorTest, IgnoresWhatDoesNotCompeteAndCountsOnlyChanges) {
  Fixture f;
  // BGP-LU tunnels its producer keeps out of the RIB offer nothing.
  auto bgpLu = bgpLuTunnelTableFactory("bgpLu");
  ASSERT_TRUE(f.calc.inputIs(bgpLu));
  BgpLuTunnelTableEntry lu(TunnelId(bgpLuTunnel, 1));
  lu.endpointIs(TepIndex(0), Fixture::prefix(0));
  lu.contributionIs(ContributionToTunnelRIB::doesNotContribute);
  bgpLu->entryIs(lu);
  EXPECT_FALSE(f.calc.inputIs(tiLfaTunnelTableFactory("tiLfa")));
  f.calc.flush();
  EXPECT_EQ(f.rib->tunnelRibEntryCount(), 0u);

  Written w{ColoredTunnelEndpoint(Fixture::prefix(0)), TunnelEntryPref(65), 5, 100};
  f.write(isisSrTunnel, 1, w);
  f.calc.flush();
  uint64_t counter = f.rib->tunnelRibUpdateCounter();
  // The same entry written again changes nothing downstream.
  f.write(isisSrTunnel, 1, w);
  f.calc.flush();
  EXPECT_EQ(f.rib->tunnelRibUpdateCounter(), counter);
  // Withdrawing the input withdraws its tunnels.
  f.calc.inputDel(TunnelTableIdentifier::isisSrTunnelTable);
  f.model.clear();
  f.calc.flush();
  EXPECT_EQ(f.rib->tunnelRibEntryCount(), 0u);

  // What an earlier run left for endpoints nobody offers goes; the rest stays.
  f.write(ldpTunnel, 1, w);
  TunnelRibEntry left(ColoredTunnelEndpoint(Fixture::prefix(9), 4));
  left.addTunnelWithBw(TunnelId(srTePolicyTunnel, 3), 1);
  f.coloredRib->tunnelRibEntryIs(left);
  f.calc.cliRib(false)->entryIs(ColoredTunnelEndpoint(Fixture::prefix(8)));
  EXPECT_EQ(f.calc.reconcile(), 2u);
  EXPECT_EQ(f.coloredRib->tunnelRibEntryCount(), 0u);
  ASSERT_NO_FATAL_FAILURE(f.check());
}

TEST(TunnelRibCalculatorTest, RankReasonNamesTheFirstRuleThatDecides) {
  using C = InternalTunnelCandidateId;
  EXPECT_EQ(rankReason(C(isisSrTunnel, 10, 9), C(ldpTunnel, 11, 0)), "lower entry preference");
  EXPECT_EQ(rankReason(C(ospfSrTunnel, 65, 9), C(isisSrTunnel, 65, 0)), "lower type preference");
  EXPECT_EQ(rankReason(C(isisFlexAlgoTunnel, 65, 5), C(isisSrTunnel, 65, 10)), "lower metric");
  EXPECT_EQ(rankReason(C(isisSrTunnel, 65, 5), C(isisFlexAlgoTunnel, 65, 5)), "type number");
}

}  // namespace
