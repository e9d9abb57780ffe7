#pragma once
// The type registry: every value and entity type registered under its fully
// qualified name, with the operations that let tools, the mount service and
// the state database handle a type known only by name at run time.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/Text.h"

namespace Zent {

// Walks one collection of an entity by attribute identifier.
class GenericIterator {
 public:
  virtual ~GenericIterator() = default;
  virtual bool iterNonnull() const = 0;
  virtual void const* iterKey() const = 0;  // typed by the attribute's keyType
  virtual void const* iterObj() const = 0;  // typed by the attribute's valueType
  virtual void iterInc() = 0;
  // Removes the current member (through the entity's mutator) and moves on.
  virtual void iterDel() = 0;
};

// The GenericIterator of one HashMap2018 collection, so that entity types do
// not each write the walk by hand. A member held by Ptr is handed out as the
// object it points to: the attribute's valueType describes the member itself.
// Removal goes through `del`, the entity's own mutator, so it notifies as any
// other removal does.
template <typename Map>
class CollectionIterator : public GenericIterator {
 public:
  using Key = typename Map::KeyType;
  using Del = std::function<void(Key const&)>;

  CollectionIterator(Map const& m, Del del) : it_(m.begin()), del_(std::move(del)) {}
  bool iterNonnull() const override { return static_cast<bool>(it_); }
  void const* iterKey() const override {
    fmassert(iterNonnull());
    return &it_.key();
  }
  void const* iterObj() const override {
    fmassert(iterNonnull());
    if constexpr (isPtr<typename Map::ValueType>) {
      return it_.value().ptr();
    } else {
      return &it_.value();
    }
  }
  void iterInc() override { ++it_; }
  void iterDel() override {
    fmassert(iterNonnull());
    Key key = it_.key();  // the member, and the key it holds, go away in del_
    ++it_;
    del_(key);
  }

 private:
  typename Map::IteratorConst it_;
  Del del_;
};

template <typename Map, typename Del>
std::unique_ptr<GenericIterator> collectionIterator(Map const& m, Del&& del) {
  return std::make_unique<CollectionIterator<Map>>(m, std::forward<Del>(del));
}

// The GenericIterator of a collection read by key (one kept in shared memory,
// say): the keys are taken first, each value is read when reached, and values
// removed since the keys were taken are passed over. Removal goes through
// `del`, the entity's own mutator.
template <typename Key, typename Value>
class KeysIterator : public Zent::GenericIterator {
 public:
  using Read = std::function<bool(Key const&, Value&)>;
  using Del = std::function<void(Key const&)>;
  KeysIterator(std::vector<Key> keys, Read read, Del del)
      : keys_(std::move(keys)), read_(std::move(read)), del_(std::move(del)) {
    load();
  }
  bool iterNonnull() const override { return pos_ < keys_.size(); }
  void const* iterKey() const override { return &keys_[pos_]; }
  void const* iterObj() const override { return &value_; }
  void iterInc() override {
    ++pos_;
    load();
  }
  void iterDel() override {
    del_(keys_[pos_]);
    iterInc();
  }

 private:
  void load() {
    while (pos_ < keys_.size() && !read_(keys_[pos_], value_)) ++pos_;
  }
  std::vector<Key> keys_;
  Read read_;
  Del del_;
  size_t pos_ = 0;
  Value value_;
};

class GenericIf {
 public:
  enum class Kind { value, entity };
  enum class AttributeOp { get, set, lookup, del, count };

  struct AttributeInfo {
    AttributeId id;
    std::string name;
    bool collection;
    GenericIf const* keyType;    // collections only
    GenericIf const* valueType;  // scalar type, or member type of a collection
  };

  GenericIf(std::string name, Kind kind) : name_(std::move(name)), kind_(kind) {}
  virtual ~GenericIf() = default;
  std::string const& name() const { return name_; }
  Kind kind() const { return kind_; }

  // Values.
  virtual size_t genericIfSize() const { return 0; }
  virtual void genericIfConstruct(void* mem) const;
  virtual void genericIfConstruct(void* mem, void const* from) const;
  virtual void genericIfDestruct(void* obj) const;
  virtual uint32_t genericIfHash(void const* obj) const;
  virtual bool genericIfEqual(void const* a, void const* b) const;
  virtual std::string genericIfStrRep(void const* obj) const;
  // Parses into an existing object; throws ParseError (or the value's own
  // error) when the text is not a value of this type.
  virtual void genericIfStrepToValue(void* obj, std::string_view text) const;
  virtual void genericIfVoidPtrIs(void* dst, void const* src) const;

  // Entities.
  std::vector<AttributeInfo> const& attributes() const { return attributes_; }
  AttributeInfo const* attribute(AttributeId id) const;
  AttributeInfo const* attribute(std::string_view name) const;
  // get: copy the scalar into `value`; set: assign it from `value`;
  // lookup: copy the member under `key` into `value` (false when absent);
  // del: remove the member under `key`; count: store the member count
  // (size_t) into `value`. False when the operation does not apply.
  virtual bool genericIfAttributeOp(Entity* e, AttributeId id, AttributeOp op, void const* key,
                                    void* value) const;
  virtual std::unique_ptr<GenericIterator> genericIfIterator(Entity const* e, AttributeId id) const;
  virtual Ptr<Entity> genericIfConstructFromCtorArgs(std::vector<std::string> const& args) const;
  virtual Ptr<Entity> newEntityForDir(String const& name) const;

 protected:
  void attributeIs(AttributeInfo info) { attributes_.push_back(std::move(info)); }
  [[noreturn]] void unsupported(const char* op) const;

 private:
  std::string name_;
  Kind kind_;
  std::vector<AttributeInfo> attributes_;
};

// Registers `t` under its name; a second registration of a name keeps the
// first and returns it.
GenericIf const* typeIs(std::unique_ptr<GenericIf> t);
GenericIf const* type(std::string_view name);
std::vector<GenericIf const*> types();

// The value operations of T: default and copy construction, destruction,
// hash, equality, canonical text, parse (when T parses) and assignment.
template <typename T>
class TypeImpl : public GenericIf {
 public:
  explicit TypeImpl(std::string name) : GenericIf(std::move(name), Kind::value) {}
  size_t genericIfSize() const override { return sizeof(T); }
  void genericIfConstruct(void* mem) const override { ::new (mem) T(); }
  void genericIfConstruct(void* mem, void const* from) const override {
    ::new (mem) T(*static_cast<T const*>(from));
  }
  void genericIfDestruct(void* obj) const override { static_cast<T*>(obj)->~T(); }
  uint32_t genericIfHash(void const* obj) const override {
    if constexpr (HasZentHash<T>) {
      return static_cast<T const*>(obj)->hash();
    } else {
      return static_cast<uint32_t>(std::hash<T>()(*static_cast<T const*>(obj)));
    }
  }
  bool genericIfEqual(void const* a, void const* b) const override {
    return *static_cast<T const*>(a) == *static_cast<T const*>(b);
  }
  std::string genericIfStrRep(void const* obj) const override {
    return fieldText(*static_cast<T const*>(obj));
  }
  void genericIfStrepToValue(void* obj, std::string_view text) const override {
    if constexpr (FieldParsable<T>) {
      *static_cast<T*>(obj) = parseFieldText<T>(text, name());
    } else {
      unsupported("parse");
    }
  }
  void genericIfVoidPtrIs(void* dst, void const* src) const override {
    *static_cast<T*>(dst) = *static_cast<T const*>(src);
  }
};

template <typename T>
GenericIf const* registerValueType(std::string name) {
  return typeIs(std::make_unique<TypeImpl<T>>(std::move(name)));
}

// A value of a type known only at run time, owned.
class GenericValue {
 public:
  explicit GenericValue(GenericIf const* t);
  GenericValue(GenericValue const&) = delete;
  GenericValue& operator=(GenericValue const&) = delete;
  ~GenericValue();
  void* ptr() { return storage_.get(); }
  void const* ptr() const { return storage_.get(); }
  std::string strRep() const { return type_->genericIfStrRep(ptr()); }

 private:
  GenericIf const* type_;
  std::unique_ptr<std::byte[]> storage_;
};

}  // namespace Zent
