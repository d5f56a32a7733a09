// A whole run: the input becomes a source and a target project in a
// scratch directory, and the run loads both, imports and saves the target,
// as the tool does. Then the source must be unchanged, a run that ended
// with status 1 must have left the target unchanged, and loading the saved
// target and saving it again must give the same bytes (or, where a corrupt
// index text was normalised, a third round must give the second's bytes).
//
// Input: a first line "W SRC TGT OFFSET" (whole track) or
// "L SRC TGT OFFSET NAME..." (a pattern list), then files, each starting
// with a line "@s/PATH" (source) or "@t/PATH" (target) and running to the
// next such line.
//
// The ends a run must come to on some inputs (a required assertion, an
// error with status 1) leave the run through the run end handler, as an
// exception; they are outcomes, not findings. A crash, a sanitizer report
// or a failed check below is a finding.

#include <map>
#include <sstream>

#include "fuzz_common.hpp"
#include "import/driver.hpp"
#include "import/import.hpp"
#include "kelvane/run_end.hpp"
#include "project/project.hpp"

using namespace kelvane;
namespace fs = std::filesystem;

namespace {

Project prj_src;
Project prj_tgt;
Project prj_again;

struct RunEnded {
  RunEndKind kind;
};

void throw_run_end(RunEnd const& end) { throw RunEnded{end.kind}; }

using Tree = std::map<std::string, std::string>;

Tree read_tree(fs::path const& root) {
  Tree tree;
  if (!fs::exists(root)) return tree;
  for (auto const& e : fs::recursive_directory_iterator(root)) {
    std::string rel = fs::relative(e.path(), root).string();
    if (e.is_directory()) {
      tree[rel + "/"] = "";
      continue;
    }
    std::string bytes;
    if (FILE* f = std::fopen(e.path().c_str(), "rb")) {
      char buf[65536];
      size_t n;
      while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) bytes.append(buf, n);
      std::fclose(f);
    }
    tree[rel] = bytes;
  }
  return tree;
}

[[noreturn]] void finding(char const* what, Tree const& before, Tree const& after) {
  std::fprintf(stderr, "finding: %s\n", what);
  for (auto const& [name, bytes] : before)
    if (!after.count(name) || after.at(name) != bytes) std::fprintf(stderr, "  changed or gone: %s\n", name.c_str());
  for (auto const& [name, bytes] : after)
    if (!before.count(name)) std::fprintf(stderr, "  new: %s\n", name.c_str());
  std::abort();
}

// A relative path of plain names: no "..", nothing absolute, a few levels.
bool safe_path(std::string const& p) {
  if (p.empty() || p.size() > 64 || p[0] == '/' || p.back() == '/') return false;
  for (char ch : p)
    if (!(std::isalnum(static_cast<unsigned char>(ch)) || ch == '_' || ch == '.' || ch == '/' || ch == '-'))
      return false;
  return p.find("..") == std::string::npos && p.find("//") == std::string::npos;
}

bool parse_request(std::string const& line, ImportRequest& r) {
  std::istringstream in(line);
  std::string mode;
  if (!(in >> mode >> r.source_track >> r.target_track >> r.seq_target_offset)) return false;
  if (mode != "W" && mode != "L") return false;
  r.whole_track = mode == "W";
  std::vector<std::string> names;
  for (std::string name; names.size() < 8 && in >> name;) names.push_back(name);
  r.patterns = [names] { return names; };
  return true;
}

// Runs `work` with the run end handler set; false if the run ended early.
template <class Work>
bool run_guarded(Work work, RunEndKind* how) {
  RunEndHandler const before = set_run_end_handler(throw_run_end);
  bool done = true;
  try {
    work();
  } catch (RunEnded const& e) {
    *how = e.kind;
    done = false;
  }
  set_run_end_handler(before);
  return done;
}

// Loads the project in `from` and saves it over a copy of it in `to`;
// false if that round ended early.
bool save_again(fs::path const& from, fs::path const& to, Tree* result) {
  fs::copy(from, to, fs::copy_options::recursive);
  RunEndKind how;
  bool const done = run_guarded(
      [&] {
        project_load(&prj_again, from.c_str());
        project_save(&prj_again, to.c_str());
      },
      &how);
  *result = read_tree(to);
  return done;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string const text(reinterpret_cast<char const*>(data), size);
  size_t const eol = text.find('\n');
  if (eol == std::string::npos) return 0;
  ImportRequest request;
  if (!parse_request(text.substr(0, eol), request)) return 0;

  fs::path const dir = kelvane_fuzz::scratch_file("run");
  fs::remove_all(dir);
  fs::path const src = dir / "src";
  fs::path const tgt = dir / "tgt";
  fs::create_directories(src);

  // The files of both trees.
  size_t pos = eol + 1;
  while (pos < text.size()) {
    size_t line_end = text.find('\n', pos);
    if (line_end == std::string::npos) line_end = text.size();
    std::string const head = text.substr(pos, line_end - pos);
    pos = line_end + 1;
    if (head.size() < 4 || head[0] != '@' || (head[1] != 's' && head[1] != 't') || head[2] != '/') continue;
    size_t end = pos;
    while (end < text.size() && !(text.compare(end, 3, "@s/") == 0 || text.compare(end, 3, "@t/") == 0)) {
      size_t const next = text.find('\n', end);
      end = next == std::string::npos ? text.size() : next + 1;
    }
    std::string const rel = head.substr(3);
    if (end > text.size()) end = text.size();
    if (pos > end) pos = end;
    if (safe_path(rel)) {
      fs::path const file = (head[1] == 's' ? src : tgt) / rel;
      std::error_code ec;
      fs::create_directories(file.parent_path(), ec);
      if (!ec) kelvane_fuzz::write_file(file, data + pos, end - pos);
    }
    pos = end;
  }

  Tree const src_before = read_tree(src);
  Tree const tgt_before = read_tree(tgt);

  import_reset();
  int status = 0;
  RunEndKind how = RunEndKind::error;
  bool const done = run_guarded(
      [&] {
        project_load(&prj_src, src.c_str());
        project_load(&prj_tgt, tgt.c_str());
        status = run_import(&prj_tgt, &prj_src, request);
        if (status == 0) project_save(&prj_tgt, tgt.c_str());
      },
      &how);

  Tree const src_after = read_tree(src);
  if (src_after != src_before) finding("the run changed the source", src_before, src_after);
  // Status 1 ends the run before the save; so does an early end before the
  // save began (an assertion inside the save may have written part of it).
  if ((done && status != 0) || (!done && how == RunEndKind::error)) {
    Tree const tgt_after = read_tree(tgt);
    if (tgt_after != tgt_before) finding("a run that ended with status 1 changed the target", tgt_before, tgt_after);
  }
  if (!done || status != 0) return 0;

  // The saved target, loaded and saved again over a copy of itself.
  Tree const saved = read_tree(tgt);
  Tree saved_again;
  if (!save_again(tgt, dir / "again", &saved_again)) {
    std::fprintf(stderr, "finding: the saved target could not be loaded and saved again\n");
    std::abort();
  }
  if (saved == saved_again) return 0;
  // An index text that folds to a number the two-character form cannot
  // hold (a corrupt text of many digits, or one that folds below zero) is
  // written as two characters that read back as another number: the saved
  // text is normalised once by the next round. A third round must then
  // give the bytes of the second.
  Tree saved_third;
  if (!save_again(dir / "again", dir / "third", &saved_third) || saved_third != saved_again)
    finding("a second save of the saved target gave other bytes, and a third did not settle", saved, saved_again);
  return 0;
}
