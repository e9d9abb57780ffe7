#pragma once
// One protocol's redistribution as a consumer runs it: the protocol's tunnel
// table mounted as a key shadow, a redistribution configuration, and the
// protocol's machine keeping that configuration equal to what the table
// implies. `redist` prints it; the demo's consumer runs three of them.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/TunnelRedist/TunnelRedistConfig.h"
#include "Tunnel/TunnelTable/TunnelTableBase.h"
#include "Tunnel/net/IpGenPrefix.h"

namespace TunnelCtl {

enum class RedistProtocol { ldp, isisSr, bgpLu };
inline constexpr RedistProtocol kRedistProtocols[] = {RedistProtocol::ldp, RedistProtocol::isisSr,
                                                      RedistProtocol::bgpLu};

// The command-line keyword: "ldp", "isis-sr", "bgp-lu".
std::string_view keyword(RedistProtocol p);
bool parseRedistProtocol(std::string_view text, RedistProtocol& out);
Tunnel::TunnelTable::TunnelTableIdentifier tableIdOf(RedistProtocol p);
// The table's directory name under tunnel/table/ ("ldp", "sr", "bgpLu").
std::string tableNameOf(RedistProtocol p);

// prefix -> (tunnel id value -> metric)
using ConfigView = std::map<Vorn::IpGenPrefix, std::map<uint64_t, uint32_t>>;

ConfigView configView(Tunnel::TunnelRedist::TunnelRedistConfig const& config);
uint64_t memberCount(ConfigView const& v);
// An order-independent digest of (prefix, tunnel, metric) triples, so that
// two processes can compare configurations without exchanging them.
uint64_t memberDigest(Vorn::IpGenPrefix const& prefix, uint64_t tunnelId, uint32_t metric);
uint64_t configDigest(ConfigView const& v);

class RedistFollower {
 public:
  // Mounts the protocol's table under `mounter` as a key shadow and starts
  // the machine over it. Throws what the mount throws.
  static std::unique_ptr<RedistFollower> create(
      RedistProtocol p, Tunnel::TunnelTable::TunnelTableMounter const& mounter);
  virtual ~RedistFollower() = default;

  RedistProtocol protocol() const { return protocol_; }
  virtual Zent::Ptr<Tunnel::TunnelTable::TunnelTableBase> table() const = 0;
  virtual Zent::Ptr<Tunnel::TunnelRedist::TunnelRedistConfig> config() const = 0;
  // What the table's present contents imply, computed afresh from it.
  virtual ConfigView expected() const = 0;
  ConfigView current() const { return configView(*config()); }

 protected:
  explicit RedistFollower(RedistProtocol p) : protocol_(p) {}

 private:
  RedistProtocol protocol_;
};

}  // namespace TunnelCtl
