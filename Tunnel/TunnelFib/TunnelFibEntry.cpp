#include "Tunnel/TunnelFib/TunnelFibEntry.h"

#include <fmt/format.h>

#include "Tunnel/TunnelTable/RecordIo.h"
#include "Tunnel/TunnelTable/TunnelTableEntry.h"
#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"

namespace Tunnel::TunnelFib {

using TunnelTable::RecordReader;
using TunnelTable::RecordWriter;

TunnelFlags::TunnelFlags(uint8_t raw) : value_(raw & 3) {
  if (raw >= 4) Zent::throwRangeException(Zent::rangeMessage(kTypeName));
}

std::string TunnelFlags::stringValue() const {
  return Zent::ValueText(kTypeName)
      .field("burnPrimaryVias", burnPrimaryVias())
      .field("viasOrdered", viasOrdered())
      .str();
}

TunnelFibEntry::TunnelFibEntry(Zent::String::IteratorConst&, Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(TunnelFibEntry);
}

bool operator==(TunnelFibEntry const& a, TunnelFibEntry const& b) {
  return a.tunnelId_ == b.tunnelId_ && a.arePrimaryViasUsable_ == b.arePrimaryViasUsable_ &&
         a.flags_ == b.flags_ && a.resetFailoverState_ == b.resetFailoverState_ &&
         a.seqNo_ == b.seqNo_ && a.tunnelVia_ == b.tunnelVia_ &&
         a.backupTunnelVia_ == b.backupTunnelVia_;
}

uint32_t TunnelFibEntry::hash(uint32_t seed) const {
  uint8_t const scalars[3] = {static_cast<uint8_t>(arePrimaryViasUsable_), flags_.value(),
                              resetFailoverState_};
  seed = Zent::hashBytes(scalars, sizeof scalars, tunnelId_.hash(seed));
  return backupTunnelVia_.hash(tunnelVia_.hash(seqNo_.hash(seed)));
}

std::string TunnelFibEntry::stringValue() const {
  return Zent::ValueText(kTypeName)
      .field("tunnelId", tunnelId_)
      .field("arePrimaryViasUsable", arePrimaryViasUsable_)
      .field("flags", flags_)
      .field("resetFailoverState", std::to_string(resetFailoverState_))
      .field("seqNo", seqNo_)
      .field("tunnelVia", Zent::arrayText(tunnelVia_))
      .field("backupTunnelVia", Zent::arrayText(backupTunnelVia_))
      .str();
}

namespace {
void appendVias(std::string& out, const char* name, TunnelViaArray const& vias) {
  fmt::format_to(std::back_inserter(out), "{} (size {}): {{", name, vias.count());
  for (auto it = vias.begin(); it != vias.end(); ++it) {
    if (it != vias.begin()) out += ",";
    fmt::format_to(std::back_inserter(out), "{}:{}", it.key().value(), it->stringValue());
  }
  out += "}";
}
}  // namespace

std::string TunnelFibEntry::tamselString() const {
  std::string out = fmt::format("{}: arePrimaryViasUsable: {}, ", tunnelId_.stringValue(),
                                Zent::boolText(arePrimaryViasUsable_));
  appendVias(out, "tunnelVia", tunnelVia_);
  out += ", ";
  appendVias(out, "backupTunnelVia", backupTunnelVia_);
  return out;
}

void TunnelFibEntry::serialize(void* buf) const {
  RecordWriter w(buf, serializeLen());
  w.put(tunnelId_);
  w.put(arePrimaryViasUsable_);
  w.put(flags_.value());
  w.put(resetFailoverState_);
  w.putZeros(1);
  w.put(seqNo_.value());
  w.putZeros(2);
  w.putList(tunnelVia_);
  w.putList(backupTunnelVia_);
}

namespace {
// The fixed part, validated; false when it is not a FIB entry's.
struct FixedPart {
  TunnelId tunnelId;
  bool usable = true;
  TunnelFlags flags;
  uint8_t reset = 0;
  uint16_t seqNo = 0;
};
bool readFixed(RecordReader& r, FixedPart& f) {
  r.get(f.tunnelId);
  r.get(f.usable);
  f.flags = r.get<TunnelFlags>();
  r.get(f.reset);
  r.skipZeros(1);
  r.get(f.seqNo);
  r.skipZeros(2);
  return r.ok();
}
}  // namespace

void TunnelFibEntry::deserialize(void const* buf, unsigned len) {
  RecordReader r(buf, len);
  FixedPart f;
  readFixed(r, f);
  TunnelFibEntry e(f.tunnelId);
  e.arePrimaryViasUsable_ = f.usable;
  e.flags_ = f.flags;
  e.resetFailoverState_ = f.reset;
  e.seqNo_ = f.seqNo;
  r.getList(e.tunnelVia_);
  r.getList(e.backupTunnelVia_);
  r.expectOk(kTypeName);
  *this = e;
}

uint32_t TunnelFibEntry::deserializeLen(void const* buf, unsigned len) const {
  RecordReader r(buf, len);
  FixedPart f;
  readFixed(r, f);
  r.checkList<TunnelViaArray>();
  r.checkList<TunnelViaArray>();
  return r.ok() ? kMaxSerializedLen : 0;
}

}  // namespace Tunnel::TunnelFib
