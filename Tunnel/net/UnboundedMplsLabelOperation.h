#pragma once
// Vorn::UnboundedMplsLabelOperation: the label operation that BGP-LU entries
// and label-stack encapsulations carry. Same value as MplsLabelOperation, but
// stored in a variable-length record (2 + 4 bytes per label) instead of the
// fixed 72 bytes, because the tables holding it size slots by actual length.

#include <cstdint>
#include <string_view>
#include <type_traits>

#include "Tunnel/framework/String.h"
#include "Tunnel/net/MplsLabelOperation.h"

namespace Vorn {

// Holds at most 17 labels pushed and 17 popped: that is all its record may
// carry within the 73-byte cap the tables reserve, so a larger stack is
// refused (Zent::RangeException) when it is built rather than when stored.
//
// Record: pop count (1 byte), label count (1 byte), then the labels as 32-bit
// host-order words, unaligned. 2 to 70 bytes.
class UnboundedMplsLabelOperation : public MplsLabelOperation {
 public:
  static constexpr uint32_t kMaxRecordSize = 73;
  static constexpr uint32_t kHeaderSize = 2;

  using MplsLabelOperation::MplsLabelOperation;
  UnboundedMplsLabelOperation() = default;
  // Implicit on purpose: the factories (push, swap, ...) and the join produce
  // the base type, and both types hold the same values.
  UnboundedMplsLabelOperation(MplsLabelOperation const& op)  // NOLINT(google-explicit-constructor)
      : MplsLabelOperation(op) {}
  explicit UnboundedMplsLabelOperation(std::string_view text) { parse(text, kTypeName); }
  UnboundedMplsLabelOperation(Zent::String::IteratorConst& it,
                              Zent::String::IteratorConst const& end);

  UnboundedMplsLabelOperation& smush(MplsLabelOperation const& lower) {
    MplsLabelOperation::smush(lower);
    return *this;
  }

  uint32_t serializeLen() const { return kHeaderSize + 4 * labelCount(); }
  // Writes exactly serializeLen() bytes.
  void serialize(void* buffer) const;
  // The length of the record at `buffer`, or 0 when the `length` bytes there
  // do not start with a valid record. Reads nothing past `length`.
  static uint32_t recordLen(void const* buffer, unsigned length);
  uint32_t deserializeLen(void const* buffer, unsigned length) const {
    return recordLen(buffer, length);
  }
  // Reads a record; an invalid one throws Zent::RangeException and leaves the
  // value unchanged.
  void deserialize(void const* buffer, unsigned length);

 private:
  static constexpr std::string_view kTypeName = "Vorn::UnboundedMplsLabelOperation";
};

static_assert(sizeof(UnboundedMplsLabelOperation) == sizeof(MplsLabelOperation));
static_assert(std::is_trivially_copyable_v<UnboundedMplsLabelOperation>);
static_assert(MplsLabelOperation::kMaxLabels * 4 + UnboundedMplsLabelOperation::kHeaderSize <=
              UnboundedMplsLabelOperation::kMaxRecordSize);

}  // namespace Vorn
