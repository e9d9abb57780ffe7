#pragma once
// The network base types in one include, and their registration with the
// type registry.

#include "Tunnel/net/IntfId.h"
#include "Tunnel/net/IpGenAddr.h"
#include "Tunnel/net/IpGenPrefix.h"
#include "Tunnel/net/MetricType.h"
#include "Tunnel/net/MplsLabelOperation.h"
#include "Tunnel/net/MulticastTreeId.h"
#include "Tunnel/net/UnboundedMplsLabelOperation.h"

namespace Vorn {

// Registers every type of this layer under its qualified name
// ("Vorn::IpGenAddr", ..., "Routing::Multicast::MulticastTreeId").
// Idempotent; call it from each higher layer's own registerTypes().
void registerTypes();

}  // namespace Vorn
