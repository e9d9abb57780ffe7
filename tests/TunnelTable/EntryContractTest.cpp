// One contract over every tunnel table entry type, on random contents and on
// entries with every array full: copies and records give equal values with
// equal hashes, texts name the type and read the same through every channel,
// records report their exact length and are refused when truncated or when a
// count exceeds its array, and a record that still validates after a byte
// changed is a different value.

#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/Types.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "tests/TunnelTable/EntryTypes.h"

namespace Tunnel::TunnelTable::test {
namespace {

using Bytes = std::vector<unsigned char>;

template <typename T>
Bytes recordOf(T const& e) {
  Bytes b(e.serializeLen());
  e.serialize(b.data());
  return b;
}

// Records start with the 552-byte base record unless the traits say
// `kHasBaseRecord = false` (a compact record of its own).
template <typename Traits>
constexpr bool hasBaseRecord() {
  if constexpr (requires { Traits::kHasBaseRecord; }) {
    return Traits::kHasBaseRecord;
  } else {
    return true;
  }
}

template <typename T>
class EntryContractTest : public ::testing::Test {
 protected:
  using Traits = EntryTraits<T>;

  static void SetUpTestSuite() { registerTypes(); }

  // Entries are tens of kilobytes: they live on the heap.
  std::unique_ptr<T> random(bool full = false) {
    auto e = std::make_unique<T>();
    Traits::randomize(*e, rng_, full);
    return e;
  }
  // A few random entries and one with every array full.
  std::vector<std::unique_ptr<T>> samples(size_t n = 10) {
    std::vector<std::unique_ptr<T>> out;
    for (size_t i = 0; i < n; ++i) out.push_back(random());
    out.push_back(random(true));
    return out;
  }
  // The short type name, as the text-constructor assertion names it.
  static std::string shortName() {
    std::string n = Traits::kName;
    return n.substr(n.rfind(':') + 1);
  }

  EntryRng rng_{0xe471};
};

TYPED_TEST_SUITE(EntryContractTest, AllEntryTypes);

TYPED_TEST(EntryContractTest, CopiesAreEqualAndHashEqual) {
  for (auto const& e : this->samples()) {
    auto copy = std::make_unique<TypeParam>(*e);
    EXPECT_EQ(*copy, *e);
    auto assigned = this->random();
    *assigned = *e;
    EXPECT_EQ(*assigned, *e);
    for (uint32_t seed : {0u, 0x5eedu}) EXPECT_EQ(copy->hash(seed), e->hash(seed));
    EXPECT_EQ(static_cast<bool>(*e), *e != TypeParam());
  }
  EXPECT_FALSE(static_cast<bool>(TypeParam()));
}

TYPED_TEST(EntryContractTest, TextNamesTheTypeAndIsTheSameThroughEveryChannel) {
  using Traits = typename TestFixture::Traits;
  EXPECT_EQ(Traits::small().stringValue(), Traits::kSmallText);
  Zent::GenericIf const* type = Zent::type(Traits::kName);
  ASSERT_NE(type, nullptr);
  for (auto const& e : this->samples(4)) {
    std::string const text = e->stringValue();
    EXPECT_EQ(text.rfind(fmt::format("Value('{}', ** {{'tunnelId': ", Traits::kName), 0), 0u);
    std::ostringstream os;
    os << *e;
    EXPECT_EQ(os.str(), text);
    EXPECT_EQ(fmt::format("{}", *e), text);
    EXPECT_EQ(valueToStrep(*e), text);
    EXPECT_EQ(type->genericIfStrRep(e.get()), text);
    EXPECT_EQ(type->genericIfHash(e.get()), e->hash());
    auto copy = std::make_unique<TypeParam>(*e);
    EXPECT_TRUE(type->genericIfEqual(copy.get(), e.get()));
  }
}

TYPED_TEST(EntryContractTest, RecordRoundTripsAndReportsItsExactLength) {
  for (auto const& e : this->samples()) {
    uint32_t const len = e->serializeLen();
    // Written twice over different fill: every byte below len is written,
    // none past it.
    Bytes zeros(len + 16, 0x00);
    Bytes ones(len + 16, 0xff);
    e->serialize(zeros.data());
    e->serialize(ones.data());
    ASSERT_TRUE(std::equal(zeros.begin(), zeros.begin() + len, ones.begin()));
    EXPECT_EQ(Bytes(zeros.begin() + len, zeros.end()), Bytes(16, 0x00));
    EXPECT_EQ(Bytes(ones.begin() + len, ones.end()), Bytes(16, 0xff));

    ASSERT_EQ(e->deserializeLen(zeros.data(), len), len);
    EXPECT_EQ(e->deserializeLen(zeros.data(), len + 16), len);
    // Into an entry with other contents: every field is overwritten.
    auto back = this->random(this->rng_.coin());
    back->deserialize(zeros.data(), len);
    EXPECT_EQ(*back, *e);
    EXPECT_EQ(back->hash(), e->hash());
    EXPECT_EQ(recordOf(*back), Bytes(zeros.begin(), zeros.begin() + len));
  }
}

TYPED_TEST(EntryContractTest, FullArraysGiveTheLargestRecord) {
  using Traits = typename TestFixture::Traits;
  EXPECT_EQ(TypeParam::kMaxSerializedLen, Traits::kMaxRecordLen);
  EXPECT_EQ(this->random(true)->serializeLen(), Traits::kMaxRecordLen);
  for (auto const& e : this->samples()) EXPECT_LE(e->serializeLen(), Traits::kMaxRecordLen);
}

TYPED_TEST(EntryContractTest, TruncatedRecordsAreRefused) {
  for (auto const& e : this->samples(4)) {
    Bytes const b = recordOf(*e);
    uint32_t const len = static_cast<uint32_t>(b.size());
    // An exact-size copy, so that ASan sees any read past the given length.
    for (uint32_t cut : {len - 1, len / 2, TunnelTableEntry::kBaseRecordLen,
                         TunnelTableEntry::kBaseRecordLen - 1, 1u, 0u}) {
      if (cut >= len) continue;
      Bytes shortRecord(b.begin(), b.begin() + cut);
      EXPECT_EQ(e->deserializeLen(shortRecord.data(), cut), 0u) << cut << " of " << len;
    }
  }
}

TYPED_TEST(EntryContractTest, CountsAboveCapacityAreRefused) {
  using Traits = typename TestFixture::Traits;
  for (auto const& e : this->samples(3)) {
    Bytes const good = recordOf(*e);
    unsigned const len = static_cast<unsigned>(good.size());
    struct Patch {
      uint32_t offset;
      uint32_t size;
      uint32_t count;
      uint32_t capacity;
    };
    std::vector<Patch> patches;
    if (hasBaseRecord<Traits>()) patches = {{26, 1, 17, 16}, {411, 1, 129, 128}};
    for (uint32_t off : Traits::listCountOffsets(*e)) patches.push_back({off, 4, 601, 600});
    for (Patch const& p : patches) {
      Bytes bad = good;
      std::memcpy(&bad[p.offset], &p.count, p.size);  // little-endian: the low bytes
      EXPECT_EQ(e->deserializeLen(bad.data(), len), 0u) << "count at " << p.offset;
      auto back = std::make_unique<TypeParam>();
      try {
        back->deserialize(bad.data(), len);
        ADD_FAILURE() << "count at " << p.offset << " was read";
      } catch (Zent::RangeException const& ex) {
        EXPECT_EQ(ex.what(), fmt::format("PodArray::set expected size <= {}, instead got {}",
                                         p.capacity, p.count));
      }
    }
  }
}

// Records are canonical, so a changed byte that still validates is another
// value: equality, hash and text must all see every field.
TYPED_TEST(EntryContractTest, ChangedRecordsThatValidateAreOtherValues) {
  size_t accepted = 0;
  size_t tries = 0;
  for (auto const& e : this->samples(6)) {
    Bytes const good = recordOf(*e);
    std::string const text = e->stringValue();
    // Half the changes hit a non-zero byte: most zero bytes are unused slots
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
      if (e->deserializeLen(bad.data(), static_cast<unsigned>(bad.size())) != bad.size()) continue;
      ++accepted;
      auto back = std::make_unique<TypeParam>();
      back->deserialize(bad.data(), static_cast<unsigned>(bad.size()));
      EXPECT_NE(*back, *e) << "byte " << at;
      EXPECT_NE(back->hash(), e->hash()) << "byte " << at;
      EXPECT_NE(back->stringValue(), text) << "byte " << at;
      EXPECT_EQ(recordOf(*back), bad) << "byte " << at;
    }
  }
  EXPECT_GT(accepted, tries / 10);
}

TYPED_TEST(EntryContractTest, ConstructorsSetTheTypesDefaults) {
  using Traits = typename TestFixture::Traits;
  TunnelId const id(TunnelId::convertToTunnelValue(Traits::kSampleType, 5));
  auto const e = std::make_unique<TypeParam>(id);
  EXPECT_EQ(e->tunnelId(), id);
  EXPECT_EQ(e->entryPref(), Traits::kDefaultPref);
  EXPECT_EQ(e->nexthopTunnelId(), TunnelId());
  EXPECT_EQ(e->entryMetric(), 0u);
  EXPECT_EQ(e->endpoint().count(), 0u);
  EXPECT_EQ(e->tep(), Vorn::IpGenPrefix());
  // The default entry is the one of identifier 0.
  EXPECT_EQ(TypeParam(), TypeParam(TunnelId()));
}

TYPED_TEST(EntryContractTest, IndexesPastTheEndThrowAndLeaveTheEntryUnchanged) {
  auto e = this->random();
  auto const before = std::make_unique<TypeParam>(*e);
  auto expectThrows = [&](auto&& f, std::string const& type) {
    try {
      f();
      ADD_FAILURE() << type << " index past the end was accepted";
    } catch (Zent::RangeException const& ex) {
      EXPECT_EQ(ex.what(), Zent::rangeMessage("Tunnel::TunnelTable::" + type));
    }
    EXPECT_EQ(*e, *before);
  };
  expectThrows([&] { e->endpointIs(16, Vorn::IpGenPrefix()); }, "TepIndex");
  expectThrows([&] { e->nameIs(128, 'x'); }, "NameIndex");
  expectThrows([&] { e->nameIs(std::string(129, 'x')); }, "NameIndex");
  if constexpr (requires { e->viaIs(0, *e->via().begin()); }) {
    using Elem = typename std::remove_cvref_t<decltype(e->via())>::value_type;
    expectThrows([&] { e->viaIs(600, Elem()); }, "ViaIndex");
    expectThrows([&] { e->viaDel(600); }, "ViaIndex");
  }
}

template <typename T>
class EntryTextDeathTest : public EntryContractTest<T> {};
TYPED_TEST_SUITE(EntryTextDeathTest, AllEntryTypes);

TYPED_TEST(EntryTextDeathTest, TextConstructorAssertsBecauseEntriesHoldArrays) {
  Zent::String const text(TypeParam().stringValue());
  std::string const expected =
      "\"No String constructor for " + this->shortName() + " - has collection\" == nullptr";
  EXPECT_DEATH(
      {
        Zent::String::IteratorConst it = text.begin();
        TypeParam e(it, text.end());
      },
      expected);
}

}  // namespace
}  // namespace Tunnel::TunnelTable::test
