// Patch files of the tracks and of the FX patches. A slot gets a file only
// when it says something: a name, or a record that differs from a fresh
// one. Nothing is deleted, and a slot whose file is missing stays initial.

#include <cstdio>
#include <cstring>

#include "project/files.hpp"
#include "project/project.hpp"

namespace kelvane {

namespace fs = std::filesystem;

namespace {

// "patch_%02x.txt" and its kin.
fs::path slot_path(fs::path const& dir, char const* format, int slot) {
  char name[64];
  std::snprintf(name, sizeof name, format, slot);
  return dir / name;
}

// The name line of a slot. A full name runs on into the bytes behind it,
// to the end of the project.
PatchMemoryNameDialog name_dialog(Project const* project, PatchName& name) {
  return {&name, reinterpret_cast<char const*>(project + 1)};
}

// Zeroes a block, writing only the pages of it that hold a byte other than
// zero. A patch memory block is larger than most types use: pages a run
// never writes stay unwritten, and cost no memory.
template <class T>
void clear_written_pages(T& block) {
  constexpr size_t kPage = 4096;
  static char const zero_page[kPage] = {};
  char* const bytes = reinterpret_cast<char*>(&block);
  for (size_t at = 0; at < sizeof block; at += kPage) {
    size_t const n = sizeof block - at < kPage ? sizeof block - at : kPage;
    if (std::memcmp(bytes + at, zero_page, n) != 0) std::memset(bytes + at, 0, n);
  }
}

}  // namespace

void project_reset_patch_memory(Project* project, int track) {
  clear_written_pages(project->patch_memory[track]);
  project_track_do_patch_mod(project, track, [](auto& parameters, auto& modulation, auto&) {
    for (int i = 0; i < kPatchSlots; ++i) {
      patch_record_initialize(parameters[i]);
      patch_record_initialize(modulation[i]);
    }
  });
}

void project_save_track_patches(Project* project, int track, fs::path const& track_dir) {
  project_track_do_patch_mod(project, track, [&](auto& parameters, auto& modulation, auto& names) {
    auto const& fresh_parameters = patch_record_fresh(parameters[0]);
    auto const& fresh_modulation = patch_record_fresh(modulation[0]);
    for (int i = 0; i < kPatchSlots; ++i) {
      PatchMemoryNameDialog name = name_dialog(project, names[i]);
      bool const named = names[i].data[0] != 0;
      if (named || !bytes_equal(parameters[i], fresh_parameters))
        write_settings_records(slot_path(track_dir, "patch_%02x.txt", i), name, parameters[i]);
      if (!bytes_equal(modulation[i], fresh_modulation))
        write_settings_records(slot_path(track_dir, "modulation_%02x.txt", i), name, modulation[i]);
    }
  });
}

void project_load_track_patches(Project* project, int track, fs::path const& track_dir) {
  project_track_do_patch_mod(project, track, [&](auto& parameters, auto& modulation, auto& names) {
    for (int i = 0; i < kPatchSlots; ++i) {
      // The name is offered each line first; a name in the modulation file
      // overwrites the one of the patch file byte by byte.
      PatchMemoryNameDialog name = name_dialog(project, names[i]);
      patch_record_initialize(parameters[i]);
      read_settings_records(slot_path(track_dir, "patch_%02x.txt", i), name, parameters[i]);
      patch_record_initialize(modulation[i]);
      read_settings_records(slot_path(track_dir, "modulation_%02x.txt", i), name, modulation[i]);
    }
  });
}

void project_save_fx_patches(Project* project, fs::path const& fx_dir) {
  FXParameters const& fresh_parameters = patch_record_fresh(project->fx_parameters[0]);
  for (int i = 0; i < kNumFXPatches; ++i) {
    PatchMemoryNameDialog name = name_dialog(project, project->fx_patch_names[i]);
    FXModulationDialog callback{&project->fx_srr_callback[i]};
    bool const named = project->fx_patch_names[i].data[0] != 0;
    if (named || !bytes_equal(project->fx_parameters[i], fresh_parameters))
      write_settings_records(slot_path(fx_dir, "fx_patch_%02x.txt", i), name, project->fx_parameters[i]);
    if (!project->fx_srr_callback[i].is_empty())
      write_settings_records(slot_path(fx_dir, "fx_modulation_%02x.txt", i), name, callback);
  }
}

void project_load_fx_patches(Project* project, fs::path const& fx_dir) {
  for (int i = 0; i < kNumFXPatches; ++i) {
    PatchMemoryNameDialog name = name_dialog(project, project->fx_patch_names[i]);
    FXModulationDialog callback{&project->fx_srr_callback[i]};
    patch_record_initialize(project->fx_parameters[i]);
    read_settings_records(slot_path(fx_dir, "fx_patch_%02x.txt", i), name, project->fx_parameters[i]);
    dialog_set_default(callback);
    read_settings_records(slot_path(fx_dir, "fx_modulation_%02x.txt", i), name, callback);
  }
}

}  // namespace kelvane
