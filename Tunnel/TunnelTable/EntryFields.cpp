#include "Tunnel/TunnelTable/EntryFields.h"

#include <utility>

#include <fmt/format.h>

#include "Tunnel/TunnelTableKeepdbTypes/NumberText.h"

namespace Tunnel {

TunnelEntrySequenceNumber::TunnelEntrySequenceNumber(Zent::String::IteratorConst& it,
                                                     Zent::String::IteratorConst const& end)
    : value_(TunnelTable::parseNumberText<uint16_t>(it, end, "Tunnel::TunnelEntrySequenceNumber")) {
}

}  // namespace Tunnel

namespace Tunnel::TunnelTable {

namespace {

constexpr const char* kTristateName = "Tunnel::TunnelTable::TristateU32";
constexpr std::string_view kContributionNames[] = {"none", "contributes", "doesNotContribute"};
constexpr std::string_view kTristateNames[] = {"unset", "set", "cleared"};

}  // namespace

TunnelBandwidth::TunnelBandwidth(Zent::String::IteratorConst& it,
                                 Zent::String::IteratorConst const& end)
    : value_(parseNumberText<uint32_t>(it, end, "Tunnel::TunnelTable::TunnelBandwidth")) {}

ContributionToTunnelRIB::ContributionToTunnelRIB(Zent::String::IteratorConst& it,
                                                 Zent::String::IteratorConst const& end) {
  std::string_view text(it.ptr(), static_cast<size_t>(end - it));
  for (uint32_t c = 0; c <= kLastCode; ++c) {
    if (kContributionNames[c] == text) {
      code_ = static_cast<Code>(c);
      it = end;
      return;
    }
  }
  throw Zent::ParseError(
      fmt::format("Tunnel::TunnelTable::ContributionToTunnelRIB: unknown enumerator '{}'", text));
}

std::string ContributionToTunnelRIB::stringValue() const {
  return wellFormed() ? std::string(kContributionNames[code_]) : "invalidContribution";
}

std::string_view stringValue(TristateState state) {
  auto i = static_cast<size_t>(state);
  return i < std::size(kTristateNames) ? kTristateNames[i] : "invalidTristateState";
}

bool sequenceToValue(std::string_view text, TristateState& state) {
  for (size_t i = 0; i < std::size(kTristateNames); ++i) {
    if (kTristateNames[i] == text) {
      state = static_cast<TristateState>(i);
      return true;
    }
  }
  return false;
}

std::ostream& operator<<(std::ostream& os, TristateState state) { return os << stringValue(state); }

TristateU32::TristateU32(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader reader(std::string_view(it.ptr(), static_cast<size_t>(end - it)),
                               kTristateName);
  if (reader.fields() != 2) {
    throw Zent::ParseError(
        fmt::format("{}: expected 2 fields, got {}", kTristateName, reader.fields()));
  }
  value_ = Zent::parseFieldText<uint32_t>(reader.field("value"), kTristateName);
  state_ = Zent::parseFieldText<TristateState>(reader.field("state"), kTristateName);
  it = end;
}

bool TristateU32::wellFormed() const {
  return static_cast<size_t>(state_) < std::size(kTristateNames) && reserved_[0] == 0 &&
         reserved_[1] == 0 && reserved_[2] == 0;
}

std::string TristateU32::stringValue() const {
  Zent::ValueText text(kTristateName);
  text.field("value", value_).field("state", state_);
  return std::move(text).str();
}

}  // namespace Tunnel::TunnelTable
