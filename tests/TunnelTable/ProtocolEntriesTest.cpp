// The IGP, FRR, RSVP LER and colored entries beyond the common contract: the
// per-type defaults, where each tail field sits in the record (the FRR tail's
// unaligned sequence number, the flex-algo zero fill), and the dump lines.

#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/ColoredEntries.h"
#include "Tunnel/TunnelTable/FrrEntries.h"
#include "Tunnel/TunnelTable/IgpEntries.h"
#include "Tunnel/TunnelTable/RsvpLerEntry.h"
#include "tests/TunnelTable/EntryTraitsA.h"

namespace Tunnel::TunnelTable::test {
namespace {

using Bytes = std::vector<unsigned char>;

// The largest records, which the tables' slot bounds are built on.
static_assert(TunnelTableEntry::kMaxSerializedLen == 552);
static_assert(IgpTunnelTableEntryBase::kMaxSerializedLen == 65372);
static_assert(LdpTunnelTableEntry::kMaxSerializedLen == 65372);
static_assert(SrTunnelTableEntry::kMaxSerializedLen == 65372);
static_assert(FrrTunnelTableEntry::kMaxSerializedLen == 771);
static_assert(TiLfaTunnelTableEntry::kMaxSerializedLen == 771);
static_assert(RsvpLerTunnelTableEntry::kMaxSerializedLen == 65593);
static_assert(ColoredTunnelTableEntry::kMaxSerializedLen == 564);
static_assert(SrTePolicyTunnelTableEntry::kMaxSerializedLen == 564);
static_assert(FlexAlgoTunnelTableEntry::kMaxSerializedLen == 65372);

TunnelId id(TunnelType type, uint64_t index) {
  return TunnelId(TunnelId::convertToTunnelValue(type, index));
}

template <typename T>
Bytes recordOf(T const& e) {
  Bytes b(e.serializeLen());
  e.serialize(b.data());
  return b;
}

template <typename T>
T at(Bytes const& b, size_t offset) {
  T v;
  std::memcpy(static_cast<void*>(&v), &b[offset], sizeof v);
  return v;
}

TEST(EntryDefaultsTest, SrPreferenceComesFromTheIdentifiersType) {
  EXPECT_EQ(std::make_unique<SrTunnelTableEntry>(id(isisSrTunnel, 1))->entryPref(), 65);
  EXPECT_EQ(std::make_unique<SrTunnelTableEntry>(id(ospfSrTunnel, 1))->entryPref(), 60);
  auto e = std::make_unique<SrTunnelTableEntry>();
  EXPECT_EQ(e->entryPref(), 255);
  e->tunnelIdIs(id(ospfSrTunnel, 2));
  e->intializeSrTunnelEntry();
  EXPECT_EQ(e->entryPref(), 60);
}

TEST(EntryDefaultsTest, RsvpLerAloneOrdersItsVias) {
  auto ler = std::make_unique<RsvpLerTunnelTableEntry>(id(rsvpLerTunnel, 1));
  EXPECT_EQ(ler->entryPref(), 45);
  EXPECT_EQ(ler->igpPref(), TunnelIgpPref(45));
  EXPECT_TRUE(ler->viasOrdered());
  EXPECT_EQ(ler->color(), TristateU32());
  EXPECT_FALSE(std::make_unique<RsvpFrrTunnelTableEntry>(id(rsvpFrrTunnel, 1))->viasOrdered());
  EXPECT_FALSE(std::make_unique<TiLfaTunnelTableEntry>(id(tiLfaTunnel, 1))->viasOrdered());
  EXPECT_EQ(std::make_unique<TiLfaTunnelTableEntry>(id(tiLfaTunnel, 1))->entryPref(), 255);
}

TEST(EntryDefaultsTest, IgpAndColoredBasesTakeAGivenPreference) {
  EXPECT_EQ(std::make_unique<IgpTunnelTableEntryBase>(id(ldpTunnel, 1), 7)->entryPref(), 7);
  EXPECT_EQ(std::make_unique<ColoredTunnelTableEntry>(id(srTePolicyTunnel, 1), 8)->entryPref(), 8);
}

TEST(EntryRecordTest, IgpFieldsFollowTheBaseThenTheViaList) {
  auto e = std::make_unique<LdpTunnelTableEntry>(EntryTraits<LdpTunnelTableEntry>::small());
  e->igpMetric2Is(21);
  e->igpPref2Is(3);
  Bytes const b = recordOf(*e);
  ASSERT_EQ(b.size(), 552u + 20 + 108);
  EXPECT_EQ(at<uint32_t>(b, 552), 20u);
  EXPECT_EQ(at<uint32_t>(b, 556), 21u);
  EXPECT_EQ(at<uint32_t>(b, 560), 2u);
  EXPECT_EQ(at<uint32_t>(b, 564), 3u);
  EXPECT_EQ(at<uint32_t>(b, 568), 1u);
  EXPECT_EQ(at<MplsVia>(b, 572), smallVia());
}

TEST(EntryRecordTest, FrrTailIsBytePackedWithTheSequenceNumberUnaligned) {
  auto e = std::make_unique<TiLfaTunnelTableEntry>(EntryTraits<TiLfaTunnelTableEntry>::small());
  e->backupViaIs(MplsVia(Vorn::IpGenAddr("10.9.9.9"), Vorn::IntfId::tunnel(4),
                         Vorn::MplsLabelOperation::pop()));
  e->seqNoIs(0xa1b2);
  Bytes const b = recordOf(*e);
  ASSERT_EQ(b.size(), 771u);
  EXPECT_EQ(at<MplsVia>(b, 552), e->via());
  EXPECT_EQ(at<MplsVia>(b, 660), e->backupVia());
  EXPECT_EQ(b[552 + 216], 1);
  EXPECT_EQ(at<uint16_t>(b, 552 + 217), 0xa1b2);

  Bytes bad = b;
  bad[552 + 216] = 2;  // isPrimaryViaUsable is a bool
  EXPECT_EQ(e->deserializeLen(bad.data(), 771), 0u);
}

TEST(EntryRecordTest, RsvpLerFieldsFollowTheFrrRecord) {
  auto e = std::make_unique<RsvpLerTunnelTableEntry>(EntryTraits<RsvpLerTunnelTableEntry>::small());
  e->isTunnelIgpShortcutEligibleIs(true);
  Bytes const b = recordOf(*e);
  ASSERT_EQ(b.size(), 771u + 18 + 4 + 108);
  EXPECT_EQ(at<uint32_t>(b, 771), 30u);
  EXPECT_EQ(at<uint32_t>(b, 775), 45u);
  EXPECT_EQ(b[779], 1);
  EXPECT_EQ(b[780], 1);
  EXPECT_EQ(at<TristateU32>(b, 781), TristateU32(7, TristateState::set));
  EXPECT_EQ(at<uint32_t>(b, 789), 1u);
  EXPECT_EQ(at<MplsVia>(b, 793), smallVia());

  Bytes bad = b;
  bad[781 + 4] = 3;  // no such TristateState
  EXPECT_EQ(e->deserializeLen(bad.data(), static_cast<unsigned>(bad.size())), 0u);
}

TEST(EntryRecordTest, ColoredFieldsSitAt552556And560) {
  Bytes const b = recordOf(EntryTraits<SrTePolicyTunnelTableEntry>::small());
  ASSERT_EQ(b.size(), 564u);
  EXPECT_EQ(at<uint32_t>(b, 552), 5u);
  EXPECT_EQ(at<uint32_t>(b, 556), 2u);
  EXPECT_EQ(at<uint32_t>(b, 560), 20u);
}

TEST(EntryRecordTest, FlexAlgoRecordAlwaysFillsTheBoundWithZeros) {
  auto e =
      std::make_unique<FlexAlgoTunnelTableEntry>(EntryTraits<FlexAlgoTunnelTableEntry>::small());
  Bytes const b = recordOf(*e);
  ASSERT_EQ(b.size(), 65372u);
  EXPECT_EQ(at<uint32_t>(b, 552), 5u);
  EXPECT_EQ(b[564], 1);
  EXPECT_EQ(at<uint32_t>(b, 568), 1u);
  EXPECT_EQ(at<MplsVia>(b, 572), smallVia());
  EXPECT_EQ(Bytes(b.begin() + 680, b.end()), Bytes(65372 - 680, 0));
  EXPECT_EQ(e->deserializeLen(b.data(), 65372), 65372u);

  for (size_t offset : {565u, 680u, 65371u}) {
    Bytes bad = b;
    bad[offset] = 1;
    EXPECT_EQ(e->deserializeLen(bad.data(), 65372), 0u) << offset;
  }
}

// Dump lines of the small() entries at indent 2.
template <typename T>
std::string dumpOf(T const& e) {
  std::ostringstream os;
  DumpContext ctx(os);
  e.dumpState(&ctx, 2);
  return os.str();
}

TEST(EntryDumpLinesTest, ColoredEntriesShowColorPreferenceAndMetric) {
  EXPECT_EQ(dumpOf(EntryTraits<ColoredTunnelTableEntry>::small()),
            "  TunnelId: (Type: LDP, Index: 7)\n"
            "  tep: 10.0.0.1/32\n"
            "  color: 5\n"
            "  igpPref: 2\n"
            "  igpMetric: 20\n");
  auto flex =
      std::make_unique<FlexAlgoTunnelTableEntry>(EntryTraits<FlexAlgoTunnelTableEntry>::small());
  flex->tunnelIdIs(id(isisFlexAlgoTunnel, (uint64_t{1} << 40) | 3));
  EXPECT_EQ(dumpOf(*flex),
            "  TunnelId: (Type: IS-IS Flex Algo, Index: 3)\n"
            "  tep: 10.0.0.1/32\n"
            "  color: 5\n"
            "  igpPref: 2\n"
            "  igpMetric: 20\n"
            "  isColored: true\n"
            "  Vias #1 \n"
            "  nextHop: 10.0.0.2, intfId: Ethernet1, labels: [push 100]\n");
}

TEST(EntryDumpLinesTest, IgpEntriesShowMetricsPreferencesAndVias) {
  EXPECT_EQ(dumpOf(EntryTraits<LdpTunnelTableEntry>::small()),
            "  TunnelId: (Type: LDP, Index: 7)\n"
            "  tep: 10.0.0.1/32\n"
            "  igpMetric: 20\n"
            "  igpMetric2: 0\n"
            "  igpPref: 2\n"
            "  igpPref2: 0\n"
            "  Vias #1 \n"
            "  nextHop: 10.0.0.2, intfId: Ethernet1, labels: [push 100]\n");
}

TEST(EntryDumpLinesTest, RsvpLerShowsBothViasTheLerFieldsAndSplitVias) {
  auto e = std::make_unique<RsvpLerTunnelTableEntry>(EntryTraits<RsvpLerTunnelTableEntry>::small());
  e->tunnelIdIs(id(rsvpLerTunnel, 4));
  std::string const frrLines =
      "  TunnelId: (Type: RSVP LER, Index: 4)\n"
      "  tep: 10.0.0.1/32\n"
      "  via: nextHop: 10.0.0.2, intfId: Ethernet1, labels: [push 100]\n"
      "  backupVia: nextHop: 0.0.0.0, intfId: None, labels: [forward]\n"
      "  isPrimaryViaUsable: true\n"
      "  seqNo: 3\n";
  EXPECT_EQ(dumpOf(*e), frrLines +
                            "  metric: 30\n"
                            "  igpPref: 45\n"
                            "  isTunnelIgpShortcutEligible: false\n"
                            "  isTunnelLdpTunnelingEligible: true\n"
                            "  color: 7\n"
                            "  Split vias #1 \n"
                            "  nextHop: 10.0.0.2, intfId: Ethernet1, labels: [push 100]\n");
  e->colorIs(TristateU32());
  e->splitViaDelAll();
  EXPECT_NE(dumpOf(*e).find("  color: unset\n  Split vias #0 \n"), std::string::npos);
}

}  // namespace
}  // namespace Tunnel::TunnelTable::test
