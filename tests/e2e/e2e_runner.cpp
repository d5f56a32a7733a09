// Runs the built project_manager on one fixture case and compares all it
// printed, its exit status and every file it wrote, byte for byte.
//
// A case directory holds:
//   args              the arguments, one per line (argv[0] is the binary's
//                     file name: "project_manager", "project_inspect",
//                     "project_patch")
//   setup             optional: lines "mkdir P", "file P" (an empty file) or
//                     "rm P", applied to the work directory before the run
//   src/, tgt/        optional: the source and target project trees
//   work/             optional: more files, copied into the work directory
//   expected/stdout   standard output (absent: nothing)
//   expected/stderr   standard error (absent: nothing)
//   expected/stderr.regex
//                     instead of expected/stderr: an ECMAScript pattern the
//                     whole of standard error must match (for assertion
//                     messages, which name a line of the source)
//   expected/status   exit status as a number, or "abort" for SIGABRT
//   expected/tree     optional: every path below tgt after the run, one per
//                     line, sorted, directories with a trailing slash. Each
//                     file must equal expected/tgt/PATH; a file that has no
//                     copy there must equal the case's tgt/PATH as it was
//                     before the run, or else tests/e2e/initial/PATH, the
//                     files of the initial project. Without expected/tree the
//                     target must be unchanged.
// The source tree must be unchanged after every run.
//
// usage: e2e_runner BINARY CASE_DIR WORK_DIR [--record]
// --record writes what the run produced into the case's expected/ (to be
// read and checked by hand before it is committed).

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

int failures = 0;

std::string read_file(fs::path const& p, bool* ok = nullptr) {
  std::ifstream in(p, std::ios::binary);
  if (ok) *ok = bool(in);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void write_file(fs::path const& p, std::string const& data) {
  fs::create_directories(p.parent_path());
  std::ofstream out(p, std::ios::binary);
  out << data;
}

std::vector<std::string> split_lines(std::string const& text) {
  std::vector<std::string> lines;
  std::string line;
  std::istringstream in(text);
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

// A readable form of a byte string for the failure report.
std::string visible(std::string const& s) {
  std::string out;
  for (unsigned char c : s) {
    if (c == '\n') {
      out += "\\n\n";
    } else if (c < 0x20 || c >= 0x7f || c == '\\') {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\x%02x", c);
      out += buf;
    } else {
      out += char(c);
    }
  }
  return out;
}

void fail(std::string const& what, std::string const& expected, std::string const& actual) {
  ++failures;
  std::cout << "MISMATCH: " << what << "\n--- expected\n"
            << visible(expected) << "\n--- actual\n"
            << visible(actual) << "\n---\n";
}

constexpr char kWholeFile[] = "(not a directory)";

// Every path below root, sorted, directories with a trailing slash.
std::vector<std::string> tree_listing(fs::path const& root) {
  std::vector<std::string> paths;
  if (!fs::exists(root)) return paths;
  // A plain file where a project directory would be: the file itself.
  if (!fs::is_directory(root)) return {kWholeFile};
  for (auto const& entry : fs::recursive_directory_iterator(root)) {
    std::string rel = fs::relative(entry.path(), root).generic_string();
    if (entry.is_directory()) rel += "/";
    paths.push_back(rel);
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

std::string join_lines(std::vector<std::string> const& lines) {
  std::string s;
  for (auto const& l : lines) s += l + "\n";
  return s;
}

// Compares the tree at `actual` with the listing and the files of the first
// of `expected_roots` that holds each file.
void compare_tree(std::string const& label, std::vector<fs::path> const& expected_roots,
                  std::vector<std::string> const& expected_listing, fs::path const& actual_root) {
  std::vector<std::string> const actual_listing = tree_listing(actual_root);
  if (actual_listing != expected_listing)
    fail(label + " tree", join_lines(expected_listing), join_lines(actual_listing));
  for (auto const& rel : expected_listing) {
    if (rel.back() == '/') continue;
    fs::path const a = rel == kWholeFile ? actual_root : actual_root / rel;
    if (!fs::is_regular_file(a)) continue;
    bool ok = false;
    std::string want;
    for (auto const& root : expected_roots) {
      fs::path const e = rel == kWholeFile ? root : root / rel;
      if (!fs::is_regular_file(e)) continue;
      want = read_file(e, &ok);
      break;
    }
    if (!ok) {
      fail(label + " expected file missing: " + rel, "", "");
      continue;
    }
    std::string const got = read_file(a);
    if (got != want) fail(label + " file " + rel, want, got);
  }
}

void copy_tree(fs::path const& from, fs::path const& to) {
  if (fs::exists(from)) fs::copy(from, to, fs::copy_options::recursive);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::cerr << "usage: e2e_runner BINARY CASE_DIR WORK_DIR [--record]\n";
    return 2;
  }
  fs::path const binary = fs::absolute(argv[1]);
  fs::path const case_dir = argv[2];
  fs::path const work = argv[3];
  bool const record = argc > 4 && std::strcmp(argv[4], "--record") == 0;

  fs::remove_all(work);
  fs::create_directories(work);
  copy_tree(case_dir / "src", work / "src");
  copy_tree(case_dir / "tgt", work / "tgt");
  if (fs::exists(case_dir / "work"))
    fs::copy(case_dir / "work", work, fs::copy_options::recursive | fs::copy_options::overwrite_existing);

  bool have_setup = false;
  for (auto const& line : split_lines(read_file(case_dir / "setup", &have_setup))) {
    if (line.empty()) continue;
    std::string const verb = line.substr(0, line.find(' '));
    fs::path const p = work / line.substr(line.find(' ') + 1);
    if (verb == "mkdir") {
      fs::create_directories(p);
    } else if (verb == "file") {
      write_file(p, "");
    } else if (verb == "rm") {
      fs::remove_all(p);
    } else {
      std::cerr << "bad setup line: " << line << "\n";
      return 2;
    }
  }

  // The source as it stands before the run; it must not change.
  std::vector<std::string> const src_listing = tree_listing(work / "src");
  fs::path const src_before = work.string() + ".src_before";
  fs::path const tgt_before = work.string() + ".tgt_before";
  fs::remove_all(src_before);
  fs::remove_all(tgt_before);
  copy_tree(work / "src", src_before);
  copy_tree(work / "tgt", tgt_before);
  std::vector<std::string> const tgt_listing = tree_listing(work / "tgt");

  std::vector<std::string> args = split_lines(read_file(case_dir / "args"));
  std::vector<char*> cargv;
  std::string const argv0 = fs::path(binary).filename().string();
  cargv.push_back(const_cast<char*>(argv0.c_str()));
  for (auto& a : args) cargv.push_back(a.data());
  cargv.push_back(nullptr);

  fs::path const out_path = work.string() + ".stdout";
  fs::path const err_path = work.string() + ".stderr";
  pid_t const pid = fork();
  if (pid == 0) {
    if (chdir(work.c_str()) != 0) _exit(127);
    if (!freopen(out_path.c_str(), "w", stdout)) _exit(127);
    if (!freopen(err_path.c_str(), "w", stderr)) _exit(127);
    execv(binary.c_str(), cargv.data());
    _exit(127);
  }
  int wstatus = 0;
  while (waitpid(pid, &wstatus, 0) < 0 && errno == EINTR) {
  }
  std::string status;
  if (WIFEXITED(wstatus))
    status = std::to_string(WEXITSTATUS(wstatus));
  else if (WIFSIGNALED(wstatus) && WTERMSIG(wstatus) == SIGABRT)
    status = "abort";
  else
    status = "signal " + std::to_string(WIFSIGNALED(wstatus) ? WTERMSIG(wstatus) : -1);

  std::string const out = read_file(out_path);
  std::string const err = read_file(err_path);

  if (record) {
    fs::path const e = case_dir / "expected";
    fs::remove_all(e);
    fs::create_directories(e);
    if (!out.empty()) write_file(e / "stdout", out);
    if (!err.empty()) write_file(e / "stderr", err);
    write_file(e / "status", status + "\n");
    std::vector<std::string> const listing = tree_listing(work / "tgt");
    if (listing != tgt_listing || [&] {
          for (auto const& rel : listing)
            if (rel.back() != '/' && read_file(work / "tgt" / rel) != read_file(tgt_before / rel))
              return true;
          return false;
        }()) {
      write_file(e / "tree", join_lines(listing));
      fs::path const initial = case_dir.parent_path().parent_path() / "initial";
      for (auto const& rel : listing) {
        if (rel.back() == '/') continue;
        std::string const got = read_file(work / "tgt" / rel);
        fs::path const base = fs::is_regular_file(tgt_before / rel) ? tgt_before / rel : initial / rel;
        bool have_base = false;
        std::string const base_text = read_file(base, &have_base);
        if (!have_base || base_text != got) write_file(e / "tgt" / rel, got);
      }
    }
    std::cout << "recorded " << case_dir << "\n";
    return 0;
  }

  fs::path const e = case_dir / "expected";
  fs::path const initial = case_dir.parent_path().parent_path() / "initial";
  std::string const want_status = read_file(e / "status");
  if (want_status != status + "\n") fail("exit status", want_status, status + "\n");
  std::string const want_out = read_file(e / "stdout");
  if (want_out != out) fail("stdout", want_out, out);
  bool have_regex = false;
  std::string const err_regex = read_file(e / "stderr.regex", &have_regex);
  if (have_regex) {
    if (!std::regex_match(err, std::regex(err_regex))) fail("stderr (pattern)", err_regex, err);
  } else {
    std::string const want_err = read_file(e / "stderr");
    if (want_err != err) fail("stderr", want_err, err);
  }

  compare_tree("source", {src_before}, src_listing, work / "src");

  bool have_tree = false;
  std::string const tree_text = read_file(e / "tree", &have_tree);
  if (have_tree)
    compare_tree("target", {e / "tgt", tgt_before, initial}, split_lines(tree_text), work / "tgt");
  else
    compare_tree("target (unchanged)", {tgt_before}, tgt_listing, work / "tgt");

  if (failures) {
    std::cout << case_dir.filename().string() << ": " << failures << " mismatch(es)\n";
    return 1;
  }
  return 0;
}
