#include <gtest/gtest.h>
#include <kwtsdk/sim/simulated_recorder.h>

#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::sim {
namespace {

using internal::hexString;
using internal::toData;
using namespace testing;

std::string zeros(std::size_t bytes) { return std::string(2 * bytes, '0'); }

struct Exchange {
  std::string request, reply, refusal;
  UpdateStep step{};
};

// An image of version 2.5.1.
const std::string image = "a0a1a2a3a4a502050163", version = "8f42455354000205019147136c",
                  oldVersion = "8f4245535400010203230e1acf", data = "85" + image,
                  check = "8242455354d7950e7c";
const std::vector<Exchange> update{
    {"9701", "9801", "9800", UpdateStep::prepare},
    {"9000", "9101", "9100", UpdateStep::partition},
    {"8c42455354" + zeros(28) + "00400000002000004c81f016", "8d424553540040000000200000", "none",
     UpdateStep::resume},
    {"80424553540a000000d7950e7c", "814245535401000000f300", "none", UpdateStep::begin},
    {"865800000002050100" + zeros(80) + "d1e8611d", "8701", "8700", UpdateStep::configuration},
    {data, "none", "none"},
    {check, "8301", "8300", UpdateStep::check},
    {"88", "8401", "8400", UpdateStep::bye},
    {"9242455354", "none", "none"},
};
constexpr std::size_t kBegin = 3, kConfiguration = 4, kData = 5, kCheck = 6, kBye = 7, kDone = 8;

struct Recorder {
  std::string say(const std::string& frame) {
    const auto reply = model->write(Channel::firmware, toData(frame));
    return reply ? hexString(*reply) : "none";
  }
  void take(std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; ++i) EXPECT_EQ(say(update[i].request), update[i].reply) << i;
  }
  bool updated() { return say("8e42455354") == version; }

  std::shared_ptr<RecorderModel> model = std::make_shared<RecorderModel>(std::make_shared<MemoryStore>());
};

TEST(FirmwareUpdate, InstallsTheImageOnceDoneIsSaid) {
  Recorder recorder;
  std::string seen;
  recorder.model->setFrameFilter([&](Channel, const Bytes& frame) {
    seen += hexString(frame).substr(0, 2);
    return seen != "97908c808685828892";  // the first done is lost
  });
  recorder.take(0, update.size());
  EXPECT_EQ(recorder.model->lastResume(), (ResumeVerification{16384, 8192}));
  EXPECT_EQ(recorder.model->installedImage(), std::nullopt);
  EXPECT_EQ(recorder.say("8e42455354"), oldVersion);
  for (int i = 0; i < 2; ++i) recorder.take(kDone, update.size());
  EXPECT_EQ(recorder.model->installedImage(), toData(image));
  EXPECT_TRUE(recorder.updated());
  EXPECT_EQ(seen, "97908c8086858288928e92928e");
}

TEST(FirmwareUpdate, RefusesStepsOutOfTurnOrAsItIsToldToAndGoesOn) {
  for (const std::size_t due : {0U, 1U, 2U, 3U, 4U, 5U, 8U}) {
    Recorder recorder;
    recorder.take(0, due);
    for (std::size_t i = 1; i < update.size(); ++i) {
      if (i == due) continue;
      EXPECT_EQ(recorder.say(update[i].request), update[i].refusal) << i << " for " << due;
    }
    recorder.take(due, update.size());
    EXPECT_TRUE(recorder.updated()) << due;
  }
  for (std::size_t i = 0; i < 2 * kDone; ++i) {
    const auto& [request, reply, refusal, step] = update[i / 2];
    const bool silent = i % 2 == 1;
    if (i / 2 == kData) continue;
    Recorder recorder;
    recorder.model->setUpdateTroubles({{step, silent}});
    recorder.take(0, i / 2);
    EXPECT_EQ(recorder.say(request), silent ? "none" : refusal) << request;
    recorder.say("9242455354");
    EXPECT_FALSE(recorder.updated()) << request;
    recorder.model->setUpdateTroubles({});
    recorder.take(0, update.size());
    EXPECT_TRUE(recorder.updated()) << request;
  }
}

TEST(FirmwareUpdate, DiscardsASegmentWhoseCheckIsWrongOrRefused) {
  Recorder recorder;
  recorder.model->setUpdateTroubles({{UpdateStep::check, false, 3}});
  const std::string head = "82424553547a68b1be", tail = "82424553545a1a2a34";
  const std::pair<std::string, std::string> exchanges[]{
      {"85a0a1a2a3a4a5fd", "none"}, {head, "8300"},                        // the last byte came inverted
      {"85a0a1a2a3", "none"},       {"85a4a502", "none"}, {head, "8301"},  // in two packets
      {"85050163", "none"},         {tail, "8300"},       {"88", "8400"},  // by script
      {"85050163", "none"},         {"8500", "none"},     {tail, "8301"},  // more than was announced
  };
  for (int i = 0; i < 2; ++i) {
    recorder.take(0, kData);
    for (const auto& [request, reply] : exchanges) EXPECT_EQ(recorder.say(request), reply) << request;
    recorder.take(kBye, update.size());
    EXPECT_TRUE(recorder.updated());
  }
}

TEST(FirmwareUpdate, ASegmentTakesNoMoreThan8192Bytes) {
  Recorder recorder;
  recorder.take(0, kBegin);
  recorder.say("804245535400300000" + zeros(4));
  recorder.take(kConfiguration, kData);
  recorder.say("85" + zeros(8192));
  recorder.say("8500");
  EXPECT_EQ(recorder.say("82424553549499f4d8"), "8301");
  recorder.say("85" + zeros(4097));
  EXPECT_EQ(recorder.say("8242455354" + zeros(4)), "8300") << "nothing came that had room";
}

TEST(FirmwareUpdate, StartsAgainWithPrepareAndAfterALostLink) {
  for (const bool lost : {false, true}) {
    Recorder recorder;
    recorder.take(0, kCheck);
    if (lost) {
      recorder.model->linkLost();
      EXPECT_EQ(recorder.say(check) + recorder.say("88"), "83008400");
    }
    recorder.take(0, kBye);
    EXPECT_EQ(recorder.say(lost ? "9700" : "9702"), "9800") << "malformed: changes nothing";
    recorder.take(kBye, update.size());
    EXPECT_TRUE(recorder.updated());
  }
}

TEST(FirmwareUpdate, RefusesWhatDoesNotFit) {
  const std::tuple<std::size_t, std::string, std::string, bool> cases[]{
      {1, "9001", "9100", false},
      {2, update[2].request.substr(0, 88) + "17", "none", false},  // CRC
      {kBegin, "804245535403000000d7950e7c", "none", false},       // too small an image
      {kBegin, "804245535401000004d7950e7c", "none", false},       // too large
      {kConfiguration, "865800000002050100" + zeros(80) + "d1e8611c", "8700", false},
      {kBegin, "80424553540a0000008b1010dd", "814245535401000000f300", true},         // another image's CRC
      {kConfiguration, "865800000002050163" + zeros(80) + "3b5aa40f", "8701", true},  // not the identity
  };
  for (const auto& [at, request, reply, atBye] : cases) {
    Recorder recorder;
    recorder.take(0, at);
    EXPECT_EQ(recorder.say(request), reply);
    recorder.take(atBye ? at + 1 : at, kBye);
    EXPECT_EQ(recorder.say("88"), atBye ? "8400" : "8401") << request;
    recorder.say("9242455354");
    EXPECT_EQ(recorder.updated(), !atBye) << request;
  }
}

TEST(FirmwareUpdate, LeavesItsImageInTheFolder) {
  const TemporaryFolder folder;
  const auto scheduler = VirtualTimeScheduler::create(1);
  const auto open = [&] { return Recorder{openSimulatedRecorder(scheduler, folder.path()).model}; };
  const auto file = folder.file("device/firmware.bin");
  std::filesystem::create_directory(folder.file("device"));
  for (const auto& [script, mtu] :
       {std::pair{"mtu 185\nupdate silent resume", "b500"}, {"update mtu 1", "0100"}}) {
    writeFile(folder.file("device/script"), script);
    Recorder recorder = open();
    recorder.take(0, 2);
    EXPECT_EQ(recorder.say(update[2].request), mtu[0] == 'b' ? "none" : update[2].reply);
    recorder.model->setUpdateTroubles({});
    recorder.take(0, kBegin);
    EXPECT_EQ(recorder.say(update[kBegin].request), std::string("814245535401000000") + mtu);
  }
  std::filesystem::create_directories(file + ".new/x");  // so that no image can be written
  std::filesystem::remove(folder.file("device/script"));
  Recorder recorder = open();
  recorder.take(0, update.size());
  EXPECT_FALSE(recorder.updated());
  std::filesystem::remove_all(file + ".new");
  recorder.take(0, update.size());
  EXPECT_TRUE(recorder.updated() && open().updated());
  EXPECT_EQ(open().model->installedImage(), toData(image));

  writeFile(file, "abc");
  EXPECT_THROW(open(), std::runtime_error);
  EXPECT_THROW(recorder.model->setFirmware({1, 2, 3}), std::invalid_argument);
}

}  // namespace
}  // namespace kwtsdk::sim
