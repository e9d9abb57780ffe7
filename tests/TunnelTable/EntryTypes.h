#pragma once
// Every tunnel table entry type, and random contents for any of them, made
// from the entry's own field list: a new entry type needs only its line in
// AllEntryTypes (and a random value for a field type not seen before).

#include <cstdint>
#include <type_traits>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/BgpLuEntries.h"
#include "Tunnel/TunnelTable/ColoredEntries.h"
#include "Tunnel/TunnelTable/FrrEntries.h"
#include "Tunnel/TunnelTable/IgpEntries.h"
#include "Tunnel/TunnelTable/L3IntfEntries.h"
#include "Tunnel/TunnelTable/NexthopGroupEntry.h"
#include "Tunnel/TunnelTable/RsvpLerEntry.h"
#include "Tunnel/TunnelTable/SbfdSessionEntry.h"
#include "Tunnel/TunnelTable/StaticEntries.h"
#include "Tunnel/multicast/MulticastTunnelTableEntry.h"
#include "tests/net/RandomValues.h"

namespace Tunnel::TunnelTable::test {

using AllEntryTypes = ::testing::Types<
    TunnelTableEntry, IgpTunnelTableEntryBase, LdpTunnelTableEntry, SrTunnelTableEntry,
    FrrTunnelTableEntry, RsvpFrrTunnelTableEntry, RsvpLerSubTunnelTableEntry, TiLfaTunnelTableEntry,
    RsvpLerTunnelTableEntry, ColoredTunnelTableEntry, SrTePolicyTunnelTableEntry,
    FlexAlgoTunnelTableEntry, L3IntfTunnelTableEntry, GreIntfTunnelTableEntry,
    IpsecGreIntfTunnelTableEntry, IpsecVtiIntfTunnelTableEntry, NexthopGroupTunnelTableEntry,
    ZorbSdkSbfdSessionTunnelTableEntry, StaticTunnelTableEntry, SrTeSegmentListTunnelTableEntry,
    BgpLuPushTunnelTableEntry, BgpLuTunnelTableEntry>;

class EntryRng : public Vorn::test::RandomValues {
 public:
  using RandomValues::RandomValues;

  uint32_t u32() { return static_cast<uint32_t>(upTo(UINT32_MAX)); }
  uint16_t u16() { return static_cast<uint16_t>(upTo(UINT16_MAX)); }
  uint8_t u8() { return static_cast<uint8_t>(upTo(UINT8_MAX)); }
  TunnelId tunnelId() {
    // Every type a TunnelId can carry without tripping getDefaultPrefForType.
    uint64_t type = below(25);
    if (type == 24) type = reservedTunnel31;
    return TunnelId(
        TunnelId::convertToTunnelValue(static_cast<TunnelType>(type), upTo(TunnelId::kIndexMask)));
  }
  GreTunnelInfo gre() {
    return GreTunnelInfo(addr(), addr(), u32(), u16(), u8(), u8(), coin(), coin());
  }
  // How many elements an array gets: all when full, else a few (often none).
  uint32_t count(bool full, uint32_t capacity) {
    return full ? capacity : static_cast<uint32_t>(upTo(3));
  }

  // A random value of every field type entries hold.
  template <typename T>
  void fill(T& v, bool full) {
    if constexpr (FieldArray<T>) {
      v.clear();
      for (uint32_t i = 0, n = count(full, T::capacity); i < n; ++i) {
        typename T::value_type e;
        fill(e, full);
        v.push(e);
      }
    } else if constexpr (std::is_same_v<T, bool>) {
      v = coin();
    } else if constexpr (std::is_same_v<T, uint8_t>) {
      v = static_cast<uint8_t>(below(256));
    } else if constexpr (std::is_enum_v<T>) {
      v = static_cast<T>(below(3));  // MetricType
    } else if constexpr (std::is_same_v<T, TunnelEntrySequenceNumber>) {
      v = u16();
    } else if constexpr (std::is_same_v<T, TristateU32>) {
      v = TristateU32(u32(), static_cast<TristateState>(below(3)));
    } else if constexpr (std::is_same_v<T, ContributionToTunnelRIB>) {
      v = static_cast<ContributionToTunnelRIB::Code>(below(3));
    } else if constexpr (std::is_same_v<T, Via>) {
      v = Via(addr(), intf());
    } else if constexpr (std::is_same_v<T, MplsVia>) {
      v = MplsVia(addr(), intf(), labelOp());
    } else if constexpr (std::is_same_v<T, Vorn::UnboundedMplsLabelOperation>) {
      v = labelOp();
    } else if constexpr (std::is_same_v<T, GreTunnelInfo>) {
      v = gre();
    } else if constexpr (std::is_same_v<T, IpsecGreTunnelInfo>) {
      v = IpsecGreTunnelInfo(gre(), u32());
    } else if constexpr (std::is_same_v<T, IpsecVtiTunnelInfo>) {
      v = IpsecVtiTunnelInfo(addr(), addr(), u32(), u16(), u8(), u8());
    } else if constexpr (std::is_same_v<T, VxlanTunnelInfo>) {
      v = VxlanTunnelInfo(addr(), addr(), upTo(VxlanTunnelInfo::kMaxVni), u16());
    } else {
      v = u32();  // u32 and the u32-wide preferences and bandwidths
    }
  }
};

template <typename T>
struct EntryTraits {
  // Every field, through the entry's field list; every array full when full.
  static void randomize(T& e, EntryRng& r, bool full) {
    e.tunnelIdIs(r.tunnelId());
    e.nexthopTunnelIdIs(r.tunnelId());
    e.entryPrefIs(r.u8());
    e.entryMetricIs(r.u32());
    e.tunnelBwIs(r.u32());
    e.viasOrderedIs(r.coin());
    // The SBFD record deliberately carries no endpoint and no name.
    if constexpr (!std::is_same_v<T, ZorbSdkSbfdSessionTunnelTableEntry>) {
      e.endpointDelAll();
      for (uint32_t i = 0, n = r.count(full, EndpointArray::capacity); i < n; ++i) {
        e.endpointIs(i, r.prefix());
      }
      e.nameDelAll();
      for (uint32_t i = 0, n = full ? NameArray::capacity : r.below(12); i < n; ++i) {
        e.nameIs(i, static_cast<uint8_t>(r.below(256)));
      }
    }
    FieldWalk::forEach<T>([&](auto const& fd) { r.fill(e.*fd.member, full); });
  }
};

// The multicast entries. Their tables' bound leaves no room for a tree name
// beside 600 vias, so a full entry has an unnamed tree. The type stays below
// mldpTunnel: an MLDP entry of that type and nothing else counts as empty.
template <typename T>
requires std::is_base_of_v<MulticastTunnelTableEntry, T>
struct EntryTraits<T> {
  static void randomize(T& e, EntryRng& r, bool full) {
    e.tunnelIdIs(r.tunnelId());
    e.tunnelTypeIs(static_cast<TunnelType>(r.below(mldpTunnel)));
    e.mcastTreeIdIs(full ? Routing::Multicast::MulticastTreeId() : r.treeId());
    if constexpr (requires { e.viaDelAll(); }) {
      e.viaDelAll();
      for (uint32_t i = 0, n = r.count(full, MplsViaArray::capacity); i < n; ++i) {
        MplsVia v;
        r.fill(v, full);
        e.viaIs(i, v);
      }
    }
  }
};

// A small entry: a few fields set and at most a few array elements, unless
// the type's traits name their own.
template <typename T>
T smallEntry() {
  if constexpr (requires { EntryTraits<T>::small(); }) {
    return EntryTraits<T>::small();
  } else {
    T e;
    EntryRng r(7);
    EntryTraits<T>::randomize(e, r, false);
    return e;
  }
}

}  // namespace Tunnel::TunnelTable::test
