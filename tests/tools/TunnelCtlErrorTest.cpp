// What tunnelctl says when something is wrong: exit code 1 for what the
// environment did, 2 for a command line that cannot be.

#include <algorithm>
#include <grp.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

#include "Tunnel/config/ConfigPaths.h"
#include "Tunnel/config/DecapConfig.h"
#include "Tunnel/shmem/Keepdb/Keepdb.h"
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
      {withRoot({"config"}), "no configuration under " + root_.path()},
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
                          "rib", "multicast", "config", "demo"}) {
    auto r = cmd.empty() ? run({"--help"}) : run({cmd, "--help"});
    EXPECT_EQ(r.code, 0) << cmd;
    EXPECT_TRUE(has(r.out, "Usage:")) << cmd << r.out;
  }
}

// A configuration change is checked in full before its entity is opened, so a
// refused one (in one line) leaves the store as it was, and an absent entity
// is not created for it. A live writer elsewhere is named.
TEST_F(TunnelCtlErrorTest, RefusedConfigChangesLeaveTheStoreAsItWas) {
  ASSERT_EQ(ctl({"config", "decap-group", "set", "g", "--type", "gre", "--ip", "10.0.0.1/32"}).code,
            0);
  ASSERT_EQ(ctl({"config", "decap-port", "set", "4789", "ethernet"}).code, 0);
  std::string const before = ctl({"config", "--json"}).out;
  std::vector<std::string> tooMany = {"decap-group", "set", "g", "--type", "gre"};
  for (int i = 0; i < 601; ++i) {
    tooMany.insert(tooMany.end(), {"--ip", fmt::format("10.1.{}.{}/32", i / 256, i % 256)});
  }
  std::vector<std::tuple<std::vector<std::string>, int, std::string>> const cases = {
      {{"decap-port", "set", "4789", "vxlan"},
       2,
       "unknown payload type 'vxlan' (ipv4, ipv6, ip, mpls or ethernet)"},
      {{"decap-port", "set", "0", "ipv4"}, 2, "port out of range: 0 (1-65535)"},
      {{"decap-port", "set", "70000", "ipv4"}, 2, "port out of range: 70000 (1-65535)"},
      {{"decap-port", "delete", "4790"}, 1, "no decap port 4790"},
      {{"decap-group", "set", "g", "--type", "vxlan"}, 2, "unknown tunnel type 'vxlan' (gre, ipip"},
      // The good prefix before the bad one is not written either.
      {{"decap-group", "set", "g", "--type", "udp", "--ip", "10.0.0.2/32", "--ip", "10.0.0.300/32"},
       2,
       "malformed prefix '10.0.0.300/32'"},
      {{"decap-group", "set", "g/h", "--type", "gre"}, 2, "bad decap group name 'g/h'"},
      {{"decap-group", "change", "nosuch", "--type", "udp"}, 1, "no decap group 'nosuch'"},
      {{"decap-group", "delete", "nosuch"}, 1, "no decap group 'nosuch'"},
      {{"decap-group", "change", "g", "--add-ip", "10.0.0.2/32", "--remove-ip", "10.0.0.9/32"},
       1,
       "decap group 'g' has no prefix 10.0.0.9/32"},
      {{"decap-group", "change", "g"}, 2, "nothing to change"},
      {{"decap-ready", "yes"}, 2, "true or false, not 'yes'"},
      {{"nexthop-group", "set", "10.0.0.0/8", "--group", "n", "--pref", "4294967296"},
       2,
       "pref out of range: 4294967296 (0-4294967295)"},
      {{"nexthop-group", "change", "10.0.0.0/8", "--metric", "1"},
       1,
       "no nexthop-group entry 10.0.0.0/8"},
      {tooMany, 2, "too many prefixes: 601 (a group holds at most 600)"},
  };
  for (auto const& [args, code, message] : cases) {
    std::vector<std::string> line = {"config"};
    line.insert(line.end(), args.begin(), args.end());
    auto r = ctl(line);
    EXPECT_EQ(r.code, code) << message << r.err;
    EXPECT_TRUE(has(r.err, message)) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  }
  EXPECT_EQ(ctl({"config", "--json"}).out, before);
  EXPECT_FALSE(Keepdb::exists(root_.path(), Tunnel::Config::kNexthopGroupConfigPath));

  Keepdb::Binding held(root_.path(), Tunnel::Config::kDecapConfigPath,
                       Tunnel::Decap::configFactory(), Tunnel::Decap::configSchema(),
                       Keepdb::Mode::writerLoad);
  auto busy = ctl({"config", "decap-ready", "true"});
  EXPECT_EQ(busy.code, 1);
  EXPECT_EQ(busy.err,
            fmt::format("tunnelctl: tunnel/config/decap is being written by pid {}\n", ::getpid()));
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
