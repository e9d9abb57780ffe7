#pragma once
// Contract-suite traits of the base entry and of the IGP, FRR, RSVP LER and
// colored entry families.
//
// EntryTraits<T>, one specialization per entry type, gives the suite:
//   kName           the qualified type name (canonical text, type registry)
//   kMaxRecordLen   the largest record, as a literal so that it is pinned
//   kSampleType     a tunnel type the entry's table uses; kDefaultPref is the
//                   entryPref that T(TunnelId of that type) gets
//   randomize(T&, EntryRng&, bool full)  every field; full arrays when full
//   listCountOffsets(T const&)           record offsets of its u32 list counts
//   small(), kSmallText                  a small entry and its exact text
//   kHasBaseRecord (optional)            false when the record does not start
//                                        with the 552-byte base record

#include <cstdint>
#include <vector>

#include "Tunnel/TunnelTable/ColoredEntries.h"
#include "Tunnel/TunnelTable/FrrEntries.h"
#include "Tunnel/TunnelTable/IgpEntries.h"
#include "Tunnel/TunnelTable/RsvpLerEntry.h"
#include "Tunnel/TunnelTable/TunnelTableEntry.h"
#include "tests/TunnelTable/RandomEntries.h"

namespace Tunnel::TunnelTable::test {

template <typename T>
struct EntryTraits;

// The base fields of small(): tunnel 3:7, rides on 3:9, one endpoint, name "ab".
inline void smallBase(TunnelTableEntry& e) {
  e.tunnelIdIs(TunnelId(TunnelId::convertToTunnelValue(ldpTunnel, 7)));
  e.nexthopTunnelIdIs(TunnelId(TunnelId::convertToTunnelValue(ldpTunnel, 9)));
  e.entryMetricIs(10);
  e.tunnelBwIs(100);
  e.endpointIs(0, Vorn::IpGenPrefix("10.0.0.1/32"));
  e.nameIs("ab");
}

template <>
struct EntryTraits<TunnelTableEntry> {
  using T = TunnelTableEntry;
  static constexpr const char* kName = "Tunnel::TunnelTable::TunnelTableEntry";
  static constexpr uint32_t kMaxRecordLen = 552;
  static constexpr TunnelType kSampleType = ldpTunnel;
  static constexpr uint8_t kDefaultPref = 255;
  static void randomize(T& e, EntryRng& r, bool full) { randomizeBase(e, r, full); }
  static std::vector<uint32_t> listCountOffsets(T const&) { return {}; }
  static T small() {
    T e;
    smallBase(e);
    return e;
  }
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::TunnelTableEntry', ** {'tunnelId': 52776558133255, "
      "'nexthopTunnelId': 52776558133257, 'entryPref': 255, 'entryMetric': 10, 'tunnelBw': 100, "
      "'viasOrdered': false, 'endpoint': [10.0.0.1/32], 'name': [97, 98]})";
};

// The via of small() entries.
inline MplsVia smallVia() {
  return MplsVia(Vorn::IpGenAddr("10.0.0.2"), Vorn::IntfId::ethernet(1),
                 Vorn::MplsLabelOperation::push({100}));
}

// IGP layout: list count at 568.
template <typename T>
struct IgpEntryTraits {
  static constexpr uint32_t kMaxRecordLen = 65372;
  static void randomize(T& e, EntryRng& r, bool full) {
    randomizeBase(e, r, full);
    e.igpMetricIs(r.u32());
    e.igpMetric2Is(r.u32());
    e.igpPrefIs(r.u32());
    e.igpPref2Is(r.u32());
    e.viaDelAll();
    for (uint32_t i = 0, n = r.count(full, 600); i < n; ++i) e.viaIs(i, r.mplsVia());
  }
  static std::vector<uint32_t> listCountOffsets(T const&) { return {568}; }
  static T small() {
    T e;
    smallBase(e);
    e.igpMetricIs(20);
    e.igpPrefIs(2);
    e.viaIs(0, smallVia());
    return e;
  }
};

template <>
struct EntryTraits<IgpTunnelTableEntryBase> : IgpEntryTraits<IgpTunnelTableEntryBase> {
  static constexpr const char* kName = "Tunnel::TunnelTable::IgpTunnelTableEntryBase";
  static constexpr TunnelType kSampleType = ldpTunnel;
  static constexpr uint8_t kDefaultPref = 255;
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::IgpTunnelTableEntryBase', ** {'tunnelId': 52776558133255, "
      "'nexthopTunnelId': 52776558133257, 'entryPref': 255, 'entryMetric': 10, "
      "'tunnelBw': 100, 'viasOrdered': false, 'endpoint': [10.0.0.1/32], 'name': [97, 98], "
      "'igpMetric': 20, 'igpMetric2': 0, 'igpPref': 2, 'igpPref2': 0, "
      "'via': [Value('Tunnel::TunnelTable::MplsVia', ** {'nextHop': 10.0.0.2, "
      "'intfId': Ethernet1, 'labels': push 100})]})";
};
template <>
struct EntryTraits<LdpTunnelTableEntry> : IgpEntryTraits<LdpTunnelTableEntry> {
  static constexpr const char* kName = "Tunnel::TunnelTable::LdpTunnelTableEntry";
  static constexpr TunnelType kSampleType = ldpTunnel;
  static constexpr uint8_t kDefaultPref = 55;
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::LdpTunnelTableEntry', ** {'tunnelId': 52776558133255, "
      "'nexthopTunnelId': 52776558133257, 'entryPref': 55, 'entryMetric': 10, 'tunnelBw': 100, "
      "'viasOrdered': false, 'endpoint': [10.0.0.1/32], 'name': [97, 98], 'igpMetric': 20, "
      "'igpMetric2': 0, 'igpPref': 2, 'igpPref2': 0, "
      "'via': [Value('Tunnel::TunnelTable::MplsVia', ** {'nextHop': 10.0.0.2, "
      "'intfId': Ethernet1, 'labels': push 100})]})";
};
template <>
struct EntryTraits<SrTunnelTableEntry> : IgpEntryTraits<SrTunnelTableEntry> {
  static constexpr const char* kName = "Tunnel::TunnelTable::SrTunnelTableEntry";
  static constexpr TunnelType kSampleType = isisSrTunnel;
  static constexpr uint8_t kDefaultPref = 65;
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::SrTunnelTableEntry', ** {'tunnelId': 52776558133255, "
      "'nexthopTunnelId': 52776558133257, 'entryPref': 255, 'entryMetric': 10, "
      "'tunnelBw': 100, 'viasOrdered': false, 'endpoint': [10.0.0.1/32], 'name': [97, 98], "
      "'igpMetric': 20, 'igpMetric2': 0, 'igpPref': 2, 'igpPref2': 0, "
      "'via': [Value('Tunnel::TunnelTable::MplsVia', ** {'nextHop': 10.0.0.2, "
      "'intfId': Ethernet1, 'labels': push 100})]})";
};

// FRR layout: no lists; 771 bytes.
template <typename T>
struct FrrEntryTraits {
  static constexpr uint32_t kMaxRecordLen = 771;
  static constexpr uint8_t kDefaultPref = 255;
  static void randomize(T& e, EntryRng& r, bool full) {
    randomizeBase(e, r, full);
    e.viaIs(r.mplsVia());
    e.backupViaIs(r.mplsVia());
    e.isPrimaryViaUsableIs(r.coin());
    e.seqNoIs(r.u16());
  }
  static std::vector<uint32_t> listCountOffsets(T const&) { return {}; }
  static T small() {
    T e;
    smallBase(e);
    e.viaIs(smallVia());
    e.isPrimaryViaUsableIs(true);
    e.seqNoIs(3);
    return e;
  }
};

// The text of FrrEntryTraits::small() for the entry type `type`.
#define FRR_SMALL_TEXT(type)                                                                 \
  "Value('Tunnel::TunnelTable::" type                                                        \
  "', ** {'tunnelId': 52776558133255, 'nexthopTunnelId': 52776558133257, 'entryPref': 255, " \
  "'entryMetric': 10, 'tunnelBw': 100, 'viasOrdered': false, 'endpoint': [10.0.0.1/32], "    \
  "'name': [97, 98], 'via': Value('Tunnel::TunnelTable::MplsVia', ** {'nextHop': 10.0.0.2, " \
  "'intfId': Ethernet1, 'labels': push 100}), "                                              \
  "'backupVia': Value('Tunnel::TunnelTable::MplsVia', ** {'nextHop': 0.0.0.0, "              \
  "'intfId': None, 'labels': forward}), 'isPrimaryViaUsable': true, 'seqNo': 3})"

template <>
struct EntryTraits<FrrTunnelTableEntry> : FrrEntryTraits<FrrTunnelTableEntry> {
  static constexpr const char* kName = "Tunnel::TunnelTable::FrrTunnelTableEntry";
  static constexpr TunnelType kSampleType = rsvpFrrTunnel;
  static constexpr const char* kSmallText = FRR_SMALL_TEXT("FrrTunnelTableEntry");
};
template <>
struct EntryTraits<RsvpFrrTunnelTableEntry> : FrrEntryTraits<RsvpFrrTunnelTableEntry> {
  static constexpr const char* kName = "Tunnel::TunnelTable::RsvpFrrTunnelTableEntry";
  static constexpr TunnelType kSampleType = rsvpFrrTunnel;
  static constexpr const char* kSmallText = FRR_SMALL_TEXT("RsvpFrrTunnelTableEntry");
};
template <>
struct EntryTraits<RsvpLerSubTunnelTableEntry> : FrrEntryTraits<RsvpLerSubTunnelTableEntry> {
  static constexpr const char* kName = "Tunnel::TunnelTable::RsvpLerSubTunnelTableEntry";
  static constexpr TunnelType kSampleType = rsvpLerSubTunnel;
  static constexpr const char* kSmallText = FRR_SMALL_TEXT("RsvpLerSubTunnelTableEntry");
};
template <>
struct EntryTraits<TiLfaTunnelTableEntry> : FrrEntryTraits<TiLfaTunnelTableEntry> {
  static constexpr const char* kName = "Tunnel::TunnelTable::TiLfaTunnelTableEntry";
  static constexpr TunnelType kSampleType = tiLfaTunnel;
  static constexpr const char* kSmallText = FRR_SMALL_TEXT("TiLfaTunnelTableEntry");
};

// The FRR record, 18 bytes of LER fields, then the split via count at 789.
template <>
struct EntryTraits<RsvpLerTunnelTableEntry> {
  using T = RsvpLerTunnelTableEntry;
  static constexpr const char* kName = "Tunnel::TunnelTable::RsvpLerTunnelTableEntry";
  static constexpr uint32_t kMaxRecordLen = 65593;
  static constexpr TunnelType kSampleType = rsvpLerTunnel;
  static constexpr uint8_t kDefaultPref = 45;
  static void randomize(T& e, EntryRng& r, bool full) {
    FrrEntryTraits<T>::randomize(e, r, full);
    e.metricIs(r.u32());
    e.igpPrefIs(r.u32());
    e.isTunnelIgpShortcutEligibleIs(r.coin());
    e.isTunnelLdpTunnelingEligibleIs(r.coin());
    e.colorIs(r.tristate());
    e.splitViaDelAll();
    for (uint32_t i = 0, n = r.count(full, 600); i < n; ++i) e.splitViaIs(i, r.mplsVia());
  }
  static std::vector<uint32_t> listCountOffsets(T const&) { return {789}; }
  static T small() {
    T e = FrrEntryTraits<T>::small();
    e.metricIs(30);
    e.isTunnelLdpTunnelingEligibleIs(true);
    e.colorIs(TristateU32(7, TristateState::set));
    e.splitViaIs(0, smallVia());
    return e;
  }
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::RsvpLerTunnelTableEntry', ** {'tunnelId': 52776558133255, "
      "'nexthopTunnelId': 52776558133257, 'entryPref': 45, 'entryMetric': 10, 'tunnelBw': 100, "
      "'viasOrdered': true, 'endpoint': [10.0.0.1/32], 'name': [97, 98], "
      "'via': Value('Tunnel::TunnelTable::MplsVia', ** {'nextHop': 10.0.0.2, "
      "'intfId': Ethernet1, 'labels': push 100}), "
      "'backupVia': Value('Tunnel::TunnelTable::MplsVia', ** {'nextHop': 0.0.0.0, "
      "'intfId': None, 'labels': forward}), 'isPrimaryViaUsable': true, 'seqNo': 3, "
      "'metric': 30, 'igpPref': 45, 'isTunnelIgpShortcutEligible': false, "
      "'isTunnelLdpTunnelingEligible': true, "
      "'color': Value('Tunnel::TunnelTable::TristateU32', ** {'value': 7, 'state': set}), "
      "'splitVia': [Value('Tunnel::TunnelTable::MplsVia', ** {'nextHop': 10.0.0.2, "
      "'intfId': Ethernet1, 'labels': push 100})]})";
};

// Colored layout: no lists; 564 bytes.
template <typename T>
struct ColoredEntryTraits {
  static void randomize(T& e, EntryRng& r, bool full) {
    randomizeBase(e, r, full);
    e.colorIs(r.u32());
    e.igpPrefIs(r.u32());
    e.igpMetricIs(r.u32());
  }
  static T small() {
    T e;
    smallBase(e);
    e.colorIs(5);
    e.igpPrefIs(2);
    e.igpMetricIs(20);
    return e;
  }
};

template <>
struct EntryTraits<ColoredTunnelTableEntry> : ColoredEntryTraits<ColoredTunnelTableEntry> {
  static constexpr const char* kName = "Tunnel::TunnelTable::ColoredTunnelTableEntry";
  static constexpr uint32_t kMaxRecordLen = 564;
  static constexpr TunnelType kSampleType = srTePolicyTunnel;
  static constexpr uint8_t kDefaultPref = 255;
  static std::vector<uint32_t> listCountOffsets(ColoredTunnelTableEntry const&) { return {}; }
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::ColoredTunnelTableEntry', ** {'tunnelId': 52776558133255, "
      "'nexthopTunnelId': 52776558133257, 'entryPref': 255, 'entryMetric': 10, "
      "'tunnelBw': 100, 'viasOrdered': false, 'endpoint': [10.0.0.1/32], 'name': [97, 98], "
      "'color': 5, 'igpPref': 2, 'igpMetric': 20})";
};
template <>
struct EntryTraits<SrTePolicyTunnelTableEntry> : ColoredEntryTraits<SrTePolicyTunnelTableEntry> {
  static constexpr const char* kName = "Tunnel::TunnelTable::SrTePolicyTunnelTableEntry";
  static constexpr uint32_t kMaxRecordLen = 564;
  static constexpr TunnelType kSampleType = srTePolicyTunnel;
  static constexpr uint8_t kDefaultPref = 255;
  static std::vector<uint32_t> listCountOffsets(SrTePolicyTunnelTableEntry const&) { return {}; }
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::SrTePolicyTunnelTableEntry', "
      "** {'tunnelId': 52776558133255, 'nexthopTunnelId': 52776558133257, 'entryPref': 255, "
      "'entryMetric': 10, 'tunnelBw': 100, 'viasOrdered': false, 'endpoint': [10.0.0.1/32], "
      "'name': [97, 98], 'color': 5, 'igpPref': 2, 'igpMetric': 20})";
};

// The colored fields, isColored and 3 zero bytes, the via count at 568, zero
// fill to 65372.
template <>
struct EntryTraits<FlexAlgoTunnelTableEntry> {
  using T = FlexAlgoTunnelTableEntry;
  static constexpr const char* kName = "Tunnel::TunnelTable::FlexAlgoTunnelTableEntry";
  static constexpr uint32_t kMaxRecordLen = 65372;
  static constexpr TunnelType kSampleType = isisFlexAlgoTunnel;
  static constexpr uint8_t kDefaultPref = 65;
  static void randomize(T& e, EntryRng& r, bool full) {
    ColoredEntryTraits<T>::randomize(e, r, full);
    e.isColoredIs(r.coin());
    e.viaDelAll();
    for (uint32_t i = 0, n = r.count(full, 600); i < n; ++i) e.viaIs(i, r.mplsVia());
  }
  static std::vector<uint32_t> listCountOffsets(T const&) { return {568}; }
  static T small() {
    T e = ColoredEntryTraits<T>::small();
    e.isColoredIs(true);
    e.viaIs(0, smallVia());
    return e;
  }
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::FlexAlgoTunnelTableEntry', ** {'tunnelId': 52776558133255, "
      "'nexthopTunnelId': 52776558133257, 'entryPref': 65, 'entryMetric': 10, 'tunnelBw': 100, "
      "'viasOrdered': false, 'endpoint': [10.0.0.1/32], 'name': [97, 98], 'color': 5, "
      "'igpPref': 2, 'igpMetric': 20, 'isColored': true, "
      "'via': [Value('Tunnel::TunnelTable::MplsVia', ** {'nextHop': 10.0.0.2, "
      "'intfId': Ethernet1, 'labels': push 100})]})";
};

}  // namespace Tunnel::TunnelTable::test
