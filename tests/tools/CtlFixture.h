#pragma once
// A private state root in which the test process itself writes the LDP table
// (so tunnelctl, another process, sees a live writer), with the demo's entries,
// and on request the demo's tunnel FIB.

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/TunnelTable/Tables.h"
#include "tests/shmem/ShmTestUtil.h"
#include "tests/tools/ToolRunner.h"
#include "tools/tunnelctl/DemoFib.h"
#include "tools/tunnelctl/DemoTunnels.h"

namespace ToolTest {

using namespace Tunnel::TunnelTable;

inline TunnelId ldpId(uint64_t index) { return TunnelId(ldpTunnel, index); }

inline bool has(std::string const& text, std::string const& part) {
  return text.find(part) != std::string::npos;
}

inline std::vector<std::string> lines(std::string const& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string l; std::getline(in, l);) out.push_back(l);
  return out;
}

class CtlFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    ldp_ = Zent::dynamicPtrCast<LdpTunnelTable>(
        mounter_.mountWriter(TunnelTableIdentifier::ldpTunnelTable));
    ASSERT_TRUE(ldp_);
  }
  void TearDown() override {
    if (fib_) {
      fib_ = nullptr;
      mount_.doUnmount(Zent::String(Tunnel::TunnelFib::TunnelFib::kMountPath));
    }
    ldp_ = nullptr;
    mounter_.unmount(TunnelTableIdentifier::ldpTunnelTable);
  }

  // An LDP tunnel to demo prefix `prefix` with `vias` vias.
  LdpTunnelTableEntry putLdp(uint64_t index, uint16_t prefix, uint32_t metric, uint8_t vias = 2) {
    LdpTunnelTableEntry e = TunnelCtl::Demo::ldpEntry(index, {true, prefix, vias, 0, metric});
    ldp_->entryIs(e);
    return e;
  }

  void writeFib() {
    fib_ = Tunnel::TunnelFib::mountTunnelFib(mount_, ZentTamsel::writer());
    TunnelCtl::Demo::writeDemoFib(*fib_);
  }

  // The command line `args` with this test's state root.
  std::vector<std::string> withRoot(std::vector<std::string> args) const {
    args.insert(args.end(), {"--root", root_.path()});
    return args;
  }
  RunResult ctl(std::vector<std::string> const& args) const { return run(withRoot(args)); }

  TamselTest::StateRoot root_;
  ZentTamsel::MountRegistry registry_;
  TunnelTableMounter mounter_{ZentTamsel::Mount(Zent::String(root_.path()), registry_)};
  Zent::Ptr<LdpTunnelTable> ldp_;
  ZentTamsel::Mount mount_{Zent::String(root_.path()), registry_};
  Zent::Ptr<Tunnel::TunnelFib::TunnelFib> fib_;
};

}  // namespace ToolTest
