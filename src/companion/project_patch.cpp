// kelvane tracker patch importer: brings chosen patches of one track, and
// FX patches, from a source project into a target project, each with the
// programs its callbacks call and everything those name, through the
// import engine of project_manager; then saves the target whole.
//
//   project_patch --project_src SRC --project_tgt TGT
//                 [--source_track N --target_track M (--patch XX[,XX...] | --all_patches)]
//                 [--fx_patch XX[,XX...]] [--dry_run]
//
// All or nothing: a bad request, a slot that finds no room, and every end
// the engine would come to are one "error: " line and status 1, and the
// target stays as it was. A TGT that does not exist is made as a new
// project, whose track M takes the kind of track N.

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <cxxopts.hpp>

#include "companion/import_words.hpp"
#include "import/deep_stack.hpp"
#include "import/import.hpp"
#include "kelvane/run_end.hpp"
#include "project/project.hpp"

using namespace kelvane;
namespace fs = std::filesystem;

// The records of a run, in zero-initialised static storage.
Project prj_src;
Project prj_tgt;

namespace {

// ---------------------------------------------------------------------------
// Errors: each is one line "error: ...", status 1, nothing written.

struct Failure {
  std::string text;
};

[[noreturn]] void fail(std::string text) { throw Failure{std::move(text)}; }

// cxxopts tells a command line it cannot parse on std::cerr, then ends the
// process with status 1. Its line gets the form of every other error here.
class ErrorLines : public std::streambuf {
  bool at_line_start_ = true;

 protected:
  int overflow(int c) override {
    if (c == traits_type::eof()) return 0;
    if (at_line_start_) std::fputs("error: ", stderr);
    at_line_start_ = c == '\n';
    if (c == '\n') std::fputs(" (project_patch --help lists the options)", stderr);
    std::fputc(c, stderr);
    return c;
  }
};

// ---------------------------------------------------------------------------
// The request.

struct Request {
  std::string src_dir;
  std::string tgt_dir;
  int source_track = -1;  // -1: no tracks given
  int target_track = -1;
  std::vector<int> patches;
  bool all_patches = false;
  std::vector<int> fx_patches;
  bool dry_run = false;
};

// A slot index as patch indices print: two hex digits, 00 to 3f.
int parse_slot(std::string const& text, char const* kind) {
  auto digit = [](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  if (text.size() == 2 && digit(text[0]) >= 0 && digit(text[1]) >= 0) {
    int const slot = digit(text[0]) * 16 + digit(text[1]);
    if (slot < kPatchSlots) return slot;
  }
  fail(std::string(kind) + " index `" + text + "' names no slot: give two hex digits from 00 to 3f");
}

std::vector<int> parse_slots(cxxopts::ParseResult const& result, char const* option, char const* kind) {
  std::vector<int> slots;
  if (!result.count(option)) return slots;
  for (std::string const& text : result[option].as<std::vector<std::string>>()) slots.push_back(parse_slot(text, kind));
  return slots;
}

int parse_track(cxxopts::ParseResult const& result, char const* option) {
  int const track = result[option].as<int>();
  if (track < 0 || track >= kNumTracks)
    fail(std::string("--") + option + " " + std::to_string(track) + " names no track: give a track from 0 to 15");
  return track;
}

Request read_request(cxxopts::ParseResult const& result) {
  Request r;
  for (std::string const& stray : result.unmatched())
    fail("`" + stray + "' is no option of project_patch (project_patch --help lists the options)");
  if (!result.count("project_src")) fail("--project_src is missing: give the project to bring patches from");
  if (!result.count("project_tgt")) fail("--project_tgt is missing: give the project to bring patches into");
  r.src_dir = result["project_src"].as<std::string>();
  r.tgt_dir = result["project_tgt"].as<std::string>();

  bool const patch = result.count("patch") != 0;
  r.all_patches = result.count("all_patches") != 0;
  bool const fx_patch = result.count("fx_patch") != 0;
  if (!patch && !r.all_patches && !fx_patch) fail("nothing to bring: give --patch, --all_patches or --fx_patch");
  if (patch && r.all_patches) fail("--patch and --all_patches contradict each other: give one of them");

  bool const source_track = result.count("source_track") != 0;
  bool const target_track = result.count("target_track") != 0;
  if ((patch || r.all_patches) && !(source_track && target_track))
    fail(std::string(patch ? "--patch" : "--all_patches") +
         " needs --source_track and --target_track: the track the patches come from and the one they go to");
  if (source_track != target_track)
    fail("--source_track and --target_track go together: give both or neither");
  if (source_track) {
    r.source_track = parse_track(result, "source_track");
    r.target_track = parse_track(result, "target_track");
  }
  r.patches = parse_slots(result, "patch", "patch");
  r.fx_patches = parse_slots(result, "fx_patch", "FX patch");
  r.dry_run = result.count("dry_run") != 0;
  return r;
}

// ---------------------------------------------------------------------------
// What the engine does, as it happens.

// A slot or entry of the target that has no room: the engine would go on
// with a reference to something else. Here it ends the run.
struct NoRoom {
  ImportEvent event;
};

ImportStory story;

void record_event(ImportEvent const& e) {
  if (e.outcome == ImportOutcome::no_room) throw NoRoom{e};
  story.record(e);
}

// Whether the patch or FX patch just brought was found equal in the target:
// its last result line is then the second one of a reused slot.
bool last_was_reused() { return !story.events.empty() && story.events.back().outcome == ImportOutcome::repeated; }

// What the run is doing, for the error line: the load under way, or the
// patch or FX patch being brought ("patch 03 of source track 1").
struct Doing {
  std::string words = "loading";
  char const* label = "";  // "PatchIdx" or "FXPatchIdx" while one is brought
  int idx = -1;
};
Doing doing;

// "patch 05 of source track 1 finds no free slot ...", or, for something
// the one being brought brings along, "patch 03 of source track 1: chord
// memory entry 05, which it brings along, finds no free ...".
std::string no_room_words(ImportEvent const& e, Request const& r) {
  std::string const label = e.label;
  std::string thing;
  std::string where;
  if (label == "PatchIdx") {
    thing = "patch " + hex2(e.from);
    where = "finds no free slot on target track " + std::to_string(r.target_track) +
            " (slots 01 to 3f are all in use, and the import would make it patch 00): free a slot there or bring "
            "it to another track";
  } else if (label == "FXPatchIdx") {
    thing = "FX patch " + hex2(e.from);
    where = "finds no free FX patch slot in the target (all 64 are in use): free one there";
  } else {
    char const* what = label == "ChordMemIdx"        ? "chord memory entry"
                       : label == "ModulationMemIdx" ? "modulation memory entry"
                                                     : "program variable";
    thing = std::string(what) + " " + hex2(e.from);
    where = std::string("finds no free ") + what + " in the target (all 64 are in use): free one there";
  }
  if (label == doing.label && e.from == doing.idx) return doing.words + " " + where;
  return doing.words + ": " + thing + ", which it brings along, " + where;
}

// ---------------------------------------------------------------------------
// The run.

// A directory that does not exist, or an empty one, becomes a new project.
bool target_is_new(std::string const& dir) {
  std::error_code ec;
  fs::file_status const status = fs::status(dir, ec);
  if (!fs::exists(status)) return true;
  if (!fs::is_directory(status))
    fail("target project `" + dir +
         "' is not a directory: give a project directory, or a path where a new one is to be made");
  return fs::is_empty(dir, ec) && !ec;
}

void check_source(std::string const& dir) {
  std::error_code ec;
  fs::file_status const status = fs::status(dir, ec);
  if (!fs::exists(status)) fail("source project `" + dir + "' does not exist");
  if (!fs::is_directory(status)) fail("source project `" + dir + "' is not a directory");
}

std::string kind_name(Project const* p, int track) { return type_name(p->track_settings[track].type); }

void check_tracks(Request const& r) {
  PatternType const source_kind = prj_src.track_settings[r.source_track].type;
  if (type_name(source_kind) == "unknown")
    fail("source track " + std::to_string(r.source_track) +
         " has no kind the tracker knows: its patches cannot be read");
  if (prj_tgt.track_settings[r.target_track].type.stored != source_kind.stored)
    fail("source track " + std::to_string(r.source_track) + " (" + kind_name(&prj_src, r.source_track) +
         ") and target track " + std::to_string(r.target_track) + " (" + kind_name(&prj_tgt, r.target_track) +
         ") are of different kinds: a patch goes only to a track of its own kind");
}

std::string slots_in_use(auto in_use, int count) {
  std::string list;
  for (int i = 0; i < count; ++i)
    if (in_use(i)) list += (list.empty() ? "" : " ") + hex2(i);
  return list.empty() ? "none" : list;
}

void check_source_slots(Request& r) {
  if (r.source_track >= 0) {
    int const t = r.source_track;
    auto in_use = [t](int i) { return patch_slot_in_use(&prj_src, t, i); };
    if (r.all_patches) {
      for (int i = 0; i < kPatchSlots; ++i)
        if (in_use(i)) r.patches.push_back(i);
      if (r.patches.empty())
        fail("source track " + std::to_string(t) + " has no patch in use: there is nothing to bring");
    }
    for (int i : r.patches)
      if (!in_use(i))
        fail("patch " + hex2(i) + " of source track " + std::to_string(t) +
             " is free: there is nothing to bring (in use: " + slots_in_use(in_use, kPatchSlots) + ")");
  }
  auto fx_in_use = [](int i) { return fx_patch_in_use(&prj_src, i); };
  for (int i : r.fx_patches)
    if (!fx_in_use(i))
      fail("FX patch " + hex2(i) + " of the source is free: there is nothing to bring (in use: " +
           slots_in_use(fx_in_use, kNumFXPatches) + ")");
}

// The target as a new project: the initial state, with track M of the
// kind of track N.
void make_new_target(Request const& r) {
  project_initialize(&prj_tgt);
  if (r.target_track < 0) return;
  prj_tgt.track_settings[r.target_track].type = prj_src.track_settings[r.source_track].type;
  project_reset_patch_memory(&prj_tgt, r.target_track);
}

// Where each requested patch or FX patch went.
struct Brought {
  int from;
  int to;
  bool reused;
};

std::string plural(size_t n, char const* one, char const* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string brought_words(std::vector<Brought> const& list, std::string head) {
  size_t reused = 0;
  std::string where;
  for (Brought const& b : list) {
    reused += b.reused;
    where += (where.empty() ? "" : ", ") + hex2(b.from) + " -> " + hex2(b.to) + (b.reused ? " reused" : " new");
  }
  return head + ": " + std::to_string(list.size() - reused) + " new, " + std::to_string(reused) + " reused (" + where +
         ")";
}

// "brought 2 patches from track 1 to track 2: 1 new, 1 reused (03 -> 01
// new, 05 -> 00 reused); 1 FX patch: 1 new, 0 reused (00 -> 02 new)"
std::string summary_line(Request const& r, std::vector<Brought> const& patches, std::vector<Brought> const& fx) {
  std::vector<std::string> parts;
  if (!patches.empty())
    parts.push_back(brought_words(patches, plural(patches.size(), "patch", "patches") + " from track " +
                                               std::to_string(r.source_track) + " to track " +
                                               std::to_string(r.target_track)));
  if (!fx.empty()) parts.push_back(brought_words(fx, plural(fx.size(), "FX patch", "FX patches")));
  std::string line = r.dry_run ? "would bring " : "brought ";
  for (size_t i = 0; i < parts.size(); ++i) line += (i ? "; " : "") + parts[i];
  return line;
}

int run(Request& r) {
  check_source(r.src_dir);
  bool const new_target = target_is_new(r.tgt_dir);

  std::printf("loading source project %s\n", r.src_dir.c_str());
  doing.words = "loading source project " + r.src_dir;
  project_load(&prj_src, r.src_dir.c_str());
  if (new_target) {
    std::printf("making new target project %s\n", r.tgt_dir.c_str());
    make_new_target(r);
  } else {
    std::printf("loading target project %s\n", r.tgt_dir.c_str());
    doing.words = "loading target project " + r.tgt_dir;
    project_load(&prj_tgt, r.tgt_dir.c_str());
  }
  std::fflush(stdout);

  doing.words = "bringing";
  if (r.source_track >= 0) check_tracks(r);
  check_source_slots(r);

  import_prematch(&prj_src, &prj_tgt);
  std::vector<Brought> patches;
  for (int idx : r.patches) {
    std::printf("bringing patch %s of track %d to track %d\n", hex2(idx).c_str(), r.source_track, r.target_track);
    doing = {"patch " + hex2(idx) + " of source track " + std::to_string(r.source_track), "PatchIdx", idx};
    int const to = import_patch(&prj_tgt, &prj_src, r.target_track, r.source_track, idx);
    patches.push_back({idx, to, last_was_reused()});
  }
  std::vector<Brought> fx;
  for (int idx : r.fx_patches) {
    std::printf("bringing FX patch %s\n", hex2(idx).c_str());
    doing = {"FX patch " + hex2(idx), "FXPatchIdx", idx};
    int const to = import_fx_patch(&prj_tgt, &prj_src, r.target_track, r.source_track, idx);
    fx.push_back({idx, to, last_was_reused()});
  }

  // A pattern that a program operand brought along, or one the target
  // held, of no known kind would stop the save part way.
  doing = {"saving target project " + r.tgt_dir, "", -1};
  for (int i = 0; i < prj_tgt.allocated_patterns && i < kNumPatterns; ++i)
    if (!pattern_type_writable(prj_tgt.patterns[i]))
      fail("pattern " + zz(i) + " of the target has no kind the tracker knows, and the save would stop part way "
           "through the target");

  std::string const summary = summary_line(r, patches, fx);
  if (r.dry_run) {
    Lines lines;
    Lines problems;
    summarize_events(story.events, &prj_tgt, lines, problems);
    lines.add(summary);
    print_summary("dry run", lines, problems);
    print_verdict(true);
  } else {
    project_save(&prj_tgt, r.tgt_dir.c_str());
    std::printf("%s\n", summary.c_str());
  }
  return 0;
}

// The run, with every way it can end part way turned into one error line.
int run_guarded(Request& r) {
  set_import_observer(record_event);
  set_run_end_handler(throw_run_end, RunEndMessage::to_handler);
  std::string error;
  try {
    return run(r);
  } catch (Failure const& f) {
    error = f.text;
  } catch (NoRoom const& n) {
    error = no_room_words(n.event, r) + "; nothing is saved";
  } catch (RunEnded const& e) {
    int const track_src = r.source_track;
    error = doing.words + ": " +
            explain_end(e.end, story.progress, &prj_src, track_src, r.target_track, &prj_tgt) +
            "; nothing is saved";
  }
  std::fflush(stdout);
  std::fprintf(stderr, "error: %s\n", error.c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  ensure_deep_stack(argv);
  cxxopts::Options options(argv[0],
                           "kelvane tracker patch importer\n\n"
                           "  project_patch --project_src SRC --project_tgt TGT\n"
                           "      [--source_track N --target_track M (--patch XX[,XX...] | --all_patches)]\n"
                           "      [--fx_patch XX[,XX...]] [--dry_run]\n\n"
                           "  brings patches of track N of SRC into track M of TGT, a track of the\n"
                           "  same kind, and FX patches, each with the programs its callbacks call\n"
                           "  and everything those name; an equal slot of TGT is reused, else a\n"
                           "  free one is taken. A TGT that does not exist is made as a new project.\n"
                           "  When anything fails, nothing is written and the status is 1.\n");
  // clang-format off
  options.add_options()
    ("project_src", "source project", cxxopts::value<std::string>())
    ("project_tgt", "target project, made if it does not exist", cxxopts::value<std::string>())
    ("source_track", "source track, 0 to 15", cxxopts::value<int>())
    ("target_track", "target track, 0 to 15, of the same kind", cxxopts::value<int>())
    ("patch", "patch slots to bring, 00 to 3f", cxxopts::value<std::vector<std::string>>())
    ("all_patches", "every patch slot of the source track in use")
    ("fx_patch", "FX patch slots to bring, 00 to 3f", cxxopts::value<std::vector<std::string>>())
    ("dry_run", "write nothing; tell what the run would do")
    ("h,help", "Print usage");
  // clang-format on
  ErrorLines error_lines;
  std::streambuf* const cerr_before = std::cerr.rdbuf(&error_lines);
  cxxopts::ParseResult const result = options.parse(argc, argv);
  std::cerr.rdbuf(cerr_before);

  if (result.count("help")) {
    std::printf("%s\n", options.help().c_str());
    return 0;
  }
  Request request;
  try {
    request = read_request(result);
  } catch (Failure const& f) {
    std::fprintf(stderr, "error: %s\n", f.text.c_str());
    return 1;
  }
  return run_guarded(request);
}
