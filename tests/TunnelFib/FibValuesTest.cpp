// The FIB's values: the value contract over all of them, the entry's record
// rules and via arrays, and its canonical and trace forms.

#include <memory>

#include <gtest/gtest.h>

#include "Tunnel/TunnelFib/TunnelFib.h"
#include "Tunnel/TunnelTable/RecordIo.h"
#include "tests/TunnelFib/FibTypes.h"
#include "tests/common/ValueContract.h"
#include "tests/net/ErrorText.h"

using namespace Tunnel::TunnelFib;
using Tunnel::TunnelTable::EncapType;
using Tunnel::TunnelTable::test::EntryRng;
using Tunnel::TunnelTable::test::EntryTraits;

namespace valuecontract {

template <typename T>
struct FibSource {
  using Rng = EntryRng;
  static constexpr const char* kName = T::kTypeName;
  static constexpr bool kParses = false;
  static constexpr size_t kSamples = 60;
  static void registerTypes() { registerFibTypes(); }
  static void fill(T& v, EntryRng& r, bool full) {
    if constexpr (std::is_same_v<T, TunnelFlags>) {
      v = TunnelFlags(r.coin(), r.coin());
    } else if constexpr (requires { typename T::Info; }) {
      typename T::Info info;
      r.fill(info, full);
      v = T(EncapId(static_cast<EncapType>(r.below(6)), r.u32()), info);
    } else {
      EntryTraits<T>::randomize(v, r, full);
    }
  }
};
template <typename T>
requires(std::is_same_v<T, TunnelFlags> || requires { typename T::Info; }) struct ValueSource<T>
    : FibSource<T> {
};
template <>
struct ValueSource<TunnelFibEntry> : FibSource<TunnelFibEntry> {
  static constexpr uint32_t kReportedLen = 48024;
  static std::vector<CountField> counts(TunnelFibEntry const& e) {
    return {{16, 4, 600}, {20 + 40 * e.tunnelViaCount(), 4, 600}};
  }
};
template <>
struct ValueSource<LabelStackEncap> : FibSource<LabelStackEncap> {
  static constexpr bool kExactLen = true;
};

using FibValueTypes = ::testing::Types<TunnelFlags, TunnelFibEntry, LabelStackEncap, GreEncap,
                                       IpsecGreEncap, IpsecVtiEncap, VxlanEncap>;
INSTANTIATE_TYPED_TEST_SUITE_P(FibValues, ValueContract, FibValueTypes);

}  // namespace valuecontract

namespace {

using valuecontract::Bytes;
using valuecontract::recordOf;
using Vorn::test::errorOf;

TunnelId const kId(Tunnel::TunnelTable::ldpTunnel, 7);
TunnelVia const kVia(Vorn::IpGenAddr("10.0.0.2"), Vorn::IntfId::ethernet(1),
                     EncapId(EncapType::labelStackEncap, 1));

TEST(FibEntryTest, ViaArraysGrowToTheIndexAndEndAt599) {
  auto e = std::make_unique<TunnelFibEntry>(kId);
  EXPECT_TRUE(e->arePrimaryViasUsable() && !e->flags() && !e->resetFailoverState());
  EXPECT_EQ(e->seqNo().value() + e->tunnelViaCount() + e->backupTunnelViaCount(), 0u);
  e->tunnelViaIs(5, kVia);
  ASSERT_EQ(e->tunnelViaCount(), 6u);
  for (uint16_t i = 0; i < 5; ++i) EXPECT_EQ(e->tunnelVia(i), TunnelVia()) << i;
  e->tunnelViaIs(599, kVia);
  EXPECT_EQ(e->tunnelViaCount(), 600u);
  std::string const error =
      "Tunnel::TunnelFib::TunnelViaIndex::value < Tunnel::TunnelFib::TunnelViaIndex::min or > "
      "Tunnel::TunnelFib::TunnelViaIndex::max not allowed";
  EXPECT_EQ(errorOf<Zent::RangeException>([&] { e->tunnelViaIs(600, kVia); }), error);
  EXPECT_EQ(errorOf<Zent::RangeException>([&] { e->backupTunnelViaIs(600, kVia); }), error);
  EXPECT_EQ(errorOf<Zent::RangeException>([] { TunnelFlags(4); }),
            Zent::rangeMessage("Tunnel::TunnelFib::TunnelFlags"));
}

// A valid FIB record reports the whole slot, a label-stack record its exact
// length; each damage is refused by deserializeLen and by deserialize.
TEST(FibRecordTest, EntriesReportTheSlotAndDamageIsRefused) {
  auto e = std::make_unique<TunnelFibEntry>(kId);
  e->tunnelViaIs(1, kVia);
  e->backupTunnelViaIs(0, kVia);
  Bytes const good = recordOf(*e);
  ASSERT_EQ(good.size(), 24u + 40 * 3);
  EXPECT_EQ(e->deserializeLen(good.data(), 144) + e->deserializeLen(good.data(), 48024), 96048u);
  // A bool of 2, a flag above viasOrdered, reserved bytes, more primary or
  // backup vias than the record holds, a tunnel id past the largest.
  for (auto [at, patch] : {std::pair<size_t, Bytes>{8, {2}},
                           {9, {4}},
                           {11, {1}},
                           {15, {0x80}},
                           {16, {3}},
                           {100, {2}},
                           {6, {2}}}) {
    valuecontract::expectPatchRefused<Tunnel::TunnelTable::RecordError>(*e, good, at, patch);
  }
  Bytes stack = recordOf(EntryTraits<LabelStackEncap>::small());
  ASSERT_EQ(stack.size(), 14u);
  stack.push_back(0);  // a byte more is refused as well as one less
  for (unsigned len : {4u, 13u, 15u})
    EXPECT_EQ(LabelStackEncap().deserializeLen(stack.data(), len), 0u);
  EXPECT_EQ(LabelStackEncap::kMaxSerializedLen, 77u);
}

// The entry's canonical text, which tunnelctl shows and turns into JSON, and
// its trace form. (The encapsulations' texts are the formatter's.)
TEST(FibTextTest, EntryRendersInItsCanonicalAndTraceForms) {
  auto e = std::make_unique<TunnelFibEntry>(kId);
  e->tunnelViaIs(1, kVia);
  e->flagsIs(TunnelFlags(false, true));
  e->resetFailoverStateIs(200);
  std::string const v0 = TunnelVia().stringValue(), v1 = kVia.stringValue();
  EXPECT_EQ(e->stringValue(),
            "Value('Tunnel::TunnelFib::TunnelFibEntry', ** {'tunnelId': 52776558133255, "
            "'arePrimaryViasUsable': true, 'flags': Value('Tunnel::TunnelFib::TunnelFlags', ** "
            "{'burnPrimaryVias': false, 'viasOrdered': true}), 'resetFailoverState': 200, 'seqNo': "
            "0, 'tunnelVia': [" +
                v0 + ", " + v1 + "], 'backupTunnelVia': []})");
  EXPECT_EQ(e->tamselString(),
            "52776558133255: arePrimaryViasUsable: true, tunnelVia (size 2): {0:" + v0 +
                ",1:" + v1 + "}, backupTunnelVia (size 0): {}");
}

}  // namespace
