#include <gtest/gtest.h>

#include "Tunnel/TunnelRedist/TunnelRedistConfig.h"

using namespace Tunnel::TunnelRedist;

namespace {

Vorn::IpGenPrefix prefix(const char* text) { return Vorn::IpGenPrefix(std::string_view(text)); }
TunnelId ldp(uint64_t index) { return TunnelId(Tunnel::TunnelTable::ldpTunnel, index); }

struct ConfigRecorder : TunnelRedistConfig::NotifieeConst {
  std::vector<std::string> seen;
  void entryNotify(Vorn::IpGenPrefix const& p) override { seen.push_back(p.stringValue()); }
};
struct EntryRecorder : TunnelRedistEntry::NotifieeConst {
  std::vector<uint64_t> seen;
  void memberTunnelInfoNotify(TunnelId const& id) override { seen.push_back(id.tunnelIndex()); }
};

class TunnelRedistConfigTest : public ::testing::Test {
 protected:
  void TearDown() override {
    configRec->notifierIs(nullptr);
    entryRec->notifierIs(nullptr);
    configRec = nullptr;
    entryRec = nullptr;
    config = nullptr;
    EXPECT_EQ(Zent::liveCount<TunnelRedistConfig>(), 0);
    EXPECT_EQ(Zent::liveCount<TunnelRedistEntry>(), 0);
  }
  Zent::Ptr<TunnelRedistConfig> config = tunnelRedistConfigFactory("ldp");
  Zent::Ptr<ConfigRecorder> configRec{Zent::newTracked<ConfigRecorder>()};
  Zent::Ptr<EntryRecorder> entryRec{Zent::newTracked<EntryRecorder>()};
};

TEST_F(TunnelRedistConfigTest, EntriesAreCreatedOnceAndNotifiedPerPrefix) {
  configRec->notifierIs(config.ptr());
  auto a = config->entryIs(prefix("10.0.0.1/32"));
  a->memberTunnelInfoIs(TunnelInfo(ldp(7), 20));
  EXPECT_EQ(config->entryIs(prefix("10.0.0.1/32")), a);  // same entry, members untouched
  EXPECT_EQ(a->memberTunnelInfoCount(), 1u);
  config->entryIs(prefix("10.0.0.2/32"));
  config->entryDel(prefix("10.0.0.9/32"));  // absent: nothing
  config->entryDelAll();
  ASSERT_EQ(configRec->seen.size(), 4u);  // two creations, then one per entry removed
  EXPECT_EQ(configRec->seen[0], "10.0.0.1/32");
  EXPECT_EQ(configRec->seen[1], "10.0.0.2/32");
  EXPECT_NE(configRec->seen[2], configRec->seen[3]);
  EXPECT_EQ(config->entryCount(), 0u);
}

TEST_F(TunnelRedistConfigTest, MemberMetricChangesNotifyButEqualMembersDoNot) {
  auto e = config->entryIs(prefix("10.0.0.1/32"));
  entryRec->notifierIs(e.ptr());
  e->memberTunnelInfoIs(TunnelInfo(ldp(7), 20));
  e->memberTunnelInfoIs(TunnelInfo(ldp(7), 20));
  e->memberTunnelInfoIs(TunnelInfo(ldp(7), 30));
  e->memberTunnelInfoIs(TunnelInfo(ldp(8), 30));  // same endpoint: a second member
  EXPECT_EQ(e->memberTunnelInfo(ldp(7)).igpMetric(), 30u);
  EXPECT_EQ(e->memberTunnelInfoCount(), 2u);
  e->memberTunnelInfoDel(ldp(9));
  e->memberTunnelInfoDelAll();
  EXPECT_EQ(entryRec->seen.size(), 5u);  // add, change, add, then one per member removed
  EXPECT_EQ(std::vector<uint64_t>(entryRec->seen.begin(), entryRec->seen.begin() + 3),
            (std::vector<uint64_t>{7, 7, 8}));
}

TEST(TunnelRedistValuesTest, TextsAreCanonicalAndParseBack) {
  TunnelInfo info(ldp(7), 20);
  EXPECT_EQ(info.stringValue(),
            "Value('Tunnel::TunnelRedist::TunnelInfo', ** {'tunnelId': 52776558133255, "
            "'igpMetric': 20})");
  EXPECT_EQ(Zent::strepToValue<TunnelInfo>(Zent::String(info.stringValue())), info);
  TunnelIdToEndPoint t(ldp(7), prefix("10.0.0.1/32"));
  EXPECT_EQ(t.stringValue(),
            "Value('Tunnel::TunnelRedist::TunnelIdToEndPoint', ** {'tunnelId': 52776558133255, "
            "'tep': 10.0.0.1/32})");
  EXPECT_EQ(Zent::strepToValue<TunnelIdToEndPoint>(Zent::String(t.stringValue())), t);
  EXPECT_FALSE(TunnelIdToEndPoint());
}

}  // namespace
