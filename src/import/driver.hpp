#pragma once
// The driver of an import: which patterns of the source come over, in what
// order, and where each lands in the target's sequencer. The tool's main
// and every program that carries out a run share it.

#include <functional>
#include <string>
#include <vector>

#include "project/project.hpp"

namespace kelvane {

// What a run is asked to do, as its command line says it.
struct ImportRequest {
  int source_track = -1;  // -1: each pattern's own track is searched
  int target_track = 0;
  int seq_target_offset = 0;
  bool whole_track = false;
  // The names given with -p, asked for only when the list is imported:
  // a command line without them fails at that point, not before.
  std::function<std::vector<std::string>()> patterns;
};

constexpr int kNoRoom = -1;

// The line of the target column where new material goes: two lines below
// the last used line the scan sees, but not above the offset. kNoRoom if
// that cell is taken.
int target_line(Project const* tgt, int track, int seq_target_offset);
// The same line before the test whether its cell is free.
int target_line_wanted(Project const* tgt, int track, int seq_target_offset);

// The lowest track whose sequencer column holds pattern `idx`; -1 if none.
int find_source_track(Project const* src, int idx);

// Everything between the two loads and the save: the counts line, the
// matching of memory entries, the check of track types and the import
// itself. Returns 0 when the target is to be saved, 1 when the run ends
// without saving (its message printed).
int run_import(Project* tgt, Project const* src, ImportRequest const& request);

}  // namespace kelvane
