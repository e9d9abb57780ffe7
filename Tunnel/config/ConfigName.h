#pragma once
// The names configuration keys use (group names, nexthop-group names): they
// become state-database keys and command-line words, so a small alphabet.

#include <cstddef>
#include <string>
#include <string_view>

#include "Tunnel/framework/Range.h"

namespace Tunnel::Config {

// 1 to maxLen characters of A-Z a-z 0-9 _ . : -
inline bool validConfigName(std::string_view name, size_t maxLen) {
  if (name.empty() || name.size() > maxLen) return false;
  for (char c : name) {
    bool const ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '_' || c == '.' || c == ':' || c == '-';
    if (!ok) return false;
  }
  return true;
}

// Throws Zent::RangeException naming `field` when `name` is not a valid
// configuration name of at most `maxLen` characters: a writer must not keep
// a name every reader would refuse.
inline void requireConfigName(std::string_view field, std::string_view name, size_t maxLen) {
  if (validConfigName(name, maxLen)) return;
  Zent::throwRangeException(std::string(field) + " '" + std::string(name) + "' not allowed: 1 to " +
                            std::to_string(maxLen) + " characters of A-Z a-z 0-9 _ . : -");
}

}  // namespace Tunnel::Config
