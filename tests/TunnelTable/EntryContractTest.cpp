// Every tunnel table entry type: the value contract on random contents and on
// entries with every array full, the committed corpus records and their
// golden texts and dumps, and what only entries do (constructor defaults,
// range-checked indexes, the refused text constructor).

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/Types.h"
#include "tests/TunnelTable/EntryTypes.h"
#include "tests/common/ValueContract.h"
#include "tests/net/ErrorText.h"

namespace valuecontract {

template <typename T>
requires std::is_base_of_v<Tunnel::TunnelTable::TunnelTableEntry, T>
struct ValueSource<T> {
  using Rng = Tunnel::TunnelTable::test::EntryRng;
  static constexpr const char* kName = T::kTypeName;
  static constexpr bool kParses = false;  // entries hold arrays
  static constexpr size_t kSamples = 160;
  static void registerTypes() { Tunnel::TunnelTable::registerTypes(); }
  static void fill(T& e, Rng& r, bool full) {
    Tunnel::TunnelTable::test::EntryTraits<T>::randomize(e, r, full);
  }
  // The base record's two u8 counts, then each list's u32 count, found by
  // walking the field list over the record.
  static std::vector<CountField> counts(T const& e) {
    using namespace Tunnel::TunnelTable;
    std::vector<CountField> out;
    if constexpr (!std::is_same_v<T, ZorbSdkSbfdSessionTunnelTableEntry>) {
      out = {{26, 1, EndpointArray::capacity}, {411, 1, NameArray::capacity}};
    }
    uint32_t at = TunnelTableEntry::kBaseRecordLen;
    // Interface entries put their tunnel information ahead of the vias.
    if constexpr (requires { e.tunnelInfo(); }) at += sizeof(e.tunnelInfo());
    FieldWalk::forEach<T>([&](auto const& fd) {
      using F = typename std::decay_t<decltype(fd)>::Type;
      if constexpr (FieldArray<F>) out.push_back({at, 4, F::capacity});
      if constexpr (!requires { e.tunnelInfo(); } || FieldArray<F>) {
        at += FieldRecord<F>::len(e.*fd.member);
      }
      // The flex-algo record pads isColored to four bytes.
      if constexpr (std::is_same_v<T, FlexAlgoTunnelTableEntry> && std::is_same_v<F, bool>) {
        at += 3;
      }
    });
    return out;
  }
};

INSTANTIATE_TYPED_TEST_SUITE_P(Entries, ValueContract, Tunnel::TunnelTable::test::AllEntryTypes);

}  // namespace valuecontract

namespace Tunnel::TunnelTable::test {
namespace {

using valuecontract::Bytes;
using valuecontract::recordOf;

template <typename T>
class EntryTest : public ::testing::Test {
 public:
  static void SetUpTestSuite() { registerTypes(); }
  static std::string shortName() {
    std::string const n = T::kTypeName;
    return n.substr(n.rfind(':') + 1);
  }
};
TYPED_TEST_SUITE(EntryTest, AllEntryTypes);

// Where T is in AllEntryTypes: the corpus names records by that index.
template <typename T, typename... Ts>
constexpr size_t indexIn(::testing::Types<Ts...>*) {
  size_t i = 0;
  (void)((std::is_same_v<T, Ts> || (++i, false)) || ...);
  return i;
}

// The committed seed records of a type (selector byte dropped).
template <typename T>
Bytes corpusRecord(std::string const& variant) {
  std::string const name =
      fmt::format("{:02}-{}-{}", indexIn<T>(static_cast<AllEntryTypes*>(nullptr)),
                  EntryTest<T>::shortName(), variant);
  std::ifstream in(std::filesystem::path(TUNNEL_ENTRY_CORPUS_DIR) / name, std::ios::binary);
  Bytes b{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  EXPECT_FALSE(b.empty()) << name;
  return b.empty() ? b : Bytes(b.begin() + 1, b.end());
}

// Golden texts and dumps of the committed "small" records, one block per
// type: "== <type>", the text line, then the dump lines. Regenerate after a
// deliberate format change with TUNNEL_WRITE_GOLDEN=1.
std::map<std::string, std::string>& goldens() {
  static std::map<std::string, std::string> g = [] {
    std::map<std::string, std::string> out;
    std::ifstream in(TUNNEL_ENTRY_GOLDEN_FILE);
    std::string line;
    std::string key;
    while (std::getline(in, line)) {
      if (line.rfind("== ", 0) == 0) {
        key = line.substr(3);
      } else {
        out[key] += line + "\n";
      }
    }
    return out;
  }();
  return g;
}

TYPED_TEST(EntryTest, CorpusRecordsReadBackToTheirBytesTextsAndDumps) {
  for (char const* variant : {"default", "small", "random0", "random1", "full"}) {
    Bytes const record = corpusRecord<TypeParam>(variant);
    auto const len = static_cast<unsigned>(record.size());
    auto e = std::make_unique<TypeParam>();
    ASSERT_EQ(e->deserializeLen(record.data(), len), len) << variant;
    e->deserialize(record.data(), len);
    EXPECT_EQ(recordOf(*e), record) << variant;
    if (std::string(variant) != "small") continue;
    std::ostringstream dump;
    DumpContext ctx(dump);
    e->dumpState(&ctx, 2);
    std::string const golden = e->stringValue() + "\n" + dump.str();
    if (std::getenv("TUNNEL_WRITE_GOLDEN")) {
      std::ofstream(TUNNEL_ENTRY_GOLDEN_FILE, std::ios::app)
          << "== " << TypeParam::kTypeName << "\n"
          << golden;
    } else {
      EXPECT_EQ(golden, goldens()[TypeParam::kTypeName]);
    }
  }
}

TYPED_TEST(EntryTest, IndexesPastTheEndThrowAndLeaveTheEntryUnchanged) {
  EntryRng rng(3);
  auto e = std::make_unique<TypeParam>();
  EntryTraits<TypeParam>::randomize(*e, rng, false);
  auto const before = std::make_unique<TypeParam>(*e);
  auto expectThrows = [&](auto&& f, std::string const& index) {
    EXPECT_EQ(Vorn::test::errorOf<Zent::RangeException>(f),
              Zent::rangeMessage("Tunnel::TunnelTable::" + index));
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
class EntryTextDeathTest : public EntryTest<T> {};
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

TEST(EntryDefaultsTest, ConstructorsApplyTheTypesDefaults) {
  EXPECT_EQ(LdpTunnelTableEntry(TunnelId(ldpTunnel, 5)).entryPref(), 55);
  EXPECT_EQ(SrTunnelTableEntry(TunnelId(isisSrTunnel, 5)).entryPref(), 65);
  EXPECT_EQ(SrTunnelTableEntry(TunnelId(ospfSrTunnel, 5)).entryPref(), 60);
  EXPECT_EQ(FlexAlgoTunnelTableEntry(TunnelId(isisFlexAlgoTunnel, 5)).entryPref(), 65);
  // RSVP LER alone orders its vias.
  RsvpLerTunnelTableEntry const ler(TunnelId(rsvpLerTunnel, 5));
  EXPECT_EQ(ler.entryPref(), 45);
  EXPECT_EQ(ler.igpPref(), TunnelIgpPref::defaultRsvpLerIgpPref);
  EXPECT_TRUE(ler.viasOrdered());
  EXPECT_FALSE(FrrTunnelTableEntry(TunnelId(rsvpLerTunnel, 5)).viasOrdered());
  BgpLuTunnelTableEntry const lu(TunnelId(bgpLuTunnel, 5));
  EXPECT_EQ(lu.entryPref(), 85);
  EXPECT_EQ(lu.labels(), BgpLuTunnelTableEntry::defaultLabels());
  EXPECT_EQ(lu.contribution(), ContributionToTunnelRIB::contributes);
  EXPECT_EQ(lu.bgpMetricType(), Vorn::MetricType::internal);
  // The SR preference follows the identifier set later.
  SrTunnelTableEntry sr;
  sr.tunnelIdIs(TunnelId(ospfSrTunnel, 5));
  sr.intializeSrTunnelEntry();
  EXPECT_EQ(sr.entryPref(), 60);
}

// The FRR tail is byte-packed on purpose: seqNo sits unaligned at tail byte 217.
TEST(EntryRecordTest, FrrSequenceNumberIsUnalignedAtTheTailsEnd) {
  FrrTunnelTableEntry e(TunnelId(tiLfaTunnel, 5));
  e.isPrimaryViaUsableIs(true);
  e.seqNoIs(0xabcd);
  Bytes const b = recordOf(e);
  ASSERT_EQ(b.size(), 771u);
  EXPECT_EQ(b[552 + 216], 1);
  EXPECT_EQ(b[552 + 217], 0xcd);
  EXPECT_EQ(b[552 + 218], 0xab);
  Bytes bad = b;
  bad[552 + 216] = 2;  // a bool is 0 or 1
  EXPECT_EQ(e.deserializeLen(bad.data(), 771), 0u);
}

// Every flex-algo record takes the table's whole bound; the fill is zeros.
TEST(EntryRecordTest, FlexAlgoRecordAlwaysFillsTheBoundWithZeros) {
  FlexAlgoTunnelTableEntry e(TunnelId(isisFlexAlgoTunnel, 5));
  EXPECT_EQ(e.serializeLen(), 65372u);
  e.viaIs(0, MplsVia(Vorn::IpGenAddr("10.0.0.2"), Vorn::IntfId::ethernet(1),
                     Vorn::MplsLabelOperation::push({100})));
  EXPECT_EQ(e.serializeLen(), 65372u);
  Bytes b = recordOf(e);
  EXPECT_EQ(e.deserializeLen(b.data(), 65372), 65372u);
  EXPECT_EQ(e.deserializeLen(b.data(), 65371), 0u);
  for (size_t at : {size_t{565}, size_t{567}, size_t{65371}}) {
    Bytes bad = b;
    bad[at] = 1;  // the pad after isColored, and the fill
    EXPECT_EQ(e.deserializeLen(bad.data(), 65372), 0u) << at;
  }
}

}  // namespace
}  // namespace Tunnel::TunnelTable::test
