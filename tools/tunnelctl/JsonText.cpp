#include "tools/tunnelctl/JsonText.h"

#include <charconv>
#include <string>

#include "Tunnel/framework/Text.h"

namespace TunnelCtl {

namespace {

constexpr std::string_view kValueOpen = "Value('";
constexpr std::string_view kFieldsOpen = "', ** {";

bool isDecimal(std::string_view s, uint64_t& out) {
  if (s.empty() || s.size() > 20) return false;
  if (s.size() > 1 && s[0] == '0') return false;  // "007" is a name, not a number
  auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), out, 10);
  return ec == std::errc() && p == s.data() + s.size();
}

nlohmann::ordered_json valueToJson(std::string_view text) {
  size_t nameEnd = text.find(kFieldsOpen);
  if (nameEnd == std::string_view::npos || text.size() < nameEnd + kFieldsOpen.size() + 2) {
    return std::string(text);
  }
  std::string_view typeName = text.substr(kValueOpen.size(), nameEnd - kValueOpen.size());
  Zent::ValueTextReader reader(text, typeName);
  size_t bodyStart = nameEnd + kFieldsOpen.size();
  std::string body = "[";
  body += text.substr(bodyStart, text.size() - bodyStart - 2);
  body += "]";
  auto out = nlohmann::ordered_json::object();
  for (std::string_view item : Zent::splitListText(body)) {
    size_t colon = item.find("': ");
    if (item.empty() || item.front() != '\'' || colon == std::string_view::npos) {
      throw Zent::ParseError("malformed field '" + std::string(item) + "' in " + std::string(text));
    }
    std::string name(item.substr(1, colon - 1));
    out[name] = canonicalTextToJson(reader.field(name));
  }
  return out;
}

}  // namespace

nlohmann::ordered_json canonicalTextToJson(std::string_view text) {
  text = Zent::trimText(text);
  if (text.substr(0, kValueOpen.size()) == kValueOpen && text.ends_with("})")) {
    return valueToJson(text);
  }
  if (text.size() >= 2 && text.front() == '[' && text.back() == ']') {
    auto out = nlohmann::ordered_json::array();
    for (std::string_view item : Zent::splitListText(text))
      out.push_back(canonicalTextToJson(item));
    return out;
  }
  if (text.size() >= 2 && text.front() == '\'' && text.back() == '\'') {
    return Zent::unquoteText(text);
  }
  if (text == "true" || text == "false") return text == "true";
  uint64_t n = 0;
  if (isDecimal(text, n)) return n;
  return std::string(text);
}

}  // namespace TunnelCtl
