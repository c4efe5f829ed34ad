#include <kwtsdk/bluez/scanner.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "platform/bluez/client.h"

namespace kwtsdk::bluez {
namespace {

bool passes(const FoundDevice& device, const ScanFilter& filter) {
  const auto wanted = [&](const Uuid& service) {
    return std::ranges::find(filter.services, service) != filter.services.end();
  };
  return filter.services.empty() || std::ranges::any_of(device.services, wanted);
}

/// In the place of what was known of it.
void note(FoundDevice device, std::vector<FoundDevice>& found) {
  const auto known = std::ranges::find(found, device.address, &FoundDevice::address);
  if (known == found.end()) {
    found.push_back(std::move(device));
  } else {
    *known = std::move(device);
  }
}

}  // namespace

class Scanner::Impl {
 public:
  Impl(std::shared_ptr<Scheduler> scheduler, std::string adapter)
      : scheduler_(std::move(scheduler)), adapter_(std::move(adapter)) {}

  /// Throws BluezError, after it has put there what was found.
  void listen(Duration time, const ScanFilter& filter, std::vector<FoundDevice>& found);
  void finish();
  void stop();

 private:
  void announce(const std::shared_ptr<Client>& client);

  const std::shared_ptr<Scheduler> scheduler_;
  const std::string adapter_;
  internal::Mutex mutex_;
  std::shared_ptr<Client> client_ KWT_GUARDED_BY(mutex_);  // of a scan that runs
  bool stopped_ KWT_GUARDED_BY(mutex_) = false;
};

void Scanner::Impl::listen(Duration time, const ScanFilter& filter, std::vector<FoundDevice>& found) {
  if (time < Duration::zero()) throw BluezError(Problem::badArgument, "a scan of less than no time");
  Loop loop(scheduler_, "kwt.bluez.scan");
  const auto client = Client::open(scheduler_, loop, {}, {[](auto&&, auto&&) {}, [] {}});
  announce(client);
  client->await(client->askForObjects());
  const std::string adapter =
      client->look([&](const Objects& objects) { return objects.usableAdapter(adapter_); });
  const Discovery discovery(*client, adapter);
  const auto collect = [&](const Objects& objects) {
    for (auto& device : objects.heardBy(adapter)) {
      if (passes(device, filter)) note(std::move(device), found);
    }
  };
  client->waitFor(
      [&](const Objects& objects) {
        collect(objects);
        objects.expectPower(adapter);
        return false;
      },
      time);
  client->look(collect);
}

void Scanner::Impl::announce(const std::shared_ptr<Client>& client) {
  const internal::MutexLock lock(mutex_);
  client_ = client;
  if (std::exchange(stopped_, false)) client->cancel();
}

void Scanner::Impl::finish() {
  std::shared_ptr<Client> client;  // outlives the lock
  const internal::MutexLock lock(mutex_);
  client = std::exchange(client_, nullptr);
}

void Scanner::Impl::stop() {
  const internal::MutexLock lock(mutex_);
  stopped_ = client_ == nullptr;
  if (client_) client_->cancel();
}

std::shared_ptr<Scanner> Scanner::create(std::shared_ptr<Scheduler> scheduler, std::string adapter) {
  return std::shared_ptr<Scanner>(
      new Scanner(std::make_unique<Impl>(std::move(scheduler), std::move(adapter))));
}

Scanner::Scanner(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Scanner::~Scanner() = default;

ScanResult Scanner::scan(Duration time, const ScanFilter& filter) {
  ScanResult result;
  result.error = attempted([&] { impl_->listen(time, filter, result.devices); });
  impl_->finish();
  if (result.error && isProblem(*result.error, Problem::cancelled)) result.error.reset();  // a stop is none
  std::ranges::sort(result.devices, std::greater<>(), &FoundDevice::signal);
  return result;
}

void Scanner::stop() { impl_->stop(); }

}  // namespace kwtsdk::bluez
