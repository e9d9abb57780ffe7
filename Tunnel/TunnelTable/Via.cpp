#include "Tunnel/TunnelTable/Via.h"

#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Tunnel::TunnelTable {

namespace {

constexpr const char* kViaName = "Tunnel::TunnelTable::Via";

}  // namespace

Via::Via(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader reader(std::string_view(it.ptr(), static_cast<size_t>(end - it)), kViaName);
  if (reader.fields() != 2) {
    throw Zent::ParseError(fmt::format("{}: expected 2 fields, got {}", kViaName, reader.fields()));
  }
  nextHop_ = Zent::parseFieldText<Vorn::IpGenAddr>(reader.field("nextHop"), kViaName);
  intfId_ = Zent::parseFieldText<Vorn::IntfId>(reader.field("intfId"), kViaName);
  it = end;
}

std::string Via::stringValue() const {
  Zent::ValueText text(kViaName);
  text.field("nextHop", nextHop_).field("intfId", intfId_);
  return std::move(text).str();
}

std::string Via::dumpLine() const {
  return fmt::format("nextHop: {}, intfId: {}\n", nextHop_.stringValue(), intfId_.stringValue());
}

}  // namespace Tunnel::TunnelTable
