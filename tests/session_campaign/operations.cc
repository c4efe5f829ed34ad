// What a host of the campaign asks for, and what it looks at in the result.

#include "tests/session_campaign/host.h"

#include <stdexcept>

namespace kwtsdk::session_campaign {

namespace {

/// Frames of a host's own: exchanges, pauses, exceptions, and waits that cannot end well.
class Frames : public session::Work {
 public:
  Frames(const Choices& random, std::weak_ptr<Session> within)
      : random_(random), session_(std::move(within)) {}

  std::string name() const override { return "frames"; }
  Result<session::Done> run(session::Transaction& recorder) override {
    for (std::uint64_t i = 0, count = random_.below(4); i < count; ++i) {
      const auto answer =
          recorder.exchange(internal::toData("99EC2A02B20A0001000000000000001003A34083DF"), "CA2A", "C92A",
                            [](const Bytes& value) { return value.size() == 32 && value[20] == 3; });
      if (!answer) return answer.error();
      EXPECT_EQ(answer->at(20), 3);
      recorder.progress(i, count);
      if (const auto paused = recorder.pause(Duration(1ms) * random_.below(3000)); !paused) return paused;
    }
    if (random_.below(8) == 0) throw std::runtime_error("of the host's own");
    const auto session = random_.below(8) == 0 ? session_.lock() : nullptr;
    if (session) static_cast<void>(session->battery(Limits().timeout(3s)).wait());
    return session::Done();
  }

 private:
  Choices random_;
  const std::weak_ptr<Session> session_;
};

/// The packets of a live recording's file; none when it holds anything else.
std::optional<std::vector<unsigned>> packetsIn(const std::string& content, unsigned& recording) {
  std::vector<unsigned> numbers;
  constexpr std::size_t size = 8;
  if (content.size() % size != 0) return std::nullopt;
  for (std::size_t at = 0; at < content.size(); at += size) {
    if (content.compare(at, 4, std::string("P\1\4\0", 4)) != 0) return std::nullopt;
    const auto number = [&](std::size_t offset) {
      return static_cast<unsigned>(static_cast<unsigned char>(content[at + offset]) * 256 +
                                   static_cast<unsigned char>(content[at + offset + 1]));
    };
    recording = number(4);
    numbers.push_back(number(6));
  }
  return numbers;
}

}  // namespace

void Host::query() {
  Scene& scene = scene_;
  const auto asked = begin("query");
  const Limits chosen = limits(*asked, kQueryLimit);
  const auto expect = [&scene, asked](bool isRight, const char* what) {
    EXPECT_TRUE(isRight || !scene.undamaged(asked->began)) << asked->name << ": " << what;
  };
  const auto hasLevel = [=, &scene](const auto& level) {
    const auto was = [&](const Moment& moment) { return moment.battery == *level; };
    expect(!level || scene.past(was, asked->began), "the battery of another time");
  };
  const auto hasVersion = [=, &scene](const auto& version) {
    expect(!version || scene.versions.contains(*version), "no version");
  };
  const auto hasStorage = [=](const auto& bytes) {
    expect(!bytes || (bytes->at(0) == 16384 * 32768ULL && bytes->at(1) <= bytes->at(0)), "no storage");
  };
  const auto hasAll = [=](const Result<session::Status>& status) {
    if (!status) return;
    hasLevel(&status->battery);
    hasVersion(&status->firmware);
    hasStorage(&status->storage);
  };
  switch (random_.below(6)) {
    case 0:
      return follow(session_->firmware(chosen), asked, hasVersion);
    case 1:
      return follow(session_->storage(chosen), asked, hasStorage);
    case 2:
      return follow(session_->status(chosen), asked, hasAll);
    default:
      return follow(session_->battery(chosen), asked, hasLevel);
  }
}

void Host::list() {
  Scene& scene = scene_;
  const auto asked = begin("recordings");
  const auto check = [=, &scene](const Result<std::vector<session::RecordingInfo>>& result) {
    if (!result || !scene.undamaged(asked->began)) return;
    const std::uint32_t first = result->empty() ? 0 : result->front().id;
    const auto was = [&](const Moment& moment) {
      return moment.count == result->size() && (result->empty() || moment.firstId == first);
    };
    EXPECT_TRUE(scene.past(was, asked->began)) << asked->name << ": no store that there was";
    for (std::size_t i = 0; i < result->size(); ++i) {
      const auto& [content, created] = scene.store->held.at(first + static_cast<std::uint32_t>(i));
      const session::RecordingInfo& info = result->at(i);
      EXPECT_TRUE(info.id == first + i && info.bytes == content.size() && info.created == created)
          << asked->name;
    }
  };
  follow(session_->recordings(limits(*asked, kListLimit)), asked, check);
}

void Host::download() {
  Scene& scene = scene_;
  const auto asked = begin("download");
  const std::string file = numbered("d", random_.below(4), ".opus");
  const bool keep = chance(4);
  std::optional<std::uint32_t> expected;
  if (chance(4)) expected = scene.store->firstId() + static_cast<std::uint32_t>(random_.below(2));
  const auto chosen = limits(*asked, std::nullopt);
  follow(session_->download(file, session::DownloadOptions().keep(keep), chosen, expected), asked,
         [=, &scene](const auto& result) {
           if (!result) {
             EXPECT_NE(result.error().effect(), Effect::done) << asked->name;
             return;
           }
           const auto held = scene.store->held.find(result->recording.id);
           if (held == scene.store->held.end()) {
             EXPECT_FALSE(scene.undamaged(Duration(0))) << asked->name << ": of no recording";
             return;
           }
           EXPECT_TRUE(testing::contentOf(result->file.string()) == testing::text(held->second.content) ||
                       (scene.isHostile && !result->checked))
               << asked->name << ": not the recording";
           EXPECT_EQ(expected.value_or(result->recording.id), result->recording.id) << asked->name;
           if (result->deleted == Effect::done) {
             EXPECT_LT(result->recording.id, scene.store->firstId()) << asked->name << ": it is there";
             EXPECT_FALSE(keep) << asked->name;
           } else if (!keep) {
             EXPECT_TRUE(result->notDeleted) << asked->name << ": not deleted, and nobody knows why";
           }
         });
}

void Host::downloadAll() {
  Scene& scene = scene_;
  const auto asked = begin("downloadAll");
  const session::DownloadOptions options = session::DownloadOptions().keep(chance(6));
  const auto check = [=, &scene](const Result<session::Harvest>& result) {
    const session::Harvest* const harvest = result.achieved();
    if (harvest == nullptr || !scene.undamaged(Duration(0))) return;
    for (const session::Saved& saved : harvest->saved) {
      const Bytes& content = scene.store->held.at(saved.recording.id).content;
      EXPECT_TRUE(testing::contentOf(saved.file.string()) == testing::text(content))
          << asked->name << ": not the recording";
    }
  };
  follow(session_->downloadAll(scene.path, options, limits(*asked, std::nullopt)), asked, check);
}

void Host::remove() {
  Scene& scene = scene_;
  const auto asked = begin("remove");
  const std::uint32_t id = scene.store->firstId() + static_cast<std::uint32_t>(random_.below(8) == 0 ? 1 : 0);
  scene.store->removed.insert(id);
  follow(session_->remove(id, limits(*asked, kListLimit)), asked, [=, &scene](const auto& result) {
    EXPECT_TRUE(!result || id < scene.store->firstId()) << asked->name << ": it is there";
  });
}

void Host::record() {
  Scene& scene = scene_;
  const auto asked = begin("record");
  asked->leaving = 15s + 100ms;
  const std::string file = numbered("r", scene.files++ % 20, ".rec");
  session::RecordOptions options;
  if (chance(2)) options.type(static_cast<session::RecordingType>(random_.below(5)));
  asked->endless = chance(3);
  if (!asked->endless) options.length(Duration(1ms) * random_.below(3000));
  const auto chosen = limits(*asked, std::nullopt);
  ++scene.recordings;
  follow(session_->record(file, options, chosen), asked, [=, &scene](const auto& result) {
    const session::Recorded* const recorded = result.achieved();
    if (recorded == nullptr) return;
    const std::string content = testing::contentOf(file);
    EXPECT_EQ(recorded->bytes, content.size()) << asked->name;
    if (!scene.undamaged(asked->began)) return;
    unsigned which = 0;
    const auto numbers = packetsIn(content, which);
    ASSERT_TRUE(numbers) << asked->name << ": not what the recorder has sent";
    EXPECT_EQ(recorded->packets, numbers->size()) << asked->name;
    const bool doubled = scene.faults->since(sim::Fault::duplicate, asked->began);
    for (std::size_t i = 1; i < numbers->size(); ++i) {
      EXPECT_LT(numbers->at(i - 1), numbers->at(i) + (doubled ? 1 : 0)) << asked->name << ": in disorder";
    }
    if (scene.linkTrouble() || numbers->empty()) return;
    EXPECT_EQ(numbers->size(), scene.microphone->made.at(which)) << asked->name << ": sound is missing";
  });
}

void Host::update() {
  Scene& scene = scene_;
  const auto asked = begin("update");
  asked->leaving = 5s + 100ms;
  const unsigned number = ++scene.files;
  static constexpr std::size_t kSizes[] = {300, 343, 8192, 8535};
  Bytes image(anyOf(kSizes), 0);
  const bool refused = chance(8);
  if (refused) image.assign({'O', 'g', 'g', 'S'});
  image.insert(image.end(), {static_cast<std::uint8_t>(number >> 8U), static_cast<std::uint8_t>(number)});
  const auto byte = static_cast<std::uint8_t>(1 + number % 250);
  for (const std::uint8_t value : {std::uint8_t{2}, byte, std::uint8_t{7}, std::uint8_t{0}})
    image.push_back(value);
  const std::string file = numbered("image", number, "");
  testing::writeFile(file, testing::text(image));
  scene.versions.insert(std::string("2.").append(std::to_string(byte)).append(".7"));
  follow(session_->update(file, limits(*asked, std::nullopt)), asked, [=, &scene](const auto& result) {
    if (result) {
      EXPECT_TRUE(scene.isHostile || scene.installed.contains(testing::text(image)))
          << asked->name << ": not there";
      EXPECT_TRUE(!scene.undamaged(asked->began) || scene.versions.contains(result->after));
    } else if (result.error().effect() == Effect::none || !scene.linkTrouble()) {
      EXPECT_EQ(scene.installed.contains(testing::text(image)), result.error().effect() != Effect::none)
          << asked->name << ": " << result.error().text();
    }
    EXPECT_FALSE(refused && result) << asked->name;
  });
}

void Host::transact() {
  const auto asked = begin("transact");
  asked->leaving = 4s;  // one of them waits
  const auto work = std::make_shared<Frames>(random_.with(random_.below(1U << 16U)), session_);
  follow(session_->transact(work, limits(*asked, std::nullopt)), asked);
}

}  // namespace kwtsdk::session_campaign
