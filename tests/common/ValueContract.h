#pragma once
// The contract every value type keeps, written once and instantiated per type:
// copies are equal and hash equal, the text is the same through every channel
// and reads back where the type parses text, distinct values differ in text
// and mostly in hash, records round-trip with their exact length, and damaged
// records are refused or read as another value.
//
// A test file specialises ValueSource<T> for each of its types, then
//   INSTANTIATE_TYPED_TEST_SUITE_P(Name, ValueContract, ::testing::Types<...>);
// ValueSource<T> gives
//   kName                       the type registry's name of T
//   Rng, fill(T&, Rng&, bool)   random contents; the bool asks for full arrays
// and optionally
//   kParses = false             the text does not read back
//   kSamples                    how many random values (default 300)
//   counts(T const&)            CountField of each list count in the record
//   kReportedLen                what deserializeLen reports for every valid
//                               record (the table's slot) instead of its length
//   kExactLen = true            a valid record followed by more bytes is refused

#include <compare>
#include <cstring>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "tests/net/ErrorText.h"

namespace valuecontract {

template <typename T>
struct ValueSource;

// A list count in a record: where, how wide, and the array's capacity.
struct CountField {
  uint32_t offset;
  uint32_t size;
  uint32_t capacity;
};

using Bytes = std::vector<unsigned char>;

template <typename T>
Bytes recordOf(T const& v) {
  Bytes b(v.serializeLen());
  v.serialize(b.data());
  return b;
}

// A copy of `v` with one byte of its record replaced.
template <typename T>
T damaged(T const& v, size_t byte, unsigned char value) {
  unsigned char record[sizeof(T)];
  std::memcpy(record, &v, sizeof record);
  record[byte] = value;
  T out;
  std::memcpy(&out, record, sizeof record);
  return out;
}

// The record `good` of `v` with `patch` written at `at` is refused by
// deserializeLen; unless E is void, deserialize throws E, and leaves its
// target as it was when `keepsTarget`.
template <typename E, typename T>
void expectPatchRefused(T const& v, Bytes const& good, size_t at, Bytes const& patch,
                        bool keepsTarget = false) {
  Bytes bad = good;
  std::memcpy(&bad[at], patch.data(), patch.size());
  auto const len = static_cast<unsigned>(bad.size());
  EXPECT_EQ(v.deserializeLen(bad.data(), len), 0u) << "at " << at;
  if constexpr (!std::is_void_v<E>) {
    auto back = std::make_unique<T>();
    EXPECT_THROW(back->deserialize(bad.data(), len), E) << "at " << at;
    EXPECT_TRUE(!keepsTarget || *back == T()) << "a refused record changed the value, at " << at;
  }
}

template <typename T>
class ValueContract : public ::testing::Test {
 protected:
  using Source = ValueSource<T>;
  static constexpr bool kParses = [] {
    if constexpr (requires { Source::kParses; }) return Source::kParses;
    return true;
  }();
  static constexpr bool kVariableRecord = requires(T const& v) { v.serializeLen(); };
  static constexpr bool kWellFormed = requires(T const& v) { v.wellFormed(); };

  static void SetUpTestSuite() { Source::registerTypes(); }

  // What deserializeLen says of a valid record of `len` bytes in `given`.
  static uint32_t reported(uint32_t len, uint32_t given) {
    if constexpr (requires { Source::kReportedLen; }) return Source::kReportedLen;
    if constexpr (requires { Source::kExactLen; }) return given == len ? len : 0;
    return len;
  }

  // Values may be entries of a hundred kilobytes: they live on the heap.
  std::unique_ptr<T> random(bool full = false) {
    auto v = std::make_unique<T>();
    Source::fill(*v, rng_, full);
    return v;
  }
  // Random values, the last with every array full.
  std::vector<std::unique_ptr<T>> values(size_t n = 0) {
    if (n == 0) {
      n = 300;
      if constexpr (requires { Source::kSamples; }) n = Source::kSamples;
    }
    std::vector<std::unique_ptr<T>> out;
    for (size_t i = 0; i + 1 < n; ++i) out.push_back(random());
    out.push_back(random(true));
    return out;
  }

  typename Source::Rng rng_{0x5eed};
};

TYPED_TEST_SUITE_P(ValueContract);

TYPED_TEST_P(ValueContract, CopiesAreEqualAndHashEqualAndOnlyTheDefaultIsFalse) {
  EXPECT_FALSE(static_cast<bool>(TypeParam()));
  for (auto const& v : this->values()) {
    auto copy = std::make_unique<TypeParam>(*v);
    auto assigned = this->random();
    *assigned = *v;
    EXPECT_EQ(*copy, *v);
    EXPECT_EQ(*assigned, *v);
    for (uint32_t seed : {0u, 0x5a5a5a5au}) EXPECT_EQ(copy->hash(seed), v->hash(seed));
    EXPECT_EQ(static_cast<bool>(*v), *v != TypeParam());
  }
}

TYPED_TEST_P(ValueContract, TextIsTheSameThroughEveryChannelAndReadsBack) {
  Zent::GenericIf const* type = Zent::type(TestFixture::Source::kName);
  ASSERT_NE(type, nullptr);
  for (auto const& v : this->values(30)) {
    std::string const text = v->stringValue();
    SCOPED_TRACE(text);
    std::ostringstream os;
    os << *v;
    EXPECT_EQ(os.str(), text);
    EXPECT_EQ(fmt::format("{}", *v), text);
    EXPECT_EQ(Zent::valueToStrep(*v), text);
    EXPECT_EQ(type->genericIfStrRep(v.get()), text);
    EXPECT_EQ(type->genericIfHash(v.get()), v->hash());
    auto copy = std::make_unique<TypeParam>(*v);
    EXPECT_TRUE(type->genericIfEqual(copy.get(), v.get()));
    if constexpr (TestFixture::kParses) {
      TypeParam const parsed = Zent::strepToValue<TypeParam>(Zent::String(text));
      EXPECT_EQ(parsed, *v);
      EXPECT_EQ(parsed.hash(7), v->hash(7));
      // Shared-memory tables compare and hash fixed records raw.
      if constexpr (!TestFixture::kVariableRecord) {
        EXPECT_EQ(std::memcmp(static_cast<void const*>(&parsed), v.get(), sizeof parsed), 0);
      }
      TypeParam viaRegistry;
      type->genericIfStrepToValue(&viaRegistry, text);
      EXPECT_EQ(viaRegistry, *v);
      EXPECT_THROW(Zent::strepToValue<TypeParam>(Zent::String(text + "x")), Zent::ParseError);
    }
  }
}

TYPED_TEST_P(ValueContract, DistinctValuesDifferInTextAndMostlyInHash) {
  auto const vs = this->values();
  size_t distinct = 0;
  size_t collisions = 0;
  for (size_t i = 0; i + 1 < vs.size(); ++i) {
    TypeParam const& a = *vs[i];
    TypeParam const& b = *vs[i + 1];
    EXPECT_EQ(a == b, a.stringValue() == b.stringValue()) << a << " vs " << b;
    if (a != b) {
      ++distinct;
      collisions += a.hash() == b.hash();
    }
    if constexpr (std::three_way_comparable<TypeParam>) {
      EXPECT_EQ((a <=> b) == 0, a == b);
      EXPECT_EQ((a <=> b) < 0, (b <=> a) > 0);
    }
  }
  ASSERT_GT(distinct, vs.size() / 3);
  // A hash that skips a field collides on every pair differing only there.
  EXPECT_LT(collisions, distinct / 50 + 1);
}

TYPED_TEST_P(ValueContract, RecordRoundTripsWithItsExactLength) {
  for (auto const& v : this->values(12)) {
    if constexpr (TestFixture::kVariableRecord) {
      uint32_t const len = v->serializeLen();
      // Written over two fills: every byte below len is written, none past it.
      Bytes zeros(len + 16, 0x00);
      Bytes ones(len + 16, 0xff);
      v->serialize(zeros.data());
      v->serialize(ones.data());
      ASSERT_TRUE(std::equal(zeros.begin(), zeros.begin() + len, ones.begin()));
      EXPECT_EQ(Bytes(zeros.begin() + len, zeros.end()), Bytes(16, 0x00));
      EXPECT_EQ(Bytes(ones.begin() + len, ones.end()), Bytes(16, 0xff));
      ASSERT_EQ(v->deserializeLen(zeros.data(), len), this->reported(len, len));
      EXPECT_EQ(v->deserializeLen(zeros.data(), len + 16), this->reported(len, len + 16));
      // Into a value with other contents: every field is overwritten.
      auto back = this->random(this->rng_.coin());
      back->deserialize(zeros.data(), len);
      EXPECT_EQ(*back, *v);
      EXPECT_EQ(back->hash(), v->hash());
      EXPECT_EQ(recordOf(*back), Bytes(zeros.begin(), zeros.begin() + len));
    } else {
      static_assert(std::is_trivially_copyable_v<TypeParam>);
      if constexpr (TestFixture::kWellFormed) {
        ASSERT_TRUE(v->wellFormed()) << *v;
      }
      unsigned char record[sizeof(TypeParam)];
      std::memcpy(record, v.get(), sizeof record);
      TypeParam back;
      std::memcpy(static_cast<void*>(&back), record, sizeof record);
      EXPECT_EQ(back, *v);
      EXPECT_EQ(back.hash(3), v->hash(3));
    }
  }
}

// Records are canonical: a damaged record a reader accepts is a value, and
// another one, which equality, hash and text all tell apart.
TYPED_TEST_P(ValueContract, DamagedRecordsAreRefusedOrAnotherValue) {
  if constexpr (!TestFixture::kVariableRecord && !TestFixture::kWellFormed) {
    GTEST_SKIP() << "every bit pattern is a value";
  } else {
    size_t accepted = 0;
    size_t tries = 0;
    for (auto const& v : this->values(7)) {
      if constexpr (TestFixture::kVariableRecord) {
        Bytes const good = recordOf(*v);
        auto const len = static_cast<uint32_t>(good.size());
        // Cut short: refused, without a read past the (exact-size) copy.
        for (uint32_t cut : {len - 1, len / 2, 1u, 0u}) {
          if (cut >= len) continue;
          Bytes const cutRecord(good.begin(), good.begin() + cut);
          EXPECT_EQ(v->deserializeLen(cutRecord.data(), cut), 0u) << cut << " of " << len;
        }
        // Half the flips hit a non-zero byte: most zero bytes are unused slots
        // or fill, where any change is refused.
        std::vector<size_t> used;
        for (size_t i = 0; i < good.size(); ++i) {
          if (good[i]) used.push_back(i);
        }
        for (int n = 0; n < 60; ++n, ++tries) {
          Bytes bad = good;
          size_t const at = used.empty() || this->rng_.coin() ? this->rng_.below(bad.size())
                                                              : used[this->rng_.below(used.size())];
          bad[at] ^= static_cast<unsigned char>(1u << this->rng_.below(8));
          if (v->deserializeLen(bad.data(), len) != this->reported(len, len)) continue;
          ++accepted;
          auto back = std::make_unique<TypeParam>();
          back->deserialize(bad.data(), len);
          EXPECT_NE(*back, *v) << "byte " << at;
          EXPECT_NE(back->hash(), v->hash()) << "byte " << at;
          EXPECT_NE(back->stringValue(), v->stringValue()) << "byte " << at;
          // A slot-sized report accepts a shorter record followed by spare bytes.
          ASSERT_LE(back->serializeLen(), len);
          EXPECT_EQ(recordOf(*back), Bytes(bad.begin(), bad.begin() + back->serializeLen()))
              << "byte " << at;
        }
      } else if constexpr (TestFixture::kWellFormed) {
        // wellFormed() is the only check a reader makes on a foreign record.
        for (int n = 0; n < 40; ++n, ++tries) {
          unsigned char record[sizeof(TypeParam)];
          std::memcpy(record, v.get(), sizeof record);
          record[this->rng_.below(sizeof record)] =
              static_cast<unsigned char>(this->rng_.below(256));
          TypeParam damaged;
          std::memcpy(static_cast<void*>(&damaged), record, sizeof record);
          if (!damaged.wellFormed()) continue;
          ++accepted;
          if constexpr (TestFixture::kParses) {
            std::string const text = damaged.stringValue();
            EXPECT_EQ(Zent::strepToValue<TypeParam>(Zent::String(text)), damaged) << text;
          }
        }
      }
    }
    // Enough damaged records pass for the test to test something.
    EXPECT_GT(accepted, TestFixture::kVariableRecord ? tries / 10 : 0);
  }
}

TYPED_TEST_P(ValueContract, CountsAboveCapacityAreRefused) {
  if constexpr (requires(TypeParam const& v) { TestFixture::Source::counts(v); }) {
    for (auto const& v : this->values(3)) {
      Bytes const good = recordOf(*v);
      for (CountField const& c : TestFixture::Source::counts(*v)) {
        Bytes bad = good;
        uint32_t const count = c.capacity + 1;
        std::memcpy(&bad[c.offset], &count, c.size);  // little-endian: the low bytes
        auto const len = static_cast<unsigned>(bad.size());
        EXPECT_EQ(v->deserializeLen(bad.data(), len), 0u) << "count at " << c.offset;
        auto back = std::make_unique<TypeParam>();
        EXPECT_EQ(
            Vorn::test::errorOf<Zent::RangeException>([&] { back->deserialize(bad.data(), len); }),
            fmt::format("PodArray::set expected size <= {}, instead got {}", c.capacity, count));
      }
    }
  }
}

REGISTER_TYPED_TEST_SUITE_P(ValueContract, CopiesAreEqualAndHashEqualAndOnlyTheDefaultIsFalse,
                            TextIsTheSameThroughEveryChannelAndReadsBack,
                            DistinctValuesDifferInTextAndMostlyInHash,
                            RecordRoundTripsWithItsExactLength,
                            DamagedRecordsAreRefusedOrAnotherValue, CountsAboveCapacityAreRefused);

}  // namespace valuecontract
