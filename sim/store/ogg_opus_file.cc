#include "sim/store/ogg_opus_file.h"

#include <array>
#include <fstream>
#include <string_view>

namespace kwtsdk::sim {

bool isOggOpusFile(const std::filesystem::path& path) {
  constexpr std::size_t pageHeaderSize = 27, segmentCountAt = 26;
  constexpr std::string_view capture = "OggS", identification = "OpusHead";
  std::array<char, pageHeaderSize + 255 + identification.size()> page{};
  std::ifstream file(path, std::ios::binary);
  file.read(page.data(), page.size());

  const std::string_view head(page.data(), static_cast<std::size_t>(file.gcount()));
  if (head.size() < pageHeaderSize || !head.starts_with(capture)) return false;
  const auto segments = static_cast<unsigned char>(head[segmentCountAt]);
  return head.size() >= pageHeaderSize + segments &&
         head.substr(pageHeaderSize + segments).starts_with(identification);
}

}  // namespace kwtsdk::sim
