#pragma once
// One protocol's redistribution as a consumer runs it: the protocol's tunnel
// table mounted as a key shadow, a redistribution configuration, and the
// protocol's machine keeping that configuration equal to what the table
// implies. `redist` prints it; the demo's consumer runs three of them.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/TunnelRedist/TunnelRedistConfig.h"
#include "Tunnel/TunnelTable/TunnelTableBase.h"
#include "Tunnel/net/IpGenPrefix.h"
#include "Tunnel/shmem/Keepdb/Keepdb.h"

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

// The configuration a consumer published for `p` under `root`, read once
// through the state database; nothing when none is published or it cannot
// be read.
std::optional<ConfigView> publishedView(std::string const& root, RedistProtocol p);

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

  // Publishes the configuration in the state database under `root`
  // (tunnelRedistConfigPath(keyword)), replacing what an earlier consumer
  // left there. Throws what Keepdb::Binding throws.
  void publish(std::string const& root);
  // Writes what changed since the last flush; 0 when not publishing.
  size_t flush() { return published_ ? published_->flush() : 0; }
  Keepdb::Binding const* published() const { return published_.get(); }

 protected:
  explicit RedistFollower(RedistProtocol p) : protocol_(p) {}
  // Derived destructors stop publishing before they take the machine down.
  std::unique_ptr<Keepdb::Binding> published_;

 private:
  RedistProtocol protocol_;
};

}  // namespace TunnelCtl
