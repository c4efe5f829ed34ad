#pragma once

#include <string>

#include "platform/bluez/client.h"

namespace kwtsdk::bluez {

/// The path of the adapter of that name, or, for an empty one, of the first that has power. Throws Trouble.
std::string usableAdapter(const Client& client, const std::string& name);

/// Throws Trouble when the adapter was removed or switched off.
void expectPower(const Objects& objects, const std::string& adapter);

/// Lets an adapter listen for Low Energy devices, for the length of its life.
class Discovery {
 public:
  /// Throws Trouble.
  Discovery(Client& client, std::string adapter);

  /// Does not wait: BlueZ ends it together with the connection to the bus as well.
  ~Discovery();
  Discovery(const Discovery&) = delete;
  Discovery& operator=(const Discovery&) = delete;

 private:
  Client& client_;
  const std::string adapter_;
};

}  // namespace kwtsdk::bluez
