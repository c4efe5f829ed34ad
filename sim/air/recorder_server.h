#pragma once

#include <memory>
#include <optional>
#include <string>

#include <kwtsdk/scheduler.h>
#include <kwtsdk/sim/simulated_recorder.h>

#include "sim/air/att_session.h"
#include "sim/air/controller.h"
#include "sim/air/l2cap_socket.h"
#include "sim/air/management_socket.h"

namespace kwtsdk::sim {

/// Serves a recorder at a Bluetooth controller to one central after the other, on the calling thread.
class RecorderServer {
 public:
  /// Begins to advertise. Throws std::runtime_error whose text says what to do, as run() does.
  RecorderServer(const std::shared_ptr<Scheduler>& scheduler, SimulatedRecorder recorder,
                 const std::string& adapter, std::string name);
  ~RecorderServer();
  RecorderServer(const RecorderServer&) = delete;
  RecorderServer& operator=(const RecorderServer&) = delete;

  const Controller& controller() const { return controller_; }

  /// Returns when `stop` becomes readable.
  void run(int stop);

 private:
  void followController();
  void accept();
  void serve();
  void endConnection();

  const SimulatedRecorder recorder_;
  const std::string name_;
  ManagementSocket management_;
  const Controller controller_;
  std::optional<L2capListener> listener_;
  std::optional<Advertiser> advertiser_;
  std::shared_ptr<L2capConnection> connection_;
  std::optional<AttSession> session_;
};

}  // namespace kwtsdk::sim
