// The demo as its user runs it, small: it must end with a match and clean its
// state root, keep the tables when asked, and on Ctrl-C stop every process it
// started and clean up.

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/shmem/ShmTestUtil.h"
#include "tests/tools/ToolRunner.h"

namespace ToolTest {
namespace {

namespace fs = std::filesystem;

class TunnelCtlDemoTest : public ::testing::Test {
 protected:
  std::string root() const { return root_.path() + "/demo"; }
  bool tablesLeft() const { return fs::exists(root() + "/tunnel/table/ldp/entry.tbl"); }

  TamselTest::StateRoot root_;
};

// The pids in the progress lines ("pid 1234").
std::vector<pid_t> pidsIn(std::string const& text) {
  std::vector<pid_t> pids;
  for (size_t at = text.find("pid "); at != std::string::npos; at = text.find("pid ", at + 1)) {
    pid_t p = std::atoi(text.c_str() + at + 4);
    if (p != 0 && std::find(pids.begin(), pids.end(), p) == pids.end()) pids.push_back(p);
  }
  return pids;
}

// The summary line of `table`: "  <table>  <numbers>  <verdict>".
std::string summaryLine(std::string const& text, std::string const& table) {
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("  " + table + " ", 0) == 0) return line;
  }
  return {};
}

TEST_F(TunnelCtlDemoTest, SmallDemoEndsWithAMatchAndRemovesItsTables) {
  // A pace the consumer keeps up with under the sanitizers.
  auto r = run({"demo", "--tunnels", "300", "--seconds", "1", "--rate", "2000", "--root", root()});
  ASSERT_EQ(r.code, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("tables imply: match"), std::string::npos) << r.out;
  for (auto table : {"ldp", "sr", "bgpLu"}) {
    EXPECT_TRUE(summaryLine(r.out, table).ends_with("  yes")) << table << "\n" << r.out;
  }
  EXPECT_NE(r.out.find("show ldp ldpTunnel:"), std::string::npos) << r.out;
  EXPECT_FALSE(fs::exists(root())) << "the demo created the root and must remove it";
}

TEST_F(TunnelCtlDemoTest, KeptTablesAreThereToInspect) {
  auto r = run(
      {"demo", "--tunnels", "50", "--seconds", "0.2", "--rate", "500", "--keep", "--root", root()});
  ASSERT_EQ(r.code, 0) << r.out << r.err;
  ASSERT_TRUE(tablesLeft());
  auto tables = run({"tables", "--root", root()});
  EXPECT_EQ(tables.code, 0) << tables.err;
  for (auto name : {"bgpLu", "ldp", "sr"}) EXPECT_NE(tables.out.find(name), std::string::npos);
  EXPECT_NE(tables.out.find("gone"), std::string::npos) << tables.out;
  // A second run starts afresh over what the first one left.
  auto again =
      run({"demo", "--tunnels", "50", "--seconds", "0.2", "--rate", "500", "--root", root()});
  EXPECT_EQ(again.code, 0) << again.out << again.err;
  EXPECT_FALSE(tablesLeft());
}

TEST_F(TunnelCtlDemoTest, InterruptStopsEveryProcessAndCleansTheRoot) {
  BackgroundTool demo(
      {"demo", "--tunnels", "300", "--seconds", "120", "--rate", "500", "--root", root()});
  ASSERT_TRUE(demo.waitOut("churning")) << demo.out() << demo.err();
  std::vector<pid_t> children = pidsIn(demo.out());
  auto r = demo.stop(SIGINT);
  EXPECT_EQ(r.code, 1) << r.err;
  EXPECT_NE(r.out.find("interrupted: stopped 4 processes"), std::string::npos) << r.out;
  EXPECT_EQ(children.size(), 4u) << r.out;
  for (pid_t p : children) EXPECT_NE(::kill(p, 0), 0) << "demo process " << p << " still runs";
  EXPECT_FALSE(fs::exists(root()));
}

}  // namespace
}  // namespace ToolTest
