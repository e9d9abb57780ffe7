// Each redistribution machine, driven by long random sequences of changes to
// its input table, keeps the configuration equal to the one the table's
// contents imply after every step.
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "tests/TunnelRedist/RedistTestUtil.h"

using namespace RedistTest;

namespace {

template <typename T>
class RedistSmModelTest : public ::testing::Test {};
using Machines = ::testing::Types<LdpCase, IsisSrCase, BgpLuCase>;
TYPED_TEST_SUITE(RedistSmModelTest, Machines);

TYPED_TEST(RedistSmModelTest, ConfigurationFollowsTheTableThroughRandomChanges) {
  using Case = TypeParam;
  auto table = Case::table("input");
  auto config = tunnelRedistConfigFactory("redist");
  auto sm = Case::sm(config, table);
  std::mt19937_64 rng(7);
  // Before initialization the machine does nothing.
  table->entryIs(Case::entry(1, 3, 10));
  EXPECT_EQ(config->entryCount(), 0u);
  sm->handleInitialized();
  ASSERT_EQ(configOf(*config), Case::expected(*table));
  for (int step = 0; step < 4000; ++step) {
    uint64_t index = rng() % 150;
    TunnelId id = Case::id(index);
    int op = static_cast<int>(rng() % 10);
    if (op < 2) {
      table->entryDel(id);
    } else {
      // New tunnels, endpoint moves and metric changes alike: a write with a
      // random endpoint and metric.
      uint32_t tep = static_cast<uint32_t>(rng() % (op < 6 ? 40 : 5));
      table->entryIs(Case::entry(index, tep, static_cast<uint32_t>(rng() % 4)));
    }
    ASSERT_EQ(configOf(*config), Case::expected(*table)) << "after step " << step;
    ASSERT_EQ(sm->tidToTeps().size() >= table->entryCount(), true);
  }
  sm->handleTunnelEntry();
  if constexpr (std::is_same_v<Case, BgpLuCase>) {
    // Deliberate: the resynchronisation keeps tidToTep, and BGP-LU treats a
    // recorded, unchanged endpoint as a no-op, so recorded tunnels are not
    // written again.
    EXPECT_EQ(config->entryCount(), 0u);
  } else {
    EXPECT_EQ(configOf(*config), Case::expected(*table));
  }
  auto before = configOf(*config);
  sm->handleDelete();
  table->entryDelAll();
  EXPECT_EQ(configOf(*config), before);  // inert after delete
}

TEST(BgpLuTunnelRedistConfigSmTest, UnchangedEndpointIsANoOp) {
  auto table = BgpLuCase::table("lu");
  auto config = tunnelRedistConfigFactory("redist");
  auto sm = bgpLuTunnelRedistConfigSmFactory(config, table);
  sm->handleInitialized();
  table->entryIs(BgpLuCase::entry(7, 1, 0));
  Dabin::CaptureSink sink;
  Dabin::sinkIs(&sink);
  Tunnel::TunnelRedist::dabinFacility_.levelIs(8, true);
  table->entryIs(BgpLuCase::entry(7, 1, 0));
  Tunnel::TunnelRedist::dabinFacility_.levelIs(8, false);
  Dabin::sinkIs(nullptr);
  EXPECT_TRUE(sink.contains(" no-op for tunnelId:"));
  EXPECT_EQ(sink.lines().size(), 1u);
  EXPECT_EQ(config->entry(Vorn::IpGenPrefix(std::string_view("10.0.0.1/32")))
                ->memberTunnelInfo(BgpLuCase::id(7))
                .igpMetric(),
            0u);
}

TEST(RedistSmDeathTest, ReaderBoundInputIsRefused) {
  TamselTest::StateRoot root;
  ZentTamsel::MountRegistry registry;
  TunnelTableMounter mounter(ZentTamsel::Mount(Zent::String(root.path()), registry));
  auto writer = mounter.mountWriter(TunnelTableIdentifier::ldpTunnelTable);
  auto info = TunnelTableMounter::getMountInfo(TunnelTableIdentifier::ldpTunnelTable);
  auto reader = Zent::dynamicPtrCast<LdpTunnelTable>(
      mounter.writeMountTable(info.tableInfo(), ZentTamsel::MountInfo(ZentTamsel::reader())));
  ASSERT_TRUE(reader);
  auto sm = ldpTunnelRedistConfigSmFactory(tunnelRedistConfigFactory("r"), reader);
  EXPECT_DEATH(sm->handleInitialized(),
               "ldpTunnelTable\\(\\)->entryControl\\(\\)->mode\\(\\) != ZentTamsel::reader\\(\\)");
}

}  // namespace
