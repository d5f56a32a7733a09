// project_save: writes the whole record to a project directory in a fixed
// order. Nothing is deleted. Some failures end the save, others are
// reported and passed over; what was written stays.

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "project/files.hpp"
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

bool make_project_directory(fs::path const& dir) {
  std::error_code ec;
  fs::file_status const st = fs::status(dir, ec);
  if (!fs::exists(st)) {
    fs::create_directories(dir, ec);
    if (ec) {
      std::fputs("error: could not create project directory!", stderr);
      return false;
    }
  } else if (!fs::is_directory(st)) {
    std::fputs("error: project path exists and is not a directory!", stderr);
    return false;
  }
  return true;
}

// Writes the four settings files and the patch files of a track; false if
// its directory cannot be made.
bool save_track(Project* project, fs::path const& dir, int t) {
  fs::path const track_dir = track_directory(dir, t);
  if (!make_directory(track_dir, "error: could not create track directory!")) return false;
  write_settings_file(project->track_settings[t], track_dir / "track_settings.txt");
  write_settings_file(project->track_callbacks[t], track_dir / "track_callbacks.txt");
  write_settings_file(project->mix_settings[t], track_dir / "mix_settings.txt");
  write_settings_file(project->mix_modulation_mappings[t], track_dir / "mix_modulation_mappings.txt");
  project_save_track_patches(project, t, track_dir);
  return true;
}

// Writes the program variables that differ from the initial entry.
void save_program_variables(Project* project, fs::path const& dir) {
  for (int i = 0; i < kNumProgramVariables; ++i) {
    if (project_program_variable_is_initial(project, i)) continue;
    char name[64];
    std::snprintf(name, sizeof name, "program_variable_%02x.txt", i);
    // The variables stand one behind the other: a full name runs on into
    // the next one.
    write_settings_file(project->program_variables[i], dir / name, reinterpret_cast<char const*>(project + 1));
  }
}

}  // namespace

void project_save(Project* project, char const* path) {
  fs::path const dir(path);
  if (!make_project_directory(dir)) return;
  if (!make_directory(dir / "patterns", "error: could not create patterns directory!")) return;
  if (!make_directory(dir / "tables", "error: could not create tables directory!")) return;
  if (!make_directory(dir / "programs", "error: could not create programs directory!")) return;

  for (int t = 0; t < kNumTracks; ++t) project_check_sequencer_column(project, t);

  project_save_memory_files(project, dir);

  // Only the counters decide which slots are written. A pattern or program
  // file that cannot be written ends the save, a table file does not.
  for (int i = 0; i < project->allocated_patterns; ++i)
    if (project_save_pattern(&project->patterns[i], slot_file(dir, "patterns/pattern_%s.txt", i)) != 0) return;
  for (int i = 0; i < project->allocated_tables; ++i)
    project_save_table(&project->tables[i], slot_file(dir, "tables/table_%s.txt", i));
  for (int i = 0; i < project->allocated_programs; ++i)
    if (!project_save_program(&project->programs[i], slot_file(dir, "programs/program_%s.txt", i))) return;

  write_settings_file(project->project_settings, dir / "project_settings.txt");

  project_save_sequencer(project, dir / "sequencer.txt");

  for (int t = 0; t < kNumTracks; ++t)
    if (!save_track(project, dir, t)) return;

  if (!make_directory(dir / "fx_patches", "error: could not create fx_patch directory!")) return;
  project_save_fx_patches(project, dir / "fx_patches");

  fs::path const variables = dir / "program_variables";
  if (!make_directory(variables, "error: could not create program_variable directory!")) return;
  save_program_variables(project, variables);
}

}  // namespace kelvane
