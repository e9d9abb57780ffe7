#pragma once
// Helpers of the command-line RIB tests: values by number, and a status's
// whole tree as text, so that two trees compare in one assertion.

#include <string>

#include <fmt/format.h>

#include "Tunnel/cli/TunnelPelagStatus.h"

namespace PelagTest {

using namespace Tunnel::TunnelTable;

inline ColoredTunnelEndpoint cep(uint32_t i) {
  return ColoredTunnelEndpoint(Vorn::IpGenPrefix(Vorn::IpGenAddr(0x0a000000u + i), 32), i % 3);
}

inline TunnelId tid(uint64_t i) { return TunnelId(ldpTunnel, i); }

// Every RIB, entry (empty ones included) and candidate with its value and ids.
inline std::string dump(TunnelPelagStatus const& s) {
  std::string out;
  for (auto const& [id, rib] : s.cliTunnelRibCollMap()) {
    out += fmt::format("rib {} {}\n", id, rib->name().view());
    for (auto const& [c, entry] : rib->entryMap()) {
      out += " " + c.stringValue() + "\n";
      for (auto const& [cid, cand] : entry->candidatesMap()) {
        out += fmt::format("  {} {}:", cid.stringValue(), cand->value());
        for (TunnelId t : cand->tunnelIds()) out += fmt::format(" {}", t.value());
        out += "\n";
      }
    }
  }
  return out;
}

}  // namespace PelagTest
