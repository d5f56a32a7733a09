// Table and program files: a header of settings lines ending in
// "!steps table" or "!steps program", then the step lines of the rows.

#include "project/table_program.hpp"

#include <cstring>

#include "project/project.hpp"

namespace kelvane {

void table_reset(Table* table) {
  bytes_clear(*table);
  dialog_set_default(table->settings);
}

void program_reset(Program* program) {
  bytes_clear(*program);
  dialog_set_default(program->settings);
}

namespace {

// A table or a program: its settings, then `rows`. The settings' name may
// lack a terminator and then runs on into the bytes of the slot behind it.
template <class Slot, class Row, int N>
bool save_slot(Slot* slot, Row (Slot::*rows)[N], char const* kind, std::filesystem::path const& file) {
  return write_step_file(
      file,
      [slot](TextOut& f) { dialog_append_to_file(slot->settings, f, reinterpret_cast<char const*>(slot + 1)); },
      [kind] { return kind; }, [slot, rows](TextOut& f) { write_step_lines(f, slot->*rows, N); });
}

// The header goes to the settings, but for `step_mute`, which only a
// pattern has and which is passed over here.
template <class Slot, class Row, int N, class Reset>
StepFileRead load_slot(Slot* slot, Row (Slot::*rows)[N], Reset reset, std::filesystem::path const& file) {
  return read_step_file(
      file, [slot, reset] { reset(slot); },
      [slot](char const* key, char const* value) {
        if (std::strcmp(key, "step_mute") != 0) dialog_set_value(slot->settings, key, value);
      },
      [slot, rows](LineReader& f, char const*, int version) { read_step_lines(f, slot->*rows, N, version); });
}

}  // namespace

bool project_save_table(Table* table, std::filesystem::path const& file) {
  return save_slot(table, &Table::steps, "table", file);
}
bool project_save_program(Program* program, std::filesystem::path const& file) {
  return save_slot(program, &Program::rows, "program", file);
}
StepFileRead project_load_table(Table* table, std::filesystem::path const& file) {
  return load_slot(table, &Table::steps, table_reset, file);
}
StepFileRead project_load_program(Program* program, std::filesystem::path const& file) {
  return load_slot(program, &Program::rows, program_reset, file);
}

// Chord memory and modulation memory: no header lines, and the text behind
// "!steps" is not looked at. A file that opens clears the whole memory.
template <class Entry, int N>
static bool save_memory(Entry const (&entries)[N], char const* kind, std::filesystem::path const& file) {
  return write_step_file(file, no_header_lines, [kind] { return kind; },
                         [&entries](TextOut& f) { write_step_lines(f, entries, N); });
}
template <class Entry, int N>
static void load_memory(Entry (&entries)[N], std::filesystem::path const& file) {
  read_step_file(
      file, [&entries] { bytes_clear(entries); }, ignore_header_line,
      [&entries](LineReader& f, char const*, int version) { read_step_lines(f, entries, N, version); });
}

void project_save_memory_files(Project const* project, std::filesystem::path const& dir) {
  save_memory(project->chord_memory, "chord", dir / "chord_memory.txt");
  save_memory(project->modulation_memory, "modulation", dir / "modulation_memory.txt");
}

void project_load_memory_files(Project* project, std::filesystem::path const& dir) {
  load_memory(project->chord_memory, dir / "chord_memory.txt");
  load_memory(project->modulation_memory, dir / "modulation_memory.txt");
}

}  // namespace kelvane
