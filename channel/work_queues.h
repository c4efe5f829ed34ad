#pragma once

#include <array>
#include <functional>
#include <memory>
#include <mutex>

#include <kwtsdk/scheduler.h>

#include "channel/logger.h"

namespace kwtsdk::internal {

enum class QueueId {
  getPower,
  getFirmwareVersion,
  getCapacity,
  fileNum,
  fileInfo,
  fileList,
  deleteFirst,  // shares its label with fileList, but is a queue of its own
  notifyDownload,
  download,
  record,
  await,
  send,
};
inline constexpr std::size_t kQueueCount = 12;

const char* labelOf(QueueId id);

/// One facade's serial queues, each created on first use. Any thread.
class WorkQueues {
 public:
  WorkQueues(Scheduler& scheduler, Logger log) : scheduler_(scheduler), log_(std::move(log)) {}

  /// Submits work; what it throws stops there and is logged. False, and logged, when the queue could not take
  /// it.
  bool async(QueueId id, std::function<void()> work);

 private:
  std::shared_ptr<SerialQueue> queue(QueueId id);

  Scheduler& scheduler_;
  const Logger log_;
  std::mutex mutex_;
  std::array<std::shared_ptr<SerialQueue>, kQueueCount> queues_;
};

}  // namespace kwtsdk::internal
