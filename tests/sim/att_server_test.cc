#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "sim/air/att_session.h"
#include "sim/model/wire.h"
#include "tests/support/sim_host.h"

namespace kwtsdk::sim {
namespace {

using internal::hexString;
using internal::toData;
using Pdus = testing::Lines;

// Handles: 3 the device's name, 8 and 10 the recorder's channel, 11 its configuration, 14 and 20 where the
// other channels are written, 21 the last.
const std::map<std::string, std::string> names{{"subscribe", "120b000100"},
                                               {"count", "1208000182010000"},
                                               {"counted", "1b0a00018208000100000001000000"},
                                               {"download", "12080003820c0000000000010000000000000074e8e437"},
                                               {"mtu517", "020502"}};

/// A central's end of a session with a simulated recorder.
struct Central {
  explicit Central(const std::string& faults = "") {
    store->add(Bytes(200, 1));
    recorder.model = std::make_shared<RecorderModel>(store);
    const auto plan = ScriptedFaults::fromText(faults);
    recorder.link = SimulatedLink::create(scheduler, recorder.model, {.mtu = 517}, plan);
    recorder.link->disconnect();
    connect();
  }
  void connect() {
    session.reset();
    session.emplace(recorder, "Recorder",
                    AttSession::Transport{[this](const Bytes& pdu) { heard.push_back(hexString(pdu)); },
                                          [this] { heard.emplace_back("closed"); }});
  }
  /// What comes back until nothing is under way.
  const Pdus& hear(const Bytes& pdu) {
    heard.clear();
    scheduler->run([&] {
      session->receive(pdu);
      recorder.link->drain();
    });
    return heard;
  }
  /// The same for several, by name or as hex, and with names for what comes back.
  std::string say(const std::string& pdus) {
    std::string all;
    std::istringstream words(pdus);
    for (std::string word; words >> word;) {
      for (const auto& answer : hear(toData(names.contains(word) ? names.at(word) : word))) {
        all.append(all.empty() ? "" : " ").append(answer == names.at("counted") ? "counted" : answer);
      }
    }
    return all;
  }

  std::shared_ptr<VirtualTimeScheduler> scheduler = VirtualTimeScheduler::create(1);
  std::shared_ptr<MemoryStore> store = std::make_shared<MemoryStore>();
  Pdus heard;
  SimulatedRecorder recorder;
  std::optional<AttSession> session;
};

TEST(AttServer, AnswersWhatIsMalformedOrNotAllowed) {
  // PDU:answer
  std::istringstream cases(R"(
      1e: 52: 520600aa: d20800: 1b0800: 20:0120000006 0e01000200:010e000006
      02:0102000004 02170000:0102000004
      040000ffff:0104000001 0405000400:0104050001 041600ffff:010416000a 040100ff:0104000004
      060100ffff00:0106000004 060100ffff00280018:0701000500 060100ffff002818:010601000a
      080100ffff030028:0108000004 080000ffff0328:0108000001 080800ffff040082192a6ef0b7c842a653079e1d4b:0108080002
      100100ffff0328:0110010010 100100ffff0128:011001000a
      0a0000:010a000001 0a1600:010a160001 0a0800:010a080002 0a0300:0b5265636f72646572
      0c03000600:0d6572 0c03000800:0d 0c03000900:010c030007
      12:0112000004 12060001:0112060003 120a0001:01120a0003 12160001:0112160001
      120b0001:01120b000d 120b000200:01120b0013 120800000000000000000000000000000000000000000000:0112000004
      160600000001:0116060003 1800:19 1801:19 1802:0118000004)");
  Central central;
  for (std::string text; cases >> text;) {
    const auto colon = text.find(':');
    EXPECT_EQ(central.say(text.substr(0, colon)), text.substr(colon + 1)) << text;
  }
}

TEST(AttServer, CarriesTheLinksTrafficAndItsFaults) {
  // Faults: what is said: what is heard.
  std::istringstream cases(R"(: count: 13; : subscribe 0a0b00 count: 13 0b0100 13 counted;
      : subscribe 120b000000 0a0b00 count: 13 13 0b0000 13; : subscribe 5208000182010000: 13 counted;
      write 1 refuse: subscribe count count: 13 0112080003 13 counted; write 1 disconnect: count: closed;
      acknowledgement 1 drop: subscribe count count: 13 counted 0112080011; acknowledgement 1 duplicate: count: 13;
      : subscribe 160800000001 160800010082010000 1801: 13 170800000001 170800010082010000 19 counted;
      : 160800000001 1600 1800 1801: 170800000001 0116000004 19 19;
      : 160800000001 160b00000001 1801: 170800000001 01160b0009 19;
      : 160800000001 160800020001 1801: 170800000001 170800020001 0118080007;
      : 160b0000000100 1801 count: 170b0000000100 19 13 counted;
      write 1 refuse: 160800000001 1801: 170800000001 0118080003)");
  for (std::string faults, said, heard;
       std::getline(std::getline(std::getline(cases, faults, ':'), said, ':'), heard, ';');) {
    EXPECT_EQ(" " + Central(faults).say(said), heard) << faults << said;
  }
}

TEST(AttServer, LimitsPreparedWritesAndNotifications) {
  Central central;
  EXPECT_EQ((central.say("subscribe download"), central.heard.at(1).size()), 2 * 23U);
  EXPECT_EQ((central.say("mtu517 download"), central.heard.at(1).size()), 2 * (3 + wire::kPacketSize));
  EXPECT_TRUE(central.say("1608000000" + std::string(2 * 512, '0')).starts_with("17"));
  EXPECT_EQ(central.say("160800000200"), "0116080009");
  central.recorder.link->disconnect();
  central.connect();
  EXPECT_EQ(central.say("0a0b00 count"), "0b0000 13") << "not subscribed any more, nothing prepared";
}

}  // namespace
}  // namespace kwtsdk::sim
