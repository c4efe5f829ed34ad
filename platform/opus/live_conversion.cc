#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <vector>

#include <kwtsdk/opus/live_conversion.h>

#include "platform/opus/growing_file.h"
#include "platform/opus/mp3_format.h"
#include "platform/opus/ogg_writer.h"
#include "platform/opus/sound.h"

namespace kwtsdk::opus {

namespace {

using namespace internal;

/// What turns new packets into new bytes.
class Turner {
 public:
  virtual ~Turner() = default;
  virtual void follow() = 0;
  virtual void finish() = 0;
};

class PacketTurner : public Turner {
 public:
  PacketTurner(InputFile& input, ByteSink& output)
      : output_(output), packets_(input, LivePacketReader::Kind::growing) {}

  void follow() override {
    while (const auto item = packets_.next()) {
      if (!writer_) writer_ = std::make_unique<OggWriter>(output_);
      writer_->write(item->packet);
    }
    if (writer_) writer_->settle();
  }
  void finish() override {
    if (writer_) writer_->finish();
  }

 private:
  ByteSink& output_;
  LivePacketReader packets_;
  std::unique_ptr<OggWriter> writer_;
};

class SoundTurner : public Turner {
 public:
  using MakeWriter = std::function<std::unique_ptr<SoundWriter>(int sampleRate, int channels)>;

  SoundTurner(InputFile& input, MakeWriter makeWriter)
      : sound_(openLiveSource(input, LivePacketReader::Kind::growing)),
        makeWriter_(std::move(makeWriter)),
        block_(kLiveSampleRate) {}

  void follow() override {
    bool isNew = false;
    while (const std::size_t frames = sound_->read(block_)) {
      if (!writer_) writer_ = makeWriter_(sound_->sampleRate(), sound_->channels());
      writer_->write(std::span(block_).first(frames));
      isNew = true;
    }
    if (isNew) writer_->settle();
  }
  void finish() override {
    if (writer_) writer_->finish();
  }

 private:
  const std::unique_ptr<AudioSource> sound_;
  const MakeWriter makeWriter_;
  std::unique_ptr<SoundWriter> writer_;
  std::vector<std::int16_t> block_;
};

}  // namespace

struct LiveConversion::State {
  State(std::string path, int descriptor, const std::string& name, Format kind, std::int32_t rate)
      : packets(std::move(path)), format(kind), kilobitsPerSecond(rate), output(descriptor, name) {}

  void open() {
    if (turner) return;
    if (format == Format::mp3) checkMp3BitRate(kilobitsPerSecond);
    input = std::make_unique<InputFile>(packets);
    if (format == Format::oggOpus) {
      turner = std::make_unique<PacketTurner>(*input, output);
      return;
    }
    turner = std::make_unique<SoundTurner>(*input, [this](int rate, int channels) {
      if (format == Format::wav) return openWavWriter(output, rate, channels);
      return openMp3Writer(output, rate, channels, kilobitsPerSecond);
    });
  }

  /// The file is opened with the first one, since constructors should not fail.
  template <class Step>
  std::optional<std::string> attempt(Step step) noexcept {
    if (!failure) failure = failureOf(step);
    return failure ? std::optional(told(*failure)) : std::nullopt;
  }

  template <class Step>
  std::optional<std::string> failureOf(Step step) noexcept {
    try {
      open();
      step();
      output.flush();
      return std::nullopt;
    } catch (const std::bad_alloc&) {
      return told(
          "The memory is not enough to convert the recording: end other programs, then record again.");
    } catch (const std::exception& exception) {
      return told(exception.what());
    }
  }

  const std::string packets;
  const Format format;
  const std::int32_t kilobitsPerSecond;
  GrowingFile output;
  std::unique_ptr<InputFile> input;
  std::unique_ptr<Turner> turner;
  std::optional<std::string> failure;
};

LiveConversion::LiveConversion(const std::string& packets, int output, const std::string& name, Format format,
                               std::int32_t kilobitsPerSecond)
    : state_(std::make_unique<State>(packets, output, name, format, kilobitsPerSecond)) {}
LiveConversion::~LiveConversion() = default;

std::optional<std::string> LiveConversion::follow() noexcept {
  return state_->attempt([this] { state_->turner->follow(); });
}

std::optional<std::string> LiveConversion::finish() noexcept {
  return state_->attempt([this] {
    state_->turner->follow();
    state_->turner->finish();
  });
}

std::uint64_t LiveConversion::written() const noexcept { return state_->output.written(); }

}  // namespace kwtsdk::opus
