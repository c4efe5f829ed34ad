// What a host of the campaign asks for, and what it looks at in the result.

#include <stdexcept>

#include "tests/session_campaign/host.h"

namespace kwtsdk::session_campaign {

namespace {

/// A value is one that the recorder had at some moment since it was asked.
struct Right {
  Scene& scene;
  AskedPtr asked;

  void operator()(std::uint64_t level) const {
    EXPECT_TRUE(!undamaged() || scene.hadLevel(level, asked->began)) << asked->name << ": " << level;
  }
  void operator()(const std::string& version) const {
    EXPECT_TRUE(!undamaged() || scene.versions.contains(version)) << asked->name << ": " << version;
  }
  void operator()(const ByteCounts& bytes) const {
    EXPECT_TRUE(!undamaged() || (bytes.at(0) == 16384 * 32768ULL && bytes.at(1) <= bytes.at(0)))
        << asked->name;
  }
  void operator()(const session::Status& status) const {
    (*this)(status.battery);
    (*this)(status.firmware);
    (*this)(status.storage);
  }
  template <class T>
  void operator()(const Result<T>& result) const {
    if (result) (*this)(*result);
  }

 private:
  bool undamaged() const { return scene.undamaged(asked->began); }
};

/// The numbers of the packets in a live recording's file, whose head is that of one.
std::vector<unsigned> packetsIn(const std::string& content, unsigned& recording) {
  std::vector<unsigned> numbers;
  constexpr std::size_t size = 8;
  EXPECT_EQ(content.size() % size, 0U);
  for (std::size_t at = 0; at + size <= content.size(); at += size) {
    EXPECT_EQ(content.compare(at, 4, std::string("P\1\4\0", 4)), 0) << "not what the recorder has sent";
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
  const auto asked = begin("query");
  const Limits chosen = limits(*asked, kQueryLimit);
  const Right right{scene_, asked};
  switch (random_.below(6)) {
    case 0:
      return follow(session_->firmware(chosen), asked, right);
    case 1:
      return follow(session_->storage(chosen), asked, right);
    case 2:
      return follow(session_->status(chosen), asked, right);
    default:
      return follow(session_->battery(chosen), asked, right);
  }
}

void Host::download() {
  const auto asked = begin("download");
  const std::string file = numbered("d", random_.below(4), ".opus");
  const bool keep = chance(4);
  std::optional<std::uint32_t> expected;
  if (chance(4)) expected = scene_.store->firstId() + static_cast<std::uint32_t>(random_.below(2));
  const auto chosen = limits(*asked, std::nullopt);
  const auto check = [asked, keep, expected, &scene = scene_](const Result<session::Saved>& result) {
    EXPECT_TRUE(result || result.error().effect() != Effect::done) << asked->name;
    if (!result) return;
    const auto held = scene.store->held.find(result->recording.id);
    if (held == scene.store->held.end()) {
      EXPECT_FALSE(scene.undamaged(Duration(0))) << asked->name << ": of no recording";
      return;
    }
    EXPECT_TRUE(testing::contentOf(result->file.string()) == testing::text(held->second.content))
        << asked->name << ": not the recording";
    EXPECT_EQ(expected.value_or(result->recording.id), result->recording.id) << asked->name;
    const bool isDeleted = result->deleted == Effect::done;
    EXPECT_TRUE(!isDeleted || result->recording.id < scene.store->firstId())
        << asked->name << ": it is there";
    EXPECT_TRUE(isDeleted != keep || (!isDeleted && result->notDeleted))
        << asked->name << ": not deleted, and nobody knows why, or deleted and to be kept";
  };
  follow(session_->download(file, session::DownloadOptions().keep(keep), chosen, expected), asked, check);
}

void Host::record() {
  const auto asked = begin("record");
  asked->leaving = 15s + 100ms;
  const std::string file = numbered("r", scene_.files++ % 20, ".rec");
  session::RecordOptions options;
  if (chance(2)) options.type(static_cast<session::RecordingType>(random_.below(5)));
  asked->endless = chance(3);
  if (!asked->endless) options.length(Duration(1ms) * random_.below(3000));
  const auto chosen = limits(*asked, std::nullopt);
  const auto check = [asked, file, &scene = scene_](const Result<session::Recorded>& result) {
    const session::Recorded* const recorded = result.achieved();
    if (recorded == nullptr) return;
    const std::string content = testing::contentOf(file);
    EXPECT_EQ(recorded->bytes, content.size()) << asked->name;
    if (!scene.undamaged(asked->began)) return;
    unsigned which = 0;
    const auto numbers = packetsIn(content, which);
    EXPECT_EQ(recorded->packets, numbers.size()) << asked->name;
    const bool doubled = scene.faults->since(sim::Fault::duplicate, asked->began);
    for (std::size_t i = 1; i < numbers.size(); ++i)
      EXPECT_LT(numbers.at(i - 1), numbers.at(i) + (doubled ? 1 : 0)) << asked->name << ": in disorder";
    if (scene.faults->any() || scene.cut || numbers.empty()) return;
    EXPECT_EQ(numbers.size(), scene.microphone->made.at(which)) << asked->name << ": sound is missing";
  };
  follow(session_->record(file, options, chosen), asked, check);
}

void Host::update() {
  const auto asked = begin("update");
  asked->leaving = 5s + 100ms;
  const unsigned number = ++scene_.files;
  static constexpr std::size_t kSizes[] = {300, 343, 8192, 8535};
  Bytes image(anyOf(kSizes), 0);
  const bool refused = chance(8);
  if (refused) image.assign({'O', 'g', 'g', 'S'});
  const auto byte = static_cast<std::uint8_t>(1 + number % 250);
  for (const unsigned value : {number >> 8U, number, 2U, unsigned{byte}, 7U, 0U})
    image.push_back(static_cast<std::uint8_t>(value));
  const std::string file = numbered("image", number, ""), content = testing::text(image);
  testing::writeFile(file, content);
  scene_.versions.insert(std::string("2.").append(std::to_string(byte)).append(".7"));
  const auto check = [asked, content, refused, &scene = scene_](const Result<session::Installed>& result) {
    const bool isThere = scene.installed.contains(content);
    EXPECT_TRUE(result ? isThere : result.error().effect() != Effect::none || !isThere) << asked->name;
    EXPECT_TRUE(!result || !scene.undamaged(asked->began) || scene.versions.contains(result->after));
    EXPECT_FALSE(refused && result) << asked->name;
  };
  follow(session_->update(file, limits(*asked, std::nullopt)), asked, check);
}

/// Exchanges, pauses, exceptions, and waits that cannot end well.
void Host::transact() {
  const auto asked = begin("transact");
  asked->leaving = 4s;  // one of them waits
  const auto body = [random = Random(random_.next()), within = std::weak_ptr(session_)](
                        session::Transaction& recorder) mutable -> Result<session::Done> {
    for (std::uint64_t i = 0, count = random.below(4); i < count; ++i) {
      const auto answer =
          testing::levelOf(recorder, [](const Bytes& value) { return value.size() == 32 && value[20] == 3; });
      if (!answer) return answer.error();
      recorder.progress(i, count);
      if (const auto paused = recorder.pause(Duration(1ms) * random.below(3000)); !paused) return paused;
    }
    if (random.below(8) == 0) throw std::runtime_error("of the host's own");
    const auto session = random.below(8) == 0 ? within.lock() : nullptr;
    if (session) static_cast<void>(session->battery(Limits().timeout(3s)).wait());
    return session::Done();
  };
  const auto work = std::make_shared<testing::Frames>(body);
  follow(session_->transact(work, limits(*asked, std::nullopt)), asked);
}

}  // namespace kwtsdk::session_campaign
