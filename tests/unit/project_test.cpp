#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "scratch_dir.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "project/project.hpp"

using namespace kelvane;
namespace fs = std::filesystem;

namespace {

// Records far too large for a stack, as in the tool itself.
Project first;
Project second;

fs::path scratch(char const* name) {
  fs::path const dir = unit_test_scratch_root() / "project" / name;
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir;
}

void write(fs::path const& file, std::string const& text) {
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << text;
}

std::string read(fs::path const& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

TEST(ProjectInitial, TwiceGivesIdenticalBytes) {
  std::memset(&first, 0x5a, sizeof first);
  project_initialize(&first);
  project_initialize(&second);
  EXPECT_EQ(std::memcmp(&first, &second, sizeof(Project)), 0);
  EXPECT_STREQ(first.build_stamp, "Mon Sep 29 23:24:55 PDT 2025");
}

TEST(ProjectInitial, TrackNamesAndChannels) {
  project_initialize(&first);
  EXPECT_EQ(std::string(first.track_settings[15].name.data), "T F");
  EXPECT_EQ(first.track_settings[15].midi_channel.value(), 16);
  EXPECT_EQ(std::string(first.track_settings[0].name.data), "T 0");
  EXPECT_EQ(first.track_settings[0].midi_channel.value(), 1);
  EXPECT_EQ(first.track_settings[10].type.index(), 0);
  // Apart from name and channel, the tracks start alike.
  for (int t = 1; t < kNumTracks; ++t) {
    TrackSettings a, b;
    bytes_copy(a, first.track_settings[0]);
    bytes_copy(b, first.track_settings[t]);
    bytes_clear(a.name);
    bytes_clear(b.name);
    a.midi_channel = b.midi_channel;
    EXPECT_TRUE(bytes_equal(a, b)) << t;
  }
}

TEST(ProjectInitial, MemoryEntriesAreInitial) {
  project_initialize(&first);
  for (int i = 0; i < kNumChordMemory; ++i) EXPECT_TRUE(project_chord_is_initial(&first, i));
  for (int i = 0; i < kNumModulationMemory; ++i) EXPECT_TRUE(project_modulation_is_initial(&first, i));
  for (int i = 0; i < kNumProgramVariables; ++i) EXPECT_TRUE(project_program_variable_is_initial(&first, i));
  first.chord_memory[3].num_chord_notes[0] = NumChordNotes::from_value(0);
  EXPECT_FALSE(project_chord_is_initial(&first, 3));
  first.modulation_memory[63].trigger[2] = Trigger::set_cell();
  EXPECT_FALSE(project_modulation_is_initial(&first, 63));
  // A variable's scope and flag hold the cells of 0, not empty cells.
  EXPECT_EQ(first.program_variables[5].scope.stored, (signed char)0x80);
  EXPECT_EQ(first.program_variables[5].show_in_track_settings.stored, (signed char)0x80);
}

TEST(ProjectInitial, DefaultsThatAreNumbers) {
  project_initialize(&first);
  EXPECT_EQ(first.project_settings.reverb_algorithm.index(), 23);
  EXPECT_EQ(first.project_settings.midi_port_in.stored, int(0x80000000u));
  EXPECT_TRUE(first.project_settings.global_ratio_callback.is_empty());
  EXPECT_EQ(first.project_settings.func_key_track_idx[7].value(), 0);
  EXPECT_EQ(first.mix_settings[4].volume.value(), 128);
  EXPECT_TRUE(bytes_zero(first.mix_modulation_mappings[4]));
  EXPECT_TRUE(bytes_zero(first.track_callbacks[9]));
  EXPECT_EQ(first.fx_parameters[9].srr_dry_wet.value(), 255);
  EXPECT_EQ(first.fx_parameters[9].volume_pre_filter.value(), 64);
  EXPECT_TRUE(first.fx_srr_callback[9].is_empty());
  EXPECT_EQ(first.allocated_patterns, 0);
}

TEST(ProjectLoad, NameFromThePath) {
  fs::path const dir = scratch("demo");
  project_load(&first, dir.c_str());
  EXPECT_STREQ(first.name, "demo");
  std::string const with_slash = dir.string() + "/";
  project_load(&first, with_slash.c_str());
  EXPECT_STREQ(first.name, "");
  project_load(&first, "songs/a_name_that_is_longer_than_thirty_one_bytes");
  EXPECT_EQ(std::string(first.name), std::string("a_name_that_is_longer_than_thirty_one_bytes").substr(0, 31));
  project_load(&first, "projects/<new project>");
  EXPECT_STREQ(first.name, "");
}

TEST(ProjectLoad, LegacyChordMemory) {
  fs::path const dir = scratch("legacy");
  write(dir / "project_settings.txt",
        "#version 1\nchord_memory[3][0] 5\nchord_memory_num_notes[5] 2\nchord_memory[7][1] \\x20+4\n"
        "chord_memory_num_notes[9] 4\n");
  project_load(&first, dir.c_str());
  EXPECT_EQ(first.chord_memory[3].notes[0].value(), 5);
  EXPECT_EQ(first.chord_memory[3].notes[1].value(), 0);
  EXPECT_EQ(first.chord_memory[3].num_chord_notes[0].value(), 4);
  EXPECT_EQ(first.chord_memory[5].num_chord_notes[0].value(), 2);
  EXPECT_EQ(first.chord_memory[7].notes[1].value(), 4);
  // An entry at its defaults is left alone, later notes stay empty.
  EXPECT_TRUE(project_chord_is_initial(&first, 9));
  EXPECT_TRUE(first.chord_memory[3].notes[8].is_empty());
  EXPECT_FALSE(project_chord_is_initial(&first, 3));
  EXPECT_TRUE(project_chord_is_initial(&first, 0));
}

TEST(ProjectLoad, TrackFilesAndChiptune) {
  fs::path const dir = scratch("tracks");
  write(dir / "track_02/track_settings.txt", "#version 1\ntype Chiptune\n");
  write(dir / "track_03/instrument_settings.txt", "audio_out_L 5\n");
  testing::internal::CaptureStdout();
  project_load(&first, dir.c_str());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "found Chiptune track type, promoting to MonoSampler!\n");
  EXPECT_EQ(first.track_settings[2].type.index(), 1);
  // Defaults of an existing file, not the initial values.
  EXPECT_EQ(first.track_settings[2].midi_channel.value(), 1);
  EXPECT_EQ(first.track_settings[2].name.data[0], 0);
  // On top of the initial state.
  EXPECT_EQ(first.track_settings[3].audio_out_L.value(), 5);
  EXPECT_EQ(first.track_settings[3].midi_channel.value(), 4);
  EXPECT_STREQ(first.track_settings[3].name.data, "T 3");
  // The flag holds for the rest of track 2 only.
  EXPECT_FALSE(chiptune_to_monosampler_promotion);
}

// The page selectors and the Chiptune flag are left as the last track that
// sets each one left them: a patch record's reset sets its selectors, and
// a track's patch files set them again.
TEST(ProjectLoad, PageSelectorsAndFlagAreWhatTheLastTrackLeft) {
  fs::path const dir = scratch("selectors");
  auto track = [&](int t, char const* type, char const* last_patch_lines) {
    char name[16];
    std::snprintf(name, sizeof name, "track_%02d", t);
    write(dir / name / "track_settings.txt", std::string("#version 1\ntype ") + type + "\n");
    write(dir / name / "patch_3f.txt", std::string("#version 1\n") + last_patch_lines);
    write(dir / name / "modulation_3f.txt", std::string("#version 1\n") + last_patch_lines);
  };
  track(1, "MonoSampler", "oscillator 2\n");
  track(4, "FMSynth", "oscillator 5\nenvelope 3\n");
  track(6, "MonoSampler", "oscillator 3\n");
  track(12, "OneShot", "idx 6\n");
  track(15, "Chiptune", "oscillator 1\nfinetune[0] 4\n");
  write(dir / "track_07/track_settings.txt", "#version 1\ntype Chiptune\n");
  write(dir / "track_09/mix_settings.txt", "#version 1\nbogus [1]=2\n");

  InstrumentParametersMonoSamplerIdx::oscillator = I<0, 3, 0>::from_value(3);
  InstrumentParametersFMSynthIdx::oscillator = I<0, 7, 0>::from_value(7);
  InstrumentParametersFMSynthIdx::envelope = I<0, 3, 0>::from_value(2);
  InstrumentParametersOneShotIdx::idx = I<0, 7, 0>::from_value(7);
  chiptune_to_monosampler_promotion = false;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  project_load(&first, dir.c_str());
  std::fflush(stdout);
  std::string const out = testing::internal::GetCapturedStdout();
  std::string const err = testing::internal::GetCapturedStderr();

  // The last track of each kind set them in its last patch: track 15 (a
  // Chiptune track, now a MonoSampler) the MonoSampler's, track 4 the
  // FMSynth's, track 12 the OneShot's.
  EXPECT_EQ(InstrumentParametersMonoSamplerIdx::oscillator.value(), 1);
  EXPECT_EQ(InstrumentParametersFMSynthIdx::oscillator.value(), 5);
  EXPECT_EQ(InstrumentParametersFMSynthIdx::envelope.value(), 3);
  EXPECT_EQ(InstrumentParametersOneShotIdx::idx.value(), 6);
  EXPECT_TRUE(chiptune_to_monosampler_promotion);
  EXPECT_EQ(out,
            "found Chiptune track type, promoting to MonoSampler!\n"
            "found Chiptune track type, promoting to MonoSampler!\n");
  EXPECT_EQ(err, "error: could not open \"" + (dir / "sequencer.txt").string() + "\" for reading!\n");
  chiptune_to_monosampler_promotion = false;
}

// A pipe among the slot files behind a file that ends the run is never
// opened (its open would wait for a writer).
TEST(ProjectLoadDeathTest, APipeBehindARunEndIsNotOpened) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  fs::path const dir = scratch("pipe");
  write(dir / "patterns/pattern_00.txt", "#version 1\n!steps MIDI\n0 op_code 0 load" + std::string(300, 'A') + "\n");
  ASSERT_EQ(mkfifo((dir / "patterns/pattern_08.txt").c_str(), 0600), 0);
  auto run = [&] {
    alarm(20);  // an open of the pipe would wait for ever
    project_load(&first, dir.c_str());
  };
  EXPECT_EXIT(run(), testing::KilledBySignal(SIGABRT), testing::HasSubstr("Assertion `strlen(s) < sizeof(buf) - 1' failed"));
}

TEST(ProjectSave, TwiceGivesIdenticalFiles) {
  fs::path const dir = scratch("twice");
  project_initialize(&first);
  first.sequencer[3][1] = PatternIdx::from_value(4);
  first.sequencer[5][2] = PatternIdx::magic_cell();
  testing::internal::CaptureStderr();
  project_save(&first, dir.c_str());
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "warning: pattern idx 4(4) is out of range of allocated patterns (0), removing\n");
  std::string const settings = read(dir / "project_settings.txt");
  std::string const sequencer = read(dir / "sequencer.txt");
  EXPECT_EQ(sequencer, "5 2 \x04\x04\n");
  testing::internal::CaptureStderr();
  project_save(&first, dir.c_str());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(read(dir / "project_settings.txt"), settings);
  EXPECT_EQ(read(dir / "sequencer.txt"), sequencer);
}
