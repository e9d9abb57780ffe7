#include "Tunnel/net/MetricType.h"

#include <iterator>

namespace Vorn {

namespace {
constexpr std::string_view kNames[] = {"none", "internal", "external"};
}  // namespace

std::string_view stringValue(MetricType t) {
  auto i = static_cast<size_t>(t);
  return i < std::size(kNames) ? kNames[i] : "unknown";
}

bool sequenceToValue(std::string_view text, MetricType& out) {
  for (size_t i = 0; i < std::size(kNames); ++i) {
    if (text == kNames[i]) {
      out = static_cast<MetricType>(i);
      return true;
    }
  }
  return false;
}

}  // namespace Vorn
