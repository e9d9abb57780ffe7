// What tunnelctl says when something is wrong: exit code 1 for what the
// environment did, 2 for a command line that cannot be.

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/tools/CtlFixture.h"

namespace ToolTest {
namespace {

class TunnelCtlErrorTest : public CtlFixture {};

// Each command line with a part of its one-line message: a mistake of the
// environment exits 1 saying what, a command line that cannot be exits 2 with
// any message; help is on stdout with exit code 0.
TEST_F(TunnelCtlErrorTest, ExitCodesAndMessagesOfEachKindOfMistake) {
  putLdp(1, 1, 10);  // this process writes the LDP table: the demo must leave it alone
  std::string const nowhere = root_.path() + "/nowhere";
  std::vector<std::pair<std::vector<std::string>, std::string>> const cases = {
      {{"tables", "--root", nowhere}, "no such state root: " + nowhere},
      {withRoot({"show", "nosuch"}), "no such table: nosuch"},
      {withRoot({"watch", "nosuch"}), "no such table: nosuch"},
      {withRoot({"counters", "nosuch"}), "no such table: nosuch"},
      {withRoot({"redist", "bgp-lu"}), "no bgp-lu redistribution configuration under"},
      {withRoot({"fib"}), "no tunnel FIB under " + root_.path()},
      {withRoot({"fib", "show", "bgpLuTunnel:1"}), "no tunnel FIB under"},
      {withRoot({"resolve", "bgpLuTunnel:1"}), "no tunnel FIB under"},
      {withRoot({"rib"}), "no tunnel RIB under " + root_.path()},
      {withRoot({"rib", "--color", "3"}), "no colored tunnel RIB under"},
      {withRoot({"multicast"}), "no MPLS multicast table under " + root_.path()},
      {withRoot({"demo", "--tunnels", "10", "--seconds", "0.1"}),
       "state root " + root_.path() + " is in use"},
      {{}, ""},
      {withRoot({"frobnicate"}), ""},
      {withRoot({"show"}), ""},
      {withRoot({"show", "ldp", "ldpTunnel:x"}), ""},
      {withRoot({"show", "ldp", "noSuchType:1"}), ""},
      {withRoot({"show", "ldp", "0x2000000000000"}), ""},
      {withRoot({"show", "ldp", "--dump", "--json"}), ""},
      {withRoot({"fib", "show"}), ""},
      {withRoot({"fib", "show", "ldpTunnel:x"}), ""},
      {withRoot({"resolve", "noSuchType:1"}), ""},
      {withRoot({"redist", "ospf"}), ""},
      {withRoot({"rib", "--candidates"}), ""},
      {withRoot({"rib", "10.0.0.300/32"}), ""},
      {withRoot({"demo", "--tunnels", "0"}), ""},
      {withRoot({"multicast", "mldpTunnel"}), ""},
  };
  for (auto const& [args, message] : cases) {
    auto r = run(args);
    EXPECT_EQ(r.code, message.empty() ? 2 : 1) << testing::PrintToString(args) << r.err;
    EXPECT_TRUE(!r.err.empty() && has(r.err, message)) << r.err;
  }
  EXPECT_TRUE(ldp_->entryHas(ldpId(1)));
  for (std::string cmd : {"", "tables", "show", "fib", "resolve", "watch", "counters", "redist",
                          "rib", "multicast", "demo"}) {
    auto r = cmd.empty() ? run({"--help"}) : run({cmd, "--help"});
    EXPECT_EQ(r.code, 0) << cmd;
    EXPECT_TRUE(has(r.out, "Usage:")) << cmd << r.out;
  }
}

TEST_F(TunnelCtlErrorTest, CorruptRecordOrAbsentTunnelIsNamedAndTheRestShown) {
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
  auto absent = ctl({"show", "ldp", "ldpTunnel:1", "ldpTunnel:9"});
  EXPECT_EQ(absent.code, 1);
  EXPECT_EQ(absent.out, e1.stringValue() + "\n");
  EXPECT_TRUE(has(absent.err, "no entry ldpTunnel:9")) << absent.err;
}

TEST_F(TunnelCtlErrorTest, UnreadableTableIsPermissionDenied) {
  putLdp(1, 1, 10);
  std::function<void()> asOther;
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
