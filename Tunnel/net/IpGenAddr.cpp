#include "Tunnel/net/IpGenAddr.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>

#include <fmt/format.h>

#include "Tunnel/framework/Dabin.h"

namespace Vorn {

IpGenAddr::IpGenAddr(std::string_view text) { parse(text); }

IpGenAddr::IpGenAddr(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  parse(std::string_view(it.ptr(), static_cast<size_t>(end - it)));
  it = end;
}

void IpGenAddr::parse(std::string_view text) {
  // inet_pton wants a terminated string; the longest valid text is an IPv6
  // address with an embedded IPv4 tail (45 characters).
  char buf[INET6_ADDRSTRLEN + 1];
  bool ok = false;
  if (!text.empty() && text.size() < sizeof(buf)) {
    std::memcpy(buf, text.data(), text.size());
    buf[text.size()] = '\0';
    if (text.find(':') == std::string_view::npos) {
      uint8_t v4[4];
      ok = inet_pton(AF_INET, buf, v4) == 1;
      if (ok) std::memcpy(bytes_, v4, 4);
    } else {
      uint8_t v6[16];
      ok = inet_pton(AF_INET6, buf, v6) == 1;
      if (ok) {
        family_ = IpFamily::ipv6;
        std::memcpy(bytes_, v6, 16);
      }
    }
  }
  if (!ok) {
    throw Zent::ParseError(
        fmt::format("Vorn::IpGenAddr: '{}' is not an IPv4 or IPv6 address", text));
  }
}

IpGenAddr IpGenAddr::masked(uint8_t len) const {
  fmassert(len <= maxLen(), "prefix length {} on an address of {} bits", len, maxLen());
  IpGenAddr out = *this;
  // Two words in the address's (network) byte order: every decoded prefix
  // checks its host bits through here.
  uint64_t w[2];
  std::memcpy(w, bytes_, sizeof w);
  for (uint32_t i = 0; i < 2; ++i) {
    uint32_t const keep = len > 64 * i ? std::min<uint32_t>(64, len - 64 * i) : 0;
    uint64_t const top = keep == 0 ? 0 : ~uint64_t{0} << (64 - keep);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    w[i] &= __builtin_bswap64(top);
#else
    w[i] &= top;
#endif
  }
  std::memcpy(out.bytes_, w, sizeof w);
  return out;
}

bool IpGenAddr::wellFormed() const {
  if (reserved_[0] != 0 || reserved_[1] != 0 || reserved_[2] != 0) return false;
  if (isV6()) return true;
  if (!isV4()) return false;
  for (uint32_t i = 4; i < 16; ++i) {
    if (bytes_[i] != 0) return false;
  }
  return true;
}

std::string IpGenAddr::stringValue() const {
  char buf[INET6_ADDRSTRLEN];
  // Only an ill-formed record (an unknown family) can make this fail.
  if (isV6()) {
    if (inet_ntop(AF_INET6, bytes_, buf, sizeof(buf)) != nullptr) return buf;
  } else if (isV4()) {
    if (inet_ntop(AF_INET, bytes_, buf, sizeof(buf)) != nullptr) return buf;
  }
  return fmt::format("<bad address family {}>", static_cast<unsigned>(family_));
}

}  // namespace Vorn
