#pragma once
// Random values of the network base types for the contract and record tests:
// every form each type has, with the edge values (zero, maximum) drawn often.

#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "Tunnel/net/NetTypes.h"

namespace Vorn::test {

class RandomValues {
 public:
  explicit RandomValues(uint32_t seed) : rng_(seed) {}

  uint64_t below(uint64_t n) { return std::uniform_int_distribution<uint64_t>(0, n - 1)(rng_); }
  bool coin() { return below(2) == 0; }
  // Uniform, but the two ends of [0, max] come up one time in four.
  uint64_t upTo(uint64_t max) {
    switch (below(8)) {
      case 0:
        return 0;
      case 1:
        return max;
      default:
        return std::uniform_int_distribution<uint64_t>(0, max)(rng_);
    }
  }

  IpGenAddr addr() {
    if (coin()) return IpGenAddr(static_cast<uint32_t>(upTo(UINT32_MAX)));
    std::array<uint8_t, 16> b{};
    // Runs of zero groups exercise the "::" compression of the text.
    for (auto& x : b) x = below(3) == 0 ? 0 : static_cast<uint8_t>(below(256));
    return IpGenAddr(b);
  }
  IpGenPrefix prefix() {
    IpGenAddr a = addr();
    return IpGenPrefix(a, static_cast<uint32_t>(upTo(a.maxLen())));
  }
  IntfId intf() {
    switch (below(4)) {
      case 0:
        return IntfId();
      case 1:
        return IntfId::ethernet(static_cast<uint32_t>(upTo(UINT32_MAX)));
      case 2:
        return IntfId::tunnel(static_cast<uint32_t>(upTo(IntfId::kMaxTunnelPort)));
      default:
        return IntfId::fromTunnelIdValue(upTo(UINT64_MAX));
    }
  }
  MplsLabel label() { return upTo(MplsLabel::max); }
  std::vector<MplsLabel> labels(uint32_t maxCount) {
    std::vector<MplsLabel> out(upTo(maxCount));
    for (auto& l : out) l = label();
    return out;
  }
  MplsLabelOperation labelOp(uint32_t maxPops = MplsLabelOperation::kMaxLabels,
                             uint32_t maxLabels = MplsLabelOperation::kMaxLabels) {
    // Mostly the common shapes: pop none or one.
    uint32_t pops = below(4) == 0 ? static_cast<uint32_t>(upTo(maxPops))
                                  : static_cast<uint32_t>(below(std::min(maxPops, 1u) + 1));
    std::vector<MplsLabel> l = labels(maxLabels);
    return MplsLabelOperation(pops, l);
  }
  Routing::Multicast::MulticastTreeId treeId() {
    // Quotes, backslashes, blanks and commas must survive the text form.
    static constexpr char kChars[] = "abcXYZ019-_:./ ,'\\";
    std::string name(upTo(Routing::Multicast::MulticastTreeId::kMaxNameLen), 'x');
    for (auto& c : name) c = kChars[below(sizeof(kChars) - 1)];
    return Routing::Multicast::MulticastTreeId(name);
  }

 private:
  std::mt19937_64 rng_;
};

}  // namespace Vorn::test
