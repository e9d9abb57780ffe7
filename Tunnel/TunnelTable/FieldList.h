#pragma once
// The fields of an entry, declared once: each entry type lists its own
// members (name, member pointer, how the dump shows it) in a static fields()
// and names the type whose fields come before them (FieldParent). FieldWalk
// derives equality, hash, canonical text, dump and the record from those
// lists; a type whose record is irregular writes only that part by hand.
//
// Record order is list order, each field as its raw record, a list as its u32
// count and raw elements; a type whose record is not its bytes specialises
// FieldRecord. The dump shows the scalar fields in order and the lists last.
//
// A new entry type is its members, fields(), FieldParent, and the operation
// macros at the end of this file (IgpEntries.h is the pattern); its table's
// bound is kMaxSerializedLen.

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "Tunnel/TunnelTable/DumpContext.h"
#include "Tunnel/TunnelTable/RecordIo.h"
#include "Tunnel/TunnelTable/TunnelTableEntry.h"
#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/Text.h"

namespace Tunnel::TunnelTable {

// How a dump shows a field: "name: value", not at all, as a titled list of
// via lines, or as the value's own dump line without a name.
enum class DumpAs : uint8_t { line, hidden, list, bare };

template <typename E, typename T>
struct Field {
  using Type = T;
  const char* name;
  T E::*member;
  DumpAs dump = DumpAs::line;
  const char* title = "Vias";  // a list's dump title
};

template <typename E, typename T>
constexpr Field<E, T> field(const char* name, T E::*member, DumpAs dump = DumpAs::line,
                            const char* title = "Vias") {
  return Field<E, T>{name, member, dump, title};
}

template <typename T>
concept FieldArray = requires {
  T::capacity;
  typename T::value_type;
  T::validateSize(0);
};

// A field's record: its raw bytes (a bool one byte), or a list.
template <typename T>
struct FieldRecord {
  static uint32_t len(T const& v) {
    if constexpr (FieldArray<T>) {
      return 4 + static_cast<uint32_t>(sizeof(typename T::value_type)) * v.count();
    } else if constexpr (std::is_same_v<T, bool>) {
      return 1;
    } else {
      return sizeof(T);
    }
  }
  static void put(RecordWriter& w, T const& v) {
    if constexpr (FieldArray<T>) {
      w.putList(v);
    } else {
      w.put(v);
    }
  }
  static void get(RecordReader& r, T& v) {
    if constexpr (FieldArray<T>) {
      r.getList(v);
    } else {
      r.get(v);
    }
  }
  static void check(RecordReader& r) {
    if constexpr (FieldArray<T>) {
      r.checkList<T>();
    } else {
      r.get<T>();
    }
  }
  // get() with every check of check(): one pass reads and validates.
  static void getChecked(RecordReader& r, T& v) {
    if constexpr (FieldArray<T>) {
      r.getListChecked(v);
    } else {
      r.get(v);
    }
  }
};

class FieldWalk {
 public:
  // Calls f(entry's field descriptor) for every field of E's chain, parents
  // first. The base entry's own fields are not in any list.
  template <typename E, typename F>
  static void forEach(F&& f) {
    if constexpr (!std::is_same_v<E, TunnelTableEntry>) {
      forEach<typename E::FieldParent>(f);
      std::apply([&](auto const&... fd) { (f(fd), ...); }, E::fields());
    }
  }

  template <typename E>
  static bool equal(E const& a, E const& b) {
    bool eq = static_cast<TunnelTableEntry const&>(a) == static_cast<TunnelTableEntry const&>(b);
    forEach<E>([&](auto const& fd) { eq = eq && a.*fd.member == b.*fd.member; });
    return eq;
  }

  // Arithmetic and enumerated fields hash by their bytes, others by hash().
  template <typename E>
  static uint32_t hash(E const& e, uint32_t seed) {
    seed = e.hashBase(seed);
    forEach<E>([&](auto const& fd) {
      auto const& v = e.*fd.member;
      if constexpr (std::is_arithmetic_v<std::decay_t<decltype(v)>> ||
                    std::is_enum_v<std::decay_t<decltype(v)>>) {
        seed = Zent::hashBytes(&v, sizeof v, seed);
      } else {
        seed = v.hash(seed);
      }
    });
    return seed;
  }

  template <typename E>
  static std::string text(E const& e, const char* typeName) {
    Zent::ValueText text(typeName);
    e.appendBaseText(text);
    forEach<E>([&](auto const& fd) {
      auto const& v = e.*fd.member;
      if constexpr (FieldArray<std::decay_t<decltype(v)>>) {
        text.field(fd.name, Zent::arrayText(v));
      } else {
        text.field(fd.name, v);
      }
    });
    return std::move(text).str();
  }

  // The TunnelId and tep lines, then the fields.
  template <typename E>
  static void dump(E const& e, DumpContext* ctx, int indent) {
    e.dumpBase(ctx, indent);
    dumpFields(e, ctx, indent);
  }
  // The fields alone: scalars in order, then the lists.
  template <typename E>
  static void dumpFields(E const& e, DumpContext* ctx, int indent) {
    forEach<E>([&](auto const& fd) {
      if constexpr (!FieldArray<typename std::decay_t<decltype(fd)>::Type>) {
        if (fd.dump != DumpAs::hidden) dumpField(ctx, indent, fd, e.*fd.member);
      }
    });
    forEach<E>([&](auto const& fd) {
      if constexpr (FieldArray<typename std::decay_t<decltype(fd)>::Type>) {
        if (fd.dump != DumpAs::hidden) {
          TunnelTableEntry::dumpVias(ctx, indent, e.*fd.member, fd.title);
        }
      }
    });
  }

  // The record of E's chain, starting with the base record.
  template <typename E>
  static uint32_t recordLen(E const& e) {
    uint32_t len = TunnelTableEntry::kBaseRecordLen;
    forEach<E>([&](auto const& fd) { len += recordOf(fd).len(e.*fd.member); });
    return len;
  }
  template <typename E>
  static void put(E const& e, RecordWriter& w) {
    e.serializeBase(w);
    forEach<E>([&](auto const& fd) { recordOf(fd).put(w, e.*fd.member); });
  }
  template <typename E>
  static void get(E& e, RecordReader& r) {
    e.deserializeBase(r);
    forEach<E>([&](auto const& fd) { recordOf(fd).get(r, e.*fd.member); });
  }
  template <typename E>
  static void check(RecordReader& r) {
    if (TunnelTableEntry::deserializeLenBase(r) == 0) return;
    forEach<E>([&](auto const& fd) { recordOf(fd).check(r); });
  }
  template <typename E>
  static void getChecked(E& e, RecordReader& r) {
    e.template deserializeBase<true>(r);
    forEach<E>([&](auto const& fd) { getCheckedField(recordOf(fd), r, e.*fd.member); });
  }

  // The entry operations on a whole record.
  template <typename E>
  static void serialize(E const& e, void* buf) {
    RecordWriter w(buf, e.serializeLen());
    put(e, w);
  }
  template <typename E>
  static void deserialize(E& e, void const* buf, unsigned len, std::string_view typeName) {
    RecordReader r(buf, len);
    get(e, r);
    r.expectOk(typeName);
  }
  template <typename E>
  static uint32_t deserializeLen(void const* buf, unsigned len) {
    RecordReader r(buf, len);
    check<E>(r);
    return r.ok() ? r.offset() : 0;
  }
  // Reads the record into `e` when deserializeLen would accept it, in one
  // pass; false otherwise, and `e` is then unspecified.
  template <typename E>
  static bool deserializeChecked(E& e, void const* buf, unsigned len) {
    RecordReader r(buf, len);
    getChecked(e, r);
    return r.ok();
  }

 private:
  template <typename E, typename T>
  static FieldRecord<T> recordOf(Field<E, T> const&) {
    return {};
  }
  // A field kind with its own record code and no one-pass read is checked
  // on a copy of the reader, then read.
  template <typename Record, typename T>
  static void getCheckedField(Record, RecordReader& r, T& v) {
    if constexpr (requires { Record::getChecked(r, v); }) {
      Record::getChecked(r, v);
    } else {
      RecordReader probe = r;
      Record::check(probe);
      if (!probe.ok()) {
        r = probe;
        return;
      }
      Record::get(r, v);
    }
  }

  template <typename FD, typename T>
  static void dumpField(DumpContext* ctx, int indent, FD const& fd, T const& v) {
    if constexpr (requires { v.dumpLine(); }) {
      // A via's dump line ends its own line.
      if (fd.dump == DumpAs::bare) {
        dumpLine(ctx, indent, v.dumpLine());
      } else {
        dumpf(ctx, indent, "{}: {}", fd.name, v.dumpLine());
      }
    } else if constexpr (std::is_same_v<T, bool>) {
      dumpf(ctx, indent, "{}: {}\n", fd.name, Zent::boolText(v));
    } else if constexpr (std::is_same_v<T, TristateU32>) {
      if (v.isSet()) {
        dumpf(ctx, indent, "{}: {}\n", fd.name, v.value());
      } else {
        dumpf(ctx, indent, "{}: {}\n", fd.name, TunnelTable::stringValue(v.state()));
      }
    } else if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>) {
      dumpf(ctx, indent, "{}: {}\n", fd.name, v);
    } else if constexpr (requires { v.value(); }) {
      dumpf(ctx, indent, "{}: {}\n", fd.name, v.value());
    } else {
      dumpf(ctx, indent, "{}: {}\n", fd.name, v.stringValue());
    }
  }
};

}  // namespace Tunnel::TunnelTable

// The operations every entry type forwards to FieldWalk, written once so the
// types cannot drift apart; a type invokes them in its class body. `Type` is
// the entry type the operations are for (a template passes its derived type),
// and Type::kTypeName names it. A type whose operation differs leaves out that
// macro and writes its members by hand.
//
// Stream text: stringValue() and operator<<.
#define TUNNEL_ENTRY_TEXT_OPS(Type)                                        \
  std::string stringValue() const {                                        \
    return ::Tunnel::TunnelTable::FieldWalk::text(*this, Type::kTypeName); \
  }                                                                        \
  friend std::ostream& operator<<(std::ostream& os, Type const& e) { return os << e.stringValue(); }
// Value: operator==, hash(), the stream text and dumpState().
#define TUNNEL_ENTRY_VALUE_OPS(Type)                                          \
  friend bool operator==(Type const& a, Type const& b) {                      \
    return ::Tunnel::TunnelTable::FieldWalk::equal(a, b);                     \
  }                                                                           \
  uint32_t hash(uint32_t seed = 0) const {                                    \
    return ::Tunnel::TunnelTable::FieldWalk::hash(*this, seed);               \
  }                                                                           \
  TUNNEL_ENTRY_TEXT_OPS(Type)                                                 \
  void dumpState(::Tunnel::TunnelTable::DumpContext* ctx, int indent) const { \
    ::Tunnel::TunnelTable::FieldWalk::dump(*this, ctx, indent);               \
  }
// Record: serialize(), serializeLen(), deserialize(), deserializeLen() and
// deserializeChecked() (deserializeLen and deserialize in one pass).
#define TUNNEL_ENTRY_RECORD_OPS(Type)                                                          \
  void serialize(void* buf) const { ::Tunnel::TunnelTable::FieldWalk::serialize(*this, buf); } \
  uint32_t serializeLen() const { return ::Tunnel::TunnelTable::FieldWalk::recordLen(*this); } \
  void deserialize(void const* buf, unsigned len) {                                            \
    ::Tunnel::TunnelTable::FieldWalk::deserialize(*this, buf, len, Type::kTypeName);           \
  }                                                                                            \
  uint32_t deserializeLen(void const* buf, unsigned len) const {                               \
    return ::Tunnel::TunnelTable::FieldWalk::deserializeLen<Type>(buf, len);                   \
  }                                                                                            \
  bool deserializeChecked(void const* buf, unsigned len) {                                     \
    return ::Tunnel::TunnelTable::FieldWalk::deserializeChecked(*this, buf, len);              \
  }
