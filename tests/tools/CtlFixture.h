#pragma once
// The fixture of the tunnelctl tests: a private state root in which the test
// process itself writes the LDP table (so the tool, another process, sees a
// live writer), with entries built as the demo builds them.

#include <initializer_list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/TunnelTable/Tables.h"
#include "tests/shmem/ShmTestUtil.h"
#include "tests/tools/ToolRunner.h"
#include "tools/tunnelctl/DemoTunnels.h"

namespace ToolTest {

using namespace Tunnel::TunnelTable;

inline TunnelId ldpId(uint64_t index) {
  return TunnelId(TunnelId::convertToTunnelValue(ldpTunnel, index));
}

class CtlFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    ldp_ = Zent::dynamicPtrCast<LdpTunnelTable>(
        mounter_.mountWriter(TunnelTableIdentifier::ldpTunnelTable));
    ASSERT_TRUE(ldp_);
  }
  void TearDown() override {
    ldp_ = nullptr;
    mounter_.unmount(TunnelTableIdentifier::ldpTunnelTable);
  }

  // An LDP tunnel to demo prefix `prefix` with `vias` vias.
  LdpTunnelTableEntry putLdp(uint64_t index, uint16_t prefix, uint32_t metric, uint8_t vias = 2) {
    TunnelCtl::Demo::TunnelState s;
    s.live = true;
    s.prefix = prefix;
    s.metric = metric;
    s.vias = vias;
    LdpTunnelTableEntry e = TunnelCtl::Demo::ldpEntry(index, s);
    ldp_->entryIs(e);
    return e;
  }

  // The command line `args` with this test's state root.
  std::vector<std::string> withRoot(std::initializer_list<std::string> args) const {
    std::vector<std::string> v(args);
    v.push_back("--root");
    v.push_back(root_.path());
    return v;
  }
  RunResult ctl(std::initializer_list<std::string> args) const { return run(withRoot(args)); }

  TamselTest::StateRoot root_;
  ZentTamsel::MountRegistry registry_;
  TunnelTableMounter mounter_{ZentTamsel::Mount(Zent::String(root_.path()), registry_)};
  Zent::Ptr<LdpTunnelTable> ldp_;
};

}  // namespace ToolTest
