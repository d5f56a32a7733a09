#pragma once
// Table and program slots. A table is 64 rows of op codes with the table's
// settings in front; a program is 64 rows of one instruction and its
// operand each, with a name and a display format in front.

#include <tuple>

#include "kelvane/op_code_definition.hpp"
#include "kelvane/types.hpp"
#include "project/step_lines.hpp"
#include "settings/small_records.hpp"

namespace kelvane {

inline constexpr int kTableRows = 64;
inline constexpr int kProgramRows = 64;

namespace StepTypes {

// One row of a table. Members stand in memory order; `fields` lists them in
// the order a table file writes them.
struct TableStep {
  Transpose transpose[1];
  OpCode op_code[6];
  StepLength step_length[1];
  TableStepJump table_step_jump[1];
  static constexpr auto fields =
      std::tuple{step_field("transpose", &TableStep::transpose), step_field("op_code", &TableStep::op_code),
                 step_field("step_length", &TableStep::step_length),
                 step_field("table_step_jump", &TableStep::table_step_jump)};
};

}  // namespace StepTypes

struct Table {
  TableSettings settings;
  StepTypes::TableStep steps[kTableRows];
};

// One row of a program: an instruction, its operand, the switch that turns
// the row off and two condition bits.
struct ProgramRow {
  LineDisable line_disable[1];
  CondMask cond_mask[2];
  OpCodeProgram op_code_program[1];
  MemoryAddress memory_address[1];
  static constexpr auto fields = std::tuple{
      step_field("cond_mask", &ProgramRow::cond_mask), step_field("line_disable", &ProgramRow::line_disable),
      step_field("memory_address", &ProgramRow::memory_address),
      step_field("op_code_program", &ProgramRow::op_code_program)};

  // Files older than version 1 kept the switch as column 0 of `cond_mask`:
  // the value 1 there turns the row off, anything else leaves it.
  static void legacy_cond_mask(ProgramRow& row, unsigned flag) {
    if (flag == 1) row.line_disable[0] = LineDisable::set_cell();
  }
};

struct Program {
  ProgramSettings settings;
  ProgramRow rows[kProgramRows];
};

// The state of a slot and the state a file of the slot starts from: every
// row empty, the settings at their defaults.
void table_reset(Table* table);
void program_reset(Program* program);

}  // namespace kelvane
