#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <kwtsdk/session/session.h>
#include <kwtsdk/uuid.h>

#include "platform/posix/host_call.h"
#include "platform/threads/mutex.h"
#include "session/inbox.h"

namespace kwtsdk::session::detail {

/// What went wrong, unless nothing did.
using MaybeFailure = std::optional<Failure>;

/// The link as the worker sees it: made, subscribed to, lost, ended. What it tells goes into the inbox. One
/// thread, unless said otherwise.
class Connection {
 public:
  using OnChange = std::function<void(LinkState, const MaybeError&)>;

  Connection(std::shared_ptr<Link> link, std::shared_ptr<Inbox> inbox, internal::Logger log,
             OnChange onChange);

  /// Makes it and subscribes to the three channels; blocks as long as the link does. `wanted` is asked when
  /// interruptOpening() has an effect already; what comes before the link itself has begun is lost on it, so
  /// whoever wants the end says so until isOpening() has ended.
  MaybeFailure open(const std::function<bool()>& wanted);

  /// Returns at once.
  void close();

  bool isOpen() const { return isOpen_; }

  /// Takes the sign of a lost link. False: it means an earlier one, which it may come too late for.
  bool noteLoss();

  using Found = std::shared_ptr<Characteristic>;

  /// Null when the recorder has none of that UUID.
  Found find(std::string_view uuid);

  /// Nothing happens where it is subscribed to already.
  MaybeFailure subscribe(const Found& to);
  MaybeFailure write(const Bytes& frame, const Found& to);

  /// The most bytes that one write with response carries.
  std::size_t longestWrite() const;

  // ---- Any thread ----

  bool isOpening() const { return isOpening_; }
  void interruptOpening();

  LinkState state() const { return state_; }

 private:
  MaybeFailure follow();
  MaybeFailure make(const std::function<bool()>& wanted);
  MaybeFailure callOpen();
  void callClose();
  void lose();
  MaybeFailure findChannels();
  MaybeFailure checkPacketSize() const;
  void change(LinkState state, const MaybeError& error = std::nullopt);
  MaybeFailure guarded(const char* what, const std::function<void()>& call);

  const std::shared_ptr<Link> link_;
  const std::shared_ptr<Inbox> inbox_;
  const internal::Logger log_;
  const OnChange onChange_;
  std::atomic<bool> isOpening_{false}, isInterrupted_{false};
  std::atomic<LinkState> state_{LinkState::closed};
  bool isOpen_ = false, isFollowed_ = false;
  unsigned endsToCome_ = 0;  // of earlier connections; more than one where each operation makes its own
  std::shared_ptr<Peripheral> peripheral_;
  std::vector<std::pair<Uuid, Found>> found_;
  std::map<std::string, Found, std::less<>> byText_;  // of found_, as it was asked for
  std::set<Found> subscribed_;
};

}  // namespace kwtsdk::session::detail
