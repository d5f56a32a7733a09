// project_load: fills a record from a project directory in a fixed order.
// Nothing is ever refused: a missing file leaves the initial state behind.

#include <cstring>
#include <filesystem>

#include "project/files.hpp"
#include "project/project.hpp"

namespace kelvane {

namespace fs = std::filesystem;

namespace {

// Chords of older projects, kept in project_settings.txt: an entry that
// differs from the defaults goes to the chord memory.
void load_legacy_chord_memory(Project* project, fs::path const& file) {
  LegacyChordMemory legacy;
  bytes_clear(legacy);
  dialog_set_default(legacy);
  LegacyChordMemory defaults;
  bytes_copy(defaults, legacy);
  read_settings_file(legacy, file, SettingsReset::none);
  for (int i = 0; i < LegacyChordMemory::kChords; ++i) {
    bool const same = bytes_equal(legacy.chord_memory_num_notes[i], defaults.chord_memory_num_notes[i]) &&
                      std::memcmp(legacy.chord_memory[i], defaults.chord_memory[i],
                                  sizeof legacy.chord_memory[i]) == 0;
    if (same) continue;
    ChordMemoryEntry& entry = project->chord_memory[i];
    entry.num_chord_notes[0] = NumChordNotes::from_number(legacy.chord_memory_num_notes[i].value());
    for (int j = 0; j < LegacyChordMemory::kNotes; ++j) entry.notes[j] = legacy.chord_memory[i][j];
  }
}

void load_program_variables(Project* project, fs::path const& dir) {
  for (int i = 0; i < kNumProgramVariables; ++i) {
    char name[64];
    std::snprintf(name, sizeof name, "program_variable_%02x.txt", i);
    ProgramVariable& variable = project->program_variables[i];
    FILE* f = open_for_reading(dir / name);
    if (!f) continue;
    bytes_copy(variable, program_variable_initial());
    dialog_read_file(variable, f);
    std::fclose(f);
  }
}

}  // namespace

void project_load(Project* project, char const* path) {
  project_initialize(project);
  if (std::strcmp(path, "projects/<new project>") == 0) return;
  DirectoryListings const listings;

  fs::path const dir(path);
  std::string const name = dir.filename().string();
  std::strncpy(project->name, name.c_str(), sizeof project->name - 1);
  project->name[sizeof project->name - 1] = 0;

  fs::path const settings_file = dir / "project_settings.txt";
  read_settings_file(project->project_settings, settings_file, SettingsReset::defaults);
  load_legacy_chord_memory(project, settings_file);
  project_load_memory_files(project, dir);

  // Every slot is tried; a counted slot raises its counter past any gap.
  for (int i = 0; i < kNumPatterns; ++i)
    if (project_load_pattern(&project->patterns[i], slot_file(dir, "patterns/pattern_%s.txt", i)) == 0)
      project->allocated_patterns = i + 1;
  for (int i = 0; i < kNumTables; ++i)
    if (project_load_table(&project->tables[i], slot_file(dir, "tables/table_%s.txt", i)) == StepFileRead::steps)
      project->allocated_tables = i + 1;
  for (int i = 0; i < kNumPrograms; ++i)
    if (project_load_program(&project->programs[i], slot_file(dir, "programs/program_%s.txt", i)) ==
        StepFileRead::steps)
      project->allocated_programs = i + 1;

  project_load_sequencer(project, dir / "sequencer.txt");

  for (int t = 0; t < kNumTracks; ++t) {
    chiptune_to_monosampler_promotion = false;
    fs::path const track_dir = track_directory(dir, t);
    read_settings_file(project->track_settings[t], track_dir / "track_settings.txt",
                       SettingsReset::defaults);
    read_settings_file(project->track_settings[t], track_dir / "instrument_settings.txt",
                       SettingsReset::none);
    read_settings_file(project->track_callbacks[t], track_dir / "track_callbacks.txt",
                       SettingsReset::zero);
    read_settings_file(project->mix_settings[t], track_dir / "mix_settings.txt", SettingsReset::defaults);
    read_settings_file(project->mix_modulation_mappings[t], track_dir / "mix_modulation_mappings.txt",
                       SettingsReset::zero);
    project_check_sequencer_column(project, t);
    // The patch memory follows the type the track has now.
    project_reset_patch_memory(project, t);
    project_load_track_patches(project, t, track_dir);
  }

  project_load_fx_patches(project, dir / "fx_patches");
  load_program_variables(project, dir / "program_variables");
}

}  // namespace kelvane
