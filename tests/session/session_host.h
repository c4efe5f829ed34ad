#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <system_error>

#include <kwtsdk/session/adapters.h>
#include <kwtsdk/sim/microphone.h>

#include "tests/scarcity/scarcity.h"
#include "tests/session/stored_recording.h"
#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::testing {

using session::DownloadOptions;
using session::Effect;
using session::Errc;
using session::Limits;
using session::Options;
using session::RecordOptions;
using session::Result;
using session::Session;
using sim::Fault;
using sim::LinkEvent;

/// No error, or a code that compares with Errc.
template <class T>
std::error_code codeOf(const Result<T>& result) {
  return result ? std::error_code() : std::error_code(result.error());
}
inline const std::error_code kOk;

/// Counts what passes the link.
struct CountedFaults : sim::ScriptedFaults {
  sim::FaultAction next(LinkEvent event) override {
    ++seen.at(static_cast<std::size_t>(event));
    return ScriptedFaults::next(event);
  }
  std::uint64_t count(LinkEvent event) const { return seen.at(static_cast<std::size_t>(event)); }

  std::array<std::uint64_t, 4> seen{};
};

/// Knows all that it ever held, and looks at each deletion whether the host may have asked for it: the
/// recording is in a file of the folder, byte by byte, or was asked to be removed.
class WatchedStore : public sim::MemoryStore {
 public:
  explicit WatchedStore(std::filesystem::path hostFolder) : MemoryStore(10), folder_(std::move(hostFolder)) {}

  std::uint32_t put(const Bytes& content, const char* created = "2024-05-17 09:30:00") {
    const std::uint32_t id = firstId() + static_cast<std::uint32_t>(count());
    std::tm clock{};
    ::strptime(created, "%Y-%m-%d %H:%M:%S", &clock);
    add(content, std::chrono::local_seconds(std::chrono::seconds(::timegm(&clock))));
    clock.tm_isdst = -1;
    held[id] = {content, std::chrono::sys_seconds(std::chrono::seconds(::mktime(&clock)))};
    if (onChange) onChange();
    return id;
  }
  bool deleteFirst() override {
    const Counting spares(false);
    const std::uint32_t id = firstId();
    if (!removed.contains(id) && !isOnDisk(held.at(id).content)) lost.insert(id);
    const bool deleted = MemoryStore::deleteFirst();
    if (onChange) onChange();
    return deleted;
  }
  bool isOnDisk(const Bytes& content) const {
    return std::ranges::any_of(std::filesystem::directory_iterator(folder_), [&](const auto& entry) {
      return entry.is_regular_file() && entry.file_size() == content.size() &&
             entry.path().extension() != ".part" && contentOf(entry.path().string()) == text(content);
    });
  }

  struct Held {
    Bytes content;
    Date created;
  };
  std::map<std::uint32_t, Held> held;
  std::set<std::uint32_t> removed, lost;
  std::function<void()> onChange;

 private:
  const std::filesystem::path folder_;
};

/// Packets of 4 bytes: which recording, from 0, and which packet of it.
class NumberedMicrophone : public sim::Microphone {
 public:
  void start() override { made.push_back(0); }
  Bytes nextPacket() override { return packet(made.size() - 1, made.back()++); }

  static Bytes packet(std::size_t recording, std::size_t number) {
    const auto byte = [](std::size_t value) { return static_cast<std::uint8_t>(value & 0xFF); };
    return {byte(recording >> 8U), byte(recording), byte(number >> 8U), byte(number)};
  }
  /// What a file holds when `count` packets from the first on are in it.
  static std::string file(std::size_t recording, std::size_t count) {
    std::string content;
    for (std::size_t i = 0; i < count; ++i) content += std::string("P\1\4\0", 4) + text(packet(recording, i));
    return content;
  }

  std::vector<std::size_t> made;
};

/// A link that may be refused, counts, and can change what arrives.
class TestLink : public session::Link {
 public:
  explicit TestLink(std::shared_ptr<session::Link> to) : to_(std::move(to)) {}

  void setEvents(Events events) override {
    events_ = events;
    events.didUpdate = [this](const auto& from, const auto& characteristic, const MaybeError& error) {
      if (!onUpdate) return events_.didUpdate(from, characteristic, error);
      for (const Bytes& value : onUpdate(*characteristic->value())) {
        std::dynamic_pointer_cast<gatt::ValueCharacteristic>(characteristic)->setValue(value);
        events_.didUpdate(from, characteristic, error);
      }
    };
    to_->setEvents(std::move(events));
  }
  MaybeError open() override {
    ++opens;
    if (onOpen) {
      if (auto error = onOpen()) return error;
    }
    return to_->open();
  }
  void close() override {
    if (onClose) onClose();
    to_->close();
  }
  std::shared_ptr<Peripheral> peripheral() const override { return to_->peripheral(); }
  std::vector<std::shared_ptr<Characteristic>> characteristics() const override {
    auto all = to_->characteristics();
    all.resize(all.size() - missing);
    return all;
  }

  std::function<MaybeError()> onOpen;
  std::function<void()> onClose;
  std::function<std::vector<Bytes>(const Bytes&)> onUpdate;  // what arrives instead
  unsigned opens = 0;
  std::size_t missing = 0;  // characteristics, from the last

 private:
  const std::shared_ptr<session::Link> to_;
  Events events_;
};

/// A simulated recorder, and what a host has of it.
struct RecorderScene {
  RecorderScene(const std::shared_ptr<VirtualTimeScheduler>& virtualTime, std::string hostFolder,
                std::shared_ptr<sim::FaultPlan> plan, sim::LinkTiming timing,
                const std::shared_ptr<Scheduler>& used = nullptr)
      : scheduler(*virtualTime),
        store(std::make_shared<WatchedStore>(hostFolder)),
        model(std::make_shared<sim::RecorderModel>(store)),
        simLink(sim::SimulatedLink::create(used ? used : virtualTime, model, timing, std::move(plan))),
        link(std::make_shared<TestLink>(session::linkOver(simLink))),
        platform{used ? used : virtualTime, nullptr, nullptr, log},
        path(std::move(hostFolder)) {
    model->setMicrophone(microphone);
  }

  std::shared_ptr<Session> open(Options options = {}) const {
    return Session::create(link, options.platform(platform));
  }
  std::string file(const std::string& name) const { return path + "/" + name; }

  VirtualTimeScheduler& scheduler;
  std::shared_ptr<LineLog> log = std::make_shared<LineLog>();
  std::shared_ptr<WatchedStore> store;
  std::shared_ptr<sim::RecorderModel> model;
  std::shared_ptr<NumberedMicrophone> microphone = std::make_shared<NumberedMicrophone>();
  std::shared_ptr<sim::SimulatedLink> simLink;
  std::shared_ptr<TestLink> link;
  Platform platform;
  std::string path;
};

/// The same with a Session, for one directed test: faults are added before what they are for.
struct SessionScene : private TemporaryFolder, RecorderScene {
  explicit SessionScene(const std::shared_ptr<VirtualTimeScheduler>& virtualTime, sim::LinkTiming timing = {},
                        const std::shared_ptr<CountedFaults>& plan = std::make_shared<CountedFaults>(),
                        const std::shared_ptr<Scheduler>& used = nullptr)
      : RecorderScene(virtualTime, TemporaryFolder::path(), plan, timing, used),
        faults(*plan),
        session(open()) {
    model->setFrameFilter([this](sim::Channel, const Bytes& frame) {
      frames.push_back(internal::hexString(frame));
      return !onFrame || onFrame(frames.back());
    });
  }
  ~SessionScene() {
    session = nullptr;
    EXPECT_EQ(store->lost, std::set<std::uint32_t>());
  }
  SessionScene(const SessionScene&) = delete;
  SessionScene& operator=(const SessionScene&) = delete;

  using RecorderScene::file;
  using RecorderScene::path;

  std::size_t framesLike(const std::string& begin) const {
    return static_cast<std::size_t>(
        std::ranges::count_if(frames, [&](const std::string& frame) { return frame.starts_with(begin); }));
  }
  Duration now() const { return scheduler.now(); }

  Lines frames;                                           // that reached the recorder
  std::function<bool(const std::string& frame)> onFrame;  // false: the recorder does not see it
  bool damaged = false;  // by the test, so that what is not checked may be wrong
  CountedFaults& faults;
  std::shared_ptr<Session> session;
};

/// A link on which things take time.
struct SlowScene : SessionScene {
  explicit SlowScene(const std::shared_ptr<VirtualTimeScheduler>& virtualTime)
      : SessionScene(virtualTime, {.latency = 30ms, .connectionInterval = 15ms}) {}
};

/// The recording is in the file "a" alone, and the recorder has deleted it.
inline void expectSaved(SessionScene& scene, const Result<session::Saved>& saved, const Bytes& content) {
  ASSERT_TRUE(saved) << saved.error().text();
  EXPECT_EQ(saved->deleted, Effect::done);
  EXPECT_EQ(saved->file, scene.file("a"));
  EXPECT_TRUE(contentOf(scene.file("a")) == text(content)) << "not the recording";
  EXPECT_EQ(namesIn(scene.path), Names{"a"});
}

}  // namespace kwtsdk::testing
