#pragma once
// The record every store holds: an LDP tunnel entry with one via (680 bytes
// as a table record). The libtunnel row writes the entry itself; the other
// stores get its record bytes.

#include <cstdint>

#include "Tunnel/TunnelTable/IgpEntries.h"

namespace PeerBench {

// The LDP tunnel of `key` (a TunnelId value) with metric `version`.
Tunnel::TunnelTable::LdpTunnelTableEntry ldpEntry(uint64_t key, uint32_t version);

// The TunnelId value of the i-th LDP tunnel (i from 0).
uint64_t ldpKey(uint64_t i);

}  // namespace PeerBench
