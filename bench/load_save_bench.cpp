// Loads and saves a project that holds all 1296 pattern, table and program
// slots, its chord and modulation memory and every patch slot of every
// track and FX patch, and copies the same files plainly, to show what the
// text codecs cost on top of the file system.
//
// usage: load_save_bench [WORK_DIR] [ROUNDS]
// With KELVANE_BENCH_KEEP set the work directory stays, so that the saved
// project can be compared with the generated one.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "project/project.hpp"

using namespace kelvane;
namespace fs = std::filesystem;

namespace {

Project bench_project;

// A MIDI pattern with a few busy steps, written the way the tracker does.
void generate(fs::path const& dir) {
  fs::remove_all(dir);
  project_initialize(&bench_project);
  char const* notes[] = {"C-4", "E-4", "G-4", "B-4"};
  for (int i = 0; i < kNumPatterns; ++i) {
    Pattern& p = bench_project.patterns[i];
    std::snprintf(p.settings.name.data, sizeof p.settings.name.data, "pattern %d", i);
    for (int s = 0; s < kStepsPerPattern; s += 2) {
      auto& step = p.steps.midi.data[s];
      for (int c = 0; c < 4; ++c) {
        step.note[c] = Note::parse_string(notes[(s + c + i) % 4]);
        step.velocity[c] = Velocity::from_value((s * 7 + c) % 128);
      }
      step.op_code[0] = OpCode::parse_string("bpm\xb0" "120\xb0\xb0");
      step.op_code[1] = OpCode::parse_string("trns0 +5");
      step.table_idx[0] = TableIdx::from_value((i + s) % kNumTables);
      step.step_length[0] = StepLength::from_value(6);
    }
  }
  // Tables of busy rows and programs of every row, each with an operand.
  char const* instructions[] = {"loadACCUM", "aritadd", "cmp\xe0IDX_X\xf3", "call1a", "funcnfchrd", "jump"};
  char const* operands[] = {"L0a", "#   42", "T1a", "\x0d" "C-5", "\x14" "bpm", "$REG_1"};
  for (int i = 0; i < kNumTables; ++i) {
    Table& t = bench_project.tables[i];
    std::snprintf(t.settings.name.data, sizeof t.settings.name.data, "table %d", i);
    t.settings.start_callback = ProgramIdx::from_value(i);
    for (int r = 0; r < kTableRows; r += 2) {
      auto& row = t.steps[r];
      row.transpose[0] = Transpose::from_value((r + i) % 24 - 12);
      row.op_code[0] = OpCode::parse_string("streL0a7f");
      row.op_code[1] = OpCode::parse_string("Cif\xb0" "1:2");
      row.step_length[0] = StepLength::from_value(6);
      row.table_step_jump[0] = TableStepJump::from_value(r);
    }
  }
  for (int i = 0; i < kNumPrograms; ++i) {
    Program& p = bench_project.programs[i];
    std::snprintf(p.settings.name.data, sizeof p.settings.name.data, "program %d", i);
    for (int r = 0; r < kProgramRows; ++r) {
      ProgramRow& row = p.rows[r];
      row.cond_mask[0] = CondMask::from_value(r % 2);
      row.op_code_program[0] = OpCodeProgram::parse_string(instructions[(r + i) % 6]);
      row.memory_address[0] = MemoryAddress::parse_string(operands[(r * 5 + i) % 6]);
    }
  }
  for (int e = 0; e < kNumChordMemory; ++e)
    for (int n = 0; n < 4; ++n) bench_project.chord_memory[e].notes[n] = Transpose::from_value(n * 3 + e % 5);
  for (int e = 0; e < kNumModulationMemory; ++e)
    for (int c = 0; c < kModulationColumns; ++c) {
      bench_project.modulation_memory[e].modulator_speed[c] = ModulatorSpeed::from_value(e + c);
      bench_project.modulation_memory[e].modulator_waveform[c] = ModulatorWaveform::from_index(c);
    }
  // Patch memory at full use: every slot of every track named, the
  // modulation of the types that have one changed, every FX patch used.
  // Track 0 stays MIDI for the patterns of its sequencer column.
  for (int t = 1; t < kNumTracks; ++t) {
    bench_project.track_settings[t].type = PatternType::from_index(t % PatternType::count());
    project_reset_patch_memory(&bench_project, t);
  }
  for (int t = 0; t < kNumTracks; ++t)
    project_track_do_patch_mod(&bench_project, t, [t](auto&, auto& modulation, auto& names) {
      for (int i = 0; i < kPatchSlots; ++i) {
        std::snprintf(names[i].data, sizeof names[i].data, "patch %d.%d", t, i);
        dialog_set_value(modulation[i], "depth\x1A" "filter", "40");
        dialog_set_value(modulation[i], "depth\x1A" "filter[0]", "40");
      }
    });
  for (int i = 0; i < kNumFXPatches; ++i) {
    std::snprintf(bench_project.fx_patch_names[i].data, sizeof bench_project.fx_patch_names[i].data, "fx %d", i);
    bench_project.fx_srr_callback[i] = ProgramIdx::from_value(i);
  }
  bench_project.allocated_patterns = kNumPatterns;
  bench_project.allocated_tables = kNumTables;
  bench_project.allocated_programs = kNumPrograms;
  for (int line = 0; line < kSequencerLines; ++line)
    bench_project.sequencer[line][0] = PatternIdx::from_value(line);
  project_save(&bench_project, dir.c_str());
}

// Reads every file below `from` and writes it below `to`.
void plain_copy(fs::path const& from, fs::path const& to) {
  std::vector<char> buffer(1 << 20);
  for (auto const& entry : fs::recursive_directory_iterator(from)) {
    fs::path const target = to / fs::relative(entry.path(), from);
    if (entry.is_directory()) {
      fs::create_directories(target);
      continue;
    }
    FILE* in = std::fopen(entry.path().c_str(), "r");
    FILE* out = std::fopen(target.c_str(), "w+");
    size_t n;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), in)) > 0) std::fwrite(buffer.data(), 1, n, out);
    std::fclose(in);
    std::fclose(out);
  }
}

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  fs::path const work = argc > 1 ? fs::path(argv[1]) : fs::temp_directory_path() / "kelvane_load_save_bench";
  int const rounds = argc > 2 ? std::atoi(argv[2]) : 5;
  fs::path const source = work / "source";
  fs::path const saved = work / "saved";
  fs::path const copied = work / "copied";
  generate(source);

  uintmax_t bytes = 0;
  int files = 0;
  for (auto const& entry : fs::recursive_directory_iterator(source))
    if (entry.is_regular_file()) {
      bytes += entry.file_size();
      ++files;
    }
  std::printf("project: %d files, %ju bytes, %d patterns, %d tables, %d programs\n", files, bytes, kNumPatterns,
              kNumTables, kNumPrograms);

  double best_load_save = 1e9, best_load = 1e9, best_copy = 1e9;
  for (int r = 0; r < rounds; ++r) {
    fs::remove_all(saved);
    auto start = std::chrono::steady_clock::now();
    project_load(&bench_project, source.c_str());
    double const load = seconds_since(start);
    project_save(&bench_project, saved.c_str());
    double const load_save = seconds_since(start);
    if (bench_project.allocated_patterns != kNumPatterns || bench_project.allocated_tables != kNumTables ||
        bench_project.allocated_programs != kNumPrograms) {
      std::fprintf(stderr, "load found %d patterns, %d tables, %d programs\n", bench_project.allocated_patterns,
                   bench_project.allocated_tables, bench_project.allocated_programs);
      return 1;
    }

    fs::remove_all(copied);
    start = std::chrono::steady_clock::now();
    plain_copy(source, copied);
    double const copy = seconds_since(start);

    best_load = std::min(best_load, load);
    best_load_save = std::min(best_load_save, load_save);
    best_copy = std::min(best_copy, copy);
  }
  std::printf("load:        %8.3f ms\n", best_load * 1e3);
  std::printf("load + save: %8.3f ms\n", best_load_save * 1e3);
  std::printf("plain copy:  %8.3f ms\n", best_copy * 1e3);
  std::printf("ratio (load + save) / copy: %.2f\n", best_load_save / best_copy);
  if (std::getenv("KELVANE_BENCH_KEEP") == nullptr) fs::remove_all(work);
  return 0;
}
