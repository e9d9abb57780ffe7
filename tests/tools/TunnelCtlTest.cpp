// tunnelctl run as a user runs it, against a table this test process writes:
// show in its three forms, watch and redist following changes, tables, counters;
// against the demo's FIB: fib in its forms, resolve explaining each path; and
// the configuration it writes, read back by another reader.

#include <csignal>
#include <set>
#include <sstream>
#include <tuple>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "Tunnel/TunnelFib/TunnelResolver.h"
#include "Tunnel/TunnelRedist/TunnelRedistConfig.h"
#include "Tunnel/TunnelTable/DumpContext.h"
#include "Tunnel/config/ConfigPaths.h"
#include "Tunnel/config/DecapConfig.h"
#include "Tunnel/config/NexthopGroupConfig.h"
#include "Tunnel/shmem/Keepdb/Keepdb.h"
#include "tests/tools/CtlFixture.h"
#include "tools/tunnelctl/DemoTunnels.h"
#include "tools/tunnelctl/JsonText.h"

namespace ToolTest {
namespace {

using Json = nlohmann::json;
using Tunnel::TunnelFib::TunnelFibEntry;
using Tunnel::TunnelFib::TunnelViaIndex;

class TunnelCtlTest : public CtlFixture {};

// Keys are stored in byte order: show sorts by id, or keeps the order asked
// for, with an id given as type:index, decimal or hex. The dump is the entry's
// own, headed by its key; JSON keeps the canonical field names and order.
TEST_F(TunnelCtlTest, ShowInIdOrderOrAsAskedAsTextDumpOrJson) {
  auto e300 = putLdp(300, 7, 30, 3);
  auto e2 = putLdp(2, 5, 20);
  auto e1 = putLdp(1, 260, 10);  // an IPv6 endpoint
  auto all = ctl({"show", "ldp"});
  ASSERT_EQ(all.code, 0) << all.err;
  EXPECT_EQ(lines(all.out),
            (std::vector<std::string>{e1.stringValue(), e2.stringValue(), e300.stringValue()}));
  auto some = ctl({"show", "ldp", "ldpTunnel:300", std::to_string(ldpId(1).value()),
                   fmt::format("{:#x}", ldpId(2).value())});
  ASSERT_EQ(some.code, 0) << some.err;
  EXPECT_EQ(lines(some.out),
            (std::vector<std::string>{e300.stringValue(), e1.stringValue(), e2.stringValue()}));

  std::ostringstream dump;
  Tunnel::TunnelTable::DumpContext ctx(dump);
  e300.dumpState(&ctx, 2);
  auto d = ctl({"show", "ldp", "ldpTunnel:300", "--dump"});
  ASSERT_EQ(d.code, 0) << d.err;
  EXPECT_EQ(d.out, fmt::format("ldpTunnel:300 ({})\n{}\n", ldpId(300).value(), dump.str()));
  auto j = ctl({"show", "ldp", "--json"});
  ASSERT_EQ(j.code, 0) << j.err;
  auto json = nlohmann::ordered_json::parse(j.out);
  ASSERT_EQ(json.size(), 3u);
  // The converter is tested on its own (fields in order): here it is the oracle.
  EXPECT_EQ(json[2], TunnelCtl::canonicalTextToJson(e300.stringValue()));
}

// Both follow changes this process makes: watch those of the table, redist
// those of the redistribution configuration this process publishes as a
// consumer would.
TEST_F(TunnelCtlTest, WatchAndRedistFollowChangesAnotherProcessMakes) {
  using namespace Tunnel::TunnelRedist;
  auto config = tunnelRedistConfigFactory("ldp");
  Keepdb::Binding published(root_.path(), tunnelRedistConfigPath("ldp"), config,
                            tunnelRedistConfigSchema(), Keepdb::Mode::writerReplace);
  auto member = [&](uint64_t index, uint16_t prefix, uint32_t metric) {
    config->entryIs(TunnelCtl::Demo::demoPrefix(prefix))
        ->memberTunnelInfoIs(TunnelInfo(ldpId(index), metric));
  };
  member(1, 5, 10);
  member(2, 5, 20);
  member(3, 6, 30);
  published.flush();
  auto r = ctl({"redist", "ldp", "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  Json j = Json::parse(r.out);
  ASSERT_EQ(j["entries"].size(), 2u);
  EXPECT_EQ(j["entries"][0]["prefix"], TunnelCtl::Demo::demoPrefix(5).stringValue());
  EXPECT_EQ(j["entries"][0]["members"],
            Json::parse(fmt::format(R"([{{"tunnelId": {}, "igpMetric": 10}},
                                        {{"tunnelId": {}, "igpMetric": 20}}])",
                                    ldpId(1).value(), ldpId(2).value())));

  putLdp(3, 6, 30);
  Tool watch(withRoot({"watch", "ldp"}));
  Tool redist(withRoot({"redist", "ldp", "--watch"}));
  ASSERT_TRUE(watch.waitFor("Ctrl-C stops", true)) << watch.seen().err;
  ASSERT_TRUE(redist.waitFor("2 entries, 3 members")) << redist.seen().out << redist.seen().err;
  auto moved = putLdp(3, 7, 35);  // to another endpoint
  config->entryDel(TunnelCtl::Demo::demoPrefix(6));
  member(3, 7, 35);
  published.flush();
  EXPECT_TRUE(watch.waitFor("ldpTunnel:3 ")) << watch.seen().out;
  EXPECT_TRUE(redist.waitFor(TunnelCtl::Demo::demoPrefix(7).stringValue() + "  1 member\n" +
                             fmt::format("    {:<24} metric 35", "ldpTunnel:3")))
      << redist.seen().out;
  auto w = watch.stop(SIGINT);
  EXPECT_EQ(w.code, 0) << w.err;
  EXPECT_EQ(lines(w.out), (std::vector<std::string>{"ldpTunnel:3 " + moved.stringValue()}));
  EXPECT_EQ(redist.stop(SIGINT).code, 0);
}

TEST_F(TunnelCtlTest, TablesAndCountersShowWhatTheLiveWriterPublished) {
  putLdp(1, 1, 10);
  putLdp(2, 1, 10);
  putLdp(2, 1, 20);
  ldp_->entryDel(ldpId(1));
  ldp_->entryDel(ldpId(5));  // absent: counted, not notified
  auto r = ctl({"tables"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_TRUE(has(r.out, "Tunnel::TunnelTable::LdpTunnelTableEntry")) << r.out;
  EXPECT_TRUE(has(r.out, "pid " + std::to_string(::getpid()) + ", alive")) << r.out;
  auto t = ctl({"tables", "--json"});
  ASSERT_EQ(t.code, 0) << t.err;
  Json const all = Json::parse(t.out);
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0]["name"], "ldp");
  EXPECT_EQ(all[0]["entries"], 1);
  EXPECT_EQ(all[0]["writerPid"], ::getpid());
  EXPECT_EQ(all[0]["writerAlive"], true);
  auto c = ctl({"counters", "ldp", "--json"});
  ASSERT_EQ(c.code, 0) << c.err;
  Json const j = Json::parse(c.out);
  EXPECT_EQ(j["entryIs"], 3);
  EXPECT_EQ(j["entryDel"], 2);
  EXPECT_EQ(j["entryNotify"], 4);
}

TunnelId fibId(TunnelType type, uint64_t index) { return TunnelId(type, index); }

// The fields of the line of `out` that starts with `head` and a blank.
std::vector<std::string> row(std::string const& out, std::string const& head) {
  for (auto const& l : lines(out)) {
    if (l.starts_with(head + " ")) {
      std::vector<std::string> fields;
      std::istringstream in(l);
      for (std::string f; in >> f;) fields.push_back(f);
      return fields;
    }
  }
  return {};
}

TEST_F(TunnelCtlTest, FibListsEntriesAndEncapsulationsAndShowsEntriesInThreeForms) {
  writeFib();
  auto list = ctl({"fib"});
  ASSERT_EQ(list.code, 0) << list.err;
  EXPECT_TRUE(has(list.out, fmt::format("17 entries, writer pid {}, alive", ::getpid())));
  EXPECT_EQ(row(list.out, "isisSrTunnel:1"),
            (std::vector<std::string>{"isisSrTunnel:1", "yes", "ordered", "2", "1", "1"}));
  EXPECT_EQ(row(list.out, "staticInterfaceTunnel:3"),
            (std::vector<std::string>{"staticInterfaceTunnel:3", "no", "burn", "0", "1", "0"}));
  EXPECT_TRUE(has(list.out, "ipsec-gre 102   10.0.0.1 -> 10.0.0.2 key 7 mtu 1476 sa 4097"));
  auto json = Json::parse(ctl({"fib", "--json"}).out);
  EXPECT_EQ(json["entries"].size(), 17u);
  EXPECT_EQ(json["encaps"].size(), 17u);
  EXPECT_TRUE(has(ctl({"tables"}).out, "fib: tunnel/fib (17 entries"));

  TunnelId const sr1 = fibId(isisSrTunnel, 1);
  auto const entry = fib_->entry(sr1);
  auto text = ctl({"fib", "show", "isisSrTunnel:1"});
  EXPECT_EQ(text.out, entry.stringValue() + "\n");
  auto dump = ctl({"fib", "show", "isisSrTunnel:1", "--dump"});
  EXPECT_TRUE(has(dump.out,
                  "tunnelVia: 1\n    0: nexthop 10.2.0.2 intf Ethernet1 encap "
                  "label-stack 1 (push 16001)\n  backupTunnelVia: 1\n"))
      << dump.out;
  auto j = ctl({"fib", "show", "isisSrTunnel:1", "--json"});
  EXPECT_EQ(nlohmann::ordered_json::parse(j.out)[0],
            TunnelCtl::canonicalTextToJson(entry.stringValue()));
  auto absent = ctl({"fib", "show", "isisSrTunnel:1", "isisSrTunnel:9"});
  EXPECT_EQ(absent.code, 1);
  EXPECT_TRUE(has(absent.err, "no entry isisSrTunnel:9")) << absent.err;
}

// A path of two levels in full; then where walks stop: a missing child ends
// its parent's walk with the vias after it unexamined, a cycle leaves nothing,
// and a child of two vias hands its parent an accumulating operation.
TEST_F(TunnelCtlTest, ResolveExplainsEachLevelAndWhereAWalkStopped) {
  writeFib();
  TunnelFibEntry over3(fibId(bgpLuTunnel, 9));
  over3.tunnelViaIs(TunnelViaIndex(0),
                    TunnelVia({}, Vorn::IntfId::fromTunnelIdValue(fibId(isisSrTunnel, 3).value()),
                              EncapId(EncapType::labelStackEncap, 35)));
  fib_->entryIs(over3);
  auto two = ctl({"resolve", "bgpLuTunnel:2"});
  EXPECT_EQ(two.code, 0) << two.err;
  EXPECT_EQ(two.out, R"(bgpLuTunnel:2 (BGP LU): 1 primary via
  via 0: intf DynamicTunnel0x700000000004 (isisSrTunnel:4) encap label-stack 32 labels push 300002
    isisSrTunnel:4 (IS-IS SR): 1 primary via
      via 0: nexthop 10.2.3.2 intf Ethernet4 encap label-stack 4 labels push 16004
        joined: nexthop 10.2.3.2 intf Ethernet4 labels push 16004
    joined: nexthop 10.2.3.2 intf Ethernet4 labels push 16004 300002
flattened vias of bgpLuTunnel:2 (from the resolver): 1
  nexthop 10.2.3.2 intf Ethernet4 labels push 16004 300002
verdict: 1 flattened via
)");
  std::vector<std::tuple<std::string, int, std::vector<std::string>>> const cases = {
      {"bgpLuTunnel:3",
       0,
       {"isisSrTunnel:9 (IS-IS SR): missing from the FIB",
        "stop: missing, the walk of srTePolicyTunnel:3 ends here",
        "via 2: intf DynamicTunnel0x700000000001 (isisSrTunnel:1): not examined",
        "verdict: 1 flattened via; a walk stopped at srTePolicyTunnel:3 via 1: isisSrTunnel:9 "
        "missing from the FIB"}},
      {"bgpLuTunnel:4", 1, {"verdict: no forwarding: isisSrTunnel:9 missing from the FIB"}},
      {"bgpLuTunnel:5",
       1,
       {"staticTunnel:1 (Static): cycle, met again on its own path",
        "verdict: no forwarding: cycle: staticTunnel:1"}},
      {"bgpLuTunnel:9",
       0,
       {"labels push 16003 300005\n", "labels push 16003 16003 300005\n",
        "verdict: 2 flattened vias"}},
  };
  for (auto const& [id, code, parts] : cases) {
    auto r = ctl({"resolve", id});
    EXPECT_EQ(r.code, code) << id << r.err;
    EXPECT_EQ(r.err, "") << id;  // the tree agrees with the resolver
    for (auto const& p : parts) EXPECT_TRUE(has(r.out, p)) << id << " lacks " << p << "\n" << r.out;
  }

  auto resolver = Tunnel::TunnelFib::TunnelResolverIs(fib_);
  resolver->updateFlattenedInfo(fibId(bgpLuTunnel, 1));
  std::set<std::string> expected, seen;
  for (auto const& v : resolver->consolidatedEntry(fibId(bgpLuTunnel, 1))->viaInfo()) {
    expected.insert(v.labels().stringValue() + " " + v.intfId().stringValue());
  }
  Json const j = Json::parse(ctl({"resolve", "bgpLuTunnel:1", "--json"}).out);
  for (auto const& v : j["flattenedVias"])
    seen.insert(v["labels"].get<std::string>() + " " + v["intf"].get<std::string>());
  EXPECT_EQ(seen, expected);
  EXPECT_EQ(j["path"]["vias"][1]["child"]["vias"][0]["child"]["tunnel"], "isisSrTunnel:2");
}

// Changes made through tunnelctl are what a reader of the store finds; show
// lists groups by name and entries by prefix, in the canonical field names.
TEST_F(TunnelCtlTest, ConfigChangesReachAReaderAndShowReadsThemBack) {
  using namespace Tunnel::Decap;
  using Tunnel::NexthopGroup::NexthopGroupTunnelConfigEntry;
  std::vector<std::pair<std::vector<std::string>, std::string>> const steps = {
      {{"decap-group", "set", "g2", "--type", "gre", "--ip", "10.0.0.1/32", "--ip",
        "2001:db8::/64"},
       "decap group g2 set: gre, 2 prefixes"},
      {{"decap-group", "set", "g1", "--type", "ipip"}, "decap group g1 set: ipip, 0 prefixes"},
      {{"decap-group", "set", "g0", "--type", "ipip"}, "decap group g0 set: ipip, 0 prefixes"},
      {{"decap-group", "delete", "g0"}, "decap group g0 deleted"},
      {{"decap-group", "change", "g2", "--type", "udp", "--remove-ip", "10.0.0.1/32", "--add-ip",
        "10.0.0.2/32"},
       "decap group g2 changed: udp, 2 prefixes"},
      {{"decap-port", "set", "6635", "mpls"}, "decap port 6635 set: mpls"},
      {{"decap-port", "set", "4789", "ethernet"}, "decap port 4789 set: ethernet"},
      {{"decap-port", "set", "4789", "ethernet"}, "decap port 4789 unchanged"},
      {{"decap-port", "delete", "6635"}, "decap port 6635 deleted"},
      {{"decap-ready", "true"}, "decap ready set: true"},
      {{"nexthop-group", "set", "10.1.0.0/16", "--group", "nhg1", "--pref", "5"},
       "nexthop-group entry 10.1.0.0/16 set: group nhg1, pref 5, metric 0"},
      {{"nexthop-group", "set", "10.0.0.0/8", "--group", "nhg0"},
       "nexthop-group entry 10.0.0.0/8 set: group nhg0, pref 0, metric 0"},
      {{"nexthop-group", "change", "10.0.0.0/8", "--metric", "4294967295"},
       "nexthop-group entry 10.0.0.0/8 changed: group nhg0, pref 0, metric 4294967295"},
      {{"nexthop-group", "set", "::/0", "--group", "nhg9"},
       "nexthop-group entry ::/0 set: group nhg9, pref 0, metric 0"},
      {{"nexthop-group", "delete", "::/0"}, "nexthop-group entry ::/0 deleted"},
  };
  for (auto const& [args, said] : steps) {
    std::vector<std::string> line = {"config"};
    line.insert(line.end(), args.begin(), args.end());
    auto r = ctl(line);
    EXPECT_EQ(r.code, 0) << said << r.err;
    EXPECT_EQ(r.out, said + "\n");
  }

  auto decap = configFactory();
  Keepdb::Binding decapReader(root_.path(), Tunnel::Config::kDecapConfigPath, decap, configSchema(),
                              Keepdb::Mode::reader);
  DecapGroup g1(Zent::String("g1"), DecapTunnelType::ipip),
      g2(Zent::String("g2"), DecapTunnelType::udp);
  g2.decapIpIs(DecapIpIndex(0), Vorn::IpGenPrefix("2001:db8::/64"));
  g2.decapIpIs(DecapIpIndex(1), Vorn::IpGenPrefix("10.0.0.2/32"));
  EXPECT_EQ(decap->decapGroups().size(), 2u);
  ASSERT_TRUE(decap->decapGroup(Zent::String("g2")));
  EXPECT_EQ(*decap->decapGroup(Zent::String("g2")), g2);
  EXPECT_EQ(decap->globalDestPortToPayloadTypes().size(), 1u);
  EXPECT_EQ(decap->globalDestPortToPayloadType(4789), PayloadType::ethernet);
  EXPECT_TRUE(decap->ready());
  auto nhg = Tunnel::NexthopGroup::configFactory();
  Keepdb::Binding nhgReader(root_.path(), Tunnel::Config::kNexthopGroupConfigPath, nhg,
                            Tunnel::NexthopGroup::configSchema(), Keepdb::Mode::reader);
  NexthopGroupTunnelConfigEntry const e0(Vorn::IpGenPrefix("10.0.0.0/8"), Zent::String("nhg0"), 0,
                                         4294967295u);
  NexthopGroupTunnelConfigEntry const e1(Vorn::IpGenPrefix("10.1.0.0/16"), Zent::String("nhg1"), 5,
                                         0);
  EXPECT_EQ(nhg->entries().size(), 2u);
  EXPECT_EQ(nhg->entry(e0.prefix()), e0);
  EXPECT_EQ(nhg->entry(e1.prefix()), e1);

  auto j = nlohmann::ordered_json::parse(ctl({"config", "show", "--json"}).out);
  using TunnelCtl::canonicalTextToJson;
  EXPECT_EQ(j["decap"]["groups"],
            nlohmann::ordered_json::array(
                {canonicalTextToJson(g1.stringValue()), canonicalTextToJson(g2.stringValue())}));
  EXPECT_EQ(j["decap"]["ports"],
            nlohmann::ordered_json::parse(R"([{"port": 4789, "payloadType": "ethernet"}])"));
  EXPECT_EQ(j["decap"]["ready"], true);
  EXPECT_EQ(j["nexthopGroup"]["entries"],
            nlohmann::ordered_json::array(
                {canonicalTextToJson(e0.stringValue()), canonicalTextToJson(e1.stringValue())}));
}

}  // namespace
}  // namespace ToolTest
