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

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace kelvane {

// The standard assertion, after what the run printed so far has reached its
// stream: the progress lines tell which request failed. It stays on in every
// build type and names the unit of the driver, as the tracker's tools do.
extern "C" [[noreturn]] void __assert_fail(char const* expr, char const* file, unsigned line,
                                           char const* function) noexcept;

namespace {

[[noreturn]] void import_assert_fail(char const* expr, unsigned line, char const* function) {
  std::fflush(stdout);
  __assert_fail(expr, "src/project_manager.cpp", line, function);
}

// The checks of a kind's import name the import function of the kind.
#define IMPORT_ASSERT_IN(expr, function) ((expr) ? void(0) : import_assert_fail(#expr, __LINE__, function))

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
  char text[8];
};
IdxText zz_text(int idx) {
  IdxText t{};
  format_string_zz_num(t.text, sizeof t.text, PatternIdx::from_value(idx));
  return t;
}
IdxText hex_text(int idx) {
  IdxText t{};
  std::snprintf(t.text, sizeof t.text, "%02x", unsigned(idx));
  return t;
}

void print_result(char const* label, IdxText from, IdxText to) {
  std::printf("%s %s -> %s\n", label, from.text, to.text);
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
        std::fflush(stdout);
        std::fprintf(stderr,
                     "error: %s %s is requested again while its own import is still open: tables and "
                     "programs refer to each other in a cycle that cannot end, nothing is saved\n",
                     kind_word(kind), zz_text(idx).text);
        std::exit(1);
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
    pattern_map.set(idx, n);
    print_result(label, zz_text(idx), zz_text(n));
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
  static bool finish(ImportContext const& c, int idx, Pattern const& p, int reserved) {
    if (reserved >= 0) bytes_copy(c.tgt->patterns[reserved], p);
    return pattern_map.contains(idx);
  }

  static void found_message() {}

  // The count has no upper bound in the tracker's format; a target that is
  // full ends the run here rather than writing past the slots.
  static int take_slot(Project* tgt) {
    IMPORT_ASSERT_IN(tgt->allocated_patterns < kNumPatterns, function);
    return tgt->allocated_patterns++;
  }
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
  static bool finish(ImportContext const&, int, Table const&, int) { return false; }
  static void found_message() { std::puts("found identical table after fixing, using this one"); }
  static int take_slot(Project* tgt) {
    IMPORT_ASSERT_IN(tgt->allocated_tables < kNumTables, function);
    return tgt->allocated_tables++;
  }
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
  static bool finish(ImportContext const&, int, Program const&, int) { return false; }
  static void found_message() {}
  static int take_slot(Project* tgt) {
    IMPORT_ASSERT_IN(tgt->allocated_programs < kNumPrograms, function);
    return tgt->allocated_programs++;
  }
};

template <class K>
int import_record(ImportContext const& c, int idx) {
  using R = typename K::Record;
  std::printf("requesting %s %s\n", kind_word(K::kind), zz_text(idx).text);
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
  if (found >= 0) {
    K::found_message();
  } else {
    found = K::take_slot(c.tgt);
    bytes_copy(target[found], record);
  }
  map.set(idx, found);
  print_result(K::label, zz_text(idx), zz_text(found));
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
    print_result(label, hex_text(idx), hex_text(slot));
    cell = Cell::from_value(slot);
    return;
  }
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

// Patches and FX patches come along with the patch import; until then a
// patch reference keeps its index and tells the pattern that it chooses
// its own patch.
void fix_reference(ImportContext const&, PatchIdx& cell) {
  if (cell.is_empty()) return;
  pattern_sets_patch = true;
}
void fix_reference(ImportContext const&, FXPatchIdx&) {}

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
      print_result(label, hex_text(i), hex_text(j));
      break;
    }
  }
}

}  // namespace

void import_prematch(Project const* src, Project const* tgt) {
  prematch(chord_map, "ChordMemIdx", src->chord_memory, tgt->chord_memory,
           [src](int i) { return !project_chord_is_initial(src, i); });
  prematch(program_variable_map, "VariableIdx", src->program_variables, tgt->program_variables,
           [src](int i) { return !project_program_variable_is_initial(src, i); });
}

int import_pattern(Project* tgt, Project const* src, int track_tgt, int track_src, int pattern_idx) {
  return import_record<PatternKind>(ImportContext{tgt, src, track_tgt, track_src}, pattern_idx);
}

}  // namespace kelvane
