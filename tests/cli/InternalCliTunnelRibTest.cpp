// The command-line RIB views: candidate ranking, the status's child rules,
// and a writer and shadows of one store in one process (flush order, writer
// restart, orphans, corrupt records).

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Reinstantiation.h"
#include "Tunnel/shmem/Pelag/Store.h"
#include "tests/cli/PelagTestUtil.h"
#include "tests/shmem/ShmTestUtil.h"

using namespace PelagTest;
using Id = InternalTunnelCandidateId;

namespace {

TEST(InternalTunnelCandidateIdTest, RanksByPrefThenTypeDefaultThenMetricThenType) {
  struct Case {
    Id better, worse;
  } const cases[] = {
      // Equal entry and default preference (65): the metric decides.
      {Id(isisFlexAlgoTunnel, 65, 5), Id(isisSrTunnel, 65, 10)},
      // The entry preference beats type and metric.
      {Id(bgpLuTunnel, 10, 1000), Id(staticTunnel, 11, 0)},
      // All else equal (no default for either type): the type number.
      {Id(evpnVxlanTunnel, 7, 3), Id(srTeSegmentListTunnel, 7, 3)},
      // The type's default (ldp 55 < isisSr 65) beats a lower metric.
      {Id(ldpTunnel, 20, 100), Id(isisSrTunnel, 20, 1)},
  };
  for (auto const& c : cases) {
    EXPECT_TRUE(c.better < c.worse) << c.better << " vs " << c.worse;
    EXPECT_FALSE(c.worse < c.better) << c.better << " vs " << c.worse;
    EXPECT_FALSE(c.better < c.better);
    Zent::String text(c.worse.stringValue());
    EXPECT_EQ(Zent::strepToValue<Id>(text), c.worse);
    EXPECT_EQ(Id(c.worse).hash(), c.worse.hash());
  }
  EXPECT_EQ(Id(isisSrTunnel, 65, 10).stringValue(),
            "Value('Tunnel::TunnelTable::InternalTunnelCandidateId', ** {'tunnelType': "
            "isisSrTunnel, 'entryPref': 65, 'entryMetric': 10})");
  auto e = Zent::newEntity<InternalCliTunnelRibEntry>(cep(1));
  for (auto const& c : cases) {
    e->candidatesIs(c.worse);
    e->candidatesIs(c.better);
  }
  auto ids = e->candidateIds();
  EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
  EXPECT_EQ(ids.size(), 8u);
}

// Reactors of the three notifying types, writing to one log.
using Log = std::vector<std::string>;
struct StatusEar : TunnelPelagStatus::NotifieeConst {
  Log* log = nullptr;
  void cliTunnelRibCollNotify(TunnelRibId id) override {
    log->push_back(fmt::format("rib {}", id));
  }
};
struct RibEar : InternalCliTunnelRib::NotifieeConst {
  Log* log = nullptr;
  void entryNotify(ColoredTunnelEndpoint const& c) override {
    log->push_back("entry " + c.stringValue());
  }
};
struct CandidateEar : InternalCliTunnelRibCandidate::NotifieeConst {
  Log* log = nullptr;
  void tunnelIdNotify(TunnelId t) override { log->push_back(fmt::format("id {}", t.value())); }
};
template <typename Ear, typename E>
Zent::Ptr<Ear> listen(Log& log, E const& e) {
  auto ear = Zent::Ptr<Ear>(Zent::newTracked<Ear>());
  ear->log = &log;
  ear->notifierIs(e.ptr());
  return ear;
}

TEST(TunnelPelagStatusTest, ChildRulesAndReinstantiation) {
  auto s = tunnelPelagStatusFactory("status");
  Log log;
  auto ear = listen<StatusEar>(log, s);
  auto rib = s->cliTunnelRibCollIs("a", 7);
  EXPECT_EQ(s->cliTunnelRibCollIs("a", 7), rib);  // same name: the same member, unheard
  EXPECT_THROW(s->cliTunnelRibCollIs("b", 7), Zent::ReinstantiationError);
  EXPECT_EQ(s->cliTunnelRibColl(7)->name(), Zent::String("a"));
  EXPECT_FALSE(s->cliTunnelRibCollDel(8));
  EXPECT_TRUE(s->cliTunnelRibCollDel(7));
  EXPECT_EQ(log, (Log{"rib 7", "rib 7"}));
  ZentPelag::ChildView v;
  for (Zent::AttributeId bad : {0u, 515u, 521u}) {
    try {
      s->handleChild(0, &v, bad);
      ADD_FAILURE() << bad;
    } catch (std::invalid_argument const& e) {
      EXPECT_EQ(std::string(e.what()), fmt::format("invalid attrId:{}", bad));
    }
    EXPECT_THROW(s->handleChildDel(v.key, bad), std::invalid_argument);
    EXPECT_THROW(s->handleChildRestart(&v, bad), std::invalid_argument);
  }
  auto c = Zent::newEntity<InternalCliTunnelRibCandidate>(Id(ldpTunnel, 1, 1), 9);
  for (uint64_t i = 0; i < InternalCliTunnelRibCandidate::kMaxTunnelIds; ++i) c->tunnelIdIs(tid(i));
  EXPECT_THROW(c->tunnelIdIs(tid(600)), Zent::RangeException);
  EXPECT_EQ(c->tunnelIdCount(), 600u);
}

struct StoreTest : ::testing::Test {
  TamselTest::StateRoot root;
  ZentTamsel::MountRegistry registry;
  ZentTamsel::Mount mount{Zent::String(root.path()), registry};
  std::string dir() const { return root.dir(TunnelPelagStatus::kMountPath); }
  Zent::Ptr<TunnelPelagStatus> writer = mountTunnelPelagStatus(mount, ZentPelag::Mode::writer);

  void build(TunnelRibId rib, uint32_t entries) {
    auto r = writer->cliTunnelRibCollIs(fmt::format("rib{}", rib), rib);
    for (uint32_t i = 0; i < entries; ++i) {
      auto e = r->entryIs(cep(i));
      for (uint32_t k = 0; k < i % 3; ++k) {
        e->candidatesIs(Id(ldpTunnel, k, i), i)->tunnelIdIs(tid(i * 10 + k));
      }
    }
  }
  void catchUp(ZentPelag::RootEntity& s) {
    while (s.dispatch() != 0 || s.storeShadow()->table().pending()) {
    }
  }
};

TEST_F(StoreTest, ShadowFollowsWriterMemberByMember) {
  auto shadow = mountTunnelPelagStatus(mount, ZentPelag::Mode::shadow);
  build(1, 20);
  writer->flush();
  ASSERT_TRUE(TamselTest::dispatchUntil([&] { return dump(*shadow) == dump(*writer); },
                                        [&](int ms) { registry.dispatchAll(ms); }));
  Log log;
  auto ribEar = listen<RibEar>(log, shadow->cliTunnelRibColl(1));
  auto idEar = listen<CandidateEar>(
      log, shadow->cliTunnelRibColl(1)->entry(cep(2))->candidates(Id(ldpTunnel, 1, 2)));
  auto wr = writer->cliTunnelRibColl(1);
  wr->entry(cep(2))->candidates(Id(ldpTunnel, 1, 2))->tunnelIdIs(tid(5));
  wr->entryDel(cep(4));
  wr->entryIs(cep(40));
  writer->flush();
  catchUp(*shadow);
  EXPECT_EQ(dump(*shadow), dump(*writer));
  // Removals first, then writes parents first.
  EXPECT_EQ(log, (Log{"entry " + cep(4).stringValue(), "entry " + cep(40).stringValue(),
                      "id " + std::to_string(tid(5).value())}));
  // One endpoint read straight from the records, best first, as the tree has it.
  std::vector<Zent::Ptr<InternalCliTunnelRibCandidate>> read;
  ASSERT_TRUE(readCandidates(root.path(), 1, cep(2), read));
  auto const want = shadow->cliTunnelRibColl(1)->entry(cep(2))->candidateIds();
  ASSERT_EQ(read.size(), want.size());
  for (size_t i = 0; i < want.size(); ++i) EXPECT_EQ(read[i]->id(), want[i]);
  EXPECT_EQ(read.back()->tunnelIds(), wr->entry(cep(2))->candidates(want.back())->tunnelIds());
  EXPECT_FALSE(readCandidates(root.path(), 1, cep(4), read));
  // Syncing a RIB's own attributes: the shadow finds its record as it is,
  // the writer publishes it again.
  EXPECT_EQ(shadow->cliTunnelRibColl(1)->handleSyncAttributes(),
            ZentPelag::RecordUpdate::unchanged);
  wr->handleSyncAttributes();
  EXPECT_EQ(writer->pendingCount(), 1u);
  // Replaced under the same id before the shadow looked: the old RIB goes,
  // subtree first, and the new one comes.
  writer->cliTunnelRibCollDel(1);
  writer->cliTunnelRibCollIs("other", 1)->entryIs(cep(3));
  writer->flush();
  catchUp(*shadow);
  EXPECT_EQ(dump(*shadow), dump(*writer));
  EXPECT_EQ(shadow->corruptions(), 0u);
}

// Every step of a flush leaves a tree: a shadow attaching between any two
// steps finds no child without its parent.
TEST_F(StoreTest, FlushKeepsATreeAtEveryStep) {
  build(1, 30);
  writer->flush();
  writer->cliTunnelRibCollDel(1);
  build(2, 30);
  ZentPelag::FlushTask task(*writer);
  size_t steps = 0;
  for (bool more = true; more; ++steps) {
    more = task.run(1);
    auto s = mountTunnelPelagStatus(root.path(), ZentPelag::Mode::snapshot);
    ASSERT_EQ(s->heldBack(), 0u) << "after step " << steps;
  }
  EXPECT_GT(steps, 100u);
  EXPECT_EQ(dump(*mountTunnelPelagStatus(root.path(), ZentPelag::Mode::snapshot)), dump(*writer));
}

struct CountingStatus : TunnelPelagStatus {
  using TunnelPelagStatus::TunnelPelagStatus;
  int restarts = 0;
  void handleChildRestart(ZentPelag::ChildView const* p, Zent::AttributeId a) override {
    ++restarts;
    TunnelPelagStatus::handleChildRestart(p, a);
  }
};

TEST_F(StoreTest, RestartedWriterContinuesAndDropsOrphans) {
  build(1, 10);
  build(2, 5);
  writer->flush();
  std::string const before = dump(*writer);
  writer->pelagDetach();
  writer = nullptr;
  Pelag::NodeKey orphan = Pelag::NodeKey().child(514, TunnelRibId{9}).child(521, cep(1));
  {
    Pelag::Writer raw(dir(), {TunnelPelagStatus::kTypeName, TunnelPelagStatus::kTypeHash,
                              InternalCliTunnelRibCandidate::kMaxRecord});
    raw.write(orphan, nullptr, 0);
  }
  // The root records the tree's type: a store of another type is refused.
  EXPECT_THROW(Pelag::Shadow(dir(), TunnelPelagStatus::kTypeHash + 1, {}), Tamsel::Error);
  auto shadow = Zent::newEntity<CountingStatus>(Zent::String("status"));
  shadow->pelagAttach(dir(), ZentPelag::Mode::shadow, &registry);
  EXPECT_EQ(shadow->restarts, 2);  // each RIB reported once
  EXPECT_EQ(shadow->heldBack(), 1u);
  writer = mountTunnelPelagStatus(mount, ZentPelag::Mode::writer);
  EXPECT_EQ(dump(*writer), before);
  char const* rec;
  uint32_t len;
  EXPECT_FALSE(writer->storeWriter()->find(orphan, &rec, &len));
  writer->cliTunnelRibColl(2)->entryIs(cep(77));
  writer->flush();
  ASSERT_TRUE(TamselTest::dispatchUntil([&] { return dump(*shadow) == dump(*writer); },
                                        [&](int ms) { registry.dispatchAll(ms); }));
  EXPECT_EQ(shadow->heldBack(), 0u);
  EXPECT_GE(shadow->restarts, 4);  // the new writer made the shadow report everything again
}

// A record another process wrote that does not decode reaches the corruption
// handler, and no reactor hears of it.
TEST_F(StoreTest, CorruptChildGoesToTheHandlerUnheard) {
  build(1, 3);
  writer->flush();
  auto shadow = mountTunnelPelagStatus(mount, ZentPelag::Mode::shadow);
  std::vector<std::string> reports;
  shadow->corruptionHandlerIs([&](std::string const& m) { reports.push_back(m); });
  Log log;
  auto ear = listen<RibEar>(log, shadow->cliTunnelRibColl(1));
  Pelag::NodeKey bad = Pelag::NodeKey().child(514, TunnelRibId{1}).child(521, cep(5));
  writer->storeWriter()->write(bad, "junk", 4);
  catchUp(*shadow);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_NE(reports[0].find("Corrupted serialized value detected at offset"), std::string::npos);
  EXPECT_TRUE(log.empty());
  EXPECT_FALSE(shadow->cliTunnelRibColl(1)->entry(cep(5)));
}

}  // namespace
