#pragma once
// Short member lists that stand alone or head other files.

#include "kelvane/types.hpp"
#include "settings/dialog.hpp"
#include "settings/records.hpp"

namespace kelvane {

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
