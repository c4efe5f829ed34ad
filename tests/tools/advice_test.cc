#include <gtest/gtest.h>

#include <string_view>
#include <tuple>

#include <kwtsdk/bluez/problem.h>

#include "tools/failure.h"

namespace kwtsdk::tool {
namespace {

TEST(FailureTest, TellsWhoCanDoSomethingAboutASessionsFailure) {
  using session::Errc;
  const MaybeError attError = Error("CBATTErrorDomain", 3, {});
  // What comes with it, then domain, code, and what a person reads.
  const std::tuple<Errc, MaybeError, const char*, std::int64_t, const char*> cases[]{
      {Errc::cancelled, attError, "kwt", 4, "Interrupted."},
      {Errc::linkLost, attError, "kwt", 2, "The connection to the recorder was lost."},
      {Errc::stalled, std::nullopt, "kwt", 1, "The recorder did not answer within 5 s."},
      {Errc::linkFailed, attError, "CBATTErrorDomain", 3, "The recorder reported an error"},
      {Errc::notFirst, std::nullopt, "kwt", 0, "Another recording has become"},
      {Errc::fileUnusable, std::nullopt, "kwt", 5, "The reason: that."},
      {Errc::noResources, std::nullopt, "kwt", 0, "The reason: that."}};
  for (const auto& [code, cause, domain, number, text] : cases) {
    const Failure failure =
        explained(session::Failure(code, "info: the reason: that.", session::Effect::none, cause));
    EXPECT_EQ(failure.domain(), domain) << text;
    EXPECT_EQ(failure.code(), number) << text;
    EXPECT_TRUE(std::string_view(failure.what()).starts_with(text)) << failure.what();
    EXPECT_FALSE(failure.hint().empty()) << text;
  }
}

// The code stays, for whoever looks it up.
TEST(FailureTest, LeavesOtherLanguagesToWhoeverAsks) {
  const Failure failure =
      explained(Error(kLibraryDomain, 1004, {{"NSLocalizedDescription", "\xE5\xBF\x99"}}));
  EXPECT_STREQ(failure.what(), "The recorder refused to start the recording (com.kwt.sdk 1004).");
  EXPECT_EQ(failure.detail(), "\xE5\xBF\x99");
}

// Those that take long to bring about, or another machine.
TEST(FailureTest, SaysWhatHelpsAgainstBluetoothsProblems) {
  using bluez::Problem;
  const std::tuple<Problem, int, const char*, const char*> cases[]{
      {Problem::busUnreachable, 69, "there is no system bus", "start dbus"},
      {Problem::notPermitted, 69, "may not use Bluetooth", "group bluetooth"},
      {Problem::deviceNotFound, 75, "recorder was not found", "kwt scan"},
      {Problem::noConnection, 75, "did not accept the connection", "kwt scan"},
      {Problem::noServices, 75, "did not say what it can do", "off and on"}};
  for (const auto& [problem, status, text, hint] : cases) {
    const Failure failure = explained(Error(bluez::kDomain, static_cast<std::int64_t>(problem), {}));
    EXPECT_NE(std::string(failure.what()).find(text), std::string::npos) << failure.what();
    EXPECT_NE(failure.hint().find(hint), std::string::npos) << failure.hint();
    EXPECT_EQ(static_cast<int>(failure.status()), status) << failure.what();
  }
}

}  // namespace
}  // namespace kwtsdk::tool
