// tunnelctl show: the entries of one table, all or by tunnel id, in the
// canonical text, dump or JSON form.

#include <cstdio>
#include <iostream>

#include <fmt/format.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "tools/tunnelctl/Commands.h"
#include "tools/tunnelctl/TunnelIdText.h"

namespace TunnelCtl {

using Tunnel::TunnelTable::TunnelId;

std::vector<TunnelId> parseTunnelIds(std::vector<std::string> const& texts) {
  std::vector<TunnelId> ids;
  for (auto const& text : texts) {
    try {
      ids.push_back(TunnelTool::parseTunnelIdText(text));
    } catch (Zent::ParseError const& e) {
      throw UsageError(fmt::format("bad tunnel id '{}': {}", text, e.what()));
    } catch (Zent::RangeException const& e) {
      throw UsageError(fmt::format("bad tunnel id '{}': {}", text, e.what()));
    }
  }
  return ids;
}

int runShow(ShowOptions const& o) {
  std::vector<TunnelId> ids = parseTunnelIds(o.ids);  // usage errors before touching anything
  MountedTable table(o.root, o.table, ZentTamsel::reader());
  if (table.file().writerPid != 0 && !table.file().writerAlive) {
    printNote(fmt::format("the writer of table {} (pid {}) is gone; showing what it left",
                          table.file().name, table.file().writerPid));
  }
  EntryListing listing = ids.empty() ? listEntries(table) : lookupEntries(table, ids);
  printEntries(std::cout, table, listing, o.form);
  std::cout.flush();

  int rc = kExitOk;
  for (auto const& c : listing.corrupt) {
    printError(corruptText(c));
    rc = kExitRuntime;
  }
  for (TunnelId const& id : ids) {
    bool found = false;
    for (auto const& e : listing.entries) found = found || e.first == id;
    for (auto const& c : listing.corrupt) found = found || c.key == id;
    if (!found) {
      printError(fmt::format("no entry {} ({}) in table {}", TunnelTool::tunnelIdLabel(id),
                             id.value(), table.file().name));
      rc = kExitRuntime;
    }
  }
  return rc;
}

}  // namespace TunnelCtl
