#include "companion/import_words.hpp"

#include <cstdio>
#include <cstring>

namespace kelvane {

namespace {

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

}  // namespace

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

std::string type_name(PatternType t) {
  char const* s = t.is_empty() ? nullptr : PatternType::name_of(t.index());
  return s ? s : "unknown";
}

void throw_run_end(RunEnd const& end) { throw RunEnded{end}; }

void follow_progress(Progress& p, ImportEvent const& e) {
  switch (e.outcome) {
    case ImportOutcome::started: p.started = true; break;
    case ImportOutcome::importing: p.pattern = e.from; break;
    case ImportOutcome::requested:
      p.requested_kind = e.label;
      p.requested = e.from;
      if (std::strcmp(e.label, "pattern") == 0 && p.pattern < 0) p.pattern = e.from;
      break;
    case ImportOutcome::no_room:
      if (std::strcmp(e.label, "FXPatchIdx") == 0) p.fx_full = true;
      break;
    default: break;
  }
}

void ImportStory::record(ImportEvent const& e) {
  follow_progress(progress, e);
  switch (e.outcome) {
    case ImportOutcome::started:
    case ImportOutcome::importing:
    case ImportOutcome::requested: break;
    default: events.push_back(e); break;
  }
}

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

void summarize_events(std::vector<ImportEvent> const& events, Project const* tgt, Lines& summary, Lines& problems) {
for (ImportEvent const& e : events) {
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
          tgt->patterns[e.to].type.stored != tgt->track_settings[e.track].type.stored) {
        problems.add("pattern " + zz(e.to) + " is a " + type_name(tgt->patterns[e.to].type) +
                     " pattern: the save empties its cell at line " + hex2(e.line) + " of track " + hex2(e.track) +
                     ", a " + type_name(tgt->track_settings[e.track].type) + " track");
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
}

namespace {
std::string wrapped(bool on, char const* code, std::string const& text) {
  return on ? std::string("\033[") + code + "m" + text + "\033[0m" : text;
}
}  // namespace

std::string Style::heading(std::string const& text) const { return wrapped(colour, "1", text); }
std::string Style::fresh(std::string const& text) const { return wrapped(colour, "32", text); }
std::string Style::problem(std::string const& text) const { return wrapped(colour, "31", text); }

void print_summary(char const* word, Lines const& summary, Lines const& problems, Style const& style) {
  std::printf("%s\n", style.heading(std::string("--- ") + word + ": nothing was written ---").c_str());
  for (std::string const& l : summary.lines) std::printf("%s\n", l.c_str());
  for (std::string const& l : problems.lines) std::printf("%s\n", style.problem("problem: " + l).c_str());
}

void print_verdict(bool saves) {
  std::printf(saves ? "the real run would save the target\n" : "the real run would not save the target\n");
}

bool pattern_type_writable(Pattern const& p) { return !p.type.is_empty() && PatternType::name_of(p.type.index()); }

bool patch_slot_in_use(Project* p, int track, int slot) {
  bool in_use = false;
  project_track_do_patch_mod(p, track, [&](auto& parameters, auto& modulation, auto& names) {
    in_use = names[slot].data[0] != 0 || !bytes_equal(parameters[slot], patch_record_fresh(parameters[slot])) ||
             !bytes_equal(modulation[slot], patch_record_fresh(modulation[slot]));
  });
  return in_use;
}

bool fx_patch_in_use(Project const* p, int i) {
  return p->fx_patch_names[i].data[0] != 0 || !bytes_equal(p->fx_parameters[i], patch_record_fresh(p->fx_parameters[i])) ||
         !p->fx_srr_callback[i].is_empty();
}

}  // namespace kelvane
