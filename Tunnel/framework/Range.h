#pragma once
// Range-checked integers. A bounded identifier or index checks its value on
// construction, on assignment and on arithmetic; a violation throws
// RangeException whose message names the type and its bounds, and the stored
// value is left as it was.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

namespace Zent {

class RangeException : public std::range_error {
 public:
  using std::range_error::range_error;
};

[[noreturn]] void throwRangeException(std::string const& message);

constexpr uint16_t maxU16() { return 0xffff; }
constexpr uint32_t maxU32() { return 0xffffffffu; }

// "<type>::value < <type>::<minName> or > <type>::<maxName> not allowed"
std::string rangeMessage(std::string_view typeName, std::string_view minName = "min",
                         std::string_view maxName = "max");

// Traits supply: using Rep; static constexpr Rep min, max, defaultValue;
// static constexpr const char* typeName (fully qualified).
template <typename Traits>
class RangedInt {
 public:
  using Rep = typename Traits::Rep;
  static_assert(std::is_unsigned_v<Rep>);
  static constexpr Rep min = Traits::min;
  static constexpr Rep max = Traits::max;
  static constexpr const char* typeName() { return Traits::typeName; }

  constexpr RangedInt() : value_(Traits::defaultValue) {}
  // Implicit on purpose: indexes are written as plain numbers at call sites,
  // and every conversion is checked.
  RangedInt(uint64_t v) : value_(check(v)) {}  // NOLINT(google-explicit-constructor)

  Rep value() const { return value_; }
  void valueIs(uint64_t v) { value_ = check(v); }
  operator Rep() const { return value_; }  // NOLINT(google-explicit-constructor)

  RangedInt& operator++() {
    value_ = check(uint64_t{value_} + 1);
    return *this;
  }
  RangedInt operator++(int) {
    RangedInt old = *this;
    ++*this;
    return old;
  }
  RangedInt& operator--() {
    if (value_ == 0) throwRangeException(message());
    value_ = check(uint64_t{value_} - 1);
    return *this;
  }
  RangedInt& operator+=(uint64_t d) {
    if (d > uint64_t{max}) throwRangeException(message());
    value_ = check(uint64_t{value_} + d);
    return *this;
  }
  RangedInt& operator-=(uint64_t d) {
    if (d > uint64_t{value_}) throwRangeException(message());
    value_ = check(uint64_t{value_} - d);
    return *this;
  }
  friend RangedInt operator+(RangedInt a, uint64_t d) { return a += d; }
  friend RangedInt operator-(RangedInt a, uint64_t d) { return a -= d; }

  friend bool operator==(RangedInt a, RangedInt b) { return a.value_ == b.value_; }
  friend auto operator<=>(RangedInt a, RangedInt b) { return a.value_ <=> b.value_; }

  static std::string message() { return rangeMessage(Traits::typeName); }

 private:
  static Rep check(uint64_t v) {
    if (v < uint64_t{min} || v > uint64_t{max}) throwRangeException(message());
    return static_cast<Rep>(v);
  }
  Rep value_;
};

}  // namespace Zent
