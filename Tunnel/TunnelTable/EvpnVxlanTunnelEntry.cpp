#include "Tunnel/TunnelTable/EvpnVxlanTunnelEntry.h"

#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "Tunnel/framework/Text.h"

namespace Tunnel::TunnelTable {

namespace {

constexpr const char* kEvpnEntryName = "Tunnel::TunnelTable::EvpnVxlanTunnelEntry";

}  // namespace

EvpnVxlanTunnelEntry::EvpnVxlanTunnelEntry(Zent::String::IteratorConst& it,
                                           Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader reader(std::string_view(it.ptr(), static_cast<size_t>(end - it)),
                               kEvpnEntryName);
  if (reader.fields() != 2) {
    throw Zent::ParseError(
        fmt::format("{}: expected 2 fields, got {}", kEvpnEntryName, reader.fields()));
  }
  tunnelId_ = Zent::parseFieldText<TunnelId>(reader.field("tunnelId"), kEvpnEntryName);
  tunnelInfo_ = Zent::parseFieldText<VxlanTunnelInfo>(reader.field("tunnelInfo"), kEvpnEntryName);
  it = end;
}

std::string EvpnVxlanTunnelEntry::stringValue() const {
  Zent::ValueText text(kEvpnEntryName);
  text.field("tunnelId", tunnelId_).field("tunnelInfo", tunnelInfo_);
  return std::move(text).str();
}

}  // namespace Tunnel::TunnelTable
