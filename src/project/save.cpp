// project_save: writes the whole record to a project directory in a fixed
// order. Nothing is deleted; some failures end the save, others do not.

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "project/project.hpp"

namespace kelvane {

namespace fs = std::filesystem;

namespace {

// Creates a directory inside the project; one already there is no error.
bool make_directory(fs::path const& dir, char const* failure) {
  std::error_code ec;
  fs::create_directory(dir, ec);
  if (ec) {
    std::fputs(failure, stderr);
    return false;
  }
  return true;
}

// Empties every cell that names no allocated pattern of its track's type.
void purge_sequencer(Project* project) {
  for (int t = 0; t < kNumTracks; ++t) project_check_sequencer_column(project, t);
}

}  // namespace

void project_save(Project* project, char const* path) {
  fs::path const dir(path);
  std::error_code ec;
  fs::file_status const st = fs::status(dir, ec);
  if (!fs::exists(st)) {
    fs::create_directories(dir, ec);
    if (ec) {
      std::fputs("error: could not create project directory!", stderr);
      return;
    }
  } else if (!fs::is_directory(st)) {
    std::fputs("error: project path exists and is not a directory!", stderr);
    return;
  }
  if (!make_directory(dir / "patterns", "error: could not create patterns directory!")) return;
  if (!make_directory(dir / "tables", "error: could not create tables directory!")) return;
  if (!make_directory(dir / "programs", "error: could not create programs directory!")) return;

  purge_sequencer(project);

  project_save_sequencer(project, dir / "sequencer.txt");
}

}  // namespace kelvane
