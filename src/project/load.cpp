// project_load: fills a record from a project directory in a fixed order.
// Nothing is ever refused: a missing file leaves the initial state behind.

#include <sys/mman.h>

#include <bitset>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <vector>

#include "project/files.hpp"
#include "project/project.hpp"

namespace kelvane {

namespace fs = std::filesystem;

namespace {

// Chords of older projects, kept in project_settings.txt: an entry that
// differs from the defaults goes to the chord memory.
void load_legacy_chord_memory(Project* project, fs::path const& file) {
  LegacyChordMemory legacy;
  bytes_clear(legacy);
  dialog_set_default(legacy);
  LegacyChordMemory defaults;
  bytes_copy(defaults, legacy);
  read_settings_file(legacy, file, SettingsReset::none);
  for (int i = 0; i < LegacyChordMemory::kChords; ++i) {
    bool const same = bytes_equal(legacy.chord_memory_num_notes[i], defaults.chord_memory_num_notes[i]) &&
                      std::memcmp(legacy.chord_memory[i], defaults.chord_memory[i],
                                  sizeof legacy.chord_memory[i]) == 0;
    if (same) continue;
    ChordMemoryEntry& entry = project->chord_memory[i];
    entry.num_chord_notes[0] = NumChordNotes::from_number(legacy.chord_memory_num_notes[i].value());
    for (int j = 0; j < LegacyChordMemory::kNotes; ++j) entry.notes[j] = legacy.chord_memory[i][j];
  }
}

void load_program_variables(Project* project, fs::path const& dir) {
  SlotFiles files(dir, "program_variable_%02x.txt", kNumProgramVariables);
  for (int i = 0; i < kNumProgramVariables; ++i) {
    ProgramVariable& variable = project->program_variables[i];
    LineReader f;
    if (!files.may_open(i) || !open_for_reading(files.path(i), f)) continue;
    bytes_copy(variable, program_variable_initial());
    dialog_read_file(variable, f);
  }
}

// A record is tens of megabytes. Where a load fills many slots one after
// the other, asking for large pages saves most of the page faults; where it
// writes here and there, small pages cost less, since a large page is
// cleared whole at its first write. Only whole large pages inside the range
// are asked for; where the system gives none, nothing changes.
void prefer_large_pages(void const* from, size_t size) {
  constexpr uintptr_t kLargePage = uintptr_t(2) << 20;
  uintptr_t const at = reinterpret_cast<uintptr_t>(from);
  uintptr_t const begin = (at + kLargePage - 1) & ~(kLargePage - 1);
  uintptr_t const end = (at + size) & ~(kLargePage - 1);
  if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

// Loads every slot of a kind from the files of `kind_dir` that `format`
// names, and returns the counter: one past the last slot whose "!steps"
// line was reached. A slot whose file is missing gets the initial state
// below the counter, and so does the first one above it: a name that fills
// its field runs on into the slot behind it when the last counted slot is
// saved. The other missing slots above the counter are left as they are
// and returned in `untouched`.
template <class Slot, size_t N, class Read, class Initialize>
int load_slots(Slot (&slots)[N], fs::path const& dir, char const* kind_dir, char const* format, Read read,
               Initialize initialize, std::bitset<N>& untouched) {
  // The names that the directory's listing does not hold are not tried;
  // the slots up to the last one that is fill one large stretch.
  SlotFiles files(dir / kind_dir, format, int(N));
  prefer_large_pages(slots, size_t(files.last_that_may_open() + 1) * sizeof(Slot));
  int count = 0;
  std::bitset<N> missing;
  for (int i = 0; i < int(N); ++i) {
    StepFileRead const result = files.may_open(i) ? read(&slots[i], files.path(i)) : StepFileRead::missing;
    if (result == StepFileRead::missing) missing.set(i);
    if (result == StepFileRead::steps) count = i + 1;
  }
  untouched.reset();
  bool above = false;
  for (int i = 0; i < int(N); ++i) {
    if (!missing[i]) continue;
    if (i < count || !above) initialize(&slots[i]);
    if (i >= count && above) untouched.set(i);
    if (i >= count) above = true;
  }
  return count;
}

// The pattern slots each record's last load left as they were.
struct UntouchedPatternSlots {
  Project const* project;
  std::bitset<kNumPatterns> slots;
};
std::vector<UntouchedPatternSlots> untouched_pattern_slots;

std::bitset<kNumPatterns>* find_untouched_pattern_slots(Project const* project) {
  for (UntouchedPatternSlots& entry : untouched_pattern_slots)
    if (entry.project == project) return &entry.slots;
  return nullptr;
}

}  // namespace

void project_prepare_pattern_slot(Project* project, int slot) {
  std::bitset<kNumPatterns>* const untouched = find_untouched_pattern_slots(project);
  if (!untouched || slot < 0 || slot >= kNumPatterns || !untouched->test(slot)) return;
  pattern_initialize(&project->patterns[slot]);
  untouched->reset(slot);
}

void project_forget_untouched_slots(Project const* project) {
  if (std::bitset<kNumPatterns>* const untouched = find_untouched_pattern_slots(project)) untouched->reset();
}

void project_load(Project* project, char const* path) {
  if (std::strcmp(path, "projects/<new project>") == 0) {
    prefer_large_pages(project, sizeof *project);
    project_initialize(project);
    return;
  }
  // The slots are written below; every track's patch memory is reset for
  // the track's type once its settings are read.
  project_initialize_but_slots(project);
  DirectoryListings const listings;

  fs::path const dir(path);
  std::string const name = dir.filename().string();
  std::strncpy(project->name, name.c_str(), sizeof project->name - 1);
  project->name[sizeof project->name - 1] = 0;

  fs::path const settings_file = dir / "project_settings.txt";
  read_settings_file(project->project_settings, settings_file, SettingsReset::defaults);
  load_legacy_chord_memory(project, settings_file);
  project_load_memory_files(project, dir);

  // Every slot is tried; a counted slot raises its counter past any gap.
  std::bitset<kNumPatterns>* untouched = find_untouched_pattern_slots(project);
  if (!untouched) untouched = &untouched_pattern_slots.emplace_back(UntouchedPatternSlots{project, {}}).slots;
  project->allocated_patterns = load_slots(project->patterns, dir, "patterns", "pattern_%s.txt", project_read_pattern,
                                          pattern_initialize, *untouched);
  std::bitset<kNumTables> tables_left;
  project->allocated_tables =
      load_slots(project->tables, dir, "tables", "table_%s.txt", project_load_table, table_reset, tables_left);
  std::bitset<kNumPrograms> programs_left;
  project->allocated_programs = load_slots(project->programs, dir, "programs", "program_%s.txt", project_load_program,
                                          program_reset, programs_left);

  project_load_sequencer(project, dir / "sequencer.txt");

  for (int t = 0; t < kNumTracks; ++t) {
    chiptune_to_monosampler_promotion = false;
    fs::path const track_dir = track_directory(dir, t);
    read_settings_file(project->track_settings[t], track_dir / "track_settings.txt", SettingsReset::defaults);
    read_settings_file(project->track_settings[t], track_dir / "instrument_settings.txt", SettingsReset::none);
    read_settings_file(project->track_callbacks[t], track_dir / "track_callbacks.txt", SettingsReset::zero);
    read_settings_file(project->mix_settings[t], track_dir / "mix_settings.txt", SettingsReset::defaults);
    read_settings_file(project->mix_modulation_mappings[t], track_dir / "mix_modulation_mappings.txt",
                       SettingsReset::zero);
    project_check_sequencer_column(project, t);
    // The patch memory follows the type the track has now.
    project_reset_patch_memory(project, t);
    project_load_track_patches(project, t, track_dir);
  }

  project_load_fx_patches(project, dir / "fx_patches");
  load_program_variables(project, dir / "program_variables");
}

}  // namespace kelvane
