// tunnelctl config: the decapsulation and nexthop-group configuration kept in
// the state database under a state root, shown or changed one command at a
// time. A change is checked in full before its entity is opened for writing,
// and then made with one mutator call and one flush, so a refused command
// leaves the store as it was and readers never see half of a change.

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Tunnel/config/ConfigName.h"
#include "Tunnel/config/ConfigPaths.h"
#include "Tunnel/config/DecapConfig.h"
#include "Tunnel/config/NexthopGroupConfig.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/shmem/Keepdb/Keepdb.h"
#include "Tunnel/shmem/Tamsel/ShmFile.h"
#include "tools/tunnelctl/Commands.h"
#include "tools/tunnelctl/JsonText.h"
#include "tools/tunnelctl/TableAccess.h"

namespace TunnelCtl {

namespace {

using Json = nlohmann::ordered_json;
using Tunnel::Config::kDecapConfigPath;
using Tunnel::Config::kNexthopGroupConfigPath;
using Tunnel::Decap::DecapGroup;
using Tunnel::Decap::DecapIpIndex;
using Tunnel::Decap::DecapTunnelType;
using Tunnel::Decap::PayloadType;
using Tunnel::NexthopGroup::NexthopGroupTunnelConfigEntry;
using Vorn::IpGenPrefix;

constexpr uint32_t kMaxDecapIps = DecapGroup::DecapIpArray::capacity;

// ---- the command line's words, checked before anything is opened ----

// A decimal number, or UINT64_MAX for one too large to hold.
uint64_t parseNumber(std::string const& text, char const* what) {
  uint64_t v = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (text.empty() || ec == std::errc::invalid_argument || end != text.data() + text.size()) {
    throw UsageError(fmt::format("{} is not a number: '{}'", what, text));
  }
  return ec == std::errc::result_out_of_range ? UINT64_MAX : v;
}

uint16_t parsePort(std::string const& text) {
  uint64_t v = parseNumber(text, "port");
  if (v < 1 || v > 65535) throw UsageError(fmt::format("port out of range: {} (1-65535)", text));
  return static_cast<uint16_t>(v);
}

uint32_t parseU32(std::optional<std::string> const& text, char const* what) {
  if (!text) return 0;
  uint64_t v = parseNumber(*text, what);
  if (v > UINT32_MAX) {
    throw UsageError(fmt::format("{} out of range: {} (0-{})", what, *text, UINT32_MAX));
  }
  return static_cast<uint32_t>(v);
}

IpGenPrefix parsePrefix(std::string const& text) {
  try {
    return IpGenPrefix(text);
  } catch (Zent::ParseError const&) {
    throw UsageError(fmt::format(
        "malformed prefix '{}' (an address and a length: 10.0.0.0/8, 2001:db8::/32)", text));
  }
}

// Each prefix once, in the order given.
std::vector<IpGenPrefix> parsePrefixes(std::vector<std::string> const& texts) {
  std::vector<IpGenPrefix> out;
  for (auto const& t : texts) {
    IpGenPrefix p = parsePrefix(t);
    if (std::find(out.begin(), out.end(), p) == out.end()) out.push_back(p);
  }
  return out;
}

void checkPrefixCount(size_t n) {
  if (n > kMaxDecapIps) {
    throw UsageError(
        fmt::format("too many prefixes: {} (a group holds at most {})", n, kMaxDecapIps));
  }
}

DecapTunnelType parseTunnelType(std::string const& text) {
  DecapTunnelType t{};
  if (!Tunnel::Decap::parseDecapTunnelType(text, t)) {
    throw UsageError(fmt::format("unknown tunnel type '{}' (gre, ipip or udp)", text));
  }
  return t;
}

PayloadType parsePayloadType(std::string const& text) {
  PayloadType t{};
  if (!Tunnel::Decap::parsePayloadType(text, t)) {
    throw UsageError(
        fmt::format("unknown payload type '{}' (ipv4, ipv6, ip, mpls or ethernet)", text));
  }
  return t;
}

bool parseBool(std::string const& text) {
  if (text == "true") return true;
  if (text == "false") return false;
  throw UsageError(fmt::format("decap-ready takes true or false, not '{}'", text));
}

// A group or nexthop-group name, by the rule both keep.
Zent::String configName(std::string const& text, char const* what, size_t maxLen) {
  if (!Tunnel::Config::validConfigName(text, maxLen)) {
    throw UsageError(
        fmt::format("bad {} name '{}' (1-{} of A-Z a-z 0-9 _ . : -)", what, text, maxLen));
  }
  return Zent::String(text);
}
Zent::String groupName(std::string const& text) {
  return configName(text, "decap group", DecapGroup::kMaxNameLen);
}
Zent::String nexthopGroupName(std::string const& text) {
  return configName(text, "nexthop group", NexthopGroupTunnelConfigEntry::kMaxNameLen);
}

// ---- the entities in the state database ----

std::string prefixCount(uint32_t n) { return fmt::format("{} prefix{}", n, n == 1 ? "" : "es"); }

std::string groupSummary(DecapGroup const& g) {
  return fmt::format("{}, {}", Tunnel::Decap::decapTunnelTypeName(g.tunnelType()),
                     prefixCount(g.decapIpCount()));
}

std::string entrySummary(NexthopGroupTunnelConfigEntry const& e) {
  return fmt::format("group {}, pref {}, metric {}", e.nhgName().view(), e.igpPref(),
                     e.igpMetric());
}

// "pid N" out of the table service's refusal, which ends in "(pid N)".
std::string writerOf(std::string const& message) {
  size_t open = message.rfind(" (");
  if (open == std::string::npos || !message.ends_with(')')) return "another process";
  return message.substr(open + 2, message.size() - open - 3);
}

// The entity at `path`, loaded from the store and ready for one change. When
// it is absent it is created.
std::unique_ptr<Keepdb::Binding> openWriter(std::string const& root, char const* path,
                                            Zent::Ptr<Zent::Entity> const& entity,
                                            Keepdb::Schema const& schema) {
  try {
    return std::make_unique<Keepdb::Binding>(root, path, entity, schema, Keepdb::Mode::writerLoad);
  } catch (Tamsel::Error const& e) {
    if (e.errnoValue() == EBUSY) {
      throw CtlError(fmt::format("{} is being written by {}", path, writerOf(e.what())));
    }
    throw CtlError(fmt::format("cannot open {} under {}: {}", path, root, e.what()));
  }
}

std::unique_ptr<Keepdb::Binding> openReader(std::string const& root, char const* path,
                                            Zent::Ptr<Zent::Entity> const& entity,
                                            Keepdb::Schema const& schema) {
  try {
    return std::make_unique<Keepdb::Binding>(root, path, entity, schema, Keepdb::Mode::reader);
  } catch (Tamsel::Error const& e) {
    throw CtlError(fmt::format("cannot read {} under {}: {}", path, root, e.what()));
  }
}

// Publishes the one change made and says what it was.
int report(Keepdb::Binding& b, std::string const& subject, std::string const& changed) {
  if (b.flush() == 0) {
    fmt::print("{} unchanged\n", subject);
  } else {
    fmt::print("{} {}\n", subject, changed);
  }
  return kExitOk;
}

// A change or deletion needs the thing it names; an absent entity is not
// created for it.
void requireEntity(std::string const& root, char const* path, std::string const& missing) {
  if (!Keepdb::exists(root, path)) throw CtlError(missing);
}

struct DecapWriter {
  explicit DecapWriter(std::string const& root)
      : config(Tunnel::Decap::configFactory()),
        binding(openWriter(root, kDecapConfigPath, config, Tunnel::Decap::configSchema())) {}
  Zent::Ptr<Tunnel::Decap::Config> config;
  std::unique_ptr<Keepdb::Binding> binding;
};

struct NexthopGroupWriter {
  explicit NexthopGroupWriter(std::string const& root)
      : config(Tunnel::NexthopGroup::configFactory()),
        binding(openWriter(root, kNexthopGroupConfigPath, config,
                           Tunnel::NexthopGroup::configSchema())) {}
  Zent::Ptr<Tunnel::NexthopGroup::Config> config;
  std::unique_ptr<Keepdb::Binding> binding;
};

Zent::Ptr<DecapGroup> newGroup(Zent::String const& name, DecapTunnelType type,
                               std::vector<IpGenPrefix> const& ips) {
  auto g = Zent::Ptr<DecapGroup>(Zent::newTracked<DecapGroup>(name, type));
  for (uint32_t i = 0; i < ips.size(); ++i) g->decapIpIs(DecapIpIndex(i), ips[i]);
  return g;
}

int decapGroupSet(ConfigOptions const& o) {
  Zent::String name = groupName(o.key);
  DecapTunnelType type = parseTunnelType(o.type.value_or(""));
  auto ips = parsePrefixes(o.ips);
  checkPrefixCount(ips.size());
  auto g = newGroup(name, type, ips);
  DecapWriter w(o.root);
  w.config->decapGroupIs(g);
  return report(*w.binding, fmt::format("decap group {}", o.key), "set: " + groupSummary(*g));
}

int decapGroupChange(ConfigOptions const& o) {
  Zent::String name = groupName(o.key);
  std::optional<DecapTunnelType> type;
  if (o.type) type = parseTunnelType(*o.type);
  auto adds = parsePrefixes(o.addIps);
  auto removes = parsePrefixes(o.removeIps);
  checkPrefixCount(adds.size());
  if (!type && adds.empty() && removes.empty()) {
    throw UsageError("decap-group change: nothing to change (--type, --add-ip or --remove-ip)");
  }
  std::string const missing = fmt::format("no decap group '{}'", o.key);
  requireEntity(o.root, kDecapConfigPath, missing);
  DecapWriter w(o.root);
  auto cur = w.config->decapGroup(name);
  if (!cur) throw CtlError(missing);
  std::vector<IpGenPrefix> ips(cur->decapIp().begin(), cur->decapIp().end());
  for (auto const& p : removes) {
    auto it = std::find(ips.begin(), ips.end(), p);
    if (it == ips.end()) {
      throw CtlError(fmt::format("decap group '{}' has no prefix {}", o.key, p.stringValue()));
    }
    ips.erase(it);
  }
  for (auto const& p : adds) {
    if (std::find(ips.begin(), ips.end(), p) == ips.end()) ips.push_back(p);
  }
  checkPrefixCount(ips.size());
  auto g = newGroup(name, type.value_or(cur->tunnelType()), ips);
  w.config->decapGroupIs(g);
  return report(*w.binding, fmt::format("decap group {}", o.key), "changed: " + groupSummary(*g));
}

int decapGroupDelete(ConfigOptions const& o) {
  Zent::String name = groupName(o.key);
  std::string const missing = fmt::format("no decap group '{}'", o.key);
  requireEntity(o.root, kDecapConfigPath, missing);
  DecapWriter w(o.root);
  if (!w.config->decapGroup(name)) throw CtlError(missing);
  w.config->decapGroupDel(name);
  return report(*w.binding, fmt::format("decap group {}", o.key), "deleted");
}

int decapPortSet(ConfigOptions const& o) {
  uint16_t port = parsePort(o.key);
  PayloadType payload = parsePayloadType(o.value);
  DecapWriter w(o.root);
  w.config->globalDestPortToPayloadTypeIs(port, payload);
  return report(*w.binding, fmt::format("decap port {}", port),
                fmt::format("set: {}", Tunnel::Decap::payloadTypeName(payload)));
}

int decapPortDelete(ConfigOptions const& o) {
  uint16_t port = parsePort(o.key);
  std::string const missing = fmt::format("no decap port {}", port);
  requireEntity(o.root, kDecapConfigPath, missing);
  DecapWriter w(o.root);
  if (!w.config->globalDestPortToPayloadTypes().find(port)) throw CtlError(missing);
  w.config->globalDestPortToPayloadTypeDel(port);
  return report(*w.binding, fmt::format("decap port {}", port), "deleted");
}

int decapReady(ConfigOptions const& o) {
  bool ready = parseBool(o.value);
  DecapWriter w(o.root);
  w.config->readyIs(ready);
  return report(*w.binding, "decap ready", fmt::format("set: {}", ready));
}

int nexthopGroupSet(ConfigOptions const& o) {
  IpGenPrefix prefix = parsePrefix(o.key);
  NexthopGroupTunnelConfigEntry e(prefix, nexthopGroupName(o.group.value_or("")),
                                  parseU32(o.pref, "pref"), parseU32(o.metric, "metric"));
  NexthopGroupWriter w(o.root);
  w.config->entryIs(e);
  return report(*w.binding, "nexthop-group entry " + prefix.stringValue(),
                "set: " + entrySummary(e));
}

int nexthopGroupChange(ConfigOptions const& o) {
  IpGenPrefix prefix = parsePrefix(o.key);
  std::optional<Zent::String> group;
  if (o.group) group = nexthopGroupName(*o.group);
  uint32_t pref = parseU32(o.pref, "pref");
  uint32_t metric = parseU32(o.metric, "metric");
  if (!group && !o.pref && !o.metric) {
    throw UsageError("nexthop-group change: nothing to change (--group, --pref or --metric)");
  }
  std::string const missing = "no nexthop-group entry " + prefix.stringValue();
  requireEntity(o.root, kNexthopGroupConfigPath, missing);
  NexthopGroupWriter w(o.root);
  auto const* cur = w.config->entries().find(prefix);
  if (!cur) throw CtlError(missing);
  NexthopGroupTunnelConfigEntry e = *cur;
  if (group) e.nhgNameIs(*group);
  if (o.pref) e.igpPrefIs(pref);
  if (o.metric) e.igpMetricIs(metric);
  w.config->entryIs(e);
  return report(*w.binding, "nexthop-group entry " + prefix.stringValue(),
                "changed: " + entrySummary(e));
}

int nexthopGroupDelete(ConfigOptions const& o) {
  IpGenPrefix prefix = parsePrefix(o.key);
  std::string const missing = "no nexthop-group entry " + prefix.stringValue();
  requireEntity(o.root, kNexthopGroupConfigPath, missing);
  NexthopGroupWriter w(o.root);
  if (!w.config->entries().find(prefix)) throw CtlError(missing);
  w.config->entryDel(prefix);
  return report(*w.binding, "nexthop-group entry " + prefix.stringValue(), "deleted");
}

// ---- show ----

std::vector<Zent::Ptr<DecapGroup const>> sortedGroups(Tunnel::Decap::Config const& c) {
  std::vector<Zent::Ptr<DecapGroup const>> out;
  for (auto it = c.decapGroups().begin(); it != c.decapGroups().end(); ++it) out.push_back(*it);
  std::sort(out.begin(), out.end(),
            [](auto const& a, auto const& b) { return a->name() < b->name(); });
  return out;
}

std::vector<std::pair<uint16_t, PayloadType>> sortedPorts(Tunnel::Decap::Config const& c) {
  std::vector<std::pair<uint16_t, PayloadType>> out;
  auto const& m = c.globalDestPortToPayloadTypes();
  for (auto it = m.begin(); it != m.end(); ++it) out.emplace_back(it.key(), *it);
  std::sort(out.begin(), out.end());
  return out;
}

std::vector<NexthopGroupTunnelConfigEntry> sortedEntries(Tunnel::NexthopGroup::Config const& c) {
  std::vector<NexthopGroupTunnelConfigEntry> out;
  for (auto it = c.entries().begin(); it != c.entries().end(); ++it) out.push_back(*it);
  std::sort(out.begin(), out.end(),
            [](auto const& a, auto const& b) { return a.prefix() < b.prefix(); });
  return out;
}

Json decapJson(Tunnel::Decap::Config const& c) {
  Json groups = Json::array(), ports = Json::array();
  for (auto const& g : sortedGroups(c)) groups.push_back(canonicalTextToJson(g->stringValue()));
  for (auto const& [port, payload] : sortedPorts(c)) {
    ports.push_back(
        {{"port", port}, {"payloadType", std::string(Tunnel::Decap::payloadTypeName(payload))}});
  }
  Json j;
  j["groups"] = std::move(groups);
  j["ports"] = std::move(ports);
  j["ready"] = c.ready();
  return j;
}

Json nexthopGroupJson(Tunnel::NexthopGroup::Config const& c) {
  Json entries = Json::array();
  for (auto const& e : sortedEntries(c)) entries.push_back(canonicalTextToJson(e.stringValue()));
  Json j;
  j["entries"] = std::move(entries);
  return j;
}

void printDecap(Tunnel::Decap::Config const& c, std::string const& root) {
  auto groups = sortedGroups(c);
  auto ports = sortedPorts(c);
  fmt::print("decapsulation configuration under {}: {} group{}, {} port{}, {}\n", root,
             groups.size(), groups.size() == 1 ? "" : "s", ports.size(),
             ports.size() == 1 ? "" : "s", c.ready() ? "ready" : "not ready");
  for (auto const& g : groups) {
    fmt::print("  group {}: {}\n", g->name().view(), groupSummary(*g));
    for (auto const& p : g->decapIp()) fmt::print("    {}\n", p.stringValue());
  }
  for (auto const& [port, payload] : ports) {
    fmt::print("  port {}: {}\n", port, Tunnel::Decap::payloadTypeName(payload));
  }
}

void printNexthopGroup(Tunnel::NexthopGroup::Config const& c, std::string const& root) {
  auto entries = sortedEntries(c);
  fmt::print("nexthop-group configuration under {}: {} entr{}\n", root, entries.size(),
             entries.size() == 1 ? "y" : "ies");
  for (auto const& e : entries) {
    fmt::print("  {:<20} {}\n", e.prefix().stringValue(), entrySummary(e));
  }
}

int show(ConfigOptions const& o) {
  checkStateRoot(o.root);
  bool const hasDecap = Keepdb::exists(o.root, kDecapConfigPath);
  bool const hasNexthopGroup = Keepdb::exists(o.root, kNexthopGroupConfigPath);
  if (!hasDecap && !hasNexthopGroup) {
    throw CtlError(fmt::format("no configuration under {}", o.root));
  }
  // Readers load the whole entity when they attach.
  auto decap = Tunnel::Decap::configFactory();
  auto nexthopGroup = Tunnel::NexthopGroup::configFactory();
  std::unique_ptr<Keepdb::Binding> decapReader, nexthopGroupReader;
  if (hasDecap) {
    decapReader = openReader(o.root, kDecapConfigPath, decap, Tunnel::Decap::configSchema());
  }
  if (hasNexthopGroup) {
    nexthopGroupReader = openReader(o.root, kNexthopGroupConfigPath, nexthopGroup,
                                    Tunnel::NexthopGroup::configSchema());
  }
  if (o.json) {
    Json j;
    j["root"] = o.root;
    j["decap"] = hasDecap ? decapJson(*decap) : Json(nullptr);
    j["nexthopGroup"] = hasNexthopGroup ? nexthopGroupJson(*nexthopGroup) : Json(nullptr);
    std::cout << j.dump(2) << "\n";
    return kExitOk;
  }
  if (hasDecap) {
    printDecap(*decap, o.root);
  } else {
    fmt::print("no decapsulation configuration under {}\n", o.root);
  }
  if (hasNexthopGroup) {
    printNexthopGroup(*nexthopGroup, o.root);
  } else {
    fmt::print("no nexthop-group configuration under {}\n", o.root);
  }
  std::fflush(stdout);
  return kExitOk;
}

}  // namespace

int runConfig(ConfigOptions const& o) {
  switch (o.action) {
    case ConfigAction::show:
      return show(o);
    case ConfigAction::decapGroupSet:
      return decapGroupSet(o);
    case ConfigAction::decapGroupChange:
      return decapGroupChange(o);
    case ConfigAction::decapGroupDelete:
      return decapGroupDelete(o);
    case ConfigAction::decapPortSet:
      return decapPortSet(o);
    case ConfigAction::decapPortDelete:
      return decapPortDelete(o);
    case ConfigAction::decapReady:
      return decapReady(o);
    case ConfigAction::nexthopGroupSet:
      return nexthopGroupSet(o);
    case ConfigAction::nexthopGroupChange:
      return nexthopGroupChange(o);
    case ConfigAction::nexthopGroupDelete:
      return nexthopGroupDelete(o);
  }
  return kExitUsage;
}

}  // namespace TunnelCtl
