#pragma once
// Named enumerations: cells that hold one name out of a fixed list and are
// written as that name. Each enumeration is a plain table of constant
// strings; one generic piece of code reads and writes all of them.
//
// Every enumeration offers:
//   names          the table, in index order
//   empty_text     what an empty cell is written as (the bytes before
//                  escaping; the fill glyphs of the tracker's screen)
//   default_index  the entry a settings member takes on its default step
//   text_width     only where the enumeration stands as a column of an op
//                  code: the places the column takes
//   parse_string   exact comparison in index order, unknown text is empty
//   format_string  the name, or the empty text

#include <array>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <type_traits>

#include "kelvane/types_cells.hpp"

namespace kelvane {

// Writes a text and its NUL, cut to what fits into len bytes.
inline void format_text(char* buf, size_t len, char const* text) {
  if (len == 0) return;
  size_t n = 0;
  for (; n + 1 < len && text[n]; ++n) buf[n] = text[n];
  buf[n] = 0;
}

// A text of N copies of one fill byte, for the empty texts.
template <char Fill, int N>
inline constexpr std::array<char, N + 1> fill_text = [] {
  std::array<char, N + 1> text{};
  for (int i = 0; i < N; ++i) text[i] = Fill;
  return text;
}();

// Appends entries to a table of names. The texts themselves are shared,
// only the pointers are copied.
template <size_t N, size_t M>
constexpr std::array<char const*, N + M> join_names(std::array<char const*, N> const& head,
                                                    char const* const (&tail)[M]) {
  std::array<char const*, N + M> all{};
  for (size_t i = 0; i < N; ++i) all[i] = head[i];
  for (size_t i = 0; i < M; ++i) all[N + i] = tail[i];
  return all;
}

// Stored 0 is empty, entry i is stored with its sign bit flipped (0x80 + i
// in a byte cell). Derived gives `names`, the table in index order, and
// `empty_text` and `default_index`. It may give `text_of(int index)` when
// its writer does not simply write the entry of the index.
template <class Derived, class Rep = signed char>
struct Enumeration {
  using rep_type = Rep;
  Rep stored;

  constexpr bool is_empty() const { return stored == 0; }
  constexpr int index() const { return cell_decode<Rep>(stored); }

  static constexpr int count() { return int(std::size(Derived::names)); }

  static constexpr Derived from_index(int i) {
    Derived d{};
    d.stored = cell_encode<Rep>(i);
    return d;
  }
  static constexpr Derived empty_cell() { return Derived{}; }
  static constexpr Derived default_cell() { return from_index(Derived::default_index); }

  // The text of an index, or null for an index outside the table.
  static constexpr char const* name_of(int i) {
    return i >= 0 && i < count() ? Derived::names[i] : nullptr;
  }

  // What the writer gives for an index; null writes the empty text.
  static constexpr char const* text_of(int i) { return name_of(i); }

  // Exact comparison with the entries in index order; the first equal entry
  // wins. Nothing is trimmed and case counts. An unknown text gives the
  // empty cell.
  static Derived parse_string(char const* text) {
    for (int i = 0; i < count(); ++i)
      if (std::strcmp(text, Derived::names[i]) == 0) return from_index(i);
    return empty_cell();
  }

  // The name of the cell, the empty text for stored 0. A cell outside the
  // table is not made by any reader; unless Derived's text_of says
  // otherwise it is written as empty too.
  void format_string(char* buf, size_t len) const {
    char const* text = nullptr;
    if (!is_empty()) text = Derived::text_of(index());
    format_text(buf, len, text ? text : Derived::empty_text);
  }
};

template <class T>
concept NamedEnumeration = std::is_base_of_v<Enumeration<T, typename T::rep_type>, T>;

// ---------------------------------------------------------------------------
// Modulators.

struct ModulatorWaveform : Enumeration<ModulatorWaveform> {
  // Some names end in the screen glyph 0xF1; "tri" and "tri", 0xF1 are two
  // different entries.
  static constexpr char const* names[] = {
      "tri", "irt", "tri\xF1", "rdn",     "rup",     "low",     "hig", "neg",  // 0
      "s50", "s25", "s12",     "s50\xF1", "s25\xF1", "s12\xF1", "edn", "eup",  // 8
  };
  static constexpr int text_width = 4;
  static constexpr char const* empty_text = fill_text<kEmptyHex, text_width>.data();
  static constexpr int default_index = 0;
};

struct ModulatorMultType : Enumeration<ModulatorMultType> {
  static constexpr char const* names[] = {
      "*1",  "*2",  "*2/3", "*4",  "*4/3", "*6", "*8", "*8/3",  // 0
      "*10", "*12", "*14",  "*16", "/2",   "/3", "/6",          // 8
  };
  static constexpr int text_width = 4;
  static constexpr char const* empty_text = fill_text<kEmptyHex, text_width>.data();
  static constexpr int default_index = 0;
};

// How the two sources of a modulation slot are combined.
struct ModCombineOp : Enumeration<ModCombineOp> {
  static constexpr char const* names[] = {"src0", "add", "sub", "mul", "min", "max"};
  static constexpr char const* empty_text = fill_text<kPad, 8>.data();
  static constexpr int default_index = 0;
};

struct ModulatorOutputType : Enumeration<ModulatorOutputType> {
  static constexpr char const* names[] = {"disabled", "0..5", "-5..5", "0..10", "-10..10"};
  static constexpr char const* empty_text = fill_text<kEmptyHex, 10>.data();
  static constexpr int default_index = 0;
};

// ---------------------------------------------------------------------------
// Instruments and tracks.

// The sample loop of a BreakBeat step. The op code `bkdx` carries the same
// index as a plain number.
struct BreakBeatIdx : Enumeration<BreakBeatIdx> {
  static constexpr char const* names[] = {
      "amen",                   // 0
      "amen2",                  // 1
      "apache",                 // 2
      "cold_sweat",             // 3
      "dont_change_your_love",  // 4
      "flow",                   // 5
      "foold_gold",             // 6
      "funky_drummer",          // 7
      "god_made_me_funky",      // 8
      "hot_pants",              // 9
      "runner",                 // 10
      "new_orleans",            // 11
      "plastic_jam",            // 12
      "scorpio",                // 13
      "sesame_street",          // 14
      "sniper",                 // 15
      "worm",                   // 16
      "user0",                  // 17
      "user1",                  // 18
      "user2",                  // 19
      "user3",                  // 20
  };
  // Step lines leave out empty cells, so this text is never written.
  static constexpr char const* empty_text = "";
  static constexpr int default_index = 0;
};

// The instrument kind of a track, an int cell. Older files may name the
// kind "Chiptune", which is not an entry: the readers turn it into
// "MonoSampler" before they get here.
struct PatternType : Enumeration<PatternType, int> {
  static constexpr char const* names[] = {"MIDI",    "MonoSampler", "PolySampler",
                                          "FMSynth", "BreakBeat",   "OneShot",
                                          "CVGate",  "Graphics",    "Utility"};
  // Every track has a kind from its first default step on.
  static constexpr char const* empty_text = "";
  static constexpr int default_index = 0;

  // A kind outside the table is a programming error.
  static char const* to_string(PatternType t) {
    char const* s = name_of(t.index());
    if (!s) KELVANE_TYPES_ASSERT(!"not implemented");
    return s;
  }
  static char const* text_of(int i) { return to_string(from_index(i)); }
};

struct ChiptuneWaveform : Enumeration<ChiptuneWaveform> {
  static constexpr char const* names[] = {"sine", "square", "sawtooth", "supersaw", "noise"};
  static constexpr char const* empty_text = fill_text<kEmptyHex, 12>.data();
  static constexpr int default_index = 0;
};

struct AudioOutputRouting : Enumeration<AudioOutputRouting> {
  static constexpr char const* names[] = {"master", "external (mono)", "external (stereo)",
                                          "send only"};
  static constexpr char const* empty_text = fill_text<kEmptyHex, 20>.data();
  static constexpr int default_index = 0;
};

struct GraphicsTimeSource : Enumeration<GraphicsTimeSource> {
  static constexpr char const* names[] = {"elapsed_time", "modulator", "modulator_phase"};
  // The member always holds a source after its default step.
  static constexpr char const* empty_text = "";
  static constexpr int default_index = 0;
};

// The envelope page selector of a OneShot patch. It has no names at all:
// its member is never written, and a value read for it is dropped.
struct OSEnvelopePage {
  using rep_type = signed char;
  signed char stored;

  static constexpr bool has_text = false;
  static constexpr char const* empty_text = "";
  static constexpr int default_index = 0;

  constexpr bool is_empty() const { return stored == 0; }
  static constexpr OSEnvelopePage empty_cell() { return OSEnvelopePage{}; }
  static OSEnvelopePage parse_string(char const*) { return empty_cell(); }
  void format_string(char* buf, size_t len) const { format_text(buf, len, empty_text); }
};

// ---------------------------------------------------------------------------
// Project settings.

// The page the project settings dialog stands on.
struct ProjectSettingsPage : Enumeration<ProjectSettingsPage> {
  static constexpr char const* names[] = {
      "live",      "reverb",        "delay",  "compressor", "midi",    "sequencer",
      "func_keys", "midi_callback", "cv_out", "modulators", "routing", "system",
  };
  static constexpr char const* empty_text = fill_text<kEmptyHex, 12>.data();
  static constexpr int default_index = 0;
};

struct UIStartStopMode : Enumeration<UIStartStopMode> {
  static constexpr char const* names[] = {"default", "stop_protect (start + stop)"};
  static constexpr char const* empty_text = fill_text<kEmptyHex, 30>.data();
  static constexpr int default_index = 0;
};

// The delay runs on the tempo or on a number of ticks.
struct DelayMode : Enumeration<DelayMode> {
  static constexpr char const* names[] = {"bpm", "ticks"};
  static constexpr char const* empty_text = fill_text<kPad, 8>.data();
  static constexpr int default_index = 0;
  // Any number but 0 is written as "ticks".
  static constexpr char const* text_of(int i) { return i == 0 ? names[0] : names[1]; }
};

struct FuncKey : Enumeration<FuncKey> {
  static constexpr char const* names[] = {"F1", "F2", "F3", "F4",  "F5",  "F6",
                                          "F7", "F8", "F9", "F10", "F11", "F12"};
  static constexpr char const* empty_text = fill_text<kEmptyHex, 2>.data();
  static constexpr int default_index = 0;
};

// The reverb programs. The blanks inside the texts are part of them, and
// two texts stand twice ("echo short  flat" at 77 and 81, "defeat" at 63
// and 127): a reader always finds the first of a pair.
struct MidiverbAlgo : Enumeration<MidiverbAlgo> {
  static constexpr char const* names[] = {
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
  };
  static constexpr char const* empty_text = fill_text<kPad, 24>.data();
  static constexpr int default_index = 23;  // "1.6s medium bright"
};

// ---------------------------------------------------------------------------
// Tables and programs.

// How a program's memory value is shown.
struct MemoryDisplayFormat : Enumeration<MemoryDisplayFormat> {
  static constexpr char const* names[] = {"dec", "hex", "note"};
  // A program's reset sets "dec", so this text is never written.
  static constexpr char const* empty_text = "";
  static constexpr int default_index = 0;
};

// Whether a program variable exists once or once per track.
struct VariableScope : Enumeration<VariableScope> {
  static constexpr char const* names[] = {"global", "track"};
  // Every variable starts "global", so this text is never written.
  static constexpr char const* empty_text = "";
  static constexpr int default_index = 0;
};

// What advances a table.
struct TableTriggerMode : Enumeration<TableTriggerMode> {
  static constexpr char const* names[] = {
      "table_clock", "pattern_clock", "modulator",       "note_on",
      "note",        "note_off",      "memory_nonempty", "whole_table_once"};
  static constexpr char const* empty_text = fill_text<kPad, 16>.data();
  static constexpr int default_index = 0;
};

// ---------------------------------------------------------------------------
// Arguments of program instructions and operands. Inside an instruction or
// an operand the text of these stands in a column of fixed width; a shorter
// text ends there with its NUL, since the readers compare whole texts and a
// pad byte would defeat them.

// The registers of a program.
struct Register : Enumeration<Register> {
  static constexpr char const* names[] = {"ACCUM", "IDX_X", "IDX_Y", "IDX_Z", "IDX_W",
                                          "REG_0", "REG_1", "REG_2", "REG_3", "STACK"};
  static constexpr int text_width = 5;
  static constexpr char const* empty_text = fill_text<kEmptyHex, text_width>.data();
  static constexpr int default_index = 0;
};

// The operation of `arit`. "or " keeps its blank: it is part of the text.
struct ArithOp : Enumeration<ArithOp> {
  static constexpr char const* names[] = {"add", "sub", "mul", "div", "mod", "shl",
                                          "shr", "and", "or ", "xor", "min", "max"};
  static constexpr int text_width = 3;
  static constexpr char const* empty_text = fill_text<kEmptyHex, text_width>.data();
  static constexpr int default_index = 0;
};

// The comparison of the two `cmp` instructions: one byte each, two of
// them glyphs of the tracker's font (less or equal, greater or equal).
struct ComparisonOp : Enumeration<ComparisonOp> {
  static constexpr char const* names[] = {"<", ">", "\xF3", "\xF2", "=", "^"};
  static constexpr int text_width = 1;
  static constexpr char const* empty_text = fill_text<kEmptyHex, text_width>.data();
  static constexpr int default_index = 0;
};

// The test of the two `tst` instructions.
struct TestOp : Enumeration<TestOp> {
  static constexpr char const* names[] = {"empty", "magic", "zero"};
  static constexpr int text_width = 5;
  static constexpr char const* empty_text = fill_text<kEmptyHex, text_width>.data();
  static constexpr int default_index = 0;
};

// The function of `func`.
struct Func : Enumeration<Func> {
  static constexpr char const* names[] = {"sin", "cos", "nfchrd", "chrdtp", "tsp2JI", "rstml8"};
  static constexpr int text_width = 6;
  static constexpr char const* empty_text = fill_text<kEmptyHex, text_width>.data();
  static constexpr int default_index = 0;
};

// A project setting a program operand names.
struct ProjectSetting : Enumeration<ProjectSetting> {
  static constexpr char const* names[] = {
      "bpm",   "cmatk", "cmwet", "cmhp",  "cmgn",  "cmrat", "cmrel", "cmthr", "cmvrl", "dltks",
      "dlmde", "dlfb",  "dlfbr", "dlhp",  "dllp",  "dlpng", "dlrse", "dlvol", "dlfos", "dlfod",
      "rvalg", "rvhp",  "rvlp",  "rvvol", "ptnlq", "prvrl", "sdmcl", "fmstr"};
  static constexpr int text_width = 5;
  static constexpr char const* empty_text = fill_text<kEmptyHex, text_width>.data();
  static constexpr int default_index = 0;
};

// A special register a program operand names. Two texts end in a glyph
// byte of the tracker's font (row up and row down).
struct SpecialRegister : Enumeration<SpecialRegister> {
  static constexpr char const* names[] = {
      "empty", "magic", "modl8", "chord", "track", "tbcol", "stepP", "stepG", "trkVU",
      "rndom", "nstck", "sqncr", "srow\x10", "srow\x0F", "midCC", "padLx", "padLy", "padLz",
      "padRx", "padRy", "padRz", "muteT", "live", "patch", "fxpch"};
  static constexpr int text_width = 5;
  static constexpr char const* empty_text = fill_text<kEmptyHex, text_width>.data();
  static constexpr int default_index = 0;
};

static_assert(Register::count() == 10 && ArithOp::count() == 12 && ComparisonOp::count() == 6 &&
              TestOp::count() == 3 && Func::count() == 6 && ProjectSetting::count() == 28 &&
              SpecialRegister::count() == 25);

// ---------------------------------------------------------------------------
// Modulation sources. Every instrument kind has its own list; all of them
// begin with the 18 sources that any track has, which are the whole of
// ModulationSourceGlobal.

inline constexpr std::array<char const*, 18> modulation_source_common = {
    "modulator",      "local_memory", "global_memory", "callback",   "cv_input",   "midi_cc",
    "track_vu_meter", "noise",        "pad_left_x",    "pad_left_y", "pad_left_z", "pad_right_x",
    "pad_right_y",    "pad_right_z",  "constant",      "delay_lfo",  "aux0",       "aux1",
};

inline constexpr char const* modulation_source_empty_text = fill_text<kPad, 16>.data();

struct ModulationSourceGlobal : Enumeration<ModulationSourceGlobal> {
  static constexpr std::array<char const*, 18> names = modulation_source_common;
  static constexpr char const* empty_text = modulation_source_empty_text;
  static constexpr int default_index = 0;
};

struct ModulationSourceSynth : Enumeration<ModulationSourceSynth> {
  static constexpr auto names = join_names(
      modulation_source_common, {"filter_envelope", "amp_envelope", "velocity", "voice_parameter",
                                 "osc_0", "osc_1", "sample", "pwm_lfo"});
  static constexpr char const* empty_text = modulation_source_empty_text;
  static constexpr int default_index = 0;
};

struct ModulationSourceMonoSampler : Enumeration<ModulationSourceMonoSampler> {
  static constexpr auto names =
      join_names(modulation_source_common, {"filter_envelope", "amp_envelope", "velocity", "osc_0",
                                            "osc_1", "osc_2", "osc_3", "sample", "pwm_lfo"});
  static constexpr char const* empty_text = modulation_source_empty_text;
  static constexpr int default_index = 0;
};

struct ModulationSourceOneShot : Enumeration<ModulationSourceOneShot> {
  static constexpr auto names = join_names(
      modulation_source_common, {"velocity", "amp_envelope", "filter_envelope", "pitch_envelope"});
  static constexpr char const* empty_text = modulation_source_empty_text;
  static constexpr int default_index = 0;
};

struct ModulationSourceFMSynth : Enumeration<ModulationSourceFMSynth> {
  static constexpr auto names = join_names(
      modulation_source_common,
      {"velocity",   "osc_0",      "osc_1",      "osc_2",      "osc_3",      "osc_4",
       "osc_5",      "osc_6",      "osc_7",      "operator_0", "operator_1", "operator_2",
       "operator_3", "operator_4", "operator_5", "operator_6", "operator_7", "env_0",
       "env_1",      "env_2",      "env_3"});
  static constexpr char const* empty_text = modulation_source_empty_text;
  static constexpr int default_index = 0;
};

static_assert(ModulationSourceGlobal::count() == 18 && ModulationSourceSynth::count() == 26 &&
              ModulationSourceMonoSampler::count() == 27 &&
              ModulationSourceOneShot::count() == 22 && ModulationSourceFMSynth::count() == 39);
static_assert(MidiverbAlgo::count() == 128, "a cell's index must fit in its byte");

}  // namespace kelvane
