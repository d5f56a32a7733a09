// kelvane tracker project inspector: looks inside a project, and shows what
// an import would do before anything is written.
//
//   project_inspect DIR         a report of one project and of the problems
//                               an import of its patterns would trip over
//   project_inspect OPTIONS...  the options of project_manager: the same
//                               run, carried out by the same driver and
//                               engine on the loaded records, without the
//                               save; then a summary of what it would do
//
// The ends that a real run comes to part way (an assertion, an error with
// status 1) leave the run here through the run end handler, and are told in
// plain words instead.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <cxxopts.hpp>

#include "companion/import_words.hpp"
#include "companion/song_grid.hpp"
#include "import/command_line.hpp"
#include "import/deep_stack.hpp"
#include "import/driver.hpp"
#include "import/import.hpp"
#include "kelvane/run_end.hpp"
#include "project/project.hpp"

using namespace kelvane;

// The three records of a run, as the tool has them, and one more: the trial
// target of the report and the sequencer file as it stands.
Project prj_src;
Project prj_tgt;
Project prj_default;
Project prj_scratch;

namespace {

// Output of trial runs goes nowhere.
struct Silence {
  int out, err;
  Silence() {
    std::fflush(stdout);
    std::fflush(stderr);
    out = dup(1);
    err = dup(2);
    int const null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    dup2(null, 2);
    close(null);
  }
  ~Silence() {
    std::fflush(stdout);
    std::fflush(stderr);
    dup2(out, 1);
    dup2(err, 2);
    close(out);
    close(err);
  }
  Silence(Silence const&) = delete;
  Silence& operator=(Silence const&) = delete;
};

// ---------------------------------------------------------------------------
// Preview.

// How the output reaches the terminal.
Style style;

// Views of the sequencer: the target as the loads left it, and as it would
// be after the run; the report's song.
SongView song_before;
SongView song_after;
SongView song;

ImportStory preview;
void record_event(ImportEvent const& e) {
  preview.record(e);
  if (e.outcome == ImportOutcome::started) song_view_set(song_before, prj_tgt.sequencer);
}

// The lines of the target that the run writes or finds taken, with two
// lines around them, as they are now and as they would be.
void draw_before_after() {
  song_view_set(song_after, prj_tgt.sequencer);
  int first = kSequencerLines;
  int last = -1;
  for (ImportEvent const& e : preview.events) {
    bool const placed = e.outcome == ImportOutcome::placed;
    if (!(placed || e.outcome == ImportOutcome::dropped) || e.line < 0 || e.line >= kSequencerLines ||
        e.track < 0 || e.track >= kNumTracks)
      continue;
    CellMark mark = placed ? CellMark::fresh : CellMark::taken;
    // The save keeps only cells whose pattern has the track's kind.
    if (placed && e.to >= 0 && e.to < kNumPatterns &&
        prj_tgt.patterns[e.to].type.stored != prj_tgt.track_settings[e.track].type.stored)
      mark = CellMark::save_empties;
    song_after.marks[e.line][e.track] = mark;
    first = std::min(first, e.line);
    last = std::max(last, e.line);
  }
  if (last < 0) return;
  first = std::max(first - 2, 0);
  last = std::min(last + 2, kSequencerLines - 1);
  std::string const heading = "the target's sequencer now, lines " + hex2(first) + " to " + hex2(last) + ":";
  std::printf("%s\n", style.heading(heading).c_str());
  draw_song(&prj_tgt, song_before, first, last, style, &song_after);
  std::printf("%s\n", style.heading("after the run:").c_str());
  draw_song(&prj_tgt, song_after, first, last, style, &song_before);
  draw_marks_legend(song_after, first, last, style);
}

int run_preview(cxxopts::ParseResult const& result) {
  set_import_observer(record_event);
  set_run_end_handler(throw_run_end);
  int status = 0;
  bool ended = false;
  RunEnd end{};
  try {
    status = run_command_line(result, {&prj_src, &prj_tgt, &prj_default}, false);
  } catch (RunEnded const& e) {
    ended = true;
    end = e.end;
  }
  set_run_end_handler(nullptr);
  set_import_observer(nullptr);
  std::fflush(stdout);
  std::fflush(stderr);

  Lines summary;
  Lines problems;
  summarize_events(preview.events, &prj_tgt, summary, problems);

  bool saves = !ended && status == 0;
  if (ended) {
    int const track_tgt = result.count("target_track") ? result["target_track"].as<int>() : -1;
    int track_src = result.count("source_track") ? result["source_track"].as<int>() : -1;
    if (track_src < 0 && preview.progress.pattern >= 0) track_src = find_source_track(&prj_src, preview.progress.pattern);
    std::string where = preview.progress.started
                            ? (preview.progress.pattern >= 0 ? " while importing pattern " + zz(preview.progress.pattern) : "")
                            : " while loading the projects";
    problems.add("the real run " + end_words(end) + where + " and saves nothing: " +
                 explain_end(end, preview.progress, &prj_src, track_src, track_tgt, &prj_tgt));
  } else if (status != 0) {
    problems.add("the real run ends with status 1 and saves nothing, as the error above says");
  } else {
    for (int i = 0; i < prj_tgt.allocated_patterns && i < kNumPatterns; ++i) {
      if (pattern_type_writable(prj_tgt.patterns[i])) continue;
      problems.add("pattern " + zz(i) + " of the target has no known kind: the real run's save aborts in an assertion, "
                   "after it has written part of the target");
      saves = false;
    }
  }

  print_summary("preview", summary, problems, style);
  if (saves) draw_before_after();
  print_verdict(saves);
  return saves ? 0 : 1;
}

// ---------------------------------------------------------------------------
// Report of one project.

// Slot 0 is the track's default patch: always in use.
std::vector<bool> patch_slots_in_use(Project* p, int track) {
  std::vector<bool> in_use(kPatchSlots, false);
  for (int i = 0; i < kPatchSlots; ++i) in_use[i] = i == 0 || patch_slot_in_use(p, track, i);
  return in_use;
}

void print_in_use(char const* what, int total, auto in_use, auto describe) {
  std::string list;
  int used = 0;
  for (int i = 0; i < total; ++i) {
    if (!in_use(i)) continue;
    ++used;
    list += " " + describe(i);
  }
  std::printf("%s in use:%s; free: %d\n", what, used ? list.c_str() : " none", total - used);
}

void report_tracks(Project* p) {
  for (int t = 0; t < kNumTracks; ++t) {
    TrackSettings const& ts = p->track_settings[t];
    std::printf("track %02x: %s \"%s\"\n", unsigned(t), type_name(ts.type).c_str(), name_of(ts.name).c_str());
    // Each pattern of the column once, in the order of its first line.
    std::vector<int> order;
    std::map<int, std::vector<int>> lines;
    for (int l = 0; l < kSequencerLines; ++l) {
      PatternIdx const cell = p->sequencer[l][t];
      if (cell.is_magic()) std::printf("  magic cell at line %02x\n", unsigned(l));
      if (!cell.has_number()) continue;
      if (!lines.count(cell.value())) order.push_back(cell.value());
      lines[cell.value()].push_back(l);
    }
    for (int idx : order) {
      std::vector<int> const& at = lines[idx];
      std::string const name = idx >= 0 && idx < kNumPatterns ? name_of(p->patterns[idx].settings.name) : "";
      std::printf("  pattern %s \"%s\": first line %02x, last line %02x (%zu cell%s)\n", zz(idx).c_str(), name.c_str(),
                  unsigned(at.front()), unsigned(at.back()), at.size(), at.size() == 1 ? "" : "s");
    }
    std::vector<bool> const in_use = patch_slots_in_use(p, t);
    print_in_use("  patches", kPatchSlots, [&](int i) { return bool(in_use[i]); },
                 [&](int i) { return hex2(i) + " \"" + name_of(p->patch_memory[t].names[i]) + "\""; });
  }
}

// Sequencer cells that the file holds and the load emptied: told as
// problems, and shown in the song with their mark.
void find_purged_cells(Project const* p, char const* dir, Lines& problems, SongView& song) {
  {
    Silence quiet;
    bytes_clear(prj_scratch.sequencer);
    project_load_sequencer(&prj_scratch, std::filesystem::path(dir) / "sequencer.txt");
  }
  for (int l = 0; l < kSequencerLines; ++l)
    for (int t = 0; t < kNumTracks; ++t) {
      PatternIdx const raw = prj_scratch.sequencer[l][t];
      if (!raw.has_number() || p->sequencer[l][t].has_number()) continue;
      song.cells[l][t] = raw;
      song.marks[l][t] = CellMark::load_empties;
      int const idx = raw.value();
      std::string const cell = "sequencer line " + hex2(l) + " of track " + hex2(t) + ": ";
      if (idx < 0)
        problems.add(cell + "a corrupt pattern index; the load empties the cell");
      else if (idx >= p->allocated_patterns)
        problems.add(cell + "pattern " + zz(idx) + " is at or above the pattern counter (" +
                     std::to_string(p->allocated_patterns) + "); the load empties the cell");
      else
        problems.add(cell + "pattern " + zz(idx) + " is a " + type_name(p->patterns[idx].type) +
                     " pattern placed on a " + type_name(p->track_settings[t].type) +
                     " track; the load empties the cell");
    }
}

// Imports every pattern of the project, each from the track that holds it,
// into a trial target with the same tracks, and tells where an import
// would end.
Progress trial_progress;
void record_trial(ImportEvent const& e) { follow_progress(trial_progress, e); }

void find_import_ends(Project const* p, Lines& problems) {
  project_initialize(&prj_scratch);
  for (int t = 0; t < kNumTracks; ++t) {
    prj_scratch.track_settings[t].type = p->track_settings[t].type;
    project_reset_patch_memory(&prj_scratch, t);
  }
  std::map<std::string, std::vector<int>> ends;
  std::vector<std::string> order;
  set_import_observer(record_trial);
  set_run_end_handler(throw_run_end);
  for (int i = 0; i < p->allocated_patterns && i < kNumPatterns; ++i) {
    int const track = find_source_track(p, i);
    import_reset();
    trial_progress = Progress{true, i, nullptr, -1, false};
    try {
      Silence quiet;
      import_pattern(&prj_scratch, p, track, track, i);
    } catch (RunEnded const& e) {
      std::string const why = end_words(e.end) + ": " + explain_end(e.end, trial_progress, p, track, track, &prj_scratch);
      if (!ends.count(why)) order.push_back(why);
      ends[why].push_back(i);
    }
  }
  set_run_end_handler(nullptr);
  set_import_observer(nullptr);
  import_reset();
  for (std::string const& why : order) {
    std::string patterns;
    for (int i : ends[why]) patterns += " " + zz(i);
    problems.add("importing pattern" + std::string(ends[why].size() == 1 ? "" : "s") + patterns + " " + why);
  }
}

int run_report(char const* dir) {
  // A load that would end the process ends the report with one line.
  set_run_end_handler(throw_run_end, RunEndMessage::to_handler);
  try {
    project_load(&prj_src, dir);
  } catch (RunEnded const& e) {
    set_run_end_handler(nullptr);
    std::fflush(stdout);
    std::fprintf(stderr, "error: loading %s: %s; there is nothing to report\n", dir,
                 explain_end(e.end, Progress{}, &prj_src, -1, -1, &prj_src).c_str());
    return 1;
  }
  set_run_end_handler(nullptr);
  Project* p = &prj_src;
  std::fflush(stderr);
  std::printf("project %s\n", dir);
  std::printf("patterns: %d, tables: %d, programs: %d (of %d each)\n", p->allocated_patterns, p->allocated_tables,
              p->allocated_programs, kNumPatterns);
  report_tracks(p);

  Lines problems;
  song_view_set(song, p->sequencer);
  find_purged_cells(p, dir, problems, song);
  int first = 0;
  int last = 0;
  if (song_view_range(song, first, last)) {
    std::string const lines = first == last ? "line " + hex2(first) : "lines " + hex2(first) + " to " + hex2(last);
    std::printf("%s\n", style.heading("song: " + lines + " in use, of 00 to " + hex2(kSequencerLines - 1)).c_str());
    draw_song(p, song, first, last, style);
    draw_marks_legend(song, first, last, style);
  } else {
    std::printf("%s\n", style.heading("song: no line in use").c_str());
  }

  print_in_use("FX patches", kNumFXPatches, [&](int i) { return fx_patch_in_use(p, i); },
               [&](int i) { return hex2(i) + " \"" + name_of(p->fx_patch_names[i]) + "\""; });
  print_in_use("chord memory", kNumChordMemory, [&](int i) { return !project_chord_is_initial(p, i); },
               [&](int i) { return hex2(i); });
  print_in_use("modulation memory", kNumModulationMemory, [&](int i) { return !project_modulation_is_initial(p, i); },
               [&](int i) { return hex2(i); });
  print_in_use("program variables", kNumProgramVariables,
               [&](int i) { return !project_program_variable_is_initial(p, i); },
               [&](int i) { return hex2(i) + " \"" + name_of(p->program_variables[i].name) + "\""; });

  find_import_ends(p, problems);
  if (problems.lines.empty()) {
    std::printf("%s\n", style.heading("problems an import would trip over: none").c_str());
  } else {
    std::printf("%s\n", style.heading("problems an import would trip over:").c_str());
    for (std::string const& l : problems.lines) std::printf("  %s\n", style.problem(l).c_str());
  }
  return 0;
}


// The files and folders of a project; a directory with none of them holds
// no project.
bool holds_a_project(std::filesystem::path const& dir) {
  static constexpr char const* kNames[] = {"project_settings.txt", "sequencer.txt", "chord_memory.txt",
                                           "modulation_memory.txt", "patterns", "tables", "programs",
                                           "program_variables", "fx_patches"};
  std::error_code ec;
  for (char const* name : kNames)
    if (std::filesystem::exists(dir / name, ec)) return true;
  for (int t = 0; t < kNumTracks; ++t) {
    char name[16];
    std::snprintf(name, sizeof name, "track_%02d", t);
    if (std::filesystem::exists(dir / name, ec)) return true;
  }
  return false;
}

// Why DIR cannot be reported on; empty if it can.
std::string no_project(std::string const& dir) {
  std::error_code ec;
  std::filesystem::file_status const status = std::filesystem::status(dir, ec);
  if (!std::filesystem::exists(status)) return "`" + dir + "' does not exist: give the directory of a tracker project";
  if (!std::filesystem::is_directory(status))
    return "`" + dir + "' is not a directory: give the directory of a tracker project";
  if (!holds_a_project(dir))
    return "`" + dir + "' holds none of a tracker project's files (project_settings.txt, sequencer.txt, patterns/, "
           "track_00/, ...): give the directory of a tracker project";
  return "";
}

// The options of a run, any of which asks for the preview.
bool has_run_options(cxxopts::ParseResult const& result) {
  for (char const* name :
       {"source_track", "target_track", "seq_target_offset", "project_src", "project_tgt", "pattern", "whole_track"})
    if (result.count(name)) return true;
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  ensure_deep_stack(argv);
  cxxopts::Options options(argv[0],
                           "kelvane tracker project inspector\n\n"
                           "  project_inspect [--color WHEN] DIR\n"
                           "      reports on the project in DIR: tracks and the patterns their\n"
                           "      sequencer columns hold, the song as the sequencer lays it out,\n"
                           "      slots in use and free, and the problems an import of its\n"
                           "      patterns would trip over\n"
                           "  project_inspect [--color WHEN] OPTIONS\n"
                           "      with the options of project_manager: carries out that import on\n"
                           "      the loaded projects, writes nothing, prints what project_manager\n"
                           "      would print and then what it would do, with the target's lines\n"
                           "      it touches before and after; status 0 when the real run would\n"
                           "      save the target, 1 otherwise\n");
  add_run_options(options);
  // clang-format off
  options.add_options()
    ("color", "colour on a terminal: auto, always or never (NO_COLOR set: auto is never)",
       cxxopts::value<std::string>()->default_value("auto"))
    ("dir", "project directory", cxxopts::value<std::vector<std::string>>());
  // clang-format on
  options.parse_positional({"dir"});
  options.positional_help("DIR");
  cxxopts::ParseResult const result = options.parse(argc, argv);
  if (result.count("help")) {
    std::printf("%s\n", options.help().c_str());
    return 0;
  }

  std::string const when = result["color"].as<std::string>();
  if (when != "auto" && when != "always" && when != "never") {
    std::fprintf(stderr, "error: --color takes auto, always or never, not `%s'\n", when.c_str());
    return 1;
  }
  char const* const no_color = std::getenv("NO_COLOR");
  style.colour = when == "always" || (when == "auto" && isatty(1) && !(no_color && *no_color));

  std::vector<std::string> const dirs =
      result.count("dir") ? result["dir"].as<std::vector<std::string>>() : std::vector<std::string>{};
  bool const run = has_run_options(result);
  std::string hint;
  if (dirs.size() == 1 && !run) {
    std::string const why = no_project(dirs[0]);
    if (why.empty()) return run_report(dirs[0].c_str());
    std::fprintf(stderr, "error: %s\n", why.c_str());
    return 1;
  }
  if (dirs.empty() && run) return run_preview(result);
  if (dirs.empty())
    hint = "give a project directory to report on, or the options of a run to preview";
  else if (run)
    hint = "`" + dirs[0] + "' with the options of a run: give a project directory or the options of a run, not both";
  else if (dirs.size() > 2)
    hint = "project_inspect reports on one project at a time (" + std::to_string(dirs.size()) +
           " directories are given): give one";
  else
    hint = "project_inspect reports on one project at a time (`" + dirs[1] + "' is one too many); to preview an "
           "import from `" + dirs[0] + "' into `" + dirs[1] + "', give the options of a run: --project_src " + dirs[0] +
           " --project_tgt " + dirs[1] + " --target_track N ...";
  std::fprintf(stderr, "error: %s\n%s\n", hint.c_str(), options.help().c_str());
  return 1;
}
