#pragma once
// JSON from the canonical text of values, so that every type the registry can
// render is also shown as JSON without a converter of its own. Field names and
// their order are those of the canonical text.

#include <string_view>

#include <nlohmann/json.hpp>

namespace TunnelCtl {

// A Value('<type>', ** {...}) text becomes an object of its fields, a list an
// array, a quoted string a string, true/false a boolean and a decimal number
// a number. Any other text (addresses, prefixes, label operations,
// enumerators) stays a string. Throws Zent::ParseError on unbalanced text.
nlohmann::ordered_json canonicalTextToJson(std::string_view text);

}  // namespace TunnelCtl
