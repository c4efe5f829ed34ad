#pragma once

#include <stdexcept>
#include <string>

namespace kwtsdk::testing {

/// The text of what `body` throws; "nothing" when it returns.
template <class Body>
std::string thrownBy(Body body) {
  try {
    body();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "nothing";
}

}  // namespace kwtsdk::testing
