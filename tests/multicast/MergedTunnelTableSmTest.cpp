// The merge against its rule said plainly: after the machine is ready, and
// after every later change, the output holds exactly the keys some input
// holds, each with the static entry when there is one and else the MLDP
// entry, whole. Random writes and deletions hit both inputs during the scans
// too, under schedulers that yield after every entry and never, on tables in
// process memory and in shared memory, with and without output left by an
// earlier run.
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/multicast/MergedTunnelTableSm.h"
#include "tests/shmem/ShmTestUtil.h"

using namespace Tunnel::TunnelTable;
using Routing::Multicast::MulticastTreeId;
using Sm = MergedTunnelTableSm;

namespace {

struct Tables {
  Zent::Ptr<MldpTunnelTable> mldp;
  Zent::Ptr<StaticMcastTunnelTable> statics;
  Zent::Ptr<MplsMulticastTunnelTable> merged;
};

// In process memory, or mounted as writers under a state root.
class TableSet {
 public:
  explicit TableSet(bool mounted) {
    registerMountTypes();
    if (!mounted) {
      t_ = {mldpTunnelTableFactory("mldp"), staticMcastTunnelTableFactory("static"),
            mplsMulticastTunnelTableFactory("merged")};
      return;
    }
    root_ = std::make_unique<TamselTest::StateRoot>();
    mount_ = std::make_unique<ZentTamsel::Mount>(Zent::String(root_->path()), registry_);
    TunnelTableMounter mounter(*mount_);
    t_ = {Zent::dynamicPtrCast<MldpTunnelTable>(
              mounter.mountWriter(TunnelTableIdentifier::mldpTunnelTable)),
          Zent::dynamicPtrCast<StaticMcastTunnelTable>(
              mounter.mountWriter(TunnelTableIdentifier::staticMcastTunnelTable)),
          mountMplsMulticastTunnelTable(*mount_, ZentTamsel::MountType::writer)};
  }
  Tables& operator*() { return t_; }
  Tables* operator->() { return &t_; }

 private:
  ZentTamsel::MountRegistry registry_;
  std::unique_ptr<TamselTest::StateRoot> root_;
  std::unique_ptr<ZentTamsel::Mount> mount_;
  Tables t_;
};

TunnelId key(uint64_t i) { return TunnelId(mldpTunnel, i); }

MplsMulticastTunnelTableEntry entry(uint64_t i, TunnelType type, uint32_t gen, int vias) {
  MplsMulticastTunnelTableEntry e(key(i), MulticastTreeId("tree-" + std::to_string(gen)));
  e.tunnelTypeIs(type);
  for (int v = 0; v < vias; ++v) {
    e.viaIs(ViaIndex(static_cast<uint16_t>(v)),
            MplsVia(Vorn::IpGenAddr(0x0a000000u + gen * 8 + static_cast<uint32_t>(v)),
                    Vorn::IntfId(), Vorn::MplsLabelOperation()));
  }
  return e;
}

using Contents = std::map<uint64_t, MplsMulticastTunnelTableEntry>;

// Adds every entry of `table` to `into`, replacing what is there.
Contents& add(Contents& into, MplsMulticastTunnelTable const& table) {
  MplsMulticastTunnelTableEntry e;
  for (TunnelId k : table.entryKeys(nullptr, SIZE_MAX)) {
    if (table.entry(k, e)) into[k.value()] = e;
  }
  return into;
}

// What the output must hold: static overrides MLDP, whole.
Contents expected(Tables const& t) {
  Contents want;
  return add(add(want, *t.mldp), *t.statics);
}

Contents output(Tables const& t) {
  Contents got;
  return add(got, *t.merged);
}

// One random write or deletion to one input, over few keys so that both
// inputs often hold the same key.
void churn(Tables& t, std::mt19937& rng, uint32_t gen) {
  uint64_t const i = rng() % 40;
  bool const toStatic = rng() % 3 == 0;
  if (rng() % 4 == 0) {
    toStatic ? (void)t.statics->entryDel(key(i)) : (void)t.mldp->entryDel(key(i));
  } else if (toStatic) {
    t.statics->entryIs(entry(i, staticMcastTunnel, gen, 1 + static_cast<int>(rng() % 3)));
  } else {
    t.mldp->entryIs(entry(i, mldpTunnel, gen, 1 + static_cast<int>(rng() % 3)));
  }
}

struct Case {
  const char* name;
  Rivy::YieldPolicy policy;
  bool mounted;
  bool staleOutput;
};

class MergeModelTest : public ::testing::TestWithParam<Case> {};

TEST_P(MergeModelTest, OutputIsStaticOverridingMldpOnceReadyAndAfterEveryChange) {
  Case const c = GetParam();
  for (uint32_t seed = 1; seed <= 6; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 rng(seed);
    TableSet t(c.mounted);
    uint32_t gen = 0;
    for (int i = 0; i < 50; ++i) churn(*t, rng, ++gen);
    Contents stale;
    if (c.staleOutput) {
      // An earlier run's output: some keys the inputs hold, some they do not.
      for (uint64_t i = 20; i < 60; i += 3) {
        t->merged->entryIs(entry(i, mldpTunnel, 9999, 1));
        stale[key(i).value()] = entry(i, mldpTunnel, 9999, 1);
      }
    }
    Rivy::TaskScheduler scheduler;
    scheduler.yieldPolicyIs(c.policy);
    Rivy::SmControl control;
    control.taskScheduler = &scheduler;
    control.synchronousMode = Rivy::SynchronousMode::asynchronous;
    auto sm = mergedTunnelTableSmFactory(t->mldp, t->statics, t->merged, control);
    sm->handleInitialized();
    uint64_t steps = 0;
    while (!sm->ready()) {
      ASSERT_LT(++steps, 5000u) << "the merge never became ready";
      if (rng() % 2) {
        churn(*t, rng, ++gen);
      } else {
        scheduler.runSome();
      }
      // Before the second scans nothing reaches the output.
      if (!sm->initialScanDone()) {
        ASSERT_EQ(output(*t), stale);
      }
    }
    ASSERT_EQ(output(*t), expected(*t));
    EXPECT_FALSE(sm->mergedTableEntryOutputReconciling());
    for (int i = 0; i < 300; ++i) {
      churn(*t, rng, ++gen);
      scheduler.runUntilIdle();
      ASSERT_EQ(output(*t), expected(*t)) << "after change " << i;
    }
    EXPECT_TRUE(sm->idle());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Schedules, MergeModelTest,
    ::testing::Values(Case{"yieldEveryEntry", Rivy::YieldPolicy::everyCall, false, false},
                      Case{"neverYield", Rivy::YieldPolicy::never, false, true},
                      Case{"yieldEveryEntryShared", Rivy::YieldPolicy::everyCall, true, true},
                      Case{"neverYieldShared", Rivy::YieldPolicy::never, true, false}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(MergeTest, ReconciliationRemovesExactlyTheKeysNoInputHolds) {
  for (bool synchronous : {true, false}) {
    SCOPED_TRACE(synchronous);
    TableSet t(true);
    t->mldp->entryIs(entry(1, mldpTunnel, 1, 2));
    t->mldp->entryIs(entry(2, mldpTunnel, 2, 2));
    t->statics->entryIs(entry(2, staticMcastTunnel, 3, 1));
    t->statics->entryIs(entry(3, staticMcastTunnel, 4, 1));
    for (uint64_t i : {1, 2, 3, 4, 5}) t->merged->entryIs(entry(i, mldpTunnel, 100, 3));
    Rivy::TaskScheduler scheduler;
    scheduler.yieldPolicyIs(Rivy::YieldPolicy::everyCall);
    Rivy::SmControl control;
    control.taskScheduler = &scheduler;
    control.synchronousMode =
        synchronous ? Rivy::SynchronousMode::synchronous : Rivy::SynchronousMode::asynchronous;
    auto sm = mergedTunnelTableSmFactory(t->mldp, t->statics, t->merged, control);
    sm->handleInitialized();
    EXPECT_EQ(sm->ready(), synchronous);
    EXPECT_EQ(sm->mergedTableEntryOutputReconciling(), !synchronous);
    scheduler.runUntilIdle();
    ASSERT_TRUE(sm->ready());
    EXPECT_EQ(output(*t), expected(*t));
    EXPECT_EQ(sm->reconciledDeletes(), 2u);  // keys 4 and 5
    EXPECT_EQ(output(*t).at(key(2).value()), entry(2, staticMcastTunnel, 3, 1));
    EXPECT_TRUE(sm->mergedTableEntryOutputSeen().empty());
    EXPECT_EQ(sm->mergedTableEntryOutputReconciliationTask(), nullptr);
    // Destroying the machine leaves the output for the next run.
    sm = nullptr;
    EXPECT_EQ(t->merged->entryCount(), 3u);
  }
}

TEST(MergeTest, ControlModesAndAssertions) {
  TableSet t(false);
  t->mldp->entryIs(entry(1, mldpTunnel, 1, 1));
  Rivy::TaskScheduler scheduler;
  Rivy::SmControl control;
  control.taskScheduler = &scheduler;
  // By default a machine of the leading agent runs synchronously; another
  // keeps what it was given before initialization.
  control.leading = true;
  auto sm = mergedTunnelTableSmFactory(t->mldp, t->statics, t->merged, control);
  sm->handleInitialized();
  EXPECT_TRUE(sm->synchronous());
  EXPECT_TRUE(sm->idle());
  control.leading = false;
  sm = mergedTunnelTableSmFactory(t->mldp, t->statics, t->merged, control);
  sm->handleInitialized();
  EXPECT_FALSE(sm->synchronous());
  EXPECT_FALSE(sm->ready());
  EXPECT_GT(scheduler.runUntilIdle(), 0u);
  EXPECT_TRUE(sm->idle());
  EXPECT_EQ(sm->merges(), 1u);
  // Deleting all sends every key down its stream; the merge reads the inputs
  // afresh, so what they still hold stays.
  sm->doDeleteAll();
  EXPECT_EQ(output(*t), expected(*t));

  EXPECT_DEATH(mergedTunnelTableSmFactory(nullptr, t->statics, t->merged, control),
               "mldpTable\\(\\) && \"Pointer SM args cannot be null unless they are marked "
               "Optional\"");
  EXPECT_EQ(Sm::MergedTableEntryOutputKeyType(key(7), true).stringValue(),
            "Value('Tunnel::TunnelTable::MergedTunnelTableSm::MergedTableEntryOutputKeyType', ** "
            "{'k0': " +
                key(7).stringValue() + ", 'k0Valid': true})");
}

}  // namespace
