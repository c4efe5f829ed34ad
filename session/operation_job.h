#pragma once

#include <functional>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "session/worker.h"

namespace kwtsdk::session::detail {

/// An operation that is one function from its beginning to its end.
template <class T>
class OperationJob : public Job {
 public:
  using Body = std::function<Result<T>(Conversation&)>;

  OperationJob(const std::shared_ptr<Worker>& worker, std::shared_ptr<Outcome<T>> outcome, Limits limits,
               Body body)
      : Job(Worker::sharedStateOf(*outcome), std::move(limits)),
        worker_(worker),
        outcome_(std::move(outcome)),
        body_(std::move(body)) {}

  void run(Conversation& recorder) override { conclude(body_(recorder)); }
  void fail(const Failure& failure) noexcept override {
    try {
      conclude(failure);
    } catch (const std::bad_alloc&) {
      conclude(Failure(failure.code(), "", failure.effect()));
    }
  }

 protected:
  void conclude(Result<T> result) {
    if (const auto worker = worker_.lock()) {
      worker->conclude(*outcome_, std::move(result));
    } else {
      Worker::end(*outcome_, std::move(result));
    }
  }

 private:
  const std::weak_ptr<Worker> worker_;
  const std::shared_ptr<Outcome<T>> outcome_;
  const Body body_;
};

/// Questions whose answers make up one value.
template <class T>
struct Query {
  struct Step {
    Request request;
    std::function<void(const Bytes&, T&)> take;
  };
  std::vector<Step> steps;
};

template <class T>
class QueryJob : public OperationJob<T>, public LetIn {
 public:
  QueryJob(const std::shared_ptr<Worker>& worker, std::shared_ptr<Outcome<T>> outcome, Limits limits,
           Query<T> query)
      : OperationJob<T>(worker, std::move(outcome), std::move(limits), nullptr), query_(std::move(query)) {}

  void run(Conversation& recorder) override { this->conclude(ask(recorder)); }
  LetIn* letIn() override { return this; }

  const Request* next() const override {
    return step_ < query_.steps.size() ? &query_.steps[step_].request : nullptr;
  }
  void take(const Bytes& answer) override {
    query_.steps[step_].take(answer, value_);
    ++step_;  // only now: without memory for the answer it is asked again
  }
  void succeed() override { this->conclude(value_); }

 private:
  Result<T> ask(Conversation& recorder) {
    // What has been answered stays so over a link that is made again.
    return recorder.persist([&]() -> Result<T> {
      recorder.operation().report(ProgressReport::Stage::asking);
      while (const Request* const request = next()) {
        const auto answer = recorder.exchange(*request);
        if (!answer) return answer.error();
        take(*answer);
      }
      return value_;
    });
  }

  const Query<T> query_;
  std::size_t step_ = 0;
  T value_{};
};

}  // namespace kwtsdk::session::detail
