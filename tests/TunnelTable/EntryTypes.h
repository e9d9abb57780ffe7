#pragma once
// The entry types the contract suite (EntryContractTest.cpp) runs over. Each
// family includes its traits header here and lists its types below.

#include <gtest/gtest.h>

#include "tests/TunnelTable/EntryTraitsA.h"
#include "tests/TunnelTable/EntryTraitsB.h"

namespace Tunnel::TunnelTable::test {

using AllEntryTypes =
    ::testing::Types<TunnelTableEntry, IgpTunnelTableEntryBase, LdpTunnelTableEntry,
                     SrTunnelTableEntry, FrrTunnelTableEntry, RsvpFrrTunnelTableEntry,
                     RsvpLerSubTunnelTableEntry, TiLfaTunnelTableEntry, RsvpLerTunnelTableEntry,
                     ColoredTunnelTableEntry, SrTePolicyTunnelTableEntry, FlexAlgoTunnelTableEntry,
                     // Family B.
                     L3IntfTunnelTableEntry, GreIntfTunnelTableEntry, IpsecGreIntfTunnelTableEntry,
                     IpsecVtiIntfTunnelTableEntry, NexthopGroupTunnelTableEntry,
                     ZorbSdkSbfdSessionTunnelTableEntry, StaticTunnelTableEntry,
                     SrTeSegmentListTunnelTableEntry, BgpLuPushTunnelTableEntry,
                     BgpLuTunnelTableEntry>;

}  // namespace Tunnel::TunnelTable::test
