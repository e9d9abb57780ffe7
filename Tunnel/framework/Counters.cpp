#include "Tunnel/framework/Counters.h"

#include <algorithm>
#include <mutex>

namespace Zent {
namespace {
struct Service {
  std::mutex mutex;
  std::vector<CounterSet const*> sets;
};
Service& service() {
  static Service* s = new Service;
  return *s;
}
}  // namespace

CounterSet::CounterSet(std::string owner) : owner_(std::move(owner)) {
  auto& s = service();
  std::lock_guard lock(s.mutex);
  s.sets.push_back(this);
}

CounterSet::~CounterSet() {
  auto& s = service();
  std::lock_guard lock(s.mutex);
  s.sets.erase(std::remove(s.sets.begin(), s.sets.end(), this), s.sets.end());
}

Counter& CounterSet::counterIs(std::string_view name) {
  for (auto& c : counters_) {
    if (c.name() == name) return c;
  }
  return counters_.emplace_back(std::string(name));
}

Counter const* CounterSet::counter(std::string_view name) const {
  for (auto const& c : counters_) {
    if (c.name() == name) return &c;
  }
  return nullptr;
}

uint64_t CounterSet::value(std::string_view name) const {
  auto const* c = counter(name);
  return c ? c->value() : 0;
}

std::vector<CounterSet const*> counterSets() {
  auto& s = service();
  std::lock_guard lock(s.mutex);
  return s.sets;
}

}  // namespace Zent
