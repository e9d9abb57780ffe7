#pragma once
// Vorn::MetricType: what kind of metric a route or tunnel carries, so that
// metrics of different kinds are never compared as if they were alike.

#include <cstdint>
#include <string_view>

#include <fmt/format.h>

namespace Vorn {

// 32 bits wide because records store it as a 32-bit field. `internal` (1) is
// the default wherever a metric type is held: an IGP cost to the endpoint.
// `external` is a metric from outside the IGP (for example BGP's).
enum class MetricType : uint32_t { none = 0, internal = 1, external = 2 };

inline constexpr MetricType kDefaultMetricType = MetricType::internal;

// "none", "internal", "external"; "unknown" for a value read from a record
// that is none of them.
std::string_view stringValue(MetricType t);
bool sequenceToValue(std::string_view text, MetricType& out);

}  // namespace Vorn

template <>
struct fmt::formatter<Vorn::MetricType> : fmt::formatter<std::string_view> {
  auto format(Vorn::MetricType t, format_context& ctx) const {
    return fmt::formatter<std::string_view>::format(stringValue(t), ctx);
  }
};
