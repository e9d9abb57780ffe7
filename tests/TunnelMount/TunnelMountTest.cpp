#include <gtest/gtest.h>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/TunnelTable/Tables.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "tests/shmem/ShmTestUtil.h"

using namespace Tunnel::TunnelTable;

namespace {

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

TEST(TunnelMountTest, TablesMountByIdentifierAndOtherEntitiesGiveNull) {
  TamselTest::StateRoot root;
  ZentTamsel::MountRegistry registry;
  TunnelTableMounter mounter{ZentTamsel::Mount(Zent::String(root.path()), registry)};
  Zent::typeIs(std::make_unique<NotATableType>());
  TunnelTableInfo info("x", "TunnelMountTest::NotATable", "tunnel/table/x");
  EXPECT_FALSE(mounter.writeMountTable(info, ZentTamsel::MountInfo(ZentTamsel::writer())));
  EXPECT_EQ(Zent::liveCount<NotATable>(), 0);
  auto id = TunnelTableIdentifier::evpnVxlanTunnelTable;
  auto w = Zent::dynamicPtrCast<EvpnVxlanTunnelTable>(mounter.mountWriter(id));
  ASSERT_TRUE(w);
  w = nullptr;
  mounter.unmount(id);
  mounter.cleanup(id);
  EXPECT_FALSE(std::filesystem::exists(root.path() + "/tunnel/table/evpnVxlan"));
  EXPECT_EQ(Zent::liveCount<EvpnVxlanTunnelTable>(), 0);
}

}  // namespace
