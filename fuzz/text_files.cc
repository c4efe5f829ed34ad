// Files that people and other programs write: settings, device scripts, the microphone's WAV file, the
// store's folder.

#include <filesystem>
#include <new>
#include <stdexcept>

#include <kwtsdk/settings.h>
#include <kwtsdk/sim/folder_store.h>
#include <kwtsdk/sim/simulated_recorder.h>

#include "fuzz/input.h"
#include "sim/samples/microphones.h"
#include "tests/scarcity/scarcity.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::fuzz {
namespace {

namespace fs = std::filesystem;

/// What is refused has to be refused with words.
template <class Read>
void readOrRefused(Input& input, const Read& read, bool memoryFails = true) {
  const testing::Scarcity memory{.at = memoryFails && input.chance(4) ? 1U + input.byte() : 0};
  const std::string content = input.text();
  try {
    memory.begin("a file that is read");
    const testing::Counting counts;
    read(content);
  } catch (const std::runtime_error& error) {
    require(!std::string_view(error.what()).empty(), "a refusal says why");
  } catch (const std::bad_alloc&) {
    require(memory.at != 0, "memory runs out only where it was made to");
  }
}

void settings(Input& input) {
  const std::string path = testing::sharedFolder().file("settings");
  const std::string key = testing::text(input.take(input.below(12)));
  const std::uint64_t value = input.byte();
  readOrRefused(input, [&](const std::string& content) {
    testing::writeFile(path, content);
    const auto before = fileSettings(path)->read(key);
    fileSettings(path)->write(key, value);  // flushes as it goes
    const auto after = fileSettings(path);
    require(after->read(key) == value || after->read(key) == before,
            "a setting is what it was or what it became");
    after->remove(key);
    after->flush();
  });
}

void script(Input& input) {
  readOrRefused(input,
                [](const std::string& content) { static_cast<void>(sim::parseDeviceScript(content)); });
}

void microphone(Input& input) {
  readOrRefused(input, [](const std::string& content) {
    testing::writeFile(testing::sharedFolder().file("w"), content);
    const auto heard = sim::microphoneOf(testing::sharedFolder().file("w"));
    heard->start();
    for (int i = 0; i < 3; ++i) require(!heard->nextPacket().empty(), "a microphone hears something");
  });
}

/// A folder whose recording and first id are of the input.
void folder(Input& input) {
  const std::string id = testing::text(input.take(input.below(12)));
  readOrRefused(
      input,
      [&](const std::string& content) {
        const fs::path store = testing::sharedFolder().file("store");
        fs::create_directories(store / "device");
        testing::writeFile(store / "device" / "first-id", id);
        testing::writeFile(store / "a.opus", content);
        const auto opened = sim::FolderStore::open(store);
        require(opened->firstId() != 0, "0 is no recording's id");
        for (std::size_t i = 0; i < opened->count(); ++i) {
          Bytes bytes(sim::RecordingStore::kBlockSize);
          opened->read(i, 0, bytes);
          require(std::equal(content.begin(), content.begin() + std::min<long>(32768, std::ssize(content)),
                             bytes.begin(),
                             [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; }),
                  "a recording is its file");
        }
        if (opened->count() == 1) require(opened->deleteFirst() && opened->count() == 0, "it can be deleted");
        require(fs::exists(store / "device" / "first-id"), "the ids outlive it");
      },
      false);  // the standard library's folders do not survive it
}

const Target textFilesTarget("text_files", [](Input& input) {
  static constexpr void (*kKinds[])(Input&){settings, script, microphone, folder};
  kKinds[input.below(std::size(kKinds))](input);
});

}  // namespace
}  // namespace kwtsdk::fuzz
