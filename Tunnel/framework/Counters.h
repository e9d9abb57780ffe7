#pragma once
// Named unsigned 64-bit counters. An object that counts (a tunnel table) owns
// a CounterSet registered with the process's counter service under its name,
// so diagnostics can list every counter of the process.

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zent {

class Counter {
 public:
  explicit Counter(std::string name) : name_(std::move(name)) {}
  std::string const& name() const { return name_; }
  uint64_t value() const { return value_; }
  void inc(uint64_t n = 1) { value_ += n; }
  void valueIs(uint64_t v) { value_ = v; }

 private:
  std::string name_;
  uint64_t value_ = 0;
};

class CounterSet {
 public:
  explicit CounterSet(std::string owner);
  ~CounterSet();
  CounterSet(CounterSet const&) = delete;
  CounterSet& operator=(CounterSet const&) = delete;

  std::string const& owner() const { return owner_; }
  // Registers a counter (or returns the one of that name). References stay
  // valid for the set's lifetime.
  Counter& counterIs(std::string_view name);
  Counter const* counter(std::string_view name) const;
  uint64_t value(std::string_view name) const;
  std::deque<Counter> const& counters() const { return counters_; }

 private:
  std::string owner_;
  std::deque<Counter> counters_;
};

// The process's counter service: every live CounterSet.
std::vector<CounterSet const*> counterSets();

}  // namespace Zent
