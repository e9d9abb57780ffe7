#include "Tunnel/cli/InternalTunnelCandidateId.h"

#include <fmt/format.h>

#include "Tunnel/framework/Text.h"

namespace Tunnel::TunnelTable {

namespace {
constexpr const char* kName = "Tunnel::TunnelTable::InternalTunnelCandidateId";
}

InternalTunnelCandidateId::InternalTunnelCandidateId(Zent::String::IteratorConst& it,
                                                     Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader r(std::string_view(it.ptr(), static_cast<size_t>(end - it)), kName);
  if (r.fields() != 3) {
    throw Zent::ParseError(fmt::format("{}: expected 3 fields, got {}", kName, r.fields()));
  }
  tunnelType_ = Zent::parseFieldText<TunnelType>(r.field("tunnelType"), kName);
  entryPref_ = Zent::parseFieldText<TunnelEntryPref>(r.field("entryPref"), kName);
  entryMetric_ = Zent::parseFieldText<uint32_t>(r.field("entryMetric"), kName);
  it = end;
}

bool operator<(InternalTunnelCandidateId const& a, InternalTunnelCandidateId const& b) {
  if (a.entryPref_ != b.entryPref_) return a.entryPref_ < b.entryPref_;
  if (a.tunnelType_ != b.tunnelType_) {
    TunnelEntryPref da = getDefaultPrefForType(a.tunnelType_);
    TunnelEntryPref db = getDefaultPrefForType(b.tunnelType_);
    if (da != db) return da < db;
  }
  if (a.entryMetric_ != b.entryMetric_) return a.entryMetric_ < b.entryMetric_;
  return a.tunnelType_ < b.tunnelType_;
}

uint32_t InternalTunnelCandidateId::hash(uint32_t seed) const {
  return Zent::hashBytes(this, sizeof(*this), seed);
}

std::string InternalTunnelCandidateId::stringValue() const {
  Zent::ValueText text(kName);
  text.field("tunnelType", tunnelType_)
      .field("entryPref", entryPref_)
      .field("entryMetric", entryMetric_);
  return std::move(text).str();
}

}  // namespace Tunnel::TunnelTable
