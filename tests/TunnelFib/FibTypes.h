#pragma once
// Random FIB entries and label-stack encapsulations, in the form the entry
// tests use, for the value contract and the record fuzzer's seeds.

#include <vector>

#include "Tunnel/TunnelFib/Encaps.h"
#include "Tunnel/TunnelFib/TunnelFibEntry.h"
#include "tests/TunnelTable/EntryTypes.h"

namespace Tunnel::TunnelTable::test {

inline TunnelVia randomTunnelVia(EntryRng& r) {
  return TunnelVia(r.addr(), r.intf(), EncapId(static_cast<EncapType>(r.below(6)), r.u32()));
}

template <>
struct EntryTraits<TunnelFib::TunnelFibEntry> {
  static void randomize(TunnelFib::TunnelFibEntry& e, EntryRng& r, bool full) {
    e = TunnelFib::TunnelFibEntry(r.tunnelId());
    e.arePrimaryViasUsableIs(r.coin());
    e.flagsIs(TunnelFib::TunnelFlags(r.coin(), r.coin()));
    e.resetFailoverStateIs(r.u8());
    e.seqNoIs(r.u16());
    for (uint32_t i = 0, n = r.count(full, 600); i < n; ++i) e.tunnelViaIs(i, randomTunnelVia(r));
    for (uint32_t i = 0, n = r.count(full, 600); i < n; ++i) {
      e.backupTunnelViaIs(i, randomTunnelVia(r));
    }
  }
};

template <>
struct EntryTraits<TunnelFib::LabelStackEncap> {
  static void randomize(TunnelFib::LabelStackEncap& e, EntryRng& r, bool full) {
    Vorn::UnboundedMplsLabelOperation op = r.labelOp();
    if (full) {  // the longest record: 17 labels
      std::vector<Vorn::MplsLabel> l(Vorn::MplsLabelOperation::kMaxLabels);
      for (auto& x : l) x = r.label();
      op = Vorn::MplsLabelOperation(Vorn::MplsLabelOperation::kMaxLabels, l);
    }
    e = TunnelFib::LabelStackEncap(EncapId(EncapType::labelStackEncap, r.u32()), op);
  }
  static TunnelFib::LabelStackEncap small() {
    return TunnelFib::LabelStackEncap(EncapId(EncapType::labelStackEncap, 7),
                                      Vorn::MplsLabelOperation::push({100, 200}));
  }
};

}  // namespace Tunnel::TunnelTable::test
