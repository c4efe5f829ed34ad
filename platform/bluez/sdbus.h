#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

// What the adapter uses of sdbus-c++ and versions 1 and 2 say differently.
namespace kwtsdk::bluez {

using OnSignal = std::function<void(sdbus::Message& signal)>;
using OnReply = std::function<void(sdbus::MethodReply& reply, const sdbus::Error* error)>;

#if __has_include(<sdbus-c++/VTableItems.h>)  // since 2

inline void listen(sdbus::IConnection& connection, const std::string& match, OnSignal onSignal) {
  connection.addMatch(match, [onSignal = std::move(onSignal)](sdbus::Message signal) { onSignal(signal); });
}

inline std::unique_ptr<sdbus::IProxy> proxyOf(sdbus::IConnection& connection, const std::string& service,
                                              const std::string& path) {
  return sdbus::createProxy(connection, sdbus::ServiceName(service), sdbus::ObjectPath(path));
}

inline sdbus::MethodCall newCall(sdbus::IProxy& proxy, const char* interface, const char* method) {
  return proxy.createMethodCall(sdbus::InterfaceName(interface), sdbus::MethodName(method));
}

inline void send(sdbus::IProxy& proxy, const sdbus::MethodCall& call, std::chrono::microseconds timeout,
                 OnReply onReply) {
  const auto pass = [onReply = std::move(onReply)](sdbus::MethodReply reply,
                                                   std::optional<sdbus::Error> error) {
    onReply(reply, error ? &*error : nullptr);
  };
  proxy.callMethodAsync(call, pass, static_cast<std::uint64_t>(timeout.count()));
}

#else

inline void listen(sdbus::IConnection& connection, const std::string& match, OnSignal onSignal) {
  connection.addMatch(match, std::move(onSignal), sdbus::floating_slot);
}

inline std::unique_ptr<sdbus::IProxy> proxyOf(sdbus::IConnection& connection, const std::string& service,
                                              const std::string& path) {
  return sdbus::createProxy(connection, service, path);
}

inline sdbus::MethodCall newCall(sdbus::IProxy& proxy, const char* interface, const char* method) {
  return proxy.createMethodCall(interface, method);
}

inline void send(sdbus::IProxy& proxy, const sdbus::MethodCall& call, std::chrono::microseconds timeout,
                 OnReply onReply) {
  proxy.callMethod(call, std::move(onReply), static_cast<std::uint64_t>(timeout.count()));
}

#endif

}  // namespace kwtsdk::bluez
