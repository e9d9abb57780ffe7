#include "Tunnel/shmem/ZentTamsel/ZentTamsel.h"

#include <algorithm>
#include <array>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/framework/TypeRegistry.h"

namespace ZentTamsel {
namespace {
constexpr std::array<std::string_view, 4> kMountTypeNames = {"writer", "reader", "valueShadow",
                                                             "keyShadow"};
constexpr std::array<std::string_view, 3> kMountStatusNames = {"unmounted", "localWriter",
                                                               "mounted"};

}  // namespace

std::string_view stringValue(MountType t) {
  auto i = static_cast<size_t>(t);
  return i < kMountTypeNames.size() ? kMountTypeNames[i] : "invalidMountType";
}
bool sequenceToValue(std::string_view text, MountType& t) {
  return Zent::enumFromName(kMountTypeNames, text, t);
}
std::string_view stringValue(MountStatus s) {
  auto i = static_cast<size_t>(s);
  return i < kMountStatusNames.size() ? kMountStatusNames[i] : "invalidMountStatus";
}
bool sequenceToValue(std::string_view text, MountStatus& s) {
  return Zent::enumFromName(kMountStatusNames, text, s);
}

void MountInfo::collectionInfoIs(std::string const& name, uint32_t size) {
  for (auto& c : collections_) {
    if (c.name == name) {
      c.size = size;
      return;
    }
  }
  collections_.push_back({name, size});
}

uint32_t MountInfo::hash(uint32_t seed) const {
  auto t = static_cast<uint8_t>(mountType_);
  uint32_t h = Zent::hashBytes(&t, 1, seed);
  for (auto const& c : collections_) {
    h = Zent::hashBytes(c.name.data(), c.name.size(), h);
    h = Zent::hashBytes(&c.size, sizeof c.size, h);
  }
  h = Zent::hashBytes(&fileMode_, sizeof fileMode_, h);
  return Zent::hashBytes(&fileGroup_, sizeof fileGroup_, h);
}

std::string MountInfo::stringValue() const {
  std::string list = "[";
  for (size_t i = 0; i < collections_.size(); ++i) {
    if (i) list += ", ";
    list += Zent::ValueText("ZentTamsel::MountInfo::CollectionInfo")
                .field("name", Zent::quoteText(collections_[i].name))
                .field("size", collections_[i].size)
                .str();
  }
  list += "]";
  return Zent::ValueText("ZentTamsel::MountInfo")
      .field("mountType", mountType_)
      .field("collectionInfo", list)
      .field("fileMode", fileMode_)
      .field("fileGroup", std::to_string(fileGroup_))
      .str();
}

MountInfo::MountInfo(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  std::string_view text(it.ptr(), static_cast<size_t>(end - it));
  Zent::ValueTextReader r(text, "ZentTamsel::MountInfo");
  mountType_ = Zent::parseFieldText<MountType>(r.field("mountType"), "mountType");
  for (std::string_view item : Zent::splitListText(r.field("collectionInfo"))) {
    Zent::ValueTextReader c(item, "ZentTamsel::MountInfo::CollectionInfo");
    collectionInfoIs(Zent::unquoteText(c.field("name")),
                     Zent::parseFieldText<uint32_t>(c.field("size"), "size"));
  }
  fileMode_ = Zent::parseFieldText<uint32_t>(r.field("fileMode"), "fileMode") & 0777;
  std::string_view group = Zent::trimText(r.field("fileGroup"));
  fileGroup_ = group == "-1"
                   ? -1
                   : static_cast<int64_t>(Zent::parseUnsignedText<uint32_t>(group, "fileGroup"));
  it = end;
}

void CollectionControl::NotifieeConst::onAttribute(Zent::AttributeId id, Zent::KeyRef const&) {
  switch (id) {
    case kModeId:
      handleMode();
      break;
    case kMountStatusId:
      handleMountStatus();
      break;
    case kQuiescedId:
      handleQuiesced();
      break;
    default:
      break;
  }
}

Zent::Ptr<CollectionControl> collectionControlFactory(Zent::String const& name) {
  return Zent::newEntity<CollectionControl>(name);
}

void registerTypes() {
  static bool done = [] {
    Zent::registerValueType<MountInfo>("ZentTamsel::MountInfo");
    return true;
  }();
  (void)done;
}

}  // namespace ZentTamsel
