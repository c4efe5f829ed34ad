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
    if (!isAnswer) return recorder_.exchange({frame, characteristic, "", nullptr});
    if (auto failure = recorder_.listenTo(answersOn)) return *failure;
    return recorder_.exchange({frame, characteristic, answersOn, isAnswer});
  }

  Result<Done> pause(Duration time) override {
    if (auto failure = recorder_.pause(time)) return *failure;
    return Done{};
  }

  void progress(std::uint64_t done, std::uint64_t total) override {
    recorder_.operation().report(ProgressReport::Stage::transferring, done, total);
  }

 private:
  Conversation& recorder_;
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
