#include "Tunnel/net/MplsLabelOperation.h"

#include <algorithm>
#include <charconv>
#include <vector>

#include <fmt/format.h>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/Text.h"

namespace Vorn {

namespace {

constexpr std::string_view kActionNames[] = {"forward", "push", "swap", "pop"};

std::vector<std::string_view> splitWords(std::string_view text) {
  std::vector<std::string_view> words;
  size_t i = 0;
  while (i < text.size()) {
    if (text[i] == ' ') {
      ++i;
      continue;
    }
    size_t e = text.find(' ', i);
    if (e == std::string_view::npos) e = text.size();
    words.push_back(text.substr(i, e - i));
    i = e;
  }
  return words;
}

bool parseDecimal(std::string_view word, uint64_t& out) {
  if (word.empty() || word.size() > 10) return false;
  auto [p, ec] = std::from_chars(word.data(), word.data() + word.size(), out);
  return ec == std::errc() && p == word.data() + word.size();
}

}  // namespace

std::string_view stringValue(MplsLabelAction a) {
  auto i = static_cast<size_t>(a);
  return i < std::size(kActionNames) ? kActionNames[i] : "unknown";
}

bool sequenceToValue(std::string_view text, MplsLabelAction& out) {
  for (size_t i = 0; i < std::size(kActionNames); ++i) {
    if (text == kActionNames[i]) {
      out = static_cast<MplsLabelAction>(i);
      return true;
    }
  }
  return false;
}

MplsLabelOperation::MplsLabelOperation(MplsLabelStackDepth popCount,
                                       std::span<MplsLabel const> labels) {
  MplsLabelStackDepth count = labels.size();  // checks the depth
  popCount_ = static_cast<uint8_t>(popCount.value());
  labelCount_ = static_cast<uint8_t>(count.value());
  std::copy(labels.begin(), labels.end(), labels_);
}

MplsLabelOperation::MplsLabelOperation(Zent::String::IteratorConst& it,
                                       Zent::String::IteratorConst const& end) {
  parse(std::string_view(it.ptr(), static_cast<size_t>(end - it)), kTypeName);
  it = end;
}

void MplsLabelOperation::parse(std::string_view text, std::string_view typeName) {
  auto fail = [&](std::string_view why) {
    throw Zent::ParseError(fmt::format("{}: '{}' {}", typeName, text, why));
  };
  std::vector<std::string_view> words = splitWords(text);
  if (words.empty()) fail("is not a label operation (forward, push, swap or pop)");
  size_t i = 1;
  uint64_t pops = 0;
  bool needLabels = true;
  if (words[0] == "forward") {
    if (words.size() != 1) fail("has words after 'forward'");
    *this = MplsLabelOperation();
    return;
  } else if (words[0] == "push") {
    pops = 0;
  } else if (words[0] == "swap") {
    pops = 1;
  } else if (words[0] == "pop") {
    pops = 1;
    needLabels = false;
    if (i < words.size() && words[i] != "push") {
      if (!parseDecimal(words[i], pops) || pops < 2 || pops > kMaxLabels) {
        fail(fmt::format("has pop count '{}'; it must be 2..{} (a single pop is 'pop')", words[i],
                         kMaxLabels));
      }
      ++i;
    }
    if (i < words.size()) {
      if (words[i] != "push" || pops < 2)
        fail("is not 'pop', 'pop <n>' or 'pop <n> push <labels>'");
      ++i;
      needLabels = true;
    }
  } else {
    fail("is not a label operation (forward, push, swap or pop)");
  }
  if (!needLabels) {
    *this = MplsLabelOperation(pops, {});
    return;
  }
  size_t n = words.size() - i;
  if (n == 0) fail("has no labels");
  if (n > kMaxLabels) fail(fmt::format("has {} labels, more than {}", n, kMaxLabels));
  MplsLabel labels[kMaxLabels];
  for (size_t k = 0; k < n; ++k) {
    uint64_t v = 0;
    if (!parseDecimal(words[i + k], v))
      fail(fmt::format("has label '{}', not a number", words[i + k]));
    if (v > MplsLabel::max) {
      fail(fmt::format("has label {}, out of range {}..{}", v, MplsLabel::min, MplsLabel::max));
    }
    labels[k] = v;
  }
  *this = MplsLabelOperation(pops, std::span<MplsLabel const>(labels, n));
}

MplsLabelOperation& MplsLabelOperation::smush(MplsLabelOperation const& lower) {
  // This operation pushes its labels, then `lower` pops some of them (or,
  // past them, labels the packet had) and pushes its own on top.
  uint32_t pops = popCount_;
  uint32_t kept = 0;
  if (lower.popCount_ <= labelCount_) {
    kept = labelCount_ - lower.popCount_;
  } else {
    pops += lower.popCount_ - labelCount_;
  }
  uint32_t total = lower.labelCount_ + kept;
  if (total > kMaxLabels || pops > kMaxLabels) {
    Zent::throwRangeException(fmt::format("{}: joining '{}' with '{}' pops {} and pushes {} labels",
                                          MplsLabelStackDepth::message(), stringValue(),
                                          lower.stringValue(), pops, total));
  }
  MplsLabel out[kMaxLabels];
  std::copy_n(lower.labels_, lower.labelCount_, out);
  std::copy_n(labels_ + (labelCount_ - kept), kept, out + lower.labelCount_);
  std::copy_n(out, total, labels_);
  std::fill(labels_ + total, labels_ + kMaxLabels, MplsLabel());
  popCount_ = static_cast<uint8_t>(pops);
  labelCount_ = static_cast<uint8_t>(total);
  return *this;
}

bool MplsLabelOperation::wellFormed() const {
  if (popCount_ > kMaxLabels || labelCount_ > kMaxLabels) return false;
  if (reserved_[0] != 0 || reserved_[1] != 0) return false;
  for (uint32_t i = 0; i < kMaxLabels; ++i) {
    uint32_t v = labels_[i].value();
    if (i < labelCount_ ? v > MplsLabel::max : v != 0) return false;
  }
  return true;
}

bool operator==(MplsLabelOperation const& a, MplsLabelOperation const& b) {
  return a.popCount_ == b.popCount_ && a.labelCount_ == b.labelCount_ &&
         std::equal(a.labels_, a.labels_ + a.labelCount_, b.labels_);
}

std::strong_ordering operator<=>(MplsLabelOperation const& a, MplsLabelOperation const& b) {
  if (auto c = a.popCount_ <=> b.popCount_; c != 0) return c;
  return std::lexicographical_compare_three_way(a.labels_, a.labels_ + a.labelCount_, b.labels_,
                                                b.labels_ + b.labelCount_);
}

uint32_t MplsLabelOperation::hash(uint32_t seed) const {
  uint32_t counts = uint32_t{popCount_} | uint32_t{labelCount_} << 8;
  uint32_t h = Zent::hashBytes(&counts, sizeof(counts), seed);
  return Zent::hashBytes(labels_, sizeof(MplsLabel) * labelCount_, h);
}

std::string MplsLabelOperation::stringValue() const {
  std::string out;
  switch (action()) {
    case MplsLabelAction::forward:
      return "forward";
    case MplsLabelAction::push:
      out = "push";
      break;
    case MplsLabelAction::swap:
      out = popCount_ == 1 ? "swap" : fmt::format("pop {} push", popCount_);
      break;
    case MplsLabelAction::pop:
      return popCount_ == 1 ? "pop" : fmt::format("pop {}", popCount_);
  }
  for (MplsLabel l : labels()) {
    out += ' ';
    out += std::to_string(l.value());
  }
  return out;
}

}  // namespace Vorn
