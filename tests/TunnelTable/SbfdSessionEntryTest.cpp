// The SBFD session entry's compact record (the contract suite and the golden
// records cover the rest): endpoint and name stay out of it, and the records
// it refuses leave the entry unchanged.

#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/SbfdSessionEntry.h"
#include "tests/common/ValueContract.h"

namespace Tunnel::TunnelTable {
namespace {

using Bytes = std::vector<unsigned char>;
using Entry = ZorbSdkSbfdSessionTunnelTableEntry;

TunnelId sessionId(TunnelType type, uint64_t index) { return TunnelId(type, index); }

using valuecontract::recordOf;

class SbfdSessionEntryTest : public ::testing::Test {
 protected:
  SbfdSessionEntryTest() {
    e_.nexthopTunnelIdIs(sessionId(ldpTunnel, 9));
    e_.entryPrefIs(7);
    e_.entryMetricIs(0x01020304);
    e_.tunnelBwIs(0x0a0b0c0d);
    e_.viasOrderedIs(true);
    e_.viaIs(Via(Vorn::IpGenAddr("10.0.0.2"), Vorn::IntfId::ethernet(1)));
    record_ = recordOf(e_);
  }
  uint32_t lenOf(Bytes const& b) const {
    return e_.deserializeLen(b.data(), static_cast<unsigned>(b.size()));
  }

  Entry e_{sessionId(zorbSdkSbfdSessionTunnel, 3)};
  Bytes record_;
};

// Deliberate: the slot has no room for them; a reader sees none.
TEST_F(SbfdSessionEntryTest, EndpointAndNameAreNotCarried) {
  Entry named = e_;
  named.endpointIs(0, Vorn::IpGenPrefix("10.0.0.1/32"));
  named.nameIs("session");
  EXPECT_EQ(recordOf(named), record_);
  named.deserialize(record_.data(), static_cast<unsigned>(record_.size()));
  EXPECT_EQ(named, e_);
}

TEST_F(SbfdSessionEntryTest, RecordsNoEntryWouldWriteAreRefused) {
  MplsCosVia labelled(MplsVia(e_.via(), Vorn::MplsLabelOperation::push({16})));
  MplsCosVia someClasses(MplsVia(e_.via(), Vorn::MplsLabelOperation::forward()), 0x0f);
  struct Patch {
    size_t offset;
    Bytes bytes;
  };
  std::vector<Patch> const patches = {
      {7, {0x02}},   // tunnelId above TunnelId::maxValue
      {25, {2}},     // viasOrdered neither 0 nor 1
      {26, {1}},     // reserved
      {27, {0x80}},  // reserved
      {28, Bytes(reinterpret_cast<unsigned char const*>(&labelled),
                 reinterpret_cast<unsigned char const*>(&labelled) + sizeof labelled)},
      {28, Bytes(reinterpret_cast<unsigned char const*>(&someClasses),
                 reinterpret_cast<unsigned char const*>(&someClasses) + sizeof someClasses)},
      {28 + 21, {1}},  // the interface's reserved bytes: not a well-formed via
  };
  for (Patch const& p : patches) {
    Bytes bad = record_;
    std::memcpy(&bad[p.offset], p.bytes.data(), p.bytes.size());
    EXPECT_EQ(lenOf(bad), 0u) << "at " << p.offset;
    Entry back;
    EXPECT_THROW(back.deserialize(bad.data(), static_cast<unsigned>(bad.size())), RecordError);
    EXPECT_EQ(back, Entry()) << "a refused record changed the entry, at " << p.offset;
  }
}

}  // namespace
}  // namespace Tunnel::TunnelTable
