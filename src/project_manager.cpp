// kelvane tracker project manager: copies patterns of one track of a source
// project, with everything they refer to, into a track of a target project.
//
// This unit holds main and the three project records; the import engine is
// in src/import.

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <cxxopts.hpp>

#include "import/import.hpp"
#include "project/project.hpp"

using namespace kelvane;

// The three records of a run, in zero-initialised static storage: far too
// large for a stack, and never on the heap.
Project prj_src;
Project prj_tgt;
Project prj_default;

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

// ---------------------------------------------------------------------------
// Driver.

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
    if (!parsed.has_number()) {
      std::fprintf(stderr, "error: pattern index `%s' names no pattern! (00 to zz)\n", name.c_str());
      continue;
    }
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
    // The magic cell names no pattern: it travels as it is.
    if (cell.is_magic()) {
      place_pattern(&prj_tgt, target_track, line, cell);
      ++line;
      continue;
    }
    PatternIdx const imported =
        PatternIdx::from_value(import_pattern(&prj_tgt, &prj_src, target_track, source_track, cell.value()));
    place_pattern(&prj_tgt, target_track, line, imported);
    ++line;
  }
}

// An import follows references depth first, and a chain of tables,
// programs and patterns may be as long as the project has slots. The stack
// of the main thread is sized when the process starts, so a process whose
// limit is smaller than such a chain could need starts itself again once,
// with the limit raised as far as the system allows.
constexpr rlim_t kImportStack = rlim_t(512) << 20;

void ensure_deep_stack(char** argv) {
  static char const kMarker[] = "KELVANE_PROJECT_MANAGER_STACK";
  if (std::getenv(kMarker)) return;
  rlimit limit;
  if (getrlimit(RLIMIT_STACK, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur >= kImportStack)
    return;
  rlim_t const wanted = limit.rlim_max == RLIM_INFINITY || limit.rlim_max > kImportStack ? kImportStack : limit.rlim_max;
  if (wanted <= limit.rlim_cur) return;
  limit.rlim_cur = wanted;
  if (setrlimit(RLIMIT_STACK, &limit) != 0) return;
  // The binary's own path, so that the process keeps its name.
  char self[4096];
  ssize_t const n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) return;
  self[n] = 0;
  setenv(kMarker, "1", 1);
  execv(self, argv);
  // Could not start again: go on with the stack there is.
}

}  // namespace

int main(int argc, char** argv) {
  ensure_deep_stack(argv);
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

  import_prematch(&prj_src, &prj_tgt);

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
