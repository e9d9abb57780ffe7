// The merge agent across processes: killed with SIGKILL in the middle of its
// scans, over an output an earlier run left, and started again after its
// inputs changed, it ends with the output equal to the merge of the inputs.

#include <map>

#include <gtest/gtest.h>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/multicast/MulticastMergeAgent.h"
#include "tests/shmem/ShmTestUtil.h"

namespace Tunnel::TunnelTable {
namespace {

using Model = std::map<TunnelId, MplsMulticastTunnelTableEntry>;

TunnelId mcastId(TunnelType type, uint64_t index) { return TunnelId(type, index); }

// `gen` sets the tree and the branches, so that a rewrite changes the value.
template <typename Entry>
Entry tree(TunnelId id, uint32_t gen) {
  Entry e;
  e.tunnelIdIs(id);
  e.mcastTreeIdIs(Routing::Multicast::MulticastTreeId("t" + std::to_string(gen)));
  for (uint32_t v = 0; v < 1 + gen % 3; ++v) {
    e.viaIs(ViaIndex(v), MplsVia(Vorn::IpGenAddr(0x0a000001u + v + gen), Vorn::IntfId::ethernet(v),
                                 Vorn::MplsLabelOperation::push({Vorn::MplsLabel(1000 + gen)})));
  }
  return e;
}

class MergeProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    mldp_ = Zent::dynamicPtrCast<MldpTunnelTable>(
        mounter_.mountWriter(TunnelTableIdentifier::mldpTunnelTable));
    static_ = Zent::dynamicPtrCast<StaticMcastTunnelTable>(
        mounter_.mountWriter(TunnelTableIdentifier::staticMcastTunnelTable));
    ASSERT_TRUE(mldp_ && static_);
  }
  void TearDown() override {
    if (agent_) {
      ::kill(agent_, SIGKILL);
      TamselTest::waitChild(agent_);
    }
    mldp_ = nullptr;
    static_ = nullptr;
    mounter_.unmount(TunnelTableIdentifier::mldpTunnelTable);
    mounter_.unmount(TunnelTableIdentifier::staticMcastTunnelTable);
  }

  void putMldp(uint64_t i, uint32_t gen) {
    mldp_->entryIs(tree<MldpTunnelTableEntry>(mcastId(mldpTunnel, i), gen));
    mldpModel_[mcastId(mldpTunnel, i)] = mldp_->entry(mcastId(mldpTunnel, i));
  }
  void putStatic(TunnelId id, uint32_t gen) {
    static_->entryIs(tree<StaticMcastTunnelTableEntry>(id, gen));
    staticModel_[id] = static_->entry(id);
  }
  Model expected() const {
    Model m = mldpModel_;
    for (auto const& [k, v] : staticModel_) m[k] = v;  // the static entry replaces MLDP's whole
    return m;
  }

  // An agent whose scans go one entry per loop round, and slowly, so that it
  // can be caught in the middle of them.
  void startAgent() {
    std::string root = root_.path();
    agent_ = TamselTest::forkChild([root] {
      Rivy::EventLoop loop;
      loop.taskScheduler().yieldPolicyIs(Rivy::YieldPolicy::everyCall);
      MulticastMergeOptions o;
      o.statusPeriod = std::chrono::milliseconds(1);
      MulticastMergeAgent agent(root, loop, o);
      for (;;) {
        loop.runOnce(10);
        ::usleep(100);
      }
      return true;
    });
  }
  template <typename Pred>
  std::optional<MulticastMergeStatus> waitStatus(Pred&& pred) {
    for (int i = 0; i < 20000; ++i) {
      std::optional<MulticastMergeStatus> s;
      try {
        s = readMulticastMergeStatus(root_.path());
      } catch (Tamsel::Error const&) {  // a writer creating the file has not written its header
      }
      if (s && s->writerPid == static_cast<uint32_t>(agent_) && pred(s->record)) return s;
      ::usleep(500);
    }
    return std::nullopt;
  }

  TamselTest::StateRoot root_;
  ZentTamsel::MountRegistry registry_;
  ZentTamsel::Mount mount_{Zent::String(root_.path()), registry_};
  TunnelTableMounter mounter_{mount_};
  Zent::Ptr<MldpTunnelTable> mldp_;
  Zent::Ptr<StaticMcastTunnelTable> static_;
  Model mldpModel_, staticModel_;
  pid_t agent_ = 0;
};

TEST_F(MergeProcessTest, KilledMidScanAndRestartedEndsEqualToTheMergeOfItsInputs) {
  {  // An earlier run's output: keys no input holds, and an outdated value.
    auto merged = mountMplsMulticastTunnelTable(mount_, ZentTamsel::writer());
    for (uint64_t i = 1; i <= 20; ++i) {
      merged->entryIs(tree<MplsMulticastTunnelTableEntry>(mcastId(mldpTunnel, 5000 + i), 7));
    }
    merged->entryIs(tree<MplsMulticastTunnelTableEntry>(mcastId(mldpTunnel, 1), 99));
    merged = nullptr;
    mount_.doUnmount(Zent::String(MplsMulticastTunnelTable::kMountPath));
  }
  for (uint64_t i = 1; i <= 300; ++i) putMldp(i, 1);
  for (uint64_t i = 1; i <= 100; ++i) {
    putStatic(i % 2 ? mcastId(mldpTunnel, 3 * i) : mcastId(staticMcastTunnel, i), 2);
  }

  startAgent();
  auto scanning = waitStatus([](MulticastMergeStatusRecord const& r) {
    return r.phaseValue() == MulticastMergePhase::firstScan ||
           r.phaseValue() == MulticastMergePhase::secondScan;
  });
  ASSERT_TRUE(scanning) << "the agent never reported a scan";
  ASSERT_EQ(::kill(agent_, SIGKILL), 0);
  EXPECT_EQ(TamselTest::waitChild(agent_), 128 + SIGKILL);
  auto left = readMulticastMergeStatus(root_.path());
  ASSERT_TRUE(left);
  EXPECT_FALSE(left->writerAlive);
  EXPECT_FALSE(left->record.ready());

  // While no merge runs: MLDP tunnels go and come, a static override goes
  // (its MLDP entry must show again) and static entries change.
  for (uint64_t i = 1; i <= 300; i += 7) {
    mldp_->entryDel(mcastId(mldpTunnel, i));
    mldpModel_.erase(mcastId(mldpTunnel, i));
  }
  for (uint64_t i = 301; i <= 330; ++i) putMldp(i, 3);
  static_->entryDel(mcastId(mldpTunnel, 9));
  staticModel_.erase(mcastId(mldpTunnel, 9));
  for (uint64_t i = 2; i <= 100; i += 10) putStatic(mcastId(staticMcastTunnel, i), 4);

  startAgent();
  auto ready = waitStatus([](MulticastMergeStatusRecord const& r) { return r.ready(); });
  ASSERT_TRUE(ready) << "the restarted agent never became ready";
  EXPECT_GE(ready->record.reconciledDeletes, 20u);

  auto merged = mountMplsMulticastTunnelTable(mount_, ZentTamsel::reader());
  ASSERT_TRUE(merged);
  Model got;
  for (TunnelId const& k : merged->entryKeys(nullptr, SIZE_MAX)) got[k] = merged->entry(k);
  Model const want = expected();
  EXPECT_EQ(got.size(), want.size());
  EXPECT_TRUE(got == want) << "the merged table differs from the merge of its inputs";
  EXPECT_EQ(multicastMergeDifferences(*mldp_, *static_, *merged), 0u);
  merged = nullptr;
  mount_.doUnmount(Zent::String(MplsMulticastTunnelTable::kMountPath));
}

// An input without a file yet is waited for, not taken as empty: taken as
// empty, the reconciliation would remove what the late producer still holds.
TEST(MergeAgentTest, WaitsForAMissingInputAndLeavesTheOutputUntilItComes) {
  TamselTest::StateRoot root;
  ZentTamsel::MountRegistry registry;
  ZentTamsel::Mount mount(Zent::String(root.path()), registry);
  TunnelTableMounter mounter(mount);
  TunnelId const id = mcastId(staticMcastTunnel, 1);
  auto merged = mountMplsMulticastTunnelTable(mount, ZentTamsel::writer());
  merged->entryIs(tree<MplsMulticastTunnelTableEntry>(id, 1));
  merged = nullptr;
  mount.doUnmount(Zent::String(MplsMulticastTunnelTable::kMountPath));
  auto mldp = mounter.mountWriter(TunnelTableIdentifier::mldpTunnelTable);

  Rivy::EventLoop loop;
  MulticastMergeOptions o;
  o.inputRetry = std::chrono::milliseconds(1);
  MulticastMergeAgent agent(root.path(), loop, o);
  for (int i = 0; i < 20; ++i) loop.runOnce(2);
  EXPECT_EQ(agent.phase(), MulticastMergePhase::waitingForInputs);
  EXPECT_EQ(agent.status().mergedEntries, 1u);

  auto statics = Zent::dynamicPtrCast<StaticMcastTunnelTable>(
      mounter.mountWriter(TunnelTableIdentifier::staticMcastTunnelTable));
  statics->entryIs(tree<StaticMcastTunnelTableEntry>(id, 2));
  for (int i = 0; i < 2000 && !agent.status().ready(); ++i) loop.runOnce(5);
  ASSERT_TRUE(agent.status().ready());
  EXPECT_EQ(agent.mergedTable()->entry(id), statics->entry(id));
  EXPECT_EQ(agent.status().reconciledDeletes, 0u);
  mldp = nullptr;
  statics = nullptr;
  mounter.unmount(TunnelTableIdentifier::mldpTunnelTable);
  mounter.unmount(TunnelTableIdentifier::staticMcastTunnelTable);
}

}  // namespace
}  // namespace Tunnel::TunnelTable
