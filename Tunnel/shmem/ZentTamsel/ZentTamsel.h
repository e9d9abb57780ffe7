#pragma once
// The entity side of shared-memory tables: mount types and status, the mount
// descriptor, and the collection control that shows a collection's mount state
// to reactors and tools as ordinary attributes.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/shmem/Tamsel/ShmFile.h"

namespace ZentTamsel {

enum class MountType : uint8_t {
  writer = 0,
  reader = 1,
  valueShadow = 2,
  keyShadow = 3,
};
constexpr MountType writer() { return MountType::writer; }
constexpr MountType reader() { return MountType::reader; }
constexpr MountType valueShadow() { return MountType::valueShadow; }
constexpr MountType keyShadow() { return MountType::keyShadow; }
std::string_view stringValue(MountType t);
bool sequenceToValue(std::string_view text, MountType& t);

enum class MountStatus : uint8_t {
  unmounted = 0,    // detached; nothing may be read or written
  localWriter = 1,  // not mounted yet: an in-process table serves
  mounted = 2,
};
std::string_view stringValue(MountStatus s);
bool sequenceToValue(std::string_view text, MountStatus& s);

// The mount descriptor: the mount type, the collection parameters a writer
// passes, and the permissions of the files a writer creates.
class MountInfo {
 public:
  struct CollectionInfo {
    std::string name;
    uint32_t size;
    bool operator==(CollectionInfo const&) const = default;
  };

  MountInfo() = default;
  explicit MountInfo(MountType t) : mountType_(t) {}
  MountInfo(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  MountType mountType() const { return mountType_; }
  void mountTypeIs(MountType t) { mountType_ = t; }
  std::vector<CollectionInfo> const& collectionInfo() const { return collections_; }
  // Adds or replaces the parameters of collection `name`.
  void collectionInfoIs(std::string const& name, uint32_t size);
  uint32_t fileMode() const { return fileMode_; }
  void fileModeIs(uint32_t mode) { fileMode_ = mode & 0777; }
  int64_t fileGroup() const { return fileGroup_; }  // -1: the creator's group
  void fileGroupIs(int64_t gid) { fileGroup_ = gid; }
  // The permissions of the files a writer mounted with this descriptor creates.
  Tamsel::FilePermissions filePermissions() const {
    Tamsel::FilePermissions perms;
    perms.mode = fileMode_;
    if (fileGroup_ >= 0) perms.group = static_cast<gid_t>(fileGroup_);
    return perms;
  }

  bool operator==(MountInfo const&) const = default;
  explicit operator bool() const { return !(*this == MountInfo()); }
  uint32_t hash(uint32_t seed = 0) const;
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, MountInfo const& m) {
    return os << m.stringValue();
  }

 private:
  MountType mountType_ = MountType::writer;
  std::vector<CollectionInfo> collections_;
  uint32_t fileMode_ = 0600;
  int64_t fileGroup_ = -1;
};

// The control attribute of a shared-memory collection (`entryControl` and the
// like): its mode, mount status and quiesced flag, each notified on change.
class CollectionControl : public Zent::Entity {
 public:
  static constexpr Zent::AttributeId kModeId = 1;
  static constexpr Zent::AttributeId kMountStatusId = 2;
  static constexpr Zent::AttributeId kQuiescedId = 3;

  explicit CollectionControl(Zent::String const& name) : Entity(name) {}

  MountType mode() const { return mode_; }
  void modeIs(MountType m) { attributeIs(mode_, m, kModeId); }
  MountStatus mountStatus() const { return mountStatus_; }
  void mountStatusIs(MountStatus s) { attributeIs(mountStatus_, s, kMountStatusId); }
  bool quiesced() const { return quiesced_; }
  void quiescedIs(bool q) { attributeIs(quiesced_, q, kQuiescedId); }

  class NotifieeConst : public Zent::PtrInterface::NotifieeConst {
   public:
    virtual void handleMode() {}
    virtual void handleMountStatus() {}
    virtual void handleQuiesced() {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const&) override;
  };

 private:
  MountType mode_ = MountType::writer;
  MountStatus mountStatus_ = MountStatus::localWriter;
  bool quiesced_ = false;
};

Zent::Ptr<CollectionControl> collectionControlFactory(Zent::String const& name);

// Registers the binding's value types with the type registry.
void registerTypes();

}  // namespace ZentTamsel
