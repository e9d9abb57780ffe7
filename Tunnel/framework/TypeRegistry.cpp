#include "Tunnel/framework/TypeRegistry.h"

#include <map>
#include <mutex>

namespace Zent {
namespace {
struct Registry {
  std::mutex mutex;
  std::map<std::string, std::unique_ptr<GenericIf>, std::less<>> types;
};
Registry& registry() {
  static Registry* r = new Registry;
  return *r;
}
}  // namespace

void GenericIf::unsupported(const char* op) const {
  throw std::logic_error(fmt::format("{}: {} not supported by this type", name_, op));
}

void GenericIf::genericIfConstruct(void*) const { unsupported("construct"); }
void GenericIf::genericIfConstruct(void*, void const*) const { unsupported("copy construct"); }
void GenericIf::genericIfDestruct(void*) const { unsupported("destruct"); }
uint32_t GenericIf::genericIfHash(void const*) const { unsupported("hash"); }
bool GenericIf::genericIfEqual(void const*, void const*) const { unsupported("equality"); }
std::string GenericIf::genericIfStrRep(void const*) const { unsupported("text"); }
void GenericIf::genericIfStrepToValue(void*, std::string_view) const { unsupported("parse"); }
void GenericIf::genericIfVoidPtrIs(void*, void const*) const { unsupported("assign"); }

bool GenericIf::genericIfAttributeOp(Entity*, AttributeId, AttributeOp, void const*, void*) const {
  return false;
}

std::unique_ptr<GenericIterator> GenericIf::genericIfIterator(Entity const*, AttributeId) const {
  return nullptr;
}

Ptr<Entity> GenericIf::genericIfConstructFromCtorArgs(std::vector<std::string> const&) const {
  unsupported("construction from arguments");
}

Ptr<Entity> GenericIf::newEntityForDir(String const&) const { unsupported("newEntityForDir"); }

GenericIf::AttributeInfo const* GenericIf::attribute(AttributeId id) const {
  for (auto const& a : attributes_) {
    if (a.id == id) return &a;
  }
  return nullptr;
}

GenericIf::AttributeInfo const* GenericIf::attribute(std::string_view n) const {
  for (auto const& a : attributes_) {
    if (a.name == n) return &a;
  }
  return nullptr;
}

GenericIf const* typeIs(std::unique_ptr<GenericIf> t) {
  auto& r = registry();
  std::lock_guard lock(r.mutex);
  auto it = r.types.find(t->name());
  if (it != r.types.end()) return it->second.get();
  GenericIf const* raw = t.get();
  r.types.emplace(t->name(), std::move(t));
  return raw;
}

GenericIf const* type(std::string_view name) {
  auto& r = registry();
  std::lock_guard lock(r.mutex);
  auto it = r.types.find(name);
  return it == r.types.end() ? nullptr : it->second.get();
}

std::vector<GenericIf const*> types() {
  auto& r = registry();
  std::lock_guard lock(r.mutex);
  std::vector<GenericIf const*> out;
  for (auto const& [n, t] : r.types) out.push_back(t.get());
  return out;
}

GenericValue::GenericValue(GenericIf const* t)
    : type_(t), storage_(new std::byte[t->genericIfSize()]) {
  type_->genericIfConstruct(storage_.get());
}

GenericValue::~GenericValue() { type_->genericIfDestruct(storage_.get()); }

}  // namespace Zent
