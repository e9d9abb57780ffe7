#include "Tunnel/TunnelFib/Encaps.h"

#include <cstring>

#include "Tunnel/TunnelTable/RecordIo.h"
#include "Tunnel/framework/Text.h"

namespace Tunnel::TunnelFib {

std::string LabelStackEncap::stringValue() const {
  return Zent::ValueText(kTypeName)
      .field("encapId", encapId_)
      .field("labelStack", labelStack_)
      .str();
}

std::string LabelStackEncap::tamselString() const {
  return "label stack " + std::to_string(encapId_.encapValue()) + ": " + labelStack_.stringValue();
}

void LabelStackEncap::serialize(void* buf) const {
  // The record keeps the value only; the type is the table's.
  fmassert(encapId_.encapType() == EncapType::labelStackEncap, "label stack under {}",
           encapId_.stringValue());
  uint32_t const value = encapId_.encapValue();
  std::memcpy(buf, &value, 4);
  labelStack_.serialize(static_cast<char*>(buf) + 4);
}

uint32_t LabelStackEncap::deserializeLen(void const* buf, unsigned len) const {
  if (buf == nullptr || len < 5) return 0;
  uint32_t const op =
      Vorn::UnboundedMplsLabelOperation::recordLen(static_cast<char const*>(buf) + 4, len - 4);
  if (op == 0 || 4 + op != len) return 0;
  return len;
}

void LabelStackEncap::deserialize(void const* buf, unsigned len) {
  if (deserializeLen(buf, len) == 0) {
    throw TunnelTable::RecordError(std::string(kTypeName) + ": invalid record of " +
                                   std::to_string(len) + " bytes");
  }
  uint32_t value;
  std::memcpy(&value, buf, 4);
  Vorn::UnboundedMplsLabelOperation stack;
  stack.deserialize(static_cast<char const*>(buf) + 4, len - 4);
  encapId_ = EncapId(EncapType::labelStackEncap, value);
  labelStack_ = stack;
}

}  // namespace Tunnel::TunnelFib
