// Every cell family's reader on any text, then its writer on what was read:
// nothing may read or write outside the cell or the buffers. Texts of
// instructions, operands and op codes are kept below the 255 bytes whose
// assertion is the required answer to a longer text.

#include <cstring>
#include <tuple>

#include "fuzz_common.hpp"
#include "kelvane/op_code_definition.hpp"
#include "settings/instrument_records.hpp"

using namespace kelvane;

namespace {

using Cells = std::tuple<TableIdx, ProgramIdx, PatternIdx, PatchIdx, FXPatchIdx, ChordMemIdx, ModulationMemIdx,
                         VariableIdx, TrackIdx, ModulatorIdx, ValueTemplate<255, 1>, ValueTemplateM<255, 0>,
                         ValueTemplate<4095, 2048>, Param8Bit<64>, Depth8Bit<128>, IntSetting<1, 64, 16, 10>, Boolean,
                         Note, Velocity, Sustain, StepLength, TableStepJump, BreakSlice, DelayTime, RowIdx, Address,
                         Transpose, Finetune, Cents, PosNegVal7, PosNegVal8, Percentage, NumChordNotes, MidiPitch,
                         Trigger, LineDisable, CondMask, AddressSpace, MidiMsg, TriggerCondition, ModulatorWaveform,
                         ModulatorMultType, ModCombineOp, BreakBeatIdx, PatternType, ChiptuneWaveform, MidiverbAlgo,
                         TableTriggerMode, MemoryDisplayFormat, Register, ArithOp, ComparisonOp, TestOp, Func,
                         ProjectSetting, SpecialRegister, ImmediateValue, ZZNumber, ModulationSourceFMSynth, OpCode,
                         OpCodeProgram, MemoryAddress>;

template <class Cell>
void one(char const* text) {
  Cell const cell = Cell::parse_string(text);
  // A cell outside its table has no text, and no reader makes one.
  if constexpr (requires { Cell::to_string(cell); }) {
    if (!cell.is_empty() && Cell::name_of(cell.index()) == nullptr) __builtin_trap();
  }
  char buf[128] = {};
  cell.format_string(buf, sizeof buf);
  if (std::strlen(buf) >= sizeof buf) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  if (size == 0) return 0;
  std::string text = kelvane_fuzz::input_text(data + 1, size - 1);
  if (text.size() > 254) text.resize(254);
  int const which = data[0] % std::tuple_size_v<Cells>;
  [&]<size_t... I>(std::index_sequence<I...>) {
    ((int(I) == which ? one<std::tuple_element_t<I, Cells>>(text.c_str()) : void()), ...);
  }(std::make_index_sequence<std::tuple_size_v<Cells>>{});
  return 0;
}
