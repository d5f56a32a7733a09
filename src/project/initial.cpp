// The initial state of a project. What a file leaves out keeps this state,
// so it is a part of the file format.

#include <cstdio>
#include <cstring>

#include "project/project.hpp"

namespace kelvane {

namespace {
constexpr char kBuildStamp[] = "Mon Sep 29 23:24:55 PDT 2025";
}

ProgramVariable program_variable_initial() {
  ProgramVariable v;
  bytes_clear(v);
  v.scope = VariableScope::from_index(0);
  v.show_in_track_settings = Boolean::from_value(0);
  return v;
}

namespace {

// Zeroes the bytes from `from` up to `to`.
void clear_range(void* from, void const* to) {
  std::memset(from, 0, size_t(static_cast<char const*>(to) - static_cast<char*>(from)));
}

}  // namespace

void project_initialize_but_slots(Project* project) {
  // Everything but the slots and the patch memory is zero, then the stamp
  // with its NUL fill.
  clear_range(project, &project->patch_memory);
  clear_range(project->mix_settings, project->patterns);
  clear_range(project->program_variables, project + 1);
  std::memcpy(project->build_stamp, kBuildStamp, sizeof kBuildStamp - 1);

  project->allocated_patterns = 0;
  project->allocated_tables = 0;
  project->allocated_programs = 0;

  for (int t = 0; t < kNumTracks; ++t) {
    TrackSettings& track = project->track_settings[t];
    dialog_set_default(track);
    std::snprintf(track.name.data, sizeof track.name.data, "T %X", t);
    track.midi_channel = decltype(track.midi_channel)::from_value(t + 1);
  }

  ProgramVariable const variable = program_variable_initial();
  for (ProgramVariable& v : project->program_variables) bytes_copy(v, variable);

  dialog_set_default(project->project_settings);

  for (int t = 0; t < kNumTracks; ++t) {
    dialog_set_default(project->mix_settings[t]);
    bytes_clear(project->mix_modulation_mappings[t]);
  }

  for (int i = 0; i < kNumFXPatches; ++i) {
    dialog_set_default(project->fx_parameters[i]);
    project->fx_srr_callback[i] = ProgramIdx::empty_cell();
  }
}

void project_initialize(Project* project) {
  project_initialize_but_slots(project);
  for (Pattern& pattern : project->patterns) pattern_initialize(&pattern);
  for (Table& table : project->tables) table_reset(&table);
  for (Program& program : project->programs) program_reset(&program);
  for (int t = 0; t < kNumTracks; ++t) project_reset_patch_memory(project, t);
  project_forget_untouched_slots(project);
}

bool project_chord_is_initial(Project const* project, int idx) {
  static ChordMemoryEntry const chord_empty{};
  return bytes_equal(project->chord_memory[idx], chord_empty);
}

bool project_modulation_is_initial(Project const* project, int idx) {
  static ModulationMemoryEntry const modulation_empty{};
  return bytes_equal(project->modulation_memory[idx], modulation_empty);
}

bool project_program_variable_is_initial(Project const* project, int idx) {
  return bytes_equal(project->program_variables[idx], program_variable_initial());
}

}  // namespace kelvane
