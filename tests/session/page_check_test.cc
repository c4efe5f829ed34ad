#include "session/page_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/session/stored_recording.h"

namespace kwtsdk::testing {
namespace {

using session::detail::PageCheck;
using State = PageCheck::State;

constexpr std::size_t kPacket = 84;

Bytes slice(const Bytes& bytes, std::size_t from, std::size_t to = Bytes().max_size()) {
  return {bytes.begin() + static_cast<std::ptrdiff_t>(from),
          bytes.begin() + static_cast<std::ptrdiff_t>(std::min(to, bytes.size()))};
}

Bytes chained() {
  return joined(oggPage(kBegin, 1, 0, 19), oggPage(kMiddle, 1, 1, 300), oggPage(kEnd, 1, 2, 150),
                oggPage(kBegin, 2, 0, 40), oggPage(kMiddle, 2, 1, 0), oggPage(kEnd, 2, 2, 255));
}
Bytes endless() {
  return joined(oggPage(kBegin, 1, 0, 19), oggPage(kMiddle, 1, 1, 56), oggPage(kMiddle, 1, 2, 200));
}

auto seen(const PageCheck& check) {
  return std::tuple(check.state(), check.position(), check.whole(), check.lastPage(), check.ended(),
                    check.uniform());
}

void takeInPieces(PageCheck& check, std::span<const std::uint8_t> bytes, std::size_t size) {
  for (; !bytes.empty(); bytes = bytes.subspan(std::min(size, bytes.size())))
    check.take(bytes.first(std::min(size, bytes.size())));
}

PageCheck checked(const Bytes& bytes) {
  PageCheck check;
  check.take(bytes);
  return check;
}

// Taken for whole.
bool isSettled(const PageCheck& check) {
  return check.state() == State::filler ? check.uniform()
                                        : check.state() == State::pages && check.whole() == check.position();
}

/// What checks are the recording's own bytes, it is not taken for whole before it is, the size of the pieces
/// makes no difference, and what is asked for again heals it.
void expectNoHarm(const Bytes& original, const Bytes& damaged, std::size_t piece) {
  PageCheck check = checked(damaged), inPieces;
  takeInPieces(inPieces, damaged, piece);
  ASSERT_EQ(seen(check), seen(inPieces)) << "in pieces of " << piece;
  ASSERT_EQ(check.fingerprint(), inPieces.fingerprint());
  ASSERT_LE(check.whole(), original.size());
  ASSERT_TRUE(std::equal(damaged.begin(), damaged.begin() + static_cast<std::ptrdiff_t>(check.whole()),
                         original.begin()));
  const PageCheck right = checked(original);
  ASSERT_TRUE(!isSettled(check) || check.whole() == right.whole());
  if (check.state() != State::failed) return;
  check.rewind();
  ASSERT_EQ(check.position(), check.whole());
  takeInPieces(check, slice(original, check.position()), piece);
  ASSERT_TRUE(isSettled(check) && check.whole() == right.whole());
}

TEST(PageCheck, DamageOfEveryByteAndPacketIsNoticedOrHarmless) {
  for (const Bytes& original :
       {joined(chained(), Bytes(200, 0)), joined(chained(), Bytes(90, 0xFF)), chained(),
        joined(endless(), Bytes(200, 0xFF)), joined(endless(), Bytes(100, 0))}) {
    ASSERT_TRUE(isSettled(checked(original)));
    for (std::size_t at = 0; at < original.size(); ++at) {
      SCOPED_TRACE("at " + std::to_string(at) + " of " + std::to_string(original.size()));
      const std::size_t piece = at % 97 + 1;
      for (const unsigned value : {original[at] ^ 1U, original[at] ^ 0x80U, 0U, 0xFFU, 1U * 'O'}) {
        Bytes damaged = original;
        damaged[at] = static_cast<std::uint8_t>(value);
        expectNoHarm(original, damaged, piece);
      }
      if (at + kPacket > original.size()) continue;
      expectNoHarm(original, joined(slice(original, 0, at + kPacket), slice(original, at)), piece);
      // A packet missing at the very end leaves a shorter file, which its size tells.
      if (at + kPacket == original.size()) continue;
      expectNoHarm(original, joined(slice(original, 0, at), slice(original, at + kPacket)), piece);
      if (HasFatalFailure()) return;
    }
  }
}

TEST(PageCheck, AResumedDownloadNoticesAnotherRecording) {
  for (const Bytes& pages : {chained(), endless(), oggPage(kBegin, 1, 0, 19)}) {
    const Bytes original = joined(pages, Bytes(100, 0));
    PageCheck check = checked(original);
    const auto before = seen(check);
    const Bytes rest = slice(original, check.lastPage());
    Bytes damaged = rest;
    damaged[40] ^= 1;
    const PageCheck lastAlone = checked(pages);
    // The same page of another recording.
    const Bytes other =
        joined(oggPage(rest[5], rest[14], rest[18], pages.size() - lastAlone.lastPage() - 28, 2),
               slice(rest, lastAlone.whole() - lastAlone.lastPage()));
    const std::tuple<Bytes, State, bool> cases[]{{rest, State::filler, false},
                                                 {damaged, State::failed, false},
                                                 {Bytes(100, 0), State::failed, false},
                                                 {other, State::failed, true}};
    for (const auto& [bytes, state, isOther] : cases) {
      check.stepBack();
      EXPECT_TRUE(check.position() == check.lastPage() && check.whole() == check.lastPage());
      takeInPieces(check, bytes, kPacket);
      EXPECT_EQ(std::tuple(check.state(), check.isOther()), std::tuple(state, isOther));
      check.rewind();
      check.take(slice(original, check.position()));
      EXPECT_EQ(seen(check), before);
    }
    check.restart();
    EXPECT_EQ(seen(check), seen(PageCheck()));
  }
}

}  // namespace
}  // namespace kwtsdk::testing
