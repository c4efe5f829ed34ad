// A session whose host asks for anything at any moment, over a link on which notifications are damaged,
// doubled, replaced and lost, with a disk that fails: every operation ends once, a recording that was checked
// is the recorder's, and none is deleted that is not on the disk.

#include "fuzz/host_file.h"
#include "fuzz/input.h"
#include "tests/session/session_host.h"
#include "tests/support/failing_sync.h"

namespace kwtsdk::fuzz {
namespace {

using namespace std::literals;
using session::Limits;
using session::Result;

class Hosted : testing::RecorderScene {
 public:
  Hosted(Input& input, const std::shared_ptr<sim::VirtualTimeScheduler>& virtualTime)
      : RecorderScene(virtualTime, hostFolder().path(), std::make_shared<sim::ScriptedFaults>(), {}),
        input_(input),
        session_(open(session::Options().keepLink(Duration(1s) * input.below(3)))) {
    for (unsigned i = 0, count = static_cast<unsigned>(input.below(3)); i < count; ++i)
      store->put(testing::storedRecording(1, i));
    model->setAlwaysEndMarker(input.chance(2));
    link->onUpdate = [this](const Bytes& value) { return arriving(value); };
  }

  void run() {
    while (!input_.empty() && cancels_.size() < 12) step();
    session_ = nullptr;
    require(open_ == 0, "every operation has ended when the session is gone");
    require(store->lost.empty(), "nothing is deleted that is not on the disk");
  }

 private:
  void step() {
    const bool isDiskFull = input_.below(16) == 1, failsToSync = input_.below(16) == 1;
    const auto full = isDiskFull ? std::make_unique<testing::FullDisk>(input_.byte() * 200U) : nullptr;
    const auto failing = failsToSync ? std::make_unique<testing::FailingSync>() : nullptr;
    act();
    if (const Duration pause = Duration(10ms) * input_.byte(); pause > 2s || full || failing)
      scheduler.sleep(pause);
  }

  void act() {
    const std::string name = file(input_.chance(2) ? "a.opus" : "b.opus");
    switch (input_.below(18)) {
      case 0:
        return follow(session_->battery(limits()));
      case 1:
        return follow(session_->status(limits()));
      case 2:
        return follow(session_->recordings(limits()));
      case 3:
      case 4:
      case 5:
        return download(name);
      case 6:
        return follow(session_->downloadAll(path, {}, limits()));
      case 7: {
        const auto id = 10 + static_cast<std::uint32_t>(input_.below(3));
        store->removed.insert(id);
        return follow(session_->remove(id, limits()));
      }
      case 8:
        return follow(session_->record(file("r"), session::RecordOptions().length(100ms), limits()));
      case 9:
        return follow(session_->stopRecording());
      case 10:
        return follow(session_->update(hostFile("image", input_.byte() * 40U), limits()));
      case 11:
        return follow(session_->disconnect());
      case 12:
        return simLink->disconnect();
      case 13:
        return model->pressKey();
      case 14:
        return model->setInCall(input_.chance(2));
      case 15:
        if (!cancels_.empty()) cancels_.at(input_.below(cancels_.size()))();
        return;
      case 16:
        if (input_.chance(8)) session_->close();
        return;
      default:
        return scheduler.sleep(Duration(20ms) * input_.byte());
    }
  }

  Limits limits() {
    Limits limits = Limits().reconnects(static_cast<unsigned>(input_.below(4)));
    if (input_.chance(3)) limits.timeout(Duration(10ms) * input_.byte());
    return limits;
  }

  void download(const std::string& name) {
    follow<session::Saved>(
        session_->download(name, session::DownloadOptions().keep(input_.chance(4)), limits()),
        [this](const Result<session::Saved>& result) {
          const auto held = result ? store->held.find(result->recording.id) : store->held.end();
          require(held == store->held.end() || !result->checked ||
                      testing::contentOf(result->file.string()) == testing::text(held->second.content),
                  "a download that was checked is the recording");
        });
  }

  template <class T>
  void follow(const session::Operation<T>& operation, std::function<void(const Result<T>&)> check = nullptr) {
    ++open_;
    cancels_.push_back([operation] { operation.cancel(); });
    operation.then([this, check, calls = std::make_shared<int>(0)](const Result<T>& result) {
      require(++*calls == 1, "an operation ends once");
      --open_;
      if (check) check(result);
    });
  }

  /// What arrives instead of a notification.
  std::vector<Bytes> arriving(Bytes value) {
    if (quiet_ > 0) return --quiet_, std::vector<Bytes>(1, value);
    quiet_ = input_.byte();  // how many come as they are
    switch (input_.below(8)) {
      case 1:
        if (!value.empty()) value[input_.byte() % value.size()] ^= input_.byte();
        return {value};
      case 2:
        return {};
      case 3:
        return {value, value};
      case 4:
        return {input_.bytes(), value};
      case 5:
        value.resize(std::min<std::size_t>(value.size(), input_.byte()));
        return {value};
      case 6:
        return {input_.bytes()};
      default:
        return {value};
    }
  }

  Input& input_;
  std::shared_ptr<session::Session> session_;
  std::vector<std::function<void()>> cancels_;
  int open_ = 0;
  std::size_t quiet_ = 0;
};

const Target sessionTarget("session", [](Input& input) {
  const auto scheduler = sim::VirtualTimeScheduler::create(input.byte());
  scheduler->run([&] { Hosted(input, scheduler).run(); });
  for (const auto& entry : std::filesystem::directory_iterator(hostFolder().path()))
    std::filesystem::remove_all(entry.path());
});

}  // namespace
}  // namespace kwtsdk::fuzz
