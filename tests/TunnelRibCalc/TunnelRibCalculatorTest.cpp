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
  Fixture()
      : sr(isisSrTunnelTableFactory("sr")),
        flex(isisFlexAlgoTunnelTableFactory("flex")),
        ldp(ldpTunnelTableFactory("ldp")),
        ospf(ospfSrTunnelTableFactory("ospf")),
        policy(srTePolicyTunnelTableFactory("policy")),
        rib(tunnelRibFactory("rib")),
        coloredRib(coloredTunnelRibFactory("coloredRib")),
        status(tunnelPelagStatusFactory("status")),
        calc(rib, coloredRib, status) {
    for (Zent::Ptr<TunnelTableBase const> t :
         {Zent::Ptr<TunnelTableBase const>(sr.ptr()), Zent::Ptr<TunnelTableBase const>(flex.ptr()),
          Zent::Ptr<TunnelTableBase const>(ldp.ptr()), Zent::Ptr<TunnelTableBase const>(ospf.ptr()),
          Zent::Ptr<TunnelTableBase const>(policy.ptr())}) {
      EXPECT_TRUE(calc.inputIs(t));
    }
  }

  static Vorn::IpGenPrefix prefix(uint32_t i) {
    return Vorn::IpGenPrefix(Vorn::IpGenAddr((10u << 24) | (i + 1)), 32);
  }

  template <typename Entry>
  static void fill(Entry& e, Written const& w) {
    e.endpointIs(TepIndex(0), w.cep.tep());
    e.entryPrefIs(w.pref);
    e.entryMetricIs(w.metric);
    e.tunnelBwIs(TunnelBandwidth(w.bw));
  }

  // Writes tunnel `index` of type `t` with the model's values.
  void write(TunnelType t, uint64_t index, Written w) {
    TunnelId id(t, index);
    if (t == srTePolicyTunnel) {
      SrTePolicyTunnelTableEntry e(id);
      fill(e, w);
      e.colorIs(w.cep.color());
      policy->entryIs(e);
    } else if (t == isisFlexAlgoTunnel) {
      FlexAlgoTunnelTableEntry e(id);
      fill(e, w);
      e.colorIs(w.cep.color());
      e.isColoredIs(w.cep.isColored());
      flex->entryIs(e);
    } else if (t == ldpTunnel) {
      LdpTunnelTableEntry e(id);
      fill(e, w);
      ldp->entryIs(e);
    } else {
      SrTunnelTableEntry e(id);
      fill(e, w);
      if (t == isisSrTunnel) {
        sr->entryIs(e);
      } else {
        ospf->entryIs(e);
      }
    }
    model[id] = w;
  }
  void erase(TunnelId id) {
    switch (id.tunnelType()) {
      case srTePolicyTunnel:
        policy->entryDel(id);
        break;
      case isisFlexAlgoTunnel:
        flex->entryDel(id);
        break;
      case ldpTunnel:
        ldp->entryDel(id);
        break;
      case isisSrTunnel:
        sr->entryDel(id);
        break;
      default:
        ospf->entryDel(id);
        break;
    }
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
      TunnelRibEntry want(cep);
      for (TunnelId id : ids) {
        Written const& w = model[id];
        if (w.pref == bestW.pref && w.metric == bestW.metric &&
            TunnelRibEntry::tunnelTypesCanFormEcmp(id.tunnelType(), bestT)) {
          want.addTunnelWithBw(id, TunnelBandwidth(w.bw));
        }
      }
      TunnelRibBase& r = cep.isColored() ? static_cast<TunnelRibBase&>(*coloredRib)
                                         : static_cast<TunnelRibBase&>(*rib);
      TunnelRibEntry got;
      ASSERT_TRUE(r.tunnelRibEntry(cep, got)) << cep;
      ASSERT_EQ(got.tunnelIdCount(), want.tunnelIdCount()) << cep;
      for (uint32_t i = 0; i < want.tunnelIdCount(); ++i) {
        ASSERT_EQ(got.tunnelId(TunnelIdCollIndex(i)), want.tunnelId(TunnelIdCollIndex(i)));
        ASSERT_EQ(got.tunnelBw(TunnelIdCollIndex(i)), want.tunnelBw(TunnelIdCollIndex(i)));
      }
      EXPECT_EQ(got.entryPref(), bestW.pref);
      EXPECT_EQ(got.entryMetric(), bestW.metric);

      // Every candidate, in rank order, with its tunnels.
      std::vector<std::pair<InternalTunnelCandidateId, std::vector<TunnelId>>> cands;
      for (TunnelId id : ids) {
        InternalTunnelCandidateId cid(id.tunnelType(), model[id].pref, model[id].metric);
        if (cands.empty() || !(cands.back().first == cid)) cands.push_back({cid, {}});
        cands.back().second.push_back(id);
      }
      auto entry = calc.cliRib(cep.isColored())->entry(cep);
      ASSERT_TRUE(entry) << cep;
      std::vector<InternalTunnelCandidateId> order = entry->candidateIds();
      ASSERT_EQ(order.size(), cands.size()) << cep;
      for (size_t i = 0; i < cands.size(); ++i) {
        ASSERT_EQ(order[i], cands[i].first);
        auto have = entry->candidates(order[i])->tunnelIds();
        auto want2 = cands[i].second;
        std::sort(want2.begin(), want2.end());
        ASSERT_EQ(have, want2);
      }
    }
    EXPECT_EQ(rib->tunnelRibEntryCount(), plain);
    EXPECT_EQ(coloredRib->tunnelRibEntryCount(), colored);
    EXPECT_EQ(calc.cliRib(false)->entryCount(), plain);
    EXPECT_EQ(calc.cliRib(true)->entryCount(), colored);
  }

  Zent::Ptr<IsisSrTunnelTable> sr;
  Zent::Ptr<IsisFlexAlgoTunnelTable> flex;
  Zent::Ptr<LdpTunnelTable> ldp;
  Zent::Ptr<OspfSrTunnelTable> ospf;
  Zent::Ptr<SrTePolicyTunnelTable> policy;
  Zent::Ptr<TunnelRib> rib;
  Zent::Ptr<ColoredTunnelRib> coloredRib;
  Zent::Ptr<TunnelPelagStatus> status;
  TunnelRibCalculator calc;
  std::map<TunnelId, Written> model;
};

TEST(TunnelRibCalculatorTest, RibsFollowTheRuleThroughRandomChanges) {
  Fixture f;
  std::mt19937_64 rng(11);
  const TunnelType types[] = {isisSrTunnel, isisFlexAlgoTunnel, ldpTunnel, ospfSrTunnel,
                              srTePolicyTunnel};
  // Few values, so that ties in every rule of the ranking are common.
  const uint8_t prefs[] = {10, 55, 60, 65, 65, 65};
  for (int step = 0; step < 3000; ++step) {
    TunnelType t = types[rng() % 5];
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
