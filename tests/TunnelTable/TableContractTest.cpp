// One contract, every table type: a writer process mounts the table by its
// identifier, a key-shadow reader in this process sees every change through
// entryNotify, with entries of the type's largest size, and the counters say
// what happened. After cleanup no file of the table is left. Then what the
// EVPN and interface tables add: identifier allocation and the kernel
// interface names and tunnel interfaces they map to.

#include <filesystem>

#include <gtest/gtest.h>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/TunnelTable/IntfTunnels.h"
#include "Tunnel/TunnelTable/Tables.h"
#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "Tunnel/multicast/MulticastTables.h"
#include "tests/TunnelTable/EntryTypes.h"
#include "tests/shmem/ShmTestUtil.h"

using namespace Tunnel::TunnelTable;
using Tunnel::TunnelTable::test::EntryRng;
using Tunnel::TunnelTable::test::EntryTraits;

namespace {

template <typename T>
class TableContractTest : public ::testing::Test {};
// Every table of the list, so that a new row is under contract at once.
template <typename, typename... Tables>
struct AfterFirst {
  using type = ::testing::Types<Tables...>;
};
#define TABLE_TYPE(Class, ...) , Class
using AllTables = AfterFirst<void TUNNEL_TABLES_ALL(TABLE_TYPE)>::type;
#undef TABLE_TYPE
TYPED_TEST_SUITE(TableContractTest, AllTables);

// The entry with key index `i` of the table's type, as large as the type
// allows (every array full); `gen` varies its contents.
template <typename Table>
typename Table::EntryType bigEntry(TunnelType type, uint64_t i, uint64_t gen) {
  using Entry = typename Table::EntryType;
  TunnelId id(type, i);
  if constexpr (std::is_same_v<Entry, EvpnVxlanTunnelEntry>) {
    Tunnel::VxlanTunnelInfo info;
    info.vniIs(static_cast<uint32_t>(gen));
    return Entry(id, info);
  } else {
    Entry e;
    if constexpr (std::is_constructible_v<Entry, TunnelId>) e = Entry(id);  // its type's defaults
    EntryRng rng(i * 1000 + gen);
    EntryTraits<Entry>::randomize(e, rng, true);
    e.tunnelIdIs(id);
    return e;
  }
}

struct Recorder : TunnelTableBase::NotifieeConst {
  std::vector<TunnelId> keys;
  void entryNotify(TunnelId const& k) override { keys.push_back(k); }
};

using TamselTest::Pipe;

TYPED_TEST(TableContractTest, KeyShadowInAnotherProcessSeesEveryChange) {
  using Table = TypeParam;
  registerMountTypes();
  auto probe = Zent::Ptr<Table>(Zent::newTracked<Table>(Zent::String("probe")));
  TunnelTableIdentifier const id = probe->tunnelTableId();
  TunnelType const type = probe->tableType();
  probe = nullptr;

  TamselTest::StateRoot root;
  ZentTamsel::MountRegistry registry;
  TunnelTableMounter mounter(ZentTamsel::Mount(Zent::String(root.path()), registry));
  Pipe ready, go;
  auto e1 = bigEntry<Table>(type, 1, 1);
  auto e2 = bigEntry<Table>(type, 2, 2);
  auto e2b = bigEntry<Table>(type, 2, 3);
  pid_t writer = TamselTest::forkChild([&] {
    auto t = Zent::dynamicPtrCast<Table>(mounter.mountWriter(id));
    if (!t) return false;
    ready.signal();
    go.wait();
    t->entryIs(e1);
    t->entryIs(e1);  // an equal rewrite is written and notified again
    t->entryIs(e2);
    t->entryCommit(&e2b);
    if (!(t->entryDel(e1.tunnelId()) == e1)) return false;
    // Absent: a default entry, counted as a delete, notified to nobody.
    if (!(t->entryDel(TunnelId(type, 99)) == typename Table::EntryType())) return false;
    auto const& c = t->counters();
    return c.value("entryIs") == 3 && c.value("entryDel") == 2 && c.value("entryNotify") == 5;
  });
  ASSERT_TRUE(ready.wait());
  auto shadow = Zent::dynamicPtrCast<Table>(mounter.mountKeyshadow(id));
  ASSERT_TRUE(shadow);
  auto rec = Zent::Ptr<Recorder>(Zent::newTracked<Recorder>());
  rec->notifierIs(shadow.ptr());
  go.signal();
  ASSERT_TRUE(TamselTest::dispatchUntil([&] { return rec->keys.size() >= 5; },
                                        [&](int ms) { return registry.dispatchAll(ms); }));
  EXPECT_EQ(TamselTest::waitChild(writer), 0);
  EXPECT_EQ(rec->keys, (std::vector<TunnelId>{e1.tunnelId(), e1.tunnelId(), e2.tunnelId(),
                                              e2.tunnelId(), e1.tunnelId()}));
  EXPECT_EQ(shadow->entry(e2.tunnelId()), e2b);
  EXPECT_FALSE(shadow->entryHas(e1.tunnelId()));
  EXPECT_EQ(shadow->entryCount(), 1u);
  EXPECT_EQ(shadow->counters().value("entryNotify"), 5u);
  // The writer's counters, as it published them for other processes.
  auto const* published = shadow->entryCore().reader();
  EXPECT_EQ(published->publishedCounter(0), 3u);
  EXPECT_EQ(published->publishedCounter(1), 2u);
  EXPECT_EQ(published->publishedCounter(2), 5u);
  rec->notifierIs(nullptr);
  shadow = nullptr;
  mounter.unmount(id);
  mounter.cleanup(id);
  EXPECT_FALSE(std::filesystem::exists(
      mounter.tamselMounter().dir(TunnelTableMounter::getMountInfo(id).tableInfo().mountPath())));
  EXPECT_EQ(Zent::liveCount<Table>(), 0);
}

TEST(EvpnVxlanTunnelTableTest, IdentifiersStartAtOneAndAreNeverReused) {
  auto t = evpnVxlanTunnelTableFactory("evpn");
  EXPECT_EQ(t->newTunnelId(), TunnelId(evpnVxlanTunnel, 1));
  EXPECT_EQ(t->newTunnelId().tunnelIndex(), 2u);
  EXPECT_EQ(t->lastAllocatedId(), 2u);
  t->lastAllocatedIdIs(EvpnVxlanTunnelTable::maxId());
  EXPECT_DEATH(t->newTunnelId(),
               "lastAllocatedId\\(\\) < maxId\\(\\) && \"Reached maximum number of IDs.\"");
}

TEST(EvpnVxlanTunnelTableTest, KernelInterfaceNamesRoundTripAndMalformedNamesGiveZero) {
  TunnelId t(evpnVxlanTunnel, 26);
  EXPECT_EQ(EvpnVxlanTunnelTable::tunKernelIntfName(t), "t0x1a");
  EXPECT_EQ(EvpnVxlanTunnelTable::tunKernelIntfTunnelId("t0x1a"), t);
  TunnelId flex(isisFlexAlgoTunnel, (0xffull << 35) | 5);
  EXPECT_EQ(EvpnVxlanTunnelTable::tunKernelIntfName(flex), "t0x5");
  for (auto bad : {"", "t0x", "t0X1a", "t0x1A", "x0x1a", "t0x-1", "t0x1g", "t0x800000000000"}) {
    EXPECT_EQ(EvpnVxlanTunnelTable::tunKernelIntfTunnelId(bad), TunnelId()) << bad;
  }
}

TEST(EvpnVxlanTunnelTableTest, OnlyDynamicInterfacesOfEvpnTunnelsAreValid) {
  TunnelId evpn(evpnVxlanTunnel, 3);
  EXPECT_TRUE(EvpnVxlanTunnelTable::isValidEvpnIntf(dynamicTunnelIntf(evpn)));
  EXPECT_FALSE(EvpnVxlanTunnelTable::isValidEvpnIntf(Vorn::IntfId::tunnel(3)));  // type 9
  EXPECT_FALSE(EvpnVxlanTunnelTable::isValidEvpnIntf(Vorn::IntfId::fromTunnelIdValue(0)));
  EXPECT_THROW(EvpnVxlanTunnelTable::isValidEvpnIntf(Vorn::IntfId::fromTunnelIdValue(1ull << 50)),
               Zent::RangeException);
}

TEST(L3IntfTunnelTableBaseTest, TunnelPortsRoundTripAndBadIdentifiersAbort) {
  TunnelId id = L3IntfTunnelTableBase::newTunnelId(Vorn::IntfId::tunnel(65535));
  EXPECT_EQ(id.tunnelType(), staticInterfaceTunnel);
  EXPECT_EQ(L3IntfTunnelTableBase::tunnelIntfId(id), Vorn::IntfId::tunnel(65535));
  EXPECT_DEATH(L3IntfTunnelTableBase::tunnelIntfId(TunnelId(staticInterfaceTunnel, 65536)),
               "tunnelId.tunnelIndex\\(\\) <= Zent::maxU16\\(\\)");
  EXPECT_DEATH(L3IntfTunnelTableBase::tunnelIntfId(TunnelId(ldpTunnel, 1)),
               "tunnelId.tunnelType\\(\\) == staticInterfaceTunnel");
}

TEST(TunnelMountInfoTest, IdentifierZeroIsAProgrammingErrorAndInfoTextRoundTrips) {
  EXPECT_DEATH(TunnelTableMounter::getMountInfo(TunnelTableIdentifier::invalidTunnelTable),
               "getMountInfo: assertion failed: 0 && \"Must give a valid TunnelTableIdentifier.\"");
  for (auto id : {TunnelTableIdentifier::ldpTunnelTable, TunnelTableIdentifier::mldpTunnelTable}) {
    auto m = TunnelTableMounter::getMountInfo(id);
    EXPECT_EQ(Zent::strepToValue<TunnelTableMountInfo>(Zent::String(m.stringValue())), m);
  }
}

class NotATable : public Zent::Entity {
 public:
  using Entity::Entity;
};
struct NotATableType : Zent::GenericIf {
  NotATableType() : GenericIf("TunnelMountTest::NotATable", Kind::entity) {}
  Zent::Ptr<Zent::Entity> newEntityForDir(Zent::String const& name) const override {
    return Zent::newEntity<NotATable>(name);
  }
};

// Every table's mount by identifier, and its cleanup, is in the table contract.
TEST(TunnelMountTest, AnEntityThatIsNoTableGivesNull) {
  TamselTest::StateRoot root;
  ZentTamsel::MountRegistry registry;
  TunnelTableMounter mounter{ZentTamsel::Mount(Zent::String(root.path()), registry)};
  Zent::typeIs(std::make_unique<NotATableType>());
  TunnelTableInfo info("x", "TunnelMountTest::NotATable", "tunnel/table/x");
  EXPECT_FALSE(mounter.writeMountTable(info, ZentTamsel::MountInfo(ZentTamsel::writer())));
  EXPECT_EQ(Zent::liveCount<NotATable>(), 0);
}

}  // namespace
