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

#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <cxxopts.hpp>

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

// ---------------------------------------------------------------------------
// Texts.

std::string zz(int idx) {
  char buf[8] = {};
  format_string_zz_num(buf, sizeof buf, PatternIdx::from_value(idx));
  return buf;
}

std::string hex2(int v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%02x", unsigned(v));
  return buf;
}

template <int N>
std::string name_of(KVArray<char, N> const& name) {
  return std::string(name.data, strnlen(name.data, N));
}

std::string type_name(PatternType t) {
  char const* s = t.is_empty() ? nullptr : PatternType::name_of(t.index());
  return s ? s : "unknown";
}

// The words for an engine label, and how its indices are written.
struct KindWords {
  char const* label;
  char const* words;
  bool zz_digits;
};
constexpr KindWords kKinds[] = {
    {"PatternIdx", "pattern", true},
    {"TableIdx", "table", true},
    {"ProgramIdx", "program", true},
    {"ChordMemIdx", "chord memory entry", false},
    {"ModulationMemIdx", "modulation memory entry", false},
    {"VariableIdx", "program variable", false},
    {"PatchIdx", "patch", false},
    {"FXPatchIdx", "FX patch", false},
    {"pattern", "pattern", true},
    {"table", "table", true},
    {"program", "program", true},
};

KindWords const& kind_of(char const* label) {
  for (KindWords const& k : kKinds)
    if (std::strcmp(k.label, label) == 0) return k;
  return kKinds[0];
}

std::string index_text(KindWords const& k, int idx) { return k.zz_digits ? zz(idx) : hex2(idx); }

// Lines printed once each, in the order they first come.
struct Lines {
  std::vector<std::string> lines;
  std::set<std::string> seen;
  void add(std::string const& line) {
    if (seen.insert(line).second) lines.push_back(line);
  }
};

// ---------------------------------------------------------------------------
// Runs that end part way.

struct RunEnded {
  RunEnd end;
};

[[noreturn]] void throw_run_end(RunEnd const& end) { throw RunEnded{end}; }

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

// What the engine was doing: the pattern the driver brings over and the
// last request.
struct Progress {
  bool started = false;
  int pattern = -1;
  char const* requested_kind = nullptr;
  int requested = -1;
  bool fx_full = false;
};

// Why a run ended, in plain words.
std::string explain_end(RunEnd const& end, Progress const& p, Project const* src, int track_src, int track_tgt,
                        Project const* tgt) {
  std::string const expr = end.expr ? end.expr : "";
  std::string const what = p.requested_kind ? std::string(p.requested_kind) + " " + zz(p.requested) : "";
  if (end.kind == RunEndKind::error) {
    if (p.fx_full) return "the target has no free FX patch slot for an FX patch the material uses";
    struct {
      char const* kind;
      int allocated;
    } const counters[] = {{"pattern", tgt->allocated_patterns},
                          {"table", tgt->allocated_tables},
                          {"program", tgt->allocated_programs}};
    for (auto const& c : counters)
      if (c.allocated >= kNumPatterns)
        return std::string("the target has no free ") + c.kind + " slot left (all " + std::to_string(kNumPatterns) +
               " are in use)";
    if (p.requested_kind && (std::strcmp(p.requested_kind, "table") == 0 || std::strcmp(p.requested_kind, "program") == 0))
      return "tables and programs refer to each other in a cycle that cannot end: " + what +
             " is asked for again while its own import is still open";
    return "an error";
  }
  auto counter = [&](char const* kind, int count) {
    return what + " is asked for, but the source's " + kind + " counter is " + std::to_string(count) +
           ": a reference at or above the counter names no " + kind;
  };
  if (expr.find("allocated_tables") != std::string::npos) return counter("table", src->allocated_tables);
  if (expr.find("allocated_programs") != std::string::npos) return counter("program", src->allocated_programs);
  if (expr.find("allocated_patterns") != std::string::npos) return counter("pattern", src->allocated_patterns);
  if (expr.find(">= 0") != std::string::npos)
    return std::string("a corrupt reference (a negative index) to a ") + (p.requested_kind ? p.requested_kind : "slot");
  if (expr.find("track_settings[track_src].type") != std::string::npos) {
    std::string s = "pattern " + zz(p.pattern) + " comes from source track " + std::to_string(track_src);
    if (track_src >= 0 && track_src < kNumTracks) s += ", a " + type_name(src->track_settings[track_src].type) + " track,";
    s += " and the target track " + std::to_string(track_tgt);
    if (track_tgt >= 0 && track_tgt < kNumTracks) s += " is a " + type_name(tgt->track_settings[track_tgt].type) + " track";
    else s += " differs";
    return s + ": its patches cannot go there";
  }
  if (expr.find("patch_idx[0]") != std::string::npos)
    return "step 0 of pattern " + zz(p.pattern) + " names a patch where the default patch is to go";
  if (expr.find("strlen(s)") != std::string::npos)
    return "a file holds an op code, instruction or operand text of 255 bytes or more";
  if (expr.find("not implemented") != std::string::npos) return "a record holds a kind the tracker does not have";
  return "a check of the run fails";
}

std::string end_words(RunEnd const& end) {
  if (end.kind == RunEndKind::error) return "ends with status 1";
  return std::string("aborts in the assertion `") + end.expr + "'";
}

// ---------------------------------------------------------------------------
// Preview.

struct Preview {
  Progress progress;
  std::vector<ImportEvent> events;
};
Preview preview;

void record_event(ImportEvent const& e) {
  switch (e.outcome) {
    case ImportOutcome::started: preview.progress.started = true; break;
    case ImportOutcome::importing: preview.progress.pattern = e.from; break;
    case ImportOutcome::requested:
      preview.progress.requested_kind = e.label;
      preview.progress.requested = e.from;
      if (std::strcmp(e.label, "pattern") == 0 && preview.progress.pattern < 0) preview.progress.pattern = e.from;
      break;
    default:
      if (e.outcome == ImportOutcome::no_room && std::strcmp(e.label, "FXPatchIdx") == 0) preview.progress.fx_full = true;
      preview.events.push_back(e);
      break;
  }
}

// A pattern of the target that the save cannot write: its kind is none of
// the nine.
bool pattern_type_writable(Pattern const& p) { return !p.type.is_empty() && PatternType::name_of(p.type.index()); }

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
  for (ImportEvent const& e : preview.events) {
    KindWords const& k = kind_of(e.label);
    std::string const track = e.track >= 0 ? " of track " + hex2(e.track) : "";
    switch (e.outcome) {
      case ImportOutcome::created:
        summary.add(std::string("new ") + k.words + " " + index_text(k, e.to) + track + " (source " +
                    index_text(k, e.from) + ")");
        break;
      case ImportOutcome::reused:
        // The same source again, after it was brought over: nothing new.
        if (summary.seen.count(std::string("new ") + k.words + " " + index_text(k, e.to) + track + " (source " +
                               index_text(k, e.from) + ")"))
          break;
        summary.add(std::string("reused ") + k.words + " " + index_text(k, e.to) + track + " (source " +
                    index_text(k, e.from) + ")");
        break;
      case ImportOutcome::no_room:
        if (std::strcmp(e.label, "PatchIdx") == 0)
          problems.add("track " + hex2(e.track) + " of the target has no free patch slot: source patch " +
                       hex2(e.from) + " is not brought over, and the reference names patch 00, the track's default patch");
        else if (std::strcmp(e.label, "FXPatchIdx") == 0)
          problems.add("the target has no free FX patch slot for source FX patch " + hex2(e.from));
        else
          problems.add(std::string("the target has no free ") + k.words + ": source " + k.words + " " +
                       hex2(e.from) + " is not brought over, and the reference keeps " + hex2(e.to) +
                       ", which in the target names its own " + k.words + " " + hex2(e.to));
        break;
      case ImportOutcome::placed:
        // The save keeps only cells whose pattern has the track's kind.
        if (e.to >= 0 && e.to < kNumPatterns &&
            prj_tgt.patterns[e.to].type.stored != prj_tgt.track_settings[e.track].type.stored) {
          problems.add("pattern " + zz(e.to) + " is a " + type_name(prj_tgt.patterns[e.to].type) +
                       " pattern: the save empties its cell at line " + hex2(e.line) + " of track " + hex2(e.track) +
                       ", a " + type_name(prj_tgt.track_settings[e.track].type) + " track");
          break;
        }
        summary.add("sequencer cell line " + hex2(e.line) + " of track " + hex2(e.track) + " = " +
                    (e.to >= 0 ? zz(e.to) : std::string("magic")));
        break;
      case ImportOutcome::dropped:
        if (e.to < 0)
          problems.add("source pattern " + zz(e.from) + " is not brought over: the sequencer column of track " +
                       hex2(e.track) + " ends before its turn");
        else if (e.from < 0)
          problems.add("pattern " + zz(e.to) + " is imported, but the cell of track " + hex2(e.track) +
                       " where it would go is taken: it is not placed");
        else
          problems.add("pattern " + zz(e.to) + " (source " + zz(e.from) + ") is imported, but the sequencer column of track " +
                       hex2(e.track) + " has no free cell for it: it is not placed");
        break;
      default: break;
    }
  }

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

  std::printf("--- preview: nothing was written ---\n");
  for (std::string const& l : summary.lines) std::printf("%s\n", l.c_str());
  for (std::string const& l : problems.lines) std::printf("problem: %s\n", l.c_str());
  std::printf(saves ? "the real run would save the target\n" : "the real run would not save the target\n");
  return saves ? 0 : 1;
}

// ---------------------------------------------------------------------------
// Report of one project.

// A patch slot is free while it is unnamed and holds the records of a new
// slot, as the import finds free slots; slot 0 is the track's default
// patch and never free.
std::vector<bool> patch_slots_in_use(Project* p, int track) {
  std::vector<bool> in_use(kPatchSlots, false);
  project_track_do_patch_mod(p, track, [&](auto& parameters, auto& modulation, auto& names) {
    for (int i = 0; i < kPatchSlots; ++i)
      in_use[i] = i == 0 || names[i].data[0] != 0 || !bytes_equal(parameters[i], patch_record_fresh(parameters[i])) ||
                  !bytes_equal(modulation[i], patch_record_fresh(modulation[i]));
  });
  return in_use;
}

bool fx_patch_in_use(Project const* p, int i) {
  return p->fx_patch_names[i].data[0] != 0 || !bytes_equal(p->fx_parameters[i], patch_record_fresh(p->fx_parameters[i])) ||
         !p->fx_srr_callback[i].is_empty();
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

// Sequencer cells that the file holds and the load emptied.
void find_purged_cells(Project const* p, char const* dir, Lines& problems) {
  {
    Silence quiet;
    bytes_clear(prj_scratch.sequencer);
    project_load_sequencer(&prj_scratch, std::filesystem::path(dir) / "sequencer.txt");
  }
  for (int l = 0; l < kSequencerLines; ++l)
    for (int t = 0; t < kNumTracks; ++t) {
      PatternIdx const raw = prj_scratch.sequencer[l][t];
      if (!raw.has_number() || p->sequencer[l][t].has_number()) continue;
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
void record_trial(ImportEvent const& e) {
  if (e.outcome == ImportOutcome::no_room && std::strcmp(e.label, "FXPatchIdx") == 0) trial_progress.fx_full = true;
  if (e.outcome == ImportOutcome::requested) {
    trial_progress.requested_kind = e.label;
    trial_progress.requested = e.from;
  }
}

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
  project_load(&prj_src, dir);
  Project* p = &prj_src;
  std::fflush(stderr);
  std::printf("project %s\n", dir);
  std::printf("patterns: %d, tables: %d, programs: %d (of %d each)\n", p->allocated_patterns, p->allocated_tables,
              p->allocated_programs, kNumPatterns);
  report_tracks(p);
  print_in_use("FX patches", kNumFXPatches, [&](int i) { return fx_patch_in_use(p, i); },
               [&](int i) { return hex2(i) + " \"" + name_of(p->fx_patch_names[i]) + "\""; });
  print_in_use("chord memory", kNumChordMemory, [&](int i) { return !project_chord_is_initial(p, i); },
               [&](int i) { return hex2(i); });
  print_in_use("modulation memory", kNumModulationMemory, [&](int i) { return !project_modulation_is_initial(p, i); },
               [&](int i) { return hex2(i); });
  print_in_use("program variables", kNumProgramVariables,
               [&](int i) { return !project_program_variable_is_initial(p, i); },
               [&](int i) { return hex2(i) + " \"" + name_of(p->program_variables[i].name) + "\""; });

  Lines problems;
  find_purged_cells(p, dir, problems);
  find_import_ends(p, problems);
  if (problems.lines.empty()) {
    std::printf("problems an import would trip over: none\n");
  } else {
    std::printf("problems an import would trip over:\n");
    for (std::string const& l : problems.lines) std::printf("  %s\n", l.c_str());
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  ensure_deep_stack(argv);
  if (argc == 2 && argv[1][0] != '-') return run_report(argv[1]);

  cxxopts::Options options(argv[0],
                           "kelvane tracker project inspector\n\n"
                           "  project_inspect DIR\n"
                           "      reports on the project in DIR: tracks and the patterns their\n"
                           "      sequencer columns hold, slots in use and free, and the problems\n"
                           "      an import of its patterns would trip over\n"
                           "  project_inspect OPTIONS\n"
                           "      with the options of project_manager: carries out that import on\n"
                           "      the loaded projects, writes nothing, prints what project_manager\n"
                           "      would print and then what it would do; status 0 when the real\n"
                           "      run would save the target, 1 otherwise\n");
  add_run_options(options);
  cxxopts::ParseResult const result = options.parse(argc, argv);
  if (result.count("help")) {
    std::printf("%s\n", options.help().c_str());
    return 0;
  }
  return run_preview(result);
}
