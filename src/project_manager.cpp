// kelvane tracker project manager: copies patterns of one track of a source
// project, with everything they refer to, into a track of a target project.
//
// This unit holds main, the three project records and the import engine.

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <cxxopts.hpp>

#include "project/project.hpp"

using namespace kelvane;

// The three records of a run, in zero-initialised static storage: far too
// large for a stack, and never on the heap.
Project prj_src;
Project prj_tgt;
Project prj_default;

// The standard assertion, after what the run printed so far has reached
// its stream: the progress lines tell which request failed.
// It stays on in every build type.
extern "C" [[noreturn]] void __assert_fail(char const* expr, char const* file, unsigned line,
                                           char const* function) noexcept;
#define PM_ASSERT(expr) \
  ((expr) ? void(0) : (std::fflush(stdout), __assert_fail(#expr, "src/project_manager.cpp", __LINE__, __PRETTY_FUNCTION__)))

namespace {

// ---------------------------------------------------------------------------
// Import state: what has been brought over, for the whole run.

// Source index to target index, for indices 0 .. N-1. Zero-initialised
// static storage means "nothing mapped".
template <int N>
struct IndexMap {
  int target_plus_one[N];

  bool contains(int source) const { return source >= 0 && source < N && target_plus_one[source] != 0; }
  int at(int source) const { return target_plus_one[source] - 1; }
  void set(int source, int target) { target_plus_one[source] = target + 1; }
};

// The two-character text of a pattern index, as every print-out shows it.
struct IdxText {
  char text[3];
};
IdxText idx_text(PatternIdx idx) {
  IdxText t;
  format_string_zz_num(t.text, sizeof t.text, idx);
  return t;
}

// Prints the result line of an import: "PatternIdx 05 -> 09".
void print_result(char const* label, PatternIdx from, PatternIdx to) {
  std::printf("%s %s -> %s\n", label, idx_text(from).text, idx_text(to).text);
}

IndexMap<kNumChordMemory> chord_map;
IndexMap<kNumProgramVariables> program_variable_map;

// ---------------------------------------------------------------------------
// Import engine.

IndexMap<kNumPatterns> pattern_map;
// Source patterns whose import has begun; a second request while the first
// is still under way comes through a reference cycle.
bool patterns_in_import_phase[kNumPatterns];

// Takes the next target pattern slot. The count has no upper bound in the
// tracker's format; a target that is full ends the run here rather than
// writing past the slots.
int take_pattern_slot(Project* tgt) {
  PM_ASSERT(tgt->allocated_patterns < kNumPatterns);
  return tgt->allocated_patterns++;
}

// Copies source pattern `pattern_idx` into the target, or finds an equal
// pattern there, and returns the target index. Requests for a pattern that
// was imported before answer from `pattern_map`.
//
// The references a pattern holds (tables, programs, patches) are carried
// over as they stand for now.
int import_pattern(Project* tgt, Project const* src, int track_tgt, int track_src, int pattern_idx) {
  (void)track_tgt;
  (void)track_src;
  std::printf("requesting pattern %s\n", idx_text(PatternIdx::from_value(pattern_idx)).text);
  PM_ASSERT(pattern_idx < src->allocated_patterns);
  // Empty and magic names come here as negative numbers; they name nothing.
  PM_ASSERT(pattern_idx >= 0);
  if (pattern_map.contains(pattern_idx)) return pattern_map.at(pattern_idx);

  int reserved = -1;
  if (patterns_in_import_phase[pattern_idx]) {
    reserved = take_pattern_slot(tgt);
    pattern_map.set(pattern_idx, reserved);
    print_result("PatternIdx", PatternIdx::from_value(pattern_idx), PatternIdx::from_value(reserved));
  } else {
    patterns_in_import_phase[pattern_idx] = true;
  }

  Pattern local;
  bytes_copy(local, src->patterns[pattern_idx]);

  if (reserved >= 0) bytes_copy(tgt->patterns[reserved], local);
  if (pattern_map.contains(pattern_idx)) return pattern_map.at(pattern_idx);

  int target = -1;
  for (int i = 0; i < tgt->allocated_patterns && target < 0; ++i)
    if (bytes_equal(local, tgt->patterns[i])) target = i;
  if (target < 0) {
    target = take_pattern_slot(tgt);
    bytes_copy(tgt->patterns[target], local);
  }
  pattern_map.set(pattern_idx, target);
  print_result("PatternIdx", PatternIdx::from_value(pattern_idx), PatternIdx::from_value(target));
  return target;
}

// ---------------------------------------------------------------------------
// Driver.

// Seeds a map with the entries the target already holds: each source
// entry that is in use maps to the first target entry with equal bytes.
template <class Entry, int N, class InUse>
void prematch(IndexMap<N>& map, char const* label, Entry const (&src)[N], Entry const (&tgt)[N],
              InUse in_use) {
  for (int i = 0; i < N; ++i) {
    if (!in_use(i)) continue;
    for (int j = 0; j < N; ++j) {
      if (!bytes_equal(src[i], tgt[j])) continue;
      map.set(i, j);
      std::printf("%s %02x -> %02x\n", label, unsigned(i), unsigned(j));
      break;
    }
  }
}

void prematch_memory() {
  prematch(chord_map, "ChordMemIdx", prj_src.chord_memory, prj_tgt.chord_memory,
           [](int i) { return !project_chord_is_initial(&prj_src, i); });
  prematch(program_variable_map, "VariableIdx", prj_src.program_variables, prj_tgt.program_variables,
           [](int i) { return !project_program_variable_is_initial(&prj_src, i); });
}

constexpr int kNoRoom = -1;

// The line of the target column where new material goes: two lines below
// the last used line the scan sees, but not above the offset. kNoRoom if
// that cell is taken. An offset beyond the sequencer yields a line beyond
// it, which callers treat as the end of the column.
int target_line(Project const* tgt, int track, int seq_target_offset) {
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
  int const line = c > o ? c : o;
  if (line < kSequencerLines && !tgt->sequencer[line][track].is_empty()) return kNoRoom;
  return line;
}

// Finds the lowest track whose sequencer column holds pattern `idx`.
int find_source_track(Project const* src, int idx) {
  for (int t = 0; t < kNumTracks; ++t)
    for (int line = 0; line < kSequencerLines; ++line) {
      PatternIdx cell = src->sequencer[line][t];
      if (cell.has_number() && cell.value() == idx) return t;
    }
  return -1;
}

bool track_in_range(int track) { return track >= 0 && track < kNumTracks; }

// Writes an imported pattern into the target's sequencer and reports it.
void place_pattern(Project* tgt, int track, int line, PatternIdx idx) {
  std::printf("sequencer(%02x, %02x) = %s\n", unsigned(track), unsigned(line), idx_text(idx).text);
  if (track_in_range(track) && line >= 0 && line < kSequencerLines) tgt->sequencer[line][track] = idx;
}

void import_list(cxxopts::ParseResult const& result, int source_track, int target_track,
                 int seq_target_offset) {
  std::printf("importing patterns\n");
  std::vector<std::string> const names = result["pattern"].as<std::vector<std::string>>();
  for (std::string const& name : names) {
    std::printf("importing pattern %s\n", name.c_str());
    // A name is an index from 0 to 1295; anything else is the empty value.
    PatternIdx parsed = PatternIdx::parse_string(name.c_str());
    if (parsed.has_number() && parsed.value() < 0) parsed = PatternIdx::empty_cell();
    int const idx = parsed.value();
    if (!(idx < prj_src.allocated_patterns)) {
      std::fprintf(stderr, "error: pattern index `%s' out of range! (%d>=%d)\n", name.c_str(), idx,
                   prj_src.allocated_patterns);
      continue;
    }
    int track = source_track;
    if (source_track < 0) {
      track = find_source_track(&prj_src, idx);
      std::printf("found pattern on track %x\n", unsigned(track < 0 ? 0 : track));
    }
    PatternIdx const imported = PatternIdx::from_value(import_pattern(&prj_tgt, &prj_src, target_track, track, idx));
    if (!track_in_range(target_track)) continue;
    int const line = target_line(&prj_tgt, target_track, seq_target_offset);
    if (line == kNoRoom || line >= kSequencerLines) continue;
    place_pattern(&prj_tgt, target_track, line, imported);
  }
}

void import_whole_track(int source_track, int target_track, int seq_target_offset) {
  int line = track_in_range(target_track) ? target_line(&prj_tgt, target_track, seq_target_offset)
                                          : kSequencerLines;
  if (!track_in_range(source_track)) return;
  int first = 0;
  while (first < kSequencerLines && prj_src.sequencer[first][source_track].is_empty()) ++first;
  if (first == kSequencerLines) return;
  if (line > kSequencerLines - 1) return;
  // A taken cell at the computed line goes unnoticed: the first pattern is
  // reported at line ffffffff and not stored, the rest follow from line 0.
  bool previous_empty = false;
  for (int src_line = first; src_line < kSequencerLines && line <= kSequencerLines - 1; ++src_line) {
    PatternIdx const cell = prj_src.sequencer[src_line][source_track];
    if (cell.is_empty()) {
      if (!previous_empty) ++line;
      previous_empty = true;
      continue;
    }
    previous_empty = false;
    PatternIdx const imported =
        PatternIdx::from_value(import_pattern(&prj_tgt, &prj_src, target_track, source_track, cell.value()));
    place_pattern(&prj_tgt, target_track, line, imported);
    ++line;
  }
}

}  // namespace

int main(int argc, char** argv) {
  cxxopts::Options options(argv[0], "kelvane tracker project manager");
  // clang-format off
  options.add_options()
    ("source_track", "source track", cxxopts::value<int>()->default_value("-1"))
    ("target_track", "target track", cxxopts::value<int>())
    ("seq_target_offset", "sequencer line offset in target project",
       cxxopts::value<int>()->default_value("-1"))
    ("project_src", "source project", cxxopts::value<std::string>())
    ("project_tgt", "target project", cxxopts::value<std::string>())
    ("p,pattern", "patterns to import", cxxopts::value<std::vector<std::string>>())
    ("whole_track", "import the entire track")
    ("h,help", "Print usage");
  // clang-format on

  cxxopts::ParseResult const result = options.parse(argc, argv);

  if (result.count("help")) {
    std::fprintf(stderr, "%s\n", options.help().c_str());
    return 1;
  }

  int const seq_target_offset = result.count("seq_target_offset") ? result["seq_target_offset"].as<int>() : 0;
  int const source_track = result.count("source_track") ? result["source_track"].as<int>() : -1;
  int const target_track = result["target_track"].as<int>();
  std::printf("importing to track %d\n", target_track);

  std::string const project_src = result["project_src"].as<std::string>();
  std::string const project_tgt = result["project_tgt"].as<std::string>();

  std::printf("loading source project %s\n", project_src.c_str());
  project_load(&prj_src, project_src.c_str());
  project_initialize(&prj_default);
  std::printf("loading target project %s\n", project_tgt.c_str());
  project_load(&prj_tgt, project_tgt.c_str());

  std::printf("patterns=%d, tables=%d, programs=%d\n", prj_src.allocated_patterns,
              prj_src.allocated_tables, prj_src.allocated_programs);

  prematch_memory();

  if (source_track >= 0) {
    int const src_type = track_in_range(source_track) ? prj_src.track_settings[source_track].type.index() : 0;
    int const tgt_type = track_in_range(target_track) ? prj_tgt.track_settings[target_track].type.index() : 0;
    if (src_type != tgt_type) {
      std::fprintf(stderr, "error: track types do not match! (%d != %d)\n", src_type, tgt_type);
      return 1;
    }
  }

  if (result.count("whole_track")) {
    if (source_track < 0) {
      std::fprintf(stderr, "error: need to specify source track to copy from\n");
      return 1;
    }
    import_whole_track(source_track, target_track, seq_target_offset);
  } else {
    import_list(result, source_track, target_track, seq_target_offset);
  }

  project_save(&prj_tgt, project_tgt.c_str());
  return 0;
}
