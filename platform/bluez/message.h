#pragma once

#include <sdbus-c++/Message.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstdint>
#include <new>
#include <span>
#include <string>
#include <string_view>

#include "platform/bluez/bluez_error.h"

namespace kwtsdk::bluez {

/// libsystemd's message below sdbus-c++'s, which reads and writes an array of bytes one byte at a time, each
/// under a lock, and knows no way to skip what nobody needs.
inline sd_bus_message* rawOf(sdbus::Message& message) {
  struct Opened : sdbus::Message {
    static sd_bus_message* of(sdbus::Message& message) {
      return static_cast<sd_bus_message*>(message.*(&Opened::msg_));
    }
  };
  return Opened::of(message);
}

/// What was answered or told makes no sense otherwise.
inline int expectGood(int result) {
  if (result == -ENOMEM) throw std::bad_alloc();
  if (result < 0) throw BluezError(Problem::busFailure, "a message that cannot be read or written");
  return result;
}

/// Reads a message from its beginning to its end. What it returns lives as long as the message. Throws
/// BluezError for another type than is asked for.
class Reader {
 public:
  explicit Reader(sd_bus_message* message) : message_(message) {}
  explicit Reader(sdbus::Message& message) : Reader(rawOf(message)) {}

  std::string_view text() { return basic<const char*>(SD_BUS_TYPE_STRING); }
  std::string_view path() { return basic<const char*>(SD_BUS_TYPE_OBJECT_PATH); }
  bool truth() { return basic<int>(SD_BUS_TYPE_BOOLEAN) != 0; }
  std::int16_t int16() { return basic<std::int16_t>(SD_BUS_TYPE_INT16); }
  std::uint16_t uint16() { return basic<std::uint16_t>(SD_BUS_TYPE_UINT16); }
  int descriptor() { return basic<int>(SD_BUS_TYPE_UNIX_FD); }  // the message's own

  std::span<const std::uint8_t> bytes() {
    const void* data = nullptr;
    std::size_t size = 0;
    expectGood(sd_bus_message_read_array(message_, SD_BUS_TYPE_BYTE, &data, &size));
    return {static_cast<const std::uint8_t*>(data), size};
  }

  void skip(const char* type) { expectGood(sd_bus_message_skip(message_, type)); }

  /// Calls `read` for each element, whose type is `content`; of a dictionary its key and value.
  template <class Read>
  void each(const char* content, Read&& read) {
    expectGood(sd_bus_message_enter_container(message_, SD_BUS_TYPE_ARRAY, content));
    const std::string type = content;
    if (type.front() == SD_BUS_TYPE_DICT_ENTRY_BEGIN) {
      const std::string entry = type.substr(1, type.size() - 2);
      while (expectGood(sd_bus_message_enter_container(message_, SD_BUS_TYPE_DICT_ENTRY, entry.c_str())) >
             0) {
        read();
        leave();
      }
    } else {
      while (expectGood(sd_bus_message_at_end(message_, 0)) == 0) read();
    }
    leave();
  }

  /// Calls `read` with the type of what the variant holds; it reads that, or returns false.
  template <class Read>
  void variant(Read&& read) {
    char type = 0;
    const char* content = nullptr;
    expectGood(sd_bus_message_peek_type(message_, &type, &content));
    if (type != SD_BUS_TYPE_VARIANT) expectGood(-1);
    const std::string held = content;
    expectGood(sd_bus_message_enter_container(message_, type, held.c_str()));
    if (!read(std::string_view(held))) skip(held.c_str());
    leave();
  }

 private:
  template <class T>
  T basic(char type) {
    T value{};
    expectGood(sd_bus_message_read_basic(message_, type, &value) > 0 ? 0 : -1);
    return value;
  }
  void leave() { expectGood(sd_bus_message_exit_container(message_)); }

  sd_bus_message* const message_;
};

}  // namespace kwtsdk::bluez
