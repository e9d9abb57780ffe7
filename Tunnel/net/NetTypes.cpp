#include "Tunnel/net/NetTypes.h"

#include "Tunnel/framework/TypeRegistry.h"

namespace Vorn {

void registerTypes() {
  static bool const done = [] {
    Zent::registerValueType<IpGenAddr>("Vorn::IpGenAddr");
    Zent::registerValueType<IpGenPrefix>("Vorn::IpGenPrefix");
    Zent::registerValueType<IntfId>("Vorn::IntfId");
    Zent::registerValueType<MplsLabelOperation>("Vorn::MplsLabelOperation");
    Zent::registerValueType<UnboundedMplsLabelOperation>("Vorn::UnboundedMplsLabelOperation");
    Zent::registerValueType<MetricType>("Vorn::MetricType");
    Zent::registerValueType<Routing::Multicast::MulticastTreeId>(
        "Routing::Multicast::MulticastTreeId");
    return true;
  }();
  (void)done;
}

}  // namespace Vorn
