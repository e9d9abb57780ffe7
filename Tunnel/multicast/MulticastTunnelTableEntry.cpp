#include "Tunnel/multicast/MulticastTunnelTableEntry.h"

#include <cstring>
#include <string_view>

#include <fmt/format.h>

#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/framework/TypeRegistry.h"

namespace Tunnel::TunnelTable {

using Routing::Multicast::MulticastTreeId;

std::strong_ordering operator<=>(MulticastTunnelTableEntry const& a,
                                 MulticastTunnelTableEntry const& b) {
  if (auto c = a.tunnelId_.value() <=> b.tunnelId_.value(); c != 0) return c;
  if (auto c = static_cast<uint32_t>(a.tunnelType_) <=> static_cast<uint32_t>(b.tunnelType_);
      c != 0) {
    return c;
  }
  return a.mcastTreeId_ <=> b.mcastTreeId_;
}

uint32_t MulticastTunnelTableEntry::hash(uint32_t seed) const {
  seed = tunnelId_.hash(seed);
  uint32_t const type = tunnelType_;
  seed = Zent::hashBytes(&type, sizeof type, seed);
  return mcastTreeId_.hash(seed);
}

void MulticastTunnelTableEntry::serialize(void* buffer) const {
  RecordWriter w(buffer, serializeLen());
  w.put(tunnelId_);
  w.put(static_cast<uint32_t>(tunnelType_));
  std::string_view const name = mcastTreeId_.name();
  w.put(static_cast<uint32_t>(name.size()));
  std::memcpy(static_cast<char*>(buffer) + kFixedRecordLen, name.data(), name.size());
}

uint32_t MulticastTunnelTableEntry::baseRecordLen(void const* buffer, unsigned length) {
  RecordReader r(buffer, length);
  r.get<TunnelId>();
  r.get<uint32_t>();
  uint32_t const varLen = r.get<uint32_t>();
  if (!r.ok()) return 0;
  if (varLen > MulticastTreeId::kMaxNameLen || varLen > length - kFixedRecordLen) return 0;
  return kFixedRecordLen + varLen;
}

void MulticastTunnelTableEntry::deserialize(void const* buffer, unsigned length) {
  if (baseRecordLen(buffer, length) == 0) {
    throw RecordError(
        fmt::format("Tunnel::TunnelTable::MulticastTunnelTableEntry: no valid "
                    "record in {} bytes",
                    length));
  }
  RecordReader r(buffer, length);
  tunnelId_ = r.get<TunnelId>();
  tunnelType_ = static_cast<TunnelType>(r.get<uint32_t>());
  uint32_t const varLen = r.get<uint32_t>();
  mcastTreeId_ =
      MulticastTreeId(std::string_view(static_cast<char const*>(buffer) + kFixedRecordLen, varLen));
}

void MulticastTunnelTableEntry::appendBaseText(Zent::ValueText& text) const {
  text.field("tunnelId", tunnelId_)
      .field("tunnelType", tunnelType_)
      .field("mcastTreeId", mcastTreeId_.stringValue());
}

void MulticastTunnelTableEntry::parseBaseText(Zent::ValueTextReader const& r,
                                              const char* typeName) {
  tunnelId_ = Zent::parseFieldText<TunnelId>(r.field("tunnelId"), typeName);
  tunnelType_ = Zent::parseFieldText<TunnelType>(r.field("tunnelType"), typeName);
  mcastTreeId_ = Zent::parseFieldText<MulticastTreeId>(r.field("mcastTreeId"), typeName);
}

// ---- MplsMulticastTunnelTableEntry ----

MplsMulticastTunnelTableEntry::MplsMulticastTunnelTableEntry(Zent::String::IteratorConst&,
                                                             Zent::String::IteratorConst const&) {
  noStringConstructor(
      "\"No String constructor for MplsMulticastTunnelTableEntry - has collection\" == nullptr",
      __func__);
}

void MplsMulticastTunnelTableEntry::noStringConstructor(const char* assertion,
                                                        const char* function) {
  Dabin::assertFailed(assertion, __FILE__, function, __LINE__);
}

uint32_t MplsMulticastTunnelTableEntry::hash(uint32_t seed) const {
  return via_.hash(MulticastTunnelTableEntry::hash(seed));
}

MplsMulticastTunnelTableEntry::operator bool() const {
  static MplsMulticastTunnelTableEntry const kDefault{};
  return *this != kDefault;
}

std::string MplsMulticastTunnelTableEntry::textAs(const char* typeName) const {
  Zent::ValueText text(typeName);
  appendBaseText(text);
  text.field("via", Zent::arrayText(via_));
  return std::move(text).str();
}

void MplsMulticastTunnelTableEntry::serialize(void* buffer) const {
  uint32_t const base = MulticastTunnelTableEntry::serializeLen();
  MulticastTunnelTableEntry::serialize(buffer);
  RecordWriter w(static_cast<char*>(buffer) + base, serializeLen() - base);
  w.putList(via_);
}

uint32_t MplsMulticastTunnelTableEntry::recordLen(void const* buffer, unsigned length) {
  uint32_t const base = baseRecordLen(buffer, length);
  if (base == 0) return 0;
  RecordReader r(static_cast<char const*>(buffer) + base, length - base);
  r.checkList<MplsViaArray>();
  return r.ok() ? base + r.offset() : 0;
}

void MplsMulticastTunnelTableEntry::deserialize(void const* buffer, unsigned length) {
  uint32_t const base = baseRecordLen(buffer, length);
  if (base == 0) {
    throw RecordError(fmt::format("{}: no valid record in {} bytes", kTypeName, length));
  }
  RecordReader r(static_cast<char const*>(buffer) + base, length - base);
  MplsViaArray vias;
  r.getList(vias);  // a count over 600 throws before anything changes
  r.expectOk(kTypeName);
  MulticastTunnelTableEntry::deserialize(buffer, length);
  via_ = vias;
}

// ---- MldpTunnelTableEntry, StaticMcastTunnelTableEntry ----

MldpTunnelTableEntry::MldpTunnelTableEntry(Zent::String::IteratorConst&,
                                           Zent::String::IteratorConst const&) {
  noStringConstructor(
      "\"No String constructor for MldpTunnelTableEntry - has collection\" == nullptr", __func__);
}

MldpTunnelTableEntry::operator bool() const { return *this != MldpTunnelTableEntry(tunnelId()); }

StaticMcastTunnelTableEntry::StaticMcastTunnelTableEntry(Zent::String::IteratorConst&,
                                                         Zent::String::IteratorConst const&) {
  noStringConstructor(
      "\"No String constructor for StaticMcastTunnelTableEntry - has collection\" == nullptr",
      __func__);
}

StaticMcastTunnelTableEntry::operator bool() const {
  return *this != StaticMcastTunnelTableEntry(tunnelId());
}

// ---- MldpTunnelRibEntry ----

MldpTunnelRibEntry::MldpTunnelRibEntry(Zent::String::IteratorConst& it,
                                       Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader r(std::string_view(it.ptr(), static_cast<size_t>(end - it)), kTypeName);
  if (r.fields() != 3) {
    throw Zent::ParseError(fmt::format("{}: expected 3 fields, got {}", kTypeName, r.fields()));
  }
  parseBaseText(r, kTypeName);
  it = end;
}

std::string MldpTunnelRibEntry::stringValue() const {
  Zent::ValueText text(kTypeName);
  appendBaseText(text);
  return std::move(text).str();
}

MldpTunnelRibEntry::operator bool() const {
  return *this != MldpTunnelRibEntry(tunnelId(), mldpTunnel, {});
}

void registerMulticastValueTypes() {
  static bool done = [] {
    Zent::registerValueType<MplsMulticastTunnelTableEntry>(
        MplsMulticastTunnelTableEntry::kTypeName);
    Zent::registerValueType<MldpTunnelTableEntry>(MldpTunnelTableEntry::kTypeName);
    Zent::registerValueType<StaticMcastTunnelTableEntry>(StaticMcastTunnelTableEntry::kTypeName);
    Zent::registerValueType<MldpTunnelRibEntry>(MldpTunnelRibEntry::kTypeName);
    return true;
  }();
  (void)done;
}

}  // namespace Tunnel::TunnelTable
