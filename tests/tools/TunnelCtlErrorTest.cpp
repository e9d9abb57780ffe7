// What tunnelctl tells people when something is wrong, and its exit codes:
// 1 for what the environment did (no state root, no table, permission, a
// corrupt record), 2 for a command line that cannot be; a table whose writer
// is gone is shown, not hidden.

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/tools/CtlFixture.h"

namespace ToolTest {
namespace {

class TunnelCtlErrorTest : public CtlFixture {};

bool has(std::string const& text, std::string const& part) {
  return text.find(part) != std::string::npos;
}

TEST_F(TunnelCtlErrorTest, MissingStateRootOrTableIsARuntimeError) {
  auto noRoot = run({"tables", "--root", root_.path() + "/nowhere"});
  EXPECT_EQ(noRoot.code, 1);
  EXPECT_TRUE(has(noRoot.err, "no such state root: " + root_.path() + "/nowhere")) << noRoot.err;

  for (auto const& args :
       {std::vector<std::string>{"show", "nosuch"}, {"watch", "nosuch"}, {"counters", "nosuch"}}) {
    std::vector<std::string> v = args;
    v.insert(v.end(), {"--root", root_.path()});
    auto r = run(v);
    EXPECT_EQ(r.code, 1) << args[0];
    EXPECT_TRUE(has(r.err, "no such table: nosuch")) << r.err;
  }
  // No BGP-LU producer has published here.
  auto redist = ctl({"redist", "bgp-lu"});
  EXPECT_EQ(redist.code, 1);
  EXPECT_TRUE(has(redist.err, "no such table: bgpLu")) << redist.err;
}

TEST_F(TunnelCtlErrorTest, CommandLinesThatCannotBeAreUsageErrors) {
  for (auto const& args : {std::vector<std::string>{},
                           {"frobnicate"},
                           {"show"},
                           {"show", "ldp", "ldpTunnel:x"},
                           {"show", "ldp", "noSuchType:1"},
                           {"show", "ldp", "0x2000000000000"},
                           {"show", "ldp", "--dump", "--json"},
                           {"redist", "ospf"},
                           {"demo", "--tunnels", "0"}}) {
    std::vector<std::string> v = args;
    v.insert(v.end(), {"--root", root_.path()});
    auto r = run(args.empty() ? args : v);
    EXPECT_EQ(r.code, 2) << testing::PrintToString(args) << r.err;
    EXPECT_FALSE(r.err.empty());
  }
}

TEST_F(TunnelCtlErrorTest, DemoRefusesAStateRootWhoseTablesALiveProcessWrites) {
  putLdp(1, 1, 10);  // this process writes the LDP table there
  auto r = ctl({"demo", "--tunnels", "10", "--seconds", "0.1"});
  EXPECT_EQ(r.code, 1);
  EXPECT_TRUE(has(r.err, "state root " + root_.path() + " is in use")) << r.err;
  EXPECT_TRUE(ldp_->entryHas(ldpId(1))) << "the demo must leave a live table alone";
}

TEST_F(TunnelCtlErrorTest, EveryCommandHasHelp) {
  for (std::string cmd : {"", "tables", "show", "watch", "counters", "redist", "demo"}) {
    auto r = cmd.empty() ? run({"--help"}) : run({cmd, "--help"});
    EXPECT_EQ(r.code, 0) << cmd;
    EXPECT_TRUE(has(r.out, "Usage:")) << cmd << r.out;
  }
}

TEST_F(TunnelCtlErrorTest, AbsentTunnelIsNamedAndTheOthersStillShown) {
  auto e = putLdp(1, 1, 10);
  auto r = ctl({"show", "ldp", "ldpTunnel:1", "ldpTunnel:2"});
  EXPECT_EQ(r.code, 1);
  EXPECT_EQ(r.out, e.stringValue() + "\n");
  EXPECT_TRUE(has(r.err, "no entry ldpTunnel:2")) << r.err;
}

TEST_F(TunnelCtlErrorTest, CorruptRecordIsReportedWithKeyAndOffsetAndTheRestShown) {
  auto e1 = putLdp(1, 1, 10);
  putLdp(2, 2, 20);
  auto e3 = putLdp(3, 3, 30);
  TunnelId bad = ldpId(2);
  auto* w = ldp_->entryCore().writer();
  char const* rec = nullptr;
  uint32_t len = 0;
  ASSERT_TRUE(w->find(&bad, bad.hash(), &rec, &len));
  const_cast<char*>(rec)[26] = 99;  // endpoint count, at most 16 in a valid record
  uint64_t offset = w->slotOffset(&bad, bad.hash());

  auto r = ctl({"show", "ldp"});
  EXPECT_EQ(r.code, 1);
  EXPECT_EQ(r.out, e1.stringValue() + "\n" + e3.stringValue() + "\n");
  EXPECT_TRUE(has(r.err, fmt::format("corrupt record, key ldpTunnel:2 ({})", bad.value())))
      << r.err;
  EXPECT_TRUE(has(r.err, fmt::format("offset: {}", offset))) << r.err;
}

TEST_F(TunnelCtlErrorTest, TableWhoseWriterIsGoneIsShownAsGone) {
  pid_t writer = TamselTest::forkChild([&] {
    auto lu = mounter_.mountWriter(TunnelTableIdentifier::bgpLuTunnelTable);
    TunnelCtl::Demo::TunnelState s;
    s.live = true;
    Zent::dynamicPtrCast<BgpLuTunnelTable>(lu)->entryIs(TunnelCtl::Demo::bgpLuEntry(5, s));
    return true;
  });
  ASSERT_EQ(TamselTest::waitChild(writer), 0);

  auto tables = ctl({"tables"});
  EXPECT_EQ(tables.code, 0) << tables.err;
  EXPECT_TRUE(has(tables.out, fmt::format("pid {}, gone", writer))) << tables.out;
  auto show = ctl({"show", "bgpLu"});
  EXPECT_EQ(show.code, 0) << show.err;
  EXPECT_TRUE(has(show.out,
                  "'tunnelId': " + std::to_string(TunnelId::convertToTunnelValue(bgpLuTunnel, 5))))
      << show.out;
  EXPECT_TRUE(has(show.err, fmt::format("the writer of table bgpLu (pid {}) is gone", writer)));
}

TEST_F(TunnelCtlErrorTest, UnreadableTableIsPermissionDenied) {
  putLdp(1, 1, 10);
  BeforeExec asOther;
  if (::geteuid() == 0) {
    // Root reads everything: look as an unprivileged user instead.
    ASSERT_EQ(::chmod(root_.path().c_str(), 0755), 0);
    asOther = [] {
      ::setgroups(0, nullptr);
      if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(126);
    };
  } else {
    ASSERT_EQ(::chmod(root_.dir("tunnel/table/ldp/entry.tbl").c_str(), 0), 0);
  }
  auto r = run(withRoot({"show", "ldp"}), asOther);
  EXPECT_EQ(r.code, 1) << r.out;
  EXPECT_TRUE(has(r.err, "permission denied")) << r.err;
}

}  // namespace
}  // namespace ToolTest
