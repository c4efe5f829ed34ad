#include <kwtsdk/sim/recording_store.h>

namespace kwtsdk::sim {

RecordingStore::~RecordingStore() = default;

}  // namespace kwtsdk::sim
