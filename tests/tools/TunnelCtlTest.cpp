// tunnelctl run as a user runs it, against a table this test process writes:
// show in its three forms, watch and redist following changes, tables, counters.

#include <csignal>
#include <sstream>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "Tunnel/TunnelTable/DumpContext.h"
#include "tests/tools/CtlFixture.h"
#include "tools/tunnelctl/DemoTunnels.h"
#include "tools/tunnelctl/JsonText.h"

namespace ToolTest {
namespace {

using Json = nlohmann::json;

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

// Both follow changes this process makes; redist prints what the table implies.
TEST_F(TunnelCtlTest, WatchAndRedistFollowChangesAnotherProcessMakes) {
  putLdp(1, 5, 10);
  putLdp(2, 5, 20);
  putLdp(3, 6, 30);
  auto r = ctl({"redist", "ldp", "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  Json j = Json::parse(r.out);
  ASSERT_EQ(j["entries"].size(), 2u);
  EXPECT_EQ(j["entries"][0]["prefix"], TunnelCtl::Demo::demoPrefix(5).stringValue());
  EXPECT_EQ(j["entries"][0]["members"],
            Json::parse(fmt::format(R"([{{"tunnelId": {}, "igpMetric": 10}},
                                        {{"tunnelId": {}, "igpMetric": 20}}])",
                                    ldpId(1).value(), ldpId(2).value())));

  Tool watch(withRoot({"watch", "ldp"}));
  Tool redist(withRoot({"redist", "ldp", "--watch"}));
  ASSERT_TRUE(watch.waitFor("Ctrl-C stops", true)) << watch.seen().err;
  ASSERT_TRUE(redist.waitFor("2 entries, 3 members")) << redist.seen().out << redist.seen().err;
  auto moved = putLdp(3, 7, 35);  // to another endpoint
  ldp_->entryDel(ldpId(1));
  EXPECT_TRUE(watch.waitFor("ldpTunnel:1 deleted\n")) << watch.seen().out;
  EXPECT_TRUE(redist.waitFor(TunnelCtl::Demo::demoPrefix(7).stringValue() + "  1 member\n" +
                             fmt::format("    {:<24} metric 35", "ldpTunnel:3")))
      << redist.seen().out;
  auto w = watch.stop(SIGINT);
  EXPECT_EQ(w.code, 0) << w.err;
  EXPECT_EQ(lines(w.out), (std::vector<std::string>{"ldpTunnel:3 " + moved.stringValue(),
                                                    "ldpTunnel:1 deleted"}));
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

}  // namespace
}  // namespace ToolTest
