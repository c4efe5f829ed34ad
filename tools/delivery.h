#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "tools/output.h"
#include "tools/pulled_name.h"
#include "tools/recorder.h"

namespace kwtsdk::tool {

/// A recording that is on the disk, whole and checked.
struct Delivered {
  session::Saved saved;        // of its Ogg Opus; `deleted` is what became of the recorder's copy in the end
  std::filesystem::path file;  // what was wanted, or Ogg Opus where that could not be made
  bool wasThere = false;       // before
  std::string notConverted{};  // why; "" otherwise
};

/// For whom a transfer is shown: the which of how many.
struct Place {
  std::uint32_t item = 0, items = 0;
};

/// How recordings come from the recorder to the disk. Everything throws Failure.
struct Delivery {
  const Environment& environment;
  session::Session& recorder;
  Form form;
  bool keep;  // the recorder keeps its copy

  /// The first recording, which has to be `expected` if that is given. One that is converted is downloaded
  /// first, and its copy deleted when all of the file is on the disk; killed in between, the next one like it
  /// goes on.
  Delivered run(const std::filesystem::path& target,
                const std::optional<session::RecordingInfo>& expected = {}, Place place = {}) const;

  /// Finishes what a killed one has left in the folder. For when all is delivered.
  void sweep(const std::filesystem::path& folder) const;

 private:
  Delivered runConverted(const std::filesystem::path& target,
                         const std::optional<session::RecordingInfo>& expected, Place place) const;
  session::Result<session::Saved> download(const std::filesystem::path& file, bool keeps,
                                           std::optional<std::uint32_t> expected, Place place,
                                           std::uint64_t& total) const;
  session::Saved fetch(const std::filesystem::path& file, bool keeps, std::optional<std::uint32_t> expected,
                       Place place) const;
  void deleteCopy(Delivered& delivered, const std::filesystem::path& source) const;
};

/// With as many links as a walk through a house takes.
session::Limits limitsOfPull(const Environment& environment);

/// "Saved FILE (80 bytes in 0.1 s)." and what else is to be known of it.
std::string textOf(const Delivered& delivered);
Record recordOf(const Delivered& delivered);

/// Throws where it is Ogg Opus all the same.
void checkConverted(const Delivered& delivered);

/// The recorder's copy was to go and did not.
Failure notDeletedFailure(const Delivered& delivered);

}  // namespace kwtsdk::tool
