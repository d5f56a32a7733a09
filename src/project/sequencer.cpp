// sequencer.txt: one "%d %d %s" line per non-empty cell, line then column,
// the cell as two base-36 digits or two raw 0x04 bytes. Nothing in this
// file is escaped.

#include <cstdio>

#include "project/files.hpp"
#include "project/project.hpp"

namespace kelvane {

void project_load_sequencer(Project* project, std::filesystem::path const& file) {
  LineReader f;
  if (!open_for_reading(file, f)) {
    std::fprintf(stderr, "error: could not open \"%s\" for reading!\n", file.c_str());
    return;
  }
  bytes_clear(project->sequencer);
  char line[1024];
  while (f.next(line, sizeof line)) {
    int row, column;
    char text[3] = {0, 0, 0};
    if (std::sscanf(line, "%d %d %c%c", &row, &column, &text[0], &text[1]) != 4) {
      std::fprintf(stderr, "error parsing line '%s' when loading sequencer!\n", line);
      continue;
    }
    if (row < 0 || row >= kSequencerLines) {
      std::fprintf(stderr, "error, invalid sequencer line index (%d)\n", row);
      continue;
    }
    if (column < 0 || column >= kNumTracks) {
      std::fprintf(stderr, "error, invalid sequencer column index (%d)\n", column);
      continue;
    }
    project->sequencer[row][column] = PatternIdx::parse_string(text);
  }
}

void project_save_sequencer(Project const* project, std::filesystem::path const& file) {
  OutputFile f;
  if (!f.open(file.c_str())) {
    std::fprintf(stderr, "error: could not open \"%s\" for writing!\n", file.c_str());
    return;
  }
  for (int row = 0; row < kSequencerLines; ++row) {
    for (int column = 0; column < kNumTracks; ++column) {
      PatternIdx cell = project->sequencer[row][column];
      if (cell.is_empty()) continue;
      char text[3];
      format_string_zz_num(text, sizeof text, cell);
      // "%d %d %s\n"
      f.out.decimal(row);
      f.out.put(' ');
      f.out.decimal(column);
      f.out.put(' ');
      f.out.str(text);
      f.out.put('\n');
    }
  }
  f.close();
}

void project_check_sequencer_column(Project* project, int track) {
  for (int row = 0; row < kSequencerLines; ++row) {
    PatternIdx& cell = project->sequencer[row][track];
    if (!cell.has_number()) continue;
    int i = cell.value();
    // A negative index, from a corrupt text, names no pattern of the track.
    if (i < 0) {
      cell = PatternIdx::empty_cell();
      continue;
    }
    if (i >= project->allocated_patterns) {
      std::fprintf(stderr,
                   "warning: pattern idx %x(%d) is out of range of allocated patterns (%d), removing\n",
                   unsigned(i), i, project->allocated_patterns);
      cell = PatternIdx::empty_cell();
      continue;
    }
    if (project->patterns[i].type.stored != project->track_settings[track].type.stored)
      cell = PatternIdx::empty_cell();
  }
}

}  // namespace kelvane
