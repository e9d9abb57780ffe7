#pragma once
// Where the configuration entities are kept in the state database, and the
// registration of their types, for tools that only need to find them.

namespace Tunnel::Config {

inline constexpr char const* kDecapConfigPath = "tunnel/config/decap";
inline constexpr char const* kNexthopGroupConfigPath = "tunnel/config/nexthopGroup";

}  // namespace Tunnel::Config

namespace Tunnel::Decap {
void registerTypes();
}  // namespace Tunnel::Decap

namespace Tunnel::NexthopGroup {
void registerTypes();
}  // namespace Tunnel::NexthopGroup
