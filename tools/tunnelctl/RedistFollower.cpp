#include "tools/tunnelctl/RedistFollower.h"

#include "Tunnel/BgpLuTunnelRedistConfigSm/BgpLuTunnelRedistConfigSm.h"
#include "Tunnel/IsisSrTunnelRedistConfigSm/IsisSrTunnelRedistConfigSm.h"
#include "Tunnel/LdpTunnelRedistConfigSm/LdpTunnelRedistConfigSm.h"

namespace TunnelCtl {

using namespace Tunnel::TunnelTable;
using Tunnel::TunnelRedist::TunnelRedistConfig;

std::string_view keyword(RedistProtocol p) {
  switch (p) {
    case RedistProtocol::ldp:
      return "ldp";
    case RedistProtocol::isisSr:
      return "isis-sr";
    case RedistProtocol::bgpLu:
      return "bgp-lu";
  }
  return "?";
}

bool parseRedistProtocol(std::string_view text, RedistProtocol& out) {
  for (RedistProtocol p : kRedistProtocols) {
    if (text == keyword(p)) {
      out = p;
      return true;
    }
  }
  return false;
}

TunnelTableIdentifier tableIdOf(RedistProtocol p) {
  switch (p) {
    case RedistProtocol::ldp:
      return TunnelTableIdentifier::ldpTunnelTable;
    case RedistProtocol::isisSr:
      return TunnelTableIdentifier::isisSrTunnelTable;
    case RedistProtocol::bgpLu:
      return TunnelTableIdentifier::bgpLuTunnelTable;
  }
  return TunnelTableIdentifier::invalidTunnelTable;
}

std::string tableNameOf(RedistProtocol p) {
  return std::string(TunnelTableMounter::getMountInfo(tableIdOf(p)).tableInfo().tableName().view());
}

ConfigView configView(TunnelRedistConfig const& config) {
  ConfigView v;
  for (auto it = config.entries().begin(); it != config.entries().end(); ++it) {
    auto& members = v[it.key()];
    auto const& infos = (*it)->memberTunnelInfos();
    for (auto m = infos.begin(); m != infos.end(); ++m) members[m.key().value()] = m->igpMetric();
  }
  return v;
}

uint64_t memberCount(ConfigView const& v) {
  uint64_t n = 0;
  for (auto const& [prefix, members] : v) n += members.size();
  return n;
}

namespace {

uint64_t mix(uint64_t x) {
  x += 0x9e3779b97f4a7c15ull;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ull;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebull;
  return x ^ (x >> 31);
}

}  // namespace

uint64_t memberDigest(Vorn::IpGenPrefix const& prefix, uint64_t tunnelId, uint32_t metric) {
  return mix(mix(prefix.hash(7)) ^ mix(tunnelId) ^ (uint64_t{metric} << 17));
}

uint64_t configDigest(ConfigView const& v) {
  uint64_t d = 0;
  for (auto const& [prefix, members] : v) {
    for (auto const& [id, metric] : members) d += memberDigest(prefix, id, metric);
  }
  return d;
}

namespace {

template <typename Table, typename Sm>
class Follower : public RedistFollower {
 public:
  using SmFactory = Zent::Ptr<Sm> (*)(Zent::Ptr<TunnelRedistConfig> const&,
                                      Zent::Ptr<Table const> const&);

  Follower(RedistProtocol p, TunnelTableMounter const& mounter, SmFactory factory)
      : RedistFollower(p), mounter_(mounter) {
    table_ = Zent::dynamicPtrCast<Table>(mounter_.mountKeyshadow(tableIdOf(p)));
    config_ = Tunnel::TunnelRedist::tunnelRedistConfigFactory(Zent::String(keyword(p)));
    sm_ = factory(config_, table_);
    sm_->handleInitialized();
  }
  ~Follower() override {
    published_ = nullptr;
    sm_ = nullptr;
    table_ = nullptr;
    mounter_.unmount(tableIdOf(protocol()));
  }

  Zent::Ptr<TunnelTableBase> table() const override { return table_; }
  Zent::Ptr<TunnelRedistConfig> config() const override { return config_; }
  ConfigView expected() const override {
    ConfigView v;
    auto const ids = table_->entryKeys(nullptr, SIZE_MAX);
    table_->entryBatch(ids.data(), ids.size(), [&](size_t, typename Table::EntryType const& e) {
      if (static_cast<bool>(e)) v[e.tep()][e.tunnelId().value()] = Sm::memberMetric(e);
    });
    return v;
  }

 private:
  TunnelTableMounter mounter_;
  Zent::Ptr<Table> table_;
  Zent::Ptr<TunnelRedistConfig> config_;
  Zent::Ptr<Sm> sm_;
};

}  // namespace

std::optional<ConfigView> publishedView(std::string const& root, RedistProtocol p) {
  std::string const path = Tunnel::TunnelRedist::tunnelRedistConfigPath(keyword(p));
  if (!Keepdb::exists(root, path)) return std::nullopt;
  try {
    auto config = Tunnel::TunnelRedist::tunnelRedistConfigFactory(Zent::String(keyword(p)));
    Keepdb::Binding reader(root, path, config, Tunnel::TunnelRedist::tunnelRedistConfigSchema(),
                           Keepdb::Mode::reader);
    return configView(*config);
  } catch (Tamsel::Error const&) {
    return std::nullopt;
  }
}

void RedistFollower::publish(std::string const& root) {
  published_ = std::make_unique<Keepdb::Binding>(
      root, Tunnel::TunnelRedist::tunnelRedistConfigPath(keyword(protocol_)), config(),
      Tunnel::TunnelRedist::tunnelRedistConfigSchema(), Keepdb::Mode::writerReplace);
  published_->flush();
}

std::unique_ptr<RedistFollower> RedistFollower::create(RedistProtocol p,
                                                       TunnelTableMounter const& mounter) {
  using namespace Tunnel::TunnelRedist;
  switch (p) {
    case RedistProtocol::ldp:
      return std::make_unique<Follower<LdpTunnelTable, LdpTunnelRedistConfigSm>>(
          p, mounter, &ldpTunnelRedistConfigSmFactory);
    case RedistProtocol::isisSr:
      return std::make_unique<Follower<IsisSrTunnelTable, IsisSrTunnelRedistConfigSm>>(
          p, mounter, &isisSrTunnelRedistConfigSmFactory);
    case RedistProtocol::bgpLu:
      return std::make_unique<Follower<BgpLuTunnelTable, BgpLuTunnelRedistConfigSm>>(
          p, mounter, &bgpLuTunnelRedistConfigSmFactory);
  }
  return nullptr;
}

}  // namespace TunnelCtl
