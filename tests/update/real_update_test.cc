// Updates on real threads, with both processors loaded: nothing here waits for the clock but the library.

#include <gtest/gtest.h>

#include <cstdlib>
#include <future>

#include <kwtsdk/kwtsdk.h>
#include <kwtsdk/sim/memory_store.h>
#include <kwtsdk/sim/simulated_link.h>

#include "tests/support/noted_settings.h"
#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk {
namespace {

/// A recorder, a facade and a host that installs one image after the other.
class Installer {
 public:
  Installer(const std::string& path, int updates) : path_(path), left_(updates) {
    link_->attach(helper_);
    next();
  }

  /// How many updates failed, and why the first did.
  std::pair<int, std::string> result() { return result_.get_future().get(); }
  Bytes installed() const { return model_->installedImage().value_or(Bytes{}); }

 private:
  void next() {
    if (left_-- == 0) return result_.set_value({failed_, failure_});
    helper_->updateFirmware(path_, nullptr, [this](const MaybeError& error, const auto& value) {
      if (value != "success") ++failed_;
      if (error && failure_.empty()) failure_ = error->localizedDescription();
      next();
    });
  }

  const std::string path_;
  int left_, failed_ = 0;
  std::string failure_;
  std::promise<std::pair<int, std::string>> result_;
  const std::shared_ptr<sim::RecorderModel> model_ =
      std::make_shared<sim::RecorderModel>(std::make_shared<sim::MemoryStore>());
  const std::shared_ptr<sim::SimulatedLink> link_ = sim::SimulatedLink::create(threadScheduler(), model_);
  const std::shared_ptr<KWTBluetoothHelper> helper_ =
      KWTBluetoothHelper::create({.scheduler = nullptr,
                                  .settings = std::make_shared<testing::NotedSettings>(),
                                  .opusConverter = nullptr,
                                  .log = std::make_shared<testing::LineLog>()});
};

// KWTSDK_UPDATES asks for more of them. Four recorders keep more threads busy than there are processors.
TEST(RealUpdate, NoneFailsAndNoneLosesAPacket) {
  const char* const asked = std::getenv("KWTSDK_UPDATES");
  const int updates = asked == nullptr ? 20 : std::atoi(asked);
  const testing::TemporaryFolder folder;
  const Bytes image = testing::recordingOf(65536);
  testing::writeFile(folder.file("image"), std::string(image.begin(), image.end()));
  std::vector<std::unique_ptr<Installer>> installers;
  for (int i = 0; i < 4; ++i) {
    installers.push_back(std::make_unique<Installer>(folder.file("image"), (updates + i) / 4));
  }
  for (const auto& installer : installers) {
    EXPECT_EQ(installer->result(), std::pair(0, std::string()));
    EXPECT_TRUE(installer->installed() == image);
  }
}

}  // namespace
}  // namespace kwtsdk
