#pragma once
// The in-memory project: one huge fixed record of value cells. All-zero
// memory means empty throughout, so the three records of a run live in
// zero-initialised static storage and are never copied whole.

#include <filesystem>

#include "kelvane/types.hpp"
#include "project/pattern.hpp"
#include "settings/records.hpp"

namespace kelvane {

inline constexpr int kNumTracks = 16;
inline constexpr int kSequencerLines = 256;
inline constexpr int kNumPatterns = kZZLimit;
inline constexpr int kNumTables = kZZLimit;
inline constexpr int kNumPrograms = kZZLimit;
inline constexpr int kStepsPerPattern = 64;
inline constexpr int kNumProgramVariables = 64;
inline constexpr int kNumChordMemory = 64;
inline constexpr int kNumModulationMemory = 64;
inline constexpr int kNumFXPatches = 64;
inline constexpr int kPatchesPerTrack = 64;
inline constexpr int kNameSize = 32;

struct Project {
  char build_stamp[64];
  TrackSettings track_settings[kNumTracks];
  PatternIdx sequencer[kSequencerLines][kNumTracks];
  Pattern patterns[kNumPatterns];
  int allocated_patterns;
  int allocated_tables;
  int allocated_programs;
  char name[kNameSize];
};

static_assert(std::is_trivially_default_constructible_v<Project>,
              "a Project must be zero-initialised static storage");

void project_initialize(Project* project);
void project_load(Project* project, char const* path);
void project_save(Project* project, char const* path);

// sequencer.txt
void project_load_sequencer(Project* project, std::filesystem::path const& file);
void project_save_sequencer(Project const* project, std::filesystem::path const& file);

// Empties every cell of a track's sequencer column that names no allocated
// pattern of the track's type; cells beyond the counter are reported.
void project_check_sequencer_column(Project* project, int track);

}  // namespace kelvane
