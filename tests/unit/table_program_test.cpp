// Table and program slots, their files, and the chord and modulation
// memory files: what a slot starts as, the exact text the writers give, and
// what the readers make of older and broken lines.

#include <gtest/gtest.h>

#include "scratch_dir.hpp"
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "project/project.hpp"

using namespace kelvane;
namespace fs = std::filesystem;

namespace {

// Records far too large for a stack, as in the tool itself.
Project project;
Table table;
Program program;

fs::path scratch_file(char const* name) {
  fs::path const dir = unit_test_scratch_root() / "table_program";
  fs::create_directories(dir);
  return dir / name;
}

void write(fs::path const& file, std::string const& text) { std::ofstream(file, std::ios::binary) << text; }

std::string read(fs::path const& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// What the table writer gives for `t`.
std::string table_text(Table& t) {
  fs::path const file = scratch_file("table.txt");
  EXPECT_TRUE(project_save_table(&t, file));
  return read(file);
}

std::string program_text(Program& p) {
  fs::path const file = scratch_file("program.txt");
  EXPECT_TRUE(project_save_program(&p, file));
  return read(file);
}

// Reads `text` as the file of a slot; what the reader printed on stderr.
template <class Slot, class Load>
std::string load_text(Slot* slot, Load load, std::string const& text, StepFileRead* read_result) {
  fs::path const file = scratch_file("slot_in.txt");
  write(file, text);
  testing::internal::CaptureStderr();
  StepFileRead const r = load(slot, file);
  if (read_result) *read_result = r;
  return testing::internal::GetCapturedStderr();
}
std::string load_program_text(std::string const& text, StepFileRead* read_result = nullptr) {
  return load_text(&program, project_load_program, text, read_result);
}
std::string load_table_text(std::string const& text, StepFileRead* read_result = nullptr) {
  return load_text(&table, project_load_table, text, read_result);
}

constexpr char kResetTableHeader[] =
    "#version 1\n"
    "trigger_mode table_clock\n"
    "speed 6\n"
    "modulator_idx 0\n"
    "note_on_reset 0\n"
    "address_space L\n"
    "address 00\n"
    "reset 1\n"
    "start_callback \\xf9\\xf9\n"
    "stop_callback \\xf9\\xf9\n"
    "transpose_callback \\xf9\\xf9\n";

}  // namespace

TEST(TableSlot, InitialAndResetAreTheSame) {
  project_initialize(&project);
  table_reset(&table);
  EXPECT_EQ(std::memcmp(&table, &project.tables[0], sizeof(Table)), 0);
  EXPECT_EQ(std::memcmp(&project.tables[0], &project.tables[kNumTables - 1], sizeof(Table)), 0);
  EXPECT_EQ(project.tables[5].settings.speed.value(), 6);
  EXPECT_EQ(project.tables[5].settings.reset.value(), 1);
  EXPECT_EQ(project.tables[5].settings.trigger_mode.index(), 0);
  EXPECT_EQ(project.tables[5].settings.address_space.index(), 0);
}

TEST(TableSlot, ResetTableWritesNoEmptyTextForItsSettings) {
  table_reset(&table);
  // Every member with a default holds a number or a name, so neither the
  // pad run of an empty trigger mode nor an empty decimal place appears;
  // only the callbacks, which have no default, are empty.
  EXPECT_EQ(table_text(table), std::string(kResetTableHeader) + "name \n!steps table\n");
}

TEST(TableSlot, FullNameRunsOnIntoSpeed) {
  table_reset(&table);
  std::memcpy(table.settings.name.data, "abcdefghijklmnopqrstuvwxyz012345", 32);
  EXPECT_EQ(table_text(table),
            std::string(kResetTableHeader) + "name abcdefghijklmnopqrstuvwxyz012345\\x06\n!steps table\n");
  // The reader takes the 32 bytes and drops the byte of speed.
  Table const written = table;
  EXPECT_EQ(load_table_text(read(scratch_file("table.txt"))), "");
  EXPECT_EQ(std::memcmp(&written, &table, sizeof(Table)), 0);
}

TEST(TableSlot, StepJumpZeroIsWrittenEmptyIsNot) {
  table_reset(&table);
  table.steps[2].table_step_jump[0] = TableStepJump::from_value(0);
  table.steps[3].table_step_jump[0] = TableStepJump::empty_cell();
  table.steps[3].step_length[0] = StepLength::from_value(0x0c);
  EXPECT_EQ(table_text(table), std::string(kResetTableHeader) +
                                   "name \n!steps table\n"
                                   "2 table_step_jump 0 00\n"
                                   "3 step_length 0 0c\n");
}

TEST(ProgramSlot, ResetIsDecAndNoRows) {
  project_initialize(&project);
  program_reset(&program);
  EXPECT_EQ(std::memcmp(&program, &project.programs[0], sizeof(Program)), 0);
  EXPECT_EQ(program.settings.mem_display_format.index(), 0);
  EXPECT_EQ(program_text(program), "#version 1\nname \nmem_display_format dec\n!steps program\n");
}

TEST(ProgramSlot, FullNameRunsOnIntoTheDisplayFormat) {
  program_reset(&program);
  std::memcpy(program.settings.name.data, "abcdefghijklmnopqrstuvwxyz012345", 32);
  program.settings.mem_display_format = MemoryDisplayFormat::from_index(1);
  EXPECT_EQ(program_text(program),
            "#version 1\nname abcdefghijklmnopqrstuvwxyz012345\\x81\nmem_display_format hex\n!steps program\n");
  Program const written = program;
  EXPECT_EQ(load_program_text(read(scratch_file("program.txt"))), "");
  EXPECT_EQ(std::memcmp(&written, &program, sizeof(Program)), 0);
}

TEST(ProgramSlot, RowFieldsInWritingOrder) {
  program_reset(&program);
  ProgramRow& row = program.rows[0];
  row.cond_mask[1] = CondMask::from_value(1);
  row.line_disable[0] = LineDisable::set_cell();
  row.memory_address[0] = MemoryAddress::parse_string("L0a");
  row.op_code_program[0] = OpCodeProgram::parse_string("loadACCUM");
  program.rows[63].cond_mask[0] = CondMask::from_value(0);
  EXPECT_EQ(program_text(program),
            "#version 1\nname \nmem_display_format dec\n!steps program\n"
            "0 cond_mask 1 1\n"
            "0 line_disable 0 #\n"
            "0 memory_address 0 L0a\\xb0\\xb0\\xb0\n"
            "0 op_code_program 0 loadACCUM\\xb0\n"
            "63 cond_mask 0 0\n");
}

TEST(ProgramFile, VersionOneKeepsLineDisable) {
  program_reset(&program);
  program.rows[4].line_disable[0] = LineDisable::set_cell();
  program.rows[4].cond_mask[0] = CondMask::from_value(1);
  Program const written = program;
  std::string const text = program_text(program);
  EXPECT_EQ(load_program_text(text), "");
  EXPECT_EQ(std::memcmp(&written, &program, sizeof(Program)), 0);
}

TEST(ProgramFile, OlderFormMovesCondMaskAndLineDisable) {
  // No #version line: column 0 of cond_mask was the switch, columns 1 and
  // 2 are today's 0 and 1, column 3 falls outside.
  std::string const err = load_program_text(
      "name old\n!steps program\n"
      "1 cond_mask 0 1\n"
      "2 cond_mask 0 0\n"
      "3 cond_mask 0 1f\n"
      "4 cond_mask 1 1\n"
      "4 cond_mask 2 1\n"
      "5 cond_mask 3 1\n"
      "6 line_disable 0 x\n");
  EXPECT_EQ(err, "warning, incorrect column idx found\n");
  EXPECT_TRUE(program.rows[1].line_disable[0].is_set());
  EXPECT_TRUE(bytes_zero(program.rows[1].cond_mask));
  EXPECT_TRUE(bytes_zero(program.rows[2]));
  EXPECT_TRUE(bytes_zero(program.rows[3]));
  EXPECT_EQ(program.rows[4].cond_mask[0].value(), 1);
  EXPECT_EQ(program.rows[4].cond_mask[1].value(), 1);
  EXPECT_TRUE(bytes_zero(program.rows[5]));
  EXPECT_TRUE(bytes_zero(program.rows[6]));
  // Version 0 is older too.
  load_program_text("#version 0\n!steps program\n7 cond_mask 0 1\n");
  EXPECT_TRUE(program.rows[7].line_disable[0].is_set());
  // Version 1 takes column 0 as it is.
  load_program_text("#version 1\n!steps program\n7 cond_mask 0 1\n");
  EXPECT_FALSE(program.rows[7].line_disable[0].is_set());
  EXPECT_EQ(program.rows[7].cond_mask[0].value(), 1);
}

TEST(ProgramFile, CondMaskValues) {
  load_program_text("#version 1\n!steps program\n0 cond_mask 0 2\n1 cond_mask 1 zz\n2 line_disable 0 #x\n");
  EXPECT_EQ(program.rows[0].cond_mask[0].stored, CondMask::from_value(0).stored);  // larger gives 0
  EXPECT_TRUE(program.rows[1].cond_mask[1].is_empty());                           // no number: empty
  EXPECT_TRUE(program.rows[2].line_disable[0].is_set());                          // only the first byte counts
}

TEST(ProgramFile, TransposeIsNoFieldOfARow) {
  std::string const err = load_program_text("#version 1\n!steps program\n0 transpose 1 +5\n0 note 9 C-4\n");
  EXPECT_EQ(err, "");
  EXPECT_TRUE(bytes_zero(program.rows));
}

TEST(ProgramFile, DisplayFormatKeyAndHeaderRules) {
  StepFileRead r;
  load_program_text("#version 1\nmemory_display_format hex\nmem_display_format nope\n!steps program\n", &r);
  EXPECT_EQ(r, StepFileRead::steps);
  EXPECT_EQ(program.settings.mem_display_format.index(), 0);
  load_program_text("#version 1\nmem_display_format note\nname a\\x20b\n", &r);
  EXPECT_EQ(r, StepFileRead::header_only);
  EXPECT_EQ(program.settings.mem_display_format.index(), 2);
  EXPECT_STREQ(program.settings.name.data, "a b");
}

TEST(ProgramFile, MissingFileLeavesTheSlot) {
  std::memset(&program, 0, sizeof program);
  program.rows[0].cond_mask[0] = CondMask::from_value(1);
  EXPECT_EQ(project_load_program(&program, scratch_file("no_such_program.txt")), StepFileRead::missing);
  EXPECT_EQ(program.rows[0].cond_mask[0].value(), 1);
}

TEST(TableFile, HeaderRules) {
  StepFileRead r;
  std::string const err = load_table_text(
      "#version 1\n"
      "trigger_mode nope\n"
      "speed 200\n"
      "modulator_idx 1f\n"
      "note_on_reset 7\n"
      "address_space X\n"
      "address 40\n"
      "reset 5\n"
      "callback_start 01\n"
      "callback_transpose[0] 02\n"
      "step_mute 3\n"
      "name 0123456789abcdef0123456789abcdefXYZ\n"
      "!steps whatever\n",
      &r);
  EXPECT_EQ(err, "");
  EXPECT_EQ(r, StepFileRead::steps);
  TableSettings const& s = table.settings;
  EXPECT_EQ(s.trigger_mode.index(), 0);   // unknown text changes nothing
  EXPECT_EQ(s.speed.value(), 6);          // out of range gives 6
  EXPECT_EQ(s.modulator_idx.value(), 0);  // larger gives 0
  EXPECT_EQ(s.note_on_reset.value(), 0);
  EXPECT_EQ(s.address_space.index(), 0);
  EXPECT_EQ(s.address.value(), 0);
  EXPECT_EQ(s.reset.value(), 1);  // any number but 0 gives 1
  EXPECT_EQ(s.start_callback.value(), 1);
  EXPECT_TRUE(s.transpose_callback.is_empty());  // the older key has an index a table lacks
  EXPECT_EQ(std::string(s.name.data, 32), "0123456789abcdef0123456789abcdef");
  load_table_text("#version 1\nreset 0\nspeed x\ntrigger_mode note_off\naddress_space V\naddress 3f\n");
  EXPECT_EQ(table.settings.reset.value(), 0);
  EXPECT_EQ(table.settings.speed.value(), 6);  // a failed read changes nothing
  EXPECT_EQ(table.settings.trigger_mode.index(), 5);
  EXPECT_EQ(table.settings.address_space.index(), 2);
  EXPECT_EQ(table.settings.address.value(), 63);
}

TEST(TableFile, StepLinesAndTheirMessages) {
  std::string const err = load_table_text(
      "#version 1\n!steps table\n"
      "0 op_code 6 bpm\\xb0" "120\n"
      "1 transpose 1 +5\n"
      "2 op_code_all 5 lmem0a7f\n"
      "3 step_length 0 ff\n"
      "4 table_step_jump 0 40\n"
      "5 transpose 0 [\\x20]\n"
      "6 line_disable 0 #\n");
  EXPECT_EQ(err, "warning, incorrect column idx found\nwarning, incorrect column idx found\n");
  EXPECT_TRUE(bytes_zero(table.steps[0]));
  EXPECT_TRUE(bytes_zero(table.steps[1]));
  EXPECT_EQ(table.steps[2].op_code[5].type.stored, OpCode::OpType::stored_of("stre"));
  EXPECT_EQ(table.steps[3].step_length[0].value(), 6);
  EXPECT_EQ(table.steps[4].table_step_jump[0].value(), 0);
  EXPECT_TRUE(table.steps[5].transpose[0].is_magic());
  EXPECT_TRUE(bytes_zero(table.steps[6]));
}

TEST(MemoryFiles, EmptyMemoryWritesTwoLinesEach) {
  project_initialize(&project);
  fs::path const dir = scratch_file("memory_empty");
  fs::create_directories(dir);
  project_save_memory_files(&project, dir);
  EXPECT_EQ(read(dir / "chord_memory.txt"), "#version 1\n!steps chord\n");
  EXPECT_EQ(read(dir / "modulation_memory.txt"), "#version 1\n!steps modulation\n");
}

TEST(MemoryFiles, ModulationFieldsInFileOrderNotMemoryOrder) {
  project_initialize(&project);
  ModulationMemoryEntry& e = project.modulation_memory[0];
  e.trigger[1] = Trigger::set_cell();
  e.modulator_idx[0] = ModulatorIdx::from_value(3);
  e.modulator_speed[0] = ModulatorSpeed::from_value(0x40);
  e.modulator_amplitude[0] = ModulatorAmplitude::from_value(0xff);
  e.modulator_waveform[0] = ModulatorWaveform::parse_string("tri");
  e.modulator_mult_type[0] = ModulatorMultType::parse_string("*2/3");
  ChordMemoryEntry& c = project.chord_memory[0];
  c.notes[0] = Transpose::from_value(0);
  c.notes[1] = Transpose::from_value(4);
  c.notes[2] = Transpose::from_value(7);
  c.num_chord_notes[0] = NumChordNotes::from_value(3);
  fs::path const dir = scratch_file("memory_example");
  fs::create_directories(dir);
  project_save_memory_files(&project, dir);
  EXPECT_EQ(read(dir / "modulation_memory.txt"),
            "#version 1\n!steps modulation\n"
            "0 trigger 1 \\x04\n"
            "0 modulator_idx 0 3\n"
            "0 modulator_speed 0 40\n"
            "0 modulator_amplitude 0 ff\n"
            "0 modulator_waveform 0 tri\n"
            "0 modulator_mult_type 0 *2/3\n");
  EXPECT_EQ(read(dir / "chord_memory.txt"),
            "#version 1\n!steps chord\n"
            "0 transpose 0 \\x20+0\n"
            "0 transpose 1 \\x20+4\n"
            "0 transpose 2 \\x20+7\n"
            "0 num_chord_notes 0 \\x203\n");
  // Read back into a record that holds other entries: the file clears them.
  Project& other = project;
  ModulationMemoryEntry const mod = e;
  ChordMemoryEntry const chord = c;
  other.chord_memory[9].notes[0] = Transpose::from_value(1);
  other.modulation_memory[9].trigger[0] = Trigger::set_cell();
  project_load_memory_files(&other, dir);
  EXPECT_TRUE(bytes_equal(other.modulation_memory[0], mod));
  EXPECT_TRUE(bytes_equal(other.chord_memory[0], chord));
  EXPECT_TRUE(project_chord_is_initial(&other, 9));
  EXPECT_TRUE(project_modulation_is_initial(&other, 9));
}

TEST(MemoryFiles, ReaderRulesAndMessages) {
  project_initialize(&project);
  fs::path const dir = scratch_file("memory_edges");
  fs::create_directories(dir);
  write(dir / "chord_memory.txt",
        "#version 1\nstep_mute 5\ntype Chiptune\n!steps notchord\n"
        "0 num_chord_notes 1 \\x203\n"
        "0 transpose 16 +1\n"
        "1 num_chord_notes 0 17\n"
        "2 transpose 15 -99\n");
  write(dir / "modulation_memory.txt",
        "#version 1\n!steps modulation\n"
        "0 modulator_idx 0 1f\n"
        "0 trigger 3 x\\x04\n"
        "0 modulator_waveform 4 tri\n"
        "1 modulator_speed 3 100\n");
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  project_load_memory_files(&project, dir);
  std::string const out = testing::internal::GetCapturedStdout();
  std::string const err = testing::internal::GetCapturedStderr();
  chiptune_to_monosampler_promotion = false;
  EXPECT_EQ(out, "found Chiptune track type, promoting to MonoSampler!\n");
  EXPECT_EQ(err,
            "warning, incorrect column idx found\nwarning, incorrect column idx found\n"
            "warning, incorrect column idx found\n");
  EXPECT_TRUE(project_chord_is_initial(&project, 0));
  EXPECT_EQ(project.chord_memory[1].num_chord_notes[0].stored, NumChordNotes::from_value(0).stored);
  EXPECT_EQ(project.chord_memory[2].notes[15].value(), -99);
  EXPECT_EQ(project.modulation_memory[0].modulator_idx[0].stored, ModulatorIdx::from_value(0).stored);
  EXPECT_TRUE(project.modulation_memory[0].trigger[3].is_empty());
  // "%02x" reads two places: "100" is 0x10.
  EXPECT_EQ(project.modulation_memory[1].modulator_speed[3].value(), 0x10);
}

TEST(MemoryFiles, HeaderOnlyFileClearsTheMemory) {
  project_initialize(&project);
  project.chord_memory[4].notes[0] = Transpose::from_value(2);
  project.modulation_memory[4].trigger[0] = Trigger::set_cell();
  fs::path const dir = scratch_file("memory_header_only");
  fs::create_directories(dir);
  write(dir / "chord_memory.txt", "#version 1\n");
  write(dir / "modulation_memory.txt", "");
  project_load_memory_files(&project, dir);
  EXPECT_TRUE(project_chord_is_initial(&project, 4));
  EXPECT_TRUE(project_modulation_is_initial(&project, 4));
}

namespace {

Project reloaded;

// Every regular file below `dir`, by relative path, with its bytes.
std::map<std::string, std::string> tree_files(fs::path const& dir) {
  std::map<std::string, std::string> files;
  for (auto const& entry : fs::recursive_directory_iterator(dir))
    if (entry.is_regular_file()) files[fs::relative(entry.path(), dir).string()] = read(entry.path());
  return files;
}

}  // namespace

TEST(ProjectSave, SecondSaveOfOlderFormsGivesIdenticalFiles) {
  // A project in older and untidy forms: the first save makes it canonical,
  // the load of that save gives the same record, and the second save
  // writes the same bytes.
  fs::path const dir = scratch_file("double_save");
  fs::remove_all(dir);
  fs::create_directories(dir / "tables");
  fs::create_directories(dir / "programs");
  write(dir / "sequencer.txt", "");
  write(dir / "project_settings.txt", "chord_memory_num_notes[5] 3\nchord_memory[5][2] -4\n");
  write(dir / "modulation_memory.txt", "!steps x\n3 modulator_speed 2 7\n3 trigger 0 \\x04\n9 modulator_mult_type 1 /6\n");
  write(dir / "tables/table_02.txt",
        "callback_stop 0z\nname \\x01\\x02\nspeed 12\n!steps table\n"
        "4 op_code_midi 0 gmem3f01\n4 op_code 3 bpm\\xb0" "99\n63 transpose 0 -127\n");
  write(dir / "programs/program_01.txt",
        "mem_display_format note\n!steps program\n"
        "0 cond_mask 0 1\n0 cond_mask 1 1\n"
        "0 op_code_program 0 xchgSTACK\n0 memory_address 0 #-1024\n"
        "1 op_code_program 0 exopbpm%\n1 memory_address 0 \\x15ZZ\n"
        "2 op_code_program 0 tst\\xe1zero\n2 memory_address 0 \\x0fsrow\\x0f\n");
  fs::path const first_save = scratch_file("double_save_1");
  fs::path const second_save = scratch_file("double_save_2");
  fs::remove_all(first_save);
  fs::remove_all(second_save);

  testing::internal::CaptureStderr();
  project_load(&project, dir.c_str());
  project_save(&project, first_save.c_str());
  project_load(&reloaded, first_save.c_str());
  project_save(&reloaded, second_save.c_str());
  testing::internal::GetCapturedStderr();

  EXPECT_EQ(project.allocated_tables, 3);
  EXPECT_EQ(project.allocated_programs, 2);
  EXPECT_EQ(std::memcmp(project.tables, reloaded.tables, sizeof project.tables), 0);
  EXPECT_EQ(std::memcmp(project.programs, reloaded.programs, sizeof project.programs), 0);
  EXPECT_EQ(std::memcmp(project.chord_memory, reloaded.chord_memory, sizeof project.chord_memory), 0);
  EXPECT_EQ(std::memcmp(project.modulation_memory, reloaded.modulation_memory, sizeof project.modulation_memory),
            0);
  auto const a = tree_files(first_save);
  auto const b = tree_files(second_save);
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.at("programs/program_01.txt"),
            "#version 1\nname \nmem_display_format note\n!steps program\n"
            "0 cond_mask 0 1\n0 line_disable 0 #\n"
            "0 memory_address 0 #-1024\n0 op_code_program 0 swapSTACK\\xb0\n"
            "1 memory_address 0 \\x1500\\xb0\\xb0\\xb0\n1 op_code_program 0 exopbpm%\\xb0\\xb0\n"
            "2 memory_address 0 \\x0fsrow\\x0f\n2 op_code_program 0 tst\\xe1zero\n");
  EXPECT_EQ(a.at("chord_memory.txt"),
            "#version 1\n!steps chord\n"
            "5 transpose 0 \\x20+0\n5 transpose 1 \\x20+0\n5 transpose 2 \\x20-4\n5 transpose 3 \\x20+0\n"
            "5 transpose 4 \\x20+0\n5 transpose 5 \\x20+0\n5 transpose 6 \\x20+0\n5 transpose 7 \\x20+0\n"
            "5 num_chord_notes 0 \\x203\n");
}
