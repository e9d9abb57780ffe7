#include <gtest/gtest.h>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/TunnelTable/Tables.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "tests/shmem/ShmTestUtil.h"

using namespace Tunnel::TunnelTable;
using TamselTest::StateRoot;

namespace {

TEST(TunnelMountInfoTest, IdentifiersGiveTheirNamesAndPaths) {
  auto sr = TunnelTableMounter::getMountInfo(TunnelTableIdentifier::isisSrTunnelTable);
  EXPECT_EQ(sr.tableInfo().mountPath(), "tunnel/table/sr");
  EXPECT_EQ(sr.tableInfo().tableName(), "sr");
  auto sbfd =
      TunnelTableMounter::getMountInfo(TunnelTableIdentifier::zorbSdkSbfdSessionTunnelTable);
  EXPECT_EQ(sbfd.tableInfo().typeName(), "Tunnel::TunnelTable::ZorbSdkSbfdSessionTunnelTable");
  EXPECT_EQ(sbfd.tableInfo().mountPath(), "tunnel/table/zorbSdkSbfd");
  // Above the range: the empty names and the bare prefix, without complaint.
  auto beyond = TunnelTableMounter::getMountInfo(static_cast<TunnelTableIdentifier>(22));
  EXPECT_EQ(beyond.tableInfo(), TunnelTableInfo());
  EXPECT_EQ(beyond.tableInfo().mountPath(), "tunnel/table/");
  for (int id = 1; id <= 22; ++id) {
    auto m = TunnelTableMounter::getMountInfo(static_cast<TunnelTableIdentifier>(id));
    ASSERT_EQ(m.writerMountInfo().collectionInfo().size(), 1u);
    EXPECT_EQ(m.writerMountInfo().collectionInfo()[0].name, "entry");
    EXPECT_EQ(m.writerMountInfo().collectionInfo()[0].size, 1024u);
    EXPECT_EQ(m.writerMountInfo().mountType(), ZentTamsel::writer());
  }
}

TEST(TunnelMountInfoTest, IdentifierZeroIsAProgrammingError) {
  EXPECT_DEATH(TunnelTableMounter::getMountInfo(TunnelTableIdentifier::invalidTunnelTable),
               "getMountInfo: assertion failed: 0 && \"Must give a valid "
               "TunnelTableIdentifier.\"");
}

TEST(TunnelMountInfoTest, MountInfoTextRoundTrips) {
  auto m = TunnelTableMounter::getMountInfo(TunnelTableIdentifier::ldpTunnelTable);
  std::string text = m.stringValue();
  EXPECT_EQ(text,
            "Value('Tunnel::TunnelTable::TunnelTableMountInfo', ** {'tableInfo': "
            "Value('Tunnel::TunnelTable::TunnelTableInfo', ** {'tableName': 'ldp', "
            "'typeName': "
            "'Tunnel::TunnelTable::LdpTunnelTable', 'mountPath': "
            "'tunnel/table/ldp'}), "
            "'writerMountInfo': Value('ZentTamsel::MountInfo', ** {'mountType': "
            "writer, "
            "'collectionInfo': [Value('ZentTamsel::MountInfo::CollectionInfo', ** "
            "{'name': "
            "'entry', 'size': 1024})], 'fileMode': 384, 'fileGroup': -1})})");
  EXPECT_EQ(Zent::strepToValue<TunnelTableMountInfo>(Zent::String(text)), m);
  ZentTamsel::MountRegistry registry;
  TunnelTableMounter mounter(ZentTamsel::Mount(Zent::String("/dev/shm/x"), registry));
  EXPECT_EQ(Zent::strepToValue<TunnelTableMounter>(Zent::String(mounter.stringValue())), mounter);
}

// An entity type that is not a tunnel table.
class NotATable : public Zent::Entity {
 public:
  using Entity::Entity;
};
class NotATableType : public Zent::GenericIf {
 public:
  NotATableType() : GenericIf("TunnelMountTest::NotATable", Kind::entity) {}
  Zent::Ptr<Zent::Entity> newEntityForDir(Zent::String const& name) const override {
    return Zent::newEntity<NotATable>(name);
  }
};

class TunnelMountTest : public ::testing::Test {
 protected:
  StateRoot root;
  ZentTamsel::MountRegistry registry;
  TunnelTableMounter mounter{ZentTamsel::Mount(Zent::String(root.path()), registry)};
};

TEST_F(TunnelMountTest, AMountedEntityThatIsNoTableGivesNull) {
  Zent::typeIs(std::make_unique<NotATableType>());
  TunnelTableInfo info("x", "TunnelMountTest::NotATable", "tunnel/table/x");
  EXPECT_FALSE(mounter.writeMountTable(info, ZentTamsel::MountInfo(ZentTamsel::writer())));
  EXPECT_EQ(Zent::liveCount<NotATable>(), 0);
}

TEST_F(TunnelMountTest, EvpnTableIsMountedByIdentifierAndCleanedUp) {
  auto id = TunnelTableIdentifier::evpnVxlanTunnelTable;
  auto w = Zent::dynamicPtrCast<EvpnVxlanTunnelTable>(mounter.mountWriter(id));
  ASSERT_TRUE(w);
  EXPECT_EQ(w->tableType(), evpnVxlanTunnel);
  EXPECT_EQ(w->tunnelTableId(), id);
  EXPECT_EQ(w->entryControl()->mountStatus(), ZentTamsel::MountStatus::mounted);
  TunnelId t = w->newTunnelId();
  w->entryIs(EvpnVxlanTunnelEntry(t));
  auto r = Zent::dynamicPtrCast<EvpnVxlanTunnelTable>(mounter.mountKeyshadow(id));
  ASSERT_TRUE(r);
  EXPECT_EQ(r->entryControl()->mode(), ZentTamsel::keyShadow());
  EXPECT_EQ(r->entry(t), EvpnVxlanTunnelEntry(t));
  EXPECT_EQ(r->entryText(t), EvpnVxlanTunnelEntry(t).stringValue());
  w = nullptr;
  r = nullptr;
  mounter.unmount(id);
  mounter.cleanup(id);
  EXPECT_FALSE(std::filesystem::exists(root.path() + "/tunnel/table/evpnVxlan"));
  EXPECT_EQ(Zent::liveCount<EvpnVxlanTunnelTable>(), 0);
}

}  // namespace
