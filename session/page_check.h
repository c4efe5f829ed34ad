#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "session/ogg_page.h"

namespace kwtsdk::session::detail {

/// Follows an Ogg stream as its bytes arrive, in any pieces, and keeps no bodies. Pages have to check, follow
/// each other and be of one logical stream after the other. Behind them a recording's last block is filled
/// up: after a page that ends its stream with anything, otherwise with 00 or FF alone, which no page begins
/// with.
class PageCheck {
 public:
  enum class State { pages, filler, failed };

  /// The bytes that follow. Once failed it takes nothing until it is put back.
  State take(std::span<const std::uint8_t> bytes);

  State state() const { return state_; }
  std::uint64_t position() const { return position_; }  // of the bytes taken since the beginning

  /// Where the last page that checks ends; 0: none yet. After stepBack() its beginning, until it has come
  /// again.
  std::uint64_t whole() const { return repeats_ ? lastPage_ : whole_; }
  std::uint64_t lastPage() const { return lastPage_; }  // where that page begins
  bool ended() const { return last_.endsStream; }       // that page was the last of its logical stream

  /// The filler so far is only 00 or only FF, or there is none.
  bool uniform() const { return uniform_; }

  /// Failed since a page that was there before came again as another, whole one.
  bool isOther() const { return isOther_; }

  /// Of the last failure: equal when the same bytes failed at the same place.
  std::uint64_t fingerprint() const { return fingerprint_; }

  /// Back to whole(): what follows is asked for again.
  void rewind() { goTo(whole()); }

  /// Back to lastPage(), which has to come again as it was before new pages do: when a download goes on
  /// later, another recording in the place of the first is noticed so.
  void stepBack();

  void restart() { *this = PageCheck(); }

 private:
  struct Page {
    std::uint32_t serial = 0, sequence = 0, crc = 0;
    std::uint64_t size = 0;
    bool endsStream = false;
    friend bool operator==(const Page&, const Page&) = default;
  };

  // Each gives how many of the bytes it took, at least one.
  std::size_t takeLead(std::uint8_t byte);
  std::size_t takePage(std::span<const std::uint8_t> bytes);
  std::size_t takeFiller(std::span<const std::uint8_t> bytes);

  bool beginsStream() const { return !repeats_ && (whole_ == 0 || last_.endsStream); }
  void leadEnds(std::uint8_t byte);
  void pageEnds();
  void fail(std::uint32_t seen, std::uint32_t expected);
  void goTo(std::uint64_t position);

  State state_ = State::pages;
  std::uint64_t position_ = 0, whole_ = 0, lastPage_ = 0, fingerprint_ = 0;
  OggPage page_;  // that is arriving
  Page last_;
  std::uint8_t fill_ = 0;
  bool uniform_ = true, isOther_ = false, repeats_ = false;
};

}  // namespace kwtsdk::session::detail
