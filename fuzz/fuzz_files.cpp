// Each file reader of a project on any file: sequencer, settings files,
// pattern, table, program, chord and modulation memory, patch and FX patch
// files; what was read is written again.

#include "fuzz_common.hpp"
#include "project/project.hpp"

using namespace kelvane;

namespace {

Project project;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  if (size == 0) return 0;
  // A value of 255 bytes or more for an op code, instruction or operand
  // ends the run by a required assertion; lines are kept shorter.
  size_t line = 0;
  for (size_t i = 1; i < size; ++i) {
    line = data[i] == '\n' ? 0 : line + 1;
    if (line > 250) return 0;
  }
  static bool initialized = false;
  if (!initialized) {
    project_initialize(&project);
    initialized = true;
  }
  namespace fs = std::filesystem;
  fs::path const dir = kelvane_fuzz::scratch_file("project");
  fs::path const out = kelvane_fuzz::scratch_file("saved");
  fs::create_directories(dir / "track_00");
  fs::create_directories(dir / "fx_patches");
  fs::create_directories(out / "track_00");
  fs::create_directories(out / "fx_patches");
  uint8_t const kind = data[0];
  fs::path file;
  switch (kind % 9) {
    case 0: file = dir / "sequencer.txt"; break;
    case 1: file = dir / "track_00/track_settings.txt"; break;
    case 2: file = dir / "pattern.txt"; break;
    case 3: file = dir / "table.txt"; break;
    case 4: file = dir / "program.txt"; break;
    case 5: file = dir / "chord_memory.txt"; break;
    case 6: file = dir / "modulation_memory.txt"; break;
    case 7: file = dir / "track_00/patch_00.txt"; break;
    default: file = dir / "fx_patches/fx_patch_00.txt"; break;
  }
  kelvane_fuzz::write_file(file, data + 1, size - 1);
  switch (kind % 9) {
    case 0:
      project_load_sequencer(&project, file);
      project_save_sequencer(&project, out / "sequencer.txt");
      break;
    case 1:
      read_settings_file(project.track_settings[0], file, SettingsReset::defaults);
      write_settings_file(project.track_settings[0], out / "track_settings.txt");
      break;
    case 2:
      // A pattern of no known kind stops the save by a required assertion;
      // it is only read here.
      if (project_load_pattern(&project.patterns[0], file) == 0 && !project.patterns[0].type.is_empty() &&
          project.patterns[0].type.index() >= 0 && project.patterns[0].type.index() < 9)
        project_save_pattern(&project.patterns[0], out / "pattern.txt");
      break;
    case 3:
      project_load_table(&project.tables[0], file);
      project_save_table(&project.tables[0], out / "table.txt");
      break;
    case 4:
      project_load_program(&project.programs[0], file);
      project_save_program(&project.programs[0], out / "program.txt");
      break;
    case 5:
    case 6:
      project_load_memory_files(&project, dir);
      project_save_memory_files(&project, out);
      fs::remove(file);
      break;
    case 7:
      project.track_settings[0].type = PatternType::from_index((kind / 9) % 9);
      project_reset_patch_memory(&project, 0);
      project_load_track_patches(&project, 0, dir / "track_00");
      project_save_track_patches(&project, 0, out / "track_00");
      fs::remove(file);
      break;
    default:
      project_load_fx_patches(&project, dir / "fx_patches");
      project_save_fx_patches(&project, out / "fx_patches");
      fs::remove(file);
      break;
  }
  return 0;
}
