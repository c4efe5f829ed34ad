#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kwtsdk::session::detail {

/// Bytes of a file's beginning that suffice: two frames' headers of any MPEG audio.
inline constexpr std::size_t kFormatBytes = 4096;

/// What a file is that begins so, with its article: "an Ogg file". Null: nothing that people keep beside
/// firmware images. Known are Ogg, RIFF, MP3, PNG, JPEG, PDF, ELF, gzip and zip by marks of three bytes or
/// more; MP3 also without its tag, from two
/// frames of MPEG audio of which the first says where the second begins. One frame's mark would not do: an
/// image may begin with its bits by chance.
const char* knownFormat(std::span<const std::uint8_t> beginning);

/// Whether every byte is one of a text in UTF-8, whose last character may be cut off. No proof: an image may
/// be of such bytes.
bool isText(std::span<const std::uint8_t> beginning);

}  // namespace kwtsdk::session::detail
