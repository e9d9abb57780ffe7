#include "Tunnel/TunnelTable/ColoredEntries.h"

#include <utility>

namespace Tunnel::TunnelTable {

namespace {

constexpr uint32_t kFlexAlgoPadLen = 3;

}  // namespace

ColoredTunnelTableEntry::ColoredTunnelTableEntry(Zent::String::IteratorConst&,
                                                 Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(ColoredTunnelTableEntry);
}

SrTePolicyTunnelTableEntry::SrTePolicyTunnelTableEntry(Zent::String::IteratorConst&,
                                                       Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(SrTePolicyTunnelTableEntry);
}

FlexAlgoTunnelTableEntry::FlexAlgoTunnelTableEntry(Zent::String::IteratorConst&,
                                                   Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(FlexAlgoTunnelTableEntry);
}

bool operator==(ColoredTunnelTableEntry const& a, ColoredTunnelTableEntry const& b) {
  return static_cast<TunnelTableEntry const&>(a) == b && a.color_ == b.color_ &&
         a.igpPref_ == b.igpPref_ && a.igpMetric_ == b.igpMetric_;
}

uint32_t ColoredTunnelTableEntry::hashColored(uint32_t seed) const {
  return hashFields(hashBase(seed), color_, igpPref_, igpMetric_);
}

void ColoredTunnelTableEntry::appendColoredText(Zent::ValueText& text) const {
  appendBaseText(text);
  text.field("color", color_).field("igpPref", igpPref_).field("igpMetric", igpMetric_);
}

std::string ColoredTunnelTableEntry::textAs(const char* typeName) const {
  Zent::ValueText text(typeName);
  appendColoredText(text);
  return std::move(text).str();
}

void ColoredTunnelTableEntry::dumpColored(DumpContext* ctx, int indent) const {
  dumpBase(ctx, indent);
  dumpf(ctx, indent, "color: {}\n", color_);
  dumpf(ctx, indent, "igpPref: {}\n", igpPref_.value());
  dumpf(ctx, indent, "igpMetric: {}\n", igpMetric_);
}

void ColoredTunnelTableEntry::serializeColored(RecordWriter& w) const {
  serializeBase(w);
  w.put(color_);
  w.put(igpPref_);
  w.put(igpMetric_);
}

uint32_t ColoredTunnelTableEntry::deserializeLenColored(RecordReader& r) {
  deserializeLenBase(r);
  r.skip(kColoredFieldsLen);  // any values
  return r.ok() ? kMaxSerializedLen : 0;
}

void ColoredTunnelTableEntry::deserializeColored(RecordReader& r) {
  deserializeBase(r);
  r.get(color_);
  r.get(igpPref_);
  r.get(igpMetric_);
}

void ColoredTunnelTableEntry::serialize(void* buf) const {
  RecordWriter w(buf, serializeLen());
  serializeColored(w);
}

void ColoredTunnelTableEntry::deserialize(void const* buf, unsigned len) {
  RecordReader r(buf, len);
  deserializeColored(r);
  r.expectOk(kTypeName);
}

uint32_t ColoredTunnelTableEntry::deserializeLen(void const* buf, unsigned len) const {
  RecordReader r(buf, len);
  return deserializeLenColored(r);
}

bool operator==(FlexAlgoTunnelTableEntry const& a, FlexAlgoTunnelTableEntry const& b) {
  return static_cast<ColoredTunnelTableEntry const&>(a) == b && a.isColored_ == b.isColored_ &&
         a.via_ == b.via_;
}

uint32_t FlexAlgoTunnelTableEntry::hash(uint32_t seed) const {
  return hashFields(hashColored(seed), isColored_, via_);
}

std::string FlexAlgoTunnelTableEntry::stringValue() const {
  Zent::ValueText text(kTypeName);
  appendColoredText(text);
  text.field("isColored", isColored_).field("via", Zent::arrayText(via_));
  return std::move(text).str();
}

void FlexAlgoTunnelTableEntry::dumpState(DumpContext* ctx, int indent) const {
  dumpColored(ctx, indent);
  dumpf(ctx, indent, "isColored: {}\n", Zent::boolText(isColored_));
  dumpVias(ctx, indent, via_);
}

void FlexAlgoTunnelTableEntry::serialize(void* buf) const {
  RecordWriter w(buf, serializeLen());
  serializeColored(w);
  w.put(isColored_);
  w.putZeros(kFlexAlgoPadLen);
  w.putList(via_);
  w.putZeros(kMaxSerializedLen - w.offset());
}

void FlexAlgoTunnelTableEntry::deserialize(void const* buf, unsigned len) {
  RecordReader r(buf, len);
  deserializeColored(r);
  r.get(isColored_);
  r.skip(kFlexAlgoPadLen);
  r.getList(via_);
  r.expectOk(kTypeName);
}

uint32_t FlexAlgoTunnelTableEntry::deserializeLen(void const* buf, unsigned len) const {
  RecordReader r(buf, len);
  deserializeLenColored(r);
  r.get<bool>();
  r.skipZeros(kFlexAlgoPadLen);
  r.checkList<MplsViaArray>();
  // The rest up to the bound is zero fill.
  if (r.ok()) r.skipZeros(kMaxSerializedLen - r.offset());
  return r.ok() ? kMaxSerializedLen : 0;
}

}  // namespace Tunnel::TunnelTable
