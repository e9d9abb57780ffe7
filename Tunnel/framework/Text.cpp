#include "Tunnel/framework/Text.h"

namespace Zent {

std::string quoteText(std::string_view s) {
  std::string out = "'";
  for (char c : s) {
    if (c == '\'' || c == '\\') out += '\\';
    out += c;
  }
  out += '\'';
  return out;
}

std::string unquoteText(std::string_view s) {
  s = trimText(s);
  if (s.size() < 2 || s.front() != '\'' || s.back() != '\'') {
    throw ParseError(fmt::format("expected a quoted string, got '{}'", s));
  }
  std::string out;
  for (size_t i = 1; i + 1 < s.size(); ++i) {
    if (s[i] == '\\' && i + 2 < s.size()) ++i;
    out += s[i];
  }
  return out;
}

std::string_view trimText(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\n')) {
    s.remove_prefix(1);
  }
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\n')) {
    s.remove_suffix(1);
  }
  return s;
}

bool parseBoolText(std::string_view s) {
  s = trimText(s);
  if (s == "true" || s == "True") return true;
  if (s == "false" || s == "False") return false;
  throw ParseError(fmt::format("expected true or false, got '{}'", s));
}

ValueText::ValueText(std::string_view typeName) {
  out_.reserve(64);
  out_ += "Value('";
  out_ += typeName;
  out_ += "', ** {";
}

ValueText& ValueText::field(std::string_view name, std::string_view text) {
  if (!first_) out_ += ", ";
  first_ = false;
  out_ += '\'';
  out_ += name;
  out_ += "': ";
  out_ += text;
  return *this;
}

std::string ValueText::str() && {
  out_ += "})";
  return std::move(out_);
}

std::string ValueText::str() const& { return out_ + "})"; }

namespace {

// Index one past the end of the item that starts at `i`: stops at a top-level
// comma or at the end. Brackets nest; quoted text is skipped.
size_t itemEnd(std::string_view s, size_t i) {
  int depth = 0;
  bool quoted = false;
  for (; i < s.size(); ++i) {
    char c = s[i];
    if (quoted) {
      if (c == '\\') {
        ++i;
      } else if (c == '\'') {
        quoted = false;
      }
      continue;
    }
    if (c == '\'') {
      quoted = true;
    } else if (c == '(' || c == '[' || c == '{') {
      ++depth;
    } else if (c == ')' || c == ']' || c == '}') {
      if (depth == 0) return i;
      --depth;
    } else if (c == ',' && depth == 0) {
      return i;
    }
  }
  if (quoted || depth != 0) throw ParseError(fmt::format("unbalanced text '{}'", s));
  return i;
}

std::vector<std::string_view> splitItems(std::string_view body) {
  std::vector<std::string_view> out;
  body = trimText(body);
  size_t i = 0;
  while (i < body.size()) {
    size_t e = itemEnd(body, i);
    out.push_back(trimText(body.substr(i, e - i)));
    i = e + 1;
  }
  return out;
}

}  // namespace

std::vector<std::string_view> splitListText(std::string_view text) {
  text = trimText(text);
  if (text.size() < 2 || text.front() != '[' || text.back() != ']') {
    throw ParseError(fmt::format("expected a list in brackets, got '{}'", text));
  }
  return splitItems(text.substr(1, text.size() - 2));
}

ValueTextReader::ValueTextReader(std::string_view text, std::string_view typeName)
    : typeName_(typeName) {
  text = trimText(text);
  std::string head = "Value('" + std::string(typeName) + "', ** {";
  if (text.substr(0, head.size()) != head || text.size() < head.size() + 2 ||
      text.substr(text.size() - 2) != "})") {
    throw ParseError(fmt::format("expected the text of {}, got '{}'", typeName, text));
  }
  std::string_view body = text.substr(head.size(), text.size() - head.size() - 2);
  for (std::string_view item : splitItems(body)) {
    size_t colon = item.find("': ");
    if (item.empty() || item.front() != '\'' || colon == std::string_view::npos) {
      throw ParseError(fmt::format("{}: malformed field '{}'", typeName, item));
    }
    fields_.emplace_back(std::string(item.substr(1, colon - 1)), trimText(item.substr(colon + 3)));
  }
}

std::string_view ValueTextReader::field(std::string_view name) const {
  for (auto const& [n, t] : fields_) {
    if (n == name) return t;
  }
  throw ParseError(fmt::format("{}: field '{}' missing", typeName_, name));
}

}  // namespace Zent
