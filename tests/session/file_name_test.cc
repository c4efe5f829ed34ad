#include "session/file_name.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "session/creation_time.h"
#include "tests/support/time_zone.h"

namespace kwtsdk::testing {
namespace {

using namespace session::detail;
using session::Errc;
using namespace std::string_literals;

TEST(CreationTime, IsTheWallClocksInThisCentury) {
  setZone(kBerlin);
  const std::pair<std::vector<std::uint8_t>, std::string> cases[]{
      {{24, 1, 15, 9, 30, 0}, "2024-01-15 09:30:00 +0100"},
      {{24, 7, 15, 9, 30, 0}, "2024-07-15 09:30:00 +0200"},
      {{24, 3, 31, 3, 0, 0}, "2024-03-31 03:00:00 +0200"},
      {{24, 10, 27, 3, 0, 0}, "2024-10-27 03:00:00 +0100"},
      {{24, 2, 29, 0, 0, 0}, "2024-02-29 00:00:00 +0100"},
      {{0, 1, 1, 0, 0, 0}, "2000-01-01 00:00:00 +0100"},
      {{99, 12, 31, 23, 59, 59}, "2099-12-31 23:59:59 +0100"}};
  for (const auto& [fields, expected] : cases)
    EXPECT_EQ(fileName("%Y-%m-%d %H:%M:%S %z", {7, 0, creationTime(fields)}), expected);
  const std::vector<std::uint8_t> none[]{
      {100, 1, 1, 0, 0, 0}, {23, 2, 29, 0, 0, 0},           {24, 13, 1, 0, 0, 0},
      {24, 1, 0, 0, 0, 0},  {24, 1, 1, 24, 0, 0},           {24, 1, 1, 0, 60, 0},
      {24, 1, 1, 0, 0, 60}, {255, 255, 255, 255, 255, 255}, {24, 1, 1}};
  for (const auto& fields : none) EXPECT_FALSE(creationTime(fields));
  // An hour that the clock skips here: an hour beside it, but not no time at all.
  const auto skipped = creationTime(std::vector<std::uint8_t>{24, 3, 31, 2, 30, 0});
  ASSERT_TRUE(skipped);
  EXPECT_EQ(fileName("%M", {7, 0, skipped}), "30");
}

TEST(FileName, HasTimeAndIdOrIsUndated) {
  setZone(kBerlin);
  const auto created = creationTime(std::vector<std::uint8_t>{24, 7, 5, 9, 3, 8});
  const std::tuple<const char*, const char*, const char*> cases[]{
      {"%Y%m%d-%H%M%S-{id}.opus", "20240705-090308-7.opus", "undated-7.opus"},
      {"{id}", "7", "7"},
      {"%Y at %H.%M{id}", "2024 at 09.037", "undated at undated7"},
      {"%d. %B, {id} %H", "05. July, 7 09", "undated, 7 undated"},
      {"%D", "07-05-24", "undated"},
      {"%-d%%%Ey {x} %", "5%24 {x} %", "undated {x} %"}};
  for (const auto& [pattern, dated, undated] : cases) {
    EXPECT_FALSE(checkNamePattern(pattern));
    EXPECT_EQ(fileName(pattern, {7, 0, created}), dated);
    EXPECT_EQ(fileName(pattern, {7, 0, std::nullopt}), undated);
  }
  for (const std::string& pattern : {""s, "."s, ".."s, "a/b"s, "a\0b"s}) {
    const auto failure = checkNamePattern(pattern);
    EXPECT_TRUE(failure && *failure == Errc::badArgument) << pattern;
  }
}

}  // namespace
}  // namespace kwtsdk::testing
