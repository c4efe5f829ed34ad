#include "session/exchange.h"

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <kwtsdk/gatt/peripheral.h>

namespace kwtsdk::session::detail {
namespace {

constexpr int kPending = -1, kFailed = -2;

/// What has come of a request that was the second write on its characteristic, after the answer 7 to the
/// first. A sign is a letter and a digit: "a2" two writes are acknowledged, "e2" the second failed, "n5" the
/// answer 5, "x5" one on another channel.
int outcomeOf(const std::string& signs) {
  const Uuid uuid = *Uuid::fromString("CA2A");
  const gatt::ValueCharacteristic to(uuid, 0), on(uuid, 0), other(uuid, 0);
  Exchange exchange({{}, {}, {}, [](const Bytes& value) { return value.at(0) != 0; }});
  exchange.sent(&to, 2, &on, Bytes{7});
  for (std::size_t i = 0; i < signs.size(); i += 3) {
    const auto number = static_cast<std::uint8_t>(signs[i + 1] - '0');
    const char kind = signs[i];
    if (kind == 'a') exchange.offer({Sign::Kind::acknowledged, &to}, number);
    if (kind == 'e') exchange.offer({Sign::Kind::acknowledged, &to, {}, timeoutError()}, number);
    if (kind == 'n') exchange.offer({Sign::Kind::notified, &on, {number}}, 0);
    if (kind == 'x') exchange.offer({Sign::Kind::notified, &other, {number}}, 0);
  }
  if (exchange.error()) return kFailed;
  return exchange.answer() ? exchange.answer()->at(0) : kPending;
}

TEST(SessionExchange, EndsWithItsOwnAcknowledgementAndAnswer) {
  const std::pair<const char*, int> table[]{
      {"a2 n5", 5},       {"n5 a2", 5},        {"n7 a2", kPending}, {"n7 a2 n7", 7}, {"a1 n5", kPending},
      {"a1 n5 a2", 5},    {"n0 a2", kPending}, {"x5 a2", kPending}, {"a2 n5 n6", 5}, {"e2 n5", kFailed},
      {"n5 e2", kFailed}, {"a2 e3 n5", 5},     {"a2 a3 n5", 5},     {"n5 a2 e3", 5}, {"e1 a2 n5", 5},
  };
  for (const auto& [signs, outcome] : table) EXPECT_EQ(outcomeOf(signs), outcome) << signs;
}

}  // namespace
}  // namespace kwtsdk::session::detail
