#pragma once

#include <string>
#include <vector>

#include "tests/session/session_host.h"

namespace kwtsdk::testing {

/// Each element until the stream ends.
template <class T>
std::vector<T> allOf(const session::Stream<T>& stream) {
  std::vector<T> all;
  for (auto next = stream.next().wait(); next && *next; next = stream.next().wait()) all.push_back(**next);
  return all;
}

/// An image that the recorder can be sent, and whose version is 2.<number>.7.
inline Bytes firmwareImage(std::size_t size = 3016, std::uint8_t number = 5) {
  Bytes image(size);
  for (std::size_t i = 0; i < size; ++i) image[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
  const Bytes identity{2, number, 7, 0};
  std::ranges::copy(identity, image.end() - 4);
  return image;
}

/// An operation with what it needs, as an entry of tables over all of them: started, waited for, and what it
/// says compared with what is there.
struct NamedOperation {
  const char* name;
  std::function<std::error_code(SessionScene&, const Limits&)> run;
};

inline const std::vector<NamedOperation>& everyOperation() {
  static const std::vector<NamedOperation> all{
      {"status",
       [](SessionScene& scene, const Limits& limits) {
         const auto status = scene.session->status(limits).wait();
         const ByteCounts storage(2, 16384 * 32768ULL);
         EXPECT_TRUE(!status || scene.damaged ||
                     (status->battery == 80 && status->firmware == "1.2.3" && status->storage == storage &&
                      status->recordings == 0));
         return codeOf(status);
       }},
      {"recordings",
       [](SessionScene& scene, const Limits& limits) {
         const auto first = scene.store->put(storedRecording(1));
         scene.store->put(storedRecording(2));
         const auto list = scene.session->recordings(limits).wait();
         EXPECT_TRUE(!list || scene.damaged ||
                     (list->size() == 2 && list->at(0).id == first && list->at(1).bytes == 65536));
         return codeOf(list);
       }},
      {"download",
       [](SessionScene& scene, const Limits& limits) {
         const Bytes& content = storedRecording(1);
         scene.store->put(content);
         const auto saved = scene.session->download(scene.file("saved"), {}, limits).wait();
         const Counting spares(false);
         const bool isThere = scene.store->isOnDisk(content);
         EXPECT_TRUE(saved ? isThere : !isThere || saved.error() == Errc::noResources)
             << "saved, and it is not said";
         EXPECT_TRUE(scene.store->count() == 0 || !saved || saved->deleted != Effect::done);
         return codeOf(saved);
       }},
      {"downloadAll",
       [](SessionScene& scene, const Limits& limits) {
         scene.store->put(storedRecording(1));
         scene.store->put(storedRecording(1, 2));
         const auto harvest = scene.session->downloadAll(scene.file(""), {}, limits).wait();
         EXPECT_TRUE(!harvest || harvest->saved.size() == 2 || scene.damaged);
         return codeOf(harvest);
       }},
      {"remove",
       [](SessionScene& scene, const Limits& limits) {
         const auto id = scene.store->put(storedRecording(1));
         scene.store->removed.insert(id);
         const auto removed = scene.session->remove(id, limits).wait();
         EXPECT_TRUE(removed ? scene.store->count() == 0
                             : removed.error().effect() != Effect::none || scene.store->count() == 1);
         return codeOf(removed);
       }},
      {"record",
       [](SessionScene& scene, const Limits& limits) {
         const auto recorded =
             scene.session->record(scene.file("live"), RecordOptions().length(500ms), limits).wait();
         const session::Recorded* const achieved = recorded.achieved();
         const std::string content = contentOf(scene.file("live"));
         EXPECT_EQ(content.size(), achieved ? achieved->bytes : 0);
         EXPECT_TRUE(scene.damaged || NumberedMicrophone::file(0, 1000).starts_with(content));
         return codeOf(recorded);
       }},
      {"update",
       [](SessionScene& scene, const Limits& limits) {
         writeFile(scene.file("image"), text(firmwareImage()));
         const auto installed = scene.session->update(scene.file("image"), limits).wait();
         const bool there = scene.model->installedImage() == firmwareImage();
         EXPECT_TRUE(installed ? scene.damaged || (there && installed->after == "2.5.7")
                               : installed.error().effect() != Effect::none || !there);
         EXPECT_TRUE(!installed || there || installed->after == "1.2.3");
         return codeOf(installed);
       }},
  };
  return all;
}

}  // namespace kwtsdk::testing
