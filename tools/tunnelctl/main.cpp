// tunnelctl: the operator's view of the shared-memory tunnel tables under a
// state root: which tables there are, their entries, their changes as they
// happen, their writers' counters, the redistribution they imply, the tunnel
// FIB and how its tunnels resolve, the tunnel RIB and its candidates, the
// multicast merge, the decapsulation and nexthop-group configuration, and a
// demo that runs producers and consumers against each other.

#include <CLI/CLI.hpp>

#include "Tunnel/shmem/Tamsel/ShmFile.h"
#include "tools/tunnelctl/Commands.h"

using namespace TunnelCtl;

namespace {

void addRoot(CLI::App* cmd, std::string& root) {
  cmd->add_option("--root", root, "State root the tables are mounted under")->capture_default_str();
}

// --dump and --json, at most one of them.
void addForms(CLI::App* cmd, EntryForm& form) {
  auto* dump = cmd->add_flag_callback(
      "--dump", [&form] { form = EntryForm::dump; }, "Entries in the indented dump form");
  auto* json = cmd->add_flag_callback(
      "--json", [&form] { form = EntryForm::json; },
      "Entries as JSON (field names as in the canonical text)");
  dump->excludes(json);
}

// config shows both configuration entities; each change is a command of
// its own under it, and sets `o.action` when it is the one parsed.
CLI::App* addConfig(CLI::App& app, ConfigOptions& o) {
  auto* cmd = app.add_subcommand(
      "config", "Show the decapsulation and nexthop-group configuration, or change it");
  cmd->require_subcommand(0, 1);
  cmd->add_flag("--json", o.json, "As JSON");
  addRoot(cmd, o.root);
  auto action = [&o](CLI::App* parent, char const* name, char const* what, ConfigAction a) {
    auto* c = parent->add_subcommand(name, what);
    c->callback([&o, a] { o.action = a; });
    addRoot(c, o.root);
    return c;
  };
  action(cmd, "show", "Both configuration entities (the default)", ConfigAction::show)
      ->add_flag("--json", o.json, "As JSON");

  auto* group =
      cmd->add_subcommand("decap-group", "Create, change or delete a decapsulation group");
  group->require_subcommand(1);
  auto* set = action(group, "set", "Create or replace a group", ConfigAction::decapGroupSet);
  set->add_option("name", o.key, "Group name")->required();
  set->add_option("--type", o.type, "Tunnel type: gre, ipip or udp")->required();
  set->add_option("--ip", o.ips, "A destination prefix the group accepts (repeatable)");
  auto* change =
      action(group, "change", "Change a group's type or prefixes", ConfigAction::decapGroupChange);
  change->add_option("name", o.key, "Group name")->required();
  change->add_option("--type", o.type, "Tunnel type: gre, ipip or udp");
  change->add_option("--add-ip", o.addIps, "A prefix to add (repeatable)");
  change->add_option("--remove-ip", o.removeIps, "A prefix to remove (repeatable)");
  action(group, "delete", "Delete a group", ConfigAction::decapGroupDelete)
      ->add_option("name", o.key, "Group name")
      ->required();

  auto* port = cmd->add_subcommand("decap-port", "Map a UDP destination port to a payload type");
  port->require_subcommand(1);
  auto* portSet = action(port, "set", "Map a port", ConfigAction::decapPortSet);
  portSet->add_option("port", o.key, "UDP destination port, 1-65535")->required();
  portSet->add_option("payload", o.value, "ipv4, ipv6, ip, mpls or ethernet")->required();
  action(port, "delete", "Remove a port's mapping", ConfigAction::decapPortDelete)
      ->add_option("port", o.key, "UDP destination port")
      ->required();

  action(cmd, "decap-ready", "Say whether the decapsulation configuration is complete",
         ConfigAction::decapReady)
      ->add_option("ready", o.value, "true or false")
      ->required();

  auto* nhg =
      cmd->add_subcommand("nexthop-group", "Create, change or delete a nexthop-group tunnel");
  nhg->require_subcommand(1);
  auto* nhgSet = action(nhg, "set", "Create or replace an entry", ConfigAction::nexthopGroupSet);
  nhgSet->add_option("prefix", o.key, "The tunnel's prefix")->required();
  nhgSet->add_option("--group", o.group, "Nexthop group name")->required();
  nhgSet->add_option("--pref", o.pref, "IGP preference (default 0)");
  nhgSet->add_option("--metric", o.metric, "IGP metric (default 0)");
  auto* nhgChange =
      action(nhg, "change", "Change an entry's fields", ConfigAction::nexthopGroupChange);
  nhgChange->add_option("prefix", o.key, "The tunnel's prefix")->required();
  nhgChange->add_option("--group", o.group, "Nexthop group name");
  nhgChange->add_option("--pref", o.pref, "IGP preference");
  nhgChange->add_option("--metric", o.metric, "IGP metric");
  action(nhg, "delete", "Delete an entry", ConfigAction::nexthopGroupDelete)
      ->add_option("prefix", o.key, "The tunnel's prefix")
      ->required();
  return cmd;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"The operator's view of shared-memory tunnel tables.", "tunnelctl"};
  app.require_subcommand(1);
  app.footer("Run 'tunnelctl COMMAND --help' for a command's options.");
  // A mistake on the command line is one line, like every other message.
  app.failure_message([](CLI::App const*, CLI::Error const& e) {
    return std::string("tunnelctl: ") + e.what() + " (--help tells more)\n";
  });

  TablesOptions tables;
  auto* tablesCmd = app.add_subcommand("tables", "List every table under the state root");
  addRoot(tablesCmd, tables.root);
  tablesCmd->add_flag("--json", tables.json, "As JSON");

  ShowOptions show;
  auto* showCmd =
      app.add_subcommand("show", "Show the entries of a table (canonical text by default)");
  showCmd->add_option("table", show.table, "Table name (as 'tables' lists it)")->required();
  showCmd->add_option("tunnel-id", show.ids,
                      "Tunnel ids: a number (decimal or 0x hex) or TYPE:INDEX (ldpTunnel:7)");
  addForms(showCmd, show.form);
  addRoot(showCmd, show.root);

  FibOptions fib;
  auto* fibCmd = app.add_subcommand(
      "fib", "List the tunnel FIB's entries and encapsulations, or show entries of it");
  addRoot(fibCmd, fib.root);
  fibCmd->add_flag_callback(
      "--json", [&fib] { fib.form = EntryForm::json; }, "As JSON");
  auto* fibShowCmd = fibCmd->add_subcommand(
      "show", "Show FIB entries (canonical text by default; --dump resolves their encapsulations)");
  fibShowCmd->add_option("tunnel-id", fib.ids, "Tunnel ids, as 'show' takes them")->required();
  addForms(fibShowCmd, fib.form);
  addRoot(fibShowCmd, fib.root);

  ResolveOptions resolve;
  auto* resolveCmd = app.add_subcommand(
      "resolve", "Flatten a tunnel through the FIB and explain the path, down to real interfaces");
  resolveCmd->add_option("tunnel-id", resolve.tunnel, "Tunnel id, as 'show' takes it")->required();
  resolveCmd->add_flag("--json", resolve.json, "As JSON");
  addRoot(resolveCmd, resolve.root);

  WatchOptions watch;
  auto* watchCmd = app.add_subcommand(
      "watch", "Follow a table as a key shadow and print every change until interrupted");
  watchCmd->add_option("table", watch.table, "Table name")->required();
  watchCmd->add_flag("--json", watch.json, "One JSON object per change");
  addRoot(watchCmd, watch.root);

  CountersOptions counters;
  auto* countersCmd = app.add_subcommand("counters", "The counters a table's writer publishes");
  countersCmd->add_option("table", counters.table, "Table name")->required();
  countersCmd->add_flag("--json", counters.json, "As JSON");
  addRoot(countersCmd, counters.root);

  RedistOptions redist;
  auto* redistCmd = app.add_subcommand(
      "redist",
      "Run a protocol's redistribution machine over its table and print the configuration");
  redistCmd->add_option("protocol", redist.protocol, "ldp, isis-sr or bgp-lu")->required();
  redistCmd->add_flag("--watch", redist.watch, "Keep following the table; reprint on change");
  redistCmd->add_flag("--json", redist.json, "As JSON");
  addRoot(redistCmd, redist.root);

  RibOptions rib;
  auto* ribCmd = app.add_subcommand(
      "rib", "The tunnel RIB's winners per endpoint, or every candidate of one and why it lost");
  ribCmd->add_option("endpoint", rib.endpoint, "Endpoint prefix (10.0.0.1/32) or address");
  ribCmd->add_flag("--colored", rib.colored, "The colored tunnel RIB");
  ribCmd->add_option("--color", rib.color, "Only this color (implies --colored)");
  ribCmd->add_flag("--candidates", rib.candidates,
                   "Every candidate of ENDPOINT in rank order, with why each lost");
  ribCmd->add_flag("--json", rib.json, "As JSON");
  addRoot(ribCmd, rib.root);

  MulticastOptions multicast;
  auto* multicastCmd = app.add_subcommand(
      "multicast",
      "The multicast tables, the merge agent's status and whether the merge matches its inputs");
  multicastCmd->add_flag("--json", multicast.json, "As JSON");
  addRoot(multicastCmd, multicast.root);

  ConfigOptions config;
  auto* configCmd = addConfig(app, config);

  DemoOptions demo;
  auto* demoCmd = app.add_subcommand("demo",
                                     "Run LDP, IS-IS SR, BGP-LU and multicast producers, a "
                                     "redistribution consumer, a RIB calculator and the multicast "
                                     "merge, then report");
  demoCmd->add_option("--tunnels", demo.tunnels, "Tunnels per table")->capture_default_str();
  demoCmd->add_option("--seconds", demo.seconds, "Seconds of churn")->capture_default_str();
  demoCmd->add_option("--rate", demo.rate, "Churn writes per second per producer (0: flat out)")
      ->capture_default_str();
  demoCmd->add_flag("--keep", demo.keep, "Leave the tables for inspection");
  addRoot(demoCmd, demo.root);

  // CLI11 would call an unknown command a missing one.
  if (argc > 1 && argv[1][0] != '-') {
    bool known = false;
    for (auto const* cmd : app.get_subcommands({})) known = known || cmd->check_name(argv[1]);
    if (!known) {
      printError(std::string("unknown command '") + argv[1] +
                 "' (tables, show, fib, resolve, watch, counters, redist, rib, multicast, config, "
                 "demo; --help tells more)");
      return kExitUsage;
    }
  }
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    int rc = app.exit(e);
    return rc == 0 ? kExitOk : kExitUsage;
  }

  try {
    if (tablesCmd->parsed()) return runTables(tables);
    if (showCmd->parsed()) return runShow(show);
    if (fibCmd->parsed()) {
      fib.show = fibShowCmd->parsed();
      return runFib(fib);
    }
    if (resolveCmd->parsed()) return runResolve(resolve);
    if (watchCmd->parsed()) return runWatch(watch);
    if (countersCmd->parsed()) return runCounters(counters);
    if (redistCmd->parsed()) return runRedist(redist);
    if (ribCmd->parsed()) return runRib(rib);
    if (multicastCmd->parsed()) return runMulticast(multicast);
    if (configCmd->parsed()) return runConfig(config);
    if (demoCmd->parsed()) return runDemo(demo);
  } catch (UsageError const& e) {
    printError(e.what());
    return kExitUsage;
  } catch (CtlError const& e) {
    printError(e.what());
    return kExitRuntime;
  } catch (Tamsel::Error const& e) {
    printError(e.what());
    return kExitRuntime;
  } catch (std::exception const& e) {
    printError(e.what());
    return kExitRuntime;
  }
  return kExitUsage;
}
