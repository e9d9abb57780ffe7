#include "Tunnel/TunnelTable/TunnelVia.h"

#include <cstring>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Tunnel::TunnelTable {

namespace {

constexpr const char* kTypeName = "Tunnel::TunnelTable::TunnelVia";
// The IntfId record: bytes 0-3 kind and zero bytes, 4-7 the spare word,
// 8-15 the number. TunnelVia keeps all but the spare word.
constexpr size_t kHeadBytes = 4;
constexpr size_t kNumberOffset = 8;
constexpr size_t kNumberBytes = 8;

}  // namespace

TunnelVia::TunnelVia(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader reader(std::string_view(it.ptr(), static_cast<size_t>(end - it)),
                               kTypeName);
  if (reader.fields() != 3) {
    throw Zent::ParseError(
        fmt::format("{}: expected 3 fields, got {}", kTypeName, reader.fields()));
  }
  nextHop_ = Zent::parseFieldText<Vorn::IpGenAddr>(reader.field("nextHop"), kTypeName);
  intfIdIs(Zent::parseFieldText<Vorn::IntfId>(reader.field("intfId"), kTypeName));
  encapId_ = Zent::parseFieldText<EncapId>(reader.field("encapId"), kTypeName);
  it = end;
}

Vorn::IntfId TunnelVia::intfId() const {
  Vorn::IntfId out;
  auto* rec = reinterpret_cast<unsigned char*>(&out);
  std::memcpy(rec, intfId_, kHeadBytes);
  std::memcpy(rec + kNumberOffset, intfId_ + kHeadBytes, kNumberBytes);
  return out;
}

void TunnelVia::intfIdIs(Vorn::IntfId const& intfId) {
  auto const* rec = reinterpret_cast<unsigned char const*>(&intfId);
  std::memcpy(intfId_, rec, kHeadBytes);
  std::memcpy(intfId_ + kHeadBytes, rec + kNumberOffset, kNumberBytes);
}

bool TunnelVia::wellFormed() const {
  return nextHop_.wellFormed() && intfId().wellFormed() &&
         static_cast<uint32_t>(encapId_.encapType()) <=
             static_cast<uint32_t>(EncapType::vxlanEncap);
}

std::strong_ordering operator<=>(TunnelVia const& a, TunnelVia const& b) {
  if (auto c = a.nextHop_ <=> b.nextHop_; c != 0) return c;
  if (auto c = a.intfId() <=> b.intfId(); c != 0) return c;
  return a.encapId_ <=> b.encapId_;
}

std::string TunnelVia::stringValue() const {
  Zent::ValueText text(kTypeName);
  text.field("nextHop", nextHop_).field("intfId", intfId()).field("encapId", encapId_);
  return std::move(text).str();
}

}  // namespace Tunnel::TunnelTable
