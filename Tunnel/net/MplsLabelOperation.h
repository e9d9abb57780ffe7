#pragma once
// MPLS label operations: what a via does to a packet's label stack (forward,
// push, swap, pop), as a fixed 72-byte record that MPLS vias embed, and the
// join (`smush`) that the tunnel resolver uses to flatten tunnels that ride
// on other tunnels into one operation.

#include <compare>
#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/String.h"

namespace Vorn {

struct MplsLabelTraits {
  using Rep = uint32_t;
  static constexpr Rep min = 0;
  static constexpr Rep max = 1048575;  // 20 bits
  static constexpr Rep defaultValue = 0;
  static constexpr const char* typeName = "Vorn::MplsLabel";
};
// One label; a value above 1048575 throws Zent::RangeException.
using MplsLabel = Zent::RangedInt<MplsLabelTraits>;

struct MplsLabelStackDepthTraits {
  using Rep = uint32_t;
  static constexpr Rep min = 0;
  static constexpr Rep max = 17;
  static constexpr Rep defaultValue = 0;
  static constexpr const char* typeName = "Vorn::MplsLabelStackDepth";
};
// How many labels an operation pushes or pops. 17 is what the variable-length
// record of an UnboundedMplsLabelOperation can carry within its 73-byte cap.
using MplsLabelStackDepth = Zent::RangedInt<MplsLabelStackDepthTraits>;

enum class MplsLabelAction : uint8_t { forward, push, swap, pop };
std::string_view stringValue(MplsLabelAction a);
bool sequenceToValue(std::string_view text, MplsLabelAction& out);

// An operation is "pop popCount labels, then push labels()", which covers the
// four actions and is closed under smush:
//   forward          pops 0, pushes none         text "forward"
//   push L1 .. Ln    pops 0, pushes L1 .. Ln     text "push 100 200"
//   swap L1 .. Ln    pops 1, pushes L1 .. Ln     text "swap 16" (n > 1 swaps, then pushes)
//   pop              pops k >= 1, pushes none    text "pop", "pop 3" for k > 1
//   (joined)         pops k >= 2, pushes labels  text "pop 2 push 100"
// Labels are listed outermost first: after "push 100 200" the packet's top
// label is 100, with 200 beneath it.
//
// Record layout (72 bytes): pop count (1 byte), label count (1 byte), 2 zero
// bytes, 17 labels of 32 bits in host order; labels past the count are zero.
// The default value is forward.
class alignas(4) MplsLabelOperation {
 public:
  static constexpr uint32_t kMaxLabels = MplsLabelStackDepth::max;
  static constexpr uint32_t kRecordSize = 4 + 4 * kMaxLabels;

  MplsLabelOperation() = default;
  // Pops `popCount` labels, then pushes `labels` (outermost first). More than
  // 17 labels throw the MplsLabelStackDepth range exception.
  MplsLabelOperation(MplsLabelStackDepth popCount, std::span<MplsLabel const> labels);
  MplsLabelOperation(MplsLabelStackDepth popCount, std::initializer_list<MplsLabel> labels)
      : MplsLabelOperation(popCount, std::span<MplsLabel const>(labels.begin(), labels.size())) {}
  static MplsLabelOperation forward() { return {}; }
  static MplsLabelOperation push(std::initializer_list<MplsLabel> labels) { return {0, labels}; }
  static MplsLabelOperation swap(std::initializer_list<MplsLabel> labels) { return {1, labels}; }
  static MplsLabelOperation pop(MplsLabelStackDepth count = 1) { return {count, {}}; }
  // The text forms above; throws Zent::ParseError.
  explicit MplsLabelOperation(std::string_view text) { parse(text, kTypeName); }
  MplsLabelOperation(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  MplsLabelAction action() const {
    if (popCount_ == 0) return labelCount_ == 0 ? MplsLabelAction::forward : MplsLabelAction::push;
    return labelCount_ == 0 ? MplsLabelAction::pop : MplsLabelAction::swap;
  }
  uint32_t popCount() const { return popCount_; }
  uint32_t labelCount() const { return labelCount_; }
  std::span<MplsLabel const> labels() const { return {labels_, labelCount_}; }
  bool isForward() const { return popCount_ == 0 && labelCount_ == 0; }

  // Joins `lower` onto this operation: afterwards this operation does what
  // this one followed by `lower` did. `lower` is the operation of the tunnel
  // this one rides on, so its labels end up outermost:
  //   push 100 . push 200  = push 200 100
  //   swap 16  . push 200  = swap 200 16
  //   push 100 . pop       = forward
  //   pop      . push 200  = swap 200
  //   pop      . pop       = pop 2
  // A result of more than 17 labels (pushed or popped) throws
  // Zent::RangeException and leaves this operation unchanged.
  MplsLabelOperation& smush(MplsLabelOperation const& lower);

  // Checks a record written elsewhere: counts within 17, labels within 20
  // bits, zero spare bytes and unused labels.
  bool wellFormed() const;

  friend bool operator==(MplsLabelOperation const& a, MplsLabelOperation const& b);
  // By pop count, then the pushed labels as a sequence.
  friend std::strong_ordering operator<=>(MplsLabelOperation const& a, MplsLabelOperation const& b);
  uint32_t hash(uint32_t seed = 0) const;

  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, MplsLabelOperation const& op) {
    return os << op.stringValue();
  }
  // False only for forward.
  explicit operator bool() const { return !isForward(); }

 protected:
  void parse(std::string_view text, std::string_view typeName);
  void countsIs(uint8_t popCount, uint8_t labelCount) {
    popCount_ = popCount;
    labelCount_ = labelCount;
  }
  MplsLabel* mutableLabels() { return labels_; }

 private:
  static constexpr std::string_view kTypeName = "Vorn::MplsLabelOperation";

  uint8_t popCount_ = 0;
  uint8_t labelCount_ = 0;
  uint8_t reserved_[2] = {};
  MplsLabel labels_[kMaxLabels];
};

static_assert(sizeof(MplsLabelOperation) == MplsLabelOperation::kRecordSize);
static_assert(std::is_trivially_copyable_v<MplsLabelOperation>);
static_assert(std::is_standard_layout_v<MplsLabelOperation>);

// `upper` joined with `lower`, as MplsLabelOperation::smush.
inline MplsLabelOperation smush(MplsLabelOperation upper, MplsLabelOperation const& lower) {
  return upper.smush(lower);
}

}  // namespace Vorn
