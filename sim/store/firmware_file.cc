#include "sim/store/firmware_file.h"

#include <cstdint>
#include <fstream>
#include <stdexcept>

#include "sim/model/firmware_image.h"
#include "sim/store/device_file.h"

namespace kwtsdk::sim {

namespace fs = std::filesystem;

namespace {

constexpr const char* kFirmwareFileName = "firmware.bin";

}  // namespace

std::optional<Bytes> readFirmware(const fs::path& folder) {
  const fs::path path = deviceFile(folder, kFirmwareFileName);
  if (!fs::exists(path)) return std::nullopt;
  std::error_code failure;
  const std::uintmax_t size = fs::is_regular_file(path) ? fs::file_size(path, failure) : 0;
  std::ifstream file(path, std::ios::binary);
  Bytes image(!failure && isImageSize(size) ? static_cast<std::size_t>(size) : 0);
  file.read(reinterpret_cast<char*>(image.data()), static_cast<std::streamsize>(image.size()));
  if (image.empty() || !file) {
    throw std::runtime_error(path.string() +
                             " holds no firmware image: put one of 4 to 67108864 bytes there that you may "
                             "read, or remove the file");
  }
  return image;
}

bool writeFirmware(const fs::path& folder, const Bytes& image) {
  return replaceDeviceFile(folder, kFirmwareFileName, image);
}

}  // namespace kwtsdk::sim
