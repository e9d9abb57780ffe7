#pragma once
// MPLS vias: a next hop and interface plus the label operation applied on the
// way out (MplsVia), held by IGP, SR, static and FRR entries, and the multicast
// form that also selects the classes of service it carries (MplsCosVia).

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <type_traits>

#include "Tunnel/TunnelTable/Via.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/net/IntfId.h"
#include "Tunnel/net/IpGenAddr.h"
#include "Tunnel/net/MplsLabelOperation.h"

namespace Tunnel::TunnelTable {

// Record layout (108 bytes): the 36-byte Via record (next hop, interface),
// then the 72-byte MplsLabelOperation record.
class MplsVia {
 public:
  static constexpr uint32_t kRecordSize = 108;

  MplsVia() = default;
  MplsVia(Vorn::IpGenAddr const& nextHop, Vorn::IntfId const& intfId,
          Vorn::MplsLabelOperation const& labels)
      : nextHop_(nextHop), intfId_(intfId), labels_(labels) {}
  MplsVia(Via const& via, Vorn::MplsLabelOperation const& labels)
      : MplsVia(via.nextHop(), via.intfId(), labels) {}
  // Parses the canonical text; throws Zent::ParseError on any other text.
  MplsVia(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  Vorn::IpGenAddr const& nextHop() const { return nextHop_; }
  void nextHopIs(Vorn::IpGenAddr const& nextHop) { nextHop_ = nextHop; }
  Vorn::IntfId const& intfId() const { return intfId_; }
  void intfIdIs(Vorn::IntfId const& intfId) { intfId_ = intfId; }
  Vorn::MplsLabelOperation const& labels() const { return labels_; }
  void labelsIs(Vorn::MplsLabelOperation const& labels) { labels_ = labels; }
  // The next hop and interface without the labels.
  Via via() const { return Via(nextHop_, intfId_); }

  bool wellFormed() const {
    return nextHop_.wellFormed() && intfId_.wellFormed() && labels_.wellFormed();
  }

  friend bool operator==(MplsVia const&, MplsVia const&) = default;
  // By next hop, interface, then label operation.
  friend std::strong_ordering operator<=>(MplsVia const&, MplsVia const&) = default;
  // Field by field: the label operation hashes only the labels in use.
  uint32_t hash(uint32_t seed = 0) const { return labels_.hash(intfId_.hash(nextHop_.hash(seed))); }

  // "Value('Tunnel::TunnelTable::MplsVia', ** {'nextHop': ..., 'intfId': ..., 'labels': ...})"
  std::string stringValue() const;
  // "nextHop: 10.0.0.1, intfId: Ethernet1, labels: [push 100]\n", the via's
  // line in entry dumps (the caller adds the indent).
  std::string dumpLine() const;
  friend std::ostream& operator<<(std::ostream& os, MplsVia const& v) {
    return os << v.stringValue();
  }
  explicit operator bool() const { return *this != MplsVia(); }

 private:
  Vorn::IpGenAddr nextHop_;
  Vorn::IntfId intfId_;
  Vorn::MplsLabelOperation labels_;
};

static_assert(sizeof(MplsVia) == MplsVia::kRecordSize);
static_assert(std::is_trivially_copyable_v<MplsVia>);
static_assert(std::is_standard_layout_v<MplsVia>);

// An MPLS via of a multicast tunnel, restricted to some MPLS traffic classes.
// Record layout (112 bytes): the 108-byte MplsVia record, the class mask
// (1 byte), 3 zero bytes.
class MplsCosVia {
 public:
  static constexpr uint32_t kRecordSize = 112;
  // Bit n set: the via carries packets of traffic class n. The default carries
  // every class, so a plain MPLS via converts without choosing classes; a mask
  // of 0 keeps the via installed but carrying nothing.
  static constexpr uint8_t kAllClasses = 0xff;

  MplsCosVia() = default;
  explicit MplsCosVia(MplsVia const& via, uint8_t cosMask = kAllClasses)
      : via_(via), cosMask_(cosMask) {}
  // Parses the canonical text; throws Zent::ParseError on any other text.
  MplsCosVia(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  MplsVia const& via() const { return via_; }
  void viaIs(MplsVia const& via) { via_ = via; }
  uint8_t cosMask() const { return cosMask_; }
  void cosMaskIs(uint8_t cosMask) { cosMask_ = cosMask; }
  // Traffic classes are 0 to 7; anything else is carried by no via.
  bool carriesClass(uint32_t trafficClass) const {
    return trafficClass < 8 && (cosMask_ >> trafficClass & 1u) != 0;
  }

  bool wellFormed() const {
    return via_.wellFormed() && reserved_[0] == 0 && reserved_[1] == 0 && reserved_[2] == 0;
  }

  friend bool operator==(MplsCosVia const&, MplsCosVia const&) = default;
  friend std::strong_ordering operator<=>(MplsCosVia const&, MplsCosVia const&) = default;
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(&cosMask_, 1, via_.hash(seed)); }

  // "Value('Tunnel::TunnelTable::MplsCosVia', ** {'via': <MplsVia text>, 'cosMask': 255})"
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, MplsCosVia const& v) {
    return os << v.stringValue();
  }
  explicit operator bool() const { return *this != MplsCosVia(); }

 private:
  MplsVia via_;
  uint8_t cosMask_ = kAllClasses;
  uint8_t reserved_[3] = {};
};

static_assert(sizeof(MplsCosVia) == MplsCosVia::kRecordSize);
static_assert(std::is_trivially_copyable_v<MplsCosVia>);
static_assert(std::is_standard_layout_v<MplsCosVia>);

}  // namespace Tunnel::TunnelTable
