#include "tools/image_tail.h"

#include <gtest/gtest.h>

namespace kwtsdk::tool {
namespace {

TEST(ImageTail, IsWhatNoPacketCanCarry) {
  struct Case {
    std::uint64_t size;
    std::int64_t mtu;
    std::uint64_t tail, tailWhateverTheMtu, sendable;
  };
  for (const Case& test : std::initializer_list<Case>{{4, 244, 4, 4, 88},
                                                      {87, 244, 87, 87, 88},
                                                      {88, 244, 0, 0, 88},
                                                      {219, 0, 0, 0, 219},
                                                      {221, 0, 1, 0, 8192},
                                                      {221, 244, 0, 0, 8192},
                                                      {8104, 244, 52, 0, 8192},
                                                      {8192, 244, 0, 0, 8192},
                                                      {8193, 512, 1, 1, 8280},
                                                      {8642, 220, 10, 0, 16384},
                                                      {8642, 244, 0, 0, 16384},
                                                      {8690, 244, 10, 0, 16384},
                                                      {8690, 512, 0, 0, 16384},
                                                      {65536, 512, 0, 0, 65536},
                                                      {65535, 244, 0, 0, 65536},
                                                      {65536 + 512, 512, 0, 0, 73728}}) {
    EXPECT_EQ(unsendableTail(test.size, test.mtu), test.tail) << test.size << " " << test.mtu;
    EXPECT_EQ(unsendableTail(test.size), test.tailWhateverTheMtu) << test.size;
    EXPECT_EQ(sendableSize(test.size), test.sendable) << test.size;
  }
}

}  // namespace
}  // namespace kwtsdk::tool
