#pragma once
// Parse support shared by the single-attribute value types of the tunnel
// model: their text is the number alone, decimal or 0x hexadecimal.

#include <concepts>
#include <string_view>

#include "Tunnel/framework/String.h"
#include "Tunnel/framework/Text.h"

namespace Tunnel::TunnelTable {

// Reads the whole of [it, end) as one number and moves `it` to `end`. On bad
// text throws Zent::ParseError naming `typeName` and leaves `it` where it was.
template <std::unsigned_integral T>
T parseNumberText(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end,
                  std::string_view typeName) {
  T v = Zent::parseUnsignedText<T>(std::string_view(it.ptr(), static_cast<size_t>(end - it)),
                                   typeName);
  it = end;
  return v;
}

}  // namespace Tunnel::TunnelTable
