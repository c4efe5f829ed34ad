#include <gtest/gtest.h>
#include <kwtsdk/sim/folder_store.h>
#include <kwtsdk/sim/seeded_faults.h>
#include <kwtsdk/sim/simulated_recorder.h>

#include <sys/stat.h>

#include <algorithm>
#include <sstream>

#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/thrown_by.h"

namespace kwtsdk::sim {
namespace {

using namespace testing;

TEST(DeviceScript, ReadsTimingFaultsAndTheRecordersPart) {
  const auto script = parseDeviceScript(
      "# a slow link\n latency 5ms\ninterval 7.5ms # as phones ask for\npackets 3\r\nmtu 185\n\n"
      "notification 2 delay 250us\nnotification 3 corrupt 12\nwrite 1 refuse\nnotification 2 drop\n"
      "key 3s\ncall\ncall 1500ms\nupdate mtu 0");
  EXPECT_TRUE(script.timing.latency == 5ms && script.timing.connectionInterval == 7500us);
  EXPECT_TRUE(script.timing.packetsPerInterval == 3 && script.timing.mtu == 185 && script.updateMtu == 0);
  EXPECT_TRUE(script.keyAfter == 3s && script.callAfter == 1500ms && script.inCall);
  EXPECT_FALSE(parseDeviceScript("call 2s").inCall);
  const auto next = [&script](LinkEvent event) { return script.faults->next(event).fault; };
  EXPECT_TRUE(next(LinkEvent::notification) == Fault::none && next(LinkEvent::write) == Fault::refuse);
  EXPECT_EQ(next(LinkEvent::notification), Fault::drop) << "the later line for the same event counts";
  const FaultAction third = script.faults->next(LinkEvent::notification);
  EXPECT_TRUE(third.fault == Fault::corrupt && third.position == 12 && next(LinkEvent::write) == Fault::none);
}

TEST(SimulatedRecorder, NamesWhatItCannotReadInTheFolder) {
  std::istringstream cases(R"(notifcation 1 drop:"notifcation" is unknown
notification 0 drop:"0" is not a whole number
notification 1 delay 5:"5" is not a duration
notification 1 refuse:refuse does not apply to a notification
latency -1ms:"-1ms" is not a duration
interval 3601s:"3601s" is not a duration
key:write it as "key DURATION"
call me later:write it as "call [DURATION]"
update refuse:write it as "update refuse|silent STEP or update mtu NUMBER"
update refuse done:"done" is no step; use prepare
update refuse begin:begin has no refusal
update silent bye 2:write it as "update silent bye"
update refuse check 0:"0" is not a whole number
update mtu 65536:"65536" is not a whole number
update delay bye:write it as "update refuse|silent
mtu 22:"22" is not a whole number from 23 to 517)");
  const TemporaryFolder folder;
  std::filesystem::create_directory(folder.file("device"));
  const auto expect = [&folder](const std::string& name, const std::string& text, const std::string& reason) {
    const std::string path = folder.file("device/" + name);
    writeFile(path, text);
    const auto open = [&] { openSimulatedRecorder(VirtualTimeScheduler::create(1), folder.path()); };
    EXPECT_EQ(thrownBy(open).substr(0, path.size() + reason.size()), path + reason);
    std::filesystem::remove(path);
  };
  for (std::string line, reason; std::getline(std::getline(cases, line, ':'), reason);) {
    expect("script", "mtu 100\n# comment\n" + line, ", line 3, \"" + line + "\": " + reason);
  }
  for (const char* id : {"", "0", "-1", "7 8", "4294967295"})
    expect("first-id", id, " holds no recording id");
  expect("firmware.bin", "abc", " holds no firmware image");
  for (const char* name : {"script", "first-id", "firmware.bin"}) {
    ASSERT_EQ(::mkfifo(folder.file("device/" + std::string(name)).c_str(), 0600), 0);  // nothing waits for it
    EXPECT_NE(thrownBy([&] { openSimulatedRecorder(VirtualTimeScheduler::create(1), folder.path()); }), "");
    std::filesystem::remove(folder.file("device/" + std::string(name)));
  }
}

TEST(SeededFaults, FollowSeedAndRates) {
  const auto faults = [](std::uint64_t seed) {
    SeededFaults plan(seed, {.drop = 0.1, .delay = 0.1, .corrupt = 0.1, .refuse = 0.1, .longestDelay = 3ms});
    std::vector<std::tuple<Fault, Duration, std::size_t>> actions;
    while (actions.size() < 10000) {
      const auto [fault, delay, position] = plan.next(LinkEvent::write);
      actions.emplace_back(fault, delay, position);
      EXPECT_LE(delay, 3ms);
    }
    return actions;
  };
  const auto first = faults(1), other = faults(2);
  EXPECT_TRUE(first == faults(1) && first != other);
  EXPECT_FALSE(std::equal(first.begin() + 1, first.end(), other.begin())) << "a seed is no shift of another";
  for (const Fault fault : {Fault::drop, Fault::delay, Fault::corrupt, Fault::refuse}) {
    const auto is = [fault](const auto& action) { return std::get<0>(action) == fault; };
    EXPECT_NEAR(static_cast<double>(std::ranges::count_if(first, is)), 1000, 150);
  }
}

std::string opus(const std::string& audio, char segments = 1) {
  return "OggS" + std::string(22, '\0') + segments + std::string(static_cast<std::size_t>(segments), 'x') +
         "OpusHead" + audio;
}

std::string read(const RecordingStore& store, std::size_t index, std::uint64_t offset, std::size_t length) {
  Bytes bytes(length, 0xAA);
  store.read(index, offset, bytes);
  return {bytes.begin(), bytes.end()};
}

TEST(MemoryStore, PadsWithZerosAndRefusesWhatNoRecorderHolds) {
  MemoryStore store(0x7FFFFFFF);
  store.add(Bytes(32768, 1));
  store.add(Bytes(32769, 2));
  EXPECT_EQ(read(store, 1, 1U << 31, 2), std::string(2, '\0'));
  EXPECT_TRUE(store.deleteFirst());
  EXPECT_EQ(store.firstId(), 1U) << "after the greatest id";
  EXPECT_TRUE(store.deleteFirst() && !store.deleteFirst());
  for (std::size_t i = 0; i < RecordingStore::kMaximumCount; ++i) store.add({});
  EXPECT_THROW(store.add({}), std::length_error);
}

TEST(FolderStore, HoldsTheOpusFilesInNameOrderAndTouchesNothingElse) {
  const TemporaryFolder folder;
  const std::pair<const char*, std::string> others[]{
      {"fake.opus", "OpusHead"},
      {"vorbis.ogg", "OggS" + std::string(22, '\0') + "\1x\1vorbis"},
      {"cut.opus", "OggS" + std::string(22, '\0') + "\xFF"},
      {".hidden.opus", opus("x")}};
  for (const auto& [name, content] : others) writeFile(folder.file(name), content);
  std::filesystem::create_directory(folder.file("deep"));
  writeFile(folder.file("deep/in.opus"), opus("x"));
  std::filesystem::create_symlink(folder.file("deep/in.opus"), folder.file("link.opus"));
  ASSERT_EQ(::mkfifo(folder.file("pipe.opus").c_str(), 0600), 0);
  writeFile(folder.file("b.opus"), opus("second"));
  writeFile(folder.file("a.anything"), opus(std::string(40000, 'a'), 2));

  const auto store = FolderStore::open(folder.path());
  ASSERT_EQ(store->count(), 2U);
  EXPECT_EQ(store->info(0).blocks, 2);
  EXPECT_EQ(read(*store, 0, 40036, 3), std::string("a\0\0", 3));
  EXPECT_EQ(read(*store, 1, 28, 16), "OpusHeadsecond" + std::string(2, '\0'));
  while (store->deleteFirst()) continue;
  EXPECT_EQ(store->count(), 0U);
  for (const auto& [name, content] : others) EXPECT_EQ(contentOf(folder.file(name)), content) << name;
}

// Zeros in its place would be taken for the recording.
TEST(FolderStore, WhatCannotBeReadIsListedNeitherSentNorDeleted) {
  const TemporaryFolder folder;
  const auto spoil = [&](const std::string& how) {
    if (how == "gone" || how == "pipe") std::filesystem::remove(folder.file("a.opus"));
    if (how == "pipe") ::mkfifo(folder.file("a.opus").c_str(), 0600);
    if (how == "cut") std::filesystem::resize_file(folder.file("a.opus"), 20);
  };
  for (const std::string how : {"gone", "pipe", "cut"}) {
    SCOPED_TRACE(how);
    std::filesystem::remove(folder.file("a.opus"));
    writeFile(folder.file("a.opus"), opus(std::string(40000, 'a')));
    const auto store = FolderStore::open(folder.path());
    RecorderModel model(store);
    spoil(how);
    model.write(Channel::recorder, internal::toData("03820c00000000000100000000000000d5ddb8b7"));
    while (model.nextPacket()) ADD_FAILURE() << "sent something";
    EXPECT_THROW(read(*store, 0, 0, 2), std::runtime_error);
    EXPECT_TRUE(how != "gone" || !store->deleteFirst());
    EXPECT_EQ(store->count(), 1U);
  }
}

TEST(FolderStore, IsOneProgramsAtATime) {
  const TemporaryFolder folder;
  auto store = FolderStore::open(folder.path());
  const std::string reason = thrownBy([&] { FolderStore::open(folder.path()); });
  EXPECT_NE(reason.find("is in use by kwtsdk_tests, process " + std::to_string(::getpid())),
            std::string::npos)
      << reason;
  store.reset();
  EXPECT_EQ(FolderStore::open(folder.path())->count(), 0U);
}

}  // namespace
}  // namespace kwtsdk::sim
