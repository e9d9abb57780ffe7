#include "Tunnel/net/IntfId.h"

#include <charconv>
#include <limits>

#include <fmt/format.h>

#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"

namespace Vorn {

namespace {

constexpr std::string_view kNullText = "None";
constexpr std::string_view kEthernetText = "Ethernet";
constexpr std::string_view kTunnelText = "Tunnel";
constexpr std::string_view kDynamicTunnelText = "DynamicTunnel0x";

// The whole of `digits` as a number of the given base that fits in `max`.
bool parseNumber(std::string_view digits, int base, uint64_t max, uint64_t& out) {
  if (digits.empty() || digits.size() > 20) return false;
  auto [p, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), out, base);
  return ec == std::errc() && p == digits.data() + digits.size() && out <= max;
}

}  // namespace

IntfId IntfId::tunnel(uint32_t port) {
  if (port > kMaxTunnelPort) {
    Zent::throwRangeException(fmt::format(
        "Vorn::IntfId::tunnelPort < 0 or > {} not allowed, got {}", kMaxTunnelPort, port));
  }
  return IntfId(IntfKind::tunnel, port);
}

IntfId::IntfId(std::string_view text) { parse(text); }

IntfId::IntfId(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  parse(std::string_view(it.ptr(), static_cast<size_t>(end - it)));
  it = end;
}

void IntfId::parse(std::string_view text) {
  uint64_t n = 0;
  if (text == kNullText) {
    *this = IntfId();
    return;
  }
  if (text.starts_with(kDynamicTunnelText)) {
    std::string_view hex = text.substr(kDynamicTunnelText.size());
    if (hex.size() <= 16 && parseNumber(hex, 16, std::numeric_limits<uint64_t>::max(), n)) {
      *this = fromTunnelIdValue(n);
      return;
    }
    throw Zent::ParseError(fmt::format(
        "Vorn::IntfId: '{}' is not a dynamic tunnel interface (DynamicTunnel0x<hex, at most "
        "16 digits>)",
        text));
  }
  if (text.starts_with(kTunnelText)) {
    if (parseNumber(text.substr(kTunnelText.size()), 10, kMaxTunnelPort, n)) {
      *this = tunnel(static_cast<uint32_t>(n));
      return;
    }
    throw Zent::ParseError(
        fmt::format("Vorn::IntfId: '{}' is not a tunnel interface (Tunnel<port 0..65535>)", text));
  }
  if (text.starts_with(kEthernetText)) {
    if (parseNumber(text.substr(kEthernetText.size()), 10, std::numeric_limits<uint32_t>::max(),
                    n)) {
      *this = ethernet(static_cast<uint32_t>(n));
      return;
    }
    throw Zent::ParseError(fmt::format(
        "Vorn::IntfId: '{}' is not an Ethernet interface (Ethernet<n 0..4294967295>)", text));
  }
  throw Zent::ParseError(
      fmt::format("Vorn::IntfId: '{}' is not an interface name (None, Ethernet<n>, Tunnel<port> or "
                  "DynamicTunnel0x<hex>)",
                  text));
}

uint64_t IntfId::tunnelIdValue() const {
  fmassert(isDynamicTunnel(), "{} does not stand for a tunnel", stringValue());
  return number();
}

bool IntfId::wellFormed() const {
  if (reserved_[0] != 0 || reserved_[1] != 0 || reserved_[2] != 0 || spare_ != 0) return false;
  switch (kind_) {
    case IntfKind::null:
      return number() == 0;
    case IntfKind::ethernet:
      return numberHi_ == 0;
    case IntfKind::tunnel:
      return number() <= kMaxTunnelPort;
    case IntfKind::dynamicTunnel:
      return true;
  }
  return false;
}

std::string IntfId::stringValue() const {
  switch (kind_) {
    case IntfKind::null:
      return std::string(kNullText);
    case IntfKind::ethernet:
      return fmt::format("{}{}", kEthernetText, numberLo_);
    case IntfKind::tunnel:
      return fmt::format("{}{}", kTunnelText, numberLo_);
    case IntfKind::dynamicTunnel:
      return fmt::format("{}{:x}", kDynamicTunnelText, number());
  }
  return fmt::format("<bad interface kind {}>", static_cast<unsigned>(kind_));
}

}  // namespace Vorn
