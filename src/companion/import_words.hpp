#pragma once
// What the companion programs share: the words in which they tell what an
// import did or would do, why a run ended part way, and which slots of a
// project are in use. The tool itself prints none of these.

#include <set>
#include <string>
#include <vector>

#include "import/import.hpp"
#include "kelvane/run_end.hpp"
#include "project/project.hpp"

namespace kelvane {

// Index texts: "0a" for patterns, tables and programs (base 36), "%02x"
// for the rest.
std::string zz(int idx);
std::string hex2(int v);
// A PatternType as its name; "unknown" for none of the nine.
std::string type_name(PatternType t);

template <int N>
std::string name_of(KVArray<char, N> const& name) {
  return std::string(name.data, strnlen(name.data, N));
}

// Lines printed once each, in the order they first come.
struct Lines {
  std::vector<std::string> lines;
  std::set<std::string> seen;
  void add(std::string const& line) {
    if (seen.insert(line).second) lines.push_back(line);
  }
};

// A run end, thrown by throw_run_end (the run end handler of a program
// that carries on after it).
struct RunEnded {
  RunEnd end;
};
[[noreturn]] void throw_run_end(RunEnd const& end);

// What the engine was doing: the pattern the driver brings over and the
// last request.
struct Progress {
  bool started = false;
  int pattern = -1;
  char const* requested_kind = nullptr;
  int requested = -1;
  bool fx_full = false;
};

// Keeps `p` up to date with an event of the engine.
void follow_progress(Progress& p, ImportEvent const& e);

// What an import did: its progress, and its results in the order they came
// (every event but the start, the driver's patterns and the requests).
struct ImportStory {
  Progress progress;
  std::vector<ImportEvent> events;
  void record(ImportEvent const& e);
};

// Why a run ended, in plain words; the tracks are those of the import.
std::string explain_end(RunEnd const& end, Progress const& p, Project const* src, int track_src, int track_tgt,
                        Project const* tgt);
// "ends with status 1", or "aborts in the assertion `...'".
std::string end_words(RunEnd const& end);

// The summary of what an import did, line by line from its events ("new
// table 02 (source 00)", "reused patch 00 of track 01 (source 00)",
// "sequencer cell line 04 of track 00 = 02"), and the problems it met.
void summarize_events(std::vector<ImportEvent> const& events, Project const* tgt, Lines& summary, Lines& problems);

// How text reaches a terminal: with the escape codes of colour, or plain.
struct Style {
  bool colour = false;
  std::string heading(std::string const& text) const;  // bold
  std::string fresh(std::string const& text) const;    // green: what a run adds
  std::string problem(std::string const& text) const;  // red
};

// Prints what follows a run which wrote nothing: a head line ("--- preview:
// nothing was written ---" for word "preview"), the summary, and each
// problem.
void print_summary(char const* word, Lines const& summary, Lines const& problems, Style const& style = {});
// The last line: whether the real run saves.
void print_verdict(bool saves);

// A pattern of the target that the save cannot write: its kind is none of
// the nine.
bool pattern_type_writable(Pattern const& p);

// A patch slot is in use while it is named or holds records other than
// those of a new slot of the track's kind; likewise an FX patch slot, or
// while it has a callback.
bool patch_slot_in_use(Project* p, int track, int slot);
bool fx_patch_in_use(Project const* p, int slot);

}  // namespace kelvane
