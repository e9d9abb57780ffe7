// The demo as its user runs it, small: a match, the tables and the FIB kept
// when asked and readable after their writers are gone, and a clean state
// root after it ends or is interrupted, with every process it started stopped.

#include <csignal>
#include <filesystem>
#include <set>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/shmem/ShmTestUtil.h"
#include "tests/tools/ToolRunner.h"

namespace ToolTest {
namespace {

class TunnelCtlDemoTest : public ::testing::Test {
 protected:
  std::string root() const { return root_.path() + "/demo"; }
  // A pace the consumer keeps up with under the sanitizers.
  std::vector<std::string> demo(char const* seconds, bool keep = false) const {
    std::vector<std::string> a{"demo",   "--tunnels", "300",    "--seconds", seconds,
                               "--rate", "2000",      "--root", root()};
    if (keep) a.push_back("--keep");
    return a;
  }
  TamselTest::StateRoot root_;
};

TEST_F(TunnelCtlDemoTest, KeptTablesAreThereToInspectAndTheNextRunCleansUp) {
  auto kept = run(demo("1", true));
  ASSERT_EQ(kept.code, 0) << kept.out << kept.err;
  auto tables = run({"tables", "--root", root()});
  EXPECT_EQ(tables.code, 0) << tables.err;
  for (auto name : {"bgpLu", "ldp", "sr"}) EXPECT_NE(tables.out.find(name), std::string::npos);
  EXPECT_NE(tables.out.find("gone"), std::string::npos) << tables.out;
  EXPECT_NE(tables.out.find("tunnelRib: tunnel/rib/tunnelRib ("), std::string::npos) << tables.out;
  // A table whose writer is gone is shown, not hidden, with a warning.
  auto show = run({"show", "ldp", "--root", root()});
  EXPECT_EQ(show.code, 0) << show.err;
  EXPECT_NE(show.out.find("'tunnelId': "), std::string::npos);
  EXPECT_NE(show.err.find("the writer of table ldp (pid "), std::string::npos) << show.err;
  // So is the FIB, whose writer the summary names an example of.
  auto resolve = run({"resolve", "bgpLuTunnel:1", "--root", root()});
  EXPECT_EQ(resolve.code, 0) << resolve.err;
  EXPECT_NE(kept.out.find("bgpLuTunnel:1 resolves to 2 flattened vias"), std::string::npos);
  EXPECT_NE(resolve.out.find("verdict: 2 flattened vias"), std::string::npos) << resolve.out;
  // And the RIBs, with every candidate of an endpoint ranked.
  EXPECT_NE(kept.out.find("calculation afresh from the tables: match"), std::string::npos);
  EXPECT_NE(kept.out.find("merge ready: yes; equal to the merge of the inputs: match"),
            std::string::npos);
  auto multicast = run({"multicast", "--root", root()});  // checked afresh by the tool too
  EXPECT_EQ(multicast.code, 0) << multicast.err;
  EXPECT_NE(multicast.out.find("(static overrides MLDP): match"), std::string::npos);
  auto redist = run({"redist", "isis-sr", "--root", root()});  // as its consumer published it
  EXPECT_EQ(redist.code, 0) << redist.err;
  EXPECT_NE(redist.err.find("the consumer that published it (pid "), std::string::npos);
  auto rib = run({"rib", "--root", root()});
  EXPECT_EQ(rib.code, 0) << rib.err;
  EXPECT_NE(rib.out.find("tunnelRib at tunnel/rib/tunnelRib: "), std::string::npos) << rib.out;
  // The endpoint the summary suggests.
  size_t at = kept.out.rfind(" rib ", kept.out.find(" --candidates")) + 5;
  auto cands = run(
      {"rib", kept.out.substr(at, kept.out.find(' ', at) - at), "--candidates", "--root", root()});
  EXPECT_EQ(cands.code, 0) << cands.err;
  EXPECT_NE(cands.out.find("in the RIB"), std::string::npos) << cands.out;
  EXPECT_NE(cands.out.find("lost to #"), std::string::npos) << cands.out;

  // A second run starts afresh over what the first one left, and removes it.
  auto r = run(demo("1"));
  ASSERT_EQ(r.code, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("in the state database: match"), std::string::npos) << r.out;
  for (std::string table : {"ldp", "sr", "bgpLu"}) {  // "  <table>  <numbers>  <verdict>"
    size_t const at = r.out.find("\n  " + table + " ") + 1;
    EXPECT_TRUE(r.out.substr(at, r.out.find('\n', at) - at).ends_with("  yes")) << table << r.out;
  }
  EXPECT_FALSE(std::filesystem::exists(root()));
}

TEST_F(TunnelCtlDemoTest, InterruptStopsEveryProcessAndCleansTheRoot) {
  Tool demo(this->demo("120"));
  ASSERT_TRUE(demo.waitFor("churning")) << demo.seen().out << demo.seen().err;
  std::set<pid_t> children;  // from the progress lines ("pid 1234")
  std::string const out = demo.seen().out;
  for (size_t at = out.find("pid "); at != std::string::npos; at = out.find("pid ", at + 1)) {
    if (pid_t p = std::atoi(out.c_str() + at + 4)) children.insert(p);
  }
  auto r = demo.stop(SIGINT);
  EXPECT_EQ(r.code, 1) << r.err;
  // Eight with a progress line, and the FIB's writer.
  EXPECT_NE(r.out.find("interrupted: stopped 9 processes"), std::string::npos) << r.out;
  EXPECT_EQ(children.size(), 8u) << r.out;
  for (pid_t p : children) EXPECT_NE(::kill(p, 0), 0) << "demo process " << p << " still runs";
  EXPECT_FALSE(std::filesystem::exists(root()));
}

}  // namespace
}  // namespace ToolTest
