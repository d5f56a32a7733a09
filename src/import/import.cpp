// The import engine. Every import has one shape (import_record): print the
// request, answer from the map if it can, copy the source record, rewrite
// every reference in the copy (which imports what they name first), then
// reuse an equal target record or take a new slot, map and print.
//
// Which cell is a reference, and what is done with it, is decided in one
// place: the overloads of fix_reference, one per reference type. Op codes,
// instructions and operands are rewritten by visiting their arguments with
// it.

#include "import/import.hpp"

#include "kelvane/run_end.hpp"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <vector>

namespace kelvane {

namespace {

// The standard assertion. It stays on in every build type and names the
// unit of the driver, as the tracker's tools do.
[[noreturn]] void import_assert_fail(char const* expr, unsigned line, char const* function) {
  run_end_c_assertion(expr, "src/project_manager.cpp", line, function);
}

// The checks of a kind's import name the import function of the kind.
#define IMPORT_ASSERT_IN(expr, function) ((expr) ? void(0) : import_assert_fail(#expr, __LINE__, function))
// The same with the text of the check given apart, where the code's own
// expression reads otherwise.
#define IMPORT_ASSERT_TEXT(expr, text, function) ((expr) ? void(0) : import_assert_fail(text, __LINE__, function))

// ---------------------------------------------------------------------------
// Import state.

// Source index to target index, for indices 0 .. N-1. Zero-initialised
// static storage means "nothing mapped".
template <int N>
struct IndexMap {
  int target_plus_one[N];

  bool contains(int source) const { return source >= 0 && source < N && target_plus_one[source] != 0; }
  int at(int source) const { return target_plus_one[source] - 1; }
  void set(int source, int target) {
    if (source >= 0 && source < N) target_plus_one[source] = target + 1;
  }
};

IndexMap<kNumPatterns> pattern_map;
IndexMap<kNumTables> table_map;
IndexMap<kNumPrograms> program_map;
IndexMap<kNumChordMemory> chord_map;
IndexMap<kNumModulationMemory> mod_memory_map;
IndexMap<kNumProgramVariables> program_variable_map;

// Source patterns whose import has begun; a second request while the first
// is still open comes through a reference cycle.
bool patterns_in_import_phase[kNumPatterns];

// Set when a patch reference is met below the pattern in hand; one flag for
// the whole engine, cleared by each pattern import.
bool pattern_sets_patch;

// What every rewriting call carries along.
struct ImportContext {
  Project* tgt;
  Project const* src;
  int track_tgt;
  int track_src;
};

// ---------------------------------------------------------------------------
// Printing.

struct IdxText {
  char text[12];
};
IdxText zz_text(int idx) {
  IdxText t{};
  format_string_zz_num(t.text, sizeof t.text, PatternIdx::from_value(idx));
  return t;
}
IdxText hex_text(int idx) {
  static constexpr NumberFormat kHex = print_format("%02x");
  IdxText t{};
  print_number(t.text, sizeof t.text, kHex, idx);
  return t;
}

// Writes the texts one after the other to stdout, as one printf of them
// would: the result lines come by the hundred thousand in a large import.
void print_texts(std::initializer_list<char const*> texts) {
  char line[256];
  TextSink sink{line, sizeof line, 0};
  for (char const* t : texts) sink_text(sink, t);
  if (sink.count < sizeof line) {
    std::fwrite(line, 1, sink.count, stdout);
    return;
  }
  for (char const* t : texts) std::fputs(t, stdout);
}

ImportObserver observer = nullptr;

// Pattern, table and program indices print as zz numbers, the rest in hex.
enum class Digits : char { zz, hex };

// Tells the observer, then prints a result line.
void report_result(char const* label, Digits digits, int from, int to, ImportOutcome outcome, int track = -1) {
  import_notify({outcome, label, from, to, track, -1});
  IdxText const f = digits == Digits::zz ? zz_text(from) : hex_text(from);
  IdxText const t = digits == Digits::zz ? zz_text(to) : hex_text(to);
  print_texts({label, " ", f.text, " -> ", t.text, "\n"});
}

// ---------------------------------------------------------------------------
// Open requests, for cycles.
//
// A cycle that passes through a pattern ends by the pattern's rule. One made
// of tables and programs alone never would: it is found here, when a table
// or program is requested again while its own request is still open and no
// pattern stands between the two, and the run ends without saving.

enum class Kind : char { pattern, table, program };

struct OpenRequest {
  Kind kind;
  int idx;
};
std::vector<OpenRequest> open_requests;

char const* kind_word(Kind k) { return k == Kind::pattern ? "pattern" : k == Kind::table ? "table" : "program"; }

struct RequestFrame {
  RequestFrame(Kind kind, int idx) {
    if (kind != Kind::pattern) {
      for (auto r = open_requests.rbegin(); r != open_requests.rend() && r->kind != Kind::pattern; ++r) {
        if (r->kind != kind || r->idx != idx) continue;
        char message[256];
        std::snprintf(message, sizeof message,
                      "error: %s %s is requested again while its own import is still open: tables and "
                      "programs refer to each other in a cycle that cannot end, nothing is saved\n",
                      kind_word(kind), zz_text(idx).text);
        run_end_error(message);
      }
    }
    open_requests.push_back({kind, idx});
  }
  ~RequestFrame() { open_requests.pop_back(); }
  RequestFrame(RequestFrame const&) = delete;
  RequestFrame& operator=(RequestFrame const&) = delete;
};

// The local copy of a record at each nesting level lives in a heap block
// kept for the run, so that a deep chain of imports does not carry records
// on the stack.
template <class R>
struct LocalRecord {
  static inline std::vector<std::unique_ptr<R>> blocks;
  static inline size_t depth = 0;
  R* record;

  LocalRecord() {
    if (depth == blocks.size()) blocks.push_back(std::make_unique<R>());
    record = blocks[depth++].get();
  }
  ~LocalRecord() { --depth; }
  LocalRecord(LocalRecord const&) = delete;
  LocalRecord& operator=(LocalRecord const&) = delete;
};

// An index result stored into a zz cell: 0 to 1295 as the value, anything
// else as the empty cell.
template <class Cell>
void store_zz(Cell& cell, int result) {
  cell = result >= 0 && result < kZZLimit ? Cell::from_value(result) : Cell::empty_cell();
}

// ---------------------------------------------------------------------------
// The three slot kinds and the common shape.

// The next slot of a kind in the target. The counters have no upper bound
// in the tracker's format; a target that is full ends the run before
// anything is saved, so that no half-imported project is ever written.
int take_new_slot(int& allocated, int capacity, char const* kind) {
  if (allocated < capacity) return allocated++;
  char message[256];
  std::snprintf(message, sizeof message,
                "error: the target project has no free %s slot left (all %d are in use), nothing is saved\n", kind,
                capacity);
  run_end_error(message);
}

void fix_reference(ImportContext const& c, TableIdx& cell);
void fix_reference(ImportContext const& c, ProgramIdx& cell);
void fix_reference(ImportContext const& c, PatternIdx& cell);
void fix_reference(ImportContext const& c, VariableIdx& cell);
void fix_reference(ImportContext const& c, ChordMemIdx& cell);
void fix_reference(ImportContext const& c, ModulationMemIdx& cell);
void fix_reference(ImportContext const& c, PatchIdx& cell);
void fix_reference(ImportContext const& c, FXPatchIdx& cell);
// Every other cell is no reference and is copied as it stands.
template <class Cell>
void fix_reference(ImportContext const&, Cell&) {}

void fix_variable(ImportContext const& c, OpCode& op);
void place_default_patch(ImportContext const& c, Pattern& p);
void fix_step(ImportContext const& c, StepTypes::TableStep& step);
void fix_program_row(ImportContext const& c, ProgramRow& row);

struct PatternKind {
  using Record = Pattern;
  static constexpr Kind kind = Kind::pattern;
  static constexpr char const* label = "PatternIdx";
  static constexpr char const* function = "int import_pattern(Project*, const Project*, int, int, int)";
  static auto& map() { return pattern_map; }
  static Pattern const* records(Project const* p) { return p->patterns; }
  static Pattern* records(Project* p) { return p->patterns; }
  static int& allocated(Project* p) { return p->allocated_patterns; }

  static void check_index(Project const* src, int pattern_idx) {
    IMPORT_ASSERT_IN(pattern_idx < src->allocated_patterns, function);
    // Empty and magic names come here as negative numbers; they name nothing.
    IMPORT_ASSERT_IN(pattern_idx >= 0, function);
  }

  // Takes the slot now for a re-entry through a cycle; -1 otherwise.
  static int enter(ImportContext const& c, int idx) {
    pattern_sets_patch = false;
    if (!patterns_in_import_phase[idx]) {
      patterns_in_import_phase[idx] = true;
      return -1;
    }
    int const n = take_slot(c.tgt);
    // The slot is compared with what later imports bring until the pattern
    // is written to it: it must hold what the load left there.
    project_prepare_pattern_slot(c.tgt, n);
    pattern_map.set(idx, n);
    report_result(label, Digits::zz, idx, n, ImportOutcome::created);
    return n;
  }

  // The steps by the pattern's own type, each step's patch column, then its
  // table columns, then its op codes from left to right; then the callbacks.
  static void rewrite(ImportContext const& c, Pattern& p) {
    pattern_steps_do(p, [&](auto& steps) {
      for (auto& step : steps.data) {
        if constexpr (requires { step.patch_idx; }) fix_reference(c, step.patch_idx[0]);
        for (TableIdx& t : step.table_idx) fix_reference(c, t);
        for (OpCode& op : step.op_code) fix_variable(c, op);
      }
    });
    PatternSettings& s = p.settings;
    for (ProgramIdx* cb : {&s.clock_tick_callback, &s.step_callback, &s.start_callback, &s.stop_callback})
      fix_reference(c, *cb);
    for (ProgramIdx& cb : s.transpose_callback) fix_reference(c, cb);
    for (ProgramIdx& cb : s.chord_callback) fix_reference(c, cb);
    for (ProgramIdx& cb : s.note_callback) fix_reference(c, cb);
  }

  // A reserved slot takes the finished pattern; a pattern that is mapped by
  // now (the reserved one, or the outer call of a cycle) is done.
  static bool finish(ImportContext const& c, int idx, Pattern& p, int reserved) {
    place_default_patch(c, p);
    if (reserved >= 0) bytes_copy(c.tgt->patterns[reserved], p);
    return pattern_map.contains(idx);
  }

  static void found_message() {}

  static int take_slot(Project* tgt) { return take_new_slot(tgt->allocated_patterns, kNumPatterns, "pattern"); }
};

struct TableKind {
  using Record = Table;
  static constexpr Kind kind = Kind::table;
  static constexpr char const* label = "TableIdx";
  static constexpr char const* function = "int import_table(Project*, const Project*, int, int, int)";
  static auto& map() { return table_map; }
  static Table const* records(Project const* p) { return p->tables; }
  static Table* records(Project* p) { return p->tables; }
  static int& allocated(Project* p) { return p->allocated_tables; }

  static void check_index(Project const* src, int table_idx) {
    IMPORT_ASSERT_IN(table_idx >= 0, function);
    IMPORT_ASSERT_IN(table_idx < src->allocated_tables, function);
  }
  static int enter(ImportContext const&, int) { return -1; }

  static void rewrite(ImportContext const& c, Table& t) {
    for (StepTypes::TableStep& step : t.steps) fix_step(c, step);
    TableSettings& s = t.settings;
    // In space V the address names a program variable; a number of 64 or
    // more, or none, counts as variable 0.
    if (!s.address_space.is_empty() && s.address_space.index() == 2) {
      VariableIdx v = VariableIdx::from_value(s.address.has_number() && s.address.value() < kNumProgramVariables
                                                  ? s.address.value()
                                                  : 0);
      fix_reference(c, v);
      s.address = Address::from_value(v.value());
    }
    for (ProgramIdx* cb : {&s.start_callback, &s.stop_callback, &s.transpose_callback}) fix_reference(c, *cb);
  }
  static bool finish(ImportContext const&, int, Table&, int) { return false; }
  static void found_message() { std::puts("found identical table after fixing, using this one"); }
  static int take_slot(Project* tgt) { return take_new_slot(tgt->allocated_tables, kNumTables, "table"); }
};

struct ProgramKind {
  using Record = Program;
  static constexpr Kind kind = Kind::program;
  static constexpr char const* label = "ProgramIdx";
  static constexpr char const* function = "int import_program(Project*, const Project*, int, int, int)";
  static auto& map() { return program_map; }
  static Program const* records(Project const* p) { return p->programs; }
  static Program* records(Project* p) { return p->programs; }
  static int& allocated(Project* p) { return p->allocated_programs; }

  static void check_index(Project const* src, int program_idx) {
    IMPORT_ASSERT_IN(program_idx < src->allocated_programs, function);
    IMPORT_ASSERT_IN(program_idx >= 0, function);
  }
  static int enter(ImportContext const&, int) { return -1; }
  static void rewrite(ImportContext const& c, Program& p) {
    for (ProgramRow& row : p.rows) fix_program_row(c, row);
  }
  static bool finish(ImportContext const&, int, Program&, int) { return false; }
  static void found_message() {}
  static int take_slot(Project* tgt) { return take_new_slot(tgt->allocated_programs, kNumPrograms, "program"); }
};

template <class K>
int import_record(ImportContext const& c, int idx) {
  using R = typename K::Record;
  print_texts({"requesting ", kind_word(K::kind), " ", zz_text(idx).text, "\n"});
  import_notify({ImportOutcome::requested, kind_word(K::kind), idx, -1, c.track_tgt, -1});
  K::check_index(c.src, idx);
  auto& map = K::map();
  if (map.contains(idx)) return map.at(idx);

  RequestFrame const frame(K::kind, idx);
  int const reserved = K::enter(c, idx);
  LocalRecord<R> local;
  R& record = *local.record;
  bytes_copy(record, K::records(c.src)[idx]);
  K::rewrite(c, record);
  if (K::finish(c, idx, record, reserved)) return map.at(idx);

  // The comparison sees the rewritten form: records that differ in the
  // source only by indices that map alike are the same in the target.
  R* const target = K::records(c.tgt);
  int const count = K::allocated(c.tgt);
  int found = -1;
  for (int i = 0; i < count && found < 0; ++i)
    if (bytes_equal(record, target[i])) found = i;
  ImportOutcome outcome = ImportOutcome::reused;
  if (found >= 0) {
    K::found_message();
  } else {
    found = K::take_slot(c.tgt);
    bytes_copy(target[found], record);
    outcome = ImportOutcome::created;
  }
  map.set(idx, found);
  report_result(K::label, Digits::zz, idx, found, outcome);
  return found;
}

// ---------------------------------------------------------------------------
// References.

void fix_reference(ImportContext const& c, TableIdx& cell) {
  if (!cell.has_number()) return;
  store_zz(cell, import_record<TableKind>(c, cell.value()));
}

void fix_reference(ImportContext const& c, ProgramIdx& cell) {
  if (cell.is_empty()) return;
  store_zz(cell, import_record<ProgramKind>(c, cell.value()));
}

void fix_reference(ImportContext const& c, PatternIdx& cell) {
  if (!cell.has_number()) return;
  store_zz(cell, import_record<PatternKind>(c, cell.value()));
}

// Chord memory, modulation memory and program variables: a source entry
// goes to the first free target entry, once; a full target keeps the
// source index and says so each time.
template <class Entry, int N, class IsFree>
void fix_memory_entry(IndexMap<N>& map, char const* label, char const* no_room, Entry const (&src)[N],
                      Entry (&tgt)[N], IsFree is_free, int idx, auto& cell) {
  using Cell = std::remove_reference_t<decltype(cell)>;
  if (idx < 0 || idx >= N) return;
  if (map.contains(idx)) {
    cell = Cell::from_value(map.at(idx));
    return;
  }
  for (int slot = 0; slot < N; ++slot) {
    if (!is_free(tgt[slot])) continue;
    bytes_copy(tgt[slot], src[idx]);
    map.set(idx, slot);
    report_result(label, Digits::hex, idx, slot, ImportOutcome::created);
    cell = Cell::from_value(slot);
    return;
  }
  import_notify({ImportOutcome::no_room, label, idx, idx, -1, -1});
  std::fprintf(stderr, no_room, idx);
}

template <class Entry>
bool all_zero(Entry const& e) {
  return bytes_zero(e);
}

void fix_reference(ImportContext const& c, ChordMemIdx& cell) {
  if (!cell.has_number()) return;
  fix_memory_entry(chord_map, "ChordMemIdx",
                   "error: could not find free slot in chord memory table, skipping importing chord %d\n",
                   c.src->chord_memory, c.tgt->chord_memory, all_zero<ChordMemoryEntry>, cell.value(), cell);
}

void fix_reference(ImportContext const& c, ModulationMemIdx& cell) {
  if (!cell.has_number()) return;
  fix_memory_entry(mod_memory_map, "ModulationMemIdx",
                   "error: could not find free slot in modulation memory table, skipping importing modulation "
                   "memory %d\n",
                   c.src->modulation_memory, c.tgt->modulation_memory, all_zero<ModulationMemoryEntry>,
                   cell.value(), cell);
}

void fix_reference(ImportContext const& c, VariableIdx& cell) {
  if (cell.is_empty()) return;
  fix_memory_entry(program_variable_map, "VariableIdx",
                   "error: could not find free slot in program varialbe table, skipping importing program "
                   "variable %d\n",
                   c.src->program_variables, c.tgt->program_variables,
                   [](ProgramVariable const& v) { return bytes_equal(v, program_variable_initial()); },
                   cell.value(), cell);
}

// ---------------------------------------------------------------------------
// Patches and FX patches: no map, found again by content at every request.
// The name does not count, and a slot that stays unnamed gets one made of
// the source project's name and the source index.

void make_up_name(PatchName& name, Project const* src, int idx) {
  if (name.data[0] != 0) return;
  std::snprintf(name.data, sizeof name.data, "%.4s_%s", src->name, hex_text(idx).text);
}

// Where the program references of a patch record type stand, as byte
// offsets in the order of its members; found once, by walking the members
// of a record. A patch is fixed at every patch reference of an import, and
// most of its members are numbers that need no fixing.
template <class R>
std::vector<size_t> const& program_member_offsets() {
  static std::vector<size_t> const offsets = [] {
    auto const record = std::make_unique<R>();
    uintptr_t const base = reinterpret_cast<uintptr_t>(record.get());
    std::vector<size_t> found;
    record->do_it([&](auto... members) {
      auto one = [&](auto m) {
        // Every program reference is a member of the record itself; only
        // page selectors stand outside, and they are plain numbers.
        if constexpr (std::is_same_v<std::remove_pointer_t<decltype(m.target)>, ProgramIdx>)
          found.push_back(size_t(reinterpret_cast<uintptr_t>(m.target) - base));
      };
      (one(members), ...);
    });
    return found;
  }();
  return offsets;
}

// The program references of a patch record, in the order of its members.
template <class R>
void fix_program_members(ImportContext const& c, R& record) {
  char* const base = reinterpret_cast<char*>(&record);
  for (size_t at : program_member_offsets<R>()) fix_reference(c, *reinterpret_cast<ProgramIdx*>(base + at));
}

// Whether rewriting a source patch record can change it. A record whose
// program references are all empty stays as it is, and is compared and
// copied as it stands in the source; most patches name no program.
template <class R>
bool needs_rewriting(ImportContext const& c, R const& record) {
  // A source that is the target may change under the nested imports.
  if (c.src == c.tgt) return true;
  char const* const base = reinterpret_cast<char const*>(&record);
  for (size_t at : program_member_offsets<R>())
    if (!reinterpret_cast<ProgramIdx const*>(base + at)->is_empty()) return true;
  return false;
}

constexpr char const* kImportPatchFunction = "int import_patch(Project*, const Project*, int, int, int)";

void check_track_types(ImportContext const& c, char const* function) {
  IMPORT_ASSERT_TEXT(c.src->track_settings[c.track_src].type.stored == c.tgt->track_settings[c.track_tgt].type.stored,
                     "int(src->track_settings[track_src].type) == int(tgt->track_settings[track_tgt].type)",
                     function);
}

// Brings patch `patch_idx` of the source track to the target track; -1 if
// the target track has no room, the index itself if a track is unknown.
int import_patch(ImportContext const& c, int patch_idx) {
  if (c.track_src < 0 || c.track_tgt < 0) {
    std::fprintf(stderr, "warning: cannot fix patch index %d, leaving unmodified\n", patch_idx);
    return patch_idx;
  }
  if (c.track_src >= kNumTracks || c.track_tgt >= kNumTracks || patch_idx < 0 || patch_idx >= kPatchSlots)
    return patch_idx;
  check_track_types(c, kImportPatchFunction);
  Project const* src = c.src;
  int result = -1;
  bool reused = false;
  patch_memory_do(src->patch_memory[c.track_src], src->track_settings[c.track_src].type.index(),
                  [&](auto const& src_parameters, auto const& src_modulation) {
    using Parameters = std::remove_cvref_t<decltype(src_parameters[0])>;
    using Modulation = std::remove_cvref_t<decltype(src_modulation[0])>;
    LocalRecord<Parameters> local_parameters;
    LocalRecord<Modulation> local_modulation;
    Parameters const* source_parameters = &src_parameters[patch_idx];
    Modulation const* source_modulation = &src_modulation[patch_idx];
    bool const rewrite_parameters = needs_rewriting(c, *source_parameters);
    bool const rewrite_modulation = needs_rewriting(c, *source_modulation);
    if (rewrite_parameters) bytes_copy(*local_parameters.record, *source_parameters);
    if (rewrite_modulation) bytes_copy(*local_modulation.record, *source_modulation);
    if (rewrite_parameters) fix_program_members(c, *local_parameters.record);
    if (rewrite_modulation) fix_program_members(c, *local_modulation.record);
    Parameters const& parameters = rewrite_parameters ? *local_parameters.record : *source_parameters;
    Modulation const& modulation = rewrite_modulation ? *local_modulation.record : *source_modulation;

    TrackPatchMemory& target = c.tgt->patch_memory[c.track_tgt];
    patch_memory_do(target, c.tgt->track_settings[c.track_tgt].type.index(),
                    [&](auto& tgt_parameters, auto& tgt_modulation) {
      if constexpr (std::is_same_v<std::remove_cvref_t<decltype(tgt_parameters[0])>, Parameters> &&
                    std::is_same_v<std::remove_cvref_t<decltype(tgt_modulation[0])>, Modulation>) {
        // The modulation, the smaller record, is compared first.
        for (int i = 0; i < kPatchSlots && result < 0; ++i) {
          if (!bytes_equal(tgt_modulation[i], modulation) || !bytes_equal(tgt_parameters[i], parameters)) continue;
          result = i;
          reused = true;
          report_result("PatchIdx", Digits::hex, patch_idx, i, ImportOutcome::reused, c.track_tgt);
        }
        if (result < 0) {
          Parameters const& fresh_parameters = patch_record_fresh(parameters);
          Modulation const& fresh_modulation = patch_record_fresh(modulation);
          // Slot 0 is the track's default patch and is never free.
          for (int i = 1; i < kPatchSlots && result < 0; ++i) {
            if (target.names[i].data[0] != 0 || !bytes_equal(tgt_parameters[i], fresh_parameters) ||
                !bytes_equal(tgt_modulation[i], fresh_modulation))
              continue;
            result = i;
            bytes_copy(tgt_parameters[i], parameters);
            bytes_copy(tgt_modulation[i], modulation);
            bytes_copy(target.names[i], src->patch_memory[c.track_src].names[patch_idx]);
          }
        }
        if (result >= 0) make_up_name(target.names[result], src, patch_idx);
      }
    });
  });
  report_result("PatchIdx", Digits::hex, patch_idx, result < 0 ? 0 : result,
                result < 0 ? ImportOutcome::no_room : reused ? ImportOutcome::repeated : ImportOutcome::created,
                c.track_tgt);
  return result;
}

// Brings FX patch `idx` to the target. A target without a free slot ends
// the run.
int import_fx_patch(ImportContext const& c, int idx) {
  if (idx < 0 || idx >= kNumFXPatches) return idx;
  Project const* src = c.src;
  Project* tgt = c.tgt;
  FXParameters parameters;
  bytes_copy(parameters, src->fx_parameters[idx]);
  ProgramIdx callback = src->fx_srr_callback[idx];
  fix_reference(c, callback);

  int slot = -1;
  for (int i = 0; i < kNumFXPatches && slot < 0; ++i) {
    if (!bytes_equal(tgt->fx_parameters[i], parameters) || !bytes_equal(tgt->fx_srr_callback[i], callback)) continue;
    slot = i;
    report_result("FXPatchIdx", Digits::hex, idx, i, ImportOutcome::reused);
  }
  bool const reused = slot >= 0;
  if (slot < 0) {
    FXParameters const& fresh = patch_record_fresh(parameters);
    for (int i = 0; i < kNumFXPatches && slot < 0; ++i) {
      if (tgt->fx_patch_names[i].data[0] != 0 || !bytes_equal(tgt->fx_parameters[i], fresh) ||
          !tgt->fx_srr_callback[i].is_empty())
        continue;
      slot = i;
    }
    if (slot < 0) {
      import_notify({ImportOutcome::no_room, "FXPatchIdx", idx, -1, -1, -1});
      run_end_error("error: could not find empty slot for fx patch memory!\n");
    }
    bytes_copy(tgt->fx_parameters[slot], parameters);
    tgt->fx_srr_callback[slot] = callback;
    bytes_copy(tgt->fx_patch_names[slot], src->fx_patch_names[idx]);
  }
  make_up_name(tgt->fx_patch_names[slot], src, idx);
  report_result("FXPatchIdx", Digits::hex, idx, slot, reused ? ImportOutcome::repeated : ImportOutcome::created);
  return slot;
}

// A patch reference also tells the pattern in hand that it chooses its own
// patch. A result outside 0 to 63 stores patch 0.
void fix_reference(ImportContext const& c, PatchIdx& cell) {
  if (cell.is_empty()) return;
  int const result = import_patch(c, cell.value());
  cell = result >= 0 && result < kPatchSlots ? PatchIdx::from_value(result) : PatchIdx::from_value(0);
  pattern_sets_patch = true;
}

void fix_reference(ImportContext const& c, FXPatchIdx& cell) {
  if (!cell.has_number()) return;
  cell = FXPatchIdx::from_value(import_fx_patch(c, cell.value()));
}

// A pattern that names no patch plays on patch 0 of its track: the source
// track's patch 0 comes along, and the pattern names where it landed, in
// step 0's patch column or, for the types without one, as a `ptch` op code
// in the first free op code column from step 0 on.
void place_default_patch(ImportContext const& c, Pattern& p) {
  if (c.track_src < 0 || c.track_tgt < 0 || pattern_sets_patch) return;
  // A track number past the last track names no patch memory: nothing to
  // place, as for an unknown track.
  if (c.track_src >= kNumTracks || c.track_tgt >= kNumTracks) return;
  check_track_types(c, PatternKind::function);
  int const patch = import_patch(c, 0);
  if (patch <= 0) return;
  pattern_steps_do(p, [&](auto& steps) {
    auto& first = steps.data[0];
    if constexpr (requires { first.patch_idx; }) {
      IMPORT_ASSERT_TEXT(first.patch_idx[0].is_empty(), "!steps[0].patch_idx[0]", PatternKind::function);
      first.patch_idx[0] = PatchIdx::from_value(patch);
    } else {
      for (int row = 0; row < kStepsPerPattern; ++row) {
        if (row > 0)
          std::fprintf(stderr, "warning, could not find empty slot to place patch idx, trying row %d\n", row);
        for (OpCode& op : steps.data[row].op_code) {
          if (!op.type.is_empty()) continue;
          bytes_clear(op);
          op.type = OpCode::OpType::of("ptch");
          op.column_do(0, [patch](auto& cell) {
            if constexpr (std::is_same_v<std::remove_reference_t<decltype(cell)>, PatchIdx>)
              cell = PatchIdx::from_value(patch);
          });
          return;
        }
      }
      std::fprintf(stderr, "could not find empty op code slot to place patch idx %s\n", hex_text(patch).text);
    }
  });
}

// The arguments of an op code, in column order. An Address that follows
// the address space V names a program variable.
void fix_variable(ImportContext const& c, OpCode& op) {
  if (op.type.is_empty()) return;
  bool space_v = false;
  op.for_each_arg([&](auto& cell) {
    using Cell = std::remove_reference_t<decltype(cell)>;
    if constexpr (std::is_same_v<Cell, AddressSpace>) {
      space_v = !cell.is_empty() && cell.index() == 2;
    } else if constexpr (std::is_same_v<Cell, Address>) {
      if (space_v) {
        VariableIdx v = VariableIdx::from_stored(cell.stored);
        fix_reference(c, v);
        cell.stored = v.stored;
      }
    } else {
      fix_reference(c, cell);
    }
  });
}

void fix_step(ImportContext const& c, StepTypes::TableStep& step) {
  for (OpCode& op : step.op_code) fix_variable(c, op);
}

// The instruction, then the operand; an empty mnemonic skips its part.
void fix_program_row(ImportContext const& c, ProgramRow& row) {
  row.op_code_program[0].for_each_arg([&](auto& cell) { fix_reference(c, cell); });
  row.memory_address[0].for_each_arg([&](auto& cell) { fix_reference(c, cell); });
}

// Seeds a map with the entries the target already holds: each source
// entry that is in use maps to the first target entry with equal bytes.
template <class Entry, int N, class InUse>
void prematch(IndexMap<N>& map, char const* label, Entry const (&src)[N], Entry const (&tgt)[N], InUse in_use) {
  for (int i = 0; i < N; ++i) {
    if (!in_use(i)) continue;
    for (int j = 0; j < N; ++j) {
      if (!bytes_equal(src[i], tgt[j])) continue;
      map.set(i, j);
      report_result(label, Digits::hex, i, j, ImportOutcome::reused);
      break;
    }
  }
}

}  // namespace

ImportObserver set_import_observer(ImportObserver o) {
  ImportObserver const before = observer;
  observer = o;
  return before;
}

void import_notify(ImportEvent const& event) {
  if (observer) observer(event);
}

void import_reset() {
  bytes_clear(pattern_map);
  bytes_clear(table_map);
  bytes_clear(program_map);
  bytes_clear(chord_map);
  bytes_clear(mod_memory_map);
  bytes_clear(program_variable_map);
  bytes_clear(patterns_in_import_phase);
  pattern_sets_patch = false;
  open_requests.clear();
}

void import_prematch(Project const* src, Project const* tgt) {
  prematch(chord_map, "ChordMemIdx", src->chord_memory, tgt->chord_memory,
           [src](int i) { return !project_chord_is_initial(src, i); });
  prematch(program_variable_map, "VariableIdx", src->program_variables, tgt->program_variables,
           [src](int i) { return !project_program_variable_is_initial(src, i); });
}

int import_pattern(Project* tgt, Project const* src, int track_tgt, int track_src, int pattern_idx) {
  return import_record<PatternKind>(ImportContext{tgt, src, track_tgt, track_src}, pattern_idx);
}

int import_patch(Project* tgt, Project const* src, int track_tgt, int track_src, int patch_idx) {
  return import_patch(ImportContext{tgt, src, track_tgt, track_src}, patch_idx);
}

int import_fx_patch(Project* tgt, Project const* src, int track_tgt, int track_src, int fx_patch_idx) {
  return import_fx_patch(ImportContext{tgt, src, track_tgt, track_src}, fx_patch_idx);
}

}  // namespace kelvane
