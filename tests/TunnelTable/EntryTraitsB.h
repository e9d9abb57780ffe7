#pragma once
// Contract-suite traits (see EntryTraitsA.h for what each gives) of the
// interface tunnel, nexthop-group, SBFD session, static, SR-TE segment list
// and BGP-LU entries, with random values of the fields only they hold.

#include <cstdint>
#include <vector>

#include "Tunnel/TunnelTable/BgpLuEntries.h"
#include "Tunnel/TunnelTable/L3IntfEntries.h"
#include "Tunnel/TunnelTable/NexthopGroupEntry.h"
#include "Tunnel/TunnelTable/SbfdSessionEntry.h"
#include "Tunnel/TunnelTable/StaticEntries.h"
#include "tests/TunnelTable/EntryTraitsA.h"
#include "tests/TunnelTable/RandomEntries.h"

namespace Tunnel::TunnelTable::test {

inline Tunnel::GreTunnelInfo randomGreInfo(EntryRng& r) {
  return Tunnel::GreTunnelInfo(r.addr(), r.addr(), r.u32(), r.u16(),
                               static_cast<uint8_t>(r.upTo(255)), static_cast<uint8_t>(r.upTo(255)),
                               r.coin(), r.coin());
}
inline Tunnel::IpsecGreTunnelInfo randomIpsecGreInfo(EntryRng& r) {
  return Tunnel::IpsecGreTunnelInfo(randomGreInfo(r), r.u32());
}
inline Tunnel::IpsecVtiTunnelInfo randomIpsecVtiInfo(EntryRng& r) {
  return Tunnel::IpsecVtiTunnelInfo(r.addr(), r.addr(), r.u32(), r.u16(),
                                    static_cast<uint8_t>(r.upTo(255)),
                                    static_cast<uint8_t>(r.upTo(255)));
}

// The Via of small() entries, and the interface tunnel information.
inline Via smallPlainVia() { return Via(Vorn::IpGenAddr("10.0.0.2"), Vorn::IntfId::ethernet(1)); }
inline Tunnel::GreTunnelInfo smallGreInfo() {
  return Tunnel::GreTunnelInfo(Vorn::IpGenAddr("192.0.2.1"), Vorn::IpGenAddr("192.0.2.2"), 5, 1400,
                               64, 0, true, false);
}

// The text of the base fields of small(), up to and including "'name': [97, 98]".
#define SMALL_BASE_TEXT(pref)                                                               \
  "'tunnelId': 52776558133255, 'nexthopTunnelId': 52776558133257, 'entryPref': " pref       \
  ", 'entryMetric': 10, 'tunnelBw': 100, 'viasOrdered': false, 'endpoint': [10.0.0.1/32], " \
  "'name': [97, 98]"
#define SMALL_VIA_TEXT \
  "Value('Tunnel::TunnelTable::Via', ** {'nextHop': 10.0.0.2, 'intfId': Ethernet1})"
#define SMALL_MPLS_VIA_TEXT                                                              \
  "Value('Tunnel::TunnelTable::MplsVia', ** {'nextHop': 10.0.0.2, 'intfId': Ethernet1, " \
  "'labels': push 100})"
#define SMALL_GRE_TEXT                                                                 \
  "Value('Tunnel::GreTunnelInfo', ** {'source': 192.0.2.1, 'destination': 192.0.2.2, " \
  "'key': 5, 'mtu': 1400, 'ttl': 64, 'tos': 0, 'keyPresent': true, 'pathMtuDiscovery': false})"

// Interface tunnels: base, tunnel information, then the via list.
template <typename T, uint32_t kInfoLen>
struct L3IntfEntryTraits {
  static constexpr TunnelType kSampleType = staticInterfaceTunnel;
  static constexpr uint8_t kDefaultPref = 255;
  static void randomizeVias(T& e, EntryRng& r, bool full) {
    randomizeBase(e, r, full);
    e.viaDelAll();
    for (uint32_t i = 0, n = r.count(full, 600); i < n; ++i) e.viaIs(i, r.via());
  }
  static std::vector<uint32_t> listCountOffsets(T const&) { return {552 + kInfoLen}; }
  static T smallVias() {
    T e;
    smallBase(e);
    e.viaIs(0, smallPlainVia());
    return e;
  }
};

template <>
struct EntryTraits<L3IntfTunnelTableEntry> : L3IntfEntryTraits<L3IntfTunnelTableEntry, 0> {
  static constexpr const char* kName = "Tunnel::TunnelTable::L3IntfTunnelTableEntry";
  static constexpr uint32_t kMaxRecordLen = 22156;
  static void randomize(L3IntfTunnelTableEntry& e, EntryRng& r, bool full) {
    randomizeVias(e, r, full);
  }
  static L3IntfTunnelTableEntry small() { return smallVias(); }
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::L3IntfTunnelTableEntry', ** {" SMALL_BASE_TEXT(
          "255") ", 'via': [" SMALL_VIA_TEXT "]})";
};

template <>
struct EntryTraits<GreIntfTunnelTableEntry> : L3IntfEntryTraits<GreIntfTunnelTableEntry, 64> {
  static constexpr const char* kName = "Tunnel::TunnelTable::GreIntfTunnelTableEntry";
  static constexpr uint32_t kMaxRecordLen = 22220;
  static void randomize(GreIntfTunnelTableEntry& e, EntryRng& r, bool full) {
    randomizeVias(e, r, full);
    e.tunnelInfoIs(randomGreInfo(r));
  }
  static GreIntfTunnelTableEntry small() {
    GreIntfTunnelTableEntry e = smallVias();
    e.tunnelInfoIs(smallGreInfo());
    return e;
  }
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::GreIntfTunnelTableEntry', ** {" SMALL_BASE_TEXT(
          "255") ", 'via': [" SMALL_VIA_TEXT "], 'tunnelInfo': " SMALL_GRE_TEXT "})";
};

template <>
struct EntryTraits<IpsecGreIntfTunnelTableEntry>
    : L3IntfEntryTraits<IpsecGreIntfTunnelTableEntry, 68> {
  static constexpr const char* kName = "Tunnel::TunnelTable::IpsecGreIntfTunnelTableEntry";
  static constexpr uint32_t kMaxRecordLen = 22224;
  static void randomize(IpsecGreIntfTunnelTableEntry& e, EntryRng& r, bool full) {
    randomizeVias(e, r, full);
    e.tunnelInfoIs(randomIpsecGreInfo(r));
  }
  static IpsecGreIntfTunnelTableEntry small() {
    IpsecGreIntfTunnelTableEntry e = smallVias();
    e.tunnelInfoIs(Tunnel::IpsecGreTunnelInfo(smallGreInfo(), 9));
    return e;
  }
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::IpsecGreIntfTunnelTableEntry', ** {" SMALL_BASE_TEXT(
          "255") ", 'via': [" SMALL_VIA_TEXT
                 "], 'tunnelInfo': Value('Tunnel::IpsecGreTunnelInfo', ** "
                 "{'greInfo': " SMALL_GRE_TEXT ", 'ipsecSaId': 9})})";
};

template <>
struct EntryTraits<IpsecVtiIntfTunnelTableEntry>
    : L3IntfEntryTraits<IpsecVtiIntfTunnelTableEntry, 48> {
  static constexpr const char* kName = "Tunnel::TunnelTable::IpsecVtiIntfTunnelTableEntry";
  static constexpr uint32_t kMaxRecordLen = 22204;
  static void randomize(IpsecVtiIntfTunnelTableEntry& e, EntryRng& r, bool full) {
    randomizeVias(e, r, full);
    e.tunnelInfoIs(randomIpsecVtiInfo(r));
  }
  static IpsecVtiIntfTunnelTableEntry small() {
    IpsecVtiIntfTunnelTableEntry e = smallVias();
    e.tunnelInfoIs(Tunnel::IpsecVtiTunnelInfo(Vorn::IpGenAddr("192.0.2.1"),
                                              Vorn::IpGenAddr("192.0.2.2"), 9, 1400, 64, 0));
    return e;
  }
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::IpsecVtiIntfTunnelTableEntry', ** {" SMALL_BASE_TEXT(
          "255") ", 'via': [" SMALL_VIA_TEXT
                 "], 'tunnelInfo': Value('Tunnel::IpsecVtiTunnelInfo', ** {'source': 192.0.2.1, "
                 "'destination': 192.0.2.2, 'ipsecSaId': 9, 'mtu': 1400, 'ttl': 64, 'tos': 0})})";
};

template <>
struct EntryTraits<NexthopGroupTunnelTableEntry> {
  using T = NexthopGroupTunnelTableEntry;
  static constexpr const char* kName = "Tunnel::TunnelTable::NexthopGroupTunnelTableEntry";
  static constexpr uint32_t kMaxRecordLen = 564;
  static constexpr TunnelType kSampleType = nexthopGroupTunnel;
  // Not the type's RIB default (25): the entry itself has no preference.
  static constexpr uint8_t kDefaultPref = 255;
  static void randomize(T& e, EntryRng& r, bool full) {
    randomizeBase(e, r, full);
    e.nhgIdIs(r.u32());
    e.igpMetricIs(r.u32());
    e.igpPrefIs(r.u32());
  }
  static std::vector<uint32_t> listCountOffsets(T const&) { return {}; }
  static T small() {
    T e;
    smallBase(e);
    e.nhgIdIs(4);
    e.igpMetricIs(20);
    e.igpPrefIs(2);
    return e;
  }
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::NexthopGroupTunnelTableEntry', ** {" SMALL_BASE_TEXT(
          "255") ", 'nhgId': 4, 'igpMetric': 20, 'igpPref': 2})";
};

// A compact record of its own, without endpoint and name (see
// SbfdSessionEntry.h): random entries leave both empty.
template <>
struct EntryTraits<ZorbSdkSbfdSessionTunnelTableEntry> {
  using T = ZorbSdkSbfdSessionTunnelTableEntry;
  static constexpr const char* kName = "Tunnel::TunnelTable::ZorbSdkSbfdSessionTunnelTableEntry";
  static constexpr uint32_t kMaxRecordLen = 140;
  static constexpr bool kHasBaseRecord = false;
  static constexpr TunnelType kSampleType = zorbSdkSbfdSessionTunnel;
  static constexpr uint8_t kDefaultPref = 255;
  static void randomize(T& e, EntryRng& r, bool full) {
    randomizeBase(e, r, full);
    e.endpointDelAll();
    e.nameDelAll();
    e.viaIs(r.via());
  }
  static std::vector<uint32_t> listCountOffsets(T const&) { return {}; }
  static T small() {
    T e;
    smallBase(e);
    e.viaIs(smallPlainVia());
    return e;
  }
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::ZorbSdkSbfdSessionTunnelTableEntry', ** {" SMALL_BASE_TEXT(
          "255") ", 'via': " SMALL_VIA_TEXT "})";
};

template <>
struct EntryTraits<StaticTunnelTableEntry> {
  using T = StaticTunnelTableEntry;
  static constexpr const char* kName = "Tunnel::TunnelTable::StaticTunnelTableEntry";
  static constexpr uint32_t kMaxRecordLen = 130160;
  static constexpr TunnelType kSampleType = staticTunnel;
  static constexpr uint8_t kDefaultPref = 15;
  static void randomize(T& e, EntryRng& r, bool full) {
    randomizeBase(e, r, full);
    e.viaDelAll();
    for (uint32_t i = 0, n = r.count(full, 600); i < n; ++i) e.viaIs(i, r.mplsVia());
    e.backupViaDelAll();
    for (uint32_t i = 0, n = r.count(full, 600); i < n; ++i) e.backupViaIs(i, r.mplsVia());
  }
  // The backup list's count follows the primary vias.
  static std::vector<uint32_t> listCountOffsets(T const& e) {
    return {552, 556 + 108 * e.via().count()};
  }
  static T small() {
    T e;
    smallBase(e);
    e.viaIs(0, smallVia());
    return e;
  }
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::StaticTunnelTableEntry', ** {" SMALL_BASE_TEXT(
          "15") ", 'via': [" SMALL_MPLS_VIA_TEXT "], 'backupVia': []})";
};

template <>
struct EntryTraits<SrTeSegmentListTunnelTableEntry> {
  using T = SrTeSegmentListTunnelTableEntry;
  static constexpr const char* kName = "Tunnel::TunnelTable::SrTeSegmentListTunnelTableEntry";
  static constexpr uint32_t kMaxRecordLen = 65356;
  static constexpr TunnelType kSampleType = srTeSegmentListTunnel;
  static constexpr uint8_t kDefaultPref = 255;
  static void randomize(T& e, EntryRng& r, bool full) {
    randomizeBase(e, r, full);
    e.viaDelAll();
    for (uint32_t i = 0, n = r.count(full, 600); i < n; ++i) e.viaIs(i, r.mplsVia());
  }
  static std::vector<uint32_t> listCountOffsets(T const&) { return {552}; }
  static T small() {
    T e;
    smallBase(e);
    e.viaIs(0, smallVia());
    return e;
  }
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::SrTeSegmentListTunnelTableEntry', ** {" SMALL_BASE_TEXT(
          "255") ", 'via': [" SMALL_MPLS_VIA_TEXT "]})";
};

// BGP-LU layouts: base, via list at 552, the 73-byte label slot; the BGP-LU
// entry's 28 bytes of BGP fields after it.
template <typename T>
struct BgpLuEntryTraitsBase {
  static void randomizePush(T& e, EntryRng& r, bool full) {
    randomizeBase(e, r, full);
    e.viaDelAll();
    for (uint32_t i = 0, n = r.count(full, 600); i < n; ++i) e.viaIs(i, r.via());
    e.labelsIs(r.labelOp());
  }
  static std::vector<uint32_t> listCountOffsets(T const&) { return {552}; }
  static T smallPush() {
    T e;
    smallBase(e);
    e.viaIs(0, smallPlainVia());
    return e;
  }
};

template <>
struct EntryTraits<BgpLuPushTunnelTableEntry> : BgpLuEntryTraitsBase<BgpLuPushTunnelTableEntry> {
  using T = BgpLuPushTunnelTableEntry;
  static constexpr const char* kName = "Tunnel::TunnelTable::BgpLuPushTunnelTableEntry";
  static constexpr uint32_t kMaxRecordLen = 22229;
  static constexpr TunnelType kSampleType = bgpLuPushTunnel;
  static constexpr uint8_t kDefaultPref = 255;
  static void randomize(T& e, EntryRng& r, bool full) { randomizePush(e, r, full); }
  static T small() {
    T e = smallPush();
    e.labelsIs(Vorn::MplsLabelOperation::push({100, 200}));
    return e;
  }
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::BgpLuPushTunnelTableEntry', ** {" SMALL_BASE_TEXT(
          "255") ", 'via': [" SMALL_VIA_TEXT "], 'labels': push 100 200})";
};

template <>
struct EntryTraits<BgpLuTunnelTableEntry> : BgpLuEntryTraitsBase<BgpLuTunnelTableEntry> {
  using T = BgpLuTunnelTableEntry;
  static constexpr const char* kName = "Tunnel::TunnelTable::BgpLuTunnelTableEntry";
  static constexpr uint32_t kMaxRecordLen = 22257;
  static constexpr TunnelType kSampleType = bgpLuTunnel;
  static constexpr uint8_t kDefaultPref = 85;
  static void randomize(T& e, EntryRng& r, bool full) {
    randomizePush(e, r, full);
    e.contributionIs(static_cast<ContributionToTunnelRIB::Code>(r.below(3)));
    e.bgpMetricIs(r.u32());
    e.bgpMetricTypeIs(static_cast<Vorn::MetricType>(r.below(3)));
    e.bgpMetric2Is(r.u32());
    e.bgpPrefIs(r.u32());
    e.bgpPref2Is(r.u32());
    e.bgpLinkBwIs(r.u32());
  }
  // The labels, contribution and metric type keep their defaults.
  static T small() {
    T e = smallPush();
    e.bgpMetricIs(7);
    e.bgpPrefIs(3);
    e.bgpLinkBwIs(1000);
    return e;
  }
  static constexpr const char* kSmallText =
      "Value('Tunnel::TunnelTable::BgpLuTunnelTableEntry', ** {" SMALL_BASE_TEXT(
          "85") ", 'via': [" SMALL_VIA_TEXT
                "], 'labels': push 0, 'contribution': contributes, 'bgpMetric': 7, "
                "'bgpMetricType': internal, 'bgpMetric2': 0, 'bgpPref': 3, 'bgpPref2': 0, "
                "'bgpLinkBw': 1000})";
};

#undef SMALL_BASE_TEXT
#undef SMALL_VIA_TEXT
#undef SMALL_MPLS_VIA_TEXT
#undef SMALL_GRE_TEXT

}  // namespace Tunnel::TunnelTable::test
