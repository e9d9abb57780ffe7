#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/EncapId.h"

namespace Tunnel::TunnelTable {
namespace {

TEST(EncapIdTest, OrdersByTypeFirstThenByValue) {
  std::set<EncapId> const ids = {
      {EncapType::greEncap, 2},   {EncapType::labelStackEncap, 900}, {EncapType::greEncap, 1},
      {EncapType::vxlanEncap, 0}, {EncapType::labelStackEncap, 3},   {},
  };
  std::vector<EncapId> const expected = {
      {},
      {EncapType::labelStackEncap, 3},
      {EncapType::labelStackEncap, 900},
      {EncapType::greEncap, 1},
      {EncapType::greEncap, 2},
      {EncapType::vxlanEncap, 0},
  };
  EXPECT_EQ(std::vector<EncapId>(ids.begin(), ids.end()), expected);
}

TEST(EncapIdTest, EncapValueIsSetsTypeAndValueTogether) {
  EncapId id(EncapType::greEncap, 5);
  id.encapValueIs(EncapType::ipsecVtiEncap, 9);
  EXPECT_EQ(id, EncapId(EncapType::ipsecVtiEncap, 9));
  EXPECT_EQ(id.typeCliStr(false), "IPsec VTI");
  EXPECT_EQ(id.typeCliStr(true), "ipsec-vti");
}

TEST(EncapIdTest, ParseRejectsOtherTexts) {
  for (const char* bad : {
           "Value('Tunnel::TunnelTable::EncapId', ** {'encapType': gre, 'encapValue': 1})",
           "Value('Tunnel::TunnelTable::EncapId', ** {'encapType': greEncap})",
           "Value('Tunnel::TunnelTable::EncapId', ** {'encapType': greEncap, 'encapValue': -1})",
           "Value('Tunnel::TunnelTable::EncapId', ** {'encapType': greEncap, 'encapValue': 1, "
           "'extra': 2})",
           "Value('Tunnel::TunnelTable::TunnelId', ** {'encapType': greEncap, 'encapValue': 1})",
       }) {
    EXPECT_THROW(Zent::strepToValue<EncapId>(bad), Zent::ParseError) << bad;
  }
}

}  // namespace
}  // namespace Tunnel::TunnelTable
