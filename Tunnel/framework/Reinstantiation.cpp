#include "Tunnel/framework/Reinstantiation.h"

#include <fmt/format.h>

namespace Zent {

void throwMutatorReinstantiation(std::string_view attribute, std::string_view key,
                                 std::string_view have, std::string_view want) {
  throw ReinstantiationError(
      fmt::format("{}[{}]: mutator would reinstantiate '{}' as '{}'", attribute, key, have, want));
}

}  // namespace Zent
