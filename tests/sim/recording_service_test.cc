#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/sim_host.h"

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

}  // namespace
}  // namespace kwtsdk::sim
