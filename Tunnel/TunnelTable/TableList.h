#pragma once
// Every protocol tunnel table, one row each, in identifier order:
//
//   X(Class, factory, tunnelType, identifier, mountName, bound, Entry)
//
// Class and factory are the table's class and its factory function; the
// constructor stamps tunnelType and identifier (two independent numberings);
// mountName names the table between processes ("tunnel/table/<mountName>");
// bound is the largest record its collection accepts, 0 for entries stored as
// a plain copy. Tables.h declares the classes from these rows, Tables.cpp
// defines and registers them, and the mounter names them. A table whose
// class needs more than TunnelTableOf<Entry> gets its base from TableBaseFor.

#define TUNNEL_TABLES(X)                                                                           \
  X(BgpLuTunnelTable, bgpLuTunnelTableFactory, bgpLuTunnel, bgpLuTunnelTable, "bgpLu", 22257,      \
    BgpLuTunnelTableEntry)                                                                         \
  X(BgpLuPushTunnelTable, bgpLuPushTunnelTableFactory, bgpLuPushTunnel, bgpLuPushTunnelTable,      \
    "bgpLuPush", 22229, BgpLuPushTunnelTableEntry)                                                 \
  X(LdpTunnelTable, ldpTunnelTableFactory, ldpTunnel, ldpTunnelTable, "ldp", 65372,                \
    LdpTunnelTableEntry)                                                                           \
  X(RsvpFrrTunnelTable, rsvpFrrTunnelTableFactory, rsvpFrrTunnel, rsvpFrrTunnelTable, "rsvpFrr",   \
    772, RsvpFrrTunnelTableEntry)                                                                  \
  X(RsvpLerSubTunnelTable, rsvpLerSubTunnelTableFactory, rsvpLerSubTunnel, rsvpLerSubTunnelTable,  \
    "rsvpLerSub", 772, RsvpLerSubTunnelTableEntry)                                                 \
  X(RsvpLerTunnelTable, rsvpLerTunnelTableFactory, rsvpLerTunnel, rsvpLerTunnelTable, "rsvpLer",   \
    65596, RsvpLerTunnelTableEntry)                                                                \
  X(IsisSrTunnelTable, isisSrTunnelTableFactory, isisSrTunnel, isisSrTunnelTable, "sr", 65372,     \
    SrTunnelTableEntry)                                                                            \
  X(OspfSrTunnelTable, ospfSrTunnelTableFactory, ospfSrTunnel, ospfSrTunnelTable, "ospfSr", 65372, \
    SrTunnelTableEntry)                                                                            \
  X(StaticTunnelTable, staticTunnelTableFactory, staticTunnel, staticTunnelTable, "static",        \
    130160, StaticTunnelTableEntry)                                                                \
  X(NexthopGroupTunnelTable, nexthopGroupTunnelTableFactory, nexthopGroupTunnel,                   \
    nexthopGroupTunnelTable, "nexthopGroup", 564, NexthopGroupTunnelTableEntry)                    \
  X(SrTeSegmentListTunnelTable, srTeSegmentListTunnelTableFactory, srTeSegmentListTunnel,          \
    srTeSegmentListTunnelTable, "srTeSegmentList", 65356, SrTeSegmentListTunnelTableEntry)         \
  X(GreIntfTunnelTable, greIntfTunnelTableFactory, staticInterfaceTunnel, greIntfTunnelTable,      \
    "greTunnelInterface", 22220, GreIntfTunnelTableEntry)                                          \
  X(IpsecVtiIntfTunnelTable, ipsecVtiIntfTunnelTableFactory, staticInterfaceTunnel,                \
    ipsecVtiIntfTunnelTable, "ipsecVtiTunnelInterface", 22204, IpsecVtiIntfTunnelTableEntry)       \
  X(IpsecGreIntfTunnelTable, ipsecGreIntfTunnelTableFactory, staticInterfaceTunnel,                \
    ipsecGreIntfTunnelTable, "ipsecGreTunnelInterface", 22224, IpsecGreIntfTunnelTableEntry)       \
  X(EvpnVxlanTunnelTable, evpnVxlanTunnelTableFactory, evpnVxlanTunnel, evpnVxlanTunnelTable,      \
    "evpnVxlan", 0, EvpnVxlanTunnelEntry)                                                          \
  X(TiLfaTunnelTable, tiLfaTunnelTableFactory, tiLfaTunnel, tiLfaTunnelTable, "tiLfa", 772,        \
    TiLfaTunnelTableEntry)                                                                         \
  X(SrTePolicyTunnelTable, srTePolicyTunnelTableFactory, srTePolicyTunnel, srTePolicyTunnelTable,  \
    "srTePolicy", 564, SrTePolicyTunnelTableEntry)                                                 \
  X(ZorbSdkSbfdSessionTunnelTable, zorbSdkSbfdSessionTunnelTableFactory, zorbSdkSbfdSessionTunnel, \
    zorbSdkSbfdSessionTunnelTable, "zorbSdkSbfd", 140, ZorbSdkSbfdSessionTunnelTableEntry)         \
  X(IsisFlexAlgoTunnelTable, isisFlexAlgoTunnelTableFactory, isisFlexAlgoTunnel,                   \
    isisFlexAlgoTunnelTable, "isisFlexAlgoTunnel", 65372, FlexAlgoTunnelTableEntry)

// The multicast input tables, in the same row form. They share one entry
// type and a base table that has no identifier (the merged MPLS multicast
// table), so their classes are declared from these rows in
// Tunnel/multicast/MulticastTables.h; the identifier names and the mounter
// read them here. An entry of 600 vias leaves no room in the bound for a tree
// name: such a record is refused whole.
#define TUNNEL_TABLES_MULTICAST(X)                                                             \
  X(MldpTunnelTable, mldpTunnelTableFactory, mldpTunnel, mldpTunnelTable, "mldpTunnel", 64820, \
    MplsMulticastTunnelTableEntry)                                                             \
  X(StaticMcastTunnelTable, staticMcastTunnelTableFactory, staticMcastTunnel,                  \
    staticMcastTunnelTable, "staticMcast", 64820, MplsMulticastTunnelTableEntry)

// Every mountable table.
#define TUNNEL_TABLES_ALL(X) TUNNEL_TABLES(X) TUNNEL_TABLES_MULTICAST(X)
