#include "tools/tunnelctl/TunnelIdText.h"

#include <fmt/format.h>

#include "Tunnel/TunnelTableKeepdbTypes/TunnelType.h"
#include "Tunnel/framework/Text.h"

namespace TunnelTool {

using Tunnel::TunnelTable::TunnelId;
using Tunnel::TunnelTable::TunnelType;

TunnelId parseTunnelIdText(std::string_view text) {
  text = Zent::trimText(text);
  auto colon = text.find(':');
  if (colon == std::string_view::npos) {
    return TunnelId(Zent::parseUnsignedText<uint64_t>(text, "tunnel id"));
  }
  TunnelType type{};
  if (!sequenceToValue(text.substr(0, colon), type)) {
    throw Zent::ParseError(fmt::format("unknown tunnel type '{}'", text.substr(0, colon)));
  }
  uint64_t index = Zent::parseUnsignedText<uint64_t>(text.substr(colon + 1), "tunnel index");
  if (index > TunnelId::kIndexMask) {
    throw Zent::ParseError(fmt::format("index {} does not fit in 43 bits", index));
  }
  return TunnelId(type, index);
}

// The whole 43-bit index, also for the types that show fewer bits as their
// index: the label must name exactly one identifier.
std::string tunnelIdLabel(TunnelId id) {
  return fmt::format("{}:{}", stringValue(id.tunnelType()), id.value() & TunnelId::kIndexMask);
}

}  // namespace TunnelTool
