#pragma once
// The error of an instantiating mutator (xIs(args) that creates a member)
// asked to create, under an existing key, a member that differs from the
// one there: the framework does not silently replace an entity others hold.

#include <stdexcept>
#include <string>
#include <string_view>

namespace Zent {

class ReinstantiationError : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

// "<attribute>[<key>]: mutator would reinstantiate '<have>' as '<want>'"
[[noreturn]] void throwMutatorReinstantiation(std::string_view attribute, std::string_view key,
                                              std::string_view have, std::string_view want);

}  // namespace Zent
