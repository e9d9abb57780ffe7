// Label operations: the join is checked against a model that applies the
// operations to a real label stack (so it is associative too); texts and records
// reject what is not an operation.

#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/net/MplsLabelOperation.h"
#include "Tunnel/net/UnboundedMplsLabelOperation.h"
#include "tests/net/ErrorText.h"
#include "tests/net/RandomValues.h"

namespace Vorn::test {
namespace {

using Op = MplsLabelOperation;
using Stack = std::vector<uint32_t>;  // top of stack first

// What `op` does to a packet whose label stack is `s` (deep enough to pop).
Stack applyTo(Op const& op, Stack s) {
  s.erase(s.begin(), s.begin() + op.popCount());
  s.insert(s.begin(), op.labels().begin(), op.labels().end());
  return s;
}

TEST(MplsLabelSmushTest, JoinDoesWhatBothOperationsDoInOrder) {
  RandomValues r(11);
  Stack packet;
  for (uint32_t i = 0; i < 40; ++i) packet.push_back(1000000 + i);
  int joined = 0;
  for (int i = 0; i < 5000; ++i) {
    Op upper = r.labelOp(4, 10);
    Op lower = r.labelOp(4, 10);
    Stack expected = applyTo(lower, applyTo(upper, packet));
    uint32_t pops =
        upper.popCount() +
        (lower.popCount() > upper.labelCount() ? lower.popCount() - upper.labelCount() : 0);
    Op op = upper;
    if (expected.size() + pops <= packet.size() + Op::kMaxLabels) {
      op.smush(lower);
      ASSERT_EQ(applyTo(op, packet), expected) << upper << " . " << lower << " = " << op;
      ASSERT_TRUE(op.wellFormed());
      ++joined;
    } else {
      ASSERT_THROW(op.smush(lower), Zent::RangeException) << upper << " . " << lower;
      ASSERT_EQ(op, upper);
    }
  }
  EXPECT_GT(joined, 4000);
}

TEST(MplsLabelSmushTest, OutOfRangeLabelsDepthsAndOverflowingJoinsAreRangeErrors) {
  std::string const depth = MplsLabelStackDepth::message();
  EXPECT_THROW(Op::push({1048576}), Zent::RangeException);
  EXPECT_EQ(errorOf<Zent::RangeException>([] { Op(0, std::vector<MplsLabel>(18)); }), depth);
  Op op(0, std::vector<MplsLabel>(9, MplsLabel(7)));
  EXPECT_EQ(errorOf<Zent::RangeException>([&] { op.smush(op); }),
            depth +
                ": joining 'push 7 7 7 7 7 7 7 7 7' with 'push 7 7 7 7 7 7 7 7 7' pops 0 and "
                "pushes 18 labels");
  EXPECT_EQ(op, Op(0, std::vector<MplsLabel>(9, MplsLabel(7))));  // unchanged
  EXPECT_EQ(smush(op, Op(0, std::vector<MplsLabel>(8, MplsLabel(7)))).labelCount(), 17u);
}

TEST(MplsLabelOperationTest, TextOfEachShapeAndBadTextSayingWhy) {
  std::string texts;
  for (Op const& op :
       {Op(), Op::push({100, 200}), Op::swap({16, 17}), Op::pop(), Op::pop(3), Op(2, {100})}) {
    texts += op.stringValue() + "|";
  }
  EXPECT_EQ(texts, "forward|push 100 200|swap 16 17|pop|pop 3|pop 2 push 100|");
  EXPECT_EQ(Op(2, {100}).action(), MplsLabelAction::swap);
  auto parse = [](std::string_view t) {
    return errorOf<Zent::ParseError>([t] { UnboundedMplsLabelOperation op(t); });
  };
  std::string const name = "Vorn::UnboundedMplsLabelOperation: ";
  EXPECT_EQ(parse("push 1048576"),
            name + "'push 1048576' has label 1048576, out of range 0..1048575");
  EXPECT_EQ(parse("pop 1"),
            name + "'pop 1' has pop count '1'; it must be 2..17 (a single pop is 'pop')");
  EXPECT_EQ(parse("push"), name + "'push' has no labels");
  for (std::string_view bad : {"", "swap", "pop 0", "pop 18", "pop push 3", "pop 2 3", "pop 2 push",
                               "forward 1", "jump 3", "push -1", "push 1x", "push 99999999999",
                               "Push 1", "push 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18"}) {
    EXPECT_NE(parse(bad), "no exception") << bad;
  }
}

TEST(UnboundedMplsLabelRecordTest, OversizedCountsAndLabelsAreInvalid) {
  auto len = [](std::vector<unsigned char> rec) {
    rec.resize(80);
    return UnboundedMplsLabelOperation::recordLen(rec.data(), 80);
  };
  EXPECT_EQ(len({0, 0}), 2u);  // forward
  EXPECT_EQ(UnboundedMplsLabelOperation::recordLen(nullptr, 10), 0u);
  EXPECT_EQ(len({0, 18}), 0u);  // more labels than an operation holds, though the bytes are there
  EXPECT_EQ(len({18, 0}), 0u);
  std::vector<unsigned char> tooBig = {0, 1, 0, 0, 0x10, 0};  // label 2^20
  EXPECT_EQ(len(tooBig), 0u);
  tooBig.resize(80);
  UnboundedMplsLabelOperation kept = Op::swap({5});
  EXPECT_THROW(kept.deserialize(tooBig.data(), 80), Zent::RangeException);
  EXPECT_EQ(kept, Op::swap({5}));
}

TEST(MplsLabelOperationRecordTest, CorruptFixedRecordsAreNotWellFormed) {
  // Pop count, label count, spare byte, first label above 20 bits, a label past the count.
  for (auto [byte, value] : {std::pair{0, 18}, {1, 18}, {2, 1}, {4 + 2, 16}, {4 + 8, 1}}) {
    Op op = Op::push({1, 2});
    reinterpret_cast<unsigned char*>(&op)[byte] = static_cast<unsigned char>(value);
    EXPECT_FALSE(op.wellFormed()) << byte;
  }
}

}  // namespace
}  // namespace Vorn::test
