#include "sim/samples/opus_file.h"

#include <opusenc.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace kwtsdk::sim {

namespace {

struct Release {
  void operator()(OggOpusComments* comments) const { ope_comments_destroy(comments); }
  void operator()(OggOpusEnc* encoder) const { ope_encoder_destroy(encoder); }
};

void require(int result, const std::filesystem::path& path) {
  if (result == OPE_OK) return;
  throw std::runtime_error(path.string() + " cannot be written (" + ope_strerror(result) +
                           "): check the folder's permissions and free space");
}

}  // namespace

void writeOpusFile(const std::filesystem::path& path, const Samples& samples, int serialNumber) {
  constexpr int channels = 1, family = 0, bitRate = 64000, constant = 0;
  const std::unique_ptr<OggOpusComments, Release> comments(ope_comments_create());
  int result = OPE_OK;
  const std::unique_ptr<OggOpusEnc, Release> encoder(
      ope_encoder_create_file(path.c_str(), comments.get(), kSampleRate, channels, family, &result));
  require(result, path);
  require(ope_encoder_ctl(encoder.get(), OPE_SET_SERIALNO(serialNumber)), path);
  require(ope_encoder_ctl(encoder.get(), OPUS_SET_BITRATE(bitRate)), path);
  require(ope_encoder_ctl(encoder.get(), OPUS_SET_VBR(constant)), path);
  require(ope_encoder_write(encoder.get(), samples.data(), static_cast<int>(samples.size())), path);
  require(ope_encoder_drain(encoder.get()), path);
}

}  // namespace kwtsdk::sim
