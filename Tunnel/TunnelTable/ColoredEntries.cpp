#include "Tunnel/TunnelTable/ColoredEntries.h"

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

void FlexAlgoTunnelTableEntry::serialize(void* buf) const {
  RecordWriter w(buf, serializeLen());
  FieldWalk::put<ColoredTunnelTableEntry>(*this, w);
  w.put(isColored_);
  w.putZeros(kFlexAlgoPadLen);
  w.putList(via_);
  w.putZeros(kMaxSerializedLen - w.offset());
}

void FlexAlgoTunnelTableEntry::deserialize(void const* buf, unsigned len) {
  RecordReader r(buf, len);
  FieldWalk::get<ColoredTunnelTableEntry>(*this, r);
  r.get(isColored_);
  r.skip(kFlexAlgoPadLen);
  r.getList(via_);
  r.expectOk(kTypeName);
}

uint32_t FlexAlgoTunnelTableEntry::deserializeLen(void const* buf, unsigned len) const {
  RecordReader r(buf, len);
  FieldWalk::check<ColoredTunnelTableEntry>(r);
  r.get<bool>();
  r.skipZeros(kFlexAlgoPadLen);
  r.checkList<MplsViaArray>();
  // The rest up to the bound is zero fill.
  if (r.ok()) r.skipZeros(kMaxSerializedLen - r.offset());
  return r.ok() ? kMaxSerializedLen : 0;
}

}  // namespace Tunnel::TunnelTable
