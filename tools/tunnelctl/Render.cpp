#include "tools/tunnelctl/Render.h"

#include <algorithm>
#include <ostream>
#include <unordered_set>

#include <fmt/format.h>

#include "Tunnel/framework/TypeRegistry.h"
#include "tools/tunnelctl/JsonText.h"
#include "tools/tunnelctl/TunnelIdText.h"

namespace TunnelCtl {

using Tunnel::TunnelTable::TunnelId;
using Tunnel::TunnelTable::TunnelTableBase;

namespace {

// Looks `key` up once more: a lookup that reports corruption names the
// record's offset, one that finds nothing means the entry went meanwhile.
void recheck(MountedTable& table, TunnelId key, EntryListing& out) {
  table.takeCorruptions();
  std::string text = table.table().entryText(key);
  auto reports = table.takeCorruptions();
  if (!text.empty()) {
    out.entries.emplace_back(key, std::move(text));
  } else if (!reports.empty()) {
    out.corrupt.push_back({key, reports.front()});
  }
}

}  // namespace

EntryListing listEntries(MountedTable& table) {
  EntryListing out;
  TunnelTableBase const& t = table.table();
  Zent::GenericIf const* tableType = Zent::type(table.file().typeName);
  Zent::GenericIf const* entryType = t.entryType();
  std::unique_ptr<Zent::GenericIterator> it;
  if (tableType) it = tableType->genericIfIterator(&t, TunnelTableBase::kEntryId);
  std::unordered_set<uint64_t> seen;
  for (; it && it->iterNonnull(); it->iterInc()) {
    TunnelId key = *static_cast<TunnelId const*>(it->iterKey());
    seen.insert(key.value());
    out.entries.emplace_back(key, entryType->genericIfStrRep(it->iterObj()));
  }
  // The iterator passes over records it cannot read; find out which were
  // corrupt rather than gone.
  for (TunnelId const& key : t.entryKeys(nullptr, SIZE_MAX)) {
    if (!seen.count(key.value())) recheck(table, key, out);
  }
  std::sort(out.entries.begin(), out.entries.end(),
            [](auto const& a, auto const& b) { return a.first < b.first; });
  return out;
}

EntryListing lookupEntries(MountedTable& table, std::vector<TunnelId> const& keys) {
  EntryListing out;
  for (TunnelId const& key : keys) recheck(table, key, out);
  return out;
}

void printEntries(std::ostream& out, MountedTable const& table, EntryListing const& listing,
                  EntryForm form) {
  switch (form) {
    case EntryForm::text:
      for (auto const& [key, text] : listing.entries) out << text << '\n';
      break;
    case EntryForm::dump:
      for (auto const& [key, text] : listing.entries) {
        std::string dump = table.table().entryDumpText(key);
        if (dump.empty()) continue;  // removed since it was listed
        out << TunnelTool::tunnelIdLabel(key) << " (" << key.value() << ")\n" << dump << '\n';
      }
      break;
    case EntryForm::json: {
      auto all = nlohmann::ordered_json::array();
      for (auto const& [key, text] : listing.entries) all.push_back(canonicalTextToJson(text));
      out << all.dump(2) << '\n';
      break;
    }
  }
}

std::string corruptText(CorruptRecord const& c) {
  return fmt::format("corrupt record, key {} ({}): {}", TunnelTool::tunnelIdLabel(c.key),
                     c.key.value(), c.message);
}

}  // namespace TunnelCtl
