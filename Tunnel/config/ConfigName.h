#pragma once
// The names configuration keys use (group names, nexthop-group names): they
// become state-database keys and command-line words, so a small alphabet.

#include <cstddef>
#include <string_view>

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

}  // namespace Tunnel::Config
