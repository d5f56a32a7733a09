#include "import/driver.hpp"

#include <cstdio>

#include "import/import.hpp"

namespace kelvane {

namespace {

// The two-character text of a pattern index, as every print-out shows it.
struct IdxText {
  char text[3];
};
IdxText idx_text(PatternIdx idx) {
  IdxText t;
  format_string_zz_num(t.text, sizeof t.text, idx);
  return t;
}

bool track_in_range(int track) { return track >= 0 && track < kNumTracks; }

// Writes an imported pattern into the target's sequencer and reports it.
// A line outside the column stores nothing; `wanted` is the line the
// pattern was meant for (the taken cell of a no room).
void place_pattern(Project* tgt, int track, int line, PatternIdx idx, int wanted) {
  std::printf("sequencer(%02x, %02x) = %s\n", unsigned(track), unsigned(line), idx_text(idx).text);
  int const to = idx.has_number() ? idx.value() : -1;
  if (track_in_range(track) && line >= 0 && line < kSequencerLines) {
    tgt->sequencer[line][track] = idx;
    import_notify({ImportOutcome::placed, "sequencer", -1, to, track, line});
  } else {
    import_notify({ImportOutcome::dropped, "sequencer", -1, to, track, wanted});
  }
}

// A source pattern that finds no cell in the target column: the cell at
// `line` is taken, or the column ends before its turn (line -1).
void drop_pattern(int track, int source, int target, int line = -1) {
  import_notify({ImportOutcome::dropped, "sequencer", source, target, track, line});
}

// The source cells from `from_line` on that are never brought over.
void drop_rest(Project const* src, int source_track, int target_track, int from_line) {
  for (int l = from_line; l < kSequencerLines; ++l) {
    PatternIdx const cell = src->sequencer[l][source_track];
    if (cell.has_number()) drop_pattern(target_track, cell.value(), -1);
  }
}

void import_list(Project* tgt, Project const* src, ImportRequest const& r) {
  std::printf("importing patterns\n");
  std::vector<std::string> const names = r.patterns ? r.patterns() : std::vector<std::string>{};
  for (std::string const& name : names) {
    std::printf("importing pattern %s\n", name.c_str());
    // A name is an index from 0 to 1295; anything else is the empty value.
    PatternIdx parsed = PatternIdx::parse_string(name.c_str());
    if (parsed.has_number() && parsed.value() < 0) parsed = PatternIdx::empty_cell();
    if (!parsed.has_number()) {
      std::fprintf(stderr, "error: pattern index `%s' names no pattern! (00 to zz)\n", name.c_str());
      continue;
    }
    int const idx = parsed.value();
    if (!(idx < src->allocated_patterns)) {
      std::fprintf(stderr, "error: pattern index `%s' out of range! (%d>=%d)\n", name.c_str(), idx,
                   src->allocated_patterns);
      continue;
    }
    int track = r.source_track;
    if (r.source_track < 0) {
      track = find_source_track(src, idx);
      std::printf("found pattern on track %x\n", unsigned(track < 0 ? 0 : track));
    }
    import_notify({ImportOutcome::importing, "pattern", idx, -1, r.target_track, -1});
    PatternIdx const imported = PatternIdx::from_value(import_pattern(tgt, src, r.target_track, track, idx));
    if (!track_in_range(r.target_track)) continue;
    int const line = target_line(tgt, r.target_track, r.seq_target_offset);
    if (line == kNoRoom || line >= kSequencerLines) {
      drop_pattern(r.target_track, idx, imported.value(), target_line_wanted(tgt, r.target_track, r.seq_target_offset));
      continue;
    }
    place_pattern(tgt, r.target_track, line, imported, line);
  }
}

void import_whole_track(Project* tgt, Project const* src, ImportRequest const& r) {
  int const source_track = r.source_track;
  int const target_track = r.target_track;
  int line = track_in_range(target_track) ? target_line(tgt, target_track, r.seq_target_offset) : kSequencerLines;
  int const wanted = track_in_range(target_track) ? target_line_wanted(tgt, target_track, r.seq_target_offset) : line;
  if (!track_in_range(source_track)) return;
  int first = 0;
  while (first < kSequencerLines && src->sequencer[first][source_track].is_empty()) ++first;
  if (first == kSequencerLines) return;
  if (line > kSequencerLines - 1) {
    drop_rest(src, source_track, target_track, first);
    return;
  }
  // A taken cell at the computed line goes unnoticed: the first pattern is
  // reported at line ffffffff and not stored, the rest follow from line 0.
  bool previous_empty = false;
  int src_line = first;
  for (; src_line < kSequencerLines && line <= kSequencerLines - 1; ++src_line) {
    PatternIdx const cell = src->sequencer[src_line][source_track];
    if (cell.is_empty()) {
      if (!previous_empty) ++line;
      previous_empty = true;
      continue;
    }
    previous_empty = false;
    // The magic cell names no pattern: it travels as it is.
    if (cell.is_magic()) {
      place_pattern(tgt, target_track, line, cell, wanted);
      ++line;
      continue;
    }
    import_notify({ImportOutcome::importing, "pattern", cell.value(), -1, target_track, -1});
    PatternIdx const imported =
        PatternIdx::from_value(import_pattern(tgt, src, target_track, source_track, cell.value()));
    place_pattern(tgt, target_track, line, imported, wanted);
    ++line;
  }
  drop_rest(src, source_track, target_track, src_line);
}

}  // namespace

int target_line(Project const* tgt, int track, int seq_target_offset) {
  int const line = target_line_wanted(tgt, track, seq_target_offset);
  if (line < kSequencerLines && !tgt->sequencer[line][track].is_empty()) return kNoRoom;
  return line;
}

int target_line_wanted(Project const* tgt, int track, int seq_target_offset) {
  int const o = seq_target_offset < 0 ? 0 : seq_target_offset;
  int c = kSequencerLines - 1;
  if (seq_target_offset <= kSequencerLines - 1) {
    bool found = false;
    for (; c >= o; --c) {
      int probe = c < 2 ? 0 : c - 2;
      if (!tgt->sequencer[probe][track].is_empty()) {
        found = true;
        break;
      }
    }
    if (!found) c = (o < kSequencerLines - 1 ? o : kSequencerLines - 1) - 1;
  }
  return c > o ? c : o;
}

int find_source_track(Project const* src, int idx) {
  for (int t = 0; t < kNumTracks; ++t)
    for (int line = 0; line < kSequencerLines; ++line) {
      PatternIdx cell = src->sequencer[line][t];
      if (cell.has_number() && cell.value() == idx) return t;
    }
  return -1;
}

int run_import(Project* tgt, Project const* src, ImportRequest const& r) {
  import_notify({ImportOutcome::started, "import", -1, -1, r.target_track, -1});
  std::printf("patterns=%d, tables=%d, programs=%d\n", src->allocated_patterns, src->allocated_tables,
              src->allocated_programs);

  import_prematch(src, tgt);

  if (r.source_track >= 0) {
    int const src_type = track_in_range(r.source_track) ? src->track_settings[r.source_track].type.index() : 0;
    int const tgt_type = track_in_range(r.target_track) ? tgt->track_settings[r.target_track].type.index() : 0;
    if (src_type != tgt_type) {
      std::fprintf(stderr, "error: track types do not match! (%d != %d)\n", src_type, tgt_type);
      return 1;
    }
  }

  if (r.whole_track) {
    if (r.source_track < 0) {
      std::fprintf(stderr, "error: need to specify source track to copy from\n");
      return 1;
    }
    import_whole_track(tgt, src, r);
  } else {
    import_list(tgt, src, r);
  }
  return 0;
}

}  // namespace kelvane
