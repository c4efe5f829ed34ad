#include <gtest/gtest.h>

#include "tests/support/sim_host.h"

namespace kwtsdk {
namespace {

using namespace std::chrono_literals;
using namespace testing;

std::optional<Bytes> hex(const char* text) { return internal::toData(text); }

// Each operation's outcome, with "none" where there is no value: when the reply is another's, without a
// connection, and while a command is pending.
TEST(FileQueries, WhatEachFailureReports) {
  const std::string lost = "1001 蓝牙断开连接 none", busy = "1002 已有操作在进行中 none",
                    none = "1005 文件ID获取失败 none";
  const Lines cases[]{{none, "0 none", "0 value", "0 none", none, "0 none", none},
                      {none, lost, lost, lost, none, lost, none},
                      {busy, busy, busy, busy, busy, busy, busy}};
  for (const Lines& expected : cases) {
    onVirtualTime([&](SimHost& host, VirtualTimeScheduler& scheduler) {
      KWTBluetoothHelper& helper = *host.helper;
      host.setReplies([](const auto&, const auto&) { return hex("0102030405060708"); });
      if (expected[1] == lost) host.link->disconnect();
      Lines outcomes;
      const auto note = [&](const MaybeError& error, const auto&... value) {
        outcomes.push_back(std::to_string(error ? error->code() : 0));
        if (error) outcomes.back().append(" ").append(error->localizedDescription());
        outcomes.back().append((value || ...) ? " value" : " none");
      };
      const std::function<void()> operations[]{
          [&] { helper.getFileNumAndFirstId(note); },
          [&] { helper.getFileInfo(1, note); },
          [&] { helper.notifyDownloadSuccess(note); },
          [&] { helper.deleteFile(1, note); },
          [&] { helper.getFlashFileList(note); },
          [&] { helper.deleteFirstFlashFile(note); },
          [&] { helper.downloadFirstFlashFile("/nowhere", nullptr, note); }};
      for (const auto& operation : operations) {
        if (expected[0] == busy) helper.setCompletionBlock([](const MaybeError&, const auto&) {});
        operation();
        scheduler.sleep(100ms);
      }
      EXPECT_EQ(outcomes, expected);
      EXPECT_EQ(host.requests.empty(), expected[1] != "0 none");
    });
  }
}

TEST(Deletion, TheRecordersResultIsTheErrorsCode) {
  const std::vector<std::pair<const char*, std::string>> cases{
      {"048208000000000007000000", "ok 0,7"},
      {"048208000100000007000000", "1 删除失败，ID非系统第一个文件 1,7"},
      {"048208000200000007000000", "2 删除失败，文件ID不存在 2,7"},
      {"048208000300000007000000", "3 删除失败，文件正在使用中 3,7"},
      {"048208000400000007000000", "4 删除失败，文件系统为空 4,7"},
      {"048208000700000007000000", "7 error! 7,7"},
      {"0482080004000000", "4 删除失败，文件系统为空 4,0"},
  };
  for (const auto& test : cases) {
    onVirtualTime([&](SimHost& host, auto&) {
      host.setReplies([&](const auto&, const auto&) { return hex(test.first); });
      std::optional<ByteCounts> result;
      host.helper->deleteFile(1, host.outcome.completion(result));
      const std::string outcome = host.outcome.ended();
      EXPECT_EQ(outcome + " " + std::to_string(result->at(0)) + "," + std::to_string(result->at(1)),
                test.second);
    });
  }
}

TEST(Deletion, OfTheFirstFileAsksForIdZeroWhenTheCountFails) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler& scheduler) {
    host.store->add(recordingOf(100));
    const auto deleteFirst = [&] {
      host.helper->deleteFirstFlashFile(host.outcome.completion());
      const std::string outcome = host.outcome.ended();
      scheduler.sleep(3ms);
      return outcome;
    };
    host.setReplies([](const std::string& request, Bytes reply) {
      return request.starts_with("01") ? Bytes{0xFF} : reply;
    });
    EXPECT_EQ(deleteFirst(), "2 删除失败，文件ID不存在");
    host.setReplies([](const auto&, Bytes reply) { return reply; });
    EXPECT_EQ(deleteFirst(), "ok");
    EXPECT_EQ(host.store->count(), 0U);
    EXPECT_EQ(deleteFirst(), "4 删除失败，文件系统为空");
    EXPECT_EQ(host.requests.at(1).substr(0, 16), "0482040000000000");
  });
}

TEST(Listing, CostsOneExchangeAndOnePauseAFile) {
  for (const std::size_t count : {0U, 10U, 100U, 1000U}) {
    onVirtualTime([count](SimHost& host, VirtualTimeScheduler& scheduler) {
      for (std::size_t i = 0; i < count; ++i) host.store->add(Bytes{1}, {}, static_cast<std::uint8_t>(i));
      std::optional<std::vector<KWTFileHeader>> headers;
      host.helper->getFlashFileList(host.outcome.completion(headers));
      ASSERT_EQ(host.outcome.ended(), "ok");
      ASSERT_EQ(headers->size(), count);
      EXPECT_EQ(host.requests.size(), count + 2);
      EXPECT_EQ(scheduler.now(), 3ms * static_cast<int>(count));
      for (std::size_t i = 0; i < count; ++i)
        ASSERT_EQ((*headers)[i].recordType(), static_cast<std::uint8_t>(i));
    });
  }
}

TEST(Listing, LeavesOutWhatDoesNotAnswer) {
  onVirtualTime([](SimHost& host, auto&) {
    for (int i = 0; i < 4; ++i) host.store->add(Bytes{1}, {}, static_cast<std::uint8_t>(i));
    std::optional<std::vector<KWTFileHeader>> headers;
    host.setReplies([](const std::string& request, Bytes reply) -> std::optional<Bytes> {
      if (request.starts_with("028204000b")) return std::nullopt;
      return request.starts_with("028204000c") ? Bytes{2} : reply;
    });
    host.helper->getFlashFileList(host.outcome.completion(headers));
    ASSERT_EQ(host.outcome.ended(), "ok");
    ASSERT_EQ(headers->size(), 2U);
    EXPECT_EQ(headers->at(0).recordType() * 10 + headers->at(1).recordType(), 3);
  });
}

}  // namespace
}  // namespace kwtsdk
