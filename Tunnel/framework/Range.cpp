#include "Tunnel/framework/Range.h"

#include <fmt/format.h>

namespace Zent {

void throwRangeException(std::string const& message) { throw RangeException(message); }

std::string rangeMessage(std::string_view typeName, std::string_view minName,
                         std::string_view maxName) {
  return fmt::format("{0}::value < {0}::{1} or > {0}::{2} not allowed", typeName, minName, maxName);
}

}  // namespace Zent
