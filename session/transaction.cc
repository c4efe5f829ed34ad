#include "session/transaction.h"

#include <exception>
#include <string>

namespace kwtsdk::session {

Work::~Work() = default;
Transaction::~Transaction() = default;

namespace detail {
namespace {

class Transacting : public Transaction {
 public:
  explicit Transacting(Conversation& recorder) : recorder_(recorder) {}

  Result<Bytes> exchange(const Bytes& frame, const std::string& characteristic, const std::string& answersOn,
                         const std::function<bool(const Bytes&)>& isAnswer) override {
    if (isInside_) return insideFailure();
    const Inside inside(isInside_);
    // After an answer that stayed away: it must not become this one's.
    if (recorder_.isLinkDistrusted()) {
      if (auto failure = recorder_.ready()) return *failure;
    }
    if (!isAnswer) return recorder_.exchange({frame, characteristic, "", nullptr});
    if (auto failure = recorder_.listenTo(answersOn)) return *failure;
    try {
      return recorder_.exchange({frame, characteristic, answersOn, isAnswer});
    } catch (...) {
      recorder_.distrustLink();  // the work may catch it and go on
      throw;
    }
  }

  Result<Done> pause(Duration time) override {
    if (isInside_) return insideFailure();
    const Inside inside(isInside_);
    if (auto failure = recorder_.pause(time)) return *failure;
    return Done{};
  }

  void progress(std::uint64_t done, std::uint64_t total) override {
    recorder_.operation().report(ProgressReport::Stage::transferring, done, total);
  }

 private:
  /// While it is in one of its members, a predicate of the host's may be asked, and call it.
  class Inside {
   public:
    explicit Inside(bool& mark) : mark_(mark) { mark_ = true; }
    ~Inside() { mark_ = false; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

   private:
    bool& mark_;
  };

  static Failure insideFailure() {
    return {Errc::badArgument, "an exchange's isAnswer asked the recorder something itself"};
  }

  Conversation& recorder_;
  bool isInside_ = false;
};

}  // namespace

Result<Done> transact(Conversation& recorder, Work& work) {
  const auto ready = recorder.persist([]() -> Result<Done> { return Done{}; });
  if (!ready) return ready.error();
  Transacting transaction(recorder);
  const auto threw = [&recorder](const char* what) {
    recorder.distrustLink();
    return Failure(Errc::badArgument, std::string("the host's work threw (") + what + ")", Effect::unknown);
  };
  try {
    return work.run(transaction);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& exception) {
    return threw(exception.what());
  } catch (...) {
    return threw("something that is no std::exception");
  }
}

}  // namespace detail
}  // namespace kwtsdk::session
