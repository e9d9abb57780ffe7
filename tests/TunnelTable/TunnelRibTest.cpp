// The tunnel RIB: its entry value (contract, ECMP set, records), the two
// tables' counter rules and dump, and a RIB written by one process and read
// by another.

#include <algorithm>
#include <memory>
#include <signal.h>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/TunnelRib.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"
#include "Tunnel/shmem/ZentTamsel/MountRegistry.h"
#include "tests/TunnelTable/RibTypes.h"
#include "tests/common/ValueContract.h"
#include "tests/net/ErrorText.h"
#include "tests/shmem/ShmTestUtil.h"

using namespace Tunnel::TunnelTable;

namespace valuecontract {
template <>
struct ValueSource<TunnelRibEntry> {
  using Rng = test::EntryRng;
  static constexpr const char* kName = TunnelRibEntry::kTypeName;
  static constexpr bool kParses = false;
  static constexpr size_t kSamples = 60;
  static constexpr uint32_t kReportedLen = 7268;
  static void registerTypes() { registerRibTypes(); }
  static void fill(TunnelRibEntry& v, Rng& r, bool full) {
    test::EntryTraits<TunnelRibEntry>::randomize(v, r, full);
  }
  static std::vector<CountField> counts(TunnelRibEntry const& e) {
    return {{60, 4, 600}, {64 + 8 * e.tunnelIdCount(), 4, 600}};
  }
};
INSTANTIATE_TYPED_TEST_SUITE_P(Rib, ValueContract, ::testing::Types<TunnelRibEntry>);
}  // namespace valuecontract

namespace {

using valuecontract::Bytes;
using valuecontract::recordOf;

Vorn::IpGenPrefix const kTep("10.0.0.0/8");
std::string const kIndexError =
    "Tunnel::TunnelTable::TunnelIdCollIndex::value < Tunnel::TunnelTable::TunnelIdCollIndex::min "
    "or > Tunnel::TunnelTable::TunnelIdCollIndex::max not allowed";

TEST(TunnelRibEntryTest, AddingATunnelTwiceRefreshesItsBandwidthAndThe601stIsRefused) {
  auto e = std::make_unique<TunnelRibEntry>(kTep);
  e->addTunnelWithBw(TunnelId(ldpTunnel, 1), 10);
  e->addTunnelWithBw(TunnelId(ldpTunnel, 2), 5);
  e->addTunnelWithBw(TunnelId(ldpTunnel, 1), 20);
  ASSERT_EQ(e->tunnelIdCount() * 10 + e->tunnelBwCount(), 22u);
  EXPECT_EQ(e->tunnelId(0), TunnelId(ldpTunnel, 1));
  EXPECT_EQ(e->tunnelBw(0), TunnelBandwidth(20));
  // A bandwidth list shorter than the ids grows to the tunnel's index.
  e->tunnelBwDel(1);
  e->addTunnelWithBw(TunnelId(ldpTunnel, 2), 7);
  EXPECT_EQ(e->tunnelBw(1), TunnelBandwidth(7));
  for (uint64_t i = 3; i <= 600; ++i) e->addTunnelWithBw(TunnelId(ldpTunnel, i), 1);
  TunnelRibEntry const full = *e;
  using Vorn::test::errorOf;
  EXPECT_EQ(errorOf<Zent::RangeException>([&] { e->addTunnelWithBw(TunnelId(ldpTunnel, 601), 1); }),
            kIndexError);
  EXPECT_EQ(*e, full);
  e->addTunnelWithBw(TunnelId(ldpTunnel, 600), 9);  // still found when the set is full
  EXPECT_EQ(e->tunnelBw(599), TunnelBandwidth(9));
  EXPECT_EQ(errorOf<Zent::RangeException>([&] { e->tunnelBwIs(600, 1); }), kIndexError);
  EXPECT_DEATH(Zent::strepToValue<TunnelRibEntry>(Zent::String("x")),
               "\"No String constructor for TunnelRibEntry - has collection\" == nullptr");
}

// Counts that claim more elements than the record holds, or a damaged fixed
// part, are refused by deserializeLen and by deserialize.
TEST(TunnelRibEntryTest, RecordsReportTheSlotAndHostileOnesAreRefused) {
  auto e = std::make_unique<TunnelRibEntry>(ColoredTunnelEndpoint(kTep, 5));
  e->addTunnelWithBw(TunnelId(ldpTunnel, 1), 10);
  Bytes const good = recordOf(*e);
  ASSERT_EQ(good.size(), 60u + 4 + 8 + 4 + 4);
  EXPECT_EQ(e->deserializeLen(good.data(), 80), TunnelRibEntry::kMaxSerializedLen);
  // Two ids, or two bandwidths, where the record holds one; a flag of 2; fill.
  for (auto [at, patch] : {std::pair<size_t, Bytes>{60, {2}}, {72, {2}}, {28, {2}}, {53, {1}}}) {
    valuecontract::expectPatchRefused<std::exception>(*e, good, at, patch);
  }
}

struct Recorder : TunnelRibBase::NotifieeConst {
  std::vector<std::string> heard;
  void tunnelRibEntryNotify(ColoredTunnelEndpoint const& k) override {
    heard.push_back(std::to_string(k.color()));
  }
  void handleTunnelRibUpdateCounter() override { heard.push_back("counter"); }
};

// The plain RIB skips an equal rewrite and ignores color; the colored one
// bumps on every write. Both bump on a delete that removes nothing.
TEST(TunnelRibTest, CounterRulesOfThePlainAndTheColoredRib) {
  registerRibTypes();
  Zent::Ptr<TunnelRibBase> ribs[] = {tunnelRibFactory(Zent::String("rib")),
                                     coloredTunnelRibFactory(Zent::String("crib"))};
  for (auto const& rib : ribs) {
    auto rec = Zent::Ptr<Recorder>(Zent::newTracked<Recorder>());
    rec->notifierIs(rib.ptr());
    TunnelRibEntry e(ColoredTunnelEndpoint(kTep, 3));
    rib->tunnelRibEntryIs(e);
    rib->tunnelRibEntryIs(e);
    rib->tunnelRibUpdateCounterInc(0);
    ColoredTunnelEndpoint const otherColor(kTep, 4);
    EXPECT_EQ(rib->tunnelRibEntryHas(otherColor), !rib->isColored());
    rib->tunnelRibEntryDel(otherColor);
    std::string heard;
    for (auto const& h : rec->heard) heard += h + " ";
    EXPECT_EQ(heard, rib->isColored() ? "counter 3 counter 3 counter " : "counter 0 counter 0 ");
    EXPECT_EQ(rib->tunnelRibUpdateCounter(), rib->isColored() ? 3u : 2u);
    EXPECT_EQ(rib->tunnelRibEntryCount(), rib->isColored() ? 1u : 0u);
    rec->notifierIs(nullptr);
  }
}

TEST(TunnelRibTest, DumpShowsTheCounterAndOneLinePerEntry) {
  auto rib = coloredTunnelRibFactory(Zent::String("crib"));
  rib->idIs(7);
  TunnelRibEntry e(ColoredTunnelEndpoint(kTep, 3));
  e.metricIs(1);
  e.pref2Is(4);
  rib->tunnelRibEntryIs(e);
  std::ostringstream out;
  DumpContext ctx(out);
  rib->dumpState(&ctx, 2);
  EXPECT_EQ(out.str(),
            "  ColoredTunnelRib id 7\n    tunnelRibUpdateCounter=1\n"
            "    ColoredTunnelRibEntries tamsel seqno 0\n  TunnelRibEntry " +
                e.coloredTep().stringValue() + " metric 1 metric2 0 pref 0 pref2 4\n");
}

// A reader in another process sees the entries and every bump of the counter,
// and a RIB whose writer was killed stays readable.
TEST(TunnelRibProcessTest, AReaderFollowsTheWriterAndOutlivesIt) {
  TamselTest::StateRoot root;
  ZentTamsel::MountRegistry registry;
  ZentTamsel::Mount const mount(Zent::String(root.path()), registry);
  TamselTest::Pipe mounted, go, done, never;
  pid_t writer = TamselTest::forkChild([&] {
    auto rib = mountTunnelRib(mount, ZentTamsel::MountType::writer);
    mounted.signal();
    go.wait();
    for (uint32_t i = 1; i <= 50; ++i) {
      TunnelRibEntry e(Vorn::IpGenPrefix(Vorn::IpGenAddr(0x0a000000 + (i << 8)), 24));
      e.addTunnelWithBw(TunnelId(isisSrTunnel, i), i);
      rib->tunnelRibEntryIs(e);
    }
    rib->tunnelRibEntryDel(ColoredTunnelEndpoint(Vorn::IpGenPrefix("10.0.1.0/24")));
    rib->tunnelRibEntryDel(ColoredTunnelEndpoint(kTep));  // absent: only the counter moves
    done.signal();
    never.wait();
    return true;
  });
  ASSERT_TRUE(mounted.wait());
  auto reader = mountTunnelRib(mount, ZentTamsel::MountType::reader);
  auto rec = Zent::Ptr<Recorder>(Zent::newTracked<Recorder>());
  rec->notifierIs(reader.ptr());
  go.signal();
  ASSERT_TRUE(done.wait());
  EXPECT_TRUE(TamselTest::dispatchUntil([&] { return reader->tunnelRibUpdateCounter() == 52; },
                                        [&](int ms) { registry.dispatchAll(ms); }));
  EXPECT_EQ(reader->tunnelRibEntryCount(), 49u);
  EXPECT_GE(std::count(rec->heard.begin(), rec->heard.end(), "counter"), 1);
  ::kill(writer, SIGKILL);
  EXPECT_EQ(TamselTest::waitChild(writer), 128 + SIGKILL);
  rec->notifierIs(nullptr);
  ZentTamsel::MountRegistry later;
  auto after = mountTunnelRib(ZentTamsel::Mount(Zent::String(root.path()), later),
                              ZentTamsel::MountType::reader);
  EXPECT_EQ(after->tunnelRibUpdateCounter(), 52u);
  TunnelRibEntry e;
  ASSERT_TRUE(
      after->tunnelRibEntry(ColoredTunnelEndpoint(Vorn::IpGenPrefix("10.0.50.0/24"), 9), e));
  EXPECT_EQ(e.tunnelBw(0), TunnelBandwidth(50));
  EXPECT_EQ(after->tunnelRibEntryKeys().size(), 49u);
  // Tools walk a mounted RIB through the type registry.
  auto it = Zent::type(TunnelRib::kTypeName)
                ->genericIfIterator(after.ptr(), TunnelRibBase::kTunnelRibEntryId);
  size_t walked = 0;
  for (; it && it->iterNonnull(); it->iterInc()) ++walked;
  EXPECT_EQ(walked, 49u);
}

}  // namespace
