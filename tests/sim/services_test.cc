#include <gtest/gtest.h>
#include <kwtsdk/sim/simulated_recorder.h>

#include <sstream>

#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::sim {
namespace {

using internal::hexString;
using internal::toData;
using namespace testing;

/// Does what the words say and gives what the recorder sent meanwhile, in words again.
std::string sent(RecorderModel& model, const std::string& steps) {
  const std::map<std::string, std::string> frames{{"start0", "0181010000"}, {"start1", "0281010000"},
                                                  {"start2", "0381010000"}, {"start3", "0481010000"},
                                                  {"toggle", "0081010000"}, {"count", "0182010000"},
                                                  {"broken", "0181010001"}, {"unknown", "0581010000"}};
  const std::map<std::string, std::string> packets{
      {"1280040000005400", "started0"},  {"1280040000015400", "started1"}, {"1280040000025400", "started2"},
      {"1280040000035400", "started3"},  {"1280040000045400", "started4"}, {"1280040000105400", "inCall"},
      {"1280040000115400", "notInCall"}, {"0080010000", "stopped"},        {"0801000100", "endByHost"},
      {"0801001100", "endByKey"},        {"0801002100", "endByCall"},      {"50010300b8fffe", "sound"}};
  std::istringstream words(steps);
  for (std::string word; words >> word;) {
    if (const auto frame = frames.find(word); frame != frames.end()) {
      model.write(Channel::recorder, toData(frame->second));
    } else if (word == "key" || word == "lost") {
      word == "key" ? model.pressKey() : model.linkLost();
    } else if (word == "call" || word == "hangUp") {
      model.setInCall(word == "call");
    } else if (word.starts_with("keyAfter")) {
      model.setKeyAfter(1ms * std::stoi(word.substr(8)));
    } else if (word.starts_with("callAfter")) {
      model.setCallAfter(1ms * std::stoi(word.substr(9)));
    } else {
      for (int i = std::stoi(word) / 20; i > 0; --i) model.recordPacket();
    }
  }
  std::string all;
  while (const auto packet = model.nextPacket()) {
    const std::string hex = hexString(packet->value);
    const auto known = packets.find(hex);
    all.append(" ").append(known == packets.end() ? hex : known->second);
  }
  return all;
}

TEST(RecordingService, AnswersByItsState) {
  std::istringstream cases(
      R"(20:;start0 40 toggle 20: started0 sound sound stopped endByHost;start1 start3 20: started1 started3 sound;
toggle 20 toggle toggle: started4 sound stopped endByHost started4;broken unknown 20 count:;
start2 start0 start2 20: notInCall started0 notInCall sound;key toggle: started4;
call start0 toggle start2 call 20 hangUp 20 toggle: inCall inCall started2 sound sound stopped endByHost;
start0 20 key key 20 toggle toggle: started0 sound endByKey stopped started4;
start0 call toggle toggle: started0 endByCall stopped inCall;start0 20 lost 20 toggle: started4;start0 key lost toggle: started4;
start0 key start1 20 toggle: started0 endByKey started1 sound stopped endByHost;
keyAfter30 start0 100 start1 100: started0 sound sound endByKey started1 sound sound endByKey;
keyAfter0 start0 toggle: started0 endByKey stopped;start0 key count toggle toggle: started0 endByKey stopped started4;
callAfter20 start0 100 start0 start2 20: started0 sound endByCall inCall started2 sound)");
  for (std::string steps, expected; std::getline(std::getline(cases, steps, ':'), expected, ';');) {
    RecorderModel model(std::make_shared<MemoryStore>());
    EXPECT_EQ(sent(model, steps), expected) << steps;
  }
}

struct Exchange {
  std::string request, reply, refusal;
};

// An image of version 2.5.1. In frames "(28)" stands for that many zeros.
const std::string image = "a0a1a2a3a4a502050163", version = "8f42455354000205019147136c";
const std::vector<Exchange> update{
    {"9701", "9801", "9800"},
    {"9000", "9101", "9100"},
    {"8c42455354(28)00400000002000004c81f016", "8d424553540040000000200000", ""},
    {"80424553540a000000d7950e7c", "814245535401000000f300", ""},
    {"865800000002050100(80)d1e8611d", "8701", "8700"},
    {"85" + image, "", ""},
    {"8242455354d7950e7c", "8301", "8300"},
    {"88", "8401", "8400"},
    {"9242455354", "", ""},
};

struct UpdatedRecorder {
  std::string say(std::string frame) {
    if (const auto at = frame.find('('); at != std::string::npos) {
      const auto end = frame.find(')');
      frame.replace(at, end + 1 - at, std::string(2 * std::stoul(frame.substr(at + 1)), '0'));
    }
    const auto reply = model->write(Channel::firmware, toData(frame));
    return reply ? hexString(*reply) : "";
  }
  void take(std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; ++i) EXPECT_EQ(say(update[i].request), update[i].reply) << i;
  }

  /// Takes "0-4", the numbers of regular exchanges, "frame:answer", and what happens besides.
  void play(const std::string& scenario) {
    std::istringstream words(scenario);
    for (std::string word; words >> word;) {
      if (const auto colon = word.find(':'); colon != std::string::npos) {
        EXPECT_EQ(say(word.substr(0, colon)), word.substr(colon + 1)) << scenario;
      } else if (word == "lost" || word == "third") {
        word == "lost" ? model->linkLost() : model->setUpdateTroubles({{UpdateStep::check, false, 3}});
      } else if (word == "updated" || word == "old") {
        EXPECT_EQ(say("8e42455354") == version, word == "updated") << scenario;
      } else {
        take(static_cast<std::size_t>(word.front() - '0'), static_cast<std::size_t>(word.back() - '0') + 1);
      }
    }
  }

  std::shared_ptr<RecorderModel> model = std::make_shared<RecorderModel>(std::make_shared<MemoryStore>());
};

TEST(FirmwareUpdate, InstallsTheImageOnceDoneIsSaid) {
  UpdatedRecorder recorder;
  std::string seen;
  recorder.model->setFrameFilter([&](Channel, const Bytes& frame) {
    seen += hexString(frame).substr(0, 2);
    return seen != "97908c808685828892";  // the first done is lost
  });
  recorder.play("0-8");
  EXPECT_EQ(recorder.model->lastResume(), (ResumeVerification{16384, 8192}));
  EXPECT_EQ(recorder.model->installedImage(), std::nullopt);
  recorder.play("8e42455354:8f4245535400010203230e1acf 8 8 updated");
  EXPECT_EQ(recorder.model->installedImage(), toData(image));
  EXPECT_EQ(seen, "97908c8086858288928e92928e");
}

TEST(FirmwareUpdate, RefusesStepsOutOfTurnAndGoesOn) {
  for (const std::size_t due : {0U, 1U, 2U, 3U, 4U, 5U, 8U}) {
    UpdatedRecorder recorder;
    recorder.take(0, due);
    for (std::size_t i = 1; i < update.size(); ++i) {
      EXPECT_TRUE(i == due || recorder.say(update[i].request) == update[i].refusal) << i << " for " << due;
    }
    recorder.play(std::to_string(due) + "-8 updated");
  }
}

TEST(FirmwareUpdate, TakesAnImageOnlyIfAllOfItIsRight) {
  // Segments: a byte inverted; in two packets; the third check refused; more than announced. Then what has no
  // room in a segment, losses of the link, frames that are malformed, sizes and CRCs that are wrong.
  std::istringstream scenarios(R"(
      third 0-4 85a0a1a2a3a4a5fd: 82424553547a68b1be:8300 85a0a1a2a3: 85a4a502: 82424553547a68b1be:8301
            85050163: 82424553545a1a2a34:8300 88:8400 85050163: 8500: 82424553545a1a2a34:8301 7-8 updated
            0-4 85a0a1a2a3a4a5fd: 82424553547a68b1be:8300 85a0a1a2a3a4a502: 82424553547a68b1be:8301
            85050163: 82424553545a1a2a34:8300 85050163: 82424553545a1a2a34:8301 7-8 updated;
      0-2 804245535400300000(4):814245535401000000f300 4 85(8192): 8500: 82424553549499f4d8:8301
            85(4097): 8242455354(4):8300;
      0-5 lost 8242455354d7950e7c:8300 88:8400 0-6 9700:9800 7-8 updated; 0-5 0-6 9702:9800 7-8 updated;
      0 9001:9100 1-8 updated; 0-1 8c42455354(28)00400000002000004c81f017: 2-8 updated;
      0-2 804245535403000000d7950e7c: 3-8 updated; 0-2 804245535401000004d7950e7c: 3-8 updated;
      0-3 865800000002050100(80)d1e8611c:8700 4-8 updated;
      0-2 80424553540a0000008b1010dd:814245535401000000f300 4-6 88:8400 8 old;
      0-3 865800000002050163(80)3b5aa40f:8701 5-6 88:8400 8 old)");
  for (std::string scenario; std::getline(scenarios, scenario, ';');) UpdatedRecorder().play(scenario);
}

TEST(FirmwareUpdate, LeavesItsImageInTheFolder) {
  const TemporaryFolder folder;
  const auto scheduler = VirtualTimeScheduler::create(1);
  const auto open = [&] { return UpdatedRecorder{openSimulatedRecorder(scheduler, folder.path()).model}; };
  const auto file = folder.file("device/firmware.bin"), script = folder.file("device/script");
  std::filesystem::create_directories(file + ".part/x");  // so that no segment can be written
  open().play("0-5 8242455354d7950e7c:8300 old");
  std::filesystem::remove_all(file + ".part");
  std::filesystem::create_directories(file + ".new/x");  // so that no image can be written
  writeFile(script, "mtu 185");
  open().play("0-2 80424553540a000000d7950e7c:814245535401000000b500");
  std::filesystem::remove(script);
  UpdatedRecorder recorder = open();
  recorder.play("0-8 old");
  std::filesystem::remove_all(file + ".new");
  recorder.play("0-8 updated");
  EXPECT_THROW(recorder.model->setFirmware({1, 2, 3}), std::invalid_argument);
  EXPECT_FALSE(std::filesystem::exists(file + ".part"));
  recorder.model.reset();
  EXPECT_EQ(open().model->installedImage(), toData(image));
}

}  // namespace
}  // namespace kwtsdk::sim
