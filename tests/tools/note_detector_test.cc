#include "tools/note_detector.h"

#include <gtest/gtest.h>

namespace kwtsdk::tool {
namespace {

using Notes = std::vector<std::string>;

TEST(NoteDetectorTest, NamesWhatStandsOut) {
  const Notes melody = notesIn(sim::melody(), sim::kSampleRate);
  ASSERT_EQ(melody.size(), 24U);
  EXPECT_EQ(Notes(melody.begin(), melody.begin() + 11),
            (Notes{"C4", "D4", "E4", "F4", "G4", "G4", "A4", "A4", "G4", "C5", "B4"}));
}

TEST(NoteDetectorTest, NamesNothingElse) {
  EXPECT_EQ(notesIn(sim::chord(), sim::kSampleRate), Notes(10, "?"));
  EXPECT_EQ(notesIn(sim::Samples(16000, 0), 16000), Notes(2, "?"));
  EXPECT_EQ(notesIn(sim::Samples(7999, 100), 16000), Notes());
}

}  // namespace
}  // namespace kwtsdk::tool
