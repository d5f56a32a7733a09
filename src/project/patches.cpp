// Patch files of the tracks and of the FX patches. A slot gets a file only
// when it says something: a name, or a record that differs from a fresh
// one. Nothing is deleted, and a slot whose file is missing stays initial.

#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "project/files.hpp"
#include "project/project.hpp"

namespace kelvane {

namespace fs = std::filesystem;

namespace {

// Reads a slot's file into its records, if it may open.
template <class... R>
void read_slot_file(SlotFiles& files, int slot, R&... records) {
  if (files.may_open(slot)) read_settings_records(files.path(slot), records...);
}

// The name line of a slot. A full name runs on into the bytes behind it,
// to the end of the project.
PatchMemoryNameDialog name_dialog(Project const* project, PatchName& name) {
  return {&name, reinterpret_cast<char const*>(project + 1)};
}

// Zeroes the bytes from `from` up to `to` that are not zero yet.
void clear_nonzero(char* from, char* to) {
  static char const zero[4096] = {};
  for (; from < to; from += sizeof zero) {
    size_t const n = size_t(to - from) < sizeof zero ? size_t(to - from) : sizeof zero;
    if (std::memcmp(from, zero, n) != 0) std::memset(from, 0, n);
  }
}

// Zeroes a block without touching its pages that are zero already. A patch
// memory block is larger than most types use, and most of it is never
// written. The whole pages inside the block go back to the system, which
// hands out zero pages at their next touch: the records live in private
// anonymous memory (zero-initialised static storage), for which it
// promises that. A page that is never touched again costs nothing, neither
// time nor memory. The pages the block shares with its neighbours are
// zeroed byte by byte where they are not zero yet.
template <class T>
void clear_block(T& block) {
  constexpr uintptr_t kPage = 4096;
  char* const from = reinterpret_cast<char*>(&block);
  char* const to = from + sizeof block;
  uintptr_t const first = (reinterpret_cast<uintptr_t>(from) + kPage - 1) & ~(kPage - 1);
  uintptr_t const last = reinterpret_cast<uintptr_t>(to) & ~(kPage - 1);
  if (last <= first) {
    clear_nonzero(from, to);
    return;
  }
  char* const pages_from = reinterpret_cast<char*>(first);
  char* const pages_to = reinterpret_cast<char*>(last);
  clear_nonzero(from, pages_from);
  if (madvise(pages_from, size_t(pages_to - pages_from), MADV_DONTNEED) != 0) clear_nonzero(pages_from, pages_to);
  clear_nonzero(pages_to, to);
}

}  // namespace

void project_reset_patch_memory(Project* project, int track) {
  clear_block(project->patch_memory[track]);
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
    SlotFileNames patch_names("patch_%02x.txt");
    SlotFileNames modulation_names("modulation_%02x.txt");
    for (int i = 0; i < kPatchSlots; ++i) {
      PatchMemoryNameDialog name = name_dialog(project, names[i]);
      bool const named = names[i].data[0] != 0;
      if (named || !bytes_equal(parameters[i], fresh_parameters))
        write_settings_records(track_dir / patch_names(i), name, parameters[i]);
      if (!bytes_equal(modulation[i], fresh_modulation))
        write_settings_records(track_dir / modulation_names(i), name, modulation[i]);
    }
  });
}

void project_load_track_patches(Project* project, int track, fs::path const& track_dir) {
  project_track_do_patch_mod(project, track, [&](auto& parameters, auto& modulation, auto& names) {
    SlotFiles patch_files(track_dir, "patch_%02x.txt", kPatchSlots);
    SlotFiles modulation_files(track_dir, "modulation_%02x.txt", kPatchSlots);
    for (int i = 0; i < kPatchSlots; ++i) {
      // The name is offered each line first; a name in the modulation file
      // overwrites the one of the patch file byte by byte.
      PatchMemoryNameDialog name = name_dialog(project, names[i]);
      patch_record_initialize(parameters[i]);
      read_slot_file(patch_files, i, name, parameters[i]);
      patch_record_initialize(modulation[i]);
      read_slot_file(modulation_files, i, name, modulation[i]);
    }
  });
}

void project_save_fx_patches(Project* project, fs::path const& fx_dir) {
  FXParameters const& fresh_parameters = patch_record_fresh(project->fx_parameters[0]);
  SlotFileNames patch_names("fx_patch_%02x.txt");
  SlotFileNames modulation_names("fx_modulation_%02x.txt");
  for (int i = 0; i < kNumFXPatches; ++i) {
    PatchMemoryNameDialog name = name_dialog(project, project->fx_patch_names[i]);
    FXModulationDialog callback{&project->fx_srr_callback[i]};
    bool const named = project->fx_patch_names[i].data[0] != 0;
    if (named || !bytes_equal(project->fx_parameters[i], fresh_parameters))
      write_settings_records(fx_dir / patch_names(i), name, project->fx_parameters[i]);
    if (!project->fx_srr_callback[i].is_empty())
      write_settings_records(fx_dir / modulation_names(i), name, callback);
  }
}

void project_load_fx_patches(Project* project, fs::path const& fx_dir) {
  SlotFiles patch_files(fx_dir, "fx_patch_%02x.txt", kNumFXPatches);
  SlotFiles modulation_files(fx_dir, "fx_modulation_%02x.txt", kNumFXPatches);
  for (int i = 0; i < kNumFXPatches; ++i) {
    PatchMemoryNameDialog name = name_dialog(project, project->fx_patch_names[i]);
    FXModulationDialog callback{&project->fx_srr_callback[i]};
    patch_record_initialize(project->fx_parameters[i]);
    read_slot_file(patch_files, i, name, project->fx_parameters[i]);
    dialog_set_default(callback);
    read_slot_file(modulation_files, i, name, callback);
  }
}

}  // namespace kelvane
