#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include <kwtsdk/callbacks.h>

namespace kwtsdk::internal {

/// Holds one callback that several threads store, deliver to and clear. Each callback stored gets a
/// generation, and a delivery clears only up to the generation it delivered to: what was stored meanwhile
/// survives. The mutex is a leaf: no callback is called or destroyed under it.
class CallbackSlot {
 public:
  using Generation = std::uint64_t;

  struct Entry {
    Entry(ReplyHandler stored, Generation number) : callback(std::move(stored)), generation(number) {}

    /// True for the first caller only: a command completes once, whoever completes it.
    bool claim() { return !claimed.exchange(true); }

    const ReplyHandler callback;
    const Generation generation;
    std::atomic<bool> claimed{false};
  };

  /// Null when empty.
  std::shared_ptr<Entry> current() const;
  bool occupied() const { return current() != nullptr; }

  /// A copy of the callback; empty when there is none.
  ReplyHandler callback() const;

  /// Of the callback stored last, whether or not it is still there.
  Generation generation() const;

  /// Replaces whatever is there; an empty callback clears. Returns what is stored now, null for an empty
  /// callback.
  std::shared_ptr<Entry> set(ReplyHandler callback);
  void clear() { clearUpTo(~Generation{0}); }
  void clearUpTo(Generation generation);

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<Entry> entry_;
  Generation generation_ = 0;
};

}  // namespace kwtsdk::internal
