// tunnelctl run as a user runs it, against a table this test process writes:
// tables and counters, show in its three forms, and watch and redist following
// changes made here.

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
// for, with an id given as type:index, decimal or hex.
TEST_F(TunnelCtlTest, ShowPrintsEntriesInIdOrderOrInTheOrderAskedInAnyIdForm) {
  auto e300 = putLdp(300, 7, 30);
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
}

// The dump is the entry's own, headed by its key; JSON keeps the canonical
// field names and order.
TEST_F(TunnelCtlTest, ShowDumpAndJsonRenderTheEntryItself) {
  auto e = putLdp(7, 2, 70, 3);
  std::ostringstream expected;
  Tunnel::TunnelTable::DumpContext ctx(expected);
  e.dumpState(&ctx, 2);
  auto r = ctl({"show", "ldp", "ldpTunnel:7", "--dump"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, fmt::format("ldpTunnel:7 ({})\n{}\n", ldpId(7).value(), expected.str()));

  auto j = ctl({"show", "ldp", "--json"});
  ASSERT_EQ(j.code, 0) << j.err;
  auto all = nlohmann::ordered_json::parse(j.out);
  ASSERT_EQ(all.size(), 1u);
  // The converter is tested on its own: here it is the oracle for the whole entry.
  EXPECT_EQ(all[0], TunnelCtl::canonicalTextToJson(e.stringValue()));
  EXPECT_EQ(all[0].begin().key(), "tunnelId");
  EXPECT_EQ(all[0]["via"].size(), 3u);
}

TEST_F(TunnelCtlTest, WatchPrintsChangesAnotherProcessMakes) {
  putLdp(1, 1, 10);
  Tool watch(withRoot({"watch", "ldp"}));
  ASSERT_TRUE(watch.waitFor("Ctrl-C stops", true)) << watch.seen().err;
  auto added = putLdp(9, 4, 90);
  ldp_->entryDel(ldpId(1));
  EXPECT_TRUE(watch.waitFor("ldpTunnel:1 deleted\n")) << watch.seen().out;
  auto r = watch.stop(SIGINT);
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(lines(r.out), (std::vector<std::string>{"ldpTunnel:9 " + added.stringValue(),
                                                    "ldpTunnel:1 deleted"}));
}

TEST_F(TunnelCtlTest, RedistPrintsWhatTheTableImpliesAndFollowsIt) {
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

  Tool watch(withRoot({"redist", "ldp", "--watch"}));
  ASSERT_TRUE(watch.waitFor("2 entries, 3 members")) << watch.seen().out << watch.seen().err;
  putLdp(3, 7, 35);  // moves to another endpoint
  std::string moved = TunnelCtl::Demo::demoPrefix(7).stringValue() + "  1 member\n" +
                      fmt::format("    {:<24} metric 35", "ldpTunnel:3");
  EXPECT_TRUE(watch.waitFor(moved)) << watch.seen().out;
  auto stopped = watch.stop(SIGINT);
  EXPECT_EQ(stopped.code, 0) << stopped.err;
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
  EXPECT_GT(all[0]["liveBytes"].get<uint64_t>(), 0u);
  auto c = ctl({"counters", "ldp", "--json"});
  ASSERT_EQ(c.code, 0) << c.err;
  Json const j = Json::parse(c.out);
  EXPECT_EQ(j["entryIs"], 3);
  EXPECT_EQ(j["entryDel"], 2);
  EXPECT_EQ(j["entryNotify"], 4);
  EXPECT_EQ(j["entries"], 1);
  EXPECT_EQ(j["writerAlive"], true);
}

}  // namespace
}  // namespace ToolTest
