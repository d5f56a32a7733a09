#pragma once
// The in-memory project: one huge fixed record of value cells. All-zero
// memory means empty throughout, so the three records of a run live in
// zero-initialised static storage and are never copied whole.

#include <filesystem>

#include "kelvane/types.hpp"
#include "project/patches.hpp"
#include "project/pattern.hpp"
#include "project/table_program.hpp"
#include "settings/records.hpp"
#include "settings/small_records.hpp"

namespace kelvane {

inline constexpr int kNumTracks = 16;
inline constexpr int kSequencerLines = 256;
inline constexpr int kNumPatterns = kZZLimit;
inline constexpr int kNumTables = kZZLimit;
inline constexpr int kNumPrograms = kZZLimit;
inline constexpr int kNumProgramVariables = 64;
inline constexpr int kNumChordMemory = 64;
inline constexpr int kNumModulationMemory = 64;
inline constexpr int kNumFXPatches = 64;
inline constexpr int kPatchesPerTrack = 64;
inline constexpr int kNameSize = 32;

inline constexpr int kChordNotes = 16;
inline constexpr int kModulationColumns = 4;

// A stored chord: how many notes it has and the notes as transposes. Its
// step lines are the entry's: `fields` in the order of chord_memory.txt.
struct ChordMemoryEntry {
  NumChordNotes num_chord_notes[1];
  Transpose notes[kChordNotes];
  static constexpr auto fields = std::tuple{step_field("transpose", &ChordMemoryEntry::notes),
                                            step_field("num_chord_notes", &ChordMemoryEntry::num_chord_notes)};
};

// A stored set of four modulators, one per column. modulation_memory.txt
// writes the fields in another order than memory's.
struct ModulationMemoryEntry {
  ModulatorIdx modulator_idx[kModulationColumns];
  Trigger trigger[kModulationColumns];
  ModulatorWaveform modulator_waveform[kModulationColumns];
  ModulatorSpeed modulator_speed[kModulationColumns];
  ModulatorMultType modulator_mult_type[kModulationColumns];
  ModulatorAmplitude modulator_amplitude[kModulationColumns];
  static constexpr auto fields = std::tuple{
      step_field("trigger", &ModulationMemoryEntry::trigger),
      step_field("modulator_idx", &ModulationMemoryEntry::modulator_idx),
      step_field("modulator_speed", &ModulationMemoryEntry::modulator_speed),
      step_field("modulator_amplitude", &ModulationMemoryEntry::modulator_amplitude),
      step_field("modulator_waveform", &ModulationMemoryEntry::modulator_waveform),
      step_field("modulator_mult_type", &ModulationMemoryEntry::modulator_mult_type)};
};

static_assert(sizeof(ChordMemoryEntry) == 17);
static_assert(sizeof(ModulationMemoryEntry) == 48);

struct Project {
  char build_stamp[64];
  ProjectSettings project_settings;
  TrackSettings track_settings[kNumTracks];
  TrackCallbacks track_callbacks[kNumTracks];
  TrackPatchMemory patch_memory[kNumTracks];
  MixSettings mix_settings[kNumTracks];
  MixModulationMapping mix_modulation_mappings[kNumTracks];
  PatternIdx sequencer[kSequencerLines][kNumTracks];
  Pattern patterns[kNumPatterns];
  Table tables[kNumTables];
  Program programs[kNumPrograms];
  ProgramVariable program_variables[kNumProgramVariables];
  ChordMemoryEntry chord_memory[kNumChordMemory];
  ModulationMemoryEntry modulation_memory[kNumModulationMemory];
  FXParameters fx_parameters[kNumFXPatches];
  ProgramIdx fx_srr_callback[kNumFXPatches];
  PatchName fx_patch_names[kNumFXPatches];
  int allocated_patterns;
  int allocated_tables;
  int allocated_programs;
  char name[kNameSize];
};

static_assert(std::is_trivially_default_constructible_v<Project>,
              "a Project must be zero-initialised static storage");

void project_initialize(Project* project);
// The initial state of everything but the pattern, table and program slots
// and the patch memory, which are left as they are.
void project_initialize_but_slots(Project* project);

// Emptiness of the memory entries: all bytes zero.
bool project_chord_is_initial(Project const* project, int idx);
bool project_modulation_is_initial(Project const* project, int idx);
// A program variable is unused while it equals the initial entry.
bool project_program_variable_is_initial(Project const* project, int idx);
ProgramVariable program_variable_initial();
// A load writes the slots below each counter, and the first slot above it
// whose file is missing, as if it had started from the initial state. Other
// slots above a counter whose file is missing it leaves as they are: nothing
// reads them before the import overwrites them whole, but for a pattern slot
// that the import reserves ahead of its pattern, which it first hands to
// project_prepare_pattern_slot.
void project_load(Project* project, char const* path);
// Puts a pattern slot that the last load of the record left as it was into
// the initial state; any other slot stays as it is.
void project_prepare_pattern_slot(Project* project, int slot);
// From now on no slot of the record counts as left by a load.
void project_forget_untouched_slots(Project const* project);
void project_save(Project* project, char const* path);

// Table and program files; false if a file cannot be opened for writing
// (after the message).
bool project_save_table(Table* table, std::filesystem::path const& file);
bool project_save_program(Program* program, std::filesystem::path const& file);
StepFileRead project_load_table(Table* table, std::filesystem::path const& file);
StepFileRead project_load_program(Program* program, std::filesystem::path const& file);

// chord_memory.txt and modulation_memory.txt. A file that cannot be
// written is reported and the other is still tried.
void project_save_memory_files(Project const* project, std::filesystem::path const& dir);
void project_load_memory_files(Project* project, std::filesystem::path const& dir);

// Puts a track's whole patch memory into the initial state of the track's
// current type; this also sets the page selectors of that type to 0.
void project_reset_patch_memory(Project* project, int track);

// Hands the visitor the slots of a track's patch memory, by the track's
// type: visitor(parameters, modulation, names), three arrays of 64.
template <class P, class F>
void project_track_do_patch_mod(P* project, int track, F&& visitor) {
  auto& memory = project->patch_memory[track];
  patch_memory_do(memory, project->track_settings[track].type.index(),
                  [&](auto& parameters, auto& modulation) { visitor(parameters, modulation, memory.names); });
}

// The patch files of a track and the FX patch files (the caller has made
// the directory). A file that cannot be written is reported; the others
// are still tried.
void project_save_track_patches(Project* project, int track, std::filesystem::path const& track_dir);
void project_load_track_patches(Project* project, int track, std::filesystem::path const& track_dir);
void project_save_fx_patches(Project* project, std::filesystem::path const& fx_dir);
void project_load_fx_patches(Project* project, std::filesystem::path const& fx_dir);

// sequencer.txt
void project_load_sequencer(Project* project, std::filesystem::path const& file);
void project_save_sequencer(Project const* project, std::filesystem::path const& file);

// "patterns/pattern_XX.txt" and its kin: a numbered slot's file name.
std::filesystem::path slot_file(std::filesystem::path const& dir, char const* format, int slot);

// Empties every cell of a track's sequencer column that names no allocated
// pattern of the track's type; cells beyond the counter are reported.
void project_check_sequencer_column(Project* project, int track);

}  // namespace kelvane
