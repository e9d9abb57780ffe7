// A command-line RIB store across processes: a writer changing thousands of
// candidates at random, killed with SIGKILL at random instants and restarted,
// and shadows in other processes (one killed, one started midway) that end
// equal to the writer's final tree.

#include <fstream>
#include <random>
#include <signal.h>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "tests/cli/PelagTestUtil.h"
#include "tests/shmem/ShmTestUtil.h"

using namespace PelagTest;

namespace {

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
