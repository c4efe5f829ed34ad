#include <gtest/gtest.h>

#include <kwtsdk/bluez/problem.h>

#include "tools/failure.h"
#include "tools/firmware_image.h"
#include "wire/firmware_channel.h"

namespace kwtsdk::tool {
namespace {

TEST(FirmwareImageTest, EndsInWhatNoPacketCanCarry) {
  constexpr std::uint64_t segment = wire::kSegmentSize, least = wire::kSmallestPacket,
                          floor = std::uint64_t{wire::kPacketFloor};
  // Size and MTU, the tail, the tail whatever the MTU, and the next size that can be sent.
  const std::array<std::uint64_t, 5> cases[]{{4, 244, 4, 4, least},
                                             {least - 1, 244, least - 1, least - 1, least},
                                             {least, 244, 0, 0, least},
                                             {floor - 1, 0, 0, 0, floor - 1},
                                             {floor, 0, 0, 0, segment},
                                             {floor + 1, 0, 1, 0, segment},
                                             {floor + 1, 244, 0, 0, segment},
                                             {segment, 244, 0, 0, segment},
                                             {segment + 1, 512, 1, 1, segment + least},
                                             {segment + 498, 244, 10, 0, 2 * segment},
                                             {segment + 498, 512, 0, 0, 2 * segment},
                                             {8 * segment + 512, 512, 0, 0, 9 * segment}};
  for (const auto& [size, mtu, tail, tailWhateverTheMtu, sendable] : cases) {
    EXPECT_EQ(unsendableTail(size, static_cast<std::int64_t>(mtu)), tail) << size << " " << mtu;
    EXPECT_EQ(unsendableTail(size), tailWhateverTheMtu) << size;
    EXPECT_EQ(sendableSize(size), sendable) << size;
  }
}

// Those that take long to bring about, or another machine.
TEST(FailureTest, SaysWhatHelpsAgainstBluetoothsProblems) {
  using bluez::Problem;
  const std::tuple<Problem, const char*, const char*> cases[]{
      {Problem::busUnreachable, "there is no system bus", "start dbus"},
      {Problem::notPermitted, "may not use Bluetooth", "group bluetooth"},
      {Problem::deviceNotFound, "recorder was not found", "kwt scan"},
      {Problem::noConnection, "did not accept the connection", "kwt scan"},
      {Problem::noServices, "did not say what it can do", "off and on"}};
  for (const auto& [problem, text, hint] : cases) {
    const Failure failure = explained(Error(bluez::kDomain, static_cast<std::int64_t>(problem), {}));
    EXPECT_NE(std::string(failure.what()).find(text), std::string::npos) << failure.what();
    EXPECT_NE(failure.hint().find(hint), std::string::npos) << failure.hint();
  }
}

}  // namespace
}  // namespace kwtsdk::tool
