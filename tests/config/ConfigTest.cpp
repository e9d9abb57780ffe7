#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/config/DecapConfig.h"
#include "Tunnel/config/NexthopGroupConfig.h"
#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/TypeRegistry.h"

using namespace Tunnel;
using Decap::DecapGroup;
using NexthopGroup::NexthopGroupTunnelConfigEntry;

namespace {

Vorn::IpGenPrefix prefix(const char* text) { return Vorn::IpGenPrefix(std::string_view(text)); }

struct DecapRecorder : Decap::Config::NotifieeConst {
  std::vector<std::string> seen;
  void globalDestPortToPayloadTypeNotify(uint16_t port) override {
    seen.push_back(std::to_string(port));
  }
  void decapGroupNotify(Zent::String const& name) override { seen.emplace_back(name.view()); }
  void handleReady() override { seen.emplace_back("ready"); }
};
struct NexthopGroupRecorder : NexthopGroup::Config::NotifieeConst {
  std::vector<std::string> seen;
  void entryNotify(Vorn::IpGenPrefix const& p) override { seen.push_back(p.stringValue()); }
};

DecapGroup group(const char* name, std::vector<const char*> const& ips = {}) {
  DecapGroup g(name, Decap::DecapTunnelType::gre);
  for (size_t i = 0; i < ips.size(); ++i) g.decapIpIs(Decap::DecapIpIndex(i), prefix(ips[i]));
  return g;
}

std::string recordOf(auto const& v) {
  std::string out;
  v.keepdbRecord(out);
  return out;
}

// Whether `rec` is refused with the destination left as it was.
template <typename T>
bool refused(std::string const& rec, T const& kept) {
  T out = kept;
  return !T::keepdbFromRecord(rec, out) && out == kept;
}

TEST(DecapConfigTest, NotifiesOncePerRealChange) {
  auto config = Decap::ConfigIs();
  Zent::Ptr<DecapRecorder> rec{Zent::newTracked<DecapRecorder>()};
  rec->notifierIs(config.ptr());
  config->globalDestPortToPayloadTypeIs(4789, Decap::PayloadType::ethernet);
  config->globalDestPortToPayloadTypeIs(4789, Decap::PayloadType::ethernet);  // unchanged
  config->globalDestPortToPayloadTypeDel(6635);                               // absent
  EXPECT_EQ(config->globalDestPortToPayloadType(6635), Decap::PayloadType::unknown);
  config->decapGroupIs(Decap::DecapGroupIs(group("a", {"10.0.0.1/32"})));
  config->decapGroupIs(Decap::DecapGroupIs(group("a", {"10.0.0.1/32"})));  // an equal copy
  EXPECT_EQ(config->decapGroupDel("absent"), nullptr);
  config->decapGroupIs(Decap::DecapGroupIs(group("b")));
  config->decapGroupIs(Decap::DecapGroupIs(group("c")));
  config->readyIs(true);
  config->readyIs(true);
  EXPECT_EQ(rec->seen, (std::vector<std::string>{"4789", "a", "b", "c", "ready"}));
  rec->seen.clear();
  config->decapGroupDelAll();
  EXPECT_EQ(rec->seen.size(), 3u);
  EXPECT_THROW(config->decapGroupIs(Decap::DecapGroupIs(group("bad/name"))), Zent::RangeException);
  rec->notifierIs(nullptr);
}

TEST(NexthopGroupConfigTest, NotifiesOncePerRealChangeAndKeysByFamily) {
  auto config = NexthopGroup::ConfigIs();
  Zent::Ptr<NexthopGroupRecorder> rec{Zent::newTracked<NexthopGroupRecorder>()};
  rec->notifierIs(config.ptr());
  NexthopGroupTunnelConfigEntry const v4(prefix("10.0.0.0/8"), "nhg1", 5, 10);
  NexthopGroupTunnelConfigEntry const v6(prefix("a00::/8"), "nhg2", 5, 10);  // the same bits
  config->entryIs(v4);
  config->entryIs(v4);
  config->entryIs(v6);
  EXPECT_EQ(config->entryDel(prefix("11.0.0.0/8")), NexthopGroupTunnelConfigEntry());
  EXPECT_EQ(config->entries().size(), 2u);
  EXPECT_EQ(config->entry(prefix("a00::/8")), v6);
  config->entryIs(NexthopGroupTunnelConfigEntry(prefix("12.0.0.0/8"), "nhg3", 0, 0));
  EXPECT_EQ(rec->seen, (std::vector<std::string>{"10.0.0.0/8", "a00::/8", "12.0.0.0/8"}));
  rec->seen.clear();
  config->entryDelAll();
  EXPECT_EQ(rec->seen.size(), 3u);
  rec->notifierIs(nullptr);
}

TEST(ConfigDeathTest, MemberUnderAnotherKeyThanItsOwnAborts) {
  NexthopGroup::Config::EntryMap entries;
  NexthopGroupTunnelConfigEntry const e(prefix("10.0.0.0/8"), "nhg", 0, 0);
  EXPECT_DEATH(entries.memberIs(prefix("a00::/8"), e),
               "fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)");
}

TEST(ConfigTextTest, CanonicalTextIsExactAndReadsBack) {
  DecapGroup const g = group("dc-1", {"10.1.0.0/16", "2001:db8::1/128"});
  std::string const text = g.stringValue();
  EXPECT_EQ(text,
            "Value('Tunnel::Decap::DecapGroup', ** {'name': 'dc-1', 'tunnelType': 'gre', "
            "'decapIp': [10.1.0.0/16, 2001:db8::1/128]})");
  EXPECT_EQ(Zent::strepToValue<DecapGroup>(text), g);
  NexthopGroupTunnelConfigEntry const e(prefix("2001:db8::/32"), "nhg.a", 7, 42);
  EXPECT_EQ(e.stringValue(),
            "Value('Tunnel::NexthopGroup::NexthopGroupTunnelConfigEntry', ** {'prefix': "
            "2001:db8::/32, 'nhgName': 'nhg.a', 'igpPref': 7, 'igpMetric': 42})");
  EXPECT_EQ(Zent::strepToValue<NexthopGroupTunnelConfigEntry>(e.stringValue()), e);
  // Every field reaches the hash: values differing in one field hash apart.
  DecapGroup udp = g;
  udp.tunnelTypeIs(Decap::DecapTunnelType::udp);
  EXPECT_NE(udp.hash(), g.hash());
  EXPECT_NE(NexthopGroupTunnelConfigEntry(e.prefix(), e.nhgName(), 7, 43).hash(), e.hash());
  Decap::PayloadType t{};
  EXPECT_FALSE(Decap::parsePayloadType("unknown", t));  // names no payload
  for (auto want = Decap::PayloadType::ipv4; keepdbValid(want);
       want = Decap::PayloadType(int(want) + 1)) {
    EXPECT_TRUE(Decap::parsePayloadType(Decap::payloadTypeName(want), t) && t == want);
  }
}

TEST(ConfigRecordTest, RoundTripsAtEveryListSizeAndRefusesHostileRecords) {
  DecapGroup full("x", Decap::DecapTunnelType::udp);
  for (uint16_t i = 0; i < 600; ++i) {
    Vorn::IpGenAddr const a(std::string_view(i % 2 ? "2001:db8::1" : "10.0.0.1"));
    full.decapIpIs(Decap::DecapIpIndex(i), Vorn::IpGenPrefix(a, i % 33));
  }
  for (DecapGroup const& g : {group("empty"), full}) {
    DecapGroup back;
    EXPECT_TRUE(DecapGroup::keepdbFromRecord(recordOf(g), back) && back == g);
    EXPECT_LE(recordOf(g).size(), DecapGroup::kMaxRecord);
  }
  std::string const good = recordOf(group("g1", {"10.0.0.1/32"}));
  DecapGroup const kept = group("kept");
  for (size_t cut = 0; cut < good.size(); ++cut) EXPECT_TRUE(refused(good.substr(0, cut), kept));
  // Room for 601 prefixes, so that only the count is wrong.
  std::string bad = recordOf(full) + recordOf(full).substr(7, 24);
  uint32_t const tooMany = 601;
  std::memcpy(&bad[3], &tooMany, 4);
  EXPECT_TRUE(refused(bad, kept)) << "count over capacity";
  EXPECT_TRUE(refused(good + std::string(24, '\0'), kept)) << "trailing bytes";
  EXPECT_TRUE(refused(std::string(1, '\4') + good.substr(1), kept)) << "tunnel type";
  EXPECT_TRUE(refused(good.substr(0, 2) + "g/" + good.substr(4), kept)) << "name";
  bad = good;
  bad[8 + 20] = 24;  // 10.0.0.1/24: host bits set
  EXPECT_TRUE(refused(bad, kept)) << "prefix";

  NexthopGroupTunnelConfigEntry const e(prefix("10.0.0.0/8"), "nhg", 1, 2);
  std::string const rec = recordOf(e);
  NexthopGroupTunnelConfigEntry back;
  EXPECT_TRUE(NexthopGroupTunnelConfigEntry::keepdbFromRecord(rec, back) && back == e);
  for (size_t cut = 0; cut < rec.size(); ++cut) EXPECT_TRUE(refused(rec.substr(0, cut), e));
  EXPECT_TRUE(refused(rec.substr(0, 32) + "\3n g", e)) << "name";
  EXPECT_TRUE(refused(rec + "x", e)) << "trailing bytes";
}

// A reader applies what another process wrote through these schemas.
TEST(ConfigRecordTest, SchemasRefuseRecordsFiledUnderAnotherKeyOrWithBadBytes) {
  auto config = Decap::ConfigIs();
  Keepdb::Attr const* groups = Decap::configSchema().attr(Decap::Config::kDecapGroupId);
  EXPECT_FALSE(groups->apply(*config, "g2", recordOf(group("g1"))));
  EXPECT_TRUE(groups->apply(*config, "g1", recordOf(group("g1"))));
  EXPECT_EQ(*config->decapGroup("g1"), group("g1"));
  Keepdb::Attr const* ports = Decap::configSchema().attr(258);
  std::string const port("\xb5\x12", 2);  // 4789
  EXPECT_FALSE(ports->apply(*config, port, "\6"));
  EXPECT_TRUE(ports->apply(*config, port, "\5"));
  EXPECT_EQ(config->globalDestPortToPayloadType(4789), Decap::PayloadType::ethernet);

  auto nhg = NexthopGroup::ConfigIs();
  Keepdb::Attr const* entries = NexthopGroup::configSchema().attr(NexthopGroup::Config::kEntryId);
  std::string const entryRec =
      recordOf(NexthopGroupTunnelConfigEntry(prefix("10.0.0.0/8"), "n", 0, 0));
  std::string const other =
      recordOf(NexthopGroupTunnelConfigEntry(prefix("11.0.0.0/8"), "n", 0, 0));
  EXPECT_FALSE(entries->apply(*nhg, other.substr(0, 24), entryRec));
  EXPECT_TRUE(entries->apply(*nhg, entryRec.substr(0, 24), entryRec));
  EXPECT_EQ(nhg->entries().size(), 1u);
}

TEST(ConfigTypesTest, RegistryDescribesAttributesInOrderAndIteratesThroughMutators) {
  Decap::registerTypes();
  Zent::GenericIf const* t = Zent::type("Tunnel::Decap::Config");
  std::string attrs;
  for (auto const& a : t->attributes()) attrs += a.name + "=" + std::to_string(a.id) + " ";
  EXPECT_EQ(attrs, "globalDestPortToPayloadType=258 decapGroup=259 ready=260 ");
  auto e = t->newEntityForDir("");
  auto* config = dynamic_cast<Decap::Config*>(e.ptr());
  ASSERT_TRUE(config && config->fwkType() == t);
  config->decapGroupIs(Decap::DecapGroupIs(group("a")));
  config->decapGroupIs(Decap::DecapGroupIs(group("b")));
  Zent::Ptr<DecapRecorder> rec{Zent::newTracked<DecapRecorder>()};
  rec->notifierIs(config);
  size_t walked = 0;
  for (auto it = t->genericIfIterator(config, 259); it->iterNonnull(); ++walked) {
    EXPECT_TRUE(static_cast<DecapGroup const*>(it->iterObj())->name() ==
                *static_cast<Zent::String const*>(it->iterKey()));
    it->iterDel();
  }
  EXPECT_TRUE(walked == 2 && rec->seen.size() == 2 && config->decapGroups().empty());
  rec->notifierIs(nullptr);
  EXPECT_EQ(NexthopGroup::ConfigIs()->fwkType()->attribute("entry")->id, 258u);
}

}  // namespace
