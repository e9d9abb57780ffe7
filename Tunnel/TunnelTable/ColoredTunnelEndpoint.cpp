#include "Tunnel/TunnelTable/ColoredTunnelEndpoint.h"

#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Tunnel::TunnelTable {

namespace {

constexpr const char* kTypeName = "Tunnel::TunnelTable::ColoredTunnelEndpoint";

}  // namespace

ColoredTunnelEndpoint::ColoredTunnelEndpoint(Zent::String::IteratorConst& it,
                                             Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader reader(std::string_view(it.ptr(), static_cast<size_t>(end - it)),
                               kTypeName);
  if (reader.fields() != 3) {
    throw Zent::ParseError(
        fmt::format("{}: expected 3 fields, got {}", kTypeName, reader.fields()));
  }
  tep_ = Zent::parseFieldText<Vorn::IpGenPrefix>(reader.field("tep"), kTypeName);
  color_ = Zent::parseFieldText<uint32_t>(reader.field("color"), kTypeName);
  isColored_ = Zent::parseFieldText<bool>(reader.field("isColored"), kTypeName) ? 1 : 0;
  it = end;
}

bool ColoredTunnelEndpoint::wellFormed() const {
  return tep_.wellFormed() && isColored_ <= 1 && reserved_[0] == 0 && reserved_[1] == 0 &&
         reserved_[2] == 0;
}

std::string ColoredTunnelEndpoint::stringValue() const {
  Zent::ValueText text(kTypeName);
  text.field("tep", tep_).field("color", color_).field("isColored", isColored());
  return std::move(text).str();
}

}  // namespace Tunnel::TunnelTable
