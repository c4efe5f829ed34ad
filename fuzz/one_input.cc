// What libFuzzer calls: one input for the one target that this program holds. Without libFuzzer a program
// holds all of them, and main() takes a target's corpus.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "fuzz/input.h"

namespace kwtsdk::fuzz {
namespace {

std::vector<const Target*>& targets() {
  static std::vector<const Target*> all;
  return all;
}

void take(const Target& target, Input input) {
  target.body(input);
  require(!::testing::Test::HasFailure(), "what a campaign expects");
}

}  // namespace

Target::Target(const char* itsName, void (*itsBody)(Input&)) : name(itsName), body(itsBody) {
  targets().push_back(this);
}

}  // namespace kwtsdk::fuzz

#ifdef KWT_FUZZ_ALONE

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kwtsdk::fuzz::take(*kwtsdk::fuzz::targets().front(), kwtsdk::fuzz::Input({data, size}));
  return 0;
}

#else

int main(int count, char** words) {
  using namespace kwtsdk;
  int taken = 0;
  for (const fuzz::Target* const target : fuzz::targets()) {
    if (count != 3 || std::string_view(words[1]) != target->name) continue;
    for (const auto& file : std::filesystem::directory_iterator(words[2])) {
      std::ifstream in(file.path(), std::ios::binary);
      const Bytes bytes{std::istreambuf_iterator<char>(in), {}};
      // What fails ends the process.
      std::fprintf(stderr, "repeat with: scripts/fuzz %s %s\n", target->name, file.path().c_str());
      fuzz::take(*target, fuzz::Input(bytes));
      ++taken;
    }
  }
  std::printf("%d inputs\n", taken);
  return taken > 0 ? 0 : 1;
}

#endif
