#pragma once
// The encapsulations a FIB via points at by EncapId: a label stack to push,
// or the outer header of a GRE, IPsec-over-GRE, IPsec VTI or VXLAN tunnel.

#include <cstdint>
#include <ostream>
#include <string>
#include <type_traits>

#include "Tunnel/TunnelTable/EncapId.h"
#include "Tunnel/TunnelTable/TunnelInfo.h"
#include "Tunnel/net/UnboundedMplsLabelOperation.h"

namespace Tunnel::TunnelFib {

using TunnelTable::EncapId;
using TunnelTable::EncapType;

// Record (4 + label operation bytes, 6 to 74): the encapId's 32-bit value,
// then the label operation's own record. The encapId's type is not stored:
// every member of the label-stack table is of type labelStackEncap, and
// serializing one of another type is a programming error.
class LabelStackEncap {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelFib::LabelStackEncap";
  static constexpr uint32_t kMaxSerializedLen =
      4 + Vorn::UnboundedMplsLabelOperation::kMaxRecordSize;

  LabelStackEncap() = default;
  explicit LabelStackEncap(EncapId encapId) : encapId_(encapId) {}
  LabelStackEncap(EncapId encapId, Vorn::UnboundedMplsLabelOperation const& labelStack)
      : encapId_(encapId), labelStack_(labelStack) {}

  EncapId encapId() const { return encapId_; }
  EncapId key() const { return encapId_; }
  Vorn::UnboundedMplsLabelOperation const& labelStack() const { return labelStack_; }
  void labelStackIs(Vorn::UnboundedMplsLabelOperation const& s) { labelStack_ = s; }

  friend bool operator==(LabelStackEncap const&, LabelStackEncap const&) = default;
  uint32_t hash(uint32_t seed = 0) const { return labelStack_.hash(encapId_.hash(seed)); }
  // "Value('Tunnel::TunnelFib::LabelStackEncap', ** {'encapId': ..., 'labelStack': ...})"
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, LabelStackEncap const& e) {
    return os << e.stringValue();
  }
  std::string tamselString() const;
  explicit operator bool() const { return *this != LabelStackEncap(); }

  uint32_t serializeLen() const { return 4 + labelStack_.serializeLen(); }
  void serialize(void* buf) const;
  // Reads a record; an invalid one throws TunnelTable::RecordError.
  void deserialize(void const* buf, unsigned len);
  // The record's length, or 0 when it is invalid: shorter than 5 bytes, a
  // bad label operation, or a length other than the one given.
  uint32_t deserializeLen(void const* buf, unsigned len) const;

 private:
  EncapId encapId_;
  Vorn::UnboundedMplsLabelOperation labelStack_;
};

// An encapsulation described by a fixed tunnel-information record; the table
// keeps it as a plain copy of this value (8-byte EncapId, then the record).
template <typename Tag>
class InfoEncap {
 public:
  using Info = typename Tag::Info;
  static constexpr const char* kTypeName = Tag::kTypeName;

  InfoEncap() = default;
  explicit InfoEncap(EncapId encapId) : encapId_(encapId) {}
  InfoEncap(EncapId encapId, Info const& tunnelInfo) : encapId_(encapId), tunnelInfo_(tunnelInfo) {}

  EncapId encapId() const { return encapId_; }
  EncapId key() const { return encapId_; }
  Info const& tunnelInfo() const { return tunnelInfo_; }
  void tunnelInfoIs(Info const& i) { tunnelInfo_ = i; }

  friend bool operator==(InfoEncap const&, InfoEncap const&) = default;
  uint32_t hash(uint32_t seed = 0) const { return tunnelInfo_.hash(encapId_.hash(seed)); }
  std::string stringValue() const {
    return Zent::ValueText(kTypeName)
        .field("encapId", encapId_)
        .field("tunnelInfo", tunnelInfo_)
        .str();
  }
  friend std::ostream& operator<<(std::ostream& os, InfoEncap const& e) {
    return os << e.stringValue();
  }
  std::string tamselString() const {
    return encapId_.typeCliStr(false) + " " + std::to_string(encapId_.encapValue()) + ": " +
           tunnelInfo_.stringValue();
  }
  explicit operator bool() const { return *this != InfoEncap(); }
  // Whether a record read from another process's file is a value.
  bool wellFormed() const { return tunnelInfo_.wellFormed(); }

 private:
  EncapId encapId_;
  Info tunnelInfo_;
};

struct GreEncapTag {
  using Info = GreTunnelInfo;
  static constexpr const char* kTypeName = "Tunnel::TunnelFib::GreEncap";
};
struct IpsecGreEncapTag {
  using Info = IpsecGreTunnelInfo;
  static constexpr const char* kTypeName = "Tunnel::TunnelFib::IpsecGreEncap";
};
struct IpsecVtiEncapTag {
  using Info = IpsecVtiTunnelInfo;
  static constexpr const char* kTypeName = "Tunnel::TunnelFib::IpsecVtiEncap";
};
struct VxlanEncapTag {
  using Info = VxlanTunnelInfo;
  static constexpr const char* kTypeName = "Tunnel::TunnelFib::VxlanEncap";
};
using GreEncap = InfoEncap<GreEncapTag>;
using IpsecGreEncap = InfoEncap<IpsecGreEncapTag>;
using IpsecVtiEncap = InfoEncap<IpsecVtiEncapTag>;
using VxlanEncap = InfoEncap<VxlanEncapTag>;

static_assert(sizeof(GreEncap) == 8 + GreTunnelInfo::kRecordSize);
static_assert(sizeof(IpsecGreEncap) == 8 + IpsecGreTunnelInfo::kRecordSize);
static_assert(sizeof(IpsecVtiEncap) == 8 + IpsecVtiTunnelInfo::kRecordSize);
static_assert(std::is_trivially_copyable_v<GreEncap>);

}  // namespace Tunnel::TunnelFib
