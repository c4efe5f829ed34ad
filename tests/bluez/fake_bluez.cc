#include "tests/bluez/fake_bluez.h"

#include <future>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace kwtsdk::testing {

FakeBluez::FakeBluez(Scheduler& scheduler, std::shared_ptr<sim::SimulatedLink> link,
                     std::shared_ptr<Journal> journal)
    : link_(std::move(link)), journal_(std::move(journal)), loop_(scheduler, [this] { service_ = nullptr; }) {
  link_->disconnect();
  link_->setEvents(
      [this](const auto&, const auto& source, const MaybeError& error) {
        postToService([source, error](FakeService& service) { service.didWrite(*source, error); });
      },
      [this](const auto&, const auto& source, const MaybeError&) {
        postToService([source, value = source->value().value()](FakeService& service) {
          service.didUpdate(*source, value);
        });
      });
  link_->setOnDisconnect([this] {
    postToService([this](FakeService& service) {  // unless it is connected again
      if (link_->peripheral()->state() == PeripheralState::disconnected) service.lose();
    });
  });
}

FakeBluez::~FakeBluez() {
  obey("end");
  link_ = nullptr;  // which waits for its events
}

void FakeBluez::postToService(std::function<void(FakeService&)> work) {
  loop_.post([this, work = std::move(work)] {
    if (service_) work(*service_);
  });
}

void FakeBluez::obey(const std::string& commands) {
  const auto task = std::make_shared<std::packaged_task<void()>>([&] {
    std::istringstream lines(commands);
    for (std::string line; std::getline(lines, line, ';');) {
      obeyOne(line);
      if (service_) service_->follow();
    }
  });
  loop_.post([task] { (*task)(); });
  task->get_future().get();
}

void FakeBluez::obeyOne(const std::string& command) {
  std::istringstream words(command);
  std::string verb, object, error;
  words >> verb >> object >> error;
  const std::map<std::string, bool*> switches{{"adapter", &state_.adapter},
                                              {"power", &state_.power},
                                              {"heard", &state_.heard},
                                              {"resolve", &state_.resolve}};
  if (const auto found = switches.find(verb); found != switches.end()) {
    *found->second = object == "on";
  } else if (verb == "start") {
    if (!service_) service_ = std::make_unique<FakeService>(state_, *link_, *journal_);
    loop_.serve(&service_->connection());
  } else if (verb == "end") {
    loop_.serve(nullptr);
    service_ = nullptr;
  } else if (verb == "mtu") {
    state_.mtu = static_cast<std::uint16_t>(std::stoul(object));
  } else if (verb == "lack") {
    state_.lacking = object;
  } else if (verb == "refuse") {
    state_.refused[object] = error;
  } else if (verb == "hold") {
    state_.held.insert(object);
  } else if (verb == "release") {
    state_.held.erase(object);
    state_.refused.erase(object);
  } else if (verb == "lose") {
    if (service_) service_->lose();
  } else {
    throw std::invalid_argument("unknown command: " + command);
  }
}

}  // namespace kwtsdk::testing
