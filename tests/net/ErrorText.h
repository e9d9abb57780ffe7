#pragma once

#include <string>

namespace Vorn::test {

// What the exception of type E thrown by `f` says, or "no exception".
template <typename E, typename F>
std::string errorOf(F const& f) {
  try {
    f();
  } catch (E const& e) {
    return e.what();
  }
  return "no exception";
}

}  // namespace Vorn::test
