#include "channel/work_queues.h"

#include <utility>

#include "channel/host_call.h"

namespace kwtsdk::internal {

const char* labelOf(QueueId id) {
  static constexpr std::array<const char*, kQueueCount> kLabels{
      "com.kwt.sdk.getpower",
      "com.kwt.sdk.getFirmwareVersion",
      "com.kwt.sdk.getCapacity",
      "com.kwt.getflashlist.filenum",
      "com.kwt.getFileInfo",
      "com.kwt.getflashlist",
      "com.kwt.getflashlist",
      "com.kwt.notifyDownloadSuccess",
      "com.kwt.getflashlist.download",
      "com.kwt.sdk.record",
      "com.kwt.await",
      "com.kwt.sdk.send",
  };
  return kLabels.at(static_cast<std::size_t>(id));
}

bool WorkQueues::async(QueueId id, std::function<void()> work) {
  return guardedCall(log_, labelOf(id), [&] {
    queue(id)->async([log = log_, id, work = std::move(work)] { guardedCall(log, labelOf(id), work); });
  });
}

std::shared_ptr<SerialQueue> WorkQueues::queue(QueueId id) {
  const std::lock_guard lock(mutex_);
  auto& queue = queues_.at(static_cast<std::size_t>(id));
  if (!queue) queue = scheduler_.serialQueue(labelOf(id));
  return queue;
}

}  // namespace kwtsdk::internal
