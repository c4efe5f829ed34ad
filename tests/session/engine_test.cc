#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <kwtsdk/session/adapters.h>
#include <kwtsdk/session/session.h>
#include <kwtsdk/sim/recorder_model.h>
#include <kwtsdk/sim/recording_store.h>
#include <kwtsdk/sim/simulated_link.h>

#include "tests/session/ogg_sample.h"
#include "tests/session/session_host.h"
#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::testing {
namespace {

using namespace kwtsdk::session;
using sim::Fault, sim::FaultAction, sim::LinkEvent;

/// Faults as the test says at that moment.
struct Faults : sim::FaultPlan {
  FaultAction next(LinkEvent event) override { return choose ? choose(event) : FaultAction{}; }
  std::function<FaultAction(LinkEvent)> choose;
};

/// A recorder with one recording, of whose id another one may take the place.
struct OneRecording : sim::RecordingStore {
  explicit OneRecording(unsigned number = 1) { replace(number); }
  void replace(unsigned number) {
    content = joined(oggPage(kBegin, 1, 0, 200, number), oggPage(kEnd, 1, 1, 3000, number));
    about.created += std::chrono::hours(24);
  }
  std::uint32_t firstId() const override { return 1; }
  std::size_t count() const override { return isThere ? 1 : 0; }
  sim::RecordingInfo info(std::size_t) const override { return about; }
  void read(std::size_t, std::uint64_t offset, std::span<std::uint8_t> into) const override {
    for (auto& byte : into) byte = offset < content.size() ? content[offset++] : 0;
  }
  bool deleteFirst() override { return std::exchange(isThere, false); }

  Bytes content;
  sim::RecordingInfo about{1, std::chrono::local_days{std::chrono::year(2024) / 1 / 1}, 0};
  bool isThere = true;
};

struct Host {
  explicit Host(const std::shared_ptr<VirtualTimeScheduler>& virtualTime, Executor executor = {})
      : scheduler(*virtualTime), link(sim::SimulatedLink::create(virtualTime, model, {}, faults)) {
    session = Session::create(linkOver(link), Options()
                                                  .platform({virtualTime, nullptr, nullptr, log})
                                                  .executor(std::move(executor))
                                                  .keepLink(std::nullopt));
  }

  VirtualTimeScheduler& scheduler;
  TemporaryFolder folder;
  std::shared_ptr<LineLog> log = std::make_shared<LineLog>();
  std::shared_ptr<Faults> faults = std::make_shared<Faults>();
  std::shared_ptr<OneRecording> store = std::make_shared<OneRecording>();
  std::shared_ptr<sim::RecorderModel> model = std::make_shared<sim::RecorderModel>(store);
  std::shared_ptr<sim::SimulatedLink> link;
  std::shared_ptr<Session> session;
};

constexpr std::uint8_t kStop = 0x00, kDelete = 0x04, kNotice = 0x13;  // first bytes of frames

bool isOfRecorder(sim::Channel channel, const Bytes& frame, std::uint8_t first) {
  return channel == sim::Channel::recorder && !frame.empty() && frame[0] == first;
}

// What is late of one recording must neither begin nor end the next, which then would be left running.
TEST(SessionRecordingTest, TheEndOfTheRecordingBeforeIsNotItsOwn) {
  play<Host>([](Host& host) {
    bool isLate = false;
    host.faults->choose = [&](LinkEvent event) {
      const bool hit = event == LinkEvent::notification && std::exchange(isLate, false);
      return hit ? FaultAction{Fault::delay, 1s, 0} : FaultAction{};
    };
    host.model->setReplyFilter([&](const Bytes&, Bytes reply) {
      isLate = internal::hexString(reply).starts_with("0801");
      return std::optional(std::move(reply));
    });
    const auto first = host.session->record(host.folder.file("first"));
    host.scheduler.sleep(1s);
    EXPECT_TRUE(host.session->stopRecording().wait());
    EXPECT_TRUE(first.wait());
    EXPECT_FALSE(host.session->record(host.folder.file("second")).waitFor(5s)) << "ended while it recorded";
    host.session = nullptr;  // what stops the recording still asks the filters
  });
}

TEST(SessionRecordingTest, OneWhoseStartOrStopIsNotConfirmedIsNotLeftRunning) {
  for (const std::string cut : {"start refused", "stop lost, cancelled", "stop lost"}) {
    SCOPED_TRACE(cut);
    play<Host>([&](Host& host) {
      host.faults->choose = [&, isFirst = true](LinkEvent event) mutable {
        const bool hit = event == LinkEvent::acknowledgement && cut == "start refused" && isFirst;
        isFirst = isFirst && event != LinkEvent::acknowledgement;
        return hit ? FaultAction{Fault::refuse, 0s, 0} : FaultAction{};
      };
      host.model->setFrameFilter(
          [](auto channel, const Bytes& frame) { return !isOfRecorder(channel, frame, kStop); });
      const auto recording = host.session->record(host.folder.file("sound"));
      host.scheduler.sleep(1s);
      cut == "stop lost" ? (void)host.session->stopRecording() : recording.cancel();
      EXPECT_FALSE(recording.wait());
      host.scheduler.sleep(1s);
      EXPECT_FALSE(host.model->recording());
    });
  }
}

TEST(SessionRecordingTest, ALetInQueryHasItsSilence) {
  play<Host>([](Host& host) {
    const auto recording = host.session->record(host.folder.file("sound"));
    host.scheduler.sleep(1s);
    EXPECT_TRUE(host.session->battery(Limits().silence(Duration::max())).wait());
    host.model->setReplyFilter([](const Bytes& request, Bytes reply) {
      return request[0] == 0x99 ? std::nullopt : std::optional(std::move(reply));
    });
    const auto asked = host.session->battery(Limits().silence(1s)).waitFor(4s);
    ASSERT_TRUE(asked);
    EXPECT_EQ(codeOf(*asked), Errc::stalled);
    EXPECT_FALSE(recording.done());
  });
}

// While the link is away another recording may take the place and the id of the one that was saved.
TEST(SessionDownloadTest, AnotherRecordingOfTheSameIdIsNotDeletedUnseen) {
  for (const bool isAll : {false, true}) {
    for (const std::uint8_t cutAt : {kNotice, kDelete}) {
      SCOPED_TRACE(std::to_string(cutAt) + (isAll ? " of all" : " of one"));
      play<Host>([&](Host& host) {
        bool isCut = false;
        host.model->setFrameFilter([&](auto channel, const Bytes& frame) {
          if (!isOfRecorder(channel, frame, cutAt) || std::exchange(isCut, true)) return true;
          host.link->disconnect();
          host.store->replace(2);
          return false;
        });
        const Bytes second = OneRecording(2).content;
        const auto named = DownloadOptions().name("%d.opus");
        if (isAll) {
          (void)host.session->downloadAll(host.folder.path(), named).wait();
        } else {
          (void)host.session->download(host.folder.file("02.opus")).wait();
        }
        const bool isSaved =
            contentOf(host.folder.file("03.opus")).starts_with(std::string(second.begin(), second.end()));
        EXPECT_TRUE(host.store->isThere || isSaved);
      });
    }
  }
}

TEST(SessionDownloadTest, ADamagedCountCostsNoThousandQuestions) {
  play<Host>([](Host& host) {
    host.model->setReplyFilter([isFirst = std::make_shared<bool>(true)](const Bytes& request, Bytes reply) {
      const bool isCount = request[0] == 0x01 && request[1] == 0x82;
      if (isCount && std::exchange(*isFirst, false)) reply[5] = 0xF0;
      return std::optional(std::move(reply));
    });
    const auto listed = host.session->recordings().waitFor(5s);
    ASSERT_TRUE(listed && *listed);
    EXPECT_EQ((*listed)->size(), 1U);
  });
}

/// Asks the battery twice: the first predicate throws, or waits for an answer that comes too late.
struct AskingTwice : Work {
  explicit AskingTwice(bool isToThrow) : throws(isToThrow) {}
  std::string name() const override { return "asking"; }
  Result<Done> run(Transaction& recorder) override {
    const Bytes question = internal::toData("99EC2A02B20A0001000000000000001003A34083DF");
    const auto ask = [&](const std::function<bool(const Bytes&)>& isAnswer) {
      return recorder.exchange(question, "0000CA2A-0000-1000-8000-00805F9B34FB",
                               "0000C92A-0000-1000-8000-00805F9B34FB", isAnswer);
    };
    try {
      const auto first = ask(
          [this](const Bytes&) -> bool { return throws ? throw std::runtime_error("of the host") : true; });
      EXPECT_EQ(codeOf(first), Errc::stalled);
    } catch (const std::runtime_error&) {
      EXPECT_TRUE(throws);
    }
    const auto second = ask([](const Bytes&) { return true; });
    if (second) last = second->back();
    return Done{};
  }
  const bool throws;
  std::optional<int> last;
};

TEST(SessionTransactionTest, AnExchangeThatFailedHasNoPartInTheNext) {
  for (const bool throws : {true, false}) {
    play<Host>([&](Host& host) {
      int answers = 0;
      host.model->setReplyFilter([&](const Bytes&, Bytes reply) {
        reply.back() = static_cast<std::uint8_t>(++answers);
        return std::optional(std::move(reply));
      });
      host.faults->choose = [&](LinkEvent event) {
        const bool isLate = !throws && event == LinkEvent::notification && answers == 1;
        return isLate ? FaultAction{Fault::delay, 10500ms, 0} : FaultAction{};
      };
      const auto work = std::make_shared<AskingTwice>(throws);
      EXPECT_TRUE(host.session->transact(work).wait());
      EXPECT_EQ(work->last, 2);
    });
  }
}

TEST(SessionTest, AnExecutorThatNeverRunsIsWaitedForOnce) {
  const auto scheduler = VirtualTimeScheduler::create(1);
  scheduler->run([&] {
    std::vector<std::function<void()>> kept;
    Host host(scheduler, [&](std::function<void()> work) { kept.push_back(std::move(work)); });
    int called = 0;
    for (int i = 0; i < 20; ++i) host.session->battery().then([&](const auto&) { ++called; });
    host.scheduler.sleep(1s);
    const Duration began = host.scheduler.now();
    host.session.reset();
    EXPECT_LT(host.scheduler.now() - began, 6s);
    EXPECT_EQ(called, 20);
  });
}

TEST(SessionTest, AnEndedOperationLetsGoOfItsProgressCallback) {
  play<Host>([](Host& host) {
    auto held = std::make_shared<int>();
    const std::weak_ptr<int> watched = held;
    {
      auto operation = host.session->battery();
      operation.onProgress([operation, held](const auto&) {});
      held.reset();
      EXPECT_TRUE(operation.wait());
    }
    host.session.reset();
    EXPECT_TRUE(watched.expired());
  });
}

TEST(SessionTest, AClosedOneStopsNoRecording) {
  play<Host>([](Host& host) {
    host.session->close();
    EXPECT_EQ(codeOf(host.session->stopRecording().wait()), Errc::closed);
  });
}

}  // namespace
}  // namespace kwtsdk::testing
