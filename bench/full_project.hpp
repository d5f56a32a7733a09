#pragma once
// A project at full capacity, for the benchmarks: all 1296 pattern, table
// and program slots busy, the sixteen tracks of mixed types with all 64
// patch slots named and their modulation changed, every FX patch, every
// chord and modulation memory entry and every program variable in use.
//
// Track kSourceTrack (a OneShot track) holds patterns 0 to 255 in its
// sequencer column; their steps name tables, programs, patches, FX
// patches, chord and modulation memory and program variables, so that a
// whole-track import of it pulls in every kind. The other patterns lie on
// the other tracks, each of its track's type.

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <tuple>

#include "project/project.hpp"

namespace kelvane::bench {

inline constexpr int kSourceTrack = 5;
inline constexpr int kSourcePatterns = kSequencerLines;

// Two base-36 digits of a slot.
struct Digits {
  char text[3];
};
inline Digits zz(int slot) {
  Digits d;
  zz_digits(d.text, slot % kZZLimit);
  d.text[2] = 0;
  return d;
}

// The text a step cell of `key` is given in pattern or table `slot`, step
// `s`, column `c`. Op codes go round the references of every kind.
inline void step_cell_text(char* out, size_t size, char const* key, int slot, int s, int c) {
  int const k = slot + s + c;
  if (std::strcmp(key, "note") == 0) {
    char const* notes[] = {"C-4", "E-4", "G-4", "A#3"};
    std::snprintf(out, size, "%s", notes[k % 4]);
  } else if (std::strcmp(key, "velocity") == 0 || std::strcmp(key, "val_8bit") == 0) {
    std::snprintf(out, size, "%02x", (s * 7 + c) % 128);
  } else if (std::strcmp(key, "sustain") == 0) {
    std::snprintf(out, size, "1");
  } else if (std::strcmp(key, "transpose") == 0) {
    std::snprintf(out, size, "%+3d", k % 24 - 12);
  } else if (std::strcmp(key, "break_slice") == 0) {
    std::snprintf(out, size, "%x", k % 16);
  } else if (std::strcmp(key, "break_beat_idx") == 0) {
    std::snprintf(out, size, "amen");
  } else if (std::strcmp(key, "trigger") == 0) {
    std::snprintf(out, size, "\x04");
  } else if (std::strcmp(key, "step_length") == 0) {
    std::snprintf(out, size, "06");
  } else if (std::strcmp(key, "table_step_jump") == 0) {
    std::snprintf(out, size, "%02x", s);
  } else if (std::strcmp(key, "patch_idx") == 0) {
    std::snprintf(out, size, "%02x", k % (kPatchSlots - 1) + 1);
  } else if (std::strcmp(key, "table_idx") == 0) {
    std::snprintf(out, size, "%s", zz(slot * 4 + k % 4).text);
  } else if (std::strcmp(key, "op_code") == 0) {
    int const e = k % 64;
    switch (k % 8) {
      case 0: std::snprintf(out, size, "call%s", zz(slot * 4 + c % 4).text); break;
      case 1: std::snprintf(out, size, "chrd0%02x", e); break;
      case 2: std::snprintf(out, size, "ptch%02x", k % (kPatchSlots - 1) + 1); break;
      case 3: std::snprintf(out, size, "fxpt%02x", e); break;
      case 4: std::snprintf(out, size, "mmem%02x", e); break;
      case 5: std::snprintf(out, size, "streV%02xff", e); break;
      case 6: std::snprintf(out, size, "bpm\xb0" "120\xb0\xb0"); break;
      default: std::snprintf(out, size, "trns0 +5"); break;
    }
  } else {
    out[0] = 0;
  }
}

// Fills every other step of `steps` with every field and column.
template <class Step, int N>
void fill_steps(Step (&steps)[N], int slot) {
  for (int s = 0; s < N; s += 2)
    std::apply(
        [&](auto const&... fields) {
          auto one = [&](auto const& field) {
            using Cell = typename std::remove_cvref_t<decltype(field)>::cell_type;
            for (int c = 0; c < field.columns; ++c) {
              char text[64];
              step_cell_text(text, sizeof text, field.key, slot, s, c);
              (steps[s].*(field.cells))[c] = Cell::parse_string(text);
            }
          };
          (one(fields), ...);
        },
        Step::fields);
}

// Sets the track types: track t is of type t % 9, track 0 MIDI.
inline void set_track_types(Project* project) {
  for (int t = 0; t < kNumTracks; ++t) {
    project->track_settings[t].type = PatternType::from_index(t % PatternType::count());
    project_reset_patch_memory(project, t);
  }
}

// The track a pattern lies on.
inline int pattern_track(int i) {
  if (i < kSourcePatterns) return kSourceTrack;
  int const t = i % kNumTracks;
  return t == kSourceTrack ? 0 : t;
}

inline void fill_full_project(Project* project) {
  project_initialize(project);
  set_track_types(project);
  int next_line[kNumTracks] = {};
  for (int i = 0; i < kNumPatterns; ++i) {
    Pattern& p = project->patterns[i];
    pattern_initialize(&p);
    int const t = pattern_track(i);
    p.type = project->track_settings[t].type;
    std::snprintf(p.settings.name.data, sizeof p.settings.name.data, "pattern %d", i);
    p.settings.start_callback = ProgramIdx::from_value((i * 4 + 3) % kNumPrograms);
    pattern_steps_do(p, [i](auto& steps) { fill_steps(steps.data, i); });
    if (next_line[t] < kSequencerLines) project->sequencer[next_line[t]++][t] = PatternIdx::from_value(i);
  }
  for (int i = 0; i < kNumTables; ++i) {
    Table& table = project->tables[i];
    table_reset(&table);
    std::snprintf(table.settings.name.data, sizeof table.settings.name.data, "table %d", i);
    table.settings.start_callback = ProgramIdx::from_value(i);
    fill_steps(table.steps, i);
  }
  char const* instructions[] = {"loadACCUM", "aritadd", "cmp\xe0IDX_X\xf3", "funcnfchrd", "jump"};
  // The last 64 programs are the FX patches' callbacks: they name no FX
  // patch, so that no program reaches itself.
  char const* operands[] = {"c%02x", "\x7f%02x", "L%02x", "$REG_1", "p%02x", "f%02x"};
  int constexpr kCallbacks = kNumPrograms - kNumFXPatches;
  for (int i = 0; i < kNumPrograms; ++i) {
    Program& program = project->programs[i];
    program_reset(&program);
    std::snprintf(program.settings.name.data, sizeof program.settings.name.data, "program %d", i);
    for (int r = 0; r < kProgramRows; ++r) {
      ProgramRow& row = program.rows[r];
      char operand[16];
      std::snprintf(operand, sizeof operand, operands[(r + i) % (i < kCallbacks ? 6 : 4)], (r + i) % 63 + 1);
      row.cond_mask[0] = CondMask::from_value(r % 2);
      row.op_code_program[0] = OpCodeProgram::parse_string(instructions[(r + i) % 5]);
      row.memory_address[0] = MemoryAddress::parse_string(operand);
    }
  }
  for (int e = 0; e < kNumChordMemory; ++e) {
    project->chord_memory[e].num_chord_notes[0] = NumChordNotes::from_number(4);
    for (int n = 0; n < 4; ++n) project->chord_memory[e].notes[n] = Transpose::from_value(n * 3 + e % 5);
  }
  for (int e = 0; e < kNumModulationMemory; ++e)
    for (int c = 0; c < kModulationColumns; ++c) {
      project->modulation_memory[e].modulator_speed[c] = ModulatorSpeed::from_value(e % 16 + c);
      project->modulation_memory[e].modulator_waveform[c] = ModulatorWaveform::from_index(c);
    }
  for (int v = 0; v < kNumProgramVariables; ++v)
    std::snprintf(project->program_variables[v].name.data, sizeof project->program_variables[v].name.data,
                  "var %d", v);
  for (int t = 0; t < kNumTracks; ++t)
    project_track_do_patch_mod(project, t, [t](auto&, auto& modulation, auto& names) {
      for (int i = 0; i < kPatchSlots; ++i) {
        std::snprintf(names[i].data, sizeof names[i].data, "patch %d.%d", t, i);
        dialog_set_value(modulation[i], "depth\x1A" "filter", "40");
        dialog_set_value(modulation[i], "depth\x1A" "filter[0]", "40");
      }
    });
  for (int i = 0; i < kNumFXPatches; ++i) {
    std::snprintf(project->fx_patch_names[i].data, sizeof project->fx_patch_names[i].data, "fx %d", i);
    project->fx_srr_callback[i] = ProgramIdx::from_value(kCallbacks + i);
  }
  project->allocated_patterns = kNumPatterns;
  project->allocated_tables = kNumTables;
  project->allocated_programs = kNumPrograms;
}

// Writes the full project to `dir`, through `scratch`.
inline void generate_full_project(Project* scratch, std::filesystem::path const& dir) {
  std::filesystem::remove_all(dir);
  fill_full_project(scratch);
  project_save(scratch, dir.c_str());
}

// A target for the whole-track import: the same track types, nothing else.
inline void generate_target_project(Project* scratch, std::filesystem::path const& dir) {
  std::filesystem::remove_all(dir);
  project_initialize(scratch);
  set_track_types(scratch);
  project_save(scratch, dir.c_str());
}

// How many files a tree holds, and their bytes.
struct TreeSize {
  int files;
  uintmax_t bytes;
};
inline TreeSize tree_size(std::filesystem::path const& dir) {
  TreeSize size{0, 0};
  for (auto const& entry : std::filesystem::recursive_directory_iterator(dir))
    if (entry.is_regular_file()) {
      size.bytes += entry.file_size();
      ++size.files;
    }
  return size;
}

}  // namespace kelvane::bench
