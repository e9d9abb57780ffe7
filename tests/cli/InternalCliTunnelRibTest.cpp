// The command-line RIB views: candidate ranking, the status's child rules,
// a writer and shadows of one store in one process (flush order, writer
// restart, orphans, corrupt records), and the store across processes: a
// writer changing thousands of candidates at random, killed with SIGKILL at
// random instants and restarted, and shadows in other processes (one killed,
// one started midway) that end equal to the writer's final tree.

#include <fstream>
#include <memory>
#include <random>
#include <signal.h>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Tunnel/cli/TunnelPelagStatus.h"
#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Reinstantiation.h"
#include "Tunnel/shmem/Pelag/Store.h"
#include "tests/net/ErrorText.h"
#include "tests/shmem/ShmTestUtil.h"

using namespace Tunnel::TunnelTable;
using Id = InternalTunnelCandidateId;

namespace {

ColoredTunnelEndpoint cep(uint32_t i) {
  return ColoredTunnelEndpoint(Vorn::IpGenPrefix(Vorn::IpGenAddr(0x0a000000u + i), 32), i % 3);
}

TunnelId tid(uint64_t i) { return TunnelId(ldpTunnel, i); }

// Every RIB, entry (empty ones included) and candidate with its value and ids.
std::string dump(TunnelPelagStatus const& s) {
  std::string out;
  for (auto const& [id, rib] : s.cliTunnelRibCollMap()) {
    out += fmt::format("rib {} {}\n", id, rib->name().view());
    for (auto const& [c, entry] : rib->entryMap()) {
      out += " " + c.stringValue() + "\n";
      for (auto const& [cid, cand] : entry->candidatesMap()) {
        out += fmt::format("  {} {}:", cid.stringValue(), cand->value());
        for (TunnelId t : cand->tunnelIds()) out += fmt::format(" {}", t.value());
        out += "\n";
      }
    }
  }
  return out;
}

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
    EXPECT_EQ(Zent::strepToValue<Id>(Zent::String(c.worse.stringValue())), c.worse);
  }
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
    EXPECT_EQ(Vorn::test::errorOf<std::invalid_argument>([&] { s->handleChild(0, &v, bad); }),
              fmt::format("invalid attrId:{}", bad));
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

void writeFile(std::string const& path, std::string const& text) { std::ofstream(path) << text; }

std::string readFile(std::string const& path) {
  std::stringstream ss;
  ss << std::ifstream(path).rdbuf();
  return ss.str();
}

// One life of the writer: it takes over the store, checks that its rebuilt
// tree is what a fresh shadow sees (no orphan left), then changes the tree
// at random, flushing in random steps, until killed. The last life stops
// after `ops` changes and leaves its tree in `out`.
bool writerLife(std::string const& root, uint32_t seed, TamselTest::Pipe& ready, int ops,
                std::string const& out) {
  auto w = mountTunnelPelagStatus(root, ZentPelag::Mode::writer);
  auto fresh = mountTunnelPelagStatus(root, ZentPelag::Mode::snapshot);
  bool rebuilt = fresh->heldBack() == 0 && dump(*fresh) == dump(*w);
  fresh = nullptr;
  ready.signal();
  if (!rebuilt) return false;
  std::mt19937 rng(seed);
  auto pick = [&](uint32_t n) { return static_cast<uint32_t>(rng() % n); };
  ZentPelag::FlushTask task(*w);
  for (int op = 0; ops < 0 || op < ops; ++op) {
    TunnelRibId r = 1 + pick(3);
    uint32_t roll = pick(2000);
    auto rib = w->cliTunnelRibCollIs(fmt::format("rib{}", r), r);
    if (roll == 0) {
      w->cliTunnelRibCollDel(r);
      continue;
    }
    auto e = rib->entryIs(cep(pick(400)));
    InternalTunnelCandidateId id(pick(2) ? ldpTunnel : isisSrTunnel, pick(3), pick(4));
    if (roll < 20) {
      rib->entryDel(e->cep());
    } else if (roll < 100) {
      e->candidatesDel(id);
    } else if (roll < 500) {
      e->candidatesIs(id, pick(1000))->tunnelIdDel(tid(pick(8)));
    } else {
      e->candidatesIs(id, pick(1000))->tunnelIdIs(tid(pick(8)));
    }
    if (pick(8) == 0) task.run(1 + pick(64));
  }
  w->flush();
  writeFile(out, dump(*w));
  return true;
}

// A shadow that follows the store until told to stop, then catches up and
// leaves its tree in `out`.
bool shadowLife(std::string const& root, TamselTest::Pipe& started, TamselTest::Pipe& stop,
                std::string const& out) {
  ZentTamsel::MountRegistry registry;
  ZentTamsel::Mount mount(Zent::String(root), registry);
  auto s = mountTunnelPelagStatus(mount, ZentPelag::Mode::shadow);
  started.signal();
  while (!TamselTest::waitReadable(stop.fds[0], 0)) registry.dispatchAll(10);
  while (s->dispatch() != 0 || s->storeShadow()->table().pending()) {
  }
  writeFile(out, dump(*s));
  return s->heldBack() == 0 && s->corruptions() == 0;
}

TEST(PelagCrossProcessTest, ShadowsEndEqualToAWriterKilledAtRandom) {
  constexpr int kRounds = 6;
  TamselTest::StateRoot root;
  TamselTest::Pipe ready, started, stop;
  std::mt19937 rng(20261124);
  std::string const final = root.path() + "/writer.txt";
  std::string const shadows[] = {root.path() + "/long.txt", root.path() + "/late.txt"};
  pid_t longShadow = 0, victim = 0, lateShadow = 0;
  auto shadow = [&](std::string const& out) {
    pid_t pid = TamselTest::forkChild([&] { return shadowLife(root.path(), started, stop, out); });
    EXPECT_TRUE(started.wait());
    return pid;
  };
  for (int round = 0; round < kRounds; ++round) {
    bool last = round == kRounds - 1;
    pid_t w = TamselTest::forkChild(
        [&] { return writerLife(root.path(), round, ready, last ? 20000 : -1, final); });
    ASSERT_TRUE(ready.wait());
    if (round == 0) longShadow = shadow(shadows[0]);
    if (round == 1) victim = shadow(root.path() + "/victim.txt");
    if (round == 3) {
      // A shadow dies, and its replacement starts in the middle of the story.
      ::kill(victim, SIGKILL);
      EXPECT_EQ(TamselTest::waitChild(victim), 128 + SIGKILL);
      lateShadow = shadow(shadows[1]);
    }
    if (last) {
      ASSERT_EQ(TamselTest::waitChild(w), 0);
      break;
    }
    ::usleep(static_cast<useconds_t>(1000 * (20 + rng() % 150)));
    ::kill(w, SIGKILL);
    ASSERT_EQ(TamselTest::waitChild(w), 128 + SIGKILL) << "round " << round;
  }
  stop.signal();
  EXPECT_EQ(TamselTest::waitChild(longShadow), 0);
  EXPECT_EQ(TamselTest::waitChild(lateShadow), 0);
  std::string const tree = readFile(final);
  EXPECT_GT(std::count(tree.begin(), tree.end(), '\n'), 3000);
  for (auto const& s : shadows) EXPECT_TRUE(readFile(s) == tree) << s;
}

}  // namespace
