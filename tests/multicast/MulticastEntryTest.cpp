// The multicast tunnel entries: the value contract of all four types, their
// exact texts, the refused text constructors, when an MLDP entry is empty, the
// via limit, hostile records, and what the tables stamp and refuse.

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/multicast/MulticastTables.h"
#include "tests/TunnelTable/EntryTypes.h"
#include "tests/common/ValueContract.h"
#include "tests/net/ErrorText.h"

namespace valuecontract {

template <typename T>
requires std::is_base_of_v<Tunnel::TunnelTable::MulticastTunnelTableEntry, T>
struct ValueSource<T> {
  using Rng = Tunnel::TunnelTable::test::EntryRng;
  static constexpr const char* kName = T::kTypeName;
  // Only the via-less RIB entry reads its text back.
  static constexpr bool kParses = std::is_same_v<T, Tunnel::TunnelTable::MldpTunnelRibEntry>;
  static void registerTypes() { Tunnel::TunnelTable::registerMulticastTableTypes(); }
  static void fill(T& e, Rng& r, bool full) {
    Tunnel::TunnelTable::test::EntryTraits<T>::randomize(e, r, full);
  }
  // The via count follows the base record, whose length the tree name sets.
  static std::vector<CountField> counts(T const& e) requires(!kParses) {
    return {{e.MulticastTunnelTableEntry::serializeLen(), 4, 600}};
  }
};

using MulticastTypes = ::testing::Types<
    Tunnel::TunnelTable::MplsMulticastTunnelTableEntry, Tunnel::TunnelTable::MldpTunnelTableEntry,
    Tunnel::TunnelTable::StaticMcastTunnelTableEntry, Tunnel::TunnelTable::MldpTunnelRibEntry>;
INSTANTIATE_TYPED_TEST_SUITE_P(Multicast, ValueContract, MulticastTypes);

}  // namespace valuecontract

namespace Tunnel::TunnelTable::test {
namespace {

using Routing::Multicast::MulticastTreeId;
using valuecontract::Bytes;
using valuecontract::recordOf;

MplsVia via(int i) {
  return MplsVia(Vorn::IpGenAddr("10.0.0." + std::to_string(i)), Vorn::IntfId::ethernet(i),
                 Vorn::MplsLabelOperation::push({100u + i}));
}

template <typename T>
T withVias(T e, uint32_t n) {
  for (uint32_t i = 0; i < n; ++i) e.viaIs(i, via(1 + i % 200));
  return e;
}

TEST(MulticastEntryTest, TextFormsNameEachTypeAndListEveryField) {
  TunnelId const id(mldpTunnel, 7);
  MulticastTreeId const tree("t1");
  std::string const fields = "{'tunnelId': " + std::to_string(id.value()) +
                             ", 'tunnelType': mldpTunnel, 'mcastTreeId': 't1'";
  std::string const vias =
      ", 'via': [Value('Tunnel::TunnelTable::MplsVia', ** {'nextHop': 10.0.0.1, "
      "'intfId': Ethernet1, 'labels': push 101})]})";
  auto mpls = withVias(MplsMulticastTunnelTableEntry(id, tree), 1);
  mpls.tunnelTypeIs(mldpTunnel);
  auto mldp = withVias(MldpTunnelTableEntry(id), 1);
  mldp.mcastTreeIdIs(tree);
  auto stat = withVias(StaticMcastTunnelTableEntry(id, mldpTunnel), 1);
  stat.mcastTreeIdIs(tree);
  auto const name = [](const char* t) { return std::string("Value('Tunnel::TunnelTable::") + t; };
  EXPECT_EQ(mpls.stringValue(), name("MplsMulticastTunnelTableEntry', ** ") + fields + vias);
  EXPECT_EQ(mldp.stringValue(), name("MldpTunnelTableEntry', ** ") + fields + vias);
  EXPECT_EQ(stat.stringValue(), name("StaticMcastTunnelTableEntry', ** ") + fields + vias);
  EXPECT_EQ(MldpTunnelRibEntry(id, mldpTunnel, tree).stringValue(),
            name("MldpTunnelRibEntry', ** ") + fields + "})");
  EXPECT_EQ(MplsMulticastTunnelTableEntry().stringValue(),
            name("MplsMulticastTunnelTableEntry', ** {'tunnelId': 0, 'tunnelType': "
                 "unknownTunnel, 'mcastTreeId': '', 'via': []})"));
  EXPECT_THROW(Zent::strepToValue<MldpTunnelRibEntry>(
                   Zent::String(name("MldpTunnelRibEntry', ** ") + fields + ", 'via': []})")),
               Zent::ParseError);
}

template <typename T>
void textConstructor() {
  Zent::String const text(T().stringValue());
  Zent::String::IteratorConst it = text.begin();
  T e(it, text.end());
}

TEST(MulticastEntryDeathTest, TypesWithViasHaveNoTextConstructor) {
  EXPECT_DEATH(textConstructor<MplsMulticastTunnelTableEntry>(),
               "\"No String constructor for MplsMulticastTunnelTableEntry - has collection\" == "
               "nullptr");
  EXPECT_DEATH(textConstructor<MldpTunnelTableEntry>(),
               "\"No String constructor for MldpTunnelTableEntry - has collection\" == nullptr");
  EXPECT_DEATH(
      textConstructor<StaticMcastTunnelTableEntry>(),
      "\"No String constructor for StaticMcastTunnelTableEntry - has collection\" == nullptr");
}

TEST(MulticastEntryTest, AnMldpEntryWithOnlyItsIdAndTypeIsEmpty) {
  TunnelId const id(mldpTunnel, 3);
  EXPECT_FALSE(MldpTunnelTableEntry(id));
  EXPECT_TRUE(withVias(MldpTunnelTableEntry(id), 1));
  EXPECT_TRUE(MldpTunnelTableEntry(id, staticMcastTunnel));
  EXPECT_FALSE(MldpTunnelRibEntry(id, mldpTunnel, {}));
  EXPECT_TRUE(MldpTunnelRibEntry(id, mldpTunnel, MulticastTreeId("t")));
}

TEST(MulticastEntryTest, The601stViaIsOutOfRangeAndChangesNothing) {
  auto const full = withVias(MplsMulticastTunnelTableEntry(), 600);
  auto e = full;
  EXPECT_EQ(Vorn::test::errorOf<Zent::RangeException>([&] { e.viaIs(600, via(1)); }),
            "Tunnel::TunnelTable::ViaIndex::value < Tunnel::TunnelTable::ViaIndex::min or > "
            "Tunnel::TunnelTable::ViaIndex::max not allowed");
  EXPECT_EQ(e, full);
}

// Records the reader must refuse whole: deserialize throws and the entry it
// was reading into keeps its value.
TEST(MulticastEntryTest, HostileRecordsAreRefusedAndChangeNothing) {
  MulticastTreeId const abc("abc");
  Bytes const full = recordOf(withVias(MplsMulticastTunnelTableEntry(TunnelId(5), abc), 600));
  Bytes const bare = recordOf(MplsMulticastTunnelTableEntry(TunnelId(5), abc));
  ASSERT_EQ(full.size(), 16u + 3 + 4 + 600 * 108);
  ASSERT_EQ(bare.size(), 16u + 3 + 4);
  auto patched = [](Bytes b, size_t at, uint32_t word) {
    std::memcpy(&b[at], &word, 4);
    return b;
  };
  struct Case {
    const char* what;
    Bytes record;
  } const cases[] = {
      {"601 vias", patched(full, 19, 601)},
      {"tree length past its name", patched(bare, 12, 4)},      // the count is cut short
      {"tree length short of its name", patched(bare, 12, 2)},  // 'c' reads as 99 vias
      {"tree name of 64 bytes", patched(full, 12, 64)},
      {"short buffer", Bytes(full.begin(), full.end() - 1)},
      {"no room for the base", Bytes(bare.begin(), bare.begin() + 15)},
  };
  auto const other = withVias(MplsMulticastTunnelTableEntry(TunnelId(9), MulticastTreeId("x")), 2);
  for (Case const& c : cases) {
    auto const len = static_cast<unsigned>(c.record.size());
    EXPECT_EQ(other.deserializeLen(c.record.data(), len), 0u) << c.what;
    auto into = other;
    EXPECT_ANY_THROW(into.deserialize(c.record.data(), len)) << c.what;
    EXPECT_EQ(into, other) << c.what;
  }
}

// 600 vias fill the bound exactly with an unnamed tree; a name is one byte too
// many, refused whole.
TEST(MulticastTableTest, StampsAndTheBoundOfTheTables) {
  registerMulticastTableTypes();
  auto mldp = mldpTunnelTableFactory(Zent::String("mldp"));
  auto stat = staticMcastTunnelTableFactory(Zent::String("static"));
  auto merged = mplsMulticastTunnelTableFactory(Zent::String("merged"));
  EXPECT_EQ(mldp->tableType(), mldpTunnel);
  EXPECT_EQ(static_cast<int>(mldp->tunnelTableId()), 20);
  EXPECT_EQ(stat->tableType(), staticMcastTunnel);
  EXPECT_EQ(static_cast<int>(stat->tunnelTableId()), 21);
  EXPECT_EQ(merged->tableType(), unknownTunnel);
  EXPECT_EQ(static_cast<int>(merged->tunnelTableId()), 0);

  auto e = withVias(MplsMulticastTunnelTableEntry(TunnelId(5), MulticastTreeId()), 600);
  ASSERT_EQ(e.serializeLen(), MplsMulticastTunnelTableEntry::kTableBound);
  mldp->entryIs(e);
  EXPECT_EQ(mldp->entry(TunnelId(5)), e);
  e.tunnelIdIs(TunnelId(6));
  e.mcastTreeIdIs(MulticastTreeId("t"));
  EXPECT_EQ(Vorn::test::errorOf<Zent::RangeException>([&] { mldp->entryIs(e); }),
            "MldpTunnelTable::alloc() requested payloadSize:64821, but max payloadSize:64820");
  EXPECT_FALSE(mldp->entryHas(TunnelId(6)));
  EXPECT_EQ(mldp->entryCount(), 1u);
}

}  // namespace
}  // namespace Tunnel::TunnelTable::test
