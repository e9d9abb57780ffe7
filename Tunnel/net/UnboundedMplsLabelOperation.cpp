#include "Tunnel/net/UnboundedMplsLabelOperation.h"

#include <cstring>

#include <fmt/format.h>

#include "Tunnel/framework/Range.h"

namespace Vorn {

UnboundedMplsLabelOperation::UnboundedMplsLabelOperation(Zent::String::IteratorConst& it,
                                                         Zent::String::IteratorConst const& end) {
  parse(std::string_view(it.ptr(), static_cast<size_t>(end - it)), kTypeName);
  it = end;
}

void UnboundedMplsLabelOperation::serialize(void* buffer) const {
  auto* out = static_cast<uint8_t*>(buffer);
  out[0] = static_cast<uint8_t>(popCount());
  out[1] = static_cast<uint8_t>(labelCount());
  std::memcpy(out + kHeaderSize, labels().data(), 4 * labelCount());
}

uint32_t UnboundedMplsLabelOperation::recordLen(void const* buffer, unsigned length) {
  if (buffer == nullptr || length < kHeaderSize) return 0;
  auto const* in = static_cast<uint8_t const*>(buffer);
  uint32_t pops = in[0];
  uint32_t count = in[1];
  if (pops > kMaxLabels || count > kMaxLabels) return 0;
  uint32_t len = kHeaderSize + 4 * count;
  if (len > length) return 0;
  for (uint32_t i = 0; i < count; ++i) {
    uint32_t label;
    std::memcpy(&label, in + kHeaderSize + 4 * i, 4);
    if (label > MplsLabel::max) return 0;
  }
  return len;
}

void UnboundedMplsLabelOperation::deserialize(void const* buffer, unsigned length) {
  uint32_t len = recordLen(buffer, length);
  if (len == 0) {
    Zent::throwRangeException(fmt::format("{}: no valid record in {} bytes", kTypeName, length));
  }
  auto const* in = static_cast<uint8_t const*>(buffer);
  MplsLabel* labels = mutableLabels();
  uint32_t count = in[1];
  for (uint32_t i = 0; i < kMaxLabels; ++i) {
    uint32_t v = 0;
    if (i < count) std::memcpy(&v, in + kHeaderSize + 4 * i, 4);
    labels[i] = v;
  }
  countsIs(in[0], in[1]);
}

}  // namespace Vorn
