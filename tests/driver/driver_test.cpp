#include <gtest/gtest.h>

#include "import/driver.hpp"

using namespace kelvane;

namespace {

Project prj_src;
Project prj_tgt;

void clear_column(Project* p, int track) {
  for (int line = 0; line < kSequencerLines; ++line) p->sequencer[line][track] = PatternIdx{};
}

}  // namespace

TEST(DriverTargetLine, EmptyColumnFillsEveryOtherLine) {
  clear_column(&prj_tgt, 1);
  int line = target_line(&prj_tgt, 1, 0);
  EXPECT_EQ(line, 0);
  prj_tgt.sequencer[line][1] = PatternIdx::from_value(0);
  line = target_line(&prj_tgt, 1, 0);
  EXPECT_EQ(line, 2);
  prj_tgt.sequencer[line][1] = PatternIdx::from_value(1);
  EXPECT_EQ(target_line(&prj_tgt, 1, 0), 4);
}

TEST(DriverTargetLine, NegativeOffsetIsZero) {
  clear_column(&prj_tgt, 2);
  EXPECT_EQ(target_line(&prj_tgt, 2, -1), target_line(&prj_tgt, 2, 0));
  prj_tgt.sequencer[7][2] = PatternIdx::magic_cell();
  EXPECT_EQ(target_line(&prj_tgt, 2, -1), 9);
  EXPECT_EQ(target_line(&prj_tgt, 2, 0), 9);
}

TEST(DriverTargetLine, OffsetWinsOverEarlierCells) {
  clear_column(&prj_tgt, 3);
  EXPECT_EQ(target_line(&prj_tgt, 3, 40), 40);
  prj_tgt.sequencer[10][3] = PatternIdx::from_value(5);
  EXPECT_EQ(target_line(&prj_tgt, 3, 40), 40);
  EXPECT_EQ(target_line(&prj_tgt, 3, 5), 12);
  // A cell after the offset decides.
  prj_tgt.sequencer[50][3] = PatternIdx::from_value(5);
  EXPECT_EQ(target_line(&prj_tgt, 3, 40), 52);
}

TEST(DriverTargetLine, ColumnEnd) {
  clear_column(&prj_tgt, 4);
  prj_tgt.sequencer[253][4] = PatternIdx::from_value(1);
  EXPECT_EQ(target_line(&prj_tgt, 4, 0), 255);
  prj_tgt.sequencer[255][4] = PatternIdx::from_value(2);
  EXPECT_EQ(target_line(&prj_tgt, 4, 0), kNoRoom);
  // Lines 254 and 255 are never seen as last used lines.
  clear_column(&prj_tgt, 4);
  prj_tgt.sequencer[254][4] = PatternIdx::from_value(1);
  EXPECT_EQ(target_line(&prj_tgt, 4, 0), 0);
  prj_tgt.sequencer[0][4] = PatternIdx::from_value(1);
  EXPECT_EQ(target_line(&prj_tgt, 4, 0), 2);
}

TEST(DriverTargetLine, OffsetAtAndBeyondTheEnd) {
  clear_column(&prj_tgt, 5);
  EXPECT_EQ(target_line(&prj_tgt, 5, 255), 255);
  EXPECT_EQ(target_line(&prj_tgt, 5, 254), 254);
  EXPECT_EQ(target_line(&prj_tgt, 5, 256), 256);
  EXPECT_EQ(target_line(&prj_tgt, 5, 1000), 1000);
  prj_tgt.sequencer[255][5] = PatternIdx::from_value(1);
  EXPECT_EQ(target_line(&prj_tgt, 5, 255), kNoRoom);
}

TEST(DriverTargetLine, LowLinesProbeLineZero) {
  clear_column(&prj_tgt, 6);
  prj_tgt.sequencer[0][6] = PatternIdx::from_value(1);
  // c = 2 probes line 0 and finds it; c = 1 and 0 would probe line 0 too.
  EXPECT_EQ(target_line(&prj_tgt, 6, 0), 2);
  EXPECT_EQ(target_line(&prj_tgt, 6, 1), 2);
}

TEST(DriverSourceTrack, LowestTrackWins) {
  for (int t = 0; t < kNumTracks; ++t) clear_column(&prj_src, t);
  EXPECT_EQ(find_source_track(&prj_src, 5), -1);
  prj_src.sequencer[200][9] = PatternIdx::from_value(5);
  prj_src.sequencer[3][12] = PatternIdx::from_value(5);
  prj_src.sequencer[0][2] = PatternIdx::magic_cell();
  EXPECT_EQ(find_source_track(&prj_src, 5), 9);
  EXPECT_EQ(find_source_track(&prj_src, 6), -1);
  // The magic cell references no pattern.
  EXPECT_EQ(find_source_track(&prj_src, -0x7FFFFFFF), -1);
}
