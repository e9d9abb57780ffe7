#pragma once
// Zent::String: an immutable string whose storage is shared between copies and
// counted under the same thread-safety switch as Ptr. Copies are a pointer
// copy; mount paths and names are built once and passed around freely.

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Zent {

class String {
 public:
  // A position in the string for the text parsers; compares and subtracts
  // like a pointer.
  class IteratorConst {
   public:
    IteratorConst() = default;
    explicit IteratorConst(const char* p) : p_(p) {}
    char operator*() const { return *p_; }
    IteratorConst& operator++() {
      ++p_;
      return *this;
    }
    IteratorConst operator++(int) {
      IteratorConst old = *this;
      ++p_;
      return old;
    }
    IteratorConst& operator+=(ptrdiff_t n) {
      p_ += n;
      return *this;
    }
    friend IteratorConst operator+(IteratorConst it, ptrdiff_t n) { return it += n; }
    friend ptrdiff_t operator-(IteratorConst a, IteratorConst b) { return a.p_ - b.p_; }
    friend bool operator==(IteratorConst a, IteratorConst b) = default;
    friend auto operator<=>(IteratorConst a, IteratorConst b) = default;
    const char* ptr() const { return p_; }

   private:
    const char* p_ = nullptr;
  };

  String() noexcept = default;
  String(const char* s);  // NOLINT(google-explicit-constructor)
  String(const char* p, size_t len);
  String(std::string_view s);    // NOLINT(google-explicit-constructor)
  String(std::string const& s);  // NOLINT(google-explicit-constructor)
  String(IteratorConst b, IteratorConst e);
  String(String const& o) noexcept;
  String(String&& o) noexcept;
  String& operator=(String const& o) noexcept;
  String& operator=(String&& o) noexcept;
  ~String();

  size_t size() const { return rep_ ? rep_->size : 0; }
  bool empty() const { return size() == 0; }
  const char* data() const { return rep_ ? rep_->chars() : ""; }
  const char* c_str() const { return data(); }
  std::string_view view() const { return {data(), size()}; }
  std::string stringValue() const { return std::string(view()); }
  operator std::string_view() const { return view(); }  // NOLINT(google-explicit-constructor)

  IteratorConst begin() const { return IteratorConst(data()); }
  IteratorConst end() const { return IteratorConst(data() + size()); }

  uint32_t hash(uint32_t seed = 0) const;
  // References to the shared storage (0 for the empty string); for tests.
  uint32_t sharedReferences() const { return rep_ ? rep_->refs : 0; }

  friend String operator+(String const& a, std::string_view b);
  friend bool operator==(String const& a, String const& b) { return a.view() == b.view(); }
  friend bool operator==(String const& a, const char* b) { return a.view() == b; }
  friend std::strong_ordering operator<=>(String const& a, String const& b) {
    return a.view() <=> b.view();
  }
  friend std::ostream& operator<<(std::ostream& os, String const& s);

 private:
  // The characters follow the header, NUL-terminated.
  struct Rep {
    uint32_t refs;
    uint32_t size;
    char* chars() { return reinterpret_cast<char*>(this + 1); }
  };
  static Rep* make(const char* p, size_t len);
  void release();
  Rep* rep_ = nullptr;
};

}  // namespace Zent
