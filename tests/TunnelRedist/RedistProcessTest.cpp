// A producer process writes the LDP, IS-IS SR and BGP-LU tables; a consumer
// process mounts them as key shadows, runs the three machines and ends with
// the configuration the tables imply, also after it restarts.
#include <random>

#include <gtest/gtest.h>

#include "Tunnel/shmem/ZentTamsel/Mount.h"
#include "tests/TunnelRedist/RedistTestUtil.h"

using namespace RedistTest;

namespace {

using TamselTest::Pipe;

template <typename Case>
void churn(Zent::Ptr<TunnelTableBase> const& base, std::mt19937_64& rng, int steps) {
  auto table = Zent::dynamicPtrCast<typename Case::Table>(base);
  for (int i = 0; i < steps; ++i) {
    uint64_t index = rng() % 400;
    if (rng() % 5 == 0) {
      table->entryDel(Case::id(index));
    } else {
      table->entryIs(Case::entry(index, static_cast<uint32_t>(rng() % 60),
                                 static_cast<uint32_t>(rng() % 100)));
    }
  }
}

struct Consumer {
  explicit Consumer(TunnelTableMounter const& m) : mounter(m) {
    ldp = Zent::dynamicPtrCast<LdpTunnelTable>(
        mounter.mountKeyshadow(TunnelTableIdentifier::ldpTunnelTable));
    sr = Zent::dynamicPtrCast<IsisSrTunnelTable>(
        mounter.mountKeyshadow(TunnelTableIdentifier::isisSrTunnelTable));
    lu = Zent::dynamicPtrCast<BgpLuTunnelTable>(
        mounter.mountKeyshadow(TunnelTableIdentifier::bgpLuTunnelTable));
    ldpSm = ldpTunnelRedistConfigSmFactory(ldpConfig, ldp);
    srSm = isisSrTunnelRedistConfigSmFactory(srConfig, sr);
    luSm = bgpLuTunnelRedistConfigSmFactory(luConfig, lu);
    ldpSm->handleInitialized();
    srSm->handleInitialized();
    luSm->handleInitialized();
  }
  ~Consumer() {
    ldpSm = nullptr;
    srSm = nullptr;
    luSm = nullptr;
    ldp = nullptr;
    sr = nullptr;
    lu = nullptr;
    for (auto id : {TunnelTableIdentifier::ldpTunnelTable, TunnelTableIdentifier::isisSrTunnelTable,
                    TunnelTableIdentifier::bgpLuTunnelTable}) {
      mounter.unmount(id);
    }
  }
  bool matches() const {
    return configOf(*ldpConfig) == LdpCase::expected(*ldp) &&
           configOf(*srConfig) == IsisSrCase::expected(*sr) &&
           configOf(*luConfig) == BgpLuCase::expected(*lu) && ldpConfig->entryCount() > 0;
  }
  TunnelTableMounter mounter;
  Zent::Ptr<TunnelRedistConfig> ldpConfig = tunnelRedistConfigFactory("ldp");
  Zent::Ptr<TunnelRedistConfig> srConfig = tunnelRedistConfigFactory("sr");
  Zent::Ptr<TunnelRedistConfig> luConfig = tunnelRedistConfigFactory("bgpLu");
  Zent::Ptr<LdpTunnelTable> ldp;
  Zent::Ptr<IsisSrTunnelTable> sr;
  Zent::Ptr<BgpLuTunnelTable> lu;
  Zent::Ptr<LdpTunnelRedistConfigSm> ldpSm;
  Zent::Ptr<IsisSrTunnelRedistConfigSm> srSm;
  Zent::Ptr<BgpLuTunnelRedistConfigSm> luSm;
};

TEST(RedistProcessTest, ConsumerFollowsAProducerAcrossProcessesAndRestarts) {
  TamselTest::StateRoot root;
  ZentTamsel::MountRegistry registry;
  TunnelTableMounter mounter(ZentTamsel::Mount(Zent::String(root.path()), registry));
  Pipe ready, go, done;
  pid_t producer = TamselTest::forkChild([&] {
    auto ldp = mounter.mountWriter(TunnelTableIdentifier::ldpTunnelTable);
    auto sr = mounter.mountWriter(TunnelTableIdentifier::isisSrTunnelTable);
    auto lu = mounter.mountWriter(TunnelTableIdentifier::bgpLuTunnelTable);
    std::mt19937_64 rng(11);
    churn<LdpCase>(ldp, rng, 600);
    churn<IsisSrCase>(sr, rng, 600);
    churn<BgpLuCase>(lu, rng, 600);
    ready.signal();
    go.wait();
    // Moves, metric changes, deletions and re-adds while the consumer runs.
    churn<LdpCase>(ldp, rng, 3000);
    churn<IsisSrCase>(sr, rng, 3000);
    churn<BgpLuCase>(lu, rng, 3000);
    done.signal();
    return true;
  });
  ASSERT_TRUE(ready.wait());
  RedistTest::ConfigView before;
  {
    Consumer c(mounter);
    EXPECT_TRUE(c.matches());
    go.signal();
    ASSERT_TRUE(done.wait());
    // The producer is done: every change is in the tables already.
    EXPECT_TRUE(TamselTest::dispatchUntil([&] { return c.matches(); },
                                          [&](int ms) { return registry.dispatchAll(ms); }));
    before = configOf(*c.ldpConfig);
  }
  EXPECT_EQ(TamselTest::waitChild(producer), 0);
  // Restarted, the consumer rebuilds the same configuration from the tables.
  Consumer again(mounter);
  EXPECT_TRUE(again.matches());
  EXPECT_EQ(configOf(*again.ldpConfig), before);
}

}  // namespace
