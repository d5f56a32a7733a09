// project_load: fills a record from a project directory in a fixed order.
// Nothing is ever refused: a missing file leaves the initial state behind.

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <bitset>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <vector>

#include "project/files.hpp"
#include "project/project.hpp"
#include "settings/ordered_jobs.hpp"

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
  for (int i = 0; i < kNumProgramVariables; ++i) {
    char name[64];
    std::snprintf(name, sizeof name, "program_variable_%02x.txt", i);
    ProgramVariable& variable = project->program_variables[i];
    LineReader f;
    if (!open_for_reading(dir / name, f)) continue;
    bytes_copy(variable, program_variable_initial());
    dialog_read_file(variable, f);
  }
}

// A kind of numbered slot: its array, the files `format` names, how a file
// is read into a slot and what a missing one leaves; the counter that its
// files set, and the slots its load leaves as they were.
template <class Slot, size_t N>
struct SlotKind {
  Slot (&slots)[N];
  char const* format;
  StepFileRead (*read)(Slot*, fs::path const&);
  void (*initialize)(Slot*);
  int& counter;
  std::bitset<N>& untouched;
  static constexpr int size = int(N);
};

// Finishes a kind from what the reads of its files gave and sets its
// counter: one past the last slot whose "!steps" line was reached. A slot
// whose file is missing gets the initial state below the counter, and so
// does the first one above it: a name that fills its field runs on into
// the slot behind it when the last counted slot is saved. The other missing
// slots above the counter are left as they are and noted as untouched.
template <class Slot, size_t N>
void finish_slots(SlotKind<Slot, N> const& kind, StepFileRead const* reads) {
  Slot (&slots)[N] = kind.slots;
  int count = 0;
  std::bitset<N> missing;
  for (int i = 0; i < int(N); ++i) {
    if (reads[i] == StepFileRead::missing) missing.set(i);
    if (reads[i] == StepFileRead::steps) count = i + 1;
  }
  kind.untouched.reset();
  bool above = false;
  for (int i = 0; i < int(N); ++i) {
    if (!missing[i]) continue;
    if (i < count || !above) kind.initialize(&slots[i]);
    if (i >= count && above) kind.untouched.set(i);
    if (i >= count) above = true;
  }
  kind.counter = count;
}

// Reads the file of every slot of every kind, in the order of `kinds`, and
// finishes each kind after its files. Each file goes to its own slot, so the
// reads share two threads; messages come in this order all the same. The
// finish of a kind waits for the reads before it.
template <class... Kinds>
void load_slot_kinds(fs::path const& dir, Kinds const&... kinds) {
  std::vector<StepFileRead> reads(size_t((Kinds::size + ...)));
  // A file may set the Chiptune flag; it stays set after the files.
  std::atomic<bool> promoted{false};
  run_ordered_jobs(((Kinds::size + 1) + ...), [&](int job) {
    struct NotePromotion {
      std::atomic<bool>& promoted;
      ~NotePromotion() {
        if (chiptune_to_monosampler_promotion) promoted = true;
      }
    } const note{promoted};
    int first_job = 0, first_read = 0;
    auto one = [&](auto const& kind) {
      int const i = job - first_job;
      StepFileRead* const kind_reads = reads.data() + first_read;
      first_job += kind.size + 1;
      first_read += kind.size;
      if (i < 0 || i > kind.size) return false;
      if (i < kind.size) {
        kind_reads[i] = kind.read(&kind.slots[i], slot_file(dir, kind.format, i));
      } else {
        wait_for_turn();
        finish_slots(kind, kind_reads);
      }
      return true;
    };
    (one(kinds) || ...);
  });
  if (promoted) chiptune_to_monosampler_promotion = true;
}

// What the load of a track leaves behind besides the record: the Chiptune
// flag, and the page selectors that its patch records have, with the
// values it left in them.
struct TrackLoadEnd {
  bool promotion = false;
  std::array<bool, kPageSelectors> has{};
  std::array<PageSelectorBytes, kPageSelectors> values{};
};

// The settings files of a track, its sequencer column, its patch memory
// and patch files.
void load_track(Project* project, fs::path const& dir, int t) {
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

// Loads the tracks, each on its own, on two threads. Each thread has its
// own Chiptune flag and page selectors; afterwards the flag is the one the
// last track left, and each page selector the value the last track whose
// patch records have it left there (their reset sets it, so every such
// track sets it). Nothing of a track's load reads them before it sets them.
void load_tracks(Project* project, fs::path const& dir) {
  std::array<TrackLoadEnd, kNumTracks> ends;
  run_ordered_jobs(kNumTracks, [&](int t) {
    std::array<void*, kPageSelectors> const places = page_selector_places();
    load_track(project, dir, t);
    TrackLoadEnd& end = ends[size_t(t)];
    end.promotion = chiptune_to_monosampler_promotion;
    project_track_do_patch_mod(project, t, [&](auto& parameters, auto& modulation, auto&) {
      std::array<bool, kPageSelectors> const a = page_selectors_of(parameters[0]);
      std::array<bool, kPageSelectors> const b = page_selectors_of(modulation[0]);
      for (int k = 0; k < kPageSelectors; ++k) end.has[k] = a[k] || b[k];
    });
    for (int k = 0; k < kPageSelectors; ++k) std::memcpy(end.values[k].data(), places[k], end.values[k].size());
  });
  chiptune_to_monosampler_promotion = ends.back().promotion;
  std::array<void*, kPageSelectors> const places = page_selector_places();
  for (int k = 0; k < kPageSelectors; ++k) {
    for (int t = kNumTracks - 1; t >= 0; --t) {
      if (!ends[size_t(t)].has[k]) continue;
      std::memcpy(places[k], ends[size_t(t)].values[k].data(), ends[size_t(t)].values[k].size());
      break;
    }
  }
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

// A record is tens of megabytes, and a load of a full project writes most
// of it: asking for large pages saves most of the page faults. Where the
// system gives none, nothing changes.
static void prefer_large_pages(Project* project) {
  constexpr uintptr_t kLargePage = uintptr_t(2) << 20;
  uintptr_t const from = reinterpret_cast<uintptr_t>(project);
  uintptr_t const begin = (from + kLargePage - 1) & ~(kLargePage - 1);
  uintptr_t const end = (from + sizeof(Project)) & ~(kLargePage - 1);
  if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

void project_load(Project* project, char const* path) {
  prefer_large_pages(project);
  if (std::strcmp(path, "projects/<new project>") == 0) {
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
  std::bitset<kNumTables> tables_left;
  std::bitset<kNumPrograms> programs_left;
  load_slot_kinds(dir,
                  SlotKind<Pattern, kNumPatterns>{project->patterns, "patterns/pattern_%s.txt", project_read_pattern,
                                                  pattern_initialize, project->allocated_patterns, *untouched},
                  SlotKind<Table, kNumTables>{project->tables, "tables/table_%s.txt", project_load_table, table_reset,
                                              project->allocated_tables, tables_left},
                  SlotKind<Program, kNumPrograms>{project->programs, "programs/program_%s.txt", project_load_program,
                                                  program_reset, project->allocated_programs, programs_left});

  project_load_sequencer(project, dir / "sequencer.txt");

  load_tracks(project, dir);

  project_load_fx_patches(project, dir / "fx_patches");
  load_program_variables(project, dir / "program_variables");
}

}  // namespace kelvane
