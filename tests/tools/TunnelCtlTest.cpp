// tunnelctl run as a user runs it, against a table this test process writes:
// tables, show in its three forms, watch and redist following changes made
// here, and the writer's counters.

#include <csignal>
#include <sstream>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "Tunnel/TunnelTable/DumpContext.h"
#include "tests/tools/CtlFixture.h"
#include "tools/tunnelctl/DemoTunnels.h"

namespace ToolTest {
namespace {

using Json = nlohmann::json;

class TunnelCtlTest : public CtlFixture {};

std::vector<std::string> lines(std::string const& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string l; std::getline(in, l);) out.push_back(l);
  return out;
}

TEST_F(TunnelCtlTest, TablesListsEachTableWithEntryTypeCountAndLiveWriter) {
  putLdp(1, 3, 10);
  putLdp(2, 4, 20);
  auto r = ctl({"tables"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("Tunnel::TunnelTable::LdpTunnelTableEntry"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("tunnel/table/ldp"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("pid " + std::to_string(::getpid()) + ", alive"), std::string::npos)
      << r.out;

  auto j = ctl({"tables", "--json"});
  ASSERT_EQ(j.code, 0) << j.err;
  Json all = Json::parse(j.out);
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0]["name"], "ldp");
  EXPECT_EQ(all[0]["entries"], 2);
  EXPECT_EQ(all[0]["writerPid"], ::getpid());
  EXPECT_EQ(all[0]["writerAlive"], true);
  EXPECT_GT(all[0]["liveBytes"].get<uint64_t>(), 0u);
}

TEST_F(TunnelCtlTest, ShowPrintsEveryEntryInCanonicalTextInTunnelIdOrder) {
  // Written out of order: keys are stored in byte order, shown by id.
  auto e300 = putLdp(300, 7, 30);
  auto e2 = putLdp(2, 5, 20);
  auto e1 = putLdp(1, 260, 10);  // an IPv6 endpoint
  auto r = ctl({"show", "ldp"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(lines(r.out),
            (std::vector<std::string>{e1.stringValue(), e2.stringValue(), e300.stringValue()}));
}

TEST_F(TunnelCtlTest, ShowAcceptsIdsAsDecimalHexAndTypeIndexInTheOrderGiven) {
  auto e1 = putLdp(1, 1, 10);
  auto e2 = putLdp(2, 2, 20);
  auto e3 = putLdp(3, 3, 30);
  auto r = ctl({"show", "ldp", "ldpTunnel:3", std::to_string(ldpId(1).value()),
                fmt::format("{:#x}", ldpId(2).value())});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(lines(r.out),
            (std::vector<std::string>{e3.stringValue(), e1.stringValue(), e2.stringValue()}));
}

TEST_F(TunnelCtlTest, ShowDumpHeadsTheEntrysOwnDumpWithItsKey) {
  auto e = putLdp(7, 9, 70, 3);
  std::ostringstream expected;
  Tunnel::TunnelTable::DumpContext ctx(expected);
  e.dumpState(&ctx, 2);
  auto r = ctl({"show", "ldp", "ldpTunnel:7", "--dump"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, fmt::format("ldpTunnel:7 ({})\n{}\n", ldpId(7).value(), expected.str()));
  EXPECT_NE(r.out.find("Vias #3"), std::string::npos);
}

TEST_F(TunnelCtlTest, ShowJsonKeepsTheCanonicalFieldNamesAndOrder) {
  putLdp(4, 2, 40, 2);
  auto r = ctl({"show", "ldp", "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  auto all = nlohmann::ordered_json::parse(r.out);
  ASSERT_EQ(all.size(), 1u);
  auto const& e = all[0];
  EXPECT_EQ(e.begin().key(), "tunnelId");
  EXPECT_EQ(e["tunnelId"], ldpId(4).value());
  EXPECT_EQ(e["igpMetric"], 40);
  EXPECT_EQ(e["viasOrdered"], false);
  EXPECT_EQ(e["endpoint"],
            nlohmann::ordered_json::array({TunnelCtl::Demo::demoPrefix(2).stringValue()}));
  ASSERT_EQ(e["via"].size(), 2u);
  EXPECT_TRUE(e["via"][0]["labels"].get<std::string>().starts_with("push "));
}

TEST_F(TunnelCtlTest, WatchPrintsChangesAnotherProcessMakes) {
  putLdp(1, 1, 10);
  BackgroundTool watch(withRoot({"watch", "ldp"}));
  ASSERT_TRUE(watch.waitErr("Ctrl-C stops")) << watch.err();
  auto added = putLdp(9, 4, 90);
  ldp_->entryDel(ldpId(1));
  EXPECT_TRUE(watch.waitOut("ldpTunnel:1 deleted\n")) << watch.out();
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

  BackgroundTool watch(withRoot({"redist", "ldp", "--watch"}));
  ASSERT_TRUE(watch.waitOut("2 entries, 3 members")) << watch.out() << watch.err();
  putLdp(3, 7, 35);  // moves to another endpoint
  std::string moved = TunnelCtl::Demo::demoPrefix(7).stringValue() + "  1 member\n" +
                      fmt::format("    {:<24} metric 35", "ldpTunnel:3");
  EXPECT_TRUE(watch.waitOut(moved)) << watch.out();
  auto stopped = watch.stop(SIGINT);
  EXPECT_EQ(stopped.code, 0) << stopped.err;
}

TEST_F(TunnelCtlTest, CountersShowWhatTheWriterPublished) {
  putLdp(1, 1, 10);
  putLdp(2, 1, 10);
  putLdp(2, 1, 20);
  ldp_->entryDel(ldpId(1));
  ldp_->entryDel(ldpId(5));  // absent: counted, not notified
  auto r = ctl({"counters", "ldp", "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  Json j = Json::parse(r.out);
  EXPECT_EQ(j["entryIs"], 3);
  EXPECT_EQ(j["entryDel"], 2);
  EXPECT_EQ(j["entryNotify"], 4);
  EXPECT_EQ(j["entries"], 1);
  EXPECT_EQ(j["writerAlive"], true);
}

}  // namespace
}  // namespace ToolTest
