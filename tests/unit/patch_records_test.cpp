// The patch records of a track (instrument parameters and instrument
// modulation of every track type), the patch memory of a track, and the
// patch and FX patch files: the exact lines a fresh record gives, what the
// readers make of odd values, which files a save writes, what a load reads,
// and that random input never reaches outside a record.
//
// Every expected line is built here from the tables of keys and defaults,
// by loops over the indices of the keys, never copied from a run.

#include <gtest/gtest.h>

#include "scratch_dir.hpp"
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "settings_text.hpp"

#include "project/project.hpp"
#include "settings/dialog.hpp"
#include "settings/instrument_records.hpp"
#include "settings/small_records.hpp"

using namespace kelvane;
using namespace kelvane::testing_support;
namespace fs = std::filesystem;

namespace {

// ---------------------------------------------------------------------------
// Track types by their index in the type enumeration.

enum TrackType { kMIDI = 0, kMonoSampler, kPolySampler, kFMSynth, kBreakBeat, kOneShot, kCVGate, kGraphics, kUtility };

// ---------------------------------------------------------------------------
// Expected text, built from the tables.

// The byte between the field and the destination of a modulation key.
constexpr char kSep = '\x1a';

// Value texts of the defaults, as they stand in a file (after escaping).
std::string const kTransposeZero = "\\x20+0";              // "%+3d" of 0: " +0"
std::string const kFinetuneZero = "+0";                    // "%+02d" of 0
std::string const kCentsZero = "\\x20\\x20\\x20+0";        // "%+5d" of 0: "   +0"
std::string const kEmptyProgram = "\\xf9\\xf9";            // an empty ProgramIdx
std::string const kNoText = "";                            // an empty name or path

// "%02x" of a Param8Bit / Depth8Bit / ValueTemplate<255, d> default.
std::string hex2(int v) {
  char b[16];
  std::snprintf(b, sizeof b, "%02x", v);
  return b;
}
std::string dec(int v) { return std::to_string(v); }

std::string at(std::string const& name, int i) { return name + "[" + std::to_string(i) + "]"; }
std::string at(std::string const& name, int i, int j) { return at(at(name, i), j); }

// A modulation key: field, the byte 0x1A, destination.
std::string mkey(std::string const& field, std::string const& dest) { return field + kSep + dest; }

struct Lines {
  std::string text;
  int count = 0;
  void add(std::string const& key, std::string const& value) {
    text += key + " " + value + "\n";
    ++count;
  }
  void append(Lines const& other) {
    text += other.text;
    count += other.count;
  }
};

// The oscillator groups of the sampler records.
void sampler_oscillators(Lines& l, int n) {
  for (int i = 0; i < n; ++i) {
    l.add(at("volume", i), hex2(0));
    l.add(at("waveform", i), "sine");
    l.add(at("pulse_width", i), hex2(128));
    l.add(at("osc_transpose", i), kTransposeZero);
    l.add(at("osc_finetune", i), kFinetuneZero);
  }
}

Lines midi_parameters() {
  Lines l;
  for (int i = 0; i < 4; ++i) {
    l.add(at("column_override_channel", i), "0");
    l.add(at("column_channel", i), "1");
  }
  for (int i = 0; i < 4; ++i) {
    l.add(at("column_override_port", i), "0");
    l.add(at("column_port", i), "0");
  }
  return l;
}

Lines mono_sampler_parameters() {
  Lines l;
  l.add("sample_path", kNoText);
  l.add("sample_start", hex2(0));
  l.add("sample_end", hex2(255));
  l.add("loop_enable", "0");
  l.add("transpose", kTransposeZero);
  l.add("finetune", kFinetuneZero);
  l.add("interpolation", "1");
  l.add("sample_volume", hex2(128));
  l.add("repitch_to_bpm", "0");
  l.add("sample_length_steps", dec(16));
  l.add("cutoff", hex2(255));
  l.add("resonance", hex2(0));
  l.add("envelope_depth_filter", hex2(128));
  l.add("highpass_cutoff", hex2(0));
  l.add("volume_pre_filter", hex2(64));
  l.add("volume_post_filter", hex2(64));
  l.add("attack_filter", hex2(0));
  l.add("decay_filter", hex2(0));
  l.add("sustain_filter", hex2(255));
  l.add("release_filter", hex2(0));
  l.add("attack_amp", hex2(0));
  l.add("decay_amp", hex2(0));
  l.add("sustain_amp", hex2(255));
  l.add("release_amp", hex2(0));
  l.add("oscillator", dec(0));
  sampler_oscillators(l, 4);
  l.add("ringmod01_volume", hex2(0));
  l.add("ringmod23_volume", hex2(0));
  l.add("pwm_speed", hex2(16));
  l.add("pwm_depth", hex2(0));
  l.add("supersaw_detune", hex2(16));
  return l;
}

Lines poly_sampler_parameters() {
  Lines l;
  l.add("sample_path", kNoText);
  l.add("sample_start", hex2(0));
  l.add("sample_end", hex2(255));
  l.add("loop_enable", "0");
  l.add("sample_transpose", kTransposeZero);
  l.add("sample_finetune", kFinetuneZero);
  l.add("interpolation", "1");
  l.add("sample_volume", hex2(128));
  l.add("cutoff", hex2(255));
  l.add("resonance", hex2(0));
  l.add("envelope_depth_filter", hex2(128));
  l.add("volume_pre_filter", hex2(64));
  l.add("volume_post_filter", hex2(64));
  l.add("attack_filter", hex2(16));
  l.add("decay_filter", hex2(96));
  l.add("sustain_filter", hex2(32));
  l.add("release_filter", hex2(96));
  l.add("attack_amp", hex2(0));
  l.add("decay_amp", hex2(0));
  l.add("sustain_amp", hex2(255));
  l.add("release_amp", hex2(0));
  l.add("oscillator", "0");
  sampler_oscillators(l, 2);
  l.add("ringmod_volume", hex2(0));
  l.add("pwm_speed", hex2(16));
  l.add("pwm_depth", hex2(0));
  l.add("supersaw_detune", hex2(16));
  return l;
}

Lines fm_synth_parameters() {
  Lines l;
  l.add("oscillator", dec(0));
  for (int i = 0; i < 8; ++i) {
    l.add(at("volume", i), hex2(i == 0 ? 208 : 0));
    l.add(at("numerator", i), hex2(1));
    l.add(at("denominator", i), hex2(1));
    l.add(at("detune", i), kCentsZero);
    for (int j = 0; j < 8; ++j) l.add(at("phase_mod", i, j), hex2(0));
    l.add(at("env_select", i), dec(0));
  }
  l.add("envelope", dec(0));
  for (int i = 0; i < 4; ++i) {
    l.add(at("attack", i), hex2(0));
    l.add(at("decay", i), hex2(0));
    l.add(at("sustain", i), hex2(255));
    l.add(at("release", i), hex2(0));
  }
  l.add("cutoff", hex2(255));
  l.add("resonance", hex2(0));
  l.add("filter_env_select", dec(1));
  l.add("envelope_depth_filter", hex2(128));
  l.add("volume_pre_filter", hex2(64));
  l.add("volume_post_filter", hex2(64));
  l.add("ringmod01_volume", hex2(0));
  l.add("ringmod23_volume", hex2(0));
  l.add("ringmod01_env_select", dec(0));
  l.add("ringmod23_env_select", dec(0));
  l.add("unison", hex2(0));
  l.add("bitcrush", dec(0));
  return l;
}

Lines break_beat_parameters() {
  Lines l;
  l.add("volume_pre_filter", hex2(64));
  l.add("volume_post_filter", hex2(64));
  l.add("cutoff", hex2(255));
  l.add("resonance", hex2(0));
  l.add("highpass_cutoff", hex2(0));
  for (int i = 0; i < 4; ++i) l.add(at("sample_path", i), kNoText);
  return l;
}

Lines one_shot_instrument_parameters(int i) {
  Lines l;
  l.add(at("do_transpose", i), "1");
  l.add(at("do_velocity", i), "1");
  l.add(at("trigger_length", i), hex2(6));
  l.add(at("sample_path", i), kNoText);
  l.add(at("sample_start", i), hex2(0));
  l.add(at("sample_end", i), hex2(255));
  l.add(at("loop_enable", i), "0");
  l.add(at("sample_transpose", i), kTransposeZero);
  l.add(at("sample_finetune", i), kFinetuneZero);
  l.add(at("interpolation", i), "1");
  l.add(at("sample_volume", i), hex2(128));
  for (char const* env : {"amp", "filter", "pitch"}) {
    l.add(at(std::string("attack_") + env, i), hex2(0));
    l.add(at(std::string("decay_") + env, i), hex2(0));
    l.add(at(std::string("sustain_") + env, i), hex2(255));
    l.add(at(std::string("release_") + env, i), hex2(255));
  }
  l.add(at("cutoff", i), hex2(255));
  l.add(at("resonance", i), hex2(0));
  l.add(at("envelope_depth_filter", i), hex2(128));
  l.add(at("volume_pre_filter", i), hex2(64));
  l.add(at("volume_post_filter", i), hex2(64));
  l.add(at("panning", i), hex2(128));
  l.add(at("send_midi_note", i), "0");
  l.add(at("midi_note", i), "C-5");
  l.add(at("midi_channel", i), dec(1));
  l.add(at("midi_port", i), dec(0));
  l.add(at("trigger_callback", i), kEmptyProgram);
  l.add(at("release_callback", i), kEmptyProgram);
  return l;
}

Lines one_shot_parameters() {
  Lines l;
  for (int i = 0; i < 8; ++i) l.append(one_shot_instrument_parameters(i));
  return l;
}

Lines graphics_parameters() {
  Lines l;
  l.add("shader_idx", hex2(0));
  l.add("time_source", "elapsed_time");
  l.add("modulator_idx", "0");
  l.add("fg_color", "1");
  l.add("bg_color", "0");
  for (int i = 0; i < 4; ++i) l.add(at("bg_text", i), kNoText);
  return l;
}

Lines utility_parameters() {
  Lines l;
  l.add("program_idx[0]", kEmptyProgram);
  l.add("program_idx[1]", kEmptyProgram);
  for (int i = 0; i < 2; ++i) {
    l.add(at("audio_input_enable", i), dec(0));
    l.add(at("audio_input_volume", i), hex2(128));
    l.add(at("audio_input_left ", i), dec(0));
    l.add(at("audio_input_right ", i), dec(0));
  }
  l.add("highpass_cutoff", hex2(0));
  l.add("soft_clipping", dec(0));
  return l;
}

Lines expected_parameters(int type) {
  switch (type) {
    case kMIDI: return midi_parameters();
    case kMonoSampler: return mono_sampler_parameters();
    case kPolySampler: return poly_sampler_parameters();
    case kFMSynth: return fm_synth_parameters();
    case kBreakBeat: return break_beat_parameters();
    case kOneShot: return one_shot_parameters();
    case kGraphics: return graphics_parameters();
    case kUtility: return utility_parameters();
    default: return {};
  }
}

// The 18 lines of a full modulation slot of destination `dest`.
void full_slot(Lines& l, std::string const& dest) {
  l.add(mkey("depth", dest), hex2(128));
  l.add(mkey("src[0]", dest), "modulator");
  l.add(mkey("src[1]", dest), "modulator");
  for (int s = 0; s < 2; ++s) {
    l.add(mkey(at("mem_address", s), dest), hex2(0));
    l.add(mkey(at("modulator_idx", s), dest), "0");
    l.add(mkey(at("cv_in", s), dest), dec(0));
    l.add(mkey(at("midi_cc", s), dest), hex2(0));
    l.add(mkey(at("constant", s), dest), hex2(128));
    l.add(mkey(at("track_idx", s), dest), "0");
    l.add(mkey(at("callback", s), dest), kEmptyProgram);
  }
  l.add(mkey("mod_combine_op", dest), "src0");
}
// The single line of a depth-only destination.
void depth_only(Lines& l, std::string const& dest) { l.add(mkey("depth", dest), hex2(128)); }

Lines break_beat_modulation() {
  Lines l;
  full_slot(l, "volume[0]");
  full_slot(l, "volume[1]");
  full_slot(l, "filter");
  return l;
}

Lines mono_sampler_modulation() {
  Lines l;
  full_slot(l, "pitch");
  full_slot(l, "filter");
  full_slot(l, "volume");
  depth_only(l, "phase_osc0");
  depth_only(l, "phase_osc1");
  depth_only(l, "phase_smpl");
  full_slot(l, "phase");
  l.add("ratio_callback", kEmptyProgram);
  l.add("sample_position_callback", kEmptyProgram);
  return l;
}

Lines poly_sampler_modulation() {
  Lines l;
  full_slot(l, "pitch");
  full_slot(l, "filter");
  full_slot(l, "filter_stereo");
  depth_only(l, "env_rise");
  depth_only(l, "env_fall");
  full_slot(l, "env_time");
  full_slot(l, "volume");
  full_slot(l, "panning");
  depth_only(l, "phase_osc0");
  depth_only(l, "phase_osc1");
  depth_only(l, "phase_smpl");
  full_slot(l, "phase");
  l.add("ratio_callback", kEmptyProgram);
  l.add("sample_position_callback", kEmptyProgram);
  return l;
}

Lines fm_synth_modulation() {
  Lines l;
  full_slot(l, "pitch");
  depth_only(l, "env_rise");
  depth_only(l, "env_fall");
  full_slot(l, "env_time");
  for (int i = 0; i < 4; ++i) full_slot(l, at("sustain", i));
  full_slot(l, "filter");
  l.add("ratio_callback", kEmptyProgram);
  return l;
}

Lines one_shot_modulation() {
  Lines l;
  for (int i = 0; i < 8; ++i) {
    depth_only(l, at("phase_osc_0", i));
    depth_only(l, at("phase_osc_1", i));
    depth_only(l, at("phase_smple", i));
    full_slot(l, at("phase", i));
    full_slot(l, at("pitch", i));
    full_slot(l, at("filter", i));
    depth_only(l, at("env_time_amp", i));
    depth_only(l, at("env_time_filter", i));
    depth_only(l, at("env_time_pitch", i));
    full_slot(l, at("env_time", i));
    full_slot(l, at("volume", i));
    full_slot(l, at("panning", i));
    l.add(at("sample_position_callback", i), kEmptyProgram);
  }
  return l;
}

Lines expected_modulation(int type) {
  switch (type) {
    case kMonoSampler: return mono_sampler_modulation();
    case kPolySampler: return poly_sampler_modulation();
    case kFMSynth: return fm_synth_modulation();
    case kBreakBeat: return break_beat_modulation();
    case kOneShot: return one_shot_modulation();
    default: return {};
  }
}

int count_lines(std::string const& s) { return int(std::count(s.begin(), s.end(), '\n')); }

// A record as a fresh patch holds it.
template <class R>
R initial() {
  R r;
  patch_record_initialize(r);
  return r;
}

template <class R>
std::string initial_text() {
  R r = initial<R>();
  return written(r);
}

// Replaces the one line `key old` of a text by `key new`.
std::string with_line(std::string text, std::string const& key, std::string const& old_value,
                      std::string const& new_value) {
  std::string const from = key + " " + old_value + "\n";
  size_t pos = text.rfind("\n" + from);
  if (pos != std::string::npos) {
    ++pos;
  } else if (text.compare(0, from.size(), from) == 0) {
    pos = 0;
  } else {
    ADD_FAILURE() << "line not found: " << from;
    return text;
  }
  return text.replace(pos, from.size(), key + " " + new_value + "\n");
}

// Keeps the promotion flag as it was around a test that sets it.
struct PromotionFlag {
  bool saved = chiptune_to_monosampler_promotion;
  explicit PromotionFlag(bool value) { chiptune_to_monosampler_promotion = value; }
  ~PromotionFlag() { chiptune_to_monosampler_promotion = saved; }
};

// ---------------------------------------------------------------------------
// Projects and files.

// Far too large for a stack.
Project prj;
TrackPatchMemory saved_memory;
TrackPatchMemory neighbour_before;
TrackPatchMemory neighbour_after;

fs::path scratch_root() {
  return unit_test_scratch_root() / "patch_records";
}

fs::path scratch(std::string const& name) {
  fs::path const dir = scratch_root() / name;
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir;
}

void write_file(fs::path const& file, std::string const& text) {
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << text;
}

std::string read_file(fs::path const& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

std::set<std::string> files_in(fs::path const& dir) {
  std::set<std::string> names;
  for (auto const& e : fs::recursive_directory_iterator(dir))
    if (e.is_regular_file()) names.insert(fs::relative(e.path(), dir).string());
  return names;
}

void set_track_type(int track, int type) {
  prj.track_settings[track].type = PatternType::from_index(type);
  project_reset_patch_memory(&prj, track);
}

void set_name(PatchName& name, char const* text) {
  std::memset(name.data, 0, sizeof name.data);
  std::memcpy(name.data, text, std::min<size_t>(std::strlen(text), sizeof name.data));
}

TrackPatchMemory& memory(int track) { return prj.patch_memory[track]; }

}  // namespace

// ===========================================================================
// The lines of a fresh record, key by key.

TEST(InstrumentParametersText, MIDIFreshRecord) {
  Lines const l = midi_parameters();
  EXPECT_EQ(l.count, 16);
  EXPECT_EQ(initial_text<InstrumentParametersMIDI>(), l.text);
  // The head of the text, as the worked example of a MIDI patch has it.
  std::string const head = "column_override_channel[0] 0\ncolumn_channel[0] 1\ncolumn_override_channel[1] 0\n";
  EXPECT_EQ(l.text.substr(0, head.size()), head);
}

TEST(InstrumentParametersText, MonoSamplerFreshRecord) {
  Lines const l = mono_sampler_parameters();
  EXPECT_EQ(l.count, 25 + 4 * 5 + 5);
  EXPECT_EQ(initial_text<InstrumentParametersMonoSampler>(), l.text);
}

TEST(InstrumentParametersText, PolySamplerFreshRecord) {
  Lines const l = poly_sampler_parameters();
  EXPECT_EQ(l.count, 22 + 2 * 5 + 4);
  EXPECT_EQ(initial_text<InstrumentParametersPolySampler>(), l.text);
}

TEST(InstrumentParametersText, FMSynthFreshRecordHasFirstOperatorVolumeD0) {
  Lines const l = fm_synth_parameters();
  EXPECT_EQ(l.count, 1 + 8 * 13 + 1 + 4 * 4 + 12);
  std::string const text = initial_text<InstrumentParametersFMSynth>();
  EXPECT_EQ(text, l.text);
  EXPECT_NE(text.find("\nvolume[0] d0\n"), std::string::npos);
  EXPECT_NE(text.find("\nvolume[1] 00\n"), std::string::npos);
  // The default step alone leaves the first operator at its type's 0.
  auto bare = fresh<InstrumentParametersFMSynth>();
  EXPECT_EQ(bare.volume[0].value(), 0);
}

TEST(InstrumentParametersText, BreakBeatFreshRecord) {
  Lines const l = break_beat_parameters();
  EXPECT_EQ(l.count, 9);
  EXPECT_EQ(initial_text<InstrumentParametersBreakBeat>(), l.text);
}

TEST(InstrumentParametersText, BreakBeatWithSampleAsWorkedExample) {
  auto r = initial<InstrumentParametersBreakBeat>();
  char const path[] = "samples/breaks/amen.wav";
  std::memcpy(r.sample_path[0].data, path, sizeof path - 1);
  EXPECT_EQ(written(r),
            "volume_pre_filter 40\nvolume_post_filter 40\ncutoff ff\nresonance 00\nhighpass_cutoff 00\n"
            "sample_path[0] samples/breaks/amen.wav\nsample_path[1] \nsample_path[2] \nsample_path[3] \n");
}

TEST(InstrumentParametersText, OneShotFreshRecordHasNoIdxOrEnvelopeLine) {
  Lines const l = one_shot_parameters();
  EXPECT_EQ(l.count, 280);
  EXPECT_EQ(one_shot_instrument_parameters(3).count, 35);
  std::string const text = initial_text<InstrumentParametersOneShot>();
  EXPECT_EQ(text, l.text);
  EXPECT_EQ(count_lines(text), 8 * 35);
  EXPECT_EQ(text.find("idx "), std::string::npos);
  EXPECT_EQ(text.find("envelope "), std::string::npos);
  EXPECT_NE(text.find("\nmidi_note[7] C-5\n"), std::string::npos);
}

TEST(InstrumentParametersText, OneShotSelectorNotWrittenWhateverItHolds) {
  auto r = initial<InstrumentParametersOneShot>();
  InstrumentParametersOneShotIdx::idx = I<0, 7, 0>::from_value(5);
  EXPECT_EQ(written(r), one_shot_parameters().text);
  InstrumentParametersOneShotIdx::idx = I<0, 7, 0>::from_value(0);
}

TEST(InstrumentParametersText, GraphicsFreshRecordAsWorkedExample) {
  Lines const l = graphics_parameters();
  EXPECT_EQ(l.count, 9);
  EXPECT_EQ(initial_text<InstrumentParametersGraphics>(), l.text);
  EXPECT_EQ(l.text,
            "shader_idx 00\ntime_source elapsed_time\nmodulator_idx 0\nfg_color 1\nbg_color 0\n"
            "bg_text[0] \nbg_text[1] \nbg_text[2] \nbg_text[3] \n");
}

TEST(InstrumentParametersText, UtilityFreshRecordKeepsBlankInInputKeys) {
  Lines const l = utility_parameters();
  EXPECT_EQ(l.count, 2 + 2 * 4 + 2);
  std::string const text = initial_text<InstrumentParametersUtility>();
  EXPECT_EQ(text, l.text);
  EXPECT_NE(text.find("\naudio_input_left [0] 0\n"), std::string::npos);
  EXPECT_NE(text.find("\naudio_input_right [1] 0\n"), std::string::npos);
}

TEST(InstrumentParametersText, EmptyRecordWritesNothing) {
  auto r = initial<EmptyPatchRecord>();
  EXPECT_EQ(written(r), "");
  EXPECT_EQ(sizeof(EmptyPatchRecord), 1u);
  EXPECT_EQ(r.zero, 0);
}

TEST(InstrumentModulationText, BreakBeatFreshRecord) {
  Lines const l = break_beat_modulation();
  EXPECT_EQ(l.count, 3 * 18);
  std::string const text = initial_text<InstrumentModulationBreakBeat>();
  EXPECT_EQ(text, l.text);
  EXPECT_EQ(count_lines(text), 3 * 18);
}

TEST(InstrumentModulationText, BreakBeatHeadAsWorkedExample) {
  auto r = initial<InstrumentModulationBreakBeat>();
  r.volume[0].modulator_idx[0] = ModulatorIdx::from_value(3);
  std::string const text = written(r);
  std::string const head = std::string("depth") + kSep + "volume[0] 80\n" + "src[0]" + kSep +
                           "volume[0] modulator\n" + "src[1]" + kSep + "volume[0] modulator\n" +
                           "mem_address[0]" + kSep + "volume[0] 00\n" + "modulator_idx[0]" + kSep +
                           "volume[0] 3\n" + "cv_in[0]" + kSep + "volume[0] 0\n" + "midi_cc[0]" + kSep +
                           "volume[0] 00\n" + "constant[0]" + kSep + "volume[0] 80\n" + "track_idx[0]" +
                           kSep + "volume[0] 0\n" + "callback[0]" + kSep + "volume[0] \\xf9\\xf9\n";
  EXPECT_EQ(text.substr(0, head.size()), head);
}

TEST(InstrumentModulationText, MonoSamplerFreshRecord) {
  Lines const l = mono_sampler_modulation();
  EXPECT_EQ(l.count, 4 * 18 + 3 + 2);
  std::string const text = initial_text<InstrumentModulationMonoSampler>();
  EXPECT_EQ(text, l.text);
  EXPECT_EQ(count_lines(text), 4 * 18 + 3 + 2);
}

TEST(InstrumentModulationText, PolySamplerFreshRecord) {
  Lines const l = poly_sampler_modulation();
  EXPECT_EQ(l.count, 7 * 18 + 5 + 2);
  std::string const text = initial_text<InstrumentModulationPolySampler>();
  EXPECT_EQ(text, l.text);
  EXPECT_EQ(count_lines(text), 7 * 18 + 5 + 2);
}

TEST(InstrumentModulationText, FMSynthFreshRecord) {
  Lines const l = fm_synth_modulation();
  EXPECT_EQ(l.count, 7 * 18 + 2 + 1);
  std::string const text = initial_text<InstrumentModulationFMSynth>();
  EXPECT_EQ(text, l.text);
  EXPECT_EQ(count_lines(text), 7 * 18 + 2 + 1);
}

TEST(InstrumentModulationText, OneShotFreshRecord) {
  Lines const l = one_shot_modulation();
  EXPECT_EQ(l.count, 8 * (6 * 18 + 6 + 1));
  std::string const text = initial_text<InstrumentModulationOneShot>();
  EXPECT_EQ(text, l.text);
  EXPECT_EQ(count_lines(text), 8 * (6 * 18 + 6 + 1));
  EXPECT_EQ(text.find("idx "), std::string::npos);
  EXPECT_EQ(text.find("envelope "), std::string::npos);
}

TEST(InstrumentModulationText, KeysHoldTheRawByte1A) {
  std::string const mono = initial_text<InstrumentModulationMonoSampler>();
  EXPECT_EQ(mono.substr(0, 12), std::string("depth\x1a") + "pitch ");
  EXPECT_NE(mono.find(std::string("\ndepth") + kSep + "phase_smpl 80\n"), std::string::npos);
  EXPECT_EQ(mono.find("\\x1a"), std::string::npos);  // keys are never escaped
  std::string const bb = initial_text<InstrumentModulationBreakBeat>();
  EXPECT_NE(bb.find(std::string("\nsrc[0]") + kSep + "volume[1] modulator\n"), std::string::npos);
  std::string const os = initial_text<InstrumentModulationOneShot>();
  EXPECT_NE(os.find(std::string("\ndepth") + kSep + "phase_osc_0[3] 80\n"), std::string::npos);
  EXPECT_NE(os.find(std::string("\ndepth") + kSep + "phase_smple[7] 80\n"), std::string::npos);
  EXPECT_EQ(os.find("phase_osc0"), std::string::npos);
  EXPECT_EQ(os.find("phase_smpl["), std::string::npos);
  // Each key of a full slot is one word: field, 0x1A, destination.
  std::string const poly = initial_text<InstrumentModulationPolySampler>();
  EXPECT_NE(poly.find(std::string("\nmod_combine_op") + kSep + "filter_stereo src0\n"), std::string::npos);
}

TEST(InstrumentModulationText, EmptyRecordsForTypesWithoutModulation) {
  // MIDI, CVGate, Graphics and Utility have no modulation with members.
  for (int type : {kMIDI, kCVGate, kGraphics, kUtility}) EXPECT_EQ(expected_modulation(type).count, 0);
  auto r = initial<EmptyPatchRecord>();
  EXPECT_EQ(written(r), "");
}

// ===========================================================================
// Reading values into the parameter records.

TEST(InstrumentParametersRead, SampleLengthStepsOutOfRangeGivesDefault) {
  auto r = initial<InstrumentParametersMonoSampler>();
  r.sample_length_steps = I<1, 64, 16>::from_value(5);
  read_text(r, "sample_length_steps 0\n");
  EXPECT_EQ(r.sample_length_steps.value(), 16);
  r.sample_length_steps = I<1, 64, 16>::from_value(5);
  read_text(r, "sample_length_steps 65\n");
  EXPECT_EQ(r.sample_length_steps.value(), 16);
  read_text(r, "sample_length_steps 64\n");
  EXPECT_EQ(r.sample_length_steps.value(), 64);
  read_text(r, "sample_length_steps 1\n");
  EXPECT_EQ(r.sample_length_steps.value(), 1);
  // An empty text leaves the member as it was.
  read_text(r, "sample_length_steps \\xfa\n");
  EXPECT_EQ(r.sample_length_steps.value(), 1);
}

TEST(InstrumentParametersRead, Bitcrush) {
  auto r = initial<InstrumentParametersFMSynth>();
  r.bitcrush = I<0, 8, 0>::from_value(3);
  read_text(r, "bitcrush 9\n");
  EXPECT_EQ(r.bitcrush.value(), 0);
  EXPECT_FALSE(r.bitcrush.is_empty());
  read_text(r, "bitcrush 8\n");
  EXPECT_EQ(r.bitcrush.value(), 8);
}

TEST(InstrumentParametersRead, OscillatorSelectorFMSynth) {
  auto r = initial<InstrumentParametersFMSynth>();
  InstrumentParametersFMSynth const before = r;
  read_text(r, "oscillator 5\n");
  EXPECT_EQ(InstrumentParametersFMSynthIdx::oscillator.value(), 5);
  read_text(r, "envelope 3\n");
  EXPECT_EQ(InstrumentParametersFMSynthIdx::envelope.value(), 3);
  // The selectors live outside the record.
  EXPECT_TRUE(bytes_equal(r, before));
  read_text(r, "oscillator 8\nenvelope 4\n");
  EXPECT_EQ(InstrumentParametersFMSynthIdx::oscillator.value(), 0);
  EXPECT_EQ(InstrumentParametersFMSynthIdx::envelope.value(), 0);
  EXPECT_TRUE(bytes_equal(r, before));
}

TEST(InstrumentParametersRead, OscillatorSelectorMonoSamplerOutOfRange) {
  auto r = initial<InstrumentParametersMonoSampler>();
  InstrumentParametersMonoSampler const before = r;
  read_text(r, "oscillator 2\n");
  EXPECT_EQ(InstrumentParametersMonoSamplerIdx::oscillator.value(), 2);
  read_text(r, "oscillator 5\n");
  EXPECT_EQ(InstrumentParametersMonoSamplerIdx::oscillator.value(), 0);
  EXPECT_TRUE(bytes_equal(r, before));
}

TEST(InstrumentParametersRead, OscillatorOfPolySamplerIsAPlainHexMember) {
  auto r = initial<InstrumentParametersPolySampler>();
  InstrumentParametersMonoSamplerIdx::oscillator = I<0, 3, 0>::from_value(3);
  read_text(r, "oscillator 1\n");
  EXPECT_EQ(r.oscillator.value(), 1);
  read_text(r, "oscillator 5\n");
  EXPECT_EQ(r.oscillator.value(), 0);
  r.oscillator = V<1, 0>::from_value(1);
  read_text(r, "oscillator 2\n");
  EXPECT_EQ(r.oscillator.value(), 0);
  // The MonoSampler's selector is a different thing.
  EXPECT_EQ(InstrumentParametersMonoSamplerIdx::oscillator.value(), 3);
  r.oscillator = V<1, 0>::from_value(1);
  EXPECT_NE(written(r).find("\noscillator 1\n"), std::string::npos);
  InstrumentParametersMonoSamplerIdx::oscillator = I<0, 3, 0>::from_value(0);
}

TEST(InstrumentParametersRead, OneShotSelectorIsReadAndEnvelopePageStoresNothing) {
  auto r = initial<InstrumentParametersOneShot>();
  InstrumentParametersOneShot const before = r;
  read_text(r, "idx 5\n");
  EXPECT_EQ(InstrumentParametersOneShotIdx::idx.value(), 5);
  read_text(r, "envelope 3\nenvelope amp\n");
  EXPECT_TRUE(bytes_equal(r, before));
  read_text(r, "idx 8\n");
  EXPECT_EQ(InstrumentParametersOneShotIdx::idx.value(), 0);
  auto m = initial<InstrumentModulationOneShot>();
  InstrumentModulationOneShot const mbefore = m;
  read_text(m, "idx 6\n");
  EXPECT_EQ(InstrumentParametersOneShotIdx::idx.value(), 6);
  EXPECT_TRUE(bytes_equal(m, mbefore));
  InstrumentParametersOneShotIdx::idx = I<0, 7, 0>::from_value(0);
}

TEST(InstrumentParametersRead, GraphicsColoursAreHex) {
  auto r = initial<InstrumentParametersGraphics>();
  read_text(r, "fg_color a\n");
  EXPECT_EQ(r.fg_color.value(), 10);
  read_text(r, "fg_color 10\n");
  EXPECT_EQ(r.fg_color.value(), 1);
  r.bg_color = V<15, 0>::from_value(7);
  read_text(r, "bg_color 10\n");
  EXPECT_EQ(r.bg_color.value(), 0);
  read_text(r, "bg_color f\n");
  EXPECT_EQ(r.bg_color.value(), 15);
  EXPECT_NE(written(r).find("\nfg_color 1\nbg_color f\n"), std::string::npos);
  r.shader_idx = V<255, 0>::from_value(0x2b);
  EXPECT_NE(written(r).find("shader_idx 2b\n"), std::string::npos);
  r.fg_color = V<15, 1>::empty_cell();
  r.shader_idx = V<255, 0>::empty_cell();
  std::string const text = written(r);
  EXPECT_NE(text.find("shader_idx \\xf9\\xf9\n"), std::string::npos);
  EXPECT_NE(text.find("\nfg_color \\xf9\n"), std::string::npos);
}

TEST(InstrumentParametersRead, PromotionPairsWhileFlagIsSet) {
  PromotionFlag flag(true);
  auto r = initial<InstrumentParametersMonoSampler>();
  read_text(r, "transpose[1] \\x20+5\nfinetune[2] -3\ntranspose -7\nfinetune +9\n");
  EXPECT_EQ(r.oscillators.osc_transpose[1].value(), 5);
  EXPECT_EQ(r.oscillators.osc_finetune[2].value(), -3);
  EXPECT_EQ(r.transpose.value(), -7);
  EXPECT_EQ(r.finetune.value(), 9);
  EXPECT_EQ(r.oscillators.osc_transpose[0].value(), 0);
  EXPECT_EQ(r.oscillators.osc_transpose[3].value(), 0);
  // The flag alone decides, not the record.
  auto p = initial<InstrumentParametersPolySampler>();
  read_text(p, "transpose[1] 12\ntranspose 4\n");
  EXPECT_EQ(p.oscillators.osc_transpose[1].value(), 12);
  EXPECT_EQ(p.sample_transpose.value(), 0);
}

TEST(InstrumentParametersRead, PromotionPairsIgnoredWhileFlagIsClear) {
  PromotionFlag flag(false);
  auto r = initial<InstrumentParametersMonoSampler>();
  InstrumentParametersMonoSampler const before = r;
  read_text(r, "transpose[1] \\x20+5\nfinetune[2] -3\n");
  EXPECT_TRUE(bytes_equal(r, before));
  read_text(r, "transpose -7\n");
  EXPECT_EQ(r.transpose.value(), -7);
  EXPECT_EQ(r.oscillators.osc_transpose[1].value(), 0);
}

TEST(InstrumentParametersRead, ChiptuneLineInPatchTextSetsFlag) {
  PromotionFlag flag(false);
  auto r = initial<InstrumentParametersMonoSampler>();
  testing::internal::CaptureStdout();
  read_text(r, "type Chiptune\ntranspose[3] -2\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "found Chiptune track type, promoting to MonoSampler!\n");
  EXPECT_TRUE(chiptune_to_monosampler_promotion);
  EXPECT_EQ(r.oscillators.osc_transpose[3].value(), -2);
}

TEST(InstrumentParametersRead, UtilityInputKeysCannotBeReadFromALine) {
  auto r = initial<InstrumentParametersUtility>();
  r.audio_input_left[0] = I<0, 15, 0>::from_value(3);
  r.audio_input_right[1] = I<0, 15, 0>::from_value(4);
  r.audio_input_volume[1] = P<128>::from_value(0x11);
  r.program_idx[1] = ProgramIdx::from_value(10);
  std::string const text = written(r);
  EXPECT_NE(text.find("\naudio_input_left [0] 3\n"), std::string::npos);
  EXPECT_NE(text.find("\naudio_input_right [1] 4\n"), std::string::npos);
  EXPECT_NE(text.find("program_idx[1] 0a\n"), std::string::npos);
  auto back = initial<InstrumentParametersUtility>();
  read_text(back, text);
  EXPECT_EQ(back.audio_input_left[0].value(), 0);
  EXPECT_EQ(back.audio_input_right[1].value(), 0);
  EXPECT_EQ(back.audio_input_volume[1].value(), 0x11);
  EXPECT_EQ(back.program_idx[1].value(), 10);
}

TEST(InstrumentParametersRead, RoundTripOfChangedValues) {
  auto r = initial<InstrumentParametersOneShot>();
  r.instruments[4].midi_note = Note::from_value(61);
  r.instruments[4].sample_transpose = Transpose::from_value(-12);
  r.instruments[4].trigger_length = StepLength::from_value(0x18);
  r.instruments[6].release_callback = ProgramIdx::from_value(1295);
  std::memcpy(r.instruments[2].sample_path.data, "a b/c.wav", 9);
  std::string const text = written(r);
  EXPECT_NE(text.find("\nmidi_note[4] C#5\n"), std::string::npos);
  EXPECT_NE(text.find("\nsample_transpose[4] -12\n"), std::string::npos);
  EXPECT_NE(text.find("\ntrigger_length[4] 18\n"), std::string::npos);
  EXPECT_NE(text.find("\nrelease_callback[6] zz\n"), std::string::npos);
  EXPECT_NE(text.find("\nsample_path[2] a\\x20b/c.wav\n"), std::string::npos);
  auto back = initial<InstrumentParametersOneShot>();
  read_text(back, text);
  EXPECT_TRUE(bytes_equal(r, back));
}

// ===========================================================================
// Reading values into the modulation records.

TEST(InstrumentModulationRead, KeysWithByte1AReachTheirMember) {
  auto m = initial<InstrumentModulationMonoSampler>();
  read_text(m, mkey("depth", "pitch") + " 10\n" + mkey("src[1]", "phase") + " osc_3\n" +
                   mkey("mod_combine_op", "volume") + " mul\n" + mkey("track_idx[1]", "filter") + " f\n" +
                   "ratio_callback 0a\n");
  EXPECT_EQ(m.pitch.depth.value(), 0x10);
  EXPECT_EQ(m.phase.src[1].index(), 24);  // 18 shared names, then filter_envelope .. osc_3
  EXPECT_EQ(m.volume.mod_combine_op.index(), 3);
  EXPECT_EQ(m.filter.track_idx[1].value(), 15);
  EXPECT_EQ(m.ratio_callback.value(), 10);
}

TEST(InstrumentModulationRead, DestinationOfAnotherRecordIsIgnored) {
  auto m = initial<InstrumentModulationMonoSampler>();
  InstrumentModulationMonoSampler const before = m;
  read_text(m, mkey("depth", "env_rise") + " 10\n" + mkey("src[0]", "filter_stereo") + " noise\n" +
                   mkey("depth", "phase_osc_0[0]") + " 10\n" + mkey("depth", "volume[0]") + " 10\n");
  EXPECT_TRUE(bytes_equal(m, before));
  // The same depth is a member of the PolySampler record.
  auto p = initial<InstrumentModulationPolySampler>();
  read_text(p, mkey("depth", "env_rise") + " 10\n");
  EXPECT_EQ(p.env_rise.depth.value(), 0x10);
}

TEST(InstrumentModulationRead, SourceNameOfAnotherListIsUnknown) {
  auto m = initial<InstrumentModulationMonoSampler>();
  m.pitch.src[0] = ModulationSourceMonoSampler::from_index(2);
  read_text(m, mkey("src[0]", "pitch") + " operator_0\n");
  EXPECT_EQ(m.pitch.src[0].index(), 2);
  auto f = initial<InstrumentModulationFMSynth>();
  read_text(f, mkey("src[0]", "pitch") + " operator_0\n");
  EXPECT_EQ(f.pitch.src[0].index(), 27);  // 18 shared, velocity, osc_0 .. osc_7, operator_0
  auto b = initial<InstrumentModulationBreakBeat>();
  b.filter.src[1] = ModulationSourceGlobal::from_index(5);
  read_text(b, mkey("src[1]", "filter") + " velocity\n");
  EXPECT_EQ(b.filter.src[1].index(), 5);
}

TEST(InstrumentModulationRead, MemAddressOutOfRangeGivesZero) {
  auto m = initial<InstrumentModulationMonoSampler>();
  m.pitch.mem_address[0] = Address::from_value(5);
  read_text(m, mkey("mem_address[0]", "pitch") + " 40\n");
  EXPECT_EQ(m.pitch.mem_address[0].value(), 0);
  EXPECT_FALSE(m.pitch.mem_address[0].is_empty());
  read_text(m, mkey("mem_address[0]", "pitch") + " 3f\n");
  EXPECT_EQ(m.pitch.mem_address[0].value(), 63);
}

TEST(InstrumentModulationRead, EmptyCallbackStaysEmptyThroughWriteAndRead) {
  auto m = initial<InstrumentModulationMonoSampler>();
  ASSERT_TRUE(m.pitch.callback[0].is_empty());
  m.pitch.depth = Depth8Bit<128>::empty_cell();
  std::string const text = written(m);
  EXPECT_NE(text.find(mkey("callback[0]", "pitch") + " \\xf9\\xf9\n"), std::string::npos);
  std::string const first = mkey("depth", "pitch") + " \\xf9\\xf9\n";
  EXPECT_EQ(text.substr(0, first.size()), first);
  auto back = initial<InstrumentModulationMonoSampler>();
  back.pitch.callback[0] = ProgramIdx::from_value(10);
  back.sample_position_callback = ProgramIdx::from_value(11);
  read_text(back, text);
  EXPECT_TRUE(back.pitch.callback[0].is_empty());
  EXPECT_TRUE(back.sample_position_callback.is_empty());
  // A number field does not stay empty: it comes back as its default.
  EXPECT_EQ(back.pitch.depth.value(), 128);
  EXPECT_FALSE(back.pitch.depth.is_empty());
}

TEST(InstrumentModulationRead, FieldOrDestinationAloneMatchesNothing) {
  auto m = initial<InstrumentModulationMonoSampler>();
  InstrumentModulationMonoSampler const before = m;
  read_text(m, "depth 10\npitch 10\nsrc[0] noise\nmod_combine_op add\n" + mkey("depth", "") + " 10\n" +
                   mkey("", "pitch") + " 10\n");
  EXPECT_TRUE(bytes_equal(m, before));
  auto o = initial<InstrumentModulationOneShot>();
  InstrumentModulationOneShot const obefore = o;
  read_text(o, "depth 10\nsample_position_callback 0a\n" + mkey("depth", "phase_osc_0") + " 10\n");
  EXPECT_TRUE(bytes_equal(o, obefore));
  read_text(o, mkey("depth", "phase_osc_0[3]") + " 10\nsample_position_callback[7] 0b\n");
  EXPECT_EQ(o.instruments[3].phase_osc_0.depth.value(), 0x10);
  EXPECT_EQ(o.instruments[7].sample_position_callback.value(), 11);
}

TEST(InstrumentModulationRead, RoundTripOfChangedValues) {
  auto m = initial<InstrumentModulationFMSynth>();
  m.sustain[2].constant[1] = Depth8Bit<128>::from_value(0x33);
  m.sustain[2].cv_in[0] = I<0, 15, 0>::from_value(9);
  m.sustain[2].midi_cc[0] = MidiCC::from_value(0x7f);
  m.env_rise.depth = Depth8Bit<128>::from_value(0);
  m.pitch.track_idx[0] = TrackIdx::from_value(12);
  m.ratio_callback = ProgramIdx::from_value(36);
  std::string const text = written(m);
  EXPECT_NE(text.find(mkey("constant[1]", "sustain[2]") + " 33\n"), std::string::npos);
  EXPECT_NE(text.find(mkey("cv_in[0]", "sustain[2]") + " 9\n"), std::string::npos);
  EXPECT_NE(text.find(mkey("midi_cc[0]", "sustain[2]") + " 7f\n"), std::string::npos);
  EXPECT_NE(text.find(mkey("depth", "env_rise") + " 00\n"), std::string::npos);
  EXPECT_NE(text.find(mkey("track_idx[0]", "pitch") + " c\n"), std::string::npos);
  EXPECT_NE(text.find("\nratio_callback 10\n"), std::string::npos);
  auto back = initial<InstrumentModulationFMSynth>();
  read_text(back, text);
  EXPECT_TRUE(bytes_equal(m, back));
}

// ===========================================================================
// The patch memory of a track: reset and the page selectors.

TEST(PatchMemoryReset, EveryTypeHoldsItsInitialRecordsInAllSlots) {
  project_initialize(&prj);
  for (int type = 0; type < 9; ++type) {
    SCOPED_TRACE(type);
    std::memset(&memory(5), 0x5b, sizeof(TrackPatchMemory));
    set_track_type(5, type);
    project_track_do_patch_mod(&prj, 5, [&](auto& parameters, auto& modulation, auto& names) {
      using PR = std::remove_reference_t<decltype(parameters[0])>;
      using MR = std::remove_reference_t<decltype(modulation[0])>;
      PR const p = initial<PR>();
      MR const m = initial<MR>();
      for (int i = 0; i < kPatchSlots; ++i) {
        EXPECT_TRUE(bytes_equal(parameters[i], p)) << "slot " << i;
        EXPECT_TRUE(bytes_equal(modulation[i], m)) << "slot " << i;
        EXPECT_TRUE(bytes_zero(names[i])) << "slot " << i;
      }
    });
  }
}

TEST(PatchMemoryReset, MIDIDefaults) {
  project_initialize(&prj);
  for (int t = 0; t < kNumTracks; ++t) {
    for (int i : {0, 63}) {
      auto const& r = memory(t).parameters.midi[i];
      for (int c = 0; c < 4; ++c) {
        EXPECT_EQ(r.column_override_channel[c].value(), 0);
        EXPECT_EQ(r.column_channel[c].value(), 1);
        EXPECT_EQ(r.column_override_port[c].value(), 0);
        EXPECT_EQ(r.column_port[c].value(), 0);
      }
      EXPECT_EQ(memory(t).modulation.midi[i].zero, 0);
    }
  }
}

TEST(PatchMemoryReset, CVGateLeavesAllZero) {
  project_initialize(&prj);
  std::memset(&memory(2), 0x77, sizeof(TrackPatchMemory));
  set_track_type(2, kCVGate);
  EXPECT_TRUE(bytes_zero(memory(2)));
}

TEST(PatchMemoryReset, MonoSamplerSlot63EqualsSlot0) {
  project_initialize(&prj);
  std::memset(&memory(7), 0x3c, sizeof(TrackPatchMemory));
  set_track_type(7, kMonoSampler);
  auto const& p = memory(7).parameters.mono_sampler;
  auto const& m = memory(7).modulation.mono_sampler;
  EXPECT_TRUE(bytes_equal(p[63], p[0]));
  EXPECT_TRUE(bytes_equal(m[63], m[0]));
  EXPECT_EQ(p[0].sample_length_steps.value(), 16);
  EXPECT_EQ(p[63].oscillators.waveform[3].index(), 0);
  EXPECT_EQ(m[63].phase.constant[1].value(), 128);
  EXPECT_TRUE(m[63].sample_position_callback.is_empty());
}

TEST(PatchMemoryReset, FMSynthFirstOperatorVolumeInAllSlots) {
  project_initialize(&prj);
  set_track_type(9, kFMSynth);
  for (int i = 0; i < kPatchSlots; ++i) {
    EXPECT_EQ(memory(9).parameters.fm_synth[i].volume[0].value(), 208) << i;
    EXPECT_EQ(memory(9).parameters.fm_synth[i].volume[1].value(), 0) << i;
  }
  // A load without files keeps it so.
  fs::path const dir = scratch("fm_no_files");
  project_load_track_patches(&prj, 9, dir);
  for (int i = 0; i < kPatchSlots; ++i) EXPECT_EQ(memory(9).parameters.fm_synth[i].volume[0].value(), 208) << i;
}

TEST(PatchMemoryReset, SelectorsAreSetToZeroByTheResetOfTheirType) {
  project_initialize(&prj);
  InstrumentParametersMonoSamplerIdx::oscillator = I<0, 3, 0>::from_value(3);
  set_track_type(1, kMonoSampler);
  EXPECT_EQ(InstrumentParametersMonoSamplerIdx::oscillator.value(), 0);
  EXPECT_FALSE(InstrumentParametersMonoSamplerIdx::oscillator.is_empty());

  InstrumentParametersFMSynthIdx::oscillator = I<0, 7, 0>::from_value(6);
  InstrumentParametersFMSynthIdx::envelope = I<0, 3, 0>::from_value(2);
  set_track_type(1, kFMSynth);
  EXPECT_EQ(InstrumentParametersFMSynthIdx::oscillator.value(), 0);
  EXPECT_EQ(InstrumentParametersFMSynthIdx::envelope.value(), 0);
  EXPECT_FALSE(InstrumentParametersFMSynthIdx::oscillator.is_empty());
  EXPECT_FALSE(InstrumentParametersFMSynthIdx::envelope.is_empty());

  InstrumentParametersOneShotIdx::idx = I<0, 7, 0>::from_value(7);
  set_track_type(1, kOneShot);
  EXPECT_EQ(InstrumentParametersOneShotIdx::idx.value(), 0);
  EXPECT_FALSE(InstrumentParametersOneShotIdx::idx.is_empty());
}

TEST(PatchMemoryReset, DefaultStepSetsSelectorsToZero) {
  InstrumentParametersMonoSamplerIdx::oscillator = I<0, 3, 0>::from_value(2);
  InstrumentParametersMonoSampler r;
  dialog_set_default(r);
  EXPECT_EQ(InstrumentParametersMonoSamplerIdx::oscillator.value(), 0);
  InstrumentParametersOneShotIdx::idx = I<0, 7, 0>::from_value(4);
  InstrumentModulationOneShot m;
  dialog_set_default(m);
  EXPECT_EQ(InstrumentParametersOneShotIdx::idx.value(), 0);
}

TEST(PatchMemoryReset, SelectorsAreNotPartOfTheRecordBytes) {
  InstrumentParametersMonoSamplerIdx::oscillator = I<0, 3, 0>::from_value(0);
  auto a = initial<InstrumentParametersMonoSampler>();
  InstrumentParametersMonoSamplerIdx::oscillator = I<0, 3, 0>::from_value(3);
  auto b = a;
  EXPECT_TRUE(bytes_equal(a, b));
  // Changing the selector changes what the record writes, not its bytes.
  EXPECT_NE(written(b).find("\noscillator 3\n"), std::string::npos);
  EXPECT_TRUE(bytes_equal(a, b));
  InstrumentParametersMonoSamplerIdx::oscillator = I<0, 3, 0>::from_value(0);
  // And a slot with a changed selector still counts as initial.
  project_initialize(&prj);
  set_track_type(3, kFMSynth);
  InstrumentParametersFMSynthIdx::oscillator = I<0, 7, 0>::from_value(4);
  fs::path const dir = scratch("selectors");
  project_save_track_patches(&prj, 3, dir);
  EXPECT_TRUE(files_in(dir).empty());
}

// ===========================================================================
// Patch files of a track.

TEST(PatchFiles, FreshProjectWritesNoFile) {
  project_initialize(&prj);
  fs::path const dir = scratch("fresh");
  for (int t = 0; t < kNumTracks; ++t) {
    char name[16];
    std::snprintf(name, sizeof name, "track_%02d", t);
    fs::create_directories(dir / name);
    project_save_track_patches(&prj, t, dir / name);
  }
  fs::create_directories(dir / "fx_patches");
  project_save_fx_patches(&prj, dir / "fx_patches");
  EXPECT_TRUE(files_in(dir).empty());
  // Nor does a freshly reset track of any type.
  for (int type = 0; type < 9; ++type) {
    set_track_type(type, type);
    project_save_track_patches(&prj, type, dir / "track_00");
  }
  EXPECT_TRUE(files_in(dir).empty());
}

TEST(PatchFiles, NameAloneGivesOnlyThePatchFileWithAllDefaults) {
  project_initialize(&prj);
  for (int type = 0; type < 9; ++type) {
    SCOPED_TRACE(type);
    set_track_type(4, type);
    set_name(memory(4).names[5], "LEAD");
    fs::path const dir = scratch("named_" + std::to_string(type));
    project_save_track_patches(&prj, 4, dir);
    EXPECT_EQ(files_in(dir), std::set<std::string>{"patch_05.txt"});
    std::string const expected = "#version 1\nname LEAD\n" + expected_parameters(type).text;
    EXPECT_EQ(read_file(dir / "patch_05.txt"), expected);
  }
}

TEST(PatchFiles, MIDIPatchAsWorkedExample) {
  project_initialize(&prj);
  set_name(memory(3).names[5], "LEAD");
  fs::path const dir = scratch("midi_lead");
  project_save_track_patches(&prj, 3, dir);
  std::string const text = read_file(dir / "patch_05.txt");
  std::string const head =
      "#version 1\nname LEAD\ncolumn_override_channel[0] 0\ncolumn_channel[0] 1\n"
      "column_override_channel[1] 0\ncolumn_channel[1] 1\n";
  EXPECT_EQ(text.substr(0, head.size()), head);
  EXPECT_EQ(count_lines(text), 2 + 16);
}

TEST(PatchFiles, CVGateNamedSlotHasTwoLines) {
  project_initialize(&prj);
  set_track_type(6, kCVGate);
  set_name(memory(6).names[0], "gate");
  fs::path const dir = scratch("cv_gate");
  project_save_track_patches(&prj, 6, dir);
  EXPECT_EQ(files_in(dir), std::set<std::string>{"patch_00.txt"});
  EXPECT_EQ(read_file(dir / "patch_00.txt"), "#version 1\nname gate\n");
}

TEST(PatchFiles, ChangedParametersAloneGivePatchFileWithEmptyName) {
  project_initialize(&prj);
  set_track_type(0, kBreakBeat);
  std::memcpy(memory(0).parameters.break_beat[0].sample_path[0].data, "samples/breaks/amen.wav", 23);
  fs::path const dir = scratch("break_beat_sample");
  project_save_track_patches(&prj, 0, dir);
  EXPECT_EQ(files_in(dir), std::set<std::string>{"patch_00.txt"});
  EXPECT_EQ(read_file(dir / "patch_00.txt"),
            "#version 1\nname \nvolume_pre_filter 40\nvolume_post_filter 40\ncutoff ff\nresonance 00\n"
            "highpass_cutoff 00\nsample_path[0] samples/breaks/amen.wav\nsample_path[1] \nsample_path[2] \n"
            "sample_path[3] \n");
}

TEST(PatchFiles, ChangedModulationAloneGivesOnlyTheModulationFile) {
  project_initialize(&prj);
  {
    set_track_type(0, kBreakBeat);
    memory(0).modulation.break_beat[9].volume[0].modulator_idx[0] = ModulatorIdx::from_value(3);
    fs::path const dir = scratch("mod_break_beat");
    project_save_track_patches(&prj, 0, dir);
    EXPECT_EQ(files_in(dir), std::set<std::string>{"modulation_09.txt"});
    std::string const expected =
        "#version 1\nname \n" +
        with_line(break_beat_modulation().text, mkey("modulator_idx[0]", "volume[0]"), "0", "3");
    EXPECT_EQ(read_file(dir / "modulation_09.txt"), expected);
  }
  {
    set_track_type(1, kOneShot);
    memory(1).modulation.one_shot[2].instruments[5].panning.callback[1] = ProgramIdx::from_value(0x0a);
    fs::path const dir = scratch("mod_one_shot");
    project_save_track_patches(&prj, 1, dir);
    EXPECT_EQ(files_in(dir), std::set<std::string>{"modulation_02.txt"});
    std::string const text = read_file(dir / "modulation_02.txt");
    EXPECT_EQ(text, "#version 1\nname \n" + with_line(one_shot_modulation().text,
                                                        mkey("callback[1]", "panning[5]"), kEmptyProgram, "0a"));
    EXPECT_EQ(count_lines(text), 2 + 8 * (6 * 18 + 6 + 1));
  }
  for (int type : {kMonoSampler, kPolySampler, kFMSynth}) {
    SCOPED_TRACE(type);
    set_track_type(2, type);
    project_track_do_patch_mod(&prj, 2, [](auto&, auto& modulation, auto&) {
      if constexpr (requires { modulation[0].pitch.depth; })
        modulation[1].pitch.depth = Depth8Bit<128>::from_value(0x10);
    });
    fs::path const dir = scratch("mod_" + std::to_string(type));
    project_save_track_patches(&prj, 2, dir);
    EXPECT_EQ(files_in(dir), std::set<std::string>{"modulation_01.txt"});
    EXPECT_EQ(read_file(dir / "modulation_01.txt"),
              "#version 1\nname \n" + with_line(expected_modulation(type).text, mkey("depth", "pitch"), "80", "10"));
  }
}

TEST(PatchFiles, NamedSlotWithChangedModulationWritesTheNameInBoth) {
  project_initialize(&prj);
  set_track_type(0, kMonoSampler);
  set_name(memory(0).names[4], "pad");
  memory(0).modulation.mono_sampler[4].ratio_callback = ProgramIdx::from_value(35);
  fs::path const dir = scratch("both");
  project_save_track_patches(&prj, 0, dir);
  EXPECT_EQ(files_in(dir), (std::set<std::string>{"patch_04.txt", "modulation_04.txt"}));
  EXPECT_EQ(read_file(dir / "patch_04.txt"), "#version 1\nname pad\n" + mono_sampler_parameters().text);
  EXPECT_EQ(read_file(dir / "modulation_04.txt"),
            "#version 1\nname pad\n" + with_line(mono_sampler_modulation().text, "ratio_callback", kEmptyProgram, "0z"));
}

TEST(PatchFiles, Slot63IsLowerCaseHex) {
  project_initialize(&prj);
  set_track_type(0, kPolySampler);
  set_name(memory(0).names[63], "x y");
  memory(0).modulation.poly_sampler[63].panning.depth = Depth8Bit<128>::from_value(1);
  fs::path const dir = scratch("slot63");
  project_save_track_patches(&prj, 0, dir);
  EXPECT_EQ(files_in(dir), (std::set<std::string>{"patch_3f.txt", "modulation_3f.txt"}));
  EXPECT_EQ(read_file(dir / "patch_3f.txt").substr(0, 23), "#version 1\nname x\\x20y\n");
}

TEST(PatchFiles, SavingWritesSelectorsAsZero) {
  project_initialize(&prj);
  set_track_type(0, kFMSynth);
  set_name(memory(0).names[0], "fm");
  InstrumentParametersFMSynthIdx::oscillator = I<0, 7, 0>::from_value(5);
  InstrumentParametersFMSynthIdx::envelope = I<0, 3, 0>::from_value(2);
  fs::path const dir = scratch("fm_selectors");
  project_save_track_patches(&prj, 0, dir);
  EXPECT_EQ(read_file(dir / "patch_00.txt"), "#version 1\nname fm\n" + fm_synth_parameters().text);
}

TEST(PatchFiles, FullNameRunsOnIntoTheNextSlotsName) {
  project_initialize(&prj);
  set_track_type(0, kMonoSampler);
  char const full[] = "abcdefghijklmnopqrstuvwxyz012345";
  std::memcpy(memory(0).names[5].data, full, 32);
  set_name(memory(0).names[6], "XY");
  std::memcpy(memory(0).names[8].data, full, 32);  // slot 9 has no name
  memory(0).modulation.mono_sampler[5].phase_osc1.depth = Depth8Bit<128>::from_value(0);
  fs::path const dir = scratch("full_name");
  project_save_track_patches(&prj, 0, dir);
  EXPECT_EQ(files_in(dir),
            (std::set<std::string>{"patch_05.txt", "modulation_05.txt", "patch_06.txt", "patch_08.txt"}));
  std::string const run_on = "#version 1\nname " + std::string(full) + "XY\n";
  EXPECT_EQ(read_file(dir / "patch_05.txt").substr(0, run_on.size()), run_on);
  EXPECT_EQ(read_file(dir / "modulation_05.txt").substr(0, run_on.size()), run_on);
  EXPECT_EQ(read_file(dir / "patch_06.txt").substr(0, 19), "#version 1\nname XY\n");
  std::string const alone = "#version 1\nname " + std::string(full) + "\n";
  EXPECT_EQ(read_file(dir / "patch_08.txt").substr(0, alone.size()), alone);

  // The reader takes 32 bytes of it.
  bytes_copy(saved_memory, memory(0));
  project_reset_patch_memory(&prj, 0);
  project_load_track_patches(&prj, 0, dir);
  EXPECT_EQ(std::memcmp(memory(0).names[5].data, full, 32), 0);
  EXPECT_STREQ(memory(0).names[6].data, "XY");
  EXPECT_TRUE(bytes_equal(memory(0), saved_memory));
}

TEST(PatchFiles, LoadReadsNameThenRecordAndModulationNameOverwritesBytewise) {
  project_initialize(&prj);
  set_track_type(0, kMonoSampler);
  fs::path const dir = scratch("load_mono");
  write_file(dir / "patch_00.txt", "#version 1\nname LEAD\nsample_start 10\noscillator 2\ncutoff 7f\n");
  write_file(dir / "modulation_00.txt", "#version 1\nname XY\n" + mkey("depth", "pitch") + " 20\n");
  write_file(dir / "patch_3f.txt", "#version 1\nname last\nsample_end 01\n");
  // A slot without files comes back to its initial state.
  memory(0).parameters.mono_sampler[3].sample_start = P<0>::from_value(5);
  memory(0).modulation.mono_sampler[3].volume.depth = Depth8Bit<128>::from_value(5);
  project_load_track_patches(&prj, 0, dir);
  EXPECT_EQ(std::memcmp(memory(0).names[0].data, "XYAD\0", 5), 0);
  auto const& p = memory(0).parameters.mono_sampler;
  auto const& m = memory(0).modulation.mono_sampler;
  EXPECT_EQ(p[0].sample_start.value(), 0x10);
  EXPECT_EQ(p[0].cutoff.value(), 0x7f);
  EXPECT_EQ(m[0].pitch.depth.value(), 0x20);
  EXPECT_STREQ(memory(0).names[63].data, "last");
  EXPECT_EQ(p[63].sample_end.value(), 1);
  auto const fresh_p = initial<InstrumentParametersMonoSampler>();
  auto const fresh_m = initial<InstrumentModulationMonoSampler>();
  EXPECT_TRUE(bytes_equal(p[3], fresh_p));
  EXPECT_TRUE(bytes_equal(m[3], fresh_m));
  // The next save writes `oscillator 0`.
  fs::path const out = scratch("load_mono_out");
  project_save_track_patches(&prj, 0, out);
  std::string const text = read_file(out / "patch_00.txt");
  EXPECT_NE(text.find("\noscillator 0\n"), std::string::npos);
  EXPECT_EQ(text.substr(0, 21), "#version 1\nname XYAD\n");
}

TEST(PatchFiles, LoadFMSynthSelectorsComeBackAsZero) {
  project_initialize(&prj);
  set_track_type(0, kFMSynth);
  fs::path const dir = scratch("load_fm");
  write_file(dir / "patch_00.txt", "#version 1\nname \noscillator 5\nenvelope 3\nvolume[2] 44\n");
  project_load_track_patches(&prj, 0, dir);
  EXPECT_EQ(memory(0).parameters.fm_synth[0].volume[2].value(), 0x44);
  EXPECT_EQ(memory(0).parameters.fm_synth[0].volume[0].value(), 208);
  fs::path const out = scratch("load_fm_out");
  project_save_track_patches(&prj, 0, out);
  EXPECT_EQ(read_file(out / "patch_00.txt"),
            "#version 1\nname \n" + with_line(fm_synth_parameters().text, "volume[2]", "00", "44"));
}

TEST(PatchFiles, UtilityInputChannelsAreLostOnLoad) {
  project_initialize(&prj);
  set_track_type(0, kUtility);
  auto& r = memory(0).parameters.utility[1];
  r.audio_input_left[0] = I<0, 15, 0>::from_value(3);
  r.audio_input_enable[0] = I<0, 1, 0>::from_value(1);
  fs::path const dir = scratch("utility");
  project_save_track_patches(&prj, 0, dir);
  EXPECT_NE(read_file(dir / "patch_01.txt").find("\naudio_input_left [0] 3\n"), std::string::npos);
  project_reset_patch_memory(&prj, 0);
  project_load_track_patches(&prj, 0, dir);
  EXPECT_EQ(memory(0).parameters.utility[1].audio_input_left[0].value(), 0);
  EXPECT_EQ(memory(0).parameters.utility[1].audio_input_enable[0].value(), 1);
}

TEST(PatchFiles, ChiptunePatchLinesReachTheOscillators) {
  PromotionFlag flag(false);
  project_initialize(&prj);
  set_track_type(0, kMonoSampler);
  fs::path const dir = scratch("chiptune");
  write_file(dir / "patch_02.txt", "#version 1\nname old\ntype Chiptune\nfinetune[1] +7\ntranspose -3\n");
  testing::internal::CaptureStdout();
  project_load_track_patches(&prj, 0, dir);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "found Chiptune track type, promoting to MonoSampler!\n");
  auto const& p = memory(0).parameters.mono_sampler[2];
  EXPECT_EQ(p.oscillators.osc_finetune[1].value(), 7);
  EXPECT_EQ(p.transpose.value(), -3);
  fs::path const out = scratch("chiptune_out");
  project_save_track_patches(&prj, 0, out);
  std::string const text = read_file(out / "patch_02.txt");
  EXPECT_NE(text.find("\nosc_finetune[1] +7\n"), std::string::npos);
  EXPECT_EQ(text.find("\nfinetune[1]"), std::string::npos);
}

TEST(PatchFiles, RoundTripOfEveryType) {
  project_initialize(&prj);
  for (int type = 0; type < 9; ++type) {
    SCOPED_TRACE(type);
    set_track_type(8, type);
    set_name(memory(8).names[10], "ten");
    set_name(memory(8).names[40], "forty");
    project_track_do_patch_mod(&prj, 8, [](auto& parameters, auto& modulation, auto&) {
      using PR = std::remove_reference_t<decltype(parameters[0])>;
      if constexpr (requires { parameters[0].cutoff; }) parameters[11].cutoff = P<255>::from_value(0x12);
      if constexpr (std::is_same_v<PR, InstrumentParametersMIDI>)
        parameters[11].column_port[2] = I<0, 15, 0>::from_value(9);
      if constexpr (std::is_same_v<PR, InstrumentParametersOneShot>)
        parameters[11].instruments[6].cutoff = P<255>::from_value(0x12);
      if constexpr (std::is_same_v<PR, InstrumentParametersGraphics>)
        parameters[11].bg_color = V<15, 0>::from_value(4);
      if constexpr (std::is_same_v<PR, InstrumentParametersUtility>)
        parameters[11].program_idx[1] = ProgramIdx::from_value(100);
      if constexpr (requires { modulation[0].filter.depth; }) modulation[12].filter.depth = Depth8Bit<128>::from_value(3);
      if constexpr (requires { modulation[0].instruments[0].filter.depth; })
        modulation[12].instruments[1].filter.depth = Depth8Bit<128>::from_value(3);
    });
    bytes_copy(saved_memory, memory(8));
    fs::path const dir = scratch("round_trip_" + std::to_string(type));
    project_save_track_patches(&prj, 8, dir);
    project_reset_patch_memory(&prj, 8);
    project_load_track_patches(&prj, 8, dir);
    EXPECT_TRUE(bytes_equal(memory(8), saved_memory));
  }
}

// ===========================================================================
// FX patch files.

TEST(FXPatchFiles, FreshProjectWritesNothing) {
  project_initialize(&prj);
  fs::path const dir = scratch("fx_fresh");
  project_save_fx_patches(&prj, dir);
  EXPECT_TRUE(files_in(dir).empty());
}

TEST(FXPatchFiles, NamedOrChangedParametersGiveThePatchFile) {
  project_initialize(&prj);
  set_name(prj.fx_patch_names[1], "fx");
  prj.fx_parameters[2].cutoff = P<255>::from_value(0x80);
  set_name(prj.fx_patch_names[63], "end");
  fs::path const dir = scratch("fx_named");
  project_save_fx_patches(&prj, dir);
  EXPECT_EQ(files_in(dir), (std::set<std::string>{"fx_patch_01.txt", "fx_patch_02.txt", "fx_patch_3f.txt"}));
  std::string const defaults =
      "sample_rate_reduction 0\nsrr_dry_wet ff\ncutoff ff\nresonance 00\nvolume_pre_filter 40\n"
      "volume_post_filter 40\nsoftclip 0\n";
  EXPECT_EQ(read_file(dir / "fx_patch_01.txt"), "#version 1\nname fx\n" + defaults);
  EXPECT_EQ(read_file(dir / "fx_patch_02.txt"),
            "#version 1\nname \n" + with_line(defaults, "cutoff", "ff", "80"));
  EXPECT_EQ(read_file(dir / "fx_patch_3f.txt"), "#version 1\nname end\n" + defaults);
}

TEST(FXPatchFiles, CallbackGivesTheModulationFile) {
  project_initialize(&prj);
  prj.fx_srr_callback[3] = ProgramIdx::from_value(10);
  fs::path const dir = scratch("fx_callback");
  project_save_fx_patches(&prj, dir);
  EXPECT_EQ(files_in(dir), std::set<std::string>{"fx_modulation_03.txt"});
  EXPECT_EQ(read_file(dir / "fx_modulation_03.txt"), "#version 1\nname \nsrr_callback 0a\n");
}

TEST(FXPatchFiles, FullNameRunsOnIntoTheNextName) {
  project_initialize(&prj);
  char const full[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ!#$%&(";
  std::memcpy(prj.fx_patch_names[10].data, full, 32);
  set_name(prj.fx_patch_names[11], "q");
  fs::path const dir = scratch("fx_full_name");
  project_save_fx_patches(&prj, dir);
  std::string const head = "#version 1\nname " + std::string(full) + "q\n";
  EXPECT_EQ(read_file(dir / "fx_patch_0a.txt").substr(0, head.size()), head);
}

TEST(FXPatchFiles, LoadReadsNameThenRecord) {
  project_initialize(&prj);
  fs::path const dir = scratch("fx_load");
  write_file(dir / "fx_patch_04.txt", "#version 1\nname drums\ncutoff 80\nsoftclip 1\nsample_rate_reduction 128\n");
  write_file(dir / "fx_modulation_04.txt", "#version 1\nname DR\nsrr_callback 0a\n");
  write_file(dir / "fx_modulation_05.txt", "#version 1\nname \nsrr_callback \\xf9\\xf9\n");
  prj.fx_parameters[6].resonance = P<0>::from_value(9);
  prj.fx_srr_callback[6] = ProgramIdx::from_value(3);
  prj.fx_srr_callback[5] = ProgramIdx::from_value(3);
  project_load_fx_patches(&prj, dir);
  EXPECT_STREQ(prj.fx_patch_names[4].data, "DRums");
  EXPECT_EQ(prj.fx_parameters[4].cutoff.value(), 0x80);
  EXPECT_EQ(prj.fx_parameters[4].softclip.value(), 1);
  EXPECT_EQ(prj.fx_parameters[4].sample_rate_reduction.value(), 0);
  EXPECT_EQ(prj.fx_srr_callback[4].value(), 10);
  EXPECT_TRUE(prj.fx_srr_callback[5].is_empty());
  // Slots without files are put back to their initial state.
  EXPECT_EQ(prj.fx_parameters[6].resonance.value(), 0);
  EXPECT_TRUE(prj.fx_srr_callback[6].is_empty());
}

// ===========================================================================
// Random and truncated input never reaches outside a record.

namespace {

template <class R>
struct Guarded {
  unsigned char before[64];
  R record;
  unsigned char after[64];
};

template <class R>
Guarded<R> guarded;

void fill_guards(unsigned char* before, unsigned char* after) {
  for (int i = 0; i < 64; ++i) {
    before[i] = (unsigned char)(0xA0 + i % 7);
    after[i] = (unsigned char)(0x51 + i % 5);
  }
  after[63] = 0;  // ends any run of a name that lacks its zero byte
}

bool guards_intact(unsigned char const* before, unsigned char const* after) {
  unsigned char b[64], a[64];
  fill_guards(b, a);
  return std::memcmp(before, b, 64) == 0 && std::memcmp(after, a, 64) == 0;
}

std::vector<std::string> keys_of(std::string const& text) {
  std::vector<std::string> keys;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t const end = text.find('\n', pos);
    std::string const line = text.substr(pos, end - pos);
    keys.push_back(line.substr(0, line.find(' ')));
    size_t const sep = line.find(kSep);
    if (sep != std::string::npos) {
      keys.push_back(line.substr(0, sep));
      keys.push_back(line.substr(sep + 1, line.find(' ') - sep - 1));
    }
    pos = end + 1;
  }
  return keys;
}

std::string random_bytes(std::mt19937& rng, size_t n, bool allow_newline) {
  std::string s(n, 'a');
  for (char& c : s) {
    c = char(1 + rng() % 255);
    if (!allow_newline && c == '\n') c = '\\';
  }
  return s;
}

std::string random_value(std::mt19937& rng) {
  static char const* const odd_values[] = {"",       "\\xf9\\xf9", "\\x04\\x04", "[\\x20]", "---", "C-5",
                                         "zz",     "zzz",        "-127",       "\\x",     "\\",  "\\x0",
                                         "\\x00",  "\\xfa",      "sine",       "modulator", "src0", "80",
                                         "ff",     "100",        "-99999999999", "99999999999", "0x10", "\\q"};
  switch (rng() % 8) {
    case 0: return odd_values[rng() % std::size(odd_values)];
    case 1: return std::to_string(int(rng() % 20000) - 10000);
    case 2: {
      char b[16];
      std::snprintf(b, sizeof b, "%x", unsigned(rng() % 0x400));
      return b;
    }
    case 3: {
      std::string s;
      for (int n = int(rng() % 400); n > 0; --n) {
        char b[8];
        std::snprintf(b, sizeof b, "\\x%02x", unsigned(rng() % 256));
        s += b;
      }
      return s;
    }
    case 4: return std::string(rng() % 3000, char('A' + rng() % 26));
    case 5: return random_bytes(rng, rng() % 2000, false);
    default: return random_bytes(rng, rng() % 40, false);
  }
}

std::string random_key(std::mt19937& rng, std::vector<std::string> const& keys) {
  switch (rng() % 5) {
    case 0:
    case 1:
    case 2: return keys.empty() ? std::string("name") : keys[rng() % keys.size()];
    case 3: {
      std::string k = keys.empty() ? std::string("name") : keys[rng() % keys.size()];
      if (!k.empty() && rng() % 2) k.pop_back();
      else k += char(1 + rng() % 255);
      return k;
    }
    default: return random_bytes(rng, 1 + rng() % 30, false);
  }
}

// Offers random lines to a record: directly, and through the file reader
// as random text and as written text cut anywhere.
template <class R, class Record>
void offer_random(std::mt19937& rng, Guarded<R>& g, Record& record, std::string const& own_text, int rounds) {
  std::vector<std::string> const keys = keys_of(own_text);
  for (int round = 0; round < rounds; ++round) {
    std::string const key = random_key(rng, keys);
    std::string const value = random_value(rng);
    dialog_set_value(record, key.c_str(), value.c_str());
    ASSERT_TRUE(guards_intact(g.before, g.after)) << "direct, round " << round;

    std::string text;
    for (int n = int(rng() % 6); n > 0; --n) {
      std::string k = random_key(rng, keys);
      std::string v = random_value(rng);
      text += k + (rng() % 4 ? " " : "\t") + v + (rng() % 5 ? "\n" : " extra\n");
    }
    if (rng() % 3 == 0) text += random_bytes(rng, rng() % 3000, true);
    read_text(record, text);
    ASSERT_TRUE(guards_intact(g.before, g.after)) << "lines, round " << round;

    std::string const cut = own_text.substr(0, rng() % (own_text.size() + 1));
    read_text(record, cut);
    ASSERT_TRUE(guards_intact(g.before, g.after)) << "cut, round " << round;
  }
}

template <class R>
void random_input_for(std::mt19937& rng, int rounds) {
  Guarded<R>& g = guarded<R>;
  fill_guards(g.before, g.after);
  patch_record_initialize(g.record);
  std::string const own = written(g.record);
  offer_random(rng, g, g.record, own, rounds);
  // What a battered record writes reads back without harm, whole or cut.
  std::string const again = written(g.record);
  for (int i = 0; i < 20; ++i) {
    patch_record_initialize(g.record);
    read_text(g.record, again.substr(0, rng() % (again.size() + 1)));
    ASSERT_TRUE(guards_intact(g.before, g.after));
  }
}

}  // namespace

TEST(PatchReadersRandomInput, ParameterRecordsStayInsideTheirBytes) {
  PromotionFlag flag(false);
  std::mt19937 rng(20250929);
  testing::internal::CaptureStdout();
  random_input_for<InstrumentParametersMIDI>(rng, 300);
  random_input_for<InstrumentParametersMonoSampler>(rng, 300);
  random_input_for<InstrumentParametersPolySampler>(rng, 300);
  random_input_for<InstrumentParametersFMSynth>(rng, 300);
  random_input_for<InstrumentParametersBreakBeat>(rng, 300);
  random_input_for<InstrumentParametersOneShot>(rng, 300);
  random_input_for<InstrumentParametersGraphics>(rng, 300);
  random_input_for<InstrumentParametersUtility>(rng, 300);
  random_input_for<FXParameters>(rng, 300);
  testing::internal::GetCapturedStdout();
}

TEST(PatchReadersRandomInput, ModulationRecordsStayInsideTheirBytes) {
  PromotionFlag flag(false);
  std::mt19937 rng(4242);
  testing::internal::CaptureStdout();
  random_input_for<InstrumentModulationBreakBeat>(rng, 300);
  random_input_for<InstrumentModulationMonoSampler>(rng, 300);
  random_input_for<InstrumentModulationPolySampler>(rng, 300);
  random_input_for<InstrumentModulationFMSynth>(rng, 300);
  random_input_for<InstrumentModulationOneShot>(rng, 300);
  testing::internal::GetCapturedStdout();
}

TEST(PatchReadersRandomInput, EmptyRecordKeepsItsZeroByte) {
  PromotionFlag flag(false);
  std::mt19937 rng(77);
  testing::internal::CaptureStdout();
  random_input_for<EmptyPatchRecord>(rng, 300);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(guarded<EmptyPatchRecord>.record.zero, 0);
}

TEST(PatchReadersRandomInput, NameStaysInsideItsThirtyTwoBytes) {
  PromotionFlag flag(false);
  std::mt19937 rng(31);
  Guarded<PatchName>& g = guarded<PatchName>;
  fill_guards(g.before, g.after);
  bytes_clear(g.record);
  PatchMemoryNameDialog dialog{&g.record, reinterpret_cast<char const*>(&g.record) + sizeof(PatchName)};
  testing::internal::CaptureStdout();
  offer_random(rng, g, dialog, "name abc\n", 500);
  testing::internal::GetCapturedStdout();
  // A long name fills all 32 bytes and no more.
  bytes_clear(g.record);
  read_text(dialog, "name " + std::string(100, 'k') + "\n");
  EXPECT_EQ(std::string(g.record.data, 32), std::string(32, 'k'));
  EXPECT_TRUE(guards_intact(g.before, g.after));
}

TEST(PatchReadersRandomInput, ProjectLoaderWithBrokenFiles) {
  PromotionFlag flag(false);
  std::mt19937 rng(99);
  project_initialize(&prj);
  Project const* const p = &prj;
  for (int type = 0; type < 9; ++type) {
    SCOPED_TRACE(type);
    set_track_type(11, type);
    // What a slot with changes would hold, cut anywhere, and random bytes.
    std::string const own = "#version 1\nname cut\n" + expected_parameters(type).text;
    std::string const mod = "#version 1\nname cut\n" + expected_modulation(type).text;
    fs::path const dir = scratch("broken_" + std::to_string(type));
    for (int i = 0; i < kPatchSlots; ++i) {
      char name[32];
      std::snprintf(name, sizeof name, "patch_%02x.txt", i);
      write_file(dir / name, i % 2 ? own.substr(0, rng() % (own.size() + 1)) : random_bytes(rng, rng() % 4000, true));
      std::snprintf(name, sizeof name, "modulation_%02x.txt", i);
      write_file(dir / name, i % 3 ? mod.substr(0, rng() % (mod.size() + 1)) : random_bytes(rng, rng() % 4000, true));
    }
    bytes_copy(neighbour_before, p->patch_memory[10]);
    bytes_copy(neighbour_after, p->patch_memory[12]);
    testing::internal::CaptureStdout();
    project_reset_patch_memory(&prj, 11);
    project_load_track_patches(&prj, 11, dir);
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(bytes_equal(neighbour_before, p->patch_memory[10]));
    EXPECT_TRUE(bytes_equal(neighbour_after, p->patch_memory[12]));
  }
}
