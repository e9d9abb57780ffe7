// Label operations: the join is checked against a model that applies the
// operations to a real label stack; texts and records reject what is not a
// valid operation, and reading a record never goes past the given length.

#include <functional>
#include <memory>

#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/net/MplsLabelOperation.h"
#include "Tunnel/net/UnboundedMplsLabelOperation.h"
#include "tests/net/RandomValues.h"

namespace Vorn::test {
namespace {

using Stack = std::vector<uint32_t>;  // top of stack first

// What `op` does to a packet whose label stack is `s` (deep enough to pop).
Stack applyTo(MplsLabelOperation const& op, Stack s) {
  s.erase(s.begin(), s.begin() + op.popCount());
  s.insert(s.begin(), op.labels().begin(), op.labels().end());
  return s;
}

Stack deepPacket() {
  Stack s;
  for (uint32_t i = 0; i < 40; ++i) s.push_back(1000000 + i);
  return s;
}

std::string rangeError(std::function<void()> f) {
  try {
    f();
  } catch (Zent::RangeException const& e) {
    return e.what();
  }
  return "no exception";
}

const std::string kDepthMessage = MplsLabelStackDepth::message();

TEST(MplsLabelSmushTest, JoinDoesWhatBothOperationsDoInOrder) {
  RandomValues r(11);
  Stack packet = deepPacket();
  int joined = 0;
  for (int i = 0; i < 5000; ++i) {
    MplsLabelOperation upper = r.labelOp(4, 10);
    MplsLabelOperation lower = r.labelOp(4, 10);
    Stack expected = applyTo(lower, applyTo(upper, packet));
    uint32_t pops =
        upper.popCount() +
        (lower.popCount() > upper.labelCount() ? lower.popCount() - upper.labelCount() : 0);
    bool fits = expected.size() + pops <= packet.size() + MplsLabelOperation::kMaxLabels;
    MplsLabelOperation op = upper;
    if (fits) {
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

TEST(MplsLabelSmushTest, JoinIsAssociativeAndForwardIsNeutral) {
  RandomValues r(12);
  for (int i = 0; i < 2000; ++i) {
    MplsLabelOperation a = r.labelOp(3, 5), b = r.labelOp(3, 5), c = r.labelOp(3, 5);
    EXPECT_EQ(smush(smush(a, b), c), smush(a, smush(b, c))) << a << " . " << b << " . " << c;
    EXPECT_EQ(smush(a, MplsLabelOperation::forward()), a);
    EXPECT_EQ(smush(MplsLabelOperation::forward(), a), a);
  }
}

struct Join {
  MplsLabelOperation upper, lower, result;
};

TEST(MplsLabelSmushTest, CombinationsOfTheFourActions) {
  using Op = MplsLabelOperation;
  std::vector<Join> joins = {
      {Op::push({100}), Op::push({200}), Op::push({200, 100})},
      {Op::push({100, 101}), Op::push({200, 201}), Op::push({200, 201, 100, 101})},
      {Op::swap({16}), Op::push({200}), Op::swap({200, 16})},
      {Op::push({100}), Op::swap({200}), Op::push({200})},
      {Op::swap({16}), Op::swap({17}), Op::swap({17})},
      {Op::push({100}), Op::pop(), Op::forward()},
      {Op::push({100, 101}), Op::pop(), Op::push({101})},
      {Op::pop(), Op::push({200}), Op::swap({200})},
      {Op::pop(), Op::pop(), Op::pop(2)},
      {Op::pop(), Op::swap({200}), Op(2, {200})},
      {Op::swap({16}), Op::pop(2), Op::pop(2)},
      {Op::forward(), Op::swap({5}), Op::swap({5})},
      {Op::pop(), Op::forward(), Op::pop()},
  };
  for (Join const& j : joins) {
    EXPECT_EQ(smush(j.upper, j.lower), j.result) << j.upper << " . " << j.lower;
  }
}

TEST(MplsLabelSmushTest, ResolverChainAccumulatesOnTheCalledOperation) {
  // A parent via joined in turn with two child vias keeps both children's
  // labels: the join changes the operation it is called on.
  UnboundedMplsLabelOperation parent = MplsLabelOperation::push({100});
  parent.smush(MplsLabelOperation::push({200}));
  EXPECT_EQ(parent.stringValue(), "push 200 100");
  parent.smush(MplsLabelOperation::push({300}));
  EXPECT_EQ(parent.stringValue(), "push 300 200 100");
}

TEST(MplsLabelSmushTest, StackOverflowIsARangeErrorThatChangesNothing) {
  std::vector<MplsLabel> nine(9, MplsLabel(7));
  MplsLabelOperation op(0, nine);
  MplsLabelOperation before = op;
  std::string msg = rangeError([&] { op.smush(op); });
  EXPECT_EQ(msg, kDepthMessage +
                     ": joining 'push 7 7 7 7 7 7 7 7 7' with 'push 7 7 7 7 7 7 7 7 "
                     "7' pops 0 and pushes 18 labels");
  EXPECT_EQ(op, before);

  MplsLabelOperation pops = MplsLabelOperation::pop(17);
  EXPECT_NE(rangeError([&] { pops.smush(MplsLabelOperation::pop()); }), "no exception");
  EXPECT_EQ(pops, MplsLabelOperation::pop(17));
  // Exactly 17 fits.
  std::vector<MplsLabel> eight(8, MplsLabel(7));
  EXPECT_EQ(smush(op, MplsLabelOperation(0, eight)).labelCount(), 17u);
}

TEST(MplsLabelOperationTest, OutOfRangeLabelsAndDepthsAreRejectedWhenBuilt) {
  EXPECT_EQ(rangeError([] { MplsLabelOperation::push({1048576}); }),
            "Vorn::MplsLabel::value < Vorn::MplsLabel::min or > Vorn::MplsLabel::max not allowed");
  EXPECT_EQ(MplsLabelOperation::push({1048575}).labels()[0].value(), 1048575u);
  std::vector<MplsLabel> eighteen(18);
  EXPECT_EQ(rangeError([&] { MplsLabelOperation(0, eighteen); }), kDepthMessage);
  EXPECT_EQ(rangeError([] { MplsLabelOperation::pop(18); }), kDepthMessage);
}

TEST(MplsLabelOperationTest, TextOfEachShape) {
  using Op = MplsLabelOperation;
  EXPECT_EQ(Op().stringValue(), "forward");
  EXPECT_EQ(Op::push({}).stringValue(), "forward");
  EXPECT_EQ(Op::push({100, 200}).stringValue(), "push 100 200");
  EXPECT_EQ(Op::swap({16}).stringValue(), "swap 16");
  EXPECT_EQ(Op::swap({16, 17}).stringValue(), "swap 16 17");
  EXPECT_EQ(Op::pop().stringValue(), "pop");
  EXPECT_EQ(Op::pop(3).stringValue(), "pop 3");
  EXPECT_EQ(Op(2, {100}).stringValue(), "pop 2 push 100");
  EXPECT_EQ(Op::swap({16}).action(), MplsLabelAction::swap);
  EXPECT_EQ(Op(2, {100}).action(), MplsLabelAction::swap);
}

TEST(MplsLabelOperationTest, BadTextIsRejectedSayingWhy) {
  auto error = [](std::string_view text) -> std::string {
    try {
      UnboundedMplsLabelOperation op(text);
      return "parsed as " + op.stringValue();
    } catch (Zent::ParseError const& e) {
      return e.what();
    }
  };
  EXPECT_EQ(error("push 1048576"),
            "Vorn::UnboundedMplsLabelOperation: 'push 1048576' has label 1048576, out of range "
            "0..1048575");
  EXPECT_EQ(error("pop 1"),
            "Vorn::UnboundedMplsLabelOperation: 'pop 1' has pop count '1'; it must be 2..17 (a "
            "single pop is 'pop')");
  EXPECT_EQ(error("push"), "Vorn::UnboundedMplsLabelOperation: 'push' has no labels");
  for (std::string_view bad : {"", "swap", "pop 0", "pop 18", "pop push 3", "pop 2 3", "pop 2 push",
                               "forward 1", "jump 3", "push -1", "push 1x", "push 99999999999",
                               "Push 1", "push 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18"}) {
    EXPECT_NE(error(bad).substr(0, 6), "parsed") << bad;
  }
  // The bounded type names itself.
  EXPECT_THROW(MplsLabelOperation("swap"), Zent::ParseError);
}

// A heap copy of exactly `len` bytes, so that AddressSanitizer reports any
// read past the length the reader was given.
std::unique_ptr<unsigned char[]> exactCopy(unsigned char const* p, size_t len) {
  std::unique_ptr<unsigned char[]> out(new unsigned char[len]);
  if (len != 0) std::memcpy(out.get(), p, len);
  return out;
}

TEST(UnboundedMplsLabelRecordTest, EveryTruncationIsInvalidAndTrailingBytesAreIgnored) {
  RandomValues r(21);
  for (int i = 0; i < 300; ++i) {
    UnboundedMplsLabelOperation op = r.labelOp();
    uint32_t len = op.serializeLen();
    ASSERT_LE(len, UnboundedMplsLabelOperation::kMaxRecordSize);
    std::vector<unsigned char> rec(len + 8, 0xab);
    op.serialize(rec.data());
    for (uint32_t l = 0; l < len; ++l) {
      auto buf = exactCopy(rec.data(), l);
      ASSERT_EQ(op.deserializeLen(buf.get(), l), 0u) << op << " cut to " << l;
    }
    for (uint32_t l = len; l <= len + 8; ++l) {
      auto buf = exactCopy(rec.data(), l);
      ASSERT_EQ(op.deserializeLen(buf.get(), l), len) << op;
    }
  }
  EXPECT_EQ(UnboundedMplsLabelOperation::recordLen(nullptr, 10), 0u);
}

TEST(UnboundedMplsLabelRecordTest, OversizedCountsAndLabelsAreInvalid) {
  std::vector<unsigned char> rec(80, 0);
  EXPECT_EQ(UnboundedMplsLabelOperation::recordLen(rec.data(), 80), 2u);  // forward
  rec[1] = 18;  // more labels than an operation holds, though the bytes are there
  EXPECT_EQ(UnboundedMplsLabelOperation::recordLen(rec.data(), 80), 0u);
  rec[1] = 0;
  rec[0] = 18;
  EXPECT_EQ(UnboundedMplsLabelOperation::recordLen(rec.data(), 80), 0u);
  rec[0] = 0;
  rec[1] = 1;
  uint32_t tooBig = MplsLabel::max + 1;
  std::memcpy(&rec[2], &tooBig, 4);
  EXPECT_EQ(UnboundedMplsLabelOperation::recordLen(rec.data(), 80), 0u);

  UnboundedMplsLabelOperation kept = MplsLabelOperation::swap({5});
  EXPECT_THROW(kept.deserialize(rec.data(), 80), Zent::RangeException);
  EXPECT_EQ(kept, MplsLabelOperation::swap({5}));
}

TEST(UnboundedMplsLabelRecordTest, RandomBytesAreRejectedOrReadConsistently) {
  RandomValues r(22);
  int valid = 0;
  for (int i = 0; i < 20000; ++i) {
    size_t len = r.below(80);
    std::vector<unsigned char> bytes(len);
    // Small counts and labels half of the time, so that valid records occur.
    for (auto& b : bytes) b = static_cast<unsigned char>(r.coin() ? r.below(256) : r.below(4));
    auto buf = exactCopy(bytes.data(), len);
    uint32_t got = UnboundedMplsLabelOperation::recordLen(buf.get(), static_cast<unsigned>(len));
    if (got == 0) continue;
    ++valid;
    ASSERT_LE(got, len);
    UnboundedMplsLabelOperation op;
    op.deserialize(buf.get(), static_cast<unsigned>(len));
    ASSERT_TRUE(op.wellFormed());
    ASSERT_EQ(op.serializeLen(), got);
    std::vector<unsigned char> again(got);
    op.serialize(again.data());
    ASSERT_EQ(std::memcmp(again.data(), bytes.data(), got), 0);
  }
  EXPECT_GT(valid, 100);
}

TEST(UnboundedMplsLabelRecordTest, FullStackFitsTheRecordCap) {
  std::vector<MplsLabel> full(MplsLabelOperation::kMaxLabels, MplsLabel(MplsLabel::max));
  UnboundedMplsLabelOperation op = MplsLabelOperation(MplsLabelOperation::kMaxLabels, full);
  EXPECT_EQ(op.serializeLen(), 70u);
  EXPECT_LE(op.serializeLen(), UnboundedMplsLabelOperation::kMaxRecordSize);
}

TEST(MplsLabelOperationRecordTest, CorruptFixedRecordsAreNotWellFormed) {
  MplsLabelOperation op = MplsLabelOperation::push({1, 2});
  auto corrupt = [&](size_t byte, unsigned char v) {
    unsigned char rec[MplsLabelOperation::kRecordSize];
    std::memcpy(rec, &op, sizeof(rec));
    rec[byte] = v;
    MplsLabelOperation out;
    std::memcpy(&out, rec, sizeof(rec));
    return out.wellFormed();
  };
  EXPECT_FALSE(corrupt(0, 18));      // pop count
  EXPECT_FALSE(corrupt(1, 18));      // label count
  EXPECT_FALSE(corrupt(2, 1));       // spare byte
  EXPECT_FALSE(corrupt(4 + 2, 16));  // first label above 20 bits
  EXPECT_FALSE(corrupt(4 + 8, 1));   // a label past the count
}

}  // namespace
}  // namespace Vorn::test
