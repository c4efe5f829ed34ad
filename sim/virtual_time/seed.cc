#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include <kwtsdk/sim/seed.h>

namespace kwtsdk::sim {

std::uint64_t seedFromEnvironment(std::uint64_t fallback) {
  const char* variable = std::getenv("KWTSDK_SEED");
  if (variable == nullptr) return fallback;
  const std::string_view text(variable);
  std::uint64_t seed = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seed);
  if (error != std::errc() || end != text.data() + text.size()) {
    std::fprintf(stderr, "KWTSDK_SEED is \"%s\"; set it to a decimal number from 0 to 18446744073709551615\n",
                 variable);
    std::exit(2);
  }
  return seed;
}

}  // namespace kwtsdk::sim
