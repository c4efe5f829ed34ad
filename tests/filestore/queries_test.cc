#include <gtest/gtest.h>

#include "tests/support/facade_operations.h"

namespace kwtsdk::testing {
namespace {

Bytes hex(const char* text) { return internal::toData(text); }

// Each operation's outcome when the reply is another's, without a connection, and while a command is pending.
TEST(Operations, WhatEachFailureReports) {
  const std::string lost = "1001 蓝牙断开连接", busy = "1002 已有操作在进行中", none = "1005 文件ID获取失败";
  const auto no = [](const std::string& error) { return error + " none"; };
  const std::pair<std::string, Lines> cases[]{
      {"ok",
       {"ok 0", "ok ", "ok none", no(none), "ok none", no(none), none + " ", "ok 0102030405060708", "ok none",
        "ok "}},
      {lost,
       {"ok 0", "ok ", no(lost), no(none), no(lost), no(none), none + " ", no(lost), no(lost), lost + " "}},
      {busy,
       {busy + " 0", no(busy), no(busy), no(busy), no(busy), no(busy), busy + " ", no(busy), no(busy),
        busy + " "}}};
  playEach<VirtualHost>(cases, [&](auto& host, auto& state, auto& expected) {
    KWTBluetoothHelper& helper = *host.helper;
    host.setReplies([](const auto&, const auto&) { return hex("0102030405060708"); });
    if (state == lost) host.link->disconnect();
    Lines outcomes;
    const AnyCompletion note{[&](const MaybeError& error, const std::string& value) {
      outcomes.push_back(shown(error) + " " + value);
    }};
    for (std::size_t i = 0; i < expected.size(); ++i) {
      if (state == busy) helper.setCompletionBlock([](const MaybeError&, const auto&) {});
      completionForms().at(i).begin(helper, note, "/nowhere", 1);
      host.scheduler.sleep(100ms);
    }
    EXPECT_EQ(outcomes, expected);
    EXPECT_EQ(host.requests.empty(), state != "ok");
  });
}

TEST(Deletion, TheRecordersResultIsTheErrorsCode) {
  const std::pair<const char*, const char*> cases[]{
      {"048208000000000007000000", "ok 0,7"},
      {"048208000100000007000000", "1 删除失败，ID非系统第一个文件 1,7"},
      {"048208000200000007000000", "2 删除失败，文件ID不存在 2,7"},
      {"048208000300000007000000", "3 删除失败，文件正在使用中 3,7"},
      {"048208000400000007000000", "4 删除失败，文件系统为空 4,7"},
      {"048208000700000007000000", "7 error! 7,7"},
      {"0482080004000000", "4 删除失败，文件系统为空 4,0"}};
  playEach<VirtualHost>(cases, [](auto& host, auto reply, auto outcome) {
    host.setReplies([&](const auto&, const auto&) { return hex(reply); });
    host.helper->deleteFile(1, host.outcome.completion());
    EXPECT_EQ(host.outcome.ended() + " " + host.outcome.value, outcome);
  });
}

// One exchange and one pause a file; what does not answer is left out.
TEST(Listing, AsksForEachFile) {
  playEach<VirtualHost>(std::array{0U, 10U, 100U, 1000U, 4U}, [](auto& host, std::size_t count) {
    Lines types, expected;
    for (std::size_t i = 0; i < count; ++i) {
      host.store->add(Bytes{1}, {}, static_cast<std::uint8_t>(i));
      if (count != 4 || (i != 1 && i != 2)) expected.push_back(shown(i % 256));
    }
    host.setReplies([&](const std::string& request, Bytes reply) -> std::optional<Bytes> {
      if (count == 4 && request.starts_with("028204000b")) return std::nullopt;
      return count == 4 && request.starts_with("028204000c") ? Bytes{2} : reply;
    });
    std::optional<std::vector<KWTFileHeader>> headers;
    host.helper->getFlashFileList(host.outcome.completion(headers));
    ASSERT_EQ(host.outcome.ended(), "ok");
    for (const auto& header : *headers) types.push_back(shown(header.recordType()));
    EXPECT_EQ(types, expected);
    EXPECT_EQ(host.requests.size(), count + 2);
    EXPECT_EQ(host.scheduler.now(), (count == 4 ? 5s : 0s) + 3ms * static_cast<int>(count));
  });
}

}  // namespace
}  // namespace kwtsdk::testing
