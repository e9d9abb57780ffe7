// Multicast tree names: capacity, quoting, and the variable record's checks.

#include <memory>

#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/net/MetricType.h"
#include "Tunnel/net/MulticastTreeId.h"

namespace Routing::Multicast {
namespace {

TEST(MulticastTreeIdTest, NamesUpToCapacityAreKeptAndLongerOnesRefused) {
  std::string full(MulticastTreeId::kMaxNameLen, 'n');
  EXPECT_EQ(MulticastTreeId(full).name(), full);
  try {
    MulticastTreeId(full + "n");
    ADD_FAILURE() << "64-byte name accepted";
  } catch (Zent::RangeException const& e) {
    EXPECT_STREQ(e.what(),
                 "Routing::Multicast::MulticastTreeId::name length < 0 or > 63 not allowed, got "
                 "64");
  }
  std::string text = "'" + full + "n'";
  EXPECT_THROW(Zent::strepToValue<MulticastTreeId>(Zent::String(text)), Zent::ParseError);
}

TEST(MulticastTreeIdTest, TextIsQuotedSoSeparatorsSurvive) {
  MulticastTreeId t("mldp, root 10.0.0.1: 'x'");
  EXPECT_EQ(t.stringValue(), "'mldp, root 10.0.0.1: \\'x\\''");
  EXPECT_EQ(Zent::strepToValue<MulticastTreeId>(Zent::String(t.stringValue())), t);
  EXPECT_EQ(MulticastTreeId().stringValue(), "''");
  EXPECT_THROW(Zent::strepToValue<MulticastTreeId>(Zent::String("tree-1")), Zent::ParseError);
}

TEST(MulticastTreeIdTest, RecordIsCheckedWithinTheGivenLength) {
  MulticastTreeId t("tree-1");
  std::vector<unsigned char> rec(t.serializeLen());
  t.serialize(rec.data());
  ASSERT_EQ(rec.size(), 7u);
  for (unsigned l = 0; l < rec.size(); ++l) {
    std::unique_ptr<unsigned char[]> buf(new unsigned char[l]);
    if (l != 0) std::memcpy(buf.get(), rec.data(), l);
    EXPECT_EQ(t.deserializeLen(buf.get(), l), 0u) << l;
  }
  rec.assign(100, 'a');
  rec[0] = 64;  // longer than any name
  EXPECT_EQ(MulticastTreeId::recordLen(rec.data(), 100), 0u);
  MulticastTreeId kept("kept");
  EXPECT_THROW(kept.deserialize(rec.data(), 100), Zent::RangeException);
  EXPECT_EQ(kept.name(), "kept");
}

TEST(MetricTypeTest, DefaultIsInternalWithCodeOneAndNamesRoundTrip) {
  EXPECT_EQ(static_cast<uint32_t>(Vorn::kDefaultMetricType), 1u);
  for (auto m : {Vorn::MetricType::none, Vorn::MetricType::internal, Vorn::MetricType::external}) {
    Vorn::MetricType back{};
    ASSERT_TRUE(sequenceToValue(stringValue(m), back));
    EXPECT_EQ(back, m);
  }
  Vorn::MetricType out = Vorn::MetricType::none;
  EXPECT_FALSE(sequenceToValue("Internal", out));
  EXPECT_EQ(stringValue(static_cast<Vorn::MetricType>(9)), "unknown");
  EXPECT_EQ(fmt::format("{}", Vorn::MetricType::external), "external");
}

}  // namespace
}  // namespace Routing::Multicast
