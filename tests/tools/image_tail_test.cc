#include "tools/firmware_image.h"

#include <gtest/gtest.h>

namespace kwtsdk::tool {
namespace {

TEST(ImageTail, IsWhatNoPacketCanCarry) {
  // Size and MTU, the tail, the tail whatever the MTU, and the next size that can be sent.
  const std::array<std::uint64_t, 5> cases[]{
      {4, 244, 4, 4, 88},        {87, 244, 87, 87, 88},          {88, 244, 0, 0, 88},
      {219, 0, 0, 0, 219},       {220, 0, 0, 0, 8192},           {221, 0, 1, 0, 8192},
      {221, 244, 0, 0, 8192},    {8104, 244, 52, 0, 8192},       {8192, 244, 0, 0, 8192},
      {8193, 512, 1, 1, 8280},   {8642, 220, 10, 0, 16384},      {8642, 244, 0, 0, 16384},
      {8690, 244, 10, 0, 16384}, {8690, 512, 0, 0, 16384},       {65536, 512, 0, 0, 65536},
      {65535, 244, 0, 0, 65536}, {65536 + 512, 512, 0, 0, 73728}};
  for (const auto& [size, mtu, tail, tailWhateverTheMtu, sendable] : cases) {
    EXPECT_EQ(unsendableTail(size, static_cast<std::int64_t>(mtu)), tail) << size << " " << mtu;
    EXPECT_EQ(unsendableTail(size), tailWhateverTheMtu) << size;
    EXPECT_EQ(sendableSize(size), sendable) << size;
  }
}

}  // namespace
}  // namespace kwtsdk::tool
