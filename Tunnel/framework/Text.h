#pragma once
// The canonical text of values, "Value('<qualified name>', ** {'<field>': <text>, ...})",
// and the reader that splits such a text back into fields for the parse
// constructors. Single-attribute values render as their one attribute.

#include <array>
#include <charconv>
#include <concepts>
#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "Tunnel/framework/String.h"

namespace Zent {

class ParseError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

template <typename T>
concept HasStringValue = requires(T const& t) {
  { t.stringValue() } -> std::convertible_to<std::string>;
};

// Values that parse from text have a constructor from an iterator pair.
template <typename T>
concept ParsableFromText =
    std::is_constructible_v<T, String::IteratorConst&, String::IteratorConst const&>;

inline const char* boolText(bool b) { return b ? "true" : "false"; }

// Single-quoted, with backslash before a quote or a backslash.
std::string quoteText(std::string_view s);

// Text of a field by its type.
template <typename T>
std::string fieldText(T const& v) {
  if constexpr (std::is_same_v<T, bool>) {
    return boolText(v);
  } else if constexpr (std::is_same_v<T, String>) {
    return quoteText(v.view());
  } else if constexpr (std::is_integral_v<T>) {
    return std::to_string(v);
  } else if constexpr (std::is_enum_v<T>) {
    return std::string(stringValue(v));  // found by argument-dependent lookup
  } else {
    return v.stringValue();
  }
}

template <typename T>
std::string valueToStrep(T const& v) {
  return fieldText(v);
}

// "[" elements by their canonical text, separated by ", ", "]".
template <typename Array>
std::string arrayText(Array const& a) {
  std::string out = "[";
  bool first = true;
  for (auto const& e : a) {
    if (!first) out += ", ";
    first = false;
    out += fieldText(e);
  }
  out += "]";
  return out;
}

class ValueText {
 public:
  explicit ValueText(std::string_view typeName);
  ValueText& field(std::string_view name, std::string_view text);
  ValueText& field(std::string_view name, std::string const& text) {
    return field(name, std::string_view(text));
  }
  ValueText& field(std::string_view name, const char* text) {
    return field(name, std::string_view(text));
  }
  template <typename T>
  ValueText& field(std::string_view name, T const& v) {
    return field(name, std::string_view(fieldText(v)));
  }
  std::string str() &&;
  // For a builder chained in one expression (field() returns an lvalue).
  std::string str() const&;

 private:
  std::string out_;
  bool first_ = true;
};

// Reads the top-level fields of a canonical text. Nested values, lists and
// quoted strings are kept whole as the text of their field. The fields are
// views into `text`, which must outlive the reader.
class ValueTextReader {
 public:
  ValueTextReader(std::string_view text, std::string_view typeName);
  // The text of `name`; throws ParseError naming the type when absent.
  std::string_view field(std::string_view name) const;
  size_t fields() const { return fields_.size(); }

 private:
  std::string typeName_;
  std::vector<std::pair<std::string, std::string_view>> fields_;
};

// Splits "[a, b, ...]" into element texts; "[]" gives none.
std::vector<std::string_view> splitListText(std::string_view text);
std::string_view trimText(std::string_view s);
std::string unquoteText(std::string_view s);
bool parseBoolText(std::string_view s);

// Decimal, or hexadecimal with 0x; the whole text must be the number.
template <std::unsigned_integral T>
T parseUnsignedText(std::string_view s, std::string_view what) {
  s = trimText(s);
  int base = 10;
  if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
    s.remove_prefix(2);
    base = 16;
  }
  T v{};
  auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v, base);
  if (ec != std::errc() || p != s.data() + s.size() || s.empty()) {
    throw ParseError(fmt::format("{}: '{}' is not an unsigned number that fits", what, s));
  }
  return v;
}

// Types parseFieldText knows how to read.
template <typename T>
concept FieldParsable = std::is_same_v<T, bool> || std::is_same_v<T, String> ||
    std::is_integral_v<T> || std::is_enum_v<T> || ParsableFromText<T>;

// Parses a value of type T from a field's text.
template <typename T>
T parseFieldText(std::string_view text, std::string_view what) {
  if constexpr (std::is_same_v<T, bool>) {
    return parseBoolText(text);
  } else if constexpr (std::is_same_v<T, String>) {
    return String(unquoteText(text));
  } else if constexpr (std::is_integral_v<T>) {
    return parseUnsignedText<T>(text, what);
  } else if constexpr (std::is_enum_v<T>) {
    T v{};
    if (!sequenceToValue(trimText(text), v)) {  // found by argument-dependent lookup
      throw ParseError(fmt::format("{}: unknown enumerator '{}'", what, trimText(text)));
    }
    return v;
  } else {
    String s(trimText(text));
    String::IteratorConst b = s.begin();
    T v(b, s.end());
    return v;
  }
}

template <typename T>
T strepToValue(String const& s) {
  String::IteratorConst b = s.begin();
  return T(b, s.end());
}

// The enumerator named `text`, for enumerations whose names are listed by
// value; false when no name matches.
template <typename E, size_t N>
bool enumFromName(std::array<std::string_view, N> const& names, std::string_view text, E& out) {
  for (size_t i = 0; i < N; ++i) {
    if (names[i] == text) {
      out = static_cast<E>(i);
      return true;
    }
  }
  return false;
}

}  // namespace Zent

// Every value with a canonical text formats with "{}" in traces.
template <typename T>
requires Zent::HasStringValue<T>
struct fmt::formatter<T> : fmt::formatter<std::string_view> {
  auto format(T const& v, format_context& ctx) const {
    return fmt::formatter<std::string_view>::format(v.stringValue(), ctx);
  }
};
