#include <opus.h>

#include <cstdlib>

#include <benchmark/benchmark.h>

#include <kwtsdk/opus/conversion.h>

#include "bench/measure.h"
#include "bench/speech.h"
#include "platform/opus/mp3_format.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::bench {
namespace {

constexpr std::int32_t kBitRate = 24;
constexpr std::size_t kMostFrames = 5760;  // of one packet

bool convert(const RecordedFile& file, opus::Format format) {
  return opus::convert(file.input, file.output, format, kBitRate, nullptr).status == 0;
}

/// The yardstick: the same packets through the bare decoder and, for MP3, the bare encoder.
void decodeHour(int sampleRate, opus::Format format) {
  int error = OPUS_OK;
  OpusDecoder* const decoder = opus_decoder_create(sampleRate, 1, &error);
  const auto encoder = internal::makeLameEncoder(sampleRate, 1, kBitRate);
  std::vector<std::int16_t> sound(kMostFrames);
  std::vector<unsigned char> coded(kMostFrames * 2 + 7200);
  for (std::size_t i = 0; i < kPacketsPerHour; ++i) {
    const Bytes& packet = speechPackets()[i % speechPackets().size()];
    const int frames = opus_decode(decoder, packet.data(), static_cast<opus_int32>(packet.size()),
                                   sound.data(), static_cast<int>(kMostFrames), 0);
    if (format == opus::Format::mp3) {
      lame_encode_buffer(encoder.get(), sound.data(), nullptr, frames, coded.data(),
                         static_cast<int>(coded.size()));
    }
    benchmark::DoNotOptimize(sound.data());
  }
  opus_decoder_destroy(decoder);
}

void bare(benchmark::State& state, const RecordingKind& recording, opus::Format format) {
  const RecordedFile hour(recording, kPacketsPerHour);
  bool converted = true;
  const std::string name = std::string("an hour, ") + recording.name +
                           (format == opus::Format::wav ? " to WAV / bare decoder" : " to MP3 / bare codecs");
  compare(
      state, {.name = name, .most = 1.1}, kThread, kPacketsPerHour,
      [&] { converted = converted && convert(hour, format); },
      [&] { decodeHour(recording.sampleRate, format); });
  if (!converted) fail(state, "The conversion failed");
}

// Another program's whole run beside the library's, both from file to file.
void ffmpeg(benchmark::State& state, opus::Format format, const std::string& options) {
  const RecordedFile hour(kOgg, kPacketsPerHour);
  const std::string command = "ffmpeg -nostdin -loglevel error -y -i " + hour.input + " " + options + " " +
                              hour.folder.file("other") + (format == opus::Format::wav ? ".wav" : ".mp3");
  bool done = true;
  compare(
      state, {.name = "an hour, Ogg Opus " + options + " / ffmpeg", .most = 1}, kWall, kPacketsPerHour,
      [&] { done = done && convert(hour, format); },
      [&] { done = done && std::system(command.c_str()) == 0; });
  if (!done) fail(state, "A conversion failed; is ffmpeg installed?");
}

// Of the whole process: what the benchmark itself has of it is far less.
void memory(benchmark::State& state, const RecordingKind& recording) {
  const RecordedFile ten(recording, 10 * kPacketsPerHour);
  for (auto _ : state) {
    if (!forgetPeak()) return fail(state, "The peak of memory cannot be measured: /proc/self/clear_refs");
    if (!convert(ten, opus::Format::wav)) return fail(state, "The conversion failed");
    report(state,
           {.name = std::string("ten hours, ") + recording.name + ", peak memory", .most = 32, .unit = "MiB"},
           peakMemory() / (1 << 20));
  }
}

#define KWTSDK_CONVERSION(function, ...) \
  BENCHMARK_CAPTURE(function, __VA_ARGS__)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond)
KWTSDK_CONVERSION(bare, live_wav, kLive, opus::Format::wav);
KWTSDK_CONVERSION(bare, live_mp3, kLive, opus::Format::mp3);
KWTSDK_CONVERSION(bare, ogg_wav, kOgg, opus::Format::wav);
KWTSDK_CONVERSION(bare, ogg_mp3, kOgg, opus::Format::mp3);
KWTSDK_CONVERSION(ffmpeg, wav, opus::Format::wav, "-c:a pcm_s16le");
KWTSDK_CONVERSION(ffmpeg, mp3, opus::Format::mp3, "-ac 1 -ar 16000 -c:a libmp3lame -b:a 24k");
#undef KWTSDK_CONVERSION
BENCHMARK_CAPTURE(memory, live, kLive)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(memory, ogg, kOgg)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kwtsdk::bench
