#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <kwtsdk/kwtsdk.h>
#include <kwtsdk/session/errc.h>
#include <kwtsdk/session/events.h>
#include <kwtsdk/session/limits.h>
#include <kwtsdk/session/link.h>
#include <kwtsdk/session/operation.h>
#include <kwtsdk/session/progress.h>
#include <kwtsdk/session/result.h>

namespace kwtsdk::session {

struct Status {
  std::uint64_t battery = 0;     // the recorder's number
  std::string firmware;          // "1.2.3"
  ByteCounts storage;            // two, in the recorder's order, which is not named
  std::uint64_t recordings = 0;  // how many
};

struct Saved {
  RecordingInfo recording;
  std::filesystem::path file;
  std::uint64_t resumedAt = 0;    // bytes that were there; all of them: the file was
  bool checked = false;           // every Ogg page's CRC; false: it is no Ogg, in two downloads alike
  Effect deleted = Effect::none;  // the recorder's copy, by its own answer; unknown: it did not answer
  Duration took{0};
  std::optional<Failure> notDeleted{};  // why `deleted` is not done, unless it was to be kept
};

struct Harvest {
  std::vector<Saved> saved;
  std::vector<RecordingInfo> left;  // on the recorder, and not saved
};

struct Recorded {
  std::filesystem::path file;  // 50 01, length, Opus packet, and so on: opus::convert makes WAV or MP3 of it
  RecordingEnd end = RecordingEnd::stopped;
  std::uint64_t bytes = 0, packets = 0;  // in the file
  Duration length{0};                    // of the sound that arrived
};

struct Installed {
  std::string before, after;  // versions; "" after: not told
  std::uint64_t bytes = 0;
  Duration took{0};
};

class DownloadOptions {
 public:
  DownloadOptions() = default;

  /// The recorder keeps its copy. Then only the first recording can be had: it gives out no other. To
  /// downloadAll that is a success, and the others are in Harvest::left.
  DownloadOptions& keep(bool on = true) & { return keep_ = on, *this; }
  DownloadOptions&& keep(bool on = true) && { return std::move(keep(on)); }

  /// File names in downloadAll's folder: strftime's conversions of the creation time, on the recorder's
  /// clock, and {id}. Without a creation time the word "undated" stands for it. Names that are alike end in
  /// Errc::fileUnusable for the second recording.
  DownloadOptions& name(std::string pattern) & { return name_ = std::move(pattern), *this; }
  DownloadOptions&& name(std::string pattern) && { return std::move(name(std::move(pattern))); }

  bool keep() const { return keep_; }
  const std::string& name() const { return name_; }

 private:
  bool keep_ = false;
  std::string name_ = "%Y%m%d-%H%M%S-{id}.opus";
};

class RecordOptions {
 public:
  RecordOptions() = default;
  RecordOptions& type(RecordingType which) & { return type_ = which, *this; }
  RecordOptions&& type(RecordingType which) && { return static_cast<RecordOptions&&>(type(which)); }
  /// None: until something else ends it.
  RecordOptions& length(Duration longest) & { return length_ = longest, *this; }
  RecordOptions&& length(Duration longest) && { return static_cast<RecordOptions&&>(length(longest)); }
  RecordingType type() const { return type_; }
  const std::optional<Duration>& length() const { return length_; }

 private:
  RecordingType type_ = RecordingType::normal;
  std::optional<Duration> length_;
};

/// Runs what it is given soon, in order, one at a time, not inside the call: a GUI's loop, an asio strand. It
/// gets one callback at a time, the next when that has run, and is called on any thread. What it drops is
/// logged, and nothing waits for it.
using Executor = std::function<void(std::function<void()>)>;

class Options {
 public:
  Options() = default;
  Options& platform(Platform given) & { return platform_ = std::move(given), *this; }
  Options&& platform(Platform given) && { return std::move(platform(std::move(given))); }
  /// Empty: a thread of the Session's own.
  Options& executor(Executor given) & { return executor_ = std::move(given), *this; }
  Options&& executor(Executor given) && { return std::move(executor(std::move(given))); }
  /// How long an idle link is kept; none: until close(). 0: each operation makes its own.
  Options& keepLink(std::optional<Duration> idle) & { return keepLink_ = idle, *this; }
  Options&& keepLink(std::optional<Duration> idle) && { return std::move(keepLink(idle)); }
  const Platform& platform() const { return platform_; }
  const Executor& executor() const { return executor_; }
  const std::optional<Duration>& keepLink() const { return keepLink_; }

 private:
  Platform platform_;
  Executor executor_;
  std::optional<Duration> keepLink_ = std::chrono::seconds(30);
};

class Transaction;

/// Frames of a host's own, as one operation. A class, not a closure, which GCC 12 destroys twice where it is
/// a temporary in an expression with co_await: for the same reason no operation takes a callable, and options
/// are classes with constructors.
class KWTSDK_EXPORT Work {
 public:
  virtual ~Work();
  virtual std::string name() const = 0;

  /// On the worker: of this Session nothing can be waited for here but what `recorder` offers. An exception
  /// ends it with Errc::badArgument and an unknown effect.
  virtual Result<Done> run(Transaction& recorder) = 0;
};

/// One recorder. Every member may be called on any thread, returns at once and throws nothing but
/// std::bad_alloc; operations are carried out one after the other in the order asked, except that a status
/// query and stopRecording() are let in while a live recording runs. The link is made when the first
/// operation needs it, and again when it is lost. Owns the link: nothing else may use it meanwhile.
///
/// Every operation that needs the recorder can end with cancelled, closed, timedOut, stalled, linkLost,
/// linkFailed, notARecorder, packetsTooSmall and noResources; what else each can end with stands at it. The
/// effect is none unless something is said of it.
///
/// Threads: "kwt.session", the worker, which alone talks to the recorder, and "kwt.session.callbacks" unless
/// an executor was given. The worker's thread runs from create() on: libstdc++ 12 never wakes the destructor
/// of a std::stop_callback on another thread when the stop was requested while there was only one.
class KWTSDK_EXPORT Session {
 public:
  /// Contacts nobody yet. Where no thread can be had, operations end with Errc::noResources.
  static std::shared_ptr<Session> create(std::shared_ptr<Link> link, const Options& options = {});

  /// close(), then waits until the worker has left the recorder in order and all callbacks have run: as long
  /// as a cancellation and a callback take. In a callback it waits for nothing. Callbacks that the host's
  /// executor does not begin, its loop may have ended, are run by this: at once on the executor's own thread,
  /// otherwise after 1 to 5 s.
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Ends every operation with `closed`, as cancelling does, and every stream. What is asked afterwards ends
  /// so at once. Returns at once.
  void close();

  /// Makes the link. Optional: every operation does so by itself.
  Operation<Done> connect(const Limits& limits = {});

  /// Ends it; the next operation makes it again.
  Operation<Done> disconnect();

  // Status, one exchange each and status() four; also while a live recording runs. One that stays without an
  // answer there keeps those behind it waiting until the recording has ended.
  Operation<std::uint64_t> battery(const Limits& limits = {});
  Operation<std::string> firmware(const Limits& limits = {});
  Operation<ByteCounts> storage(const Limits& limits = {});
  Operation<Status> status(const Limits& limits = {});

  /// Recordings on the recorder, oldest first, by one exchange and one for each.
  Operation<std::vector<RecordingInfo>> recordings(const Limits& limits = {});

  /// Saves the first recording, which has to be `expected` if that is given. Written as FILE.part, with
  /// FILE.part.id beside it that says of which recording it is; what is there of an earlier attempt is
  /// continued from its last Ogg page that checks. When all of it is there, has been checked and is on the
  /// disk, the file gets its name and its time, and only then the recorder deletes its copy. Over lost links,
  /// stalls and damage it goes on by itself, as often as limits.reconnects() says. What is no Ogg is
  /// downloaded twice and accepted when both are alike.
  ///
  /// FILE itself is never written over. One that is there counts as saved when it has the size, checks, and
  /// its last page is the recorder's; otherwise fileUnusable. That the recorder did not delete its copy is no
  /// failure: Saved::deleted and notDeleted tell. Cancelled, closed or out of time in that moment: a failure
  /// whose partial() is what was saved. Errors: storeEmpty, notFirst, noSuchRecording, incomplete, damaged,
  /// fileUnusable.
  Operation<Saved> download(const std::filesystem::path& file, const DownloadOptions& options = {},
                            const Limits& limits = {}, std::optional<std::uint32_t> expected = std::nullopt);

  /// All of them into a folder, which has to exist, and those that are made meanwhile; an empty store is a
  /// success. Each as download() does. Ends when the recorder keeps one that was saved, since it gives out
  /// none behind it. A failure's partial() has those that were saved. Errors: those of download() but
  /// storeEmpty, of remove(), and badArgument for a pattern of names that is none.
  Operation<Harvest> downloadAll(const std::filesystem::path& folder, const DownloadOptions& options = {},
                                 const Limits& limits = {});

  /// Deletes the first recording, which has to have this id. `unknown` effect: look before asking again.
  /// Errors: storeEmpty, notFirst, noSuchRecording, recordingInUse; refused for an answer that is not known,
  /// whose effect is `unknown` too.
  Operation<Done> remove(std::uint32_t id, const Limits& limits = {});

  /// Records live into a file, which must not exist or be empty, until the length is over, stopRecording(),
  /// the recorder's key or a call ends it: all good ends, after which the file is on the disk. Cancelled, or
  /// the link lost: a failure whose partial() tells what is in the file. Where nothing came there is no file.
  /// Effect `unknown`: it may be recording still. Errors: inCall, notInCall, fileUnusable; refused when it
  /// was recording already, which the start then ended (effect `done`).
  Operation<Recorded> record(const std::filesystem::path& file, const RecordOptions& options = {},
                             const Limits& limits = {});

  /// Ends with the recording that runs, or that is the first in the queue and then ends as soon as it has
  /// begun. None: a success that sends nothing, since a stop would start a recorder that does not record. Not
  /// in the queue, so it never waits behind other operations.
  Operation<Done> stopRecording();

  /// Installs a firmware image: looks at it first, follows each step, asks the version afterwards, and makes
  /// the link again if the recorder restarts, for at most 30 s. Over a lost link, or when a part arrived
  /// damaged, it begins anew, as often as limits.reconnects() says. Until the recorder has accepted the whole
  /// image every failure has the effect none, and the recorder keeps its firmware. After that it cannot be
  /// cancelled any more: it ends in at most 5 s, and its failure has the effect done or unknown and
  /// partial(). Errors: fileUnusable, imageRefused, refused, damaged.
  Operation<Installed> update(const std::filesystem::path& image, const Limits& limits = {});

  /// For frames of the host's own: runs `work` with the recorder to itself, once; over a lost link nothing is
  /// repeated. Its result is work's; badArgument: there is none, or it threw.
  Operation<Done> transact(std::shared_ptr<Work> work, const Limits& limits = {});

  // Streams begin with what happens next; each reader has its own. The capacity counts elements.
  Stream<Event> events(std::size_t capacity = 256);
  Stream<AudioPacket> audio(std::size_t capacity = 500);  // of live recordings; 10 s

  /// What is known without asking anybody. Waits for nothing.
  struct Snapshot {
    LinkState link = LinkState::closed;
    std::size_t queued = 0;                // operations, without the one that runs
    std::string running;                   // its name; "" for none
    std::optional<std::uint64_t> battery;  // last seen
    std::string firmware;
  };
  Snapshot snapshot() const;

  struct Core;

 private:
  explicit Session(std::shared_ptr<Core> core);
  std::shared_ptr<Core> core_;
};

/// What Work may do; every wait in it is bounded by the operation's limits. On the worker, inside
/// Work::run() alone.
class KWTSDK_EXPORT Transaction {
 public:
  virtual ~Transaction();

  /// Writes a frame and gives the first notification that `isAnswer` accepts, behind the write's
  /// acknowledgement; an empty one: the acknowledgement is all. Characteristics by UUID; that of the answer
  /// is subscribed to. Other notifications are events. badArgument: the recorder has no such characteristic.
  virtual Result<Bytes> exchange(const Bytes& frame, const std::string& characteristic,
                                 const std::string& answersOn,
                                 const std::function<bool(const Bytes&)>& isAnswer) = 0;
  virtual Result<Done> pause(Duration time) = 0;  // ends early when the operation has to
  virtual void progress(std::uint64_t done, std::uint64_t total) = 0;
};

}  // namespace kwtsdk::session
