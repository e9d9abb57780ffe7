#include "Tunnel/TunnelRibCalc/Offers.h"

#include <type_traits>

#include "Tunnel/TunnelTable/Tables.h"

namespace Tunnel::TunnelRibCalc {

using namespace TunnelTable;

namespace {

uint32_t u32(uint32_t v) { return v; }
uint32_t u32(TunnelIgpPref v) { return v.value(); }

template <typename Entry>
bool offerOf(Entry const& e, RibOffer& o) {
  if constexpr (requires { e.contribution(); }) {
    if (e.contribution() == ContributionToTunnelRIB::doesNotContribute) return false;
  }
  o.tunnelId = e.tunnelId();
  o.type = e.tunnelId().tunnelType();
  o.entryPref = e.entryPref();
  o.entryMetric = e.entryMetric();
  o.bw = e.tunnelBw();
  o.endpoint = ColoredTunnelEndpoint(e.tep());
  o.metric = o.metric2 = o.pref = o.pref2 = 0;
  o.metricType = Vorn::kDefaultMetricType;
  if constexpr (requires { e.bgpMetric(); }) {
    o.metric = e.bgpMetric();
    o.metric2 = e.bgpMetric2();
    o.pref = e.bgpPref();
    o.pref2 = e.bgpPref2();
    o.metricType = e.bgpMetricType();
  } else if constexpr (requires { e.metric(); }) {  // RSVP LER
    o.metric = e.metric();
    o.pref = u32(e.igpPref());
  } else if constexpr (requires { e.igpMetric(); }) {
    o.metric = e.igpMetric();
    o.pref = u32(e.igpPref());
    if constexpr (requires { e.igpMetric2(); }) {
      o.metric2 = e.igpMetric2();
      o.pref2 = e.igpPref2();
    }
  }
  // Colored tunnels go to the colored RIB: policies always, flex-algo and
  // RSVP LER tunnels when they say so.
  if constexpr (requires { e.isColored(); }) {
    if (e.isColored()) o.endpoint = ColoredTunnelEndpoint(e.tep(), e.color());
  } else if constexpr (requires { e.color().isSet(); }) {
    if (e.color().isSet()) o.endpoint = ColoredTunnelEndpoint(e.tep(), e.color().value());
  } else if constexpr (requires { e.color(); }) {
    o.endpoint = ColoredTunnelEndpoint(e.tep(), e.color());
  }
  return true;
}

template <typename Table>
bool readOffer(TunnelTableBase const& table, TunnelId const& id, RibOffer& out) {
  typename Table::EntryType e;
  if (!static_cast<Table const&>(table).entry(id, e) || !e) return false;
  return offerOf(e, out);
}

template <typename Table>
constexpr bool kCompetes =
    !std::is_same_v<Table, RsvpFrrTunnelTable> && !std::is_same_v<Table, RsvpLerSubTunnelTable> &&
    !std::is_same_v<Table, TiLfaTunnelTable> &&
    !std::is_same_v<Table, SrTeSegmentListTunnelTable> &&
    !std::is_same_v<Table, EvpnVxlanTunnelTable> &&
    !std::is_same_v<Table, ZorbSdkSbfdSessionTunnelTable>;

}  // namespace

OfferReader offerReader(TunnelTableIdentifier id) {
  switch (id) {
#define TUNNEL_RIB_OFFER(Class, factory, type, ident, ...) \
  case TunnelTableIdentifier::ident:                       \
    if constexpr (kCompetes<Class>) {                      \
      return &readOffer<Class>;                            \
    } else {                                               \
      return nullptr;                                      \
    }
    TUNNEL_TABLES(TUNNEL_RIB_OFFER)
#undef TUNNEL_RIB_OFFER
    default:
      return nullptr;
  }
}

}  // namespace Tunnel::TunnelRibCalc
