#include "Tunnel/net/MulticastTreeId.h"

#include <fmt/format.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"

namespace Routing::Multicast {

MulticastTreeId::MulticastTreeId(std::string_view name) { nameIs(name); }

MulticastTreeId::MulticastTreeId(Zent::String::IteratorConst& it,
                                 Zent::String::IteratorConst const& end) {
  std::string_view text(it.ptr(), static_cast<size_t>(end - it));
  std::string name;
  try {
    name = Zent::unquoteText(text);
  } catch (Zent::ParseError const&) {
    throw Zent::ParseError(
        fmt::format("Routing::Multicast::MulticastTreeId: '{}' is not a quoted tree name", text));
  }
  if (name.size() > kMaxNameLen) {
    throw Zent::ParseError(
        fmt::format("Routing::Multicast::MulticastTreeId: name of {} bytes in '{}', more than {}",
                    name.size(), text, kMaxNameLen));
  }
  nameIs(name);
  it = end;
}

void MulticastTreeId::nameIs(std::string_view name) {
  if (name.size() > kMaxNameLen) {
    Zent::throwRangeException(fmt::format(
        "Routing::Multicast::MulticastTreeId::name length < 0 or > {} not allowed, got {}",
        kMaxNameLen, name.size()));
  }
  len_ = static_cast<uint8_t>(name.size());
  std::memcpy(name_, name.data(), name.size());
  std::memset(name_ + len_, 0, kMaxNameLen - len_);
}

bool MulticastTreeId::wellFormed() const {
  if (len_ > kMaxNameLen) return false;
  for (uint32_t i = len_; i < kMaxNameLen; ++i) {
    if (name_[i] != 0) return false;
  }
  return true;
}

std::string MulticastTreeId::stringValue() const { return Zent::quoteText(name()); }

void MulticastTreeId::serialize(void* buffer) const {
  auto* out = static_cast<uint8_t*>(buffer);
  out[0] = len_;
  std::memcpy(out + 1, name_, len_);
}

uint32_t MulticastTreeId::recordLen(void const* buffer, unsigned length) {
  if (buffer == nullptr || length < 1) return 0;
  uint32_t len = *static_cast<uint8_t const*>(buffer);
  if (len > kMaxNameLen || 1 + len > length) return 0;
  return 1 + len;
}

void MulticastTreeId::deserialize(void const* buffer, unsigned length) {
  uint32_t len = recordLen(buffer, length);
  if (len == 0) {
    Zent::throwRangeException(
        fmt::format("Routing::Multicast::MulticastTreeId: no valid record in {} bytes", length));
  }
  nameIs(std::string_view(static_cast<char const*>(buffer) + 1, len - 1));
}

}  // namespace Routing::Multicast
