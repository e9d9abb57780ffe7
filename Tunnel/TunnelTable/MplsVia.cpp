#include "Tunnel/TunnelTable/MplsVia.h"

#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Tunnel::TunnelTable {

namespace {

constexpr const char* kMplsViaName = "Tunnel::TunnelTable::MplsVia";
constexpr const char* kMplsCosViaName = "Tunnel::TunnelTable::MplsCosVia";

Zent::ValueTextReader readFields(Zent::String::IteratorConst const& it,
                                 Zent::String::IteratorConst const& end, const char* typeName,
                                 size_t fields) {
  Zent::ValueTextReader reader(std::string_view(it.ptr(), static_cast<size_t>(end - it)), typeName);
  if (reader.fields() != fields) {
    throw Zent::ParseError(
        fmt::format("{}: expected {} fields, got {}", typeName, fields, reader.fields()));
  }
  return reader;
}

}  // namespace

MplsVia::MplsVia(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader reader = readFields(it, end, kMplsViaName, 3);
  nextHop_ = Zent::parseFieldText<Vorn::IpGenAddr>(reader.field("nextHop"), kMplsViaName);
  intfId_ = Zent::parseFieldText<Vorn::IntfId>(reader.field("intfId"), kMplsViaName);
  labels_ = Zent::parseFieldText<Vorn::MplsLabelOperation>(reader.field("labels"), kMplsViaName);
  it = end;
}

std::string MplsVia::stringValue() const {
  Zent::ValueText text(kMplsViaName);
  text.field("nextHop", nextHop_).field("intfId", intfId_).field("labels", labels_);
  return std::move(text).str();
}

std::string MplsVia::dumpLine() const {
  return fmt::format("nextHop: {}, intfId: {}, labels: [{}]\n", nextHop_.stringValue(),
                     intfId_.stringValue(), labels_.stringValue());
}

MplsCosVia::MplsCosVia(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader reader = readFields(it, end, kMplsCosViaName, 2);
  via_ = Zent::parseFieldText<MplsVia>(reader.field("via"), kMplsCosViaName);
  cosMask_ = Zent::parseFieldText<uint8_t>(reader.field("cosMask"), kMplsCosViaName);
  it = end;
}

std::string MplsCosVia::stringValue() const {
  Zent::ValueText text(kMplsCosViaName);
  text.field("via", via_).field("cosMask", cosMask_);
  return std::move(text).str();
}

}  // namespace Tunnel::TunnelTable
