// project_load: fills a record from a project directory in a fixed order.
// Nothing is ever refused: a missing file leaves the initial state behind.

#include <cstring>
#include <filesystem>

#include "project/project.hpp"

namespace kelvane {

namespace fs = std::filesystem;

void project_load(Project* project, char const* path) {
  project_initialize(project);
  if (std::strcmp(path, "projects/<new project>") == 0) return;

  fs::path const dir(path);
  std::string const name = dir.filename().string();
  std::strncpy(project->name, name.c_str(), sizeof project->name - 1);
  project->name[sizeof project->name - 1] = 0;

  project_load_sequencer(project, dir / "sequencer.txt");

  for (int t = 0; t < kNumTracks; ++t) project_check_sequencer_column(project, t);
}

}  // namespace kelvane
