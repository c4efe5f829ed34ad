#include "platform/bluez/discovery.h"

#include <map>
#include <utility>

namespace kwtsdk::bluez {

std::string usableAdapter(const Client& client, const std::string& name) {
  bool known = false;
  for (const auto& adapter : client.look([](const Objects& objects) { return objects.adapters(); })) {
    if (!name.empty() && !adapter.path.ends_with("/" + name)) continue;
    if (adapter.powered) return adapter.path;
    known = true;
  }
  throw Trouble(known ? Problem::adapterOff : Problem::noAdapter, name);
}

void expectPower(const Objects& objects, const std::string& adapter) {
  if (!objects.exists(adapter, kAdapter)) throw Trouble(Problem::noAdapter, "it was removed");
  if (!objects.isTrue(adapter, kAdapter, "Powered")) throw Trouble(Problem::adapterOff);
}

Discovery::Discovery(Client& client, std::string adapter) : client_(client), adapter_(std::move(adapter)) {
  const auto lowEnergy = [](sdbus::MethodCall& call) {
    call << std::map<std::string, sdbus::Variant>{{"Transport", sdbus::Variant(std::string("le"))}};
  };
  client_.call({adapter_, kAdapter, "SetDiscoveryFilter"}, lowEnergy, kPrompt, Problem::busFailure);
  client_.call({adapter_, kAdapter, "StartDiscovery"}, noArguments, kPrompt, Problem::busFailure);
}

Discovery::~Discovery() {
  client_.start({adapter_, kAdapter, "StopDiscovery"}, noArguments, kPrompt, [](const MaybeError&) {});
}

}  // namespace kwtsdk::bluez
