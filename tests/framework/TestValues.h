#pragma once
// A value type written to the project's value conventions (equality, hash,
// canonical text, parse constructor), shared by the text, collection and
// registry tests so they exercise the paths real values take.

#include <cstdint>
#include <ostream>
#include <string>

#include "Tunnel/framework/String.h"

namespace FrameworkTest {

class Payload {
 public:
  static constexpr const char* kTypeName = "FrameworkTest::Payload";

  Payload() = default;
  Payload(uint32_t id, Zent::String label) : id_(id), label_(std::move(label)) {}
  // Parses exactly the canonical text; throws Zent::ParseError otherwise.
  Payload(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  uint32_t id() const { return id_; }
  Zent::String const& label() const { return label_; }

  bool operator==(Payload const& o) const = default;
  uint32_t hash(uint32_t seed = 0) const;
  std::string stringValue() const;
  explicit operator bool() const { return id_ != 0 || !label_.empty(); }
  friend std::ostream& operator<<(std::ostream& os, Payload const& p) {
    return os << p.stringValue();
  }

 private:
  uint32_t id_ = 0;
  Zent::String label_;
};

}  // namespace FrameworkTest
