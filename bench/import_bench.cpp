// Imports a whole track: 256 sequencer cells whose patterns pull in tables,
// which pull in programs, into an empty target, and saves the target. The
// import state lives for the whole process, so each run measures one
// import.
//
// usage: import_bench [WORK_DIR]
// WORK_DIR defaults to one in /dev/shm (tmpfs) where there is one: a disk
// would time its own writeback.

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>

#include "import/import.hpp"
#include "project/project.hpp"

using namespace kelvane;
namespace fs = std::filesystem;

namespace {

Project src;
Project tgt;

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// 256 MIDI patterns on track 0, each using four of 512 tables; each table
// calls one of 256 programs and has a start callback; the programs name
// chord memory entries and program variables.
void generate(fs::path const& dir) {
  project_initialize(&src);
  for (int i = 0; i < kSequencerLines; ++i) {
    Pattern& p = src.patterns[i];
    std::snprintf(p.settings.name.data, sizeof p.settings.name.data, "pattern %d", i);
    for (int s = 0; s < kStepsPerPattern; s += 4) {
      auto& step = p.steps.midi.data[s];
      step.note[0] = Note::from_value(48 + s % 24);
      step.table_idx[0] = TableIdx::from_value((i * 2 + s / 16) % 512);
      step.op_code[0] = OpCode::parse_string("call00");
      step.op_code[0].column_do(0, [&](auto& cell) {
        if constexpr (std::is_same_v<std::remove_cvref_t<decltype(cell)>, ProgramIdx>)
          cell = ProgramIdx::from_value((i + s) % 256);
      });
    }
    p.settings.start_callback = ProgramIdx::from_value(i % 256);
    src.sequencer[i][0] = PatternIdx::from_value(i);
  }
  for (int t = 0; t < 512; ++t) {
    Table& table = src.tables[t];
    std::snprintf(table.settings.name.data, sizeof table.settings.name.data, "table %d", t);
    table.settings.start_callback = ProgramIdx::from_value(t % 256);
    for (int r = 0; r < kTableRows; r += 4) {
      table.steps[r].op_code[0] = OpCode::parse_string("streL0a7f");
      table.steps[r].transpose[0] = Transpose::from_value(r % 12);
    }
  }
  for (int g = 0; g < 256; ++g) {
    Program& program = src.programs[g];
    std::snprintf(program.settings.name.data, sizeof program.settings.name.data, "program %d", g);
    for (int r = 0; r < kProgramRows; r += 2) {
      program.rows[r].op_code_program[0] = OpCodeProgram::parse_string("loadACCUM");
      program.rows[r].memory_address[0] = MemoryAddress::parse_string(r % 4 ? "c05" : "\x7f" "03");
    }
  }
  src.chord_memory[5].notes[0] = Transpose::from_value(7);
  std::snprintf(src.program_variables[3].name.data, sizeof src.program_variables[3].name.data, "var");
  src.allocated_patterns = kSequencerLines;
  src.allocated_tables = 512;
  src.allocated_programs = 256;
  project_save(&src, (dir / "source").c_str());
  fs::create_directories(dir / "target");
  std::FILE* sequencer = std::fopen((dir / "target" / "sequencer.txt").c_str(), "w");
  if (sequencer) std::fclose(sequencer);
}

}  // namespace

int main(int argc, char** argv) {
  fs::path const work = argc > 1 ? fs::path(argv[1]) : (fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path()) / "kelvane_import_bench";
  fs::remove_all(work);
  generate(work);

  auto start = std::chrono::steady_clock::now();
  project_load(&src, (work / "source").c_str());
  project_load(&tgt, (work / "target").c_str());
  double const load = seconds_since(start);

  // The progress lines go nowhere while the import is timed.
  std::fflush(stdout);
  int const saved_stdout = dup(1);
  int const null_fd = open("/dev/null", O_WRONLY);
  dup2(null_fd, 1);
  start = std::chrono::steady_clock::now();
  for (int line = 0; line < kSequencerLines; ++line)
    tgt.sequencer[line][0] = PatternIdx::from_value(import_pattern(&tgt, &src, 0, 0, src.sequencer[line][0].value()));
  double const import = seconds_since(start);
  start = std::chrono::steady_clock::now();
  project_save(&tgt, (work / "target").c_str());
  double const save = seconds_since(start);
  std::fflush(stdout);
  dup2(saved_stdout, 1);
  close(null_fd);
  close(saved_stdout);

  std::printf("imported %d patterns, %d tables, %d programs\n", tgt.allocated_patterns,
               tgt.allocated_tables, tgt.allocated_programs);
  std::printf("load both:   %8.3f ms\n", load * 1e3);
  std::printf("import:      %8.3f ms\n", import * 1e3);
  std::printf("save target: %8.3f ms\n", save * 1e3);
  fs::remove_all(work);
  return tgt.allocated_patterns == kSequencerLines ? 0 : 1;
}
