#include <gtest/gtest.h>

#include "tests/support/sim_host.h"

namespace kwtsdk {
namespace {

using namespace std::chrono_literals;
using sim::VirtualTimeScheduler;
using testing::onVirtualTime;
using testing::Outcome;
using testing::recordingOf;
using testing::SimHost;
using Lines = std::vector<std::string>;

std::optional<Bytes> hex(const char* text) { return internal::toData(text); }

TEST(FileQueries, FramesOnTheWire) {
  testing::FakeHost host;
  const auto sent = [&](auto operation) {
    host.peripheral->calls.clear();
    operation();
    host.acknowledge(host.fileWrite);
    host.notify(host.fileNotify, "00");
    EXPECT_EQ(host.peripheral->calls.front(), "on 9E07");
    EXPECT_EQ(host.peripheral->calls.back(), "off 9E07");
    EXPECT_FALSE(host.helper->completionBlock());
    return host.peripheral->calls.at(1);
  };
  EXPECT_EQ(sent([&] { host.helper->getFileNumAndFirstId(nullptr); }), "write 0182010000");
  EXPECT_EQ(sent([&] { host.helper->getFileInfo(10, nullptr); }), "write 028204000a000000d103ee45");
  EXPECT_EQ(sent([&] { host.helper->getFileInfo((1LL << 32) + 10, nullptr); }),
            "write 028204000a000000d103ee45");
  EXPECT_EQ(sent([&] { host.helper->deleteFile(10, nullptr); }), "write 048204000a000000d103ee45");
  EXPECT_EQ(sent([&] { host.helper->notifyDownloadSuccess(nullptr); }), "write 1382020000");
}

struct Failure {
  const char* what;
  const char* reply;  // null: nothing changed
  bool connected;
  Lines outcomes;  // count, info, notice, deletion
};

TEST(FileQueries, WhatEachFailureReports) {
  const std::vector<Failure> failures{
      {"another reply",
       "0102030405060708",
       true,
       {"1005 文件ID获取失败 none", "ok none", "ok 0102030405060708", "ok none"}},
      {"no connection",
       nullptr,
       false,
       {"1005 文件ID获取失败 none", "1001 蓝牙断开连接 none", "1001 蓝牙断开连接 none",
        "1001 蓝牙断开连接 none"}},
  };
  for (const auto& failure : failures) {
    onVirtualTime([&](SimHost& host, VirtualTimeScheduler& scheduler) {
      if (failure.reply != nullptr)
        host.setReplies([&](const auto&, const auto&) { return hex(failure.reply); });
      if (!failure.connected) host.link->disconnect();
      Lines outcomes;
      const auto finish = [&](Outcome& outcome, const auto& value) {
        ASSERT_TRUE(outcome.wait()) << failure.what;
        std::string text = value ? "some" : "none";
        if constexpr (std::is_same_v<decltype(value), const std::optional<std::string>&>)
          text = value.value_or(text);
        outcomes.push_back(outcome.text() + " " + text);
        scheduler.sleep(3ms);
      };
      std::optional<FlashInfo> info;
      std::optional<KWTFileHeader> header;
      std::optional<std::string> reply;
      std::optional<ByteCounts> result;
      Outcome count(scheduler), infoOf(scheduler), notice(scheduler), deletion(scheduler);
      host.helper->getFileNumAndFirstId(count.completion(info));
      finish(count, info);
      host.helper->getFileInfo(1, infoOf.completion(header));
      finish(infoOf, header);
      host.helper->notifyDownloadSuccess(notice.completion(reply));
      finish(notice, reply);
      host.helper->deleteFile(1, deletion.completion(result));
      finish(deletion, result);
      EXPECT_EQ(outcomes, failure.outcomes) << failure.what;
    });
  }
}

TEST(FileQueries, EveryOperationIsRefusedWhileACommandIsPending) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler&) {
    host.helper->setCompletionBlock([](const MaybeError&, const auto&) {});
    int refused = 0;
    const auto check = [&](const MaybeError& error, const auto&...) {
      refused +=
          error && error->code() == 1002 && error->localizedDescription() == "已有操作在进行中" ? 1 : 0;
    };
    host.helper->getFileNumAndFirstId(check);
    host.helper->getFileInfo(1, check);
    host.helper->getFlashFileList(check);
    host.helper->notifyDownloadSuccess(check);
    host.helper->deleteFile(1, check);
    host.helper->deleteFirstFlashFile(check);
    host.helper->downloadFirstFlashFile("/nowhere", nullptr, check);
    EXPECT_EQ(refused, 7);
    EXPECT_TRUE(host.requests.empty());
  });
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
    onVirtualTime([&](SimHost& host, VirtualTimeScheduler& scheduler) {
      host.setReplies([&](const auto&, const auto&) { return hex(test.first); });
      Outcome outcome(scheduler);
      std::optional<ByteCounts> result;
      host.helper->deleteFile(1, outcome.completion(result));
      ASSERT_TRUE(outcome.wait());
      EXPECT_EQ(outcome.text() + " " + std::to_string(result->at(0)) + "," + std::to_string(result->at(1)),
                test.second);
    });
  }
}

TEST(Deletion, OfTheFirstFileAsksForIdZeroWhenTheCountFails) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler& scheduler) {
    host.store->add(recordingOf(100));
    Outcome refused(scheduler), done(scheduler), empty(scheduler);
    host.setReplies([](const std::string& request, Bytes reply) {
      return request.starts_with("01") ? Bytes{0xFF} : reply;
    });
    host.helper->deleteFirstFlashFile(refused.completion());
    ASSERT_TRUE(refused.wait());
    EXPECT_EQ(refused.text(), "2 删除失败，文件ID不存在");
    host.setReplies([](const auto&, Bytes reply) { return reply; });
    scheduler.sleep(3ms);
    host.helper->deleteFirstFlashFile(done.completion());
    ASSERT_TRUE(done.wait());
    EXPECT_EQ(done.text(), "ok");
    EXPECT_EQ(host.store->count(), 0U);
    scheduler.sleep(3ms);
    host.helper->deleteFirstFlashFile(empty.completion());
    ASSERT_TRUE(empty.wait());
    EXPECT_EQ(empty.text(), "4 删除失败，文件系统为空");
    EXPECT_EQ(host.requests.at(1).substr(0, 16), "0482040000000000");
  });
}

TEST(Listing, CostsOneExchangeAndOnePauseAFile) {
  for (const std::size_t count : {0U, 10U, 100U, 1000U}) {
    onVirtualTime([count](SimHost& host, VirtualTimeScheduler& scheduler) {
      for (std::size_t i = 0; i < count; ++i) host.store->add(Bytes{1}, {}, static_cast<std::uint8_t>(i));
      Outcome outcome(scheduler);
      std::optional<std::vector<KWTFileHeader>> headers;
      host.helper->getFlashFileList(outcome.completion(headers));
      ASSERT_TRUE(outcome.wait());
      ASSERT_EQ(outcome.text(), "ok");
      ASSERT_EQ(headers->size(), count);
      EXPECT_EQ(host.requests.size(), count + 2);
      EXPECT_EQ(scheduler.now(), 3ms * static_cast<int>(count));
      for (std::size_t i = 0; i < count; ++i)
        ASSERT_EQ((*headers)[i].recordType(), static_cast<std::uint8_t>(i));
    });
  }
}

TEST(Listing, LeavesOutWhatDoesNotAnswer) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler& scheduler) {
    for (int i = 0; i < 4; ++i) host.store->add(Bytes{1}, {}, static_cast<std::uint8_t>(i));
    Outcome outcome(scheduler), failed(scheduler);
    std::optional<std::vector<KWTFileHeader>> headers;
    host.setReplies([](const std::string& request, Bytes reply) -> std::optional<Bytes> {
      if (request.starts_with("028204000b")) return std::nullopt;
      return request.starts_with("028204000c") ? Bytes{2} : reply;
    });
    host.helper->getFlashFileList(outcome.completion(headers));
    ASSERT_TRUE(outcome.wait());
    ASSERT_EQ(headers->size(), 2U);
    EXPECT_EQ(headers->at(0).recordType() * 10 + headers->at(1).recordType(), 3);
    host.link->disconnect();
    host.helper->getFlashFileList(failed.completion(headers));
    ASSERT_TRUE(failed.wait());
    EXPECT_EQ(failed.text(), "1005 文件ID获取失败");
    EXPECT_FALSE(headers);
  });
}

}  // namespace
}  // namespace kwtsdk
