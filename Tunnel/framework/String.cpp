#include "Tunnel/framework/String.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <ostream>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/Ptr.h"
#include "Tunnel/framework/Range.h"

namespace Zent {

String::Rep* String::make(const char* p, size_t len) {
  if (len == 0) return nullptr;
  if (len > std::numeric_limits<uint32_t>::max() - sizeof(Rep)) {
    throwRangeException("Zent::String longer than 4 GiB not allowed");
  }
  auto* r = static_cast<Rep*>(std::malloc(sizeof(Rep) + len + 1));
  if (!r) throw std::bad_alloc();
  r->refs = 1;
  r->size = static_cast<uint32_t>(len);
  std::memcpy(r->chars(), p, len);
  r->chars()[len] = '\0';
  return r;
}

void String::release() {
  if (rep_ && detail::countDec(rep_->refs)) std::free(rep_);
  rep_ = nullptr;
}

String::String(const char* s) : rep_(s ? make(s, std::strlen(s)) : nullptr) {}
String::String(const char* p, size_t len) : rep_(make(p, len)) {}
String::String(std::string_view s) : rep_(make(s.data(), s.size())) {}
String::String(std::string const& s) : rep_(make(s.data(), s.size())) {}
String::String(IteratorConst b, IteratorConst e)
    : rep_(make(b.ptr(), e > b ? static_cast<size_t>(e - b) : 0)) {}

String::String(String const& o) noexcept : rep_(o.rep_) {
  if (rep_) detail::countInc(rep_->refs);
}
String::String(String&& o) noexcept : rep_(o.rep_) { o.rep_ = nullptr; }

String& String::operator=(String const& o) noexcept {
  Rep* r = o.rep_;  // read first: when o is *this, release() clears it
  if (r) detail::countInc(r->refs);
  release();
  rep_ = r;
  return *this;
}

String& String::operator=(String&& o) noexcept {
  if (this != &o) {
    release();
    rep_ = o.rep_;
    o.rep_ = nullptr;
  }
  return *this;
}

String::~String() { release(); }

uint32_t String::hash(uint32_t seed) const { return hashBytes(data(), size(), seed); }

String operator+(String const& a, std::string_view b) {
  std::string joined;
  joined.reserve(a.size() + b.size());
  joined.append(a.view());
  joined.append(b);
  return String(joined);
}

std::ostream& operator<<(std::ostream& os, String const& s) { return os << s.view(); }

}  // namespace Zent
