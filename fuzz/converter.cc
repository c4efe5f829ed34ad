// Files of any content to the converter, as a whole and as they grow, with memory that runs out: converted or
// refused, and nothing is left beside the output.

#include <fcntl.h>

#include <kwtsdk/opus/live_conversion.h>
#include <kwtsdk/opus/recording_meter.h>

#include "fuzz/input.h"
#include "platform/posix/files.h"
#include "tests/opus/recordings.h"
#include "tests/scarcity/scarcity.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::fuzz {
namespace {

void whole(const testing::TemporaryFolder& folder, opus::Format format, const testing::Scarcity& memory) {
  const std::string in = folder.file("in"), converted = folder.file("out");
  opus::ConversionResult result;
  {
    memory.begin("a conversion");
    const testing::Counting counts;
    result = opus::convert(in, converted, format, 24, {});
  }
  const bool isDone = result.status >= 0;
  require(testing::namesIn(folder.path()) == (isDone ? testing::Names{"in", "out"} : testing::Names{"in"}),
          "there is an output, and nothing else, when it was converted");
  require(result.text.empty() == isDone, "a failure says what happened");
  if (!isDone) return;
  const std::string out = testing::contentOf(converted);
  require(format == opus::Format::mp3
              ? out.size() % 108 == 0
              : testing::isWav(out, result.sampleRate, result.frames, testing::number(out, 22, 2)),
          "the output is what its header says");
}

void growing(const testing::TemporaryFolder& folder, const std::string& content, std::size_t piece,
             opus::LiveConversion::Format format, const testing::Scarcity& memory) {
  testing::writeFile(folder.file("in"), "");
  const internal::Descriptor out(::open(folder.file("out").c_str(), O_CREAT | O_RDWR | O_TRUNC, 0600));
  opus::LiveConversion conversion(folder.file("in"), out.get(), "out", format);
  opus::RecordingMeter meter(folder.file("in"));
  std::uint64_t written = 0;
  for (std::size_t at = 0; at < content.size(); at += piece) {
    std::ofstream(folder.file("in"), std::ios::app) << content.substr(at, piece);
    memory.begin("a conversion");
    const testing::Counting counts;
    static_cast<void>(conversion.follow());
    require(conversion.written() >= written, "what was written stays");
    written = conversion.written();
    require(meter.read().bytes <= content.size(), "no more is read than there is");
  }
  static_cast<void>(conversion.finish());
}

const Target converterTarget("converter", [](Input& input) {
  for (const char* name : {"in", "out"}) std::filesystem::remove(testing::sharedFolder().file(name));
  const std::size_t how = input.byte(), piece = 1 + input.byte() * 16U;
  testing::Scarcity memory{.isLasting = input.chance(2)};
  if (input.chance(4)) memory.at = 1U + input.byte();
  const std::string content = input.text();
  if (how % 2 == 0) {
    testing::writeFile(testing::sharedFolder().file("in"), content);
    whole(testing::sharedFolder(), how % 8 == 0 ? opus::Format::mp3 : opus::Format::wav, memory);
  } else {
    using enum opus::LiveConversion::Format;
    static constexpr std::array kFormats{oggOpus, wav, oggOpus, mp3};
    growing(testing::sharedFolder(), content, piece, kFormats.at(how / 2 % kFormats.size()), memory);
  }
});

}  // namespace
}  // namespace kwtsdk::fuzz
