#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>

#include "command_args.hpp"
#include "kelvane/op_code_definition.hpp"

using namespace kelvane;

// Blank glyphs, as separate literals so that they never run into a
// following hex digit.
#define PAD "\xB0"
#define HEX2 "\xF9\xF9"
#define MAG "\x04"

namespace {

using OpType = OpCode::OpType;

std::string fmt(OpCode const& op) {
  char buf[128] = {};
  op.format_string(buf, sizeof buf);
  return buf;
}

OpCode parse(std::string const& text) { return OpCode::parse_string(text.c_str()); }

bool same_bytes(OpCode const& a, OpCode const& b) { return std::memcmp(&a, &b, sizeof(OpCode)) == 0; }

using kelvane::testing_support::arg_of;

template <class T>
unsigned bits(T const& cell) {
  return unsigned(std::make_unsigned_t<typename T::rep_type>(cell.stored));
}

// Total places of a command: the mnemonic's four and every column's width.
int text_width(OpCode const& op) {
  int width = 4;
  op.for_each_arg([&](auto const&, int w) { width += w; });
  return width;
}

// One row of the command table as the tracker's files know it, with a
// sample text in its written form.
struct Expected {
  unsigned stored;
  char const* mnemonic;
  int columns;
  int width;
  char const* text;
};

Expected const kCommands[] = {
    {0x80, "chrd", 2, 7, "chrd" "3" "3f" PAD PAD},
    {0x81, "snof", 2, 7, "snof" "2" "60" PAD PAD},
    {0x82, "ptch", 1, 6, "ptch" "2a" PAD PAD PAD},
    {0x83, "fltr", 1, 8, "fltr" "-127" PAD},
    {0x84, "dlay", 3, 9, "dlay" "ff" MAG MAG "7"},
    {0x85, "fxpt", 1, 6, "fxpt" MAG MAG PAD PAD PAD},
    {0x86, "pnv1", 2, 9, "pnv1" "-12" "06"},
    {0x87, "pnv2", 2, 9, "pnv2" " +5" HEX2},
    {0x88, "pbnd", 2, 9, "pbnd" "[ ]" "01"},
    {0x89, "cv\x0D", 2, 8, "cv\x0D" PAD "7" "+99" PAD},
    {0x8A, "cvV", 2, 9, "cvV" PAD "0" "-255"},
    {0x8B, "mmem", 1, 6, "mmem" "10" PAD PAD PAD},
    {0x8C, "mods", 2, 7, "mods" "f" "80" PAD PAD},
    {0x8D, "modw", 2, 9, "modw" "1" "s50\xF1"},
    {0x8E, "moda", 2, 7, "moda" "0" "00" PAD PAD},
    {0x8F, "modm", 2, 9, "modm" "2" "*4/3"},
    {0x90, "modr", 1, 5, "modr" "a" PAD PAD PAD PAD},
    {0x91, "tjmp", 2, 7, "tjmp" MAG "3f" PAD PAD},
    {0x92, "tlen", 2, 7, "tlen" "7" "10" PAD PAD},
    {0x93, "tSif", 1, 7, "tSif" "FAL" PAD PAD},
    {0x94, "tCif", 1, 7, "tCif" "90%" PAD PAD},
    {0x95, "tCfe", 1, 7, "tCfe" "TRU" PAD PAD},
    {0x96, "call", 1, 6, "call" "zz" PAD PAD PAD},
    {0x97, "cal1", 2, 8, "cal1" "1a" MAG MAG PAD},
    {0x98, "cal2", 3, 9, "cal2" "00" "ff" "f"},
    {0x99, "cal3", 4, 9, "cal3" "0z" "1" "2" "3"},
    {0x9A, "caln", 2, 9, "caln" "10" "C#5"},
    {0x9B, "calt", 2, 9, "calt" "10" "-99"},
    {0x9C, "stre", 3, 9, "stre" "L" "0a" "7f"},
    {0x9D, "strc", 3, 9, "strc" "V" "3f" MAG MAG},
    {0x9E, "strp", 3, 9, "strp" "G" "00" "3f"},
    {0x9F, "mpty", 2, 7, "mpty" "V" "01" PAD PAD},
    {0xA0, "STif", 1, 7, "STif" "!PR" PAD PAD},
    {0xA1, "Cif", 1, 7, "Cif" PAD "1:2" PAD PAD},
    {0xA2, "Cife", 1, 7, "Cife" "6:6" PAD PAD},
    {0xA3, "note", 2, 8, "note" "f" "C\xCD" "5" PAD},
    {0xA4, "trns", 2, 8, "trns" "0" " +5" PAD},
    {0xA5, "velo", 2, 7, "velo" "1" "7f" PAD PAD},
    {0xA6, "slce", 2, 6, "slce" "2" MAG PAD PAD PAD},
    {0xA7, "bkdx", 2, 7, "bkdx" "3" "20" PAD PAD},
    {0xA8, "tble", 2, 7, "tble" "0" "zz" PAD PAD},
    {0xA9, "sstn", 2, 6, "sstn" "4" "1" PAD PAD PAD},
    {0xAA, "v8bt", 2, 7, "v8bt" "5" "ff" PAD PAD},
    {0xAB, "etrg", 2, 6, "etrg" "6" MAG PAD PAD PAD},
    {0xAC, "tbtp", 2, 8, "tbtp" "7" "-99" PAD},
    {0xAD, "bpm\x0D", 1, 7, "bpm\x0D" " +0" PAD PAD},
    {0xAE, "bpm%", 1, 8, "bpm%" "050%" PAD},
    {0xAF, "bpm", 1, 7, "bpm" PAD "300" PAD PAD},
    {0xB0, "step", 1, 6, "step" "3f" PAD PAD PAD},
    {0xB1, "spbs", 1, 5, "spbs" "1" PAD PAD PAD PAD},
    {0xB2, "brk", 2, 8, "brk" PAD MAG MAG "80" PAD},
    {0xB3, "qrow", 2, 7, "qrow" "f" "ff" PAD PAD},
    {0xB4, "qrw2", 2, 7, "qrw2" MAG MAG MAG PAD PAD},
    {0xB5, "stop", 1, 5, "stop" "0" PAD PAD PAD PAD},
    {0xB6, "mmsg", 1, 9, "mmsg" "conti"},
    {0xB7, "mccX", 2, 8, "mccX" "7f" "00" PAD},
    {0xB8, "maft", 1, 6, "maft" "40" PAD PAD PAD},
    {0xB9, "mprg", 1, 6, "mprg" "7f" PAD PAD PAD},
    {0xBA, "mpwh", 1, 8, "mpwh" "3fff" PAD},
    {0xBB, "ppos", 1, 6, "ppos" MAG MAG PAD PAD PAD},
    {0xBC, "rev\x1D", 1, 5, "rev\x1D" "0" PAD PAD PAD PAD},
};

static_assert(std::size(kCommands) == 61);
static_assert(OpType::stored_of("chrd") == 0x80);
static_assert(OpType::stored_of("cv\x0D") == 0x89);
static_assert(OpType::stored_of("bpm") == 0xAF);
static_assert(OpType::stored_of("rev\x1D") == 0xBC);

static_assert(std::is_trivially_copyable_v<OpCode>);
static_assert(sizeof(OpType) == 1);
static_assert(offsetof(OpCode, args) == 4);
static_assert(sizeof(OpCode) == 20);

// A cell built byte by byte: the type, then cells at byte offsets of the
// argument area.
struct RawOpCode {
  unsigned char bytes[sizeof(OpCode)] = {};
  explicit RawOpCode(unsigned type) { bytes[0] = (unsigned char)type; }
  RawOpCode& byte_at(size_t offset, unsigned v) {
    bytes[offsetof(OpCode, args) + offset] = (unsigned char)v;
    return *this;
  }
  RawOpCode& int_at(size_t offset, unsigned v) {
    std::memcpy(bytes + offsetof(OpCode, args) + offset, &v, sizeof v);
    return *this;
  }
  OpCode cell() const {
    OpCode op;
    std::memcpy(&op, bytes, sizeof op);
    return op;
  }
};

}  // namespace

// ---------------------------------------------------------------------------
// The table.

TEST(OpCodeTable, EveryRowHasItsValueColumnsAndWidth) {
  ASSERT_EQ(OpType::count(), 61);
  for (int i = 0; i < 61; ++i) {
    Expected const& e = kCommands[i];
    SCOPED_TRACE(e.mnemonic);
    EXPECT_EQ(e.stored, 0x80u + unsigned(i));
    EXPECT_EQ(OpType::parse_string(e.mnemonic), e.stored);
    OpType t = OpType::from_stored(uint8_t(e.stored));
    EXPECT_EQ(t.index(), i);
    ASSERT_NE(t.mnemonic(), nullptr);
    EXPECT_EQ(std::string(t.mnemonic()), e.mnemonic);
    OpCode op{};
    op.type = t;
    EXPECT_EQ(op.num_columns(), e.columns);
    EXPECT_EQ(text_width(op), e.width);
  }
}

TEST(OpCodeTable, EmptyCommandHasNoColumns) {
  OpCode op{};
  EXPECT_EQ(op.num_columns(), 0);
  EXPECT_EQ(op.type.mnemonic(), nullptr);
  bool called = false;
  op.static_switch([&](auto&) { called = true; });
  EXPECT_FALSE(called);
  // A byte outside the table is no command either.
  op.type = OpType::from_stored(0xBD);
  EXPECT_EQ(op.num_columns(), 0);
  op.static_switch([&](auto&) { called = true; });
  EXPECT_FALSE(called);
}

TEST(OpCodeTable, RowsWithOneArgumentListShareOneTuple) {
  // pnv1, pnv2 and pbnd keep their arguments in the same union member, so
  // a cell read for one is the same bytes as for the others.
  OpCode a = parse("pnv1" "-12" "06");
  OpCode b = parse("pbnd" "-12" "06");
  EXPECT_EQ(std::memcmp(&a.args, &b.args, sizeof a.args), 0);
  EXPECT_EQ(arg_of<Transpose>(b, 0).value(), -12);
  EXPECT_EQ(arg_of<StepLength>(b, 1).value(), 6);
}

TEST(OpCodeTable, StaticSwitchGivesTheTupleOfTheType) {
  OpCode op = parse("cal3" "0z" "1" "2" "3");
  int size = -1;
  int widths = 0;
  op.static_switch([&](auto& tuple) {
    using Tuple = std::remove_cvref_t<decltype(tuple)>;
    size = Tuple::size;
    // The lambda is instantiated for every row; only cal3's list has four.
    if constexpr (Tuple::size == 4) {
      widths = Tuple::template width<0> + Tuple::template width<1> + Tuple::template width<2> +
               Tuple::template width<3>;
      EXPECT_EQ(command::cell_at<0>(tuple).value(), 35);
      EXPECT_EQ(command::cell_at<3>(tuple).value(), 3);
    }
  });
  EXPECT_EQ(size, 4);
  EXPECT_EQ(widths, 5);
}

// ---------------------------------------------------------------------------
// Round trips.

TEST(OpCodeRoundTrip, SampleTextOfEveryCommand) {
  for (Expected const& e : kCommands) {
    SCOPED_TRACE(e.mnemonic);
    OpCode op = parse(e.text);
    EXPECT_EQ(bits(op.type), e.stored);
    EXPECT_EQ(fmt(op), e.text);
    OpCode again = parse(fmt(op));
    EXPECT_TRUE(same_bytes(op, again));
  }
}

namespace {

enum class Sample { Empty, Min, Max, Magic };

// Puts a sample value into a cell of any argument type.
template <class T>
void set_sample(T& cell, Sample s) {
  cell = T{};
  if (s == Sample::Empty) return;
  if constexpr (requires { T::count(); }) {
    // An enumeration: first or last entry.
    cell = T::from_index(s == Sample::Max ? T::count() - 1 : 0);
  } else if constexpr (std::is_same_v<T, Trigger>) {
    cell = Trigger::set_cell();
  } else {
    if (s == Sample::Magic) {
      if constexpr (T::allow_magic) cell = T::magic_cell();
      return;
    }
    cell = T::from_value(s == Sample::Max ? T::max_value : T::min_value);
  }
}

}  // namespace

TEST(OpCodeRoundTrip, FormatThenParseKeepsTheBytesOfEveryCommand) {
  for (int i = 0; i < OpType::count(); ++i) {
    for (Sample s : {Sample::Empty, Sample::Min, Sample::Max, Sample::Magic}) {
      SCOPED_TRACE(std::string(OpType::name_of(i)) + " sample " + std::to_string(int(s)));
      OpCode op;
      std::memset(&op, 0, sizeof op);
      op.type = OpType::from_index(i);
      op.for_each_arg([&](auto& cell) { set_sample(cell, s); });
      std::string text = fmt(op);
      OpCode back = parse(text);
      EXPECT_TRUE(same_bytes(op, back)) << "text " << text;
      EXPECT_EQ(fmt(back), text);
    }
  }
}

// ---------------------------------------------------------------------------
// Worked examples.

TEST(OpCodeExample, StoreIntoLocalMemory) {
  OpCode op = parse("streL0a7f");
  EXPECT_EQ(bits(op.type), 0x9Cu);
  EXPECT_EQ(arg_of<AddressSpace>(op, 0).index(), 0);
  EXPECT_EQ(arg_of<Address>(op, 1).value(), 0x0a);
  EXPECT_EQ((arg_of<ValueTemplateM<255, 0>>(op, 2).value()), 0x7f);
  EXPECT_EQ(fmt(op), "streL0a7f");
}

TEST(OpCodeExample, StoreWithMagicAndWithEmptyLastArgument) {
  OpCode magic = parse("streL0a" MAG MAG);
  EXPECT_TRUE((arg_of<ValueTemplateM<255, 0>>(magic, 2).is_magic()));
  EXPECT_EQ(fmt(magic), "streL0a" MAG MAG);

  OpCode empty = parse("streL0a" HEX2);
  EXPECT_TRUE((arg_of<ValueTemplateM<255, 0>>(empty, 2).is_empty()));
  EXPECT_EQ(fmt(empty), "streL0a" HEX2);
}

TEST(OpCodeExample, ShortMnemonicIsPaddedToNinePlaces) {
  OpCode op = parse("Cif" PAD "1:2" PAD PAD);
  EXPECT_EQ(bits(op.type), 0xA1u);
  EXPECT_EQ(arg_of<TriggerCondition>(op, 0).index(), 1);
  EXPECT_EQ(fmt(op), "Cif" PAD "1:2" PAD PAD);
  // Without the trailing padding it reads the same.
  EXPECT_TRUE(same_bytes(parse("Cif" PAD "1:2"), op));
}

TEST(OpCodeExample, SignedArgumentKeepsItsBlank) {
  OpCode op = parse("trns0 +5" PAD);
  EXPECT_EQ(bits(op.type), 0xA4u);
  EXPECT_EQ(arg_of<ColumnIdx>(op, 0).value(), 0);
  EXPECT_EQ(arg_of<Transpose>(op, 1).value(), 5);
  EXPECT_EQ(fmt(op), "trns0 +5" PAD);
}

// ---------------------------------------------------------------------------
// Edge cases of reading.

TEST(OpCodeParse, BpmWithNumberOutOfRangeAndEmpty) {
  using Bpm = IntSetting<30, 300, 127, 10>;
  OpCode a = parse("bpm" PAD "120" PAD PAD);
  EXPECT_EQ(bits(a.type), 0xAFu);
  EXPECT_EQ(arg_of<Bpm>(a, 0).value(), 120);

  OpCode b = parse("bpm" PAD "500");
  EXPECT_EQ(bits(b.type), 0xAFu);
  EXPECT_EQ(arg_of<Bpm>(b, 0).value(), 127);

  OpCode c = parse("bpm" PAD "\xFA\xFA\xFA");
  EXPECT_EQ(bits(c.type), 0xAFu);
  EXPECT_TRUE(arg_of<Bpm>(c, 0).is_empty());
  // An empty decimal column blanks each of its three places.
  EXPECT_EQ(fmt(c), "bpm" PAD "\xFA\xFA\xFA" PAD PAD);
}

TEST(OpCodeParse, PercentTakesTheWholeMnemonicWidth) {
  OpCode op = parse("bpm%050%");
  EXPECT_EQ(bits(op.type), 0xAEu);
  EXPECT_EQ(arg_of<Percentage>(op, 0).value(), 50);
}

TEST(OpCodeParse, UnknownMnemonicIsTheEmptyCommand) {
  for (char const* text : {"xyzw1234", "", "bpmx120", "CIF" PAD "1:2", "Cifx1:2", PAD "ptch05"}) {
    SCOPED_TRACE(text);
    EXPECT_TRUE(bytes_zero(OpCode::parse_string(text)));
  }
}

TEST(OpCodeParse, TextThatEndsEarlyLeavesEmptyOrMagicColumns) {
  OpCode chrd = parse("chrd0");
  EXPECT_EQ(bits(chrd.type), 0x80u);
  EXPECT_EQ(arg_of<NoteColumnIdx>(chrd, 0).value(), 0);
  EXPECT_TRUE(arg_of<ChordMemIdx>(chrd, 1).is_magic());

  OpCode snof = parse("snof0");
  EXPECT_EQ(bits(snof.type), 0x81u);
  EXPECT_TRUE(arg_of<StepLength>(snof, 1).is_empty());

  // Only the mnemonic: every column gets the empty text.
  OpCode stre = parse("stre");
  EXPECT_EQ(bits(stre.type), 0x9Cu);
  EXPECT_TRUE(arg_of<AddressSpace>(stre, 0).is_empty());
  EXPECT_TRUE(arg_of<Address>(stre, 1).is_empty());
  EXPECT_TRUE((arg_of<ValueTemplateM<255, 0>>(stre, 2).is_magic()));
}

TEST(OpCodeParse, ColumnOutOfRangeReadsAsDefault) {
  OpCode op = parse("snof504");
  EXPECT_EQ(bits(op.type), 0x81u);
  NoteColumnIdx col = arg_of<NoteColumnIdx>(op, 0);
  EXPECT_EQ(bits(col), 0x80u);
  EXPECT_EQ(col.value(), 0);
  EXPECT_EQ(arg_of<StepLength>(op, 1).value(), 4);
}

TEST(OpCodeParse, UnknownAddressSpaceIsEmptyAndWritesBlank) {
  OpCode op = parse("streX0a7f");
  EXPECT_EQ(bits(op.type), 0x9Cu);
  EXPECT_TRUE(arg_of<AddressSpace>(op, 0).is_empty());
  EXPECT_EQ(arg_of<Address>(op, 1).value(), 0x0a);
  EXPECT_EQ(fmt(op), "stre" "\xF9" "0a7f");
}

TEST(OpCodeParse, MidiPitchWordAndEmptyPitch) {
  OpCode op = parse("mpwh2000");
  EXPECT_EQ(bits(op.type), 0xBAu);
  MidiPitch p = arg_of<MidiPitch>(op, 0);
  EXPECT_EQ(p.value(), 0x2000);
  EXPECT_EQ(unsigned(p.stored), 0xA000u);

  OpCode empty = parse("mpwh" "\xF9\xF9\xF9\xF9");
  EXPECT_EQ(bits(empty.type), 0xBAu);
  EXPECT_TRUE(arg_of<MidiPitch>(empty, 0).is_empty());
}

TEST(OpCodeParse, EachColumnIsCutToItsWidth) {
  // "%x" of one place sees one byte, "%02x" two: "cal3" "0z" "ab" "c"
  // reads 10, 11, 12, not 0xab.
  OpCode op = parse("cal3" "0z" "abc");
  EXPECT_EQ((arg_of<ValueTemplate<15, 0>>(op, 1).value()), 10);
  EXPECT_EQ((arg_of<ValueTemplate<15, 0>>(op, 2).value()), 11);
  EXPECT_EQ((arg_of<ValueTemplate<15, 0>>(op, 3).value()), 12);
  // Bytes behind the last column are never looked at.
  EXPECT_TRUE(same_bytes(parse("ptch2a" PAD PAD PAD "zzzz"), parse("ptch2a")));
}

TEST(OpCodeParse, ControlByteMnemonics) {
  OpCode cv = parse("cv\x0D" PAD "3" "-12" PAD);
  EXPECT_EQ(bits(cv.type), 0x89u);
  EXPECT_EQ((arg_of<IntSetting<0, 7, 0, 10>>(cv, 0).value()), 3);
  EXPECT_EQ(arg_of<Transpose>(cv, 1).value(), -12);

  OpCode rev = parse("rev\x1D" "1");
  EXPECT_EQ(bits(rev.type), 0xBCu);
  EXPECT_EQ(arg_of<Boolean>(rev, 0).value(), 1);
}

// ---------------------------------------------------------------------------
// Mnemonic matching.

TEST(OpCodeType, PrefixMatchNeedsNulOrPadBehind) {
  EXPECT_EQ(OpType::parse_string("bpm" PAD), 0xAF);
  EXPECT_EQ(OpType::parse_string("bpm"), 0xAF);
  EXPECT_EQ(OpType::parse_string("bpm%"), 0xAE);
  EXPECT_EQ(OpType::parse_string("bpm\x0D"), 0xAD);
  EXPECT_EQ(OpType::parse_string("Cif"), 0xA1);
  EXPECT_EQ(OpType::parse_string("Cif" PAD), 0xA1);
  EXPECT_EQ(OpType::parse_string("Cife"), 0xA2);
  EXPECT_EQ(OpType::parse_string("cvV"), 0x8A);
  EXPECT_EQ(OpType::parse_string("cv\x0D"), 0x89);
  EXPECT_EQ(OpType::parse_string("Cifx"), 0);
  EXPECT_EQ(OpType::parse_string("bpm "), 0);
  EXPECT_EQ(OpType::parse_string("bp"), 0);
  EXPECT_EQ(OpType::parse_string("cv"), 0);
  EXPECT_EQ(OpType::parse_string("xyzw"), 0);
  EXPECT_EQ(OpType::parse_string(""), 0);
}

TEST(OpCodeType, WholeTextsPickTheRightNeighbour) {
  EXPECT_EQ(bits(parse("bpm" PAD "120").type), 0xAFu);
  EXPECT_EQ(bits(parse("bpm%120%").type), 0xAEu);
  EXPECT_EQ(bits(parse("bpm\x0D" " +5").type), 0xADu);
  EXPECT_EQ(bits(parse("Cif" PAD "TRU").type), 0xA1u);
  EXPECT_EQ(bits(parse("CifeTRU").type), 0xA2u);
  // "Cif" directly followed by an argument byte is no command.
  EXPECT_TRUE(bytes_zero(parse("CifTRU")));
}

TEST(OpCodeType, WritesAsAColumnOfFourPlaces) {
  // The form another cell uses when it holds a command type as argument.
  char buf[16] = {};
  OpType::of("bpm").format_column(buf, sizeof buf, 4);
  EXPECT_EQ(std::string(buf), "bpm" PAD);
  OpType{}.format_column(buf, sizeof buf, 4);
  EXPECT_EQ(std::string(buf), PAD PAD PAD PAD);
  EXPECT_EQ(bits(command::read_cell<OpType>("bpm" PAD)), 0xAFu);
  EXPECT_TRUE(command::read_cell<OpType>(PAD PAD PAD PAD).is_empty());
}

// ---------------------------------------------------------------------------
// Writing.

TEST(OpCodeFormat, ShortColumnEndsTheText) {
  auto bpm = [](int v) {
    OpCode op{};
    op.type = OpType::of("bpm");
    op.column_do(0, [&](auto& cell) {
      using Bpm = IntSetting<30, 300, 127, 10>;
      if constexpr (std::is_same_v<std::remove_cvref_t<decltype(cell)>, Bpm>) cell = Bpm::from_value(v);
    });
    return fmt(op);
  };
  EXPECT_EQ(bpm(99), "bpm" PAD "99");
  EXPECT_EQ(bpm(30), "bpm" PAD "30");
  EXPECT_EQ(bpm(100), "bpm" PAD "100" PAD PAD);

  EXPECT_EQ(fmt(parse("bkdx05")), "bkdx05");
  EXPECT_EQ(fmt(parse("bkdx0" "9")), "bkdx09");
  EXPECT_EQ(fmt(parse("bkdx010")), "bkdx010" PAD PAD);

  EXPECT_EQ(fmt(parse("mmsgstop")), "mmsgstop");
  EXPECT_EQ(fmt(parse("mmsgstart")), "mmsgstart");
  EXPECT_EQ(fmt(parse("mmsg" "\xF9\xF9\xF9\xF9\xF9")), "mmsg" "\xF9\xF9\xF9\xF9\xF9");

  EXPECT_EQ(fmt(parse("modw0tri")), "modw0tri");
  EXPECT_EQ(fmt(parse("modw0tri\xF1")), "modw0tri\xF1");
  EXPECT_EQ(arg_of<ModulatorWaveform>(parse("modw0tri"), 1).index(), 0);
  EXPECT_EQ(arg_of<ModulatorWaveform>(parse("modw0tri\xF1"), 1).index(), 2);

  EXPECT_EQ(fmt(parse("modm3*2")), "modm3*2");
  EXPECT_EQ(fmt(parse("modm3*10")), "modm3*10");
  EXPECT_EQ(fmt(parse("modm3*2/3")), "modm3*2/3");
  EXPECT_EQ(arg_of<ModulatorMultType>(parse("modm3*2"), 1).index(), 1);
  EXPECT_EQ(arg_of<ModulatorMultType>(parse("modm3*2/3"), 1).index(), 2);
}

TEST(OpCodeFormat, PaddingStandsBehindTheEarlyEnd) {
  // The writer still pads to nine places; the NUL of the short column
  // ends the text in front of the padding.
  char buf[128] = {};
  parse("bpm" PAD "99").format_string(buf, sizeof buf);
  EXPECT_EQ(std::string(buf, 10), std::string("bpm" PAD "99", 6) + '\0' + PAD PAD + '\0');
}

TEST(OpCodeFormat, EmptyColumnsInTheMiddleKeepTheirPlaces) {
  OpCode op{};
  op.type = OpType::of("dlay");
  EXPECT_EQ(fmt(op), "dlay" HEX2 HEX2 "\xF9");
  op.type = OpType::of("cvV");
  EXPECT_EQ(fmt(op), "cvV" PAD "\xFA" "----");
  op.type = OpType::of("caln");
  EXPECT_EQ(fmt(op), "caln" HEX2 "---");
  op.type = OpType::of("etrg");
  EXPECT_EQ(fmt(op), "etrg" "\xF9" "\xF9" PAD PAD PAD);
}

TEST(OpCodeFormat, EmptyCommandIsNinePadBytes) {
  EXPECT_EQ(fmt(OpCode{}), PAD PAD PAD PAD PAD PAD PAD PAD PAD);
  EXPECT_TRUE(bytes_zero(parse(fmt(OpCode{}))));
}

TEST(OpCodeFormat, ShortBufferIsCutAndTerminated) {
  OpCode op = parse("streL0a7f");
  for (size_t n : {size_t(1), size_t(3), size_t(5), size_t(7), size_t(9), size_t(10)}) {
    char buf[16];
    std::memset(buf, 'q', sizeof buf);
    size_t volatile len = n;
    op.format_string(buf, len);
    SCOPED_TRACE(n);
    EXPECT_EQ(std::string(buf), std::string("streL0a7f").substr(0, n - 1));
    for (size_t i = n; i < sizeof buf; ++i) EXPECT_EQ(buf[i], 'q') << "byte " << i;
  }
}

// ---------------------------------------------------------------------------
// Memory.

TEST(OpCodeMemory, ParseLeavesUnusedArgumentBytesZero) {
  // ptch: one byte cell at the start of the argument area, all else zero.
  OpCode ptch = parse("ptch05");
  EXPECT_TRUE(same_bytes(ptch, RawOpCode(0x82).byte_at(0, 0x85).cell()));

  // stre: a byte cell, then two int cells behind the alignment gap.
  OpCode stre = parse("streL0a7f");
  EXPECT_TRUE(same_bytes(
      stre, RawOpCode(0x9C).byte_at(0, 0x80).int_at(4, 0x8000000Au).int_at(8, 0x8000007Fu).cell()));

  // The empty ChordMemIdx of "chrd0" is magic, stored 1.
  OpCode chrd = parse("chrd0");
  EXPECT_TRUE(same_bytes(chrd, RawOpCode(0x80).byte_at(0, 0x80).byte_at(1, 0x01).cell()));

  // The largest list fills the whole area.
  OpCode cal3 = parse("cal30z123");
  EXPECT_TRUE(same_bytes(cal3, RawOpCode(0x99)
                                   .int_at(0, 0x80000023u)
                                   .int_at(4, 0x80000001u)
                                   .int_at(8, 0x80000002u)
                                   .int_at(12, 0x80000003u)
                                   .cell()));
}

TEST(OpCodeMemory, EqualCommandsAreEqualBytes) {
  EXPECT_TRUE(same_bytes(parse("Cif" PAD "1:2" PAD PAD), parse("Cif" PAD "1:2")));
  EXPECT_FALSE(same_bytes(parse("Cif" PAD "1:2"), parse("Cif" PAD "2:2")));
  EXPECT_FALSE(same_bytes(parse("tCif1:2"), parse("Cif" PAD "1:2")));
}

// ---------------------------------------------------------------------------
// Visiting.

TEST(OpCodeVisit, ForEachArgPassesTheWidthWhenAsked) {
  OpCode op = parse("dlayff" MAG MAG "7");
  std::string seen;
  op.for_each_arg([&](auto const& cell, int width) {
    char text[16] = {};
    command::format_cell(cell, text, sizeof text, width);
    seen += std::to_string(width) + ":" + text + ";";
  });
  EXPECT_EQ(seen, "2:ff;2:" MAG MAG ";1:7;");
}

TEST(OpCodeVisit, ForEachArgRereadsTypeAndBound) {
  // A visitor that replaces a four-argument command by a one-argument one
  // stops the walk after the first column.
  OpCode op = parse("cal30z123");
  int visits = 0;
  op.for_each_arg([&](auto&) {
    ++visits;
    op.type = OpType::of("call");
  });
  EXPECT_EQ(visits, 1);

  // Emptying the type stops it too.
  op = parse("cal30z123");
  visits = 0;
  op.for_each_arg([&](auto&) {
    ++visits;
    if (visits == 2) op.type = OpType{};
  });
  EXPECT_EQ(visits, 2);

  // An empty command visits nothing.
  visits = 0;
  OpCode{}.for_each_arg([&](auto const&) { ++visits; });
  EXPECT_EQ(visits, 0);

  // A one-argument command turned into a four-argument one goes on with
  // the second column of the new type.
  op = parse("call05");
  ASSERT_EQ(op.num_columns(), 1);
  std::string widths;
  op.for_each_arg([&](auto&, int width) {
    widths += std::to_string(width) + ";";
    op.type = OpType::of("cal3");
  });
  OpCode cal3 = parse("cal30z123");
  std::string expected = "2;";
  for (int col = 1; col < cal3.num_columns(); ++col)
    cal3.column_do(col, [&](auto&, int width) { expected += std::to_string(width) + ";"; });
  EXPECT_EQ(widths, expected);
  EXPECT_GT(cal3.num_columns(), 1);
}

TEST(OpCodeVisit, ColumnDoRewritesACell) {
  OpCode op = parse("tble0" "1a");
  op.column_do(1, [](auto& cell) {
    if constexpr (std::is_same_v<std::remove_cvref_t<decltype(cell)>, TableIdx>)
      cell = TableIdx::from_value(cell.value() + 1);
  });
  EXPECT_EQ(fmt(op), "tble0" "1b" PAD PAD);
}

// ---------------------------------------------------------------------------
// Assertions.

TEST(OpCodeDeathTest, TextOf255BytesAsserts) {
  std::string ok(254, 'a');
  EXPECT_TRUE(bytes_zero(OpCode::parse_string(ok.c_str())));
  std::string too_long(255, 'a');
  EXPECT_DEATH(OpCode::parse_string(too_long.c_str()),
               "include/kelvane/op_code_definition:153: .*OpCode::parse_string.*: "
               "Assertion `strlen\\(s\\) < sizeof\\(buf\\) - 1' failed");
}

TEST(OpCodeDeathTest, ColumnOutsideTheCommandAsserts) {
  OpCode op = parse("ptch05");
  EXPECT_DEATH(op.column_do(1, [](auto&) {}),
               "include/kelvane/op_code_definition:[0-9]+: .*column_do.*: "
               "Assertion `col < num_columns\\(\\)' failed");
  OpCode empty{};
  EXPECT_DEATH(empty.column_do(0, [](auto&) {}), "Assertion `col < num_columns\\(\\)' failed");
  EXPECT_DEATH(op.column_do(-1, [](auto&) {}), "include/kelvane/op_code_definition:[0-9]+: ");
}

// ---------------------------------------------------------------------------
// Older forms and the words of a step line.

TEST(OpCodeOlderForms, LmemAndGmemBecomeStre) {
  char buf[16];
  char const* text = op_code_text_upgrade("lmem0a7f", buf);
  EXPECT_EQ(text, buf);
  EXPECT_EQ(std::string(text), "streL0a7f");
  OpCode op = OpCode::parse_string(text);
  EXPECT_EQ(bits(op.type), 0x9Cu);
  EXPECT_EQ(arg_of<AddressSpace>(op, 0).index(), 0);

  text = op_code_text_upgrade("gmem3f" MAG MAG, buf);
  EXPECT_EQ(std::string(text), "streG3f" MAG MAG);
  EXPECT_EQ(arg_of<AddressSpace>(OpCode::parse_string(text), 0).index(), 1);

  // The rewrite is cut to its 16-byte buffer: fifteen bytes and the NUL.
  text = op_code_text_upgrade("lmem0123456789abcdef", buf);
  EXPECT_EQ(std::string(text), "streL0123456789");

  // Other texts pass unchanged, "lme" and an upper case "LMEM" among them.
  for (char const* other : {"streL0a7f", "lme", "LMEM0a7f", "mem", ""}) {
    EXPECT_EQ(op_code_text_upgrade(other, buf), other);
  }
}

TEST(OpCodeOlderForms, OldKeysStandForOpCode) {
  EXPECT_STREQ(op_code_key_upgrade("op_code_midi"), "op_code");
  EXPECT_STREQ(op_code_key_upgrade("op_code_all"), "op_code");
  EXPECT_STREQ(op_code_key_upgrade("op_code_mono_sampler"), "op_code");
  char const* key = "op_code_type";
  EXPECT_EQ(op_code_key_upgrade(key), key);
  key = "op_code";
  EXPECT_EQ(op_code_key_upgrade(key), key);
}

TEST(OpCodeStepWords, ListInReaderOrder) {
  EXPECT_EQ(kNumStepColumnWords, 75);
  EXPECT_STREQ(kStepColumnWords[0], "cond_mask");
  EXPECT_STREQ(kStepColumnWords[74], "modulator_mult_type");
  EXPECT_EQ(step_column_word_index("op_code"), 37);
  EXPECT_EQ(step_column_word_index("note"), 1);
  EXPECT_EQ(step_column_word_index("register_"), 63);
  EXPECT_EQ(step_column_word_index("op_code_midi"), -1);
  EXPECT_EQ(step_column_word_index("Note"), -1);
  // Every word once.
  for (int i = 0; i < kNumStepColumnWords; ++i)
    EXPECT_EQ(step_column_word_index(kStepColumnWords[i]), i) << kStepColumnWords[i];
}
