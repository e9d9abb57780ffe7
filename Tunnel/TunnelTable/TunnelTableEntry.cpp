#include "Tunnel/TunnelTable/TunnelTableEntry.h"

#include <utility>

namespace Tunnel::TunnelTable {

namespace {

constexpr uint32_t kEndpointRecordLen = Vorn::IpGenPrefix::kRecordSize;
constexpr uint32_t kReservedLen = 12;

// The checks of deserializeLenBase, on the base record's own reader.
void checkBaseRecord(RecordReader& r) {
  r.get<TunnelId>();
  r.get<TunnelId>();
  r.get<TunnelEntryPref>();
  r.get<uint32_t>();
  r.get<TunnelBandwidth>();
  r.get<bool>();
  uint8_t const endpoints = r.get<uint8_t>();
  if (endpoints > EndpointArray::capacity) {
    r.fail();
    return;
  }
  for (uint32_t i = 0; i < endpoints; ++i) r.get<Vorn::IpGenPrefix>();
  r.skipZeros(kEndpointRecordLen * (EndpointArray::capacity - endpoints));
  uint8_t const nameLen = r.get<uint8_t>();
  if (nameLen > NameArray::capacity) {
    r.fail();
    return;
  }
  r.skip(nameLen);
  r.skipZeros(NameArray::capacity - nameLen);
  r.skipZeros(kReservedLen);
}

}  // namespace

TunnelTableEntry::TunnelTableEntry(Zent::String::IteratorConst&,
                                   Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(TunnelTableEntry);
}

void TunnelTableEntry::nameIs(std::string_view text) {
  // The exception an index past the name's end makes.
  if (text.size() > NameArray::capacity) Zent::throwRangeException(NameIndex::message());
  NameArray name;
  for (char c : text) name.push(static_cast<uint8_t>(c));
  name_ = name;
}

bool operator==(TunnelTableEntry const& a, TunnelTableEntry const& b) {
  return a.tunnelId_ == b.tunnelId_ && a.nexthopTunnelId_ == b.nexthopTunnelId_ &&
         a.entryPref_ == b.entryPref_ && a.entryMetric_ == b.entryMetric_ &&
         a.tunnelBw_ == b.tunnelBw_ && a.viasOrdered_ == b.viasOrdered_ &&
         a.endpoint_ == b.endpoint_ && a.name_ == b.name_;
}

uint32_t TunnelTableEntry::hashBase(uint32_t seed) const {
  uint32_t const nameCount = name_.count();
  seed = hashFields(seed, tunnelId_, nexthopTunnelId_, entryPref_, entryMetric_, tunnelBw_,
                    viasOrdered_, endpoint_, nameCount);
  return Zent::hashBytes(name_.data(), nameCount, seed);
}

void TunnelTableEntry::appendBaseText(Zent::ValueText& text) const {
  text.field("tunnelId", tunnelId_)
      .field("nexthopTunnelId", nexthopTunnelId_)
      .field("entryPref", entryPref_)
      .field("entryMetric", entryMetric_)
      .field("tunnelBw", tunnelBw_)
      .field("viasOrdered", viasOrdered_)
      .field("endpoint", Zent::arrayText(endpoint_))
      .field("name", Zent::arrayText(name_));
}

std::string TunnelTableEntry::stringValue() const {
  Zent::ValueText text(kTypeName);
  appendBaseText(text);
  return std::move(text).str();
}

void TunnelTableEntry::dumpTunnelIdLine(DumpContext* ctx, int indent) const {
  dumpf(ctx, indent, "TunnelId: (Type: {}, Index: {})\n",
        TunnelId::tunnelTypeToCliStrep(tunnelId_.tunnelType(), false), tunnelId_.tunnelIndex());
}

void TunnelTableEntry::dumpNextHopTunnelIdLine(DumpContext* ctx, int indent) const {
  dumpf(ctx, indent, "nextHopTunnelId: (Type: {}, Index: {})\n",
        TunnelId::tunnelTypeToCliStrep(nexthopTunnelId_.tunnelType(), false),
        nexthopTunnelId_.tunnelIndex());
}

void TunnelTableEntry::dumpTepLine(DumpContext* ctx, int indent) const {
  dumpf(ctx, indent, "tep: {}\n", tep().stringValue());
}

void TunnelTableEntry::dumpBase(DumpContext* ctx, int indent) const {
  dumpTunnelIdLine(ctx, indent);
  dumpTepLine(ctx, indent);
}

void TunnelTableEntry::serialize(void* buf) const {
  RecordWriter w(buf, serializeLen());
  serializeBase(w);
}

void TunnelTableEntry::deserialize(void const* buf, unsigned len) {
  RecordReader r(buf, len);
  deserializeBase(r);
  r.expectOk(kTypeName);
}

uint32_t TunnelTableEntry::deserializeLen(void const* buf, unsigned len) const {
  RecordReader r(buf, len);
  return deserializeLenBase(r);
}

void TunnelTableEntry::serializeBase(RecordWriter& w) const {
  w.put(tunnelId_);
  w.put(nexthopTunnelId_);
  w.put(entryPref_);
  w.put(entryMetric_);
  w.put(tunnelBw_);
  w.put(viasOrdered_);
  w.put(static_cast<uint8_t>(endpoint_.count()));
  w.putBytes(endpoint_.data(), kEndpointRecordLen * endpoint_.count());
  w.putZeros(kEndpointRecordLen * (EndpointArray::capacity - endpoint_.count()));
  w.put(static_cast<uint8_t>(name_.count()));
  w.putBytes(name_.data(), name_.count());
  w.putZeros(NameArray::capacity - name_.count());
  w.putZeros(kReservedLen);
}

uint32_t TunnelTableEntry::deserializeLenBase(RecordReader& whole) {
  RecordReader r = whole.part(kBaseRecordLen);
  checkBaseRecord(r);
  whole.join(r);
  return whole.ok() ? kBaseRecordLen : 0;
}

template <bool kChecked>
void TunnelTableEntry::deserializeBase(RecordReader& whole) {
  RecordReader r = whole.part(kBaseRecordLen);
  // Checked, the fill must be zero, as deserializeLenBase demands.
  auto fill = [&r](uint64_t n) { return kChecked ? r.skipZeros(n) : r.skip(n); };
  r.get(tunnelId_);
  r.get(nexthopTunnelId_);
  r.get(entryPref_);
  r.get(entryMetric_);
  r.get(tunnelBw_);
  r.get(viasOrdered_);
  uint8_t const endpoints = r.get<uint8_t>();
  r.template getElements<EndpointArray, kChecked>(endpoint_, endpoints);
  if (!r.ok()) return whole.join(r);
  fill(kEndpointRecordLen * (EndpointArray::capacity - endpoints));
  uint8_t const nameLen = r.get<uint8_t>();
  r.template getElements<NameArray, kChecked>(name_, nameLen);
  if (!r.ok()) return whole.join(r);
  fill(NameArray::capacity - nameLen);
  fill(kReservedLen);
  whole.join(r);
}
template void TunnelTableEntry::deserializeBase<false>(RecordReader&);
template void TunnelTableEntry::deserializeBase<true>(RecordReader&);

}  // namespace Tunnel::TunnelTable
