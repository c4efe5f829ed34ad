// The facade over the adapter, while BlueZ lets notifications overtake acknowledgements, loses the link and
// refuses as a seed says. The threads are real: a seed repeats the choices, and not which thread is first.

#include <kwtsdk/sim/seed.h>

#include "tests/bluez/witness.h"
#include "tests/support/choices.h"
#include "tests/support/facade_operations.h"
#include "tests/support/forwarding_scheduler.h"

namespace kwtsdk::testing {
namespace {

constexpr std::size_t kBlock = sim::RecordingStore::kBlockSize;
constexpr const char* kRefusal = "refuse WriteValue org.bluez.Error.Failed";

class Scenario {
 public:
  Scenario(std::uint64_t seed, bool isTroubled) : random_(seed), timing_(~seed), isTroubled_(isTroubled) {
    for (auto left = random_.below(5); left > 0; --left)
      host_.store->add(recordingOf(20000 + random_.below(12768), static_cast<unsigned>(left)));
    host_.model->setVersion({0, 1, 2, 3});
    host_.device = Device::create(slow_, kRecorderAddress);
    witness_.watch(*host_.model);
    host_.bluez.setCourse([this](const Bytes& written) { return course(written); });
  }

  void run() {
    for (auto left = 1 + random_.below(3); left > 0 && !::testing::Test::HasFailure(); --left) {
      connect();
      for (auto operations = 1 + random_.below(6); operations > 0 && !hasTrouble_; --operations) operate();
      host_.device->disconnect();
      EXPECT_TRUE(await([&] { return isGone_.load(); })) << "the end was never told";
      helper_->setConnectedPeripheral(nullptr);  // what it still has to do must not meet the next connection
      helper_->stopRecord([](auto&) {});
    }
  }

 private:
  void connect() {
    isOverBus_ = random_.below(4) == 0;
    writesUntilTrouble_ = isTroubled_ ? static_cast<int>(random_.below(8)) : -1;
    host_.bluez.obey("release Ack;release WriteValue;linger off;release AcquireNotify");
    if (isOverBus_) host_.bluez.obey("refuse AcquireNotify org.bluez.Error.NotPermitted");
    hasTrouble_ = isAnswered_ = isGone_ = isRefused_ = false;
    EXPECT_EQ(nameOf(host_.device->connect()), "ok");
    witness_.begin(isOverBus_);
    log_ = std::make_shared<LineLog>();  // what an earlier one still has to say is not this one's
    helper_ = KWTBluetoothHelper::create({slow_, std::make_shared<NotedSettings>(), nullptr, log_});
    host_.device->attach(helper_);
    listen();
  }

  void listen() {
    const auto pass = [this](const auto& tell, auto&&... event) {
      isInEvent_ = true;
      tell(event...);
      isInEvent_ = false;
      happened_->signal();
    };
    host_.device->setEvents(
        [=, this, tell = helper_->didWriteValueForCharacteristicBlock()](auto from, auto to, auto error) {
          if (error) isRefused_ = true;
          witness_.answered(!error);
          if (isSlow_) host_.bluez.obey("linger off");  // until what is behind it has come
          pass(tell, from, to, error);
        },
        [=, this, tell = helper_->didUpdateValueForCharacteristicBlock()](auto from, auto of, auto error) {
          witness_.told(*of->value());
          pass(tell, from, of, error);
        });
    host_.device->setOnDisconnect([=, this] {
      helper_->setCompletionBlock(nullptr);
      helper_->setWriteDataBlock(nullptr);
      pass([this] { isGone_ = true; });
    });
  }

  /// What BlueZ does from this write on. On its thread.
  std::string course(const Bytes& written) {
    static constexpr std::array kTroubles{"lose", "hang up", "hang up;lose", "linger on;lose", kRefusal};
    const std::string kind = internal::hexString(Bytes(written.begin(), written.begin() + 2));
    // The answer to a stop may come ahead of its acknowledgement on the air already.
    const bool mayHold = !isOverBus_ && kind != "0081";
    const bool isMore = kind == "0382" || kind.ends_with("81");  // packets follow
    std::string answer;
    for (auto ahead = mayHold ? timing_.below(isMore ? 4 : 2) : 0; ahead > 0; --ahead) answer += "value;";
    const bool isHeld = !answer.empty();
    answer = (isHeld ? "hold Ack;" : "") + answer + "release Ack";
    if (writesUntilTrouble_-- != 0) return answer;
    hasTrouble_ = true;
    const std::string trouble = kTroubles.at(timing_.below(kTroubles.size()));
    isAnswered_ = trouble == kRefusal || timing_.below(2) == 0;
    if (isAnswered_) return answer + (isHeld ? ";" : ";value;") + trouble;
    return std::array{"", "release Ack;", "hold Ack;value;"}.at(timing_.below(mayHold ? 3 : 2)) + trouble;
  }

  /// Behind an event that is running: a command is pending until its completion has returned.
  bool await(const std::function<bool()>& condition) {
    while (!condition() || isInEvent_) {
      if (!happened_->wait(10s)) return condition();
    }
    return true;
  }

  void operate() {
    const auto which = random_.below(11);
    if (which == 0) return record();
    if (which < 3) return removeFirst(which == 1 ? "download" : "remove");
    isSlow_ = random_.below(2) == 0;
    const auto& blocking = blockingForms()[random_.below(blockingForms().size())];
    const std::string form = which < 7 ? blocking.name : completionForms()[random_.below(6)].name;
    judge(form, which < 7 ? "ok " + blocking.call(*helper_) : outcome(form), expected(form));
    isSlow_ = false;
  }

  std::string expected(const std::string& query) const {
    const auto count = host_.store->count();
    if (query.ends_with("power")) return "ok 87";
    if (query.ends_with("version")) return "ok 1.2.3";
    if (query.ends_with("capacity")) return "ok 536870912," + shown(536870912 - count * kBlock);
    if (query.ends_with("info")) return count != 0 && host_.store->firstId() == 10 ? "ok some" : "ok missing";
    if (query.ends_with("count"))
      return count == 0 ? "ok 0,0" : "ok " + shown(count) + "," + shown(host_.store->firstId());
    return query == "list" ? "ok some" : "ok 1";  // the notice
  }

  /// Trouble excuses a failure, unless the answer was complete before; a wrong value never.
  void judge(const std::string& form, const std::string& text, const std::string& right) {
    static const Lines kFailures{"ok none", "ok -1", "ok 0"};
    const bool isFailure = !text.starts_with("ok") || std::ranges::count(kFailures, text) != 0 ||
                           (text == "ok " && right == "ok 1.2.3");
    const bool isOneExchange = right.starts_with("ok ") && right.size() > 3 && form != "list";
    EXPECT_TRUE(text == right || (isFailure && hasTrouble_ && !(isOneExchange && isAnswered_)))
        << form << " ended with " << text;
  }

  /// How it ended, as text.
  std::string outcome(const std::string& form, std::int64_t number = 10) {
    struct Report {
      std::atomic<int> calls{0};
      std::string text;
    };
    const auto report = std::make_shared<Report>();
    const auto take = [report, happened = happened_](const MaybeError& error, const std::string& value) {
      report->text = (error ? std::to_string(error->code()) : "ok") + " " + value;
      EXPECT_EQ(++report->calls, 1) << "reported more than once";
      happened->signal();
    };
    completionForm(form).begin(*helper_, {take}, path_, number);
    const auto isOver = [&] {  // sound that is under way takes the answer to a stop away
      return report->calls != 0 || isGone_ || (form == "stop" && (witness_.stops != 0 || isRefused_));
    };
    EXPECT_TRUE(await(isOver)) << form << " was never reported";
    return report->calls == 0 ? "none" : report->text;
  }

  void removeFirst(const std::string& form) {
    const auto before = host_.store->count();
    const int logged = log_->count("Delete fileId");
    const bool isDownload = form == "download";
    Bytes recording(kBlock);
    if (before != 0) host_.store->read(0, 0, recording);
    const bool isBegun = before != 0 && random_.below(4) != 0;
    writeFile(path_, Bytes(recording.begin(), isBegun ? recording.end() - 2000 : recording.begin()));
    const std::string ended = outcome(form);
    helper_->stopMonitorTimer();
    const bool isOk = ended == "ok ";
    judge(form, ended, before != 0 ? "ok " : isDownload ? "1005 " : "4 ");
    if (isDownload && isOk) {
      EXPECT_TRUE(contentOf(path_).starts_with(text(recording))) << "the download is not the recording";
      EXPECT_TRUE(await([&] { return log_->count("Delete fileId") > logged || isGone_ || isRefused_; }))
          << "the deletion behind a download never ended";
      while (outcome("count") == "1002 ") {  // pending until the deletion's completion has returned
      }
    }
    const auto removed = before - host_.store->count();
    EXPECT_TRUE(removed == (isOk ? 1U : 0U) || (hasTrouble_ && isDownload == isOk))
        << form << " has removed " << removed;
  }

  void record() {
    witness_.sounds = witness_.stops = 0;
    const std::string begun = outcome("record", static_cast<std::int64_t>(random_.below(2)));
    judge("record", begun, "ok ");
    int heard = static_cast<int>(random_.below(3));
    std::string ended = "1002 ";  // until the start's completion has returned
    while (begun == "ok " && ended == "1002 ") {
      EXPECT_TRUE(await([&] { return witness_.sounds > heard || isGone_; })) << "there is no sound";
      heard = witness_.sounds;
      ended = outcome("stop");
    }
    if (begun == "ok ") judge("stop", ended == "none" ? "ok " : ended, "ok ");
    if (ended == "none") helper_->stopSubscribingToCharacteristic(wire::CHARACTERISTIC_NOTIFY);
  }

  Choices random_, timing_;  // the host's and BlueZ's
  const bool isTroubled_;
  std::atomic<bool> isOverBus_{false};
  std::atomic<int> writesUntilTrouble_{0};
  // Of this connection: something has gone wrong, behind the answer to a write; what the host knows of it.
  std::atomic<bool> hasTrouble_{false}, isAnswered_{false}, isGone_{false}, isRefused_{false};
  std::atomic<bool> isInEvent_{false}, isSlow_{false};  // events are running, take their time
  Witness witness_;
  // Threads of a machine that is busy stand still for longer than facade and adapter wait.
  const std::shared_ptr<Scheduler> slow_ = std::make_shared<PacedScheduler>(threadScheduler(), 1 / 12.0);
  const std::string path_ = sharedFolder().file("recording");
  const std::shared_ptr<Semaphore> happened_ = slow_->semaphore("happened");
  std::shared_ptr<LineLog> log_;
  std::shared_ptr<KWTBluetoothHelper> helper_;
  Host host_;  // last, so that its threads end first
};

class BluezCampaign : public ::testing::TestWithParam<bool> {};

TEST_P(BluezCampaign, EveryOperationEndsAsRequired) {
  const char* const one = std::getenv("KWTSDK_SEED");
  const char* const asked = std::getenv("KWTSDK_SEEDS");
  const std::uint64_t count = one ? 1 : asked ? std::strtoull(asked, nullptr, 10) : 50;
  const std::uint64_t first = sim::seedFromEnvironment(1);
  for (std::uint64_t seed = first; seed < first + count && !HasFailure(); ++seed) {
    Scenario(seed, GetParam()).run();
    if (HasFailure()) ADD_FAILURE() << repeating(seed, GetParam() ? "*/Troubled" : "*/Calm");
  }
}

INSTANTIATE_TEST_SUITE_P(Links, BluezCampaign, ::testing::Bool(),
                         [](const auto& test) { return test.param ? "Troubled" : "Calm"; });

}  // namespace
}  // namespace kwtsdk::testing
