#include "sim/air/recorder_server.h"

#include <poll.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <utility>

namespace kwtsdk::sim {

RecorderServer::RecorderServer(const std::shared_ptr<Scheduler>& scheduler, SimulatedRecorder recorder,
                               const std::string& adapter, std::string name)
    : recorder_(std::move(recorder)),
      name_(std::move(name)),
      controller_(findController(management_, adapter)),
      listener_(controller_.address) {
  recorder_.link->disconnect();
  advertiser_.emplace(scheduler, management_, controller_, name_);
}

RecorderServer::~RecorderServer() {
  if (connection_) endConnection();
}

void RecorderServer::run(int stop) {
  for (;;) {
    followController();
    std::array<pollfd, 3> polled{
        {{stop, POLLIN, 0},
         {management_.descriptor(), POLLIN, 0},
         {connection_ ? connection_->descriptor() : listener_->descriptor(), POLLIN, 0}}};
    if (::poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR) {
      throw std::runtime_error(std::string("Waiting for centrals failed (") + std::strerror(errno) +
                               "): start again.");
    }
    if (polled[0].revents != 0) return;
    if (polled[2].revents == 0) continue;
    if (connection_) {
      serve();
    } else {
      accept();
    }
  }
}

void RecorderServer::followController() {
  while (const auto event = management_.nextEvent()) {
    // The Bluetooth service, which has just started, listens too by now: only the last listener is served.
    if (advertiser_->follow(*event)) listener_.emplace(controller_.address);
  }
}

void RecorderServer::accept() {
  connection_ = listener_->accept();
  if (!connection_) return;
  session_.emplace(recorder_, name_,
                   AttSession::Transport{
                       [connection = connection_](const Bytes& pdu) { connection->send(pdu); },
                       [connection = connection_] { connection->shutdown(); },
                   });
  std::cout << "Connected: " << connection_->peer().address.toString() << std::endl;
}

void RecorderServer::serve() {
  if (const auto pdu = connection_->receive()) {
    session_->receive(*pdu);
  } else {
    endConnection();
  }
}

void RecorderServer::endConnection() {
  const L2capPeer peer = connection_->peer();
  connection_->shutdown();  // which the link's thread may be sending on
  session_.reset();
  connection_.reset();
  // Without this the kernel keeps the radio's connection for some seconds.
  Bytes parameters{peer.address.bytes.begin(), peer.address.bytes.end()};
  parameters.push_back(peer.addressType);
  try {
    management_.command(ManagementSocket::disconnect, controller_.index, parameters);
  } catch (const std::exception&) {  // The central was the one who went.
  }
  std::cout << "Disconnected: " << peer.address.toString() << std::endl;
}

}  // namespace kwtsdk::sim
