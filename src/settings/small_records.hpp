#pragma once
// Short member lists that stand alone or head other files.

#include "kelvane/types.hpp"
#include "settings/dialog.hpp"
#include "settings/records.hpp"

namespace kelvane {

// The speed of a pattern or a table: decimal, two blank places when empty.
struct Speed : RangedInteger<Speed, int, 1, 96, false> {
  static constexpr TextForm text_form = TextForm::D;
  static constexpr int text_width = 2;
  static constexpr int default_value = 6;
};

// The length of a pattern in steps: written "%2d", read "%d"; an empty cell
// writes no text at all.
struct PatternLength : RangedInteger<PatternLength, int, 1, 64, false> {
  static constexpr TextForm text_form = TextForm::D;
  static constexpr int default_value = 64;
  void format_string(char* buf, size_t len) const {
    constexpr NumberFormat two_places = print_format("%2d");
    if (stored == 0)
      format_fill(buf, len, 0, 0);
    else
      print_number(buf, len, two_places, value());
  }
};

// The settings of a pattern, the header lines of its file.
struct PatternSettings {
  KVArray<char, 32> name;
  Speed speed;
  PatternLength length;
  ProgramIdx clock_tick_callback;
  ProgramIdx step_callback;
  ProgramIdx start_callback;
  ProgramIdx stop_callback;
  V<1, 0> mute_note_column[8];
  ProgramIdx transpose_callback[4];
  ProgramIdx note_callback[4];
  ProgramIdx chord_callback[4];

  template <class F>
  void do_it(F&& f) {
    std::apply(f, std::tuple_cat(
                      std::tuple{member("length", length), member("speed", speed), member("name", name)},
                      indexed_members<8>([this]<int K>() {
                        return std::tuple{member(indexed_key<"mute_note_column", K>(), mute_note_column[K])};
                      }),
                      std::tuple{member("clock_tick_callback", clock_tick_callback),
                                 member("step_callback", step_callback),
                                 member("start_callback", start_callback),
                                 member("stop_callback", stop_callback)},
                      indexed_members<4>([this]<int K>() {
                        return std::tuple{member(indexed_key<"transpose_callback", K>(), transpose_callback[K])};
                      }),
                      indexed_members<4>([this]<int K>() {
                        return std::tuple{member(indexed_key<"chord_callback", K>(), chord_callback[K])};
                      }),
                      indexed_members<4>([this]<int K>() {
                        return std::tuple{member(indexed_key<"note_callback", K>(), note_callback[K])};
                      })));
  }
};

// The settings of a table, the header lines of its file. The rows of the
// table follow these members in memory.
struct TableSettings {
  KVArray<char, 32> name;
  Speed speed;
  I<0, 1, 1> reset;
  ProgramIdx start_callback;
  ProgramIdx stop_callback;
  ProgramIdx transpose_callback;
  TableTriggerMode trigger_mode;
  ModulatorIdx modulator_idx;
  I<0, 1, 0> note_on_reset;
  AddressSpace address_space;
  Address address;

  template <class F>
  void do_it(F&& f) {
    f(member("trigger_mode", trigger_mode), member("speed", speed), member("modulator_idx", modulator_idx),
      member("note_on_reset", note_on_reset), member("address_space", address_space),
      member("address", address), member("reset", reset), member("start_callback", start_callback),
      member("stop_callback", stop_callback), member("transpose_callback", transpose_callback),
      member("name", name));
  }
};

// The header of a program file.
struct ProgramSettings {
  KVArray<char, 32> name;
  MemoryDisplayFormat mem_display_format;

  template <class F>
  void do_it(F&& f) {
    f(member("name", name), member("mem_display_format", mem_display_format));
  }
};

// The first line after the version of every patch, modulation, FX patch
// and FX modulation file: the name of the slot, which lives apart from the
// slot's records. A full name runs on into the memory behind it, up to
// `text_end`.
struct PatchMemoryNameDialog {
  KVArray<char, 32>* name;
  char const* text_end;

  template <class F>
  void do_it(F&& f) {
    f(member("name", *name));
  }
};

// The parameters of an FX patch, the lines of fx_patch_hh.txt after its name.
struct FXParameters {
  I<0, 127, 0> sample_rate_reduction;
  P<255> srr_dry_wet;
  P<255> cutoff;
  P<0> resonance;
  P<64> volume_pre_filter;
  P<64> volume_post_filter;
  I<0, 1, 0> softclip;

  template <class F>
  void do_it(F&& f) {
    f(member("sample_rate_reduction", sample_rate_reduction), member("srr_dry_wet", srr_dry_wet),
      member("cutoff", cutoff), member("resonance", resonance),
      member("volume_pre_filter", volume_pre_filter), member("volume_post_filter", volume_post_filter),
      member("softclip", softclip));
  }
};

// The one line of fx_modulation_hh.txt after its name: the FX patch's
// callback, which lives beside the FX parameters, not inside them.
struct FXModulationDialog {
  ProgramIdx* srr_callback;

  template <class F>
  void do_it(F&& f) {
    f(member("srr_callback", *srr_callback));
  }
};

// A named variable that memory addresses of space V refer to.
struct ProgramVariable {
  KVArray<char, 32> name;
  VariableScope scope;
  Boolean show_in_track_settings;

  template <class F>
  void do_it(F&& f) {
    f(member("name", name), member("scope", scope),
      member("show_in_track_settings", show_in_track_settings));
  }
};

// The chord memory that older projects kept in project_settings.txt: 16
// chords of a count and 8 notes. It lives only while a project loads.
struct LegacyChordMemory {
  static constexpr int kChords = 16;
  static constexpr int kNotes = 8;
  I<1, 8, 4> chord_memory_num_notes[kChords];
  Transpose chord_memory[kChords][kNotes];

  template <class F>
  void do_it(F&& f) {
    std::apply(f, indexed_members<kChords>([this]<int C>() {
                 return std::tuple_cat(
                     std::tuple{member(indexed_key<"chord_memory_num_notes", C>(),
                                       chord_memory_num_notes[C])},
                     indexed_members<kNotes>([this]<int N>() {
                       return std::tuple{
                           member(indexed_key<"chord_memory", C, N>(), chord_memory[C][N])};
                     }));
               }));
  }
};

}  // namespace kelvane
