#include <gtest/gtest.h>

#include "cell_text.hpp"

#include <string>
#include <vector>

#include "kelvane/types.hpp"

using namespace kelvane;
using namespace kelvane::testing_support;

namespace {

std::string fill(unsigned char byte, int count) { return std::string(size_t(count), char(byte)); }

// Checks a table entry by entry in index order: the count, the bytes of
// every entry, what each cell writes, and that each text reads back as the
// first index that has it.
template <class T>
void expect_list(std::vector<std::string> const& expected) {
  ASSERT_EQ(T::count(), int(expected.size()));
  for (int i = 0; i < int(expected.size()); ++i) {
    SCOPED_TRACE("index " + std::to_string(i));
    ASSERT_NE(T::name_of(i), nullptr);
    EXPECT_EQ(std::string(T::name_of(i)), expected[size_t(i)]);
    EXPECT_EQ(fmt(T::from_index(i)), expected[size_t(i)]);
    int first = i;
    for (int j = 0; j < i; ++j)
      if (expected[size_t(j)] == expected[size_t(i)]) {
        first = j;
        break;
      }
    T read = T::parse_string(expected[size_t(i)].c_str());
    EXPECT_FALSE(read.is_empty());
    EXPECT_EQ(read.index(), first);
  }
  EXPECT_EQ(T::name_of(-1), nullptr);
  EXPECT_EQ(T::name_of(int(expected.size())), nullptr);
}

template <class T>
bool reads_unknown(char const* text) {
  return T::parse_string(text).stored == 0;
}

}  // namespace

// ---------------------------------------------------------------------------
// The lists, entry by entry.

TEST(EnumLists, ModulatorWaveform) {
  expect_list<ModulatorWaveform>({"tri", "irt", "tri\xF1", "rdn", "rup", "low", "hig", "neg", "s50",
                                  "s25", "s12", "s50\xF1", "s25\xF1", "s12\xF1", "edn", "eup"});
}

TEST(EnumLists, ModulatorMultType) {
  expect_list<ModulatorMultType>({"*1", "*2", "*2/3", "*4", "*4/3", "*6", "*8", "*8/3", "*10",
                                  "*12", "*14", "*16", "/2", "/3", "/6"});
}

TEST(EnumLists, ModCombineOp) {
  expect_list<ModCombineOp>({"src0", "add", "sub", "mul", "min", "max"});
}

TEST(EnumLists, BreakBeatIdx) {
  expect_list<BreakBeatIdx>({"amen",
                             "amen2",
                             "apache",
                             "cold_sweat",
                             "dont_change_your_love",
                             "flow",
                             "foold_gold",
                             "funky_drummer",
                             "god_made_me_funky",
                             "hot_pants",
                             "runner",
                             "new_orleans",
                             "plastic_jam",
                             "scorpio",
                             "sesame_street",
                             "sniper",
                             "worm",
                             "user0",
                             "user1",
                             "user2",
                             "user3"});
}

TEST(EnumLists, PatternType) {
  expect_list<PatternType>({"MIDI", "MonoSampler", "PolySampler", "FMSynth", "BreakBeat", "OneShot",
                            "CVGate", "Graphics", "Utility"});
}

TEST(EnumLists, ChiptuneWaveform) {
  expect_list<ChiptuneWaveform>({"sine", "square", "sawtooth", "supersaw", "noise"});
}

TEST(EnumLists, ModulatorOutputType) {
  expect_list<ModulatorOutputType>({"disabled", "0..5", "-5..5", "0..10", "-10..10"});
}

TEST(EnumLists, AudioOutputRouting) {
  expect_list<AudioOutputRouting>({"master", "external (mono)", "external (stereo)", "send only"});
}

TEST(EnumLists, ProjectSettingsPage) {
  expect_list<ProjectSettingsPage>({"live", "reverb", "delay", "compressor", "midi", "sequencer",
                                    "func_keys", "midi_callback", "cv_out", "modulators", "routing",
                                    "system"});
}

TEST(EnumLists, UIStartStopMode) {
  expect_list<UIStartStopMode>({"default", "stop_protect (start + stop)"});
}

TEST(EnumLists, DelayMode) { expect_list<DelayMode>({"bpm", "ticks"}); }

TEST(EnumLists, FuncKey) {
  expect_list<FuncKey>({"F1", "F2", "F3", "F4", "F5", "F6", "F7", "F8", "F9", "F10", "F11", "F12"});
}

TEST(EnumLists, MemoryDisplayFormat) { expect_list<MemoryDisplayFormat>({"dec", "hex", "note"}); }

TEST(EnumLists, TableTriggerMode) {
  expect_list<TableTriggerMode>({"table_clock", "pattern_clock", "modulator", "note_on", "note",
                                 "note_off", "memory_nonempty", "whole_table_once"});
}

TEST(EnumLists, GraphicsTimeSource) {
  expect_list<GraphicsTimeSource>({"elapsed_time", "modulator", "modulator_phase"});
}

namespace {
std::vector<std::string> const common_sources = {
    "modulator",      "local_memory", "global_memory", "callback",   "cv_input",   "midi_cc",
    "track_vu_meter", "noise",        "pad_left_x",    "pad_left_y", "pad_left_z", "pad_right_x",
    "pad_right_y",    "pad_right_z",  "constant",      "delay_lfo",  "aux0",       "aux1"};

std::vector<std::string> sources_with(std::vector<std::string> const& tail) {
  std::vector<std::string> all = common_sources;
  all.insert(all.end(), tail.begin(), tail.end());
  return all;
}
}  // namespace

TEST(EnumLists, ModulationSourceGlobal) { expect_list<ModulationSourceGlobal>(common_sources); }

TEST(EnumLists, ModulationSourceSynth) {
  expect_list<ModulationSourceSynth>(
      sources_with({"filter_envelope", "amp_envelope", "velocity", "voice_parameter", "osc_0",
                    "osc_1", "sample", "pwm_lfo"}));
}

TEST(EnumLists, ModulationSourceMonoSampler) {
  expect_list<ModulationSourceMonoSampler>(
      sources_with({"filter_envelope", "amp_envelope", "velocity", "osc_0", "osc_1", "osc_2",
                    "osc_3", "sample", "pwm_lfo"}));
}

TEST(EnumLists, ModulationSourceOneShot) {
  expect_list<ModulationSourceOneShot>(
      sources_with({"velocity", "amp_envelope", "filter_envelope", "pitch_envelope"}));
}

TEST(EnumLists, ModulationSourceFMSynth) {
  expect_list<ModulationSourceFMSynth>(sources_with(
      {"velocity",   "osc_0",      "osc_1",      "osc_2",      "osc_3",      "osc_4",
       "osc_5",      "osc_6",      "osc_7",      "operator_0", "operator_1", "operator_2",
       "operator_3", "operator_4", "operator_5", "operator_6", "operator_7", "env_0",
       "env_1",      "env_2",      "env_3"}));
}

TEST(EnumLists, MidiverbAlgo) {
  expect_list<MidiverbAlgo>({
      "0.2s small  bright",      // 0
      "0.2s small  warm",        // 1
      "0.2s medium bright",      // 2
      "0.3s small  bright",      // 3
      "0.3s small  warm",        // 4
      "0.4s medium bright",      // 5
      "0.4s medium warm",        // 6
      "0.6s small  bright",      // 7
      "0.6s medium warm",        // 8
      "0.6s medium dark",        // 9
      "0.8s small  bright",      // 10
      "0.8s large  warm",        // 11
      "1.0s small  warm",        // 12
      "1.0s medium warm",        // 13
      "1.0s large  bright",      // 14
      "1.2s medium warm",        // 15
      "1.2s small  warm",        // 16
      "1.2s small  bright",      // 17
      "1.4s large  warm",        // 18
      "1.4s large  dark",        // 19
      "1.4s medium warm",        // 20
      "1.6s small  dark",        // 21
      "1.6s large  bright",      // 22
      "1.6s medium bright",      // 23
      "1.8s large  dark",        // 24
      "1.8s large  bright",      // 25
      "1.8s medium warm",        // 26
      "2.0s large  bright",      // 27
      "2.0s medium warm",        // 28
      "2.0s large  warm",        // 29
      "2.5s medium warm",        // 30
      "2.5s large  bright",      // 31
      "2.5s medium dark",        // 32
      "2.8s small  bright",      // 33
      "2.8s medium bright",      // 34
      "3.0s large  bright",      // 35
      "3.0s large  warm",        // 36
      "3.0s medium dark",        // 37
      "3.5s large  bright",      // 38
      "3.5s medium warm",        // 39
      "4.0s large  dark",        // 40
      "4.0s medium bright",      // 41
      "5.0s large  warm",        // 42
      "8.0s large  bright",      // 43
      "8.0s large  warm",        // 44
      "10s  large  bright",      // 45
      "10s  large  warm",        // 46
      "16s  large  dark",        // 47
      "18s  xlarge bright",      // 48
      "20s  xlarge dark",        // 49
      "gated 100ms",             // 50
      "gated 150ms",             // 51
      "gated 200ms",             // 52
      "gated 250ms",             // 53
      "gated 300ms",             // 54
      "gated 350ms",             // 55
      "gated 400ms",             // 56
      "gated 500ms",             // 57
      "gated 600ms",             // 58
      "reverse - 300ms",         // 59
      "reverse - 400ms",         // 60
      "reverse - 500ms",         // 61
      "reverse - 600ms",         // 62
      "defeat",                  // 63
      "echo long   flat ambi",   // 64
      "echo long   flat thick",  // 65
      "echo long   hpf",         // 66
      "echo long   hpf  wide",   // 67
      "echo long   bpf  ambi",   // 68
      "echo long   lpf  wide",   // 69
      "echo med    flat ambi",   // 70
      "echo med    flat wide",   // 71
      "echo med    hpf  ambi",   // 72
      "echo med    bpf  ambi",   // 73
      "echo med    lpf  ambi",   // 74
      "echo med    lpf  wide",   // 75
      "echo med    flat thick",  // 76
      "echo short  flat",        // 77
      "echo short  lpf  ambi",   // 78
      "echo short  hpf  ambi",   // 79
      "echo short  bpf  ambi",   // 80
      "echo short  flat",        // 81
      "echo short  flat wide",   // 82
      "echo xshort flat",        // 83
      "echo xshort bpf  wide",   // 84
      "2tap med    flat ambi",   // 85
      "2tap med    hpf  ambi",   // 86
      "2tap med    bpf  ambi",   // 87
      "2tap med    flat thick",  // 88
      "2tap short  flat wide",   // 89
      "2tap short  hpf  pan",    // 90
      "2tap short  bpf  ambi",   // 91
      "2tap short  lpf  ambi",   // 92
      "2tap xshort flat wide",   // 93
      "3tap med    flat pan",    // 94
      "3tap short  flat pan",    // 95
      "3tap short  lpf  ambi",   // 96
      "3tap short  bpf  ambi",   // 97
      "3tap short  hpf  ambi",   // 98
      "3tap xshort flat ambi",   // 99
      "regen med    flat",       // 100
      "regen med    hpf ambi",   // 101
      "regen med    bpf ambi",   // 102
      "regen med    lpf ambi",   // 103
      "regen short  flat",       // 104
      "regen xshort flat",       // 105
      "slap1",                   // 106
      "slap2",                   // 107
      "slap3",                   // 108
      "slap4",                   // 109
      "slap5",                   // 110
      "reverb short   gate",     // 111
      "reverb medium  warm",     // 112
      "reverb medium  bloom",    // 113
      "reverb medium  pan",      // 114
      "reverb long    hpf",      // 115
      "reverb reverse",          // 116
      "reverb reverse regen",    // 117
      "multitap pan",            // 118
      "multitap reverb",         // 119
      "multitap reverse pan",    // 120
      "thickener",               // 121
      "thickener dense",         // 122
      "stereogen ambient",       // 123
      "stereogen thick",         // 124
      "stereogen wide",          // 125
      "stereogen xwide",         // 126
      "defeat",                  // 127
  });
}

// ---------------------------------------------------------------------------
// Storage.

TEST(EnumCells, ByteCellsStoreIndexWithSignBitFlipped) {
  EXPECT_EQ(ModulatorWaveform::empty_cell().stored, 0);
  EXPECT_TRUE(ModulatorWaveform::empty_cell().is_empty());
  EXPECT_EQ((unsigned char)ModulatorWaveform::from_index(0).stored, 0x80);
  EXPECT_EQ((unsigned char)ModulatorWaveform::from_index(15).stored, 0x8F);
  EXPECT_EQ((unsigned char)MidiverbAlgo::from_index(127).stored, 0xFF);
  EXPECT_EQ((unsigned char)FuncKey::parse_string("F12").stored, 0x8B);
  EXPECT_EQ(sizeof(MidiverbAlgo), 1u);
  EXPECT_EQ(sizeof(ModulationSourceFMSynth), 1u);
}

TEST(EnumCells, PatternTypeIsAnIntCell) {
  EXPECT_EQ(sizeof(PatternType), 4u);
  EXPECT_EQ((unsigned)PatternType::from_index(0).stored, 0x80000000u);
  EXPECT_EQ((unsigned)PatternType::from_index(8).stored, 0x80000008u);
  EXPECT_EQ((unsigned)PatternType::parse_string("Utility").stored, 0x80000008u);
  EXPECT_EQ(PatternType::empty_cell().stored, 0);
}

TEST(EnumCells, AllZeroMemoryIsEmpty) {
  MidiverbAlgo a{};
  PatternType t{};
  EXPECT_TRUE(a.is_empty());
  EXPECT_TRUE(t.is_empty());
}

// ---------------------------------------------------------------------------
// Empty texts, defaults and widths.

TEST(EnumEmptyText, SettingsWriterTexts) {
  EXPECT_EQ(std::string(ChiptuneWaveform::empty_text), fill(0xF9, 12));
  EXPECT_EQ(std::string(ModCombineOp::empty_text), fill(0xB0, 8));
  EXPECT_EQ(std::string(ModulatorOutputType::empty_text), fill(0xF9, 10));
  EXPECT_EQ(std::string(AudioOutputRouting::empty_text), fill(0xF9, 20));
  EXPECT_EQ(std::string(ProjectSettingsPage::empty_text), fill(0xF9, 12));
  EXPECT_EQ(std::string(UIStartStopMode::empty_text), fill(0xF9, 30));
  EXPECT_EQ(std::string(FuncKey::empty_text), fill(0xF9, 2));
  EXPECT_EQ(std::string(MidiverbAlgo::empty_text), fill(0xB0, 24));
  EXPECT_EQ(std::string(DelayMode::empty_text), fill(0xB0, 8));
  EXPECT_EQ(std::string(TableTriggerMode::empty_text), fill(0xB0, 16));
  EXPECT_EQ(std::string(ModulationSourceGlobal::empty_text), fill(0xB0, 16));
  EXPECT_EQ(std::string(ModulationSourceSynth::empty_text), fill(0xB0, 16));
  EXPECT_EQ(std::string(ModulationSourceMonoSampler::empty_text), fill(0xB0, 16));
  EXPECT_EQ(std::string(ModulationSourceOneShot::empty_text), fill(0xB0, 16));
  EXPECT_EQ(std::string(ModulationSourceFMSynth::empty_text), fill(0xB0, 16));
}

TEST(EnumEmptyText, OpCodeColumnsBlankTheirWidth) {
  EXPECT_EQ(std::string(ModulatorWaveform::empty_text), fill(0xF9, 4));
  EXPECT_EQ(std::string(ModulatorMultType::empty_text), fill(0xF9, 4));
}

TEST(EnumEmptyText, EmptyCellWritesIt) {
  EXPECT_EQ(fmt(ChiptuneWaveform{}), fill(0xF9, 12));
  EXPECT_EQ(fmt(ModCombineOp{}), fill(0xB0, 8));
  EXPECT_EQ(fmt(AudioOutputRouting{}), fill(0xF9, 20));
  EXPECT_EQ(fmt(MidiverbAlgo{}), fill(0xB0, 24));
  EXPECT_EQ(fmt(DelayMode{}), fill(0xB0, 8));
  EXPECT_EQ(fmt(FuncKey{}), fill(0xF9, 2));
  EXPECT_EQ(fmt(ModulationSourceFMSynth{}), fill(0xB0, 16));
  EXPECT_EQ(fmt(ModulatorWaveform{}), fill(0xF9, 4));
  EXPECT_EQ(fmt(TableTriggerMode{}), fill(0xB0, 16));
}

TEST(EnumEmptyText, EmptyTextReadsAsUnknown) {
  EXPECT_TRUE(reads_unknown<ChiptuneWaveform>(ChiptuneWaveform::empty_text));
  EXPECT_TRUE(reads_unknown<MidiverbAlgo>(MidiverbAlgo::empty_text));
  EXPECT_TRUE(reads_unknown<DelayMode>(DelayMode::empty_text));
  EXPECT_TRUE(reads_unknown<ModulatorWaveform>(ModulatorWaveform::empty_text));
  EXPECT_TRUE(reads_unknown<ModulationSourceSynth>(ModulationSourceSynth::empty_text));
}

TEST(EnumDefaults, DefaultIndices) {
  EXPECT_EQ(MidiverbAlgo::default_index, 23);
  EXPECT_EQ(fmt(MidiverbAlgo::default_cell()), "1.6s medium bright");
  EXPECT_EQ(fmt(ProjectSettingsPage::default_cell()), "live");
  EXPECT_EQ(fmt(UIStartStopMode::default_cell()), "default");
  EXPECT_EQ(fmt(DelayMode::default_cell()), "bpm");
  EXPECT_EQ(fmt(FuncKey::default_cell()), "F1");
  EXPECT_EQ(fmt(ModulatorOutputType::default_cell()), "disabled");
  EXPECT_EQ(fmt(AudioOutputRouting::default_cell()), "master");
  EXPECT_EQ(fmt(ChiptuneWaveform::default_cell()), "sine");
  EXPECT_EQ(fmt(ModCombineOp::default_cell()), "src0");
  EXPECT_EQ(fmt(GraphicsTimeSource::default_cell()), "elapsed_time");
  EXPECT_EQ(fmt(TableTriggerMode::default_cell()), "table_clock");
  EXPECT_EQ(fmt(MemoryDisplayFormat::default_cell()), "dec");
  EXPECT_EQ(fmt(PatternType::default_cell()), "MIDI");
  EXPECT_EQ(fmt(ModulationSourceGlobal::default_cell()), "modulator");
  EXPECT_EQ(fmt(ModulationSourceSynth::default_cell()), "modulator");
  EXPECT_EQ(fmt(ModulationSourceMonoSampler::default_cell()), "modulator");
  EXPECT_EQ(fmt(ModulationSourceOneShot::default_cell()), "modulator");
  EXPECT_EQ(fmt(ModulationSourceFMSynth::default_cell()), "modulator");
  EXPECT_EQ(ModulatorWaveform::default_index, 0);
  EXPECT_EQ(ModulatorMultType::default_index, 0);
  EXPECT_EQ(BreakBeatIdx::default_index, 0);
  EXPECT_EQ(OSEnvelopePage::default_index, 0);
}

namespace {
template <class T>
constexpr bool has_text_width = requires {
  T::text_width;
};
}  // namespace

TEST(EnumDefaults, OpCodeColumnWidths) {
  EXPECT_EQ(ModulatorWaveform::text_width, 4);
  EXPECT_EQ(ModulatorMultType::text_width, 4);
  EXPECT_FALSE(has_text_width<BreakBeatIdx>);
  EXPECT_FALSE(has_text_width<MidiverbAlgo>);
}

// ---------------------------------------------------------------------------
// Reading.

TEST(EnumParse, ExactComparisonOnly) {
  EXPECT_EQ(ModulatorWaveform::parse_string("rup").index(), 4);
  EXPECT_EQ(ModulatorWaveform::parse_string("eup").index(), 15);
  EXPECT_TRUE(reads_unknown<ModulatorWaveform>("TRI"));
  EXPECT_TRUE(reads_unknown<ModulatorWaveform>(" tri"));
  EXPECT_TRUE(reads_unknown<ModulatorWaveform>("tri "));
  EXPECT_TRUE(reads_unknown<ModulatorWaveform>("tr"));
  EXPECT_TRUE(reads_unknown<ModulatorWaveform>(""));
  EXPECT_EQ(ModCombineOp::parse_string("max").index(), 5);
  EXPECT_TRUE(reads_unknown<ModCombineOp>("src"));
  EXPECT_TRUE(reads_unknown<ModCombineOp>("Add"));
  EXPECT_EQ(BreakBeatIdx::parse_string("user3").index(), 20);
  EXPECT_EQ(BreakBeatIdx::parse_string("dont_change_your_love").index(), 4);
  EXPECT_TRUE(reads_unknown<BreakBeatIdx>("user4"));
}

TEST(EnumParse, MultTypeNeverMatchesAPrefix) {
  EXPECT_EQ(ModulatorMultType::parse_string("*2").index(), 1);
  EXPECT_EQ(ModulatorMultType::parse_string("*2/3").index(), 2);
  EXPECT_EQ(ModulatorMultType::parse_string("*8/3").index(), 7);
  EXPECT_EQ(ModulatorMultType::parse_string("/6").index(), 14);
  EXPECT_TRUE(reads_unknown<ModulatorMultType>("*2/"));
  EXPECT_TRUE(reads_unknown<ModulatorMultType>("*3"));
  EXPECT_TRUE(reads_unknown<ModulatorMultType>("*1 "));
}

TEST(EnumParse, SettingsEnumerations) {
  EXPECT_EQ(ChiptuneWaveform::parse_string("supersaw").index(), 3);
  EXPECT_TRUE(reads_unknown<ChiptuneWaveform>("saw"));
  EXPECT_EQ(ModulatorOutputType::parse_string("-10..10").index(), 4);
  EXPECT_TRUE(reads_unknown<ModulatorOutputType>("10..10"));
  EXPECT_EQ(ProjectSettingsPage::parse_string("midi_callback").index(), 7);
  EXPECT_TRUE(reads_unknown<ProjectSettingsPage>("Live"));
  EXPECT_EQ(UIStartStopMode::parse_string("stop_protect (start + stop)").index(), 1);
  EXPECT_TRUE(reads_unknown<UIStartStopMode>("stop_protect"));
  EXPECT_EQ(FuncKey::parse_string("F10").index(), 9);
  EXPECT_TRUE(reads_unknown<FuncKey>("F13"));
  EXPECT_TRUE(reads_unknown<FuncKey>("f1"));
  EXPECT_EQ(MemoryDisplayFormat::parse_string("note").index(), 2);
  EXPECT_TRUE(reads_unknown<MemoryDisplayFormat>("notes"));
  EXPECT_EQ(TableTriggerMode::parse_string("note").index(), 4);
  EXPECT_EQ(TableTriggerMode::parse_string("note_on").index(), 3);
  EXPECT_TRUE(reads_unknown<TableTriggerMode>("table"));
  EXPECT_EQ(GraphicsTimeSource::parse_string("modulator_phase").index(), 2);
  EXPECT_TRUE(reads_unknown<GraphicsTimeSource>("phase"));
  EXPECT_EQ(MidiverbAlgo::parse_string("1.6s medium bright").index(), 23);
  EXPECT_TRUE(reads_unknown<MidiverbAlgo>("1.6s medium  bright"));
  EXPECT_TRUE(reads_unknown<MidiverbAlgo>("0.2s small bright"));
  EXPECT_EQ(PatternType::parse_string("FMSynth").index(), 3);
  EXPECT_TRUE(reads_unknown<PatternType>("Chiptune"));
}

TEST(EnumParse, EachSourceListKnowsOnlyItsOwnNames) {
  EXPECT_EQ(ModulationSourceGlobal::parse_string("aux1").index(), 17);
  EXPECT_TRUE(reads_unknown<ModulationSourceGlobal>("velocity"));
  EXPECT_EQ(ModulationSourceSynth::parse_string("velocity").index(), 20);
  EXPECT_EQ(ModulationSourceMonoSampler::parse_string("velocity").index(), 20);
  EXPECT_EQ(ModulationSourceOneShot::parse_string("velocity").index(), 18);
  EXPECT_EQ(ModulationSourceFMSynth::parse_string("velocity").index(), 18);
  EXPECT_TRUE(reads_unknown<ModulationSourceSynth>("osc_2"));
  EXPECT_EQ(ModulationSourceMonoSampler::parse_string("osc_2").index(), 23);
  EXPECT_TRUE(reads_unknown<ModulationSourceMonoSampler>("voice_parameter"));
  EXPECT_TRUE(reads_unknown<ModulationSourceOneShot>("pwm_lfo"));
  EXPECT_TRUE(reads_unknown<ModulationSourceFMSynth>("pitch_envelope"));
  EXPECT_EQ(ModulationSourceFMSynth::parse_string("env_3").index(), 38);
}

TEST(EnumParse, SourceListsShareTheCommonTexts) {
  for (int i = 0; i < 18; ++i) {
    SCOPED_TRACE(i);
    // The same texts; whether the compiler keeps one copy of each is its
    // own business (builds with sanitizers keep several).
    EXPECT_STREQ(ModulationSourceSynth::name_of(i), ModulationSourceGlobal::name_of(i));
    EXPECT_STREQ(ModulationSourceMonoSampler::name_of(i), ModulationSourceGlobal::name_of(i));
    EXPECT_STREQ(ModulationSourceOneShot::name_of(i), ModulationSourceGlobal::name_of(i));
    EXPECT_STREQ(ModulationSourceFMSynth::name_of(i), ModulationSourceGlobal::name_of(i));
  }
}

// ---------------------------------------------------------------------------
// The edge cases of the tables.

TEST(EnumEdgeCases, MidiverbDuplicateRowsReadBackAsTheFirst) {
  MidiverbAlgo echo = MidiverbAlgo::from_index(81);
  EXPECT_EQ(fmt(echo), "echo short  flat");
  EXPECT_EQ(MidiverbAlgo::parse_string(fmt(echo).c_str()).index(), 77);
  EXPECT_EQ(std::string(MidiverbAlgo::name_of(77)), std::string(MidiverbAlgo::name_of(81)));

  MidiverbAlgo defeat = MidiverbAlgo::from_index(127);
  EXPECT_EQ(fmt(defeat), "defeat");
  EXPECT_EQ(MidiverbAlgo::parse_string(fmt(defeat).c_str()).index(), 63);
  EXPECT_EQ(std::string(MidiverbAlgo::name_of(63)), "defeat");
}

TEST(EnumEdgeCases, WaveformGlyphByteCounts) {
  EXPECT_EQ(ModulatorWaveform::parse_string("tri\xF1").index(), 2);
  EXPECT_EQ(ModulatorWaveform::parse_string("tri").index(), 0);
  EXPECT_EQ(fmt(ModulatorWaveform::from_index(2)), "tri\xF1");
  EXPECT_EQ(fmt(ModulatorWaveform::from_index(2)).size(), 4u);
  EXPECT_EQ(ModulatorWaveform::parse_string("s50\xF1").index(), 11);
  EXPECT_EQ(ModulatorWaveform::parse_string("s12\xF1").index(), 13);
  // The reader sees the decoded bytes; the escape itself is not a name.
  EXPECT_TRUE(reads_unknown<ModulatorWaveform>("tri\\xf1"));
}

TEST(EnumEdgeCases, RoutingWithBlanks) {
  EXPECT_EQ(AudioOutputRouting::parse_string("external (stereo)").index(), 2);
  EXPECT_EQ(AudioOutputRouting::parse_string("external (mono)").index(), 1);
  EXPECT_EQ(AudioOutputRouting::parse_string("send only").index(), 3);
  EXPECT_TRUE(reads_unknown<AudioOutputRouting>("external\\x20(stereo)"));
  EXPECT_TRUE(reads_unknown<AudioOutputRouting>("external"));
}

TEST(EnumEdgeCases, BreakBeatCaseAndWholeText) {
  EXPECT_EQ(BreakBeatIdx::parse_string("foold_gold").index(), 6);
  EXPECT_TRUE(reads_unknown<BreakBeatIdx>("Foold_gold"));
  EXPECT_TRUE(reads_unknown<BreakBeatIdx>("gold"));
  EXPECT_TRUE(reads_unknown<BreakBeatIdx>("fools_gold"));
}

TEST(EnumEdgeCases, CombineOpPadTextIsUnknown) {
  EXPECT_TRUE(reads_unknown<ModCombineOp>(fill(0xB0, 8).c_str()));
}

// ---------------------------------------------------------------------------
// Writing.

TEST(EnumPatternType, ToString) {
  char const* expected[] = {"MIDI",    "MonoSampler", "PolySampler", "FMSynth", "BreakBeat",
                            "OneShot", "CVGate",      "Graphics",    "Utility"};
  for (int i = 0; i < 9; ++i)
    EXPECT_STREQ(PatternType::to_string(PatternType::from_index(i)), expected[i]);
}

TEST(EnumPatternTypeDeathTest, IndexAboveTableAsserts) {
  EXPECT_DEATH(PatternType::to_string(PatternType::from_index(9)), "not implemented");
  EXPECT_DEATH(fmt(PatternType::from_index(9)), "not implemented");
}

TEST(EnumDelayMode, WriterGivesTicksForAnyOtherNumber) {
  EXPECT_EQ(fmt(DelayMode::from_index(0)), "bpm");
  EXPECT_EQ(fmt(DelayMode::from_index(1)), "ticks");
  EXPECT_EQ(fmt(DelayMode::from_index(2)), "ticks");
  EXPECT_EQ(fmt(DelayMode::from_index(100)), "ticks");
  EXPECT_EQ(fmt(DelayMode::from_index(-1)), "ticks");
  EXPECT_EQ(fmt(DelayMode{}), fill(0xB0, 8));
  EXPECT_EQ(DelayMode::parse_string("ticks").index(), 1);
  EXPECT_EQ(DelayMode::parse_string("bpm").index(), 0);
  EXPECT_TRUE(reads_unknown<DelayMode>("Ticks"));
}

TEST(EnumFormat, OutOfTableWritesTheEmptyText) {
  EXPECT_EQ(fmt(ModulatorWaveform::from_index(16)), fill(0xF9, 4));
  EXPECT_EQ(fmt(ModulatorMultType::from_index(15)), fill(0xF9, 4));
  EXPECT_EQ(fmt(ModulatorMultType::from_index(-1)), fill(0xF9, 4));
  EXPECT_EQ(fmt(FuncKey::from_index(12)), fill(0xF9, 2));
  EXPECT_EQ(fmt(ModulationSourceGlobal::from_index(18)), fill(0xB0, 16));
  EXPECT_EQ(fmt(ModulationSourceFMSynth::from_index(39)), fill(0xB0, 16));
  EXPECT_EQ(fmt(ModulationSourceFMSynth::from_index(38)), "env_3");
  EXPECT_EQ(fmt(BreakBeatIdx::from_index(21)), "");
}

TEST(EnumFormat, StaysInsideTheBuffer) {
  char buf[8];
  std::memset(buf, 'x', sizeof buf);
  AudioOutputRouting::from_index(2).format_string(buf, 4);
  EXPECT_EQ(std::string(buf), "ext");
  EXPECT_EQ(buf[4], 'x');

  std::memset(buf, 'x', sizeof buf);
  AudioOutputRouting{}.format_string(buf, 5);
  EXPECT_EQ(std::string(buf), fill(0xF9, 4));
  EXPECT_EQ(buf[5], 'x');

  std::memset(buf, 'x', sizeof buf);
  MidiverbAlgo::from_index(0).format_string(buf, 1);
  EXPECT_EQ(buf[0], 0);
  EXPECT_EQ(buf[1], 'x');

  std::memset(buf, 'x', sizeof buf);
  MidiverbAlgo::from_index(0).format_string(buf, 0);
  EXPECT_EQ(buf[0], 'x');
}

TEST(EnumFormat, OpCodeColumnMayEndEarly) {
  // A three-letter waveform leaves its NUL inside the four places.
  char buf[16];
  std::memset(buf, 'x', sizeof buf);
  ModulatorWaveform::from_index(0).format_string(buf, sizeof buf);
  EXPECT_EQ(buf[3], 0);
  ModulatorMultType::from_index(2).format_string(buf, sizeof buf);
  EXPECT_EQ(std::string(buf), "*2/3");
}

TEST(EnumOSEnvelopePage, HasNoText) {
  EXPECT_FALSE(OSEnvelopePage::has_text);
  EXPECT_TRUE(OSEnvelopePage::parse_string("amp").is_empty());
  EXPECT_TRUE(OSEnvelopePage::parse_string("").is_empty());
  EXPECT_EQ(fmt(OSEnvelopePage{}), "");
  EXPECT_EQ(sizeof(OSEnvelopePage), 1u);
}

TEST(EnumConcept, NamedEnumerations) {
  EXPECT_TRUE(NamedEnumeration<MidiverbAlgo>);
  EXPECT_TRUE(NamedEnumeration<PatternType>);
  EXPECT_TRUE(NamedEnumeration<ModulationSourceFMSynth>);
  EXPECT_FALSE(NamedEnumeration<OSEnvelopePage>);
  EXPECT_FALSE(NamedEnumeration<TableIdx>);
}
