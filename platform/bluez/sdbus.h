#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

// What the adapter uses of sdbus-c++ and versions 1 and 2 say differently.
namespace kwtsdk::bluez {

using OnReply = std::function<void(sdbus::MethodReply& reply, const sdbus::Error* error)>;

// How long a call may take is the adapter's to say, on the scheduler's clock.
inline constexpr std::uint64_t kNoLimit = UINT64_MAX;

#if __has_include(<sdbus-c++/VTableItems.h>)  // since 2

inline std::unique_ptr<sdbus::IProxy> proxyOf(sdbus::IConnection& connection, const std::string& service,
                                              const std::string& path) {
  return sdbus::createProxy(connection, sdbus::ServiceName(service), sdbus::ObjectPath(path));
}

inline sdbus::MethodCall newCall(sdbus::IProxy& proxy, const char* interface, const char* method) {
  return proxy.createMethodCall(sdbus::InterfaceName(interface), sdbus::MethodName(method));
}

inline void send(sdbus::IProxy& proxy, const sdbus::MethodCall& call, OnReply onReply) {
  const auto pass = [onReply = std::move(onReply)](sdbus::MethodReply reply,
                                                   std::optional<sdbus::Error> error) {
    onReply(reply, error ? &*error : nullptr);
  };
  proxy.callMethodAsync(call, pass, kNoLimit);
}

inline bool processNext(sdbus::IConnection& connection) { return connection.processPendingEvent(); }

#else

inline std::unique_ptr<sdbus::IProxy> proxyOf(sdbus::IConnection& connection, const std::string& service,
                                              const std::string& path) {
  return sdbus::createProxy(connection, service, path);
}

inline sdbus::MethodCall newCall(sdbus::IProxy& proxy, const char* interface, const char* method) {
  return proxy.createMethodCall(interface, method);
}

inline void send(sdbus::IProxy& proxy, const sdbus::MethodCall& call, OnReply onReply) {
  proxy.callMethod(call, std::move(onReply), kNoLimit);
}

inline bool processNext(sdbus::IConnection& connection) { return connection.processPendingRequest(); }

#endif

}  // namespace kwtsdk::bluez
