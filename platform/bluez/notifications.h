#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include <kwtsdk/bytes.h>
#include <kwtsdk/peripheral.h>

#include "platform/bluez/loop.h"
#include "platform/posix/files.h"

namespace kwtsdk::bluez {

/// The notifications of one connection that come through descriptors of BlueZ. The answers to writes come
/// over the bus, which is slower: a notification would overtake the acknowledgement that it follows on the
/// air. So what comes while a write is under way is held until that is answered. The loop's thread.
class Notifications : public Loop::Source {
 public:
  using Target = std::shared_ptr<Characteristic>;
  struct Events {
    std::function<void(const Target&, Bytes)> onValue;
    std::function<void()> onEnd;  // BlueZ has closed a descriptor: there is no link any more
  };
  explicit Notifications(Events events) : events_(std::move(events)) {}

  void add(Target target, internal::Descriptor descriptor);

  /// Before a write is sent: tells what has come until now, and holds what comes from now on.
  void hold();

  /// After the acknowledgement of that write was told: tells what was held.
  void release();

  /// Before its failure is told: tells what has come until now. Behind that, the first word of many a lost
  /// link, the host's next command would take it for its answer.
  void fail();

  /// Forgets what has come of it until now.
  void drop(const Target& target);

  /// The link is lost: tells what has come, but for what is held.
  void finish();

  /// Closes all and forgets what is held.
  void end();

  void prepare(Wait& wait) override;
  void handle(std::span<const pollfd> polled) override;
  void starved() override { end(); }  // what comes now would seem to follow what was told before

 private:
  struct Stream {
    Target target;
    internal::Descriptor descriptor;
  };

  void tell(std::size_t most);
  void receiveAll();
  bool receive(Stream& stream);

  const Events events_;
  std::vector<Stream> streams_;
  bool isHolding_ = false;
  std::deque<std::pair<Target, Bytes>> waiting_;
};

}  // namespace kwtsdk::bluez
