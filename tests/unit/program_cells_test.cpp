// The two cells of a program line: the instruction (`OpCodeProgram`) and its
// operand (`MemoryAddress`). Every expected text below is the byte form
// before the file escaping: "\xB0" is the pad byte, "\xF9" an empty
// hexadecimal place, "\xFA" an empty decimal place, "\x04" the magic glyph.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "command_args.hpp"
#include "kelvane/op_code_definition.hpp"

using namespace kelvane;

// Glyph bytes as separate literals, so that they never run into a following
// hexadecimal digit.
#define PAD "\xB0"
#define PAD2 PAD PAD
#define PAD3 PAD PAD PAD
#define PAD4 PAD PAD PAD PAD
#define PAD6 PAD PAD PAD PAD PAD PAD
#define HEX1 "\xF9"
#define HEX2 HEX1 HEX1
#define HEX3 HEX1 HEX1 HEX1
#define HEX5 HEX1 HEX1 HEX1 HEX1 HEX1
#define HEX6 HEX5 HEX1
#define DEC3 "\xFA\xFA\xFA"
#define MAG "\x04"
#define MAG2 MAG MAG
#define MAG5 MAG MAG MAG MAG MAG
// The mnemonic glyphs of the instruction table and the two comparison
// glyphs (less or equal, greater or equal).
#define G0 "\xE0"
#define G1 "\xE1"
#define LE "\xF3"
#define GE "\xF2"

namespace {

using InstrType = OpCodeProgram::OpType;
using KindType = MemoryAddress::OpType;
using CmdType = OpCode::OpType;

// ---------------------------------------------------------------------------
// Helpers.

template <class Cell>
std::string fmt(Cell const& c) {
  char buf[128] = {};
  c.format_string(buf, sizeof buf);
  return buf;
}

OpCodeProgram instr(std::string const& text) { return OpCodeProgram::parse_string(text.c_str()); }
MemoryAddress operand(std::string const& text) { return MemoryAddress::parse_string(text.c_str()); }

template <class Cell>
bool same_bytes(Cell const& a, Cell const& b) {
  return std::memcmp(&a, &b, sizeof(Cell)) == 0;
}

template <class T>
unsigned bits(T const& cell) {
  return unsigned(std::make_unsigned_t<typename T::rep_type>(cell.stored));
}

// Printable form of a text, for failure messages.
std::string show(std::string const& s) {
  std::string out;
  char tmp[8];
  for (unsigned char c : s) {
    if (c >= 0x20 && c < 0x7F && c != '\\') {
      out += char(c);
    } else {
      std::snprintf(tmp, sizeof tmp, "\\x%02x", c);
      out += tmp;
    }
  }
  return out;
}

using kelvane::testing_support::arg_of;

// The number a column holds: the index of a named entry, else the value.
template <class T>
int number_of(T const& cell) {
  if constexpr (requires { cell.index(); })
    return cell.index();
  else
    return cell.value();
}

template <class Cell>
int column_number(Cell const& c, int col) {
  int n = -99999;
  c.column_do(col, [&](auto const& cell) { n = number_of(cell); });
  return n;
}

template <class Cell>
bool column_empty(Cell const& c, int col) {
  bool e = false;
  c.column_do(col, [&](auto const& cell) { e = cell.stored == 0; });
  return e;
}

template <class Cell>
bool column_magic(Cell const& c, int col) {
  bool m = false;
  c.column_do(col, [&](auto const& cell) { m = cell.stored == 1; });
  return m;
}

template <class Cell>
std::vector<int> widths_of(Cell const& c) {
  std::vector<int> w;
  c.for_each_arg([&](auto const&, int width) { w.push_back(width); });
  return w;
}

// A cell of the given type with all-zero arguments.
template <class Cell>
Cell typed(unsigned stored) {
  Cell c;
  std::memset(&c, 0, sizeof c);
  c.type = Cell::OpType::from_stored(uint8_t(stored));
  return c;
}

// A cell built byte by byte: the type byte, then cells at byte offsets of
// the argument area.
template <class Cell>
struct Raw {
  unsigned char bytes[sizeof(Cell)] = {};
  explicit Raw(unsigned type) { bytes[offsetof(Cell, type)] = (unsigned char)type; }
  Raw& byte_at(size_t offset, unsigned v) {
    bytes[offsetof(Cell, args) + offset] = (unsigned char)v;
    return *this;
  }
  Raw& int_at(size_t offset, uint32_t v) {
    std::memcpy(bytes + offsetof(Cell, args) + offset, &v, sizeof v);
    return *this;
  }
  Cell cell() const {
    Cell c;
    std::memcpy(&c, bytes, sizeof c);
    return c;
  }
};
using RawInstr = Raw<OpCodeProgram>;
using RawOperand = Raw<MemoryAddress>;

// ---------------------------------------------------------------------------
// The names of the argument lists, in index order.

char const* const kRegisters[] = {"ACCUM", "IDX_X", "IDX_Y", "IDX_Z", "IDX_W",
                                  "REG_0", "REG_1", "REG_2", "REG_3", "STACK"};
char const* const kArithOps[] = {"add", "sub", "mul", "div", "mod", "shl",
                                 "shr", "and", "or ", "xor", "min", "max"};
char const* const kComparisons[] = {"<", ">", LE, GE, "=", "^"};
char const* const kTests[] = {"empty", "magic", "zero"};
char const* const kFuncs[] = {"sin", "cos", "nfchrd", "chrdtp", "tsp2JI", "rstml8"};
char const* const kProjectSettings[] = {
    "bpm",   "cmatk", "cmwet", "cmhp",  "cmgn",  "cmrat", "cmrel", "cmthr", "cmvrl", "dltks",
    "dlmde", "dlfb",  "dlfbr", "dlhp",  "dllp",  "dlpng", "dlrse", "dlvol", "dlfos", "dlfod",
    "rvalg", "rvhp",  "rvlp",  "rvvol", "ptnlq", "prvrl", "sdmcl", "fmstr"};
char const* const kSregNames[] = {
    "empty", "magic", "modl8", "chord", "track", "tbcol", "stepP", "stepG", "trkVU",
    "rndom", "nstck", "sqncr", "srow\x10", "srow\x0F", "midCC", "padLx", "padLy", "padLz",
    "padRx", "padRy", "padRz", "muteT", "live", "patch", "fxpch"};
char const* const kTriggerConditions[] = {
    "FAL", "1:2", "2:2", "1:3", "2:3", "3:3", "1:4", "2:4", "3:4", "4:4", "1:5", "2:5",
    "3:5", "4:5", "5:5", "1:6", "2:6", "3:6", "4:6", "5:6", "6:6", "10%", "20%", "30%",
    "40%", "50%", "60%", "70%", "80%", "90%", "PRV", "!PR", "FST", "TRU"};
// The 61 mnemonics of the step command table, in table order.
char const* const kCommandMnemonics[] = {
    "chrd", "snof", "ptch", "fltr", "dlay", "fxpt", "pnv1", "pnv2", "pbnd", "cv\x0D", "cvV",
    "mmem", "mods", "modw", "moda", "modm", "modr", "tjmp", "tlen", "tSif", "tCif", "tCfe",
    "call", "cal1", "cal2", "cal3", "caln", "calt", "stre", "strc", "strp", "mpty", "STif",
    "Cif",  "Cife", "note", "trns", "velo", "slce", "bkdx", "tble", "sstn", "v8bt", "etrg",
    "tbtp", "bpm\x0D", "bpm%", "bpm", "step", "spbs", "brk", "qrow", "qrw2", "stop", "mmsg",
    "mccX", "maft", "mprg", "mpwh", "ppos", "rev\x1D"};

static_assert(std::size(kRegisters) == 10);
static_assert(std::size(kArithOps) == 12);
static_assert(std::size(kComparisons) == 6);
static_assert(std::size(kTests) == 3);
static_assert(std::size(kFuncs) == 6);
static_assert(std::size(kProjectSettings) == 28);
static_assert(std::size(kSregNames) == 25);
static_assert(std::size(kTriggerConditions) == 34);
static_assert(std::size(kCommandMnemonics) == 61);

// A mnemonic written in four places, blanks as pad bytes.
std::string four_places(std::string m) {
  while (m.size() < 4) m += PAD;
  return m;
}

// "%5d" of a number.
std::string five_places(int v) {
  char tmp[16];
  std::snprintf(tmp, sizeof tmp, "%5d", v);
  return tmp;
}

// The two base-36 digits of 0..1295.
std::string zz(int n) {
  char const* digits = "0123456789abcdefghijklmnopqrstuvwxyz";
  return std::string(1, digits[n / 36]) + digits[n % 36];
}

// ---------------------------------------------------------------------------
// The instruction table.

struct InstrRow {
  unsigned stored;
  char const* mnemonic;
  int columns;
  std::vector<int> widths;
  char const* sample;       // a representative text, as written
  std::vector<int> numbers; // what its columns hold (index or value)
  char const* empty_text;   // the text with every argument empty
};

InstrRow const kInstructions[] = {
    {0x80, "load", 1, {5}, "load" "REG_3" PAD, {8}, "load" HEX5 PAD},
    {0x81, "stre", 1, {5}, "stre" "STACK" PAD, {9}, "stre" HEX5 PAD},
    {0x82, "push", 1, {5}, "push" "IDX_Y" PAD, {2}, "push" HEX5 PAD},
    {0x83, "pops", 1, {5}, "pops" "IDX_Z" PAD, {3}, "pops" HEX5 PAD},
    {0x84, "dups", 0, {}, "dups" PAD6, {}, "dups" PAD6},
    {0x85, "swap", 1, {5}, "swap" "IDX_W" PAD, {4}, "swap" HEX5 PAD},
    {0x86, "mpty", 0, {}, "mpty" PAD6, {}, "mpty" PAD6},
    {0x87, "arit", 1, {3}, "arit" "max" PAD3, {11}, "arit" HEX3 PAD3},
    {0x88, "incr", 0, {}, "incr" PAD6, {}, "incr" PAD6},
    {0x89, "decr", 0, {}, "decr" PAD6, {}, "decr" PAD6},
    {0x8A, "cmp" G0, 2, {5, 1}, "cmp" G0 "REG_1" "<", {6, 0}, "cmp" G0 HEX5 HEX1},
    {0x8B, "cmp" G1, 2, {5, 1}, "cmp" G1 "REG_2" "^", {7, 5}, "cmp" G1 HEX5 HEX1},
    {0x8C, "tst" G0, 1, {5}, "tst" G0 "empty" PAD, {0}, "tst" G0 HEX5 PAD},
    {0x8D, "tst" G1, 1, {5}, "tst" G1 "magic" PAD, {1}, "tst" G1 HEX5 PAD},
    {0x8E, "pCn" G0, 1, {3}, "pCn" G0 "1:2" PAD3, {1}, "pCn" G0 HEX3 PAD3},
    {0x8F, "tCn" G0, 1, {3}, "tCn" G0 "TRU" PAD3, {33}, "tCn" G0 HEX3 PAD3},
    {0x90, "prnt", 0, {}, "prnt" PAD6, {}, "prnt" PAD6},
    {0x91, "jump", 0, {}, "jump" PAD6, {}, "jump" PAD6},
    {0x92, "jrel", 0, {}, "jrel" PAD6, {}, "jrel" PAD6},
    {0x93, "call", 1, {2}, "call" "zz" PAD4, {1295}, "call" HEX2 PAD4},
    {0x94, "func", 1, {6}, "func" "tsp2JI", {4}, "func" HEX6},
    {0x95, "retn", 0, {}, "retn" PAD6, {}, "retn" PAD6},
    {0x96, "exop", 1, {4}, "exop" "stre" PAD2, {0x1C}, "exop" PAD6},
};

static_assert(std::size(kInstructions) == 23);
static_assert(InstrType::stored_of("load") == 0x80);
static_assert(InstrType::stored_of("cmp" G0) == 0x8A);
static_assert(InstrType::stored_of("tCn" G0) == 0x8F);
static_assert(InstrType::stored_of("exop") == 0x96);

// ---------------------------------------------------------------------------
// The operand table.

struct OperandRow {
  unsigned stored;
  char const* kind;
  int width;
  char const* sample;
  int number;
  char const* empty_text;
  char const* magic_text;  // null for a kind without the magic state
};

OperandRow const kOperands[] = {
    {0x80, "$", 5, "$" "IDX_X", 1, "$" HEX5, nullptr},
    {0x81, "#", 5, "#" "-1024", -1024, "#" HEX5, "#" MAG5},
    {0x82, "x", 2, "x" "ff" PAD3, 255, "x" HEX2 PAD3, nullptr},
    {0x83, "\x0D", 3, "\x0D" "C#5" PAD2, 61, "\x0D" "---" PAD2, "\x0D" "[ ]" PAD2},
    {0x84, "\x0E", 3, "\x0E" "-12" PAD2, -12, "\x0E" DEC3 PAD2, "\x0E" "[ ]" PAD2},
    {0x85, "\x15", 2, "\x15" "zz" PAD3, 1295, "\x15" HEX2 PAD3, "\x15" MAG2 PAD3},
    {0x86, "c", 2, "c" "3f" PAD3, 63, "c" HEX2 PAD3, "c" MAG2 PAD3},
    {0x87, "p", 2, "p" "2a" PAD3, 42, "p" HEX2 PAD3, nullptr},
    {0x88, "f", 2, "f" "00" PAD3, 0, "f" HEX2 PAD3, "f" MAG2 PAD3},
    {0x89, "L", 2, "L" "3f" PAD3, 63, "L" HEX2 PAD3, nullptr},
    {0x8A, "G", 2, "G" "01" PAD3, 1, "G" HEX2 PAD3, nullptr},
    {0x8B, "S", 2, "S" "10" PAD3, 16, "S" HEX2 PAD3, nullptr},
    {0x8C, "\x7F", 2, "\x7F" "3f" PAD3, 63, "\x7F" HEX2 PAD3, nullptr},
    {0x8D, "\x1A", 5, "\x1A" "STACK", 9, "\x1A" HEX5, nullptr},
    {0x8E, "\x0B", 5, "\x0B" "REG_0", 5, "\x0B" HEX5, nullptr},
    {0x8F, "P", 2, "P" "0z" PAD3, 35, "P" HEX2 PAD3, "P" MAG2 PAD3},
    {0x90, "T", 2, "T" "10" PAD3, 36, "T" HEX2 PAD3, "T" MAG2 PAD3},
    {0x91, "\x14", 5, "\x14" "fmstr", 27, "\x14" HEX5, nullptr},
    {0x92, "\x0F", 5, "\x0F" "srow\x10", 12, "\x0F" HEX5, nullptr},
};

static_assert(std::size(kOperands) == 19);
static_assert(KindType::stored_of("$") == 0x80);
static_assert(KindType::stored_of("L") == 0x89);
static_assert(KindType::stored_of("\x14") == 0x91);
static_assert(KindType::stored_of("\x0F") == 0x92);

static_assert(std::is_trivially_copyable_v<OpCodeProgram>);
static_assert(std::is_trivially_copyable_v<MemoryAddress>);
static_assert(sizeof(InstrType) == 1);
static_assert(sizeof(KindType) == 1);

}  // namespace

// ===========================================================================
// Instructions: the table.

TEST(InstructionTable, EveryRowHasItsValueAndColumns) {
  ASSERT_EQ(InstrType::count(), 23);
  for (int i = 0; i < 23; ++i) {
    InstrRow const& r = kInstructions[i];
    SCOPED_TRACE(show(r.mnemonic));
    EXPECT_EQ(r.stored, 0x80u + unsigned(i));
    EXPECT_EQ(InstrType::parse_string(r.mnemonic), r.stored);
    OpCodeProgram c = typed<OpCodeProgram>(r.stored);
    EXPECT_EQ(c.type.stored, r.stored);
    EXPECT_FALSE(c.type.is_empty());
    EXPECT_EQ(c.num_columns(), r.columns);
    EXPECT_EQ(widths_of(c), r.widths);
  }
}

TEST(InstructionTable, SampleTextOfEveryRowReadsAndWritesBack) {
  for (InstrRow const& r : kInstructions) {
    SCOPED_TRACE(show(r.sample));
    OpCodeProgram c = instr(r.sample);
    EXPECT_EQ(c.type.stored, r.stored);
    ASSERT_EQ(c.num_columns(), r.columns);
    for (int col = 0; col < r.columns; ++col) EXPECT_EQ(column_number(c, col), r.numbers[col]) << "column " << col;
    EXPECT_EQ(show(fmt(c)), show(r.sample));
    EXPECT_EQ(std::strlen(r.sample), 10u);
    EXPECT_TRUE(same_bytes(instr(fmt(c)), c));
  }
}

TEST(InstructionTable, EmptyArgumentsOfEveryRow) {
  for (InstrRow const& r : kInstructions) {
    SCOPED_TRACE(show(r.mnemonic));
    OpCodeProgram c = typed<OpCodeProgram>(r.stored);
    for (int col = 0; col < r.columns; ++col) EXPECT_TRUE(column_empty(c, col));
    EXPECT_EQ(show(fmt(c)), show(r.empty_text));
    // The empty text reads back as the type with empty arguments.
    EXPECT_TRUE(same_bytes(instr(r.empty_text), c)) << show(r.empty_text);
  }
}

TEST(InstructionTable, TheEmptyInstructionHasNoColumns) {
  OpCodeProgram c{};
  EXPECT_TRUE(c.type.is_empty());
  EXPECT_EQ(c.num_columns(), 0);
  bool called = false;
  c.static_switch([&](auto&) { called = true; });
  EXPECT_FALSE(called);
  int visits = 0;
  c.for_each_arg([&](auto&) { ++visits; });
  EXPECT_EQ(visits, 0);
}

TEST(InstructionTable, UnknownMnemonicsReadAsZero) {
  for (char const* m : {"", "loa", "LOAD", "lod" PAD, "xchh", "cmp", "cmp" "\xE2", "tst" G1 "x", "exo", "bpm" PAD}) {
    SCOPED_TRACE(show(m));
    EXPECT_EQ(InstrType::parse_string(m), 0);
  }
  // A four-byte mnemonic followed by another byte is no match for the
  // type reader itself; the cell's reader cuts behind the four bytes.
  EXPECT_EQ(InstrType::parse_string("loadACCUM"), 0);
  EXPECT_EQ(InstrType::parse_string("load" PAD), 0x80);
  EXPECT_EQ(instr("loadACCUM").type.stored, 0x80);
}

TEST(InstructionTable, OlderNameOfSwapIsAccepted) {
  EXPECT_EQ(InstrType::parse_string("xchg"), 0x85);
  EXPECT_EQ(InstrType::parse_string("swap"), 0x85);
}

// ===========================================================================
// Instructions: each argument list over all its values.

TEST(InstructionArguments, EveryRegisterInEveryRegisterRow) {
  for (unsigned stored : {0x80u, 0x81u, 0x82u, 0x83u, 0x85u}) {
    for (int i = 0; i < 10; ++i) {
      std::string text = std::string(InstrType::name_of(int(stored - 0x80))) + kRegisters[i] + PAD;
      SCOPED_TRACE(show(text));
      OpCodeProgram c = instr(text);
      EXPECT_EQ(c.type.stored, stored);
      EXPECT_EQ(bits(arg_of<Register>(c, 0)), 0x80u + unsigned(i));
      EXPECT_EQ(fmt(c), text);
    }
  }
}

TEST(InstructionArguments, EveryArithmeticOperation) {
  for (int i = 0; i < 12; ++i) {
    std::string text = std::string("arit") + kArithOps[i] + PAD3;
    SCOPED_TRACE(show(text));
    OpCodeProgram c = instr(text);
    EXPECT_EQ(c.type.stored, 0x87);
    EXPECT_EQ(bits(arg_of<ArithOp>(c, 0)), 0x80u + unsigned(i));
    EXPECT_EQ(fmt(c), text);
  }
}

TEST(InstructionArguments, EveryComparisonInBothCompareRows) {
  for (char const* m : {"cmp" G0, "cmp" G1}) {
    for (int r = 0; r < 10; ++r) {
      for (int i = 0; i < 6; ++i) {
        std::string text = std::string(m) + kRegisters[r] + kComparisons[i];
        SCOPED_TRACE(show(text));
        OpCodeProgram c = instr(text);
        EXPECT_EQ(c.type.stored, InstrType::parse_string(m));
        EXPECT_EQ(bits(arg_of<Register>(c, 0)), 0x80u + unsigned(r));
        EXPECT_EQ(bits(arg_of<ComparisonOp>(c, 1)), 0x80u + unsigned(i));
        EXPECT_EQ(fmt(c), text);
      }
    }
  }
}

TEST(InstructionArguments, EveryTestAndItsShortText) {
  for (char const* m : {"tst" G0, "tst" G1}) {
    for (int i = 0; i < 3; ++i) {
      std::string name = kTests[i];
      // Five characters fill the column and take the one pad byte; "zero"
      // leaves its NUL in the column and ends the text there.
      std::string text = std::string(m) + name + (name.size() == 5 ? PAD : "");
      SCOPED_TRACE(show(text));
      OpCodeProgram c = instr(text);
      EXPECT_EQ(bits(arg_of<TestOp>(c, 0)), 0x80u + unsigned(i));
      EXPECT_EQ(show(fmt(c)), show(text));
    }
  }
  EXPECT_EQ(show(fmt(instr("tst" G0 "zero"))), show("tst" G0 "zero"));
}

TEST(InstructionArguments, EveryFunctionAndItsShortText) {
  for (int i = 0; i < 6; ++i) {
    std::string text = std::string("func") + kFuncs[i];
    SCOPED_TRACE(text);
    OpCodeProgram c = instr(text);
    EXPECT_EQ(c.type.stored, 0x94);
    EXPECT_EQ(bits(arg_of<Func>(c, 0)), 0x80u + unsigned(i));
    EXPECT_EQ(fmt(c), text);
  }
  EXPECT_EQ(fmt(instr("funcsin")), "funcsin");
  EXPECT_EQ(fmt(instr("funccos")), "funccos");
}

TEST(InstructionArguments, EveryTriggerConditionInBothConditionRows) {
  for (char const* m : {"pCn" G0, "tCn" G0}) {
    for (int i = 0; i < 34; ++i) {
      std::string text = std::string(m) + kTriggerConditions[i] + PAD3;
      SCOPED_TRACE(show(text));
      OpCodeProgram c = instr(text);
      EXPECT_EQ(c.type.stored, InstrType::parse_string(m));
      EXPECT_EQ(bits(arg_of<TriggerCondition>(c, 0)), 0x80u + unsigned(i));
      EXPECT_EQ(show(fmt(c)), show(text));
    }
  }
}

TEST(InstructionArguments, EveryStepCommandAsExopArgument) {
  ASSERT_EQ(CmdType::count(), 61);
  for (int i = 0; i < 61; ++i) {
    std::string text = "exop" + four_places(kCommandMnemonics[i]) + PAD2;
    SCOPED_TRACE(show(text));
    OpCodeProgram c = instr(text);
    EXPECT_EQ(c.type.stored, 0x96);
    EXPECT_EQ(bits(arg_of<CmdType>(c, 0)), 0x80u + unsigned(i));
    EXPECT_EQ(show(fmt(c)), show(text));
    // The column without its pad byte reads the same.
    EXPECT_TRUE(same_bytes(instr(std::string("exop") + kCommandMnemonics[i]), c));
  }
}

TEST(InstructionArguments, CallTakesTwoBase36Digits) {
  for (int n : {0, 1, 35, 36, 46, 359, 360, 1000, 1295}) {
    std::string text = "call" + zz(n) + PAD4;
    SCOPED_TRACE(text);
    OpCodeProgram c = instr(text);
    EXPECT_EQ(c.type.stored, 0x93);
    ProgramIdx p = arg_of<ProgramIdx>(c, 0);
    EXPECT_EQ(p.value(), n);
    EXPECT_EQ(bits(p), 0x80000000u + unsigned(n));
    EXPECT_EQ(fmt(c), text);
  }
  // Upper case folds past the limit: empty.
  EXPECT_TRUE(arg_of<ProgramIdx>(instr("callZZ"), 0).is_empty());
  EXPECT_TRUE(arg_of<ProgramIdx>(instr("call" HEX2), 0).is_empty());
  // A text that ends behind the mnemonic leaves the column empty.
  EXPECT_TRUE(arg_of<ProgramIdx>(instr("call"), 0).is_empty());
}

// ===========================================================================
// Instructions: the worked examples.

TEST(InstructionExample, LoadAccumulator) {
  OpCodeProgram c = instr("load" "ACCUM" PAD);
  EXPECT_EQ(c.type.stored, 0x80);
  EXPECT_EQ(c.num_columns(), 1);
  EXPECT_EQ(bits(arg_of<Register>(c, 0)), 0x80u);
  EXPECT_EQ(show(fmt(c)), show("load" "ACCUM" PAD));
}

TEST(InstructionExample, CompareWithGlyphSign) {
  OpCodeProgram c = instr("cmp" G0 "IDX_X" LE);
  EXPECT_EQ(c.type.stored, 0x8A);
  EXPECT_EQ(c.num_columns(), 2);
  EXPECT_EQ(arg_of<Register>(c, 0).index(), 1);
  EXPECT_EQ(arg_of<ComparisonOp>(c, 1).index(), 2);
  EXPECT_EQ(show(fmt(c)), show("cmp" G0 "IDX_X" LE));
}

TEST(InstructionExample, JumpWithoutArguments) {
  OpCodeProgram c = instr("jump" PAD6);
  EXPECT_EQ(c.type.stored, 0x91);
  EXPECT_EQ(c.num_columns(), 0);
  EXPECT_EQ(show(fmt(c)), show("jump" PAD6));
}

TEST(InstructionExample, ArithmeticOrKeepsItsBlank) {
  OpCodeProgram c = instr("arit" "or " PAD3);
  EXPECT_EQ(c.type.stored, 0x87);
  EXPECT_EQ(arg_of<ArithOp>(c, 0).index(), 8);
  EXPECT_EQ(show(fmt(c)), show("arit" "or " PAD3));
}

TEST(InstructionExample, CallProgram46) {
  OpCodeProgram c = instr("call" "1a" PAD4);
  EXPECT_EQ(c.type.stored, 0x93);
  EXPECT_EQ(arg_of<ProgramIdx>(c, 0).value(), 46);
  EXPECT_EQ(show(fmt(c)), show("call" "1a" PAD4));
}

TEST(InstructionExample, FunctionFillsItsSixPlaces) {
  OpCodeProgram c = instr("func" "nfchrd");
  EXPECT_EQ(c.type.stored, 0x94);
  EXPECT_EQ(arg_of<Func>(c, 0).index(), 2);
  EXPECT_EQ(show(fmt(c)), show("func" "nfchrd"));
}

TEST(InstructionExample, ExopWithThreeLetterCommand) {
  // The line of the example carries four pad bytes behind "bpm".
  OpCodeProgram c = instr("exop" "bpm" PAD4);
  EXPECT_EQ(c.type.stored, 0x96);
  EXPECT_EQ(bits(arg_of<CmdType>(c, 0)), 0xAFu);
  // The writer: "bpm" padded in its four-place column (position 8), then
  // pad bytes while the position is below 10: an instruction text has ten
  // places.
  EXPECT_EQ(show(fmt(c)), show("exop" "bpm" PAD PAD2));
  EXPECT_TRUE(same_bytes(instr(fmt(c)), c));
}

TEST(InstructionExample, ExopReadsTheSameWithTenOrElevenPlaces) {
  // Bytes behind the last column are never looked at.
  EXPECT_TRUE(same_bytes(instr("exop" "bpm" PAD4), instr("exop" "bpm" PAD3)));
  EXPECT_TRUE(same_bytes(instr("exop" "bpm" PAD4), instr("exop" "bpm" PAD)));
  EXPECT_TRUE(same_bytes(instr("exop" "bpm" PAD4), instr("exop" "bpm")));
}

// ===========================================================================
// Instructions: edge cases.

TEST(InstructionEdge, OlderXchgReadsAsSwapAndWritesAsSwap) {
  OpCodeProgram c = instr("xchg" "REG_0");
  EXPECT_EQ(c.type.stored, 0x85);
  EXPECT_EQ(arg_of<Register>(c, 0).index(), 5);
  EXPECT_EQ(show(fmt(c)), show("swap" "REG_0" PAD));
  EXPECT_TRUE(same_bytes(c, instr("swap" "REG_0" PAD)));
}

TEST(InstructionEdge, MisspelledRegisterIsEmpty) {
  OpCodeProgram c = instr("load" "ACCUX");
  EXPECT_EQ(c.type.stored, 0x80);
  EXPECT_TRUE(arg_of<Register>(c, 0).is_empty());
  EXPECT_EQ(show(fmt(c)), show("load" HEX5 PAD));
}

TEST(InstructionEdge, IncrementIgnoresWhatFollows) {
  OpCodeProgram plain = instr("incr");
  EXPECT_EQ(plain.type.stored, 0x88);
  EXPECT_EQ(plain.num_columns(), 0);
  for (char const* text : {"incr" PAD6, "incrACCUM", "incr\x01\x02\x03", "incr" HEX5 "zz", "incrxxxxxxxxxxxxxxxxxx",
                           "incr" "\xFF\xFE"}) {
    SCOPED_TRACE(show(text));
    OpCodeProgram c = instr(text);
    EXPECT_TRUE(same_bytes(c, plain));
    EXPECT_EQ(show(fmt(c)), show("incr" PAD6));
  }
}

TEST(InstructionEdge, OrWithoutItsBlankIsEmpty) {
  OpCodeProgram c = instr("arit" "or");
  EXPECT_EQ(c.type.stored, 0x87);
  EXPECT_TRUE(arg_of<ArithOp>(c, 0).is_empty());
  EXPECT_EQ(show(fmt(c)), show("arit" HEX3 PAD3));
  // A pad byte in place of the blank does not do either.
  EXPECT_TRUE(arg_of<ArithOp>(instr("arit" "or" PAD PAD3), 0).is_empty());
}

TEST(InstructionEdge, ExopWithFourPadBytesIsEmptyCommandType) {
  OpCodeProgram c = instr("exop" PAD4);
  EXPECT_EQ(c.type.stored, 0x96);
  EXPECT_TRUE(arg_of<CmdType>(c, 0).is_empty());
  std::string text = fmt(c);
  EXPECT_EQ(show(text.substr(0, 8)), show("exop" PAD4));
  EXPECT_EQ(show(text), show("exop" PAD4 PAD2));
  EXPECT_TRUE(same_bytes(instr(text), c));
}

TEST(InstructionEdge, ExopArgumentFollowsTheCommandTypeReader) {
  // A mnemonic is taken when NUL or a pad byte stands behind it; anything
  // else leaves the column empty.
  EXPECT_EQ(bits(arg_of<CmdType>(instr("exop" "Cif" PAD), 0)), 0xA1u);
  EXPECT_EQ(bits(arg_of<CmdType>(instr("exop" "Cife"), 0)), 0xA2u);
  EXPECT_EQ(bits(arg_of<CmdType>(instr("exop" "bpm%"), 0)), 0xAEu);
  EXPECT_EQ(bits(arg_of<CmdType>(instr("exop" "bpm\x0D"), 0)), 0xADu);
  for (char const* text : {"exop" "xyzw", "exop" "bpmx", "exop" "bpm ", "exop" "BPM" PAD, "exop" "lmem"}) {
    SCOPED_TRACE(show(text));
    OpCodeProgram c = instr(text);
    EXPECT_EQ(c.type.stored, 0x96);
    EXPECT_TRUE(arg_of<CmdType>(c, 0).is_empty());
    EXPECT_EQ(show(fmt(c)), show("exop" PAD6));
  }
}

TEST(InstructionEdge, CallWithMagicBytesIsEmpty) {
  OpCodeProgram c = instr("call" MAG2);
  EXPECT_EQ(c.type.stored, 0x93);
  ProgramIdx p = arg_of<ProgramIdx>(c, 0);
  EXPECT_TRUE(p.is_empty());
  EXPECT_FALSE(p.is_magic());
  EXPECT_EQ(show(fmt(c)), show("call" HEX2 PAD4));
  EXPECT_TRUE(arg_of<ProgramIdx>(instr("call" MAG), 0).is_empty());
}

TEST(InstructionEdge, UnknownComparisonSignIsEmpty) {
  for (char const* sign : {"!", "a", "\xF1", "\xF4", " ", "\x04", HEX1, PAD}) {
    std::string text = std::string("cmp" G0 "ACCUM") + sign;
    SCOPED_TRACE(show(text));
    OpCodeProgram c = instr(text);
    EXPECT_EQ(c.type.stored, 0x8A);
    EXPECT_EQ(arg_of<Register>(c, 0).index(), 0);
    EXPECT_TRUE(arg_of<ComparisonOp>(c, 1).is_empty());
    EXPECT_EQ(show(fmt(c)), show("cmp" G0 "ACCUM" HEX1));
  }
}

TEST(InstructionEdge, PadByteInAnExactColumnDefeatsIt) {
  // A short name followed by pad bytes no longer equals its entry.
  EXPECT_TRUE(arg_of<Func>(instr("func" "sin" PAD3), 0).is_empty());
  EXPECT_TRUE(arg_of<TestOp>(instr("tst" G0 "zero" PAD), 0).is_empty());
  EXPECT_EQ(arg_of<TestOp>(instr("tst" G0 "zero"), 0).index(), 2);
  EXPECT_EQ(arg_of<Func>(instr("func" "sin"), 0).index(), 0);
}

TEST(InstructionEdge, EachColumnIsCutToItsWidth) {
  // The register column sees five bytes, the comparison the sixth.
  OpCodeProgram c = instr("cmp" G1 "STACK" "=" "garbage");
  EXPECT_EQ(c.type.stored, 0x8B);
  EXPECT_EQ(arg_of<Register>(c, 0).index(), 9);
  EXPECT_EQ(arg_of<ComparisonOp>(c, 1).index(), 4);
  // A name longer than its column is cut and compares as the cut text.
  EXPECT_EQ(arg_of<Register>(instr("load" "ACCUMULATOR"), 0).index(), 0);
  EXPECT_EQ(arg_of<ProgramIdx>(instr("call" "1a7"), 0).value(), 46);
  EXPECT_EQ(arg_of<ArithOp>(instr("arit" "addition"), 0).index(), 0);
}

TEST(InstructionEdge, TextThatEndsEarlyLeavesEmptyColumns) {
  OpCodeProgram c = instr("cmp" G0 "IDX_X");
  EXPECT_EQ(c.type.stored, 0x8A);
  EXPECT_EQ(arg_of<Register>(c, 0).index(), 1);
  EXPECT_TRUE(arg_of<ComparisonOp>(c, 1).is_empty());
  EXPECT_EQ(show(fmt(c)), show("cmp" G0 "IDX_X" HEX1));

  OpCodeProgram only = instr("cmp" G0);
  EXPECT_TRUE(arg_of<Register>(only, 0).is_empty());
  EXPECT_TRUE(arg_of<ComparisonOp>(only, 1).is_empty());

  OpCodeProgram exop = instr("exop");
  EXPECT_EQ(exop.type.stored, 0x96);
  EXPECT_TRUE(arg_of<CmdType>(exop, 0).is_empty());
}

TEST(InstructionEdge, CaseOfNamesCounts) {
  EXPECT_TRUE(arg_of<Register>(instr("load" "accum"), 0).is_empty());
  EXPECT_TRUE(arg_of<Func>(instr("func" "tsp2ji"), 0).is_empty());
  EXPECT_TRUE(arg_of<ArithOp>(instr("arit" "ADD"), 0).is_empty());
  EXPECT_TRUE(instr("LOADACCUM").type.is_empty());
}

// ===========================================================================
// Instructions: writing.

TEST(InstructionFormat, ShortColumnLeavesPaddingBehindItsNul) {
  // "zero" ends at place 8; the writer still pads place 9 and ends at 10.
  char buf[128] = {};
  instr("tst" G0 "zero").format_string(buf, sizeof buf);
  EXPECT_EQ(show(std::string(buf, 11)), show(std::string("tst" G0 "zero", 8) + '\0' + PAD + '\0'));

  char fbuf[128] = {};
  instr("funcsin").format_string(fbuf, sizeof fbuf);
  EXPECT_EQ(std::string(fbuf, 11), std::string("funcsin\0\0\0\0", 11));
}

TEST(InstructionFormat, TextsHaveTenPlaces) {
  for (InstrRow const& r : kInstructions) {
    EXPECT_EQ(fmt(instr(r.sample)).size(), 10u) << show(r.sample);
    EXPECT_EQ(fmt(typed<OpCodeProgram>(r.stored)).size(), 10u) << show(r.mnemonic);
  }
}

// ===========================================================================
// Instructions: memory.

TEST(InstructionMemory, ParseLeavesUnusedArgumentBytesZero) {
  EXPECT_TRUE(same_bytes(instr("loadACCUM" PAD), RawInstr(0x80).byte_at(0, 0x80).cell()));
  EXPECT_TRUE(same_bytes(instr("cmp" G0 "IDX_X" LE), RawInstr(0x8A).byte_at(0, 0x81).byte_at(1, 0x82).cell()));
  EXPECT_TRUE(same_bytes(instr("jump" PAD6), RawInstr(0x91).cell()));
  EXPECT_TRUE(same_bytes(instr("aritor " PAD3), RawInstr(0x87).byte_at(0, 0x88).cell()));
  EXPECT_TRUE(same_bytes(instr("call1a" PAD4), RawInstr(0x93).int_at(0, 0x8000002Eu).cell()));
  EXPECT_TRUE(same_bytes(instr("funcnfchrd"), RawInstr(0x94).byte_at(0, 0x82).cell()));
  EXPECT_TRUE(same_bytes(instr("exopbpm" PAD4), RawInstr(0x96).byte_at(0, 0xAF).cell()));
  EXPECT_TRUE(same_bytes(instr("tCn" G0 "TRU"), RawInstr(0x8F).byte_at(0, 0xA1).cell()));
  EXPECT_TRUE(same_bytes(instr("load" "ACCUX"), RawInstr(0x80).cell()));
  EXPECT_TRUE(same_bytes(instr("incrACCUM"), RawInstr(0x88).cell()));
  EXPECT_TRUE(bytes_zero(instr("nope")));
  EXPECT_TRUE(bytes_zero(instr("")));
}

TEST(InstructionMemory, EqualInstructionsAreEqualBytes) {
  EXPECT_TRUE(same_bytes(instr("call1a" PAD4), instr("call1a")));
  EXPECT_FALSE(same_bytes(instr("call1a"), instr("call1b")));
  EXPECT_FALSE(same_bytes(instr("loadACCUM"), instr("streACCUM")));
}

// ===========================================================================
// Instructions: visiting.

TEST(InstructionVisit, ForEachArgAndColumnDo) {
  OpCodeProgram c = instr("cmp" G0 "IDX_X" LE);
  std::string seen;
  c.for_each_arg([&](auto const& cell, int width) {
    char text[16] = {};
    command::format_cell(cell, text, sizeof text, width);
    seen += std::to_string(width) + ":" + text + ";";
  });
  EXPECT_EQ(show(seen), show("5:IDX_X;1:" LE ";"));

  c.column_do(0, [](auto& cell) {
    if constexpr (std::is_same_v<std::remove_cvref_t<decltype(cell)>, Register>) cell = Register::from_index(9);
  });
  EXPECT_EQ(show(fmt(c)), show("cmp" G0 "STACK" LE));

  int visits = 0;
  instr("jump").for_each_arg([&](auto const&) { ++visits; });
  EXPECT_EQ(visits, 0);
}

TEST(InstructionVisit, ForEachArgRereadsTypeAndBound) {
  // A visitor that turns a two-column instruction into a one-column one
  // ends the walk after the first column.
  OpCodeProgram c = instr("cmp" G0 "IDX_X" LE);
  int visits = 0;
  c.for_each_arg([&](auto&) {
    ++visits;
    c.type = InstrType::of("load");
  });
  EXPECT_EQ(visits, 1);
  // Emptying the type ends it too.
  c = instr("cmp" G0 "IDX_X" LE);
  visits = 0;
  c.for_each_arg([&](auto&) {
    ++visits;
    c.type = InstrType{};
  });
  EXPECT_EQ(visits, 1);
}

TEST(InstructionVisit, StaticSwitchGivesTheTupleOfTheType) {
  OpCodeProgram c = instr("cmp" G1 "REG_3" GE);
  int size = -1;
  c.static_switch([&](auto& tuple) { size = std::remove_cvref_t<decltype(tuple)>::size; });
  EXPECT_EQ(size, 2);
  OpCodeProgram j = instr("jrel");
  size = -1;
  j.static_switch([&](auto& tuple) { size = std::remove_cvref_t<decltype(tuple)>::size; });
  EXPECT_EQ(size, 0);
}

// ===========================================================================
// Instructions: assertions.

TEST(InstructionDeathTest, TextOf255BytesAsserts) {
  std::string ok = "load" "ACCUM" + std::string(254 - 9, PAD[0]);
  ASSERT_EQ(ok.size(), 254u);
  OpCodeProgram c = instr(ok);
  EXPECT_EQ(c.type.stored, 0x80);
  EXPECT_EQ(arg_of<Register>(c, 0).index(), 0);
  EXPECT_TRUE(bytes_zero(instr(std::string(254, 'a'))));

  std::string too_long = ok + PAD;
  ASSERT_EQ(too_long.size(), 255u);
  EXPECT_DEATH(OpCodeProgram::parse_string(too_long.c_str()),
               "include/kelvane/op_code_definition:153: .*: "
               "Assertion `strlen\\(s\\) < sizeof\\(buf\\) - 1' failed");
  std::string much_longer(400, 'a');
  EXPECT_DEATH(OpCodeProgram::parse_string(much_longer.c_str()),
               "include/kelvane/op_code_definition:153: .*: "
               "Assertion `strlen\\(s\\) < sizeof\\(buf\\) - 1' failed");
}

TEST(InstructionDeathTest, ColumnOutsideTheInstructionAsserts) {
  OpCodeProgram load = instr("loadACCUM");
  EXPECT_DEATH(load.column_do(1, [](auto&) {}), "Assertion `col < num_columns\\(\\)' failed");
  OpCodeProgram cmp = instr("cmp" G0 "ACCUM<");
  EXPECT_DEATH(cmp.column_do(2, [](auto&) {}), "Assertion `col < num_columns\\(\\)' failed");
  OpCodeProgram jump = instr("jump");
  EXPECT_DEATH(jump.column_do(0, [](auto&) {}), "Assertion `col < num_columns\\(\\)' failed");
  OpCodeProgram empty{};
  EXPECT_DEATH(empty.column_do(0, [](auto&) {}), "Assertion `col < num_columns\\(\\)' failed");
}

// ===========================================================================
// Operands: the table.

TEST(OperandTable, EveryKindHasItsValueAndOneColumn) {
  ASSERT_EQ(KindType::count(), 19);
  for (int i = 0; i < 19; ++i) {
    OperandRow const& r = kOperands[i];
    SCOPED_TRACE(show(r.kind));
    EXPECT_EQ(r.stored, 0x80u + unsigned(i));
    EXPECT_EQ(KindType::parse_string(r.kind), r.stored);
    EXPECT_EQ(KindType::parse_string((std::string(r.kind) + PAD).c_str()), r.stored);
    MemoryAddress c = typed<MemoryAddress>(r.stored);
    EXPECT_EQ(c.type.stored, r.stored);
    EXPECT_EQ(c.num_columns(), 1);
    EXPECT_EQ(widths_of(c), std::vector<int>{r.width});
  }
}

TEST(OperandTable, SampleTextOfEveryKindReadsAndWritesBack) {
  for (OperandRow const& r : kOperands) {
    SCOPED_TRACE(show(r.sample));
    MemoryAddress c = operand(r.sample);
    EXPECT_EQ(c.type.stored, r.stored);
    EXPECT_EQ(column_number(c, 0), r.number);
    EXPECT_EQ(show(fmt(c)), show(r.sample));
    EXPECT_EQ(std::strlen(r.sample), 6u);
    EXPECT_TRUE(same_bytes(operand(fmt(c)), c));
  }
}

TEST(OperandTable, EmptyArgumentOfEveryKind) {
  for (OperandRow const& r : kOperands) {
    SCOPED_TRACE(show(r.kind));
    MemoryAddress c = typed<MemoryAddress>(r.stored);
    EXPECT_EQ(show(fmt(c)), show(r.empty_text));
    MemoryAddress back = operand(r.empty_text);
    EXPECT_TRUE(same_bytes(back, c)) << show(r.empty_text);
  }
}

TEST(OperandTable, MagicArgumentOfEveryKindThatHasIt) {
  for (OperandRow const& r : kOperands) {
    if (!r.magic_text) continue;
    SCOPED_TRACE(show(r.kind));
    MemoryAddress c = typed<MemoryAddress>(r.stored);
    c.column_do(0, [](auto& cell) { cell.stored = 1; });
    EXPECT_EQ(show(fmt(c)), show(r.magic_text));
    MemoryAddress back = operand(r.magic_text);
    EXPECT_EQ(back.type.stored, r.stored);
    EXPECT_TRUE(column_magic(back, 0));
    EXPECT_TRUE(same_bytes(back, c));
  }
}

TEST(OperandTable, TheEmptyOperandHasNoColumns) {
  MemoryAddress c{};
  EXPECT_EQ(c.num_columns(), 0);
  bool called = false;
  c.static_switch([&](auto&) { called = true; });
  EXPECT_FALSE(called);
}

TEST(OperandTable, KindReaderNeedsNulOrPadBehindTheByte) {
  EXPECT_EQ(KindType::parse_string("L"), 0x89);
  EXPECT_EQ(KindType::parse_string("L" PAD "x"), 0x89);
  EXPECT_EQ(KindType::parse_string("L0a"), 0);
  EXPECT_EQ(KindType::parse_string("l"), 0);
  EXPECT_EQ(KindType::parse_string(""), 0);
  EXPECT_EQ(KindType::parse_string("Q"), 0);
  // Through the cell's reader the byte behind the kind is cut off.
  EXPECT_EQ(operand("L0a").type.stored, 0x89);
}

// ===========================================================================
// Operands: each argument over its values.

TEST(OperandArguments, RegistersOfAllThreeRegisterKinds) {
  for (char const* kind : {"$", "\x1A", "\x0B"}) {
    for (int i = 0; i < 10; ++i) {
      std::string text = std::string(kind) + kRegisters[i];
      SCOPED_TRACE(show(text));
      MemoryAddress c = operand(text);
      EXPECT_EQ(c.type.stored, KindType::parse_string(kind));
      EXPECT_EQ(bits(arg_of<Register>(c, 0)), 0x80u + unsigned(i));
      EXPECT_EQ(fmt(c), text);
    }
  }
}

TEST(OperandArguments, EveryProjectSettingUnpadded) {
  for (int i = 0; i < 28; ++i) {
    std::string text = std::string("\x14") + kProjectSettings[i];
    SCOPED_TRACE(show(text));
    MemoryAddress c = operand(text);
    EXPECT_EQ(c.type.stored, 0x91);
    EXPECT_EQ(bits(arg_of<ProjectSetting>(c, 0)), 0x80u + unsigned(i));
    EXPECT_EQ(show(fmt(c)), show(text));
  }
}

TEST(OperandArguments, EverySpecialRegisterUnpadded) {
  for (int i = 0; i < 25; ++i) {
    std::string text = std::string("\x0F") + kSregNames[i];
    SCOPED_TRACE(show(text));
    MemoryAddress c = operand(text);
    EXPECT_EQ(c.type.stored, 0x92);
    EXPECT_EQ(bits(arg_of<SpecialRegister>(c, 0)), 0x80u + unsigned(i));
    EXPECT_EQ(show(fmt(c)), show(text));
  }
  EXPECT_EQ(show(fmt(operand("\x0F" "live"))), show("\x0F" "live"));
}

TEST(OperandArguments, PaddedShortNameDoesNotRead) {
  MemoryAddress c = operand("\x14" "bpm" PAD2);
  EXPECT_EQ(c.type.stored, 0x91);
  EXPECT_TRUE(arg_of<ProjectSetting>(c, 0).is_empty());
  EXPECT_TRUE(arg_of<SpecialRegister>(operand("\x0F" "live" PAD), 0).is_empty());
}

TEST(OperandArguments, ImmediateValuesInFivePlaces) {
  for (int v : {-1024, -1000, -99, -1, 0, 1, 42, 999, 1024}) {
    std::string text = "#" + five_places(v);
    SCOPED_TRACE(text);
    MemoryAddress c = operand(text);
    EXPECT_EQ(c.type.stored, 0x81);
    ImmediateValue iv = arg_of<ImmediateValue>(c, 0);
    EXPECT_EQ(iv.value(), v);
    EXPECT_EQ(bits(iv), 0x80000000u + unsigned(v));
    EXPECT_EQ(fmt(c), text);
  }
  // Out of range reads as 0.
  for (char const* text : {"#" " 1025", "#" "-1025", "#" "99999", "#" "-9999"}) {
    SCOPED_TRACE(text);
    ImmediateValue iv = arg_of<ImmediateValue>(operand(text), 0);
    EXPECT_EQ(bits(iv), 0x80000000u);
  }
  // The scan sees five places only.
  EXPECT_EQ(arg_of<ImmediateValue>(operand("#" "12345678"), 0).value(), 0);
  EXPECT_EQ(arg_of<ImmediateValue>(operand("#" "1024" "9"), 0).value(), 0);
  EXPECT_EQ(arg_of<ImmediateValue>(operand("#" "  100" "9"), 0).value(), 100);
  // No number is empty, the text that ends behind the kind included.
  EXPECT_TRUE(arg_of<ImmediateValue>(operand("#"), 0).is_empty());
  EXPECT_TRUE(arg_of<ImmediateValue>(operand("#" "abc"), 0).is_empty());
}

TEST(OperandArguments, ZZNumberOfItsOwnKind) {
  for (int n : {0, 35, 36, 46, 359, 360, 1295}) {
    std::string text = "\x15" + zz(n) + PAD3;
    SCOPED_TRACE(show(text));
    MemoryAddress c = operand(text);
    EXPECT_EQ(c.type.stored, 0x85);
    EXPECT_EQ(arg_of<ZZNumber>(c, 0).value(), n);
    EXPECT_EQ(show(fmt(c)), show(text));
  }
  // A number of 1296 or more reads as 0, not as empty.
  ZZNumber big = arg_of<ZZNumber>(operand("\x15" "ZZ"), 0);
  EXPECT_EQ(bits(big), 0x80000000u);
  EXPECT_EQ(show(fmt(operand("\x15" "ZZ"))), show("\x15" "00" PAD3));
  // Magic as in the index cells.
  EXPECT_TRUE(arg_of<ZZNumber>(operand("\x15" MAG2), 0).is_magic());
  EXPECT_TRUE(arg_of<ZZNumber>(operand("\x15" MAG), 0).is_magic());
  EXPECT_TRUE(arg_of<ZZNumber>(operand("\x15" HEX2), 0).is_empty());
  EXPECT_TRUE(arg_of<ZZNumber>(operand("\x15"), 0).is_empty());
}

TEST(OperandArguments, PatternAndTableIndices) {
  for (int n : {0, 1, 46, 1295}) {
    std::string p = "P" + zz(n) + PAD3;
    std::string t = "T" + zz(n) + PAD3;
    EXPECT_EQ(arg_of<PatternIdx>(operand(p), 0).value(), n);
    EXPECT_EQ(arg_of<TableIdx>(operand(t), 0).value(), n);
    EXPECT_EQ(show(fmt(operand(p))), show(p));
    EXPECT_EQ(show(fmt(operand(t))), show(t));
  }
  // A number past the limit is the empty cell for these kinds.
  EXPECT_TRUE(arg_of<PatternIdx>(operand("P" "ZZ"), 0).is_empty());
  EXPECT_TRUE(arg_of<TableIdx>(operand("T" "ZZ"), 0).is_empty());
  EXPECT_TRUE(arg_of<TableIdx>(operand("T" MAG), 0).is_magic());
  EXPECT_TRUE(arg_of<PatternIdx>(operand("P" MAG2), 0).is_magic());
  EXPECT_TRUE(arg_of<TableIdx>(operand("T"), 0).is_empty());
}

TEST(OperandArguments, HexadecimalKinds) {
  struct Case {
    char const* text;
    unsigned stored;
    int value;
  };
  for (Case k : {Case{"x" "00" PAD3, 0x82, 0}, Case{"x" "80" PAD3, 0x82, 128}, Case{"c" "00" PAD3, 0x86, 0},
                 Case{"p" "3f" PAD3, 0x87, 63}, Case{"f" "3f" PAD3, 0x88, 63}, Case{"L" "00" PAD3, 0x89, 0},
                 Case{"G" "3f" PAD3, 0x8A, 63}, Case{"S" "2b" PAD3, 0x8B, 43}, Case{"\x7F" "00" PAD3, 0x8C, 0}}) {
    SCOPED_TRACE(show(k.text));
    MemoryAddress c = operand(k.text);
    EXPECT_EQ(c.type.stored, k.stored);
    EXPECT_EQ(column_number(c, 0), k.value);
    EXPECT_EQ(show(fmt(c)), show(k.text));
  }
  // Upper case hexadecimal digits read alike and are written in lower case.
  EXPECT_EQ(show(fmt(operand("x" "FF"))), show("x" "ff" PAD3));
  // Out of range: the default 0.
  for (char const* text : {"p" "40", "f" "ff", "c" "40", "G" "ff", "S" "40", "\x7F" "40"}) {
    SCOPED_TRACE(show(text));
    MemoryAddress c = operand(text);
    EXPECT_EQ(column_number(c, 0), 0);
    EXPECT_FALSE(column_empty(c, 0));
    EXPECT_FALSE(column_magic(c, 0));
  }
}

TEST(OperandArguments, NotesAndTransposes) {
  struct Case {
    char const* text;
    int n;
  };
  for (Case k : {Case{"\x0D" "C-0" PAD2, 0}, Case{"\x0D" "C-5" PAD2, 60}, Case{"\x0D" "G-A" PAD2, 127},
                 Case{"\x0D" "C" "\xCD" "5" PAD2, 411}}) {
    SCOPED_TRACE(show(k.text));
    MemoryAddress c = operand(k.text);
    EXPECT_EQ(c.type.stored, 0x83);
    EXPECT_EQ(arg_of<Note>(c, 0).value(), k.n);
    EXPECT_EQ(show(fmt(c)), show(k.text));
  }
  EXPECT_TRUE(arg_of<Note>(operand("\x0D" "[ ]"), 0).is_magic());
  EXPECT_TRUE(arg_of<Note>(operand("\x0D" "---"), 0).is_empty());
  EXPECT_TRUE(arg_of<Note>(operand("\x0D" "E#4"), 0).is_empty());

  for (int v : {-99, -12, -1, 0, 5, 99}) {
    char tmp[8];
    std::snprintf(tmp, sizeof tmp, "%+3d", v);
    std::string text = std::string("\x0E") + tmp + PAD2;
    SCOPED_TRACE(show(text));
    MemoryAddress c = operand(text);
    EXPECT_EQ(c.type.stored, 0x84);
    EXPECT_EQ(arg_of<Transpose>(c, 0).value(), v);
    EXPECT_EQ(show(fmt(c)), show(text));
  }
  EXPECT_EQ(show(fmt(operand("\x0E" " +5"))), show("\x0E" " +5" PAD2));
  EXPECT_EQ(bits(arg_of<Transpose>(operand("\x0E" "100"), 0)), 0x80u);
  EXPECT_TRUE(arg_of<Transpose>(operand("\x0E" "[ ]"), 0).is_magic());
  EXPECT_TRUE(arg_of<Transpose>(operand("\x0E" DEC3), 0).is_empty());
}

// ===========================================================================
// Operands: the worked examples.

TEST(OperandExample, LocalMemoryCell) {
  MemoryAddress c = operand("L" "0a" PAD3);
  EXPECT_EQ(c.type.stored, 0x89);
  EXPECT_EQ(arg_of<Address>(c, 0).value(), 10);
  EXPECT_EQ(show(fmt(c)), show("L" "0a" PAD3));
}

TEST(OperandExample, Register) {
  MemoryAddress c = operand("$" "ACCUM");
  EXPECT_EQ(c.type.stored, 0x80);
  EXPECT_EQ(arg_of<Register>(c, 0).index(), 0);
  EXPECT_EQ(show(fmt(c)), show("$" "ACCUM"));
}

TEST(OperandExample, ImmediateWithLeadingBlanks) {
  MemoryAddress c = operand("#" "   42");
  EXPECT_EQ(c.type.stored, 0x81);
  EXPECT_EQ(arg_of<ImmediateValue>(c, 0).value(), 42);
  EXPECT_EQ(show(fmt(c)), show("#" "   42"));
}

TEST(OperandExample, TableIndex46) {
  MemoryAddress c = operand("T" "1a" PAD3);
  EXPECT_EQ(c.type.stored, 0x90);
  EXPECT_EQ(arg_of<TableIdx>(c, 0).value(), 46);
  EXPECT_EQ(show(fmt(c)), show("T" "1a" PAD3));
}

TEST(OperandExample, Note) {
  MemoryAddress c = operand("\x0D" "C-5" PAD2);
  EXPECT_EQ(c.type.stored, 0x83);
  EXPECT_EQ(arg_of<Note>(c, 0).value(), 60);
  EXPECT_EQ(show(fmt(c)), show("\x0D" "C-5" PAD2));
}

TEST(OperandExample, ProjectSettingBpmUnpadded) {
  MemoryAddress c = operand("\x14" "bpm");
  EXPECT_EQ(c.type.stored, 0x91);
  EXPECT_EQ(arg_of<ProjectSetting>(c, 0).index(), 0);
  EXPECT_EQ(show(fmt(c)), show("\x14" "bpm"));
}

// ===========================================================================
// Operands: edge cases.

TEST(OperandEdge, PadBytesBehindATwoWideArgumentAreNeverRead) {
  MemoryAddress expected = operand("L" "0a");
  for (char const* text : {"L" "0a" PAD3, "L" "0a" "zzz", "L" "0a" "\x04\x01\xFF", "L" "0a" "123456789"}) {
    SCOPED_TRACE(show(text));
    EXPECT_TRUE(same_bytes(operand(text), expected));
  }
  EXPECT_TRUE(same_bytes(operand("T" "1a" "ff"), operand("T" "1a")));
  EXPECT_TRUE(same_bytes(operand("\x0D" "C-5" "xx"), operand("\x0D" "C-5")));
}

TEST(OperandEdge, EachArgumentIsCutToItsWidth) {
  EXPECT_EQ(arg_of<Register>(operand("$" "ACCUMULATOR"), 0).index(), 0);
  EXPECT_EQ(arg_of<Register>(operand("\x1A" "REG_3" "x"), 0).index(), 8);
  // The cut leaves the longer text, which is no name.
  EXPECT_TRUE(arg_of<ProjectSetting>(operand("\x14" "bpmxx"), 0).is_empty());
  EXPECT_EQ(arg_of<ProjectSetting>(operand("\x14" "cmatk" "x"), 0).index(), 1);
  // "%02x" sees two places: "1ff" reads as 0x1f.
  EXPECT_EQ((arg_of<ValueTemplate<255, 0>>(operand("x" "1ff"), 0).value()), 0x1f);
  // The scan skips a leading blank.
  MemoryAddress blank = operand("x" " f");
  EXPECT_EQ((arg_of<ValueTemplate<255, 0>>(blank, 0).value()), 15);
  EXPECT_EQ(show(fmt(blank)), show("x" "0f" PAD3));
  // A lower case note letter reads alike and is written in upper case.
  MemoryAddress note = operand("\x0D" "c-5");
  EXPECT_EQ(arg_of<Note>(note, 0).value(), 60);
  EXPECT_EQ(show(fmt(note)), show("\x0D" "C-5" PAD2));
}

TEST(OperandEdge, ImmediateMagic) {
  MemoryAddress c = operand("#" MAG);
  EXPECT_EQ(c.type.stored, 0x81);
  EXPECT_TRUE(arg_of<ImmediateValue>(c, 0).is_magic());
  EXPECT_EQ(show(fmt(c)), show("#" MAG5));
  // Only the first byte is looked at.
  EXPECT_TRUE(arg_of<ImmediateValue>(operand("#" MAG "123"), 0).is_magic());
}

TEST(OperandEdge, ImmediateOutOfRangeAndEmpty) {
  MemoryAddress big = operand("#" "2000");
  EXPECT_EQ(big.type.stored, 0x81);
  ImmediateValue v = arg_of<ImmediateValue>(big, 0);
  EXPECT_EQ(v.value(), 0);
  EXPECT_EQ(bits(v), 0x80000000u);
  EXPECT_EQ(show(fmt(big)), show("#" "    0"));

  MemoryAddress empty = operand("#" HEX5);
  EXPECT_EQ(empty.type.stored, 0x81);
  EXPECT_TRUE(arg_of<ImmediateValue>(empty, 0).is_empty());
  EXPECT_EQ(show(fmt(empty)), show("#" HEX5));
}

TEST(OperandEdge, MagicBytesForPatchAndChordMemory) {
  MemoryAddress p = operand("p" MAG2);
  EXPECT_EQ(p.type.stored, 0x87);
  EXPECT_TRUE(arg_of<PatchIdx>(p, 0).is_empty());
  EXPECT_EQ(show(fmt(p)), show("p" HEX2 PAD3));

  MemoryAddress c = operand("c" MAG2);
  EXPECT_EQ(c.type.stored, 0x86);
  EXPECT_TRUE(arg_of<ChordMemIdx>(c, 0).is_magic());
  EXPECT_EQ(show(fmt(c)), show("c" MAG2 PAD3));
}

TEST(OperandEdge, EmptyColumnOfAMagicKindReadsAsMagic) {
  // An empty column of a type with the magic state reads as magic.
  EXPECT_TRUE(arg_of<ChordMemIdx>(operand("c"), 0).is_magic());
  EXPECT_TRUE(arg_of<FXPatchIdx>(operand("f"), 0).is_magic());
  EXPECT_TRUE(arg_of<PatchIdx>(operand("p"), 0).is_empty());
  EXPECT_TRUE((arg_of<ValueTemplate<255, 0>>(operand("x"), 0).is_empty()));
  EXPECT_TRUE(arg_of<Address>(operand("L"), 0).is_empty());
}

TEST(OperandEdge, BaseThirtySixTextInHexadecimalKindIsEmpty) {
  MemoryAddress c = operand("x" "zz");
  EXPECT_EQ(c.type.stored, 0x82);
  EXPECT_TRUE((arg_of<ValueTemplate<255, 0>>(c, 0).is_empty()));
  EXPECT_EQ(show(fmt(c)), show("x" HEX2 PAD3));
}

TEST(OperandEdge, AddressOutOfRangeReadsAsZero) {
  MemoryAddress c = operand("L" "40");
  EXPECT_EQ(c.type.stored, 0x89);
  Address a = arg_of<Address>(c, 0);
  EXPECT_EQ(a.value(), 0);
  EXPECT_EQ(bits(a), 0x80000000u);
  EXPECT_EQ(show(fmt(c)), show("L" "00" PAD3));
}

TEST(OperandEdge, UnknownKindIsAllZero) {
  for (char const* text : {"Q", "Q0a" PAD3, "QACCUM", "l0a", "", PAD "L0a", "\x01" "00", "\xFF" "ACCUM"}) {
    SCOPED_TRACE(show(text));
    MemoryAddress c = operand(text);
    EXPECT_TRUE(bytes_zero(c));
    EXPECT_TRUE(c.type.is_empty());
    EXPECT_EQ(c.num_columns(), 0);
  }
}

// ===========================================================================
// Operands: memory.

TEST(OperandMemory, ParseLeavesUnusedArgumentBytesZero) {
  EXPECT_TRUE(same_bytes(operand("L0a" PAD3), RawOperand(0x89).int_at(0, 0x8000000Au).cell()));
  EXPECT_TRUE(same_bytes(operand("$ACCUM"), RawOperand(0x80).byte_at(0, 0x80).cell()));
  EXPECT_TRUE(same_bytes(operand("#   42"), RawOperand(0x81).int_at(0, 0x8000002Au).cell()));
  EXPECT_TRUE(same_bytes(operand("T1a" PAD3), RawOperand(0x90).int_at(0, 0x8000002Eu).cell()));
  EXPECT_TRUE(same_bytes(operand("\x0D" "C-5" PAD2), RawOperand(0x83).int_at(0, 0x8000003Cu).cell()));
  EXPECT_TRUE(same_bytes(operand("\x14" "bpm"), RawOperand(0x91).byte_at(0, 0x80).cell()));
  EXPECT_TRUE(same_bytes(operand("\x0E" "-12"), RawOperand(0x84).byte_at(0, 0x74).cell()));
  EXPECT_TRUE(same_bytes(operand("c" MAG2), RawOperand(0x86).byte_at(0, 0x01).cell()));
  EXPECT_TRUE(same_bytes(operand("p2a"), RawOperand(0x87).byte_at(0, 0xAA).cell()));
  EXPECT_TRUE(same_bytes(operand("#" MAG), RawOperand(0x81).int_at(0, 1).cell()));
  EXPECT_TRUE(same_bytes(operand("\x15" "ZZ"), RawOperand(0x85).int_at(0, 0x80000000u).cell()));
  EXPECT_TRUE(same_bytes(operand("\x0F" "fxpch"), RawOperand(0x92).byte_at(0, 0x98).cell()));
  EXPECT_TRUE(same_bytes(operand("p" MAG2), RawOperand(0x87).cell()));
}

// ===========================================================================
// Operands: visiting.

TEST(OperandVisit, ForEachArgVisitsTheOneColumn) {
  for (OperandRow const& r : kOperands) {
    MemoryAddress c = operand(r.sample);
    int visits = 0;
    int width = 0;
    c.for_each_arg([&](auto const&, int w) {
      ++visits;
      width = w;
    });
    EXPECT_EQ(visits, 1) << show(r.kind);
    EXPECT_EQ(width, r.width) << show(r.kind);
  }
}

TEST(OperandVisit, ColumnDoRewritesTheArgument) {
  MemoryAddress c = operand("T1a" PAD3);
  c.column_do(0, [](auto& cell) {
    if constexpr (std::is_same_v<std::remove_cvref_t<decltype(cell)>, TableIdx>)
      cell = TableIdx::from_value(cell.value() + 1);
  });
  EXPECT_EQ(show(fmt(c)), show("T1b" PAD3));
}

// ===========================================================================
// Operands: assertions.

TEST(OperandDeathTest, TextOf255BytesAsserts) {
  std::string ok = "L0a" + std::string(251, PAD[0]);
  ASSERT_EQ(ok.size(), 254u);
  MemoryAddress c = operand(ok);
  EXPECT_EQ(c.type.stored, 0x89);
  EXPECT_EQ(arg_of<Address>(c, 0).value(), 10);
  EXPECT_TRUE(bytes_zero(operand(std::string(254, 'Q'))));

  std::string too_long = ok + PAD;
  ASSERT_EQ(too_long.size(), 255u);
  EXPECT_DEATH(MemoryAddress::parse_string(too_long.c_str()),
               "include/kelvane/op_code_definition:153: .*: "
               "Assertion `strlen\\(s\\) < sizeof\\(buf\\) - 1' failed");
  std::string much_longer(1000, 'Q');
  EXPECT_DEATH(MemoryAddress::parse_string(much_longer.c_str()),
               "include/kelvane/op_code_definition:153: .*: "
               "Assertion `strlen\\(s\\) < sizeof\\(buf\\) - 1' failed");
}

TEST(OperandDeathTest, ColumnOutsideTheOperandAsserts) {
  MemoryAddress c = operand("L0a");
  EXPECT_DEATH(c.column_do(1, [](auto&) {}), "Assertion `col < num_columns\\(\\)' failed");
  MemoryAddress empty{};
  EXPECT_DEATH(empty.column_do(0, [](auto&) {}), "Assertion `col < num_columns\\(\\)' failed");
}

// ===========================================================================
// Robustness: random and truncated texts.

namespace {

struct Robustness {
  int parsed = 0;
  int typed = 0;
  int exempt = 0;
};

// A cell holds a number that has no text of its own: a note of 128..255
// (reachable only through octave 'b'), or a base-36 index folded from bytes
// below '0' into a number below 0. The writer's arithmetic is defined for
// the readable numbers only, so such cells are not expected to come back
// unchanged.
template <class Cell>
bool holds_unwritable_number(Cell const& c) {
  bool out = false;
  c.for_each_arg([&](auto const& cell) {
    using T = std::remove_cvref_t<decltype(cell)>;
    if constexpr (std::is_same_v<T, Note>) {
      if (cell.has_number() && cell.value() >= 128 && cell.value() <= 255) out = true;
    } else if constexpr (std::is_same_v<T, TableIdx> || std::is_same_v<T, PatternIdx> ||
                         std::is_same_v<T, ProgramIdx> || std::is_same_v<T, ZZNumber>) {
      if (cell.has_number() && cell.value() < 0) out = true;
    }
  });
  return out;
}

// Checks a cell read from `text`: a valid type, unused bytes zero, every
// named argument empty or inside its table, a text inside the buffer, and
// the text read again gives the same bytes.
template <class Cell>
void check_text(std::string const& text, size_t max_places, Robustness& stats) {
  ASSERT_LT(text.size(), 255u);
  Cell c = Cell::parse_string(text.c_str());
  ++stats.parsed;
  unsigned char const* base = reinterpret_cast<unsigned char const*>(&c);

  if (c.type.is_empty()) {
    EXPECT_TRUE(bytes_zero(c)) << show(text);
  } else {
    ++stats.typed;
    EXPECT_GE(c.type.stored, 0x80) << show(text);
    EXPECT_LT(c.type.stored, 0x80 + Cell::OpType::count()) << show(text);
    // Bytes covered by the type's arguments; all others must be zero.
    std::vector<bool> used(sizeof(Cell), false);
    used[offsetof(Cell, type)] = true;
    c.for_each_arg([&](auto const& cell) {
      size_t off = size_t(reinterpret_cast<unsigned char const*>(&cell) - base);
      EXPECT_LE(off + sizeof(cell), sizeof(Cell));
      for (size_t i = 0; i < sizeof(cell) && off + i < sizeof(Cell); ++i) used[off + i] = true;
      using T = std::remove_cvref_t<decltype(cell)>;
      if constexpr (requires { T::count(); cell.index(); }) {
        EXPECT_TRUE(cell.is_empty() || (cell.index() >= 0 && cell.index() < T::count())) << show(text);
      }
    });
    for (size_t i = 0; i < sizeof(Cell); ++i)
      if (!used[i]) {
        EXPECT_EQ(base[i], 0) << "byte " << i << " of " << show(text);
      }
  }

  // The text fits the 128-byte buffer and leaves what lies behind it alone.
  char buf[128 + 32];
  std::memset(buf, 0, 128);
  std::memset(buf + 128, 0x55, 32);
  c.format_string(buf, 128);
  for (size_t i = 128; i < sizeof buf; ++i) ASSERT_EQ(buf[i], 0x55) << show(text);
  size_t n = strnlen(buf, 128);
  ASSERT_LT(n, 128u) << show(text);
  std::string written(buf, n);
  if (!c.type.is_empty()) {
    EXPECT_LE(n, max_places) << show(text) << " -> " << show(written);
  }

  if (holds_unwritable_number(c)) {
    ++stats.exempt;
    return;
  }
  Cell again = Cell::parse_string(written.c_str());
  EXPECT_TRUE(same_bytes(again, c)) << show(text) << " -> " << show(written);
  EXPECT_EQ(show(fmt(again)), show(written)) << show(text);
}

// Bytes that the readers give a meaning to.
std::string const kInteresting =
    "0123456789abcdefzAFGLZ-+#[]: %!xX<>=^" "\x04\xB0\xF9\xFA\xF2\xF3\xE0\xE1\xCD\xC1\xD0\xD2\xC2\x10\x0F\xFF\x80\x7F";

std::string random_bytes(std::mt19937& rng, size_t max_len) {
  std::uniform_int_distribution<size_t> len_d(0, max_len);
  std::uniform_int_distribution<int> byte_d(1, 255);
  size_t len = len_d(rng);
  std::string s;
  for (size_t i = 0; i < len; ++i) s += char(byte_d(rng));
  return s;
}

// A random tail: interesting bytes, pieces of names of every argument
// list, and sometimes a name cut short.
std::string random_tail(std::mt19937& rng) {
  std::vector<char const*> names;
  for (char const* n : kRegisters) names.push_back(n);
  for (char const* n : kArithOps) names.push_back(n);
  for (char const* n : kComparisons) names.push_back(n);
  for (char const* n : kTests) names.push_back(n);
  for (char const* n : kFuncs) names.push_back(n);
  for (char const* n : kProjectSettings) names.push_back(n);
  for (char const* n : kSregNames) names.push_back(n);
  for (char const* n : kTriggerConditions) names.push_back(n);
  for (char const* n : kCommandMnemonics) names.push_back(n);
  for (char const* n : {"C-5", "G#A", "B#b", "C\xCD" "A", "[ ]", "---", " +5", "-99", "1a", "zz", "ZZ", "   42",
                        "-1024", "\x04\x04\x04\x04\x04", "\xF9\xF9", "\xFA\xFA\xFA", "\xB0\xB0\xB0\xB0"})
    names.push_back(n);
  std::uniform_int_distribution<int> pick(0, 3);
  std::uniform_int_distribution<size_t> name_d(0, names.size() - 1);
  std::uniform_int_distribution<size_t> byte_d(0, kInteresting.size() - 1);
  std::uniform_int_distribution<int> count_d(0, 4);
  std::string s;
  int parts = count_d(rng);
  for (int p = 0; p < parts; ++p) {
    switch (pick(rng)) {
      case 0:
        s += names[name_d(rng)];
        break;
      case 1: {
        std::string n = names[name_d(rng)];
        s += n.substr(0, std::uniform_int_distribution<size_t>(0, n.size())(rng));
        break;
      }
      case 2:
        for (int k = count_d(rng); k >= 0; --k) s += kInteresting[byte_d(rng)];
        break;
      default:
        s += random_bytes(rng, 3);
        break;
    }
  }
  return s;
}

char const* const kInstructionMnemonics[] = {"load", "stre", "push", "pops", "dups", "swap", "mpty", "arit",
                                             "incr", "decr", "cmp" G0, "cmp" G1, "tst" G0, "tst" G1, "pCn" G0,
                                             "tCn" G0, "prnt", "jump", "jrel", "call", "func", "retn", "exop",
                                             "xchg"};
char const* const kKinds[] = {"$", "#", "x", "\x0D", "\x0E", "\x15", "c", "p", "f", "L",
                              "G", "S", "\x7F", "\x1A", "\x0B", "P", "T", "\x14", "\x0F"};

// The worked texts of both cells, the edge texts and every table sample.
std::vector<std::string> instruction_texts() {
  std::vector<std::string> v = {"load" "ACCUM" PAD, "cmp" G0 "IDX_X" LE, "jump" PAD6, "arit" "or " PAD3,
                                "call" "1a" PAD4,   "func" "nfchrd",     "exop" "bpm" PAD4, "xchg" "REG_0",
                                "load" "ACCUX",     "arit" "or",         "exop" PAD4,   "call" MAG2,
                                "cmp" G0 "ACCUM!",  "tst" G0 "zero",     "funcsin"};
  for (InstrRow const& r : kInstructions) {
    v.push_back(r.sample);
    v.push_back(r.empty_text);
  }
  return v;
}

std::vector<std::string> operand_texts() {
  std::vector<std::string> v = {"L" "0a" PAD3, "$" "ACCUM", "#" "   42", "T" "1a" PAD3, "\x0D" "C-5" PAD2,
                                "\x14" "bpm", "#" MAG,      "#" "2000", "#" HEX5,      "p" MAG2,
                                "c" MAG2,     "x" "zz",     "L" "40",   "Q0a"};
  for (OperandRow const& r : kOperands) {
    v.push_back(r.sample);
    v.push_back(r.empty_text);
    if (r.magic_text) v.push_back(r.magic_text);
  }
  return v;
}

}  // namespace

TEST(ProgramCellsRobustness, EveryPrefixOfTheWorkedTexts) {
  Robustness si, so;
  for (std::string const& t : instruction_texts())
    for (size_t k = 0; k <= t.size(); ++k) check_text<OpCodeProgram>(t.substr(0, k), 10, si);
  for (std::string const& t : operand_texts())
    for (size_t k = 0; k <= t.size(); ++k) check_text<MemoryAddress>(t.substr(0, k), 6, so);
  EXPECT_GT(si.typed, 100);
  EXPECT_GT(so.typed, 50);
  EXPECT_EQ(si.exempt, 0);
  EXPECT_EQ(so.exempt, 0);
}

TEST(ProgramCellsRobustness, RandomBytes) {
  std::mt19937 rng(20240611u);
  Robustness si, so;
  for (int i = 0; i < 3000; ++i) {
    std::string s = random_bytes(rng, i % 100 == 0 ? 254 : 24);
    check_text<OpCodeProgram>(s, 10, si);
    check_text<MemoryAddress>(s, 6, so);
    if (HasFatalFailure()) return;
  }
}

TEST(ProgramCellsRobustness, RandomTextsBehindEveryMnemonic) {
  std::mt19937 rng(977u);
  Robustness si, so;
  for (int i = 0; i < 4000; ++i) {
    std::string m = kInstructionMnemonics[size_t(i) % std::size(kInstructionMnemonics)];
    std::string s = m + random_tail(rng);
    if (s.size() > 254) s.resize(254);
    check_text<OpCodeProgram>(s, 10, si);
    if (HasFatalFailure()) return;
  }
  for (int i = 0; i < 4000; ++i) {
    std::string k = kKinds[size_t(i) % std::size(kKinds)];
    std::string s = k + random_tail(rng);
    if (s.size() > 254) s.resize(254);
    check_text<MemoryAddress>(s, 6, so);
    if (HasFatalFailure()) return;
  }
  EXPECT_EQ(si.typed, 4000);
  EXPECT_EQ(so.typed, 4000);
  std::printf("instructions: %d parsed, %d without a written form; operands: %d parsed, %d without\n", si.parsed,
              si.exempt, so.parsed, so.exempt);
}
