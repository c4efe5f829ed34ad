#include <algorithm>
#include <exception>
#include <memory>
#include <new>
#include <vector>

#include <kwtsdk/opus/conversion.h>

#include "platform/opus/conversion_request.h"
#include "platform/opus/converted_file.h"
#include "platform/opus/mp3_format.h"
#include "platform/opus/sound.h"

namespace kwtsdk::opus {

namespace {

using namespace internal;

// Some packets at once: small enough for the processor's cache.
constexpr std::size_t kBlockFrames = 16384;

std::unique_ptr<AudioSource> openSource(Source source, InputFile& input) {
  if (source == Source::oggOpus) return openOggSource(input);
  return openLiveSource(input, LivePacketReader::Kind::complete);
}

std::unique_ptr<SoundWriter> openWriter(const ConversionRequest& request, ConvertedFile& output,
                                        const AudioSource& sound, const std::string& title) {
  if (request.format == Format::wav) {
    return openWavWriter(output, sound.sampleRate(), sound.channels(), title);
  }
  return openMp3Writer(output, sound.sampleRate(), sound.channels(), request.kilobitsPerSecond, title);
}

/// False when the progress function cancels.
bool copySound(const ConversionRequest& request, const InputFile& input, AudioSource& sound,
               SoundWriter& writer, ConversionResult& result) {
  const auto channels = static_cast<std::size_t>(sound.channels());
  std::vector<std::int16_t> block(kBlockFrames * channels);
  while (const std::size_t frames = sound.read(block)) {
    result.frames += frames;
    writer.write(std::span(block).first(frames * channels));
    if (request.progress && !request.progress(input.fraction())) return false;
  }
  return true;
}

void run(const std::string& inputPath, const std::string& outputPath, const ConversionRequest& request,
         ConversionResult& result) {
  if (request.format == Format::mp3) checkMp3BitRate(request.kilobitsPerSecond);
  InputFile input(inputPath);
  result.source = recognise(input);
  const auto sound = openSource(*result.source, input);
  result.sampleRate = sound->sampleRate();
  ConvertedFile output(outputPath, input);
  const auto writer = openWriter(request, output, *sound, request.keepsOrigin ? sound->title() : "");
  const bool isDone = copySound(request, input, *sound, *writer, result);
  result.damagedPackets = sound->damagedPackets();
  if (!isDone) {
    result.status = ConversionResult::kCancelled;
    result.text = "The conversion of " + inputPath + " was cancelled: start it again when it is wanted.";
    return;
  }
  if (result.frames == 0) {
    throw ConversionFailure(inputPath + " holds no sound that can be decoded: download or record it again.");
  }
  writer->finish();
  if (request.keepsOrigin) output.setTime(input.modified());
  output.publish();
}

}  // namespace

bool isMp3BitRate(std::int32_t kilobitsPerSecond) noexcept {
  return std::ranges::find(kMpegBitRates, kilobitsPerSecond) != kMpegBitRates.end();
}

ConversionResult convert(const std::string& input, const std::string& output,
                         const ConversionRequest& request) {
  ConversionResult result;
  try {
    run(input, output, request, result);
    return result;
  } catch (const std::bad_alloc&) {
    result.text = told("The memory is not enough for a conversion: end other programs, then convert again.");
  } catch (const std::exception& failure) {
    result.text = told(failure.what());
  } catch (...) {
    result.text = told("The progress function threw: convert again without it.");
  }
  result.status = ConversionResult::kFailed;
  return result;
}

ConversionResult convert(const std::string& input, const std::string& output, Format format,
                         std::int32_t kilobitsPerSecond, const ConversionProgress& progress) {
  return convert(input, output, {format, kilobitsPerSecond, progress, true});
}

}  // namespace kwtsdk::opus
