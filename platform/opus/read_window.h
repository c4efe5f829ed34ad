#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/opus/input_file.h"

namespace kwtsdk::internal {

/// The piece of a file that is being looked at.
class ReadWindow {
 public:
  ReadWindow(InputFile& file, std::size_t size) : file_(file), buffer_(size) {}

  std::span<std::uint8_t> pending() { return std::span(buffer_).subspan(begin_, end_ - begin_); }

  /// Done with so many of the pending bytes, which stay valid until the next refill().
  void advance(std::size_t size) { begin_ += size; }

  /// The pending bytes and behind them as many more as fit.
  void refill() {
    const auto bytes = pending();
    std::copy(bytes.begin(), bytes.end(), buffer_.begin());
    end_ = bytes.size();
    begin_ = 0;
    end_ += file_.read(std::span(buffer_).subspan(end_));
    atEnd_ = end_ < buffer_.size();
  }

  /// The file had no more at the last refill().
  bool atEnd() const { return atEnd_; }

 private:
  InputFile& file_;
  std::vector<std::uint8_t> buffer_;
  std::size_t begin_ = 0, end_ = 0;
  bool atEnd_ = false;
};

}  // namespace kwtsdk::internal
