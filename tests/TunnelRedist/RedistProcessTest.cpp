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

// One machine following its table's key shadow.
template <typename Case>
struct Follow {
  explicit Follow(TunnelTableMounter const& m)
      : table(Zent::dynamicPtrCast<typename Case::Table>(m.mountKeyshadow(Case::kId))),
        sm(Case::sm(config, table)) {
    sm->handleInitialized();
  }
  bool matches() const { return configOf(*config) == Case::expected(*table); }
  Zent::Ptr<TunnelRedistConfig> config = tunnelRedistConfigFactory("redist");
  Zent::Ptr<typename Case::Table> table;
  Zent::Ptr<typename Case::Sm> sm;
};

struct Consumer {
  explicit Consumer(TunnelTableMounter const& m) : mounter{m}, ldp(m), sr(m), lu(m) {}
  bool matches() const {
    return ldp.matches() && sr.matches() && lu.matches() && ldp.config->entryCount() > 0;
  }
  // Unmounts once the machines and shadows below are gone.
  struct Unmount {
    TunnelTableMounter m;
    ~Unmount() {
      for (auto id : {LdpCase::kId, IsisSrCase::kId, BgpLuCase::kId}) m.unmount(id);
    }
  } mounter;
  Follow<LdpCase> ldp;
  Follow<IsisSrCase> sr;
  Follow<BgpLuCase> lu;
};

TEST(RedistProcessTest, ConsumerFollowsAProducerAcrossProcessesAndRestarts) {
  TamselTest::StateRoot root;
  ZentTamsel::MountRegistry registry;
  TunnelTableMounter mounter(ZentTamsel::Mount(Zent::String(root.path()), registry));
  Pipe ready, go, done;
  pid_t producer = TamselTest::forkChild([&] {
    auto ldp = mounter.mountWriter(LdpCase::kId);
    auto sr = mounter.mountWriter(IsisSrCase::kId);
    auto lu = mounter.mountWriter(BgpLuCase::kId);
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
    before = configOf(*c.ldp.config);
  }
  EXPECT_EQ(TamselTest::waitChild(producer), 0);
  // Restarted, the consumer rebuilds the same configuration from the tables.
  Consumer again(mounter);
  EXPECT_TRUE(again.matches());
  EXPECT_EQ(configOf(*again.ldp.config), before);
}

}  // namespace
