#pragma once
// The tunnelctl commands, each given its parsed options and returning the
// process's exit code. They throw UsageError or CtlError (CtlCommon.h) for
// main to report.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/tunnelctl/CtlCommon.h"
#include "tools/tunnelctl/Render.h"

namespace TunnelCtl {

struct TablesOptions {
  std::string root = kDefaultStateRoot;
  bool json = false;
};
int runTables(TablesOptions const& o);

struct ShowOptions {
  std::string root = kDefaultStateRoot;
  std::string table;
  std::vector<std::string> ids;  // as typed; parsed by the command
  EntryForm form = EntryForm::text;
};
int runShow(ShowOptions const& o);

// Tunnel ids as typed (see TunnelIdText.h); a malformed one is a UsageError.
std::vector<Tunnel::TunnelTable::TunnelId> parseTunnelIds(std::vector<std::string> const& texts);

// Without `show`, lists the FIB (form text or json); with it, the entries
// under `ids` in `form`.
struct FibOptions {
  std::string root = kDefaultStateRoot;
  bool show = false;
  std::vector<std::string> ids;
  EntryForm form = EntryForm::text;
};
int runFib(FibOptions const& o);

struct ResolveOptions {
  std::string root = kDefaultStateRoot;
  std::string tunnel;
  bool json = false;
};
int runResolve(ResolveOptions const& o);

struct WatchOptions {
  std::string root = kDefaultStateRoot;
  std::string table;
  bool json = false;
};
int runWatch(WatchOptions const& o);

struct CountersOptions {
  std::string root = kDefaultStateRoot;
  std::string table;
  bool json = false;
};
int runCounters(CountersOptions const& o);

struct RedistOptions {
  std::string root = kDefaultStateRoot;
  std::string protocol;
  bool watch = false;
  bool json = false;
};
int runRedist(RedistOptions const& o);

// The tunnel RIB's winners (all endpoints, or those of `endpoint`), or with
// `candidates` every candidate of `endpoint` in rank order.
struct RibOptions {
  std::string root = kDefaultStateRoot;
  bool colored = false;
  std::optional<uint32_t> color;  // implies colored
  std::string endpoint;
  bool candidates = false;
  bool json = false;
};
int runRib(RibOptions const& o);

// The multicast tables, the merge agent's status and a check of the merged
// table against its inputs.
struct MulticastOptions {
  std::string root = kDefaultStateRoot;
  bool json = false;
};
int runMulticast(MulticastOptions const& o);

// The decapsulation and nexthop-group configuration: shown, or changed by
// one of the actions. Every value stays text as typed until the command
// checks it, so that a mistake is reported in its words before anything is
// opened for writing.
enum class ConfigAction {
  show,
  decapGroupSet,
  decapGroupChange,
  decapGroupDelete,
  decapPortSet,
  decapPortDelete,
  decapReady,
  nexthopGroupSet,
  nexthopGroupChange,
  nexthopGroupDelete,
};
struct ConfigOptions {
  std::string root = kDefaultStateRoot;
  ConfigAction action = ConfigAction::show;
  bool json = false;
  std::string key;                  // group name, port or prefix
  std::string value;                // payload type, or true/false for decap-ready
  std::optional<std::string> type;  // tunnel type of a decap group
  std::vector<std::string> ips, addIps, removeIps;
  std::optional<std::string> group, pref, metric;  // of a nexthop-group entry
};
int runConfig(ConfigOptions const& o);

struct DemoOptions {
  std::string root = kDefaultStateRoot;
  uint32_t tunnels = 10000;
  double seconds = 3;
  // Churn writes per second per producer: a pace the consumer keeps up with
  // on a small machine, so that latency measures notification, not backlog.
  // 0 writes as fast as it can.
  uint32_t rate = 20000;
  bool keep = false;
};
int runDemo(DemoOptions const& o);

}  // namespace TunnelCtl
