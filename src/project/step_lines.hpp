#pragma once
// The step line frame shared by pattern, table, program, chord memory and
// modulation memory files: after the header, one line "%d %s %d %s\n" of
// step, field key, column and escaped value for every non-empty cell.
//
// A step record describes its fields once, in writing order, as a tuple of
// `StepField`s; the reader and the writer below walk that tuple.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <tuple>

#include "kelvane/op_code_definition.hpp"
#include "kelvane/types.hpp"
#include "project/files.hpp"
#include "settings/dialog.hpp"

namespace kelvane {

// One field of a step record: its key and its cells, an array of N columns.
template <class Step, class Cell, int N>
struct StepField {
  char const* key;
  Cell (Step::*cells)[N];
  static constexpr int columns = N;
  using cell_type = Cell;
};

template <class Step, class Cell, int N>
constexpr StepField<Step, Cell, N> step_field(char const* key, Cell (Step::*cells)[N]) {
  return {key, cells};
}

// The text of a cell in a step line, before escaping.
template <class Cell>
void format_step_cell(Cell const& cell, char* buf, size_t len) {
  std::memset(buf, 0, len);
  cell.format_string(buf, len);
}

// Field keys are shorter than this.
inline constexpr size_t kStepKeyLimit = 64;

// "%d %s %d %s\n" of a step, a field key, a column and the text of a cell,
// escaped. The line is put together here and goes to `out` in one piece.
void write_step_line(TextOut& out, int step, char const* key, int column, char const* text);

// The length of the longest field key of a step record.
template <class Step>
constexpr size_t longest_step_key() {
  return std::apply([](auto const&... fields) { return std::max({std::char_traits<char>::length(fields.key)...}); },
                    Step::fields);
}

// Writes the step lines of `count` steps: steps ascending, fields in the
// record's writing order, columns ascending, and only cells that are not
// all zero.
template <class Step>
void write_step_lines(TextOut& out, Step const* steps, int count) {
  static_assert(longest_step_key<Step>() < kStepKeyLimit);
  for (int s = 0; s < count; ++s) {
    std::apply(
        [&](auto const&... fields) {
          auto one = [&](auto const& field) {
            auto const& cells = steps[s].*(field.cells);
            for (int c = 0; c < field.columns; ++c) {
              if (bytes_zero(cells[c])) continue;
              char text[kValueTextSize];
              format_step_cell(cells[c], text, sizeof text);
              write_step_line(out, s, field.key, c, text);
            }
          };
          (one(fields), ...);
        },
        Step::fields);
  }
}

// The local version of a file with step lines: -1 until a "#version" line
// says otherwise.
inline constexpr int kNoVersion = -1;

// One step line, split and decoded; false (after its message) if the line
// is to be passed over. Applies the step range check, the older op code
// keys and the older "gmem"/"lmem" texts.
struct StepLine {
  int step;
  int column;
  char key[kLineSize];
  char value[kLineSize];
  char upgraded[16];
  char const* text;  // the value to parse: `value` or `upgraded`
};
bool split_step_line(char const* line, int step_count, StepLine* out);

// Whether two keys are equal. Keys are short: comparing them here costs
// less than a call of strcmp, and every step line compares its key with a
// few field keys.
inline bool same_key(char const* a, char const* b) {
  for (; *a == *b; ++a, ++b)
    if (*a == 0) return true;
  return false;
}

// Reads the step lines of an open file into `count` steps. Files older than
// version 1 numbered `cond_mask` columns from 1: column 0 then held a flag
// that only program rows keep (through `Step::legacy_cond_mask` where the
// record has it), and the other columns move down by one.
template <class Step>
void read_step_lines(LineReader& file, Step* steps, int count, int version) {
  StepLine l;
  while (char const* line = file.next_line(kLineSize)) {
    if (!split_step_line(line, count, &l)) continue;
    if (version < 1 && same_key(l.key, "cond_mask")) {
      if (l.column == 0) {
        unsigned flag;
        if (std::sscanf(l.text, "%x", &flag) == 1) {
          if constexpr (requires { Step::legacy_cond_mask(steps[0], 0u); })
            Step::legacy_cond_mask(steps[l.step], flag);
        }
        continue;
      }
      --l.column;
    }
    std::apply(
        [&](auto const&... fields) {
          auto one = [&](auto const& field) {
            if (!same_key(l.key, field.key)) return;
            if (l.column < 0 || l.column >= field.columns) {
              std::fputs("warning, incorrect column idx found\n", stderr);
              return;
            }
            using Cell = typename std::remove_cvref_t<decltype(field)>::cell_type;
            (steps[l.step].*(field.cells))[l.column] = Cell::parse_string(l.text);
          };
          (one(fields), ...);
        },
        Step::fields);
  }
}

// ---------------------------------------------------------------------------
// Whole files with step lines: patterns, tables, programs, chord memory and
// modulation memory.

// How far such a file was read.
enum class StepFileRead {
  missing,      // it did not open; the record was not touched
  header_only,  // it ended before its "!steps" line
  steps,        // its "!steps" line was reached
};

// Reads a file with step lines. If it opens: `reset()`, then the header
// lines: "#version" sets the local version, "!steps" ends the header, and
// every other pair goes to `offer(key, value)` (after the Chiptune rule).
// At "!steps", `read_steps(file, kind, version)` gets the rest of the file,
// with `kind` the text behind "!steps".
template <class Reset, class Offer, class ReadSteps>
StepFileRead read_step_file(std::filesystem::path const& path, Reset&& reset, Offer&& offer,
                            ReadSteps&& read_steps) {
  LineReader f;
  if (!open_for_reading(path, f)) return StepFileRead::missing;
  reset();
  int version = kNoVersion;
  char kind[kLineSize];
  bool reached_steps = false;
  settings_read_lines(f, [&](char const* key, char const* value) {
    if (std::strcmp(key, "#version") == 0) {
      std::sscanf(value, "%d", &version);
    } else if (std::strcmp(key, "!steps") == 0) {
      std::snprintf(kind, sizeof kind, "%s", value);
      reached_steps = true;
      return false;
    } else {
      offer(key, value);
    }
    return true;
  });
  if (reached_steps) read_steps(f, static_cast<char const*>(kind), version);
  return reached_steps ? StepFileRead::steps : StepFileRead::header_only;
}

// Writes a file with step lines: the version line, `write_header(file)`,
// "!steps <kind()>", `write_steps(file)`. The kind is asked for only once
// the header stands in the file. A file that cannot be opened is reported;
// false then.
template <class WriteHeader, class Kind, class WriteSteps>
bool write_step_file(std::filesystem::path const& path, WriteHeader&& write_header, Kind&& kind,
                     WriteSteps&& write_steps) {
  OutputFile f;
  if (!open_versioned_file(path, f)) {
    std::fprintf(stderr, "error: could not open \"%s\" for writing!\n", path.c_str());
    return false;
  }
  write_header(f.out);
  f.out.str("!steps ");
  f.out.str(kind());
  f.out.put('\n');
  write_steps(f.out);
  f.close();
  return true;
}

// The header of a file whose record keeps no header lines: memory files.
inline void no_header_lines(TextOut&) {}
inline void ignore_header_line(char const*, char const*) {}

}  // namespace kelvane
