// A load answers missing files from one listing per directory. What it
// reads must be what opening every name gives: a listed name that is a
// directory or a dangling link, a name in another case, a directory that is
// a plain file or is not there.

#include <gtest/gtest.h>

#include <fstream>

#include "project/project.hpp"
#include "scratch_dir.hpp"

using namespace kelvane;
namespace fs = std::filesystem;

namespace {

Project listed;
Project probed;

void write_file(fs::path const& file, std::string const& text) {
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << text;
}

}  // namespace

TEST(DirectoryListing, LoadReadsWhatOpeningEveryNameReads) {
  fs::path const dir = unit_test_scratch_root() / "listing" / "song";
  fs::remove_all(dir);
  write_file(dir / "patterns" / "pattern_00.txt", "#version 1\nname a\n!steps MIDI\n0 note 0 C-4\n");
  fs::create_directories(dir / "patterns" / "pattern_01.txt");
  fs::create_symlink("nowhere.txt", dir / "patterns" / "pattern_02.txt");
  write_file(dir / "patterns" / "PATTERN_03.TXT", "#version 1\n!steps MIDI\n");
  write_file(dir / "patterns" / "pattern_04.txt", "#version 1\nname header\n");
  write_file(dir / "patterns" / "pattern_05.txt", "#version 1\n!steps FMSynth\n");
  write_file(dir / "programs", "a file where a directory belongs\n");
  write_file(dir / "track_00" / "track_settings.txt", "type FMSynth\nname lead\n");
  write_file(dir / "fx_patches" / "fx_patch_03.txt", "#version 1\nname echo\ncutoff 20\n");
  write_file(dir / "program_variables" / "program_variable_3f.txt", "name last\n");

  testing::internal::CaptureStderr();
  project_load(&listed, dir.c_str());
  testing::internal::GetCapturedStderr();

  // The same files, each opened by name, with no listing.
  project_initialize(&probed);
  for (int i = 0; i < kNumPatterns; ++i)
    if (project_load_pattern(&probed.patterns[i], slot_file(dir, "patterns/pattern_%s.txt", i)) == 0)
      probed.allocated_patterns = i + 1;
  for (int i = 0; i < kNumPrograms; ++i)
    EXPECT_EQ(project_load_program(&probed.programs[i], slot_file(dir, "programs/program_%s.txt", i)),
              StepFileRead::missing);

  EXPECT_EQ(listed.allocated_patterns, probed.allocated_patterns);
  EXPECT_EQ(listed.allocated_patterns, 6);
  EXPECT_EQ(listed.allocated_programs, 0);
  // A load leaves the missing slots above the first one behind the counter
  // as they were, until the import takes one of them.
  for (int i = listed.allocated_patterns; i < 8; ++i) project_prepare_pattern_slot(&listed, i);
  for (int i = 0; i < 8; ++i) EXPECT_TRUE(bytes_equal(listed.patterns[i], probed.patterns[i])) << i;
  EXPECT_STREQ(listed.track_settings[0].name.data, "lead");
  EXPECT_STREQ(listed.fx_patch_names[3].data, "echo");
  EXPECT_STREQ(listed.program_variables[63].name.data, "last");
}

// Outside a load every name is opened: a file written after a load is
// found by the next load.
TEST(DirectoryListing, ListingsEndWithTheLoad) {
  fs::path const dir = unit_test_scratch_root() / "listing" / "grows";
  fs::remove_all(dir);
  write_file(dir / "patterns" / "pattern_00.txt", "#version 1\n!steps MIDI\n");
  testing::internal::CaptureStderr();
  project_load(&listed, dir.c_str());
  EXPECT_EQ(listed.allocated_patterns, 1);
  write_file(dir / "patterns" / "pattern_01.txt", "#version 1\n!steps MIDI\n");
  project_load(&listed, dir.c_str());
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(listed.allocated_patterns, 2);
}

// A record loaded again keeps what the first load put into slots above the
// new counter; the import sees them as a load from the initial state would
// have left them.
TEST(DirectoryListing, ReloadedSlotsAboveTheCounterAreWhatTheImportSees) {
  fs::path const full = unit_test_scratch_root() / "listing" / "full";
  fs::path const small = unit_test_scratch_root() / "listing" / "small";
  fs::remove_all(full);
  fs::remove_all(small);
  for (char const* n : {"00", "01", "02", "03", "04"})
    write_file(full / "patterns" / ("pattern_" + std::string(n) + ".txt"), "#version 1\nname full\n!steps FMSynth\n0 note 0 C-4\n");
  write_file(small / "patterns" / "pattern_00.txt", "#version 1\n!steps MIDI\n");
  write_file(small / "patterns" / "pattern_03.txt", "#version 1\nname header\n");
  testing::internal::CaptureStderr();
  project_load(&listed, full.c_str());
  project_load(&listed, small.c_str());
  testing::internal::GetCapturedStderr();

  project_initialize(&probed);
  for (int i = 0; i < 8; ++i) project_load_pattern(&probed.patterns[i], slot_file(small, "patterns/pattern_%s.txt", i));

  EXPECT_EQ(listed.allocated_patterns, 1);
  EXPECT_TRUE(bytes_equal(listed.patterns[0], probed.patterns[0]));
  EXPECT_TRUE(bytes_equal(listed.patterns[1], probed.patterns[1]));
  EXPECT_TRUE(bytes_equal(listed.patterns[3], probed.patterns[3]));
  for (int i = 1; i < 8; ++i) project_prepare_pattern_slot(&listed, i);
  for (int i = 0; i < 8; ++i) EXPECT_TRUE(bytes_equal(listed.patterns[i], probed.patterns[i])) << i;
}
