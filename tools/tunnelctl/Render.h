#pragma once
// Entries of a mounted table in the three forms `show` and `watch` print: the
// canonical text (one line per entry), the indented dump, and JSON converted
// from the canonical text. Entries are read through the type registry; a
// corrupt record is reported with its key and offset and the rest still shown.

#include <cstdint>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "Tunnel/TunnelTable/TunnelId.h"
#include "tools/tunnelctl/TableAccess.h"

namespace TunnelCtl {

enum class EntryForm { text, dump, json };

struct CorruptRecord {
  Tunnel::TunnelTable::TunnelId key;
  std::string message;  // names the table and the record's offset
};

struct EntryListing {
  // Canonical texts by key, in tunnel id order.
  std::vector<std::pair<Tunnel::TunnelTable::TunnelId, std::string>> entries;
  std::vector<CorruptRecord> corrupt;
};

// Every entry, walked with the registry's iterator of the table's type.
EntryListing listEntries(MountedTable& table);

// The entries under `keys`, in the order given; keys without an entry are
// left out (the caller sees which by comparing).
EntryListing lookupEntries(MountedTable& table,
                           std::vector<Tunnel::TunnelTable::TunnelId> const& keys);

// Writes the entries in `form`. The dump form heads each entry with its key.
void printEntries(std::ostream& out, MountedTable const& table, EntryListing const& listing,
                  EntryForm form);

// "corrupt record, key ldpTunnel:7 (3298534883335): <message>".
std::string corruptText(CorruptRecord const& c);

}  // namespace TunnelCtl
