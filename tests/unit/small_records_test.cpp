#include <gtest/gtest.h>

#include "settings_text.hpp"

#include <string>

#include "settings/small_records.hpp"

using namespace kelvane;
using namespace kelvane::testing_support;

namespace {

}  // namespace

TEST(SmallRecordsPattern, HeaderLinesInFileOrder) {
  auto p = fresh<PatternSettings>();
  std::memcpy(p.name.data, "bass line", 9);
  std::string expected = "length 64\nspeed 6\nname bass\\x20line\n";
  for (int i = 0; i < 8; ++i) expected += "mute_note_column[" + std::to_string(i) + "] 0\n";
  expected += "clock_tick_callback \\xf9\\xf9\nstep_callback \\xf9\\xf9\nstart_callback \\xf9\\xf9\n"
              "stop_callback \\xf9\\xf9\n";
  for (char const* key : {"transpose_callback", "chord_callback", "note_callback"})
    for (int i = 0; i < 4; ++i) expected += std::string(key) + "[" + std::to_string(i) + "] \\xf9\\xf9\n";
  EXPECT_EQ(written(p), expected);
}

TEST(SmallRecordsPattern, LengthAndSpeed) {
  auto p = fresh<PatternSettings>();
  p.length = PatternLength::from_value(8);
  EXPECT_EQ(written(p).substr(0, 15), "length \\x208\nsp");
  read_text(p, "length \\x208\n");
  EXPECT_EQ(p.length.value(), 8);
  read_text(p, "length 65\nspeed 0\n");
  EXPECT_EQ(p.length.value(), 64);
  EXPECT_EQ(p.speed.value(), 6);
  read_text(p, "length 12\nspeed 96\nlength xx\n");
  EXPECT_EQ(p.length.value(), 12);
  EXPECT_EQ(p.speed.value(), 96);
  PatternSettings e;
  bytes_clear(e);
  std::string const empty = written(e);
  EXPECT_EQ(empty.substr(0, 27), "length \nspeed \\xfa\\xfa\nname");
}

TEST(SmallRecordsPattern, OlderCallbackKeys) {
  auto p = fresh<PatternSettings>();
  read_text(p, "callback_transpose[0] 01\ncallback_chord[1] 02\ncallback_start 03\ncallback_stop 04\n");
  EXPECT_EQ(p.transpose_callback[0].value(), 1);
  EXPECT_EQ(p.chord_callback[1].value(), 2);
  EXPECT_EQ(p.start_callback.value(), 3);
  EXPECT_EQ(p.stop_callback.value(), 4);
}

TEST(SmallRecordsPattern, FullNameRunsOnIntoSpeed) {
  auto p = fresh<PatternSettings>();
  std::memset(p.name.data, 'n', 32);
  std::string const text = written(p);
  EXPECT_NE(text.find("name " + std::string(32, 'n') + "\\x06\n"), std::string::npos);
  auto back = fresh<PatternSettings>();
  read_text(back, text);
  EXPECT_EQ(std::string(back.name.data, 32), std::string(32, 'n'));
  EXPECT_EQ(back.speed.value(), 6);
}

TEST(SmallRecordsTable, ResetGivesNoEmptyTexts) {
  auto t = fresh<TableSettings>();
  EXPECT_EQ(written(t),
            "trigger_mode table_clock\nspeed 6\nmodulator_idx 0\nnote_on_reset 0\naddress_space L\n"
            "address 00\nreset 1\nstart_callback \\xf9\\xf9\nstop_callback \\xf9\\xf9\n"
            "transpose_callback \\xf9\\xf9\nname \n");
  TableSettings e;
  bytes_clear(e);
  std::string pads;
  for (int i = 0; i < 16; ++i) pads += "\\xb0";
  std::string const head = "trigger_mode " + pads + "\nspeed \\xfa\\xfa\nmodulator_idx \\xf9\n";
  EXPECT_EQ(written(e).substr(0, head.size()), head);
}

TEST(SmallRecordsTable, Keys) {
  auto t = fresh<TableSettings>();
  read_text(t, "callback_start 01\ncallback_transpose[0] 02\nreset 5\naddress_space G\naddress 3f\n");
  EXPECT_EQ(t.start_callback.value(), 1);
  EXPECT_TRUE(t.transpose_callback.is_empty());
  EXPECT_EQ(t.reset.value(), 1);
  EXPECT_EQ(t.address_space.index(), 1);
  EXPECT_EQ(t.address.value(), 63);
  read_text(t, "reset 0\naddress_space X\n");
  EXPECT_EQ(t.reset.value(), 0);
  EXPECT_EQ(t.address_space.index(), 1);
}

TEST(SmallRecordsProgram, Header) {
  auto p = fresh<ProgramSettings>();
  EXPECT_EQ(written(p), "name \nmem_display_format dec\n");
  read_text(p, "mem_display_format note\nname counter\n");
  EXPECT_EQ(p.mem_display_format.index(), 2);
  EXPECT_EQ(written(p), "name counter\nmem_display_format note\n");
}

TEST(SmallRecordsFX, Defaults) {
  auto fx = fresh<FXParameters>();
  EXPECT_EQ(written(fx),
            "sample_rate_reduction 0\nsrr_dry_wet ff\ncutoff ff\nresonance 00\nvolume_pre_filter 40\n"
            "volume_post_filter 40\nsoftclip 0\n");
}

TEST(SmallRecordsVariable, OnlyNameKeepsScope) {
  ProgramVariable v;
  bytes_clear(v);
  v.scope = VariableScope::from_index(0);
  v.show_in_track_settings = Boolean::from_value(0);
  read_text(v, "#version 1\nname tempo\\x20div\nscope other\nshow_in_track_settings 2\n");
  EXPECT_EQ(v.scope.index(), 0);
  EXPECT_EQ(v.show_in_track_settings.value(), 0);
  EXPECT_EQ(written(v), "name tempo\\x20div\nscope global\nshow_in_track_settings 0\n");
}

TEST(SmallRecordsName, PatchNameRunsOnIntoTheNextName) {
  KVArray<char, 32> names[2];
  bytes_clear(names);
  std::memset(names[0].data, 'a', 32);
  std::memcpy(names[1].data, "bc", 2);
  PatchMemoryNameDialog d{&names[0], reinterpret_cast<char const*>(names + 2)};
  EXPECT_EQ(written(d), "name " + std::string(32, 'a') + "bc\n");
  PatchMemoryNameDialog last{&names[1], reinterpret_cast<char const*>(names + 2)};
  EXPECT_EQ(written(last), "name bc\n");
}

TEST(SmallRecordsLegacy, KeysAndDefaults) {
  auto l = fresh<LegacyChordMemory>();
  EXPECT_EQ(l.chord_memory_num_notes[15].value(), 4);
  EXPECT_EQ(l.chord_memory[15][7].value(), 0);
  read_text(l, "chord_memory[3][0] 5\nchord_memory_num_notes[3] 9\nchord_memory[15][7] -12\n");
  EXPECT_EQ(l.chord_memory[3][0].value(), 5);
  EXPECT_EQ(l.chord_memory_num_notes[3].value(), 4);
  EXPECT_EQ(l.chord_memory[15][7].value(), -12);
  std::string const text = written(l);
  std::string const head = "chord_memory_num_notes[0] 4\nchord_memory[0][0] \\x20+0\nchord_memory[0][1] ";
  EXPECT_EQ(text.substr(0, head.size()), head);
}
