#include "Tunnel/net/IpGenPrefix.h"

#include <charconv>

#include <fmt/format.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"

namespace Vorn {

namespace {

const char* familyName(IpGenAddr const& a) { return a.isV6() ? "IPv6" : "IPv4"; }

}  // namespace

IpGenPrefix::IpGenPrefix(IpGenAddr const& addr, uint32_t len) {
  if (len > addr.maxLen()) {
    Zent::throwRangeException(
        fmt::format("Vorn::IpGenPrefix::len < 0 or > {} not allowed for an {} prefix, got {}",
                    addr.maxLen(), familyName(addr), len));
  }
  len_ = static_cast<uint8_t>(len);
  addr_ = addr.masked(len_);
}

IpGenPrefix::IpGenPrefix(std::string_view text) { parse(text); }

IpGenPrefix::IpGenPrefix(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  parse(std::string_view(it.ptr(), static_cast<size_t>(end - it)));
  it = end;
}

void IpGenPrefix::parse(std::string_view text) {
  size_t slash = text.find('/');
  if (slash == std::string_view::npos) {
    throw Zent::ParseError(fmt::format("Vorn::IpGenPrefix: '{}' has no '/<length>'", text));
  }
  IpGenAddr addr;
  try {
    addr = IpGenAddr(text.substr(0, slash));
  } catch (Zent::ParseError const& e) {
    throw Zent::ParseError(fmt::format("Vorn::IpGenPrefix: '{}': {}", text, e.what()));
  }
  std::string_view lenText = text.substr(slash + 1);
  uint32_t len = 0;
  auto [p, ec] = std::from_chars(lenText.data(), lenText.data() + lenText.size(), len);
  if (lenText.empty() || lenText.size() > 3 || ec != std::errc() ||
      p != lenText.data() + lenText.size()) {
    throw Zent::ParseError(
        fmt::format("Vorn::IpGenPrefix: length '{}' in '{}' is not a number", lenText, text));
  }
  if (len > addr.maxLen()) {
    throw Zent::ParseError(fmt::format("Vorn::IpGenPrefix: length {} in '{}' is out of range 0..{}",
                                       len, text, addr.maxLen()));
  }
  *this = IpGenPrefix(addr, len);
}

bool IpGenPrefix::wellFormed() const {
  return addr_.wellFormed() && len_ <= addr_.maxLen() && addr_.masked(len_) == addr_ &&
         reserved_[0] == 0 && reserved_[1] == 0 && reserved_[2] == 0;
}

std::string IpGenPrefix::stringValue() const {
  return fmt::format("{}/{}", addr_.stringValue(), len_);
}

}  // namespace Vorn
