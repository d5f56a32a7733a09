#include <gtest/gtest.h>

#include "cell_text.hpp"

#include <cstring>
#include <string>
#include <type_traits>

#include "kelvane/types_music.hpp"

using namespace kelvane;
using namespace kelvane::testing_support;

namespace {

// The stored bits of a byte cell, as an unsigned number.
template <class T>
unsigned bits(T const& cell) {
  return unsigned(std::make_unsigned_t<typename T::rep_type>(cell.stored));
}

int note_number(char const* text) { return Note::parse_string(text).value(); }

// Layout: one storage member, no padding, plain bytes.
template <class T, class Rep>
constexpr bool plain_cell() {
  return std::is_trivially_copyable_v<T> && std::is_standard_layout_v<T> && sizeof(T) == sizeof(Rep) &&
         std::is_same_v<decltype(T::stored), Rep>;
}

static_assert(plain_cell<Note, int>());
static_assert(plain_cell<Velocity, signed char>());
static_assert(plain_cell<Sustain, signed char>());
static_assert(plain_cell<StepLength, signed char>());
static_assert(plain_cell<TableStepJump, signed char>());
static_assert(plain_cell<BreakSlice, signed char>());
static_assert(plain_cell<NumChordNotes, signed char>());
static_assert(plain_cell<Aftertouch, signed char>());
static_assert(plain_cell<MidiCC, signed char>());
static_assert(plain_cell<MidiCCIdx, signed char>());
static_assert(plain_cell<ProgramChange, signed char>());
static_assert(plain_cell<MidiPitch, uint16_t>());
static_assert(plain_cell<DelayTime, int>());
static_assert(plain_cell<DelayFeedback, int>());
static_assert(plain_cell<DelayMix, int>());
static_assert(plain_cell<ModulatorSpeed, int>());
static_assert(plain_cell<ModulatorAmplitude, int>());
static_assert(plain_cell<RowIdx, int>());
static_assert(plain_cell<ColumnIdx, signed char>());
static_assert(plain_cell<NoteColumnIdx, signed char>());
static_assert(plain_cell<TableColumnIdx, signed char>());
static_assert(plain_cell<PatternStepIdx, signed char>());
static_assert(plain_cell<Transpose, signed char>());
static_assert(plain_cell<Finetune, signed char>());
static_assert(plain_cell<Cents, int>());
static_assert(plain_cell<PosNegVal7, int>());
static_assert(plain_cell<PosNegVal8, int>());
static_assert(plain_cell<Percentage, int>());
static_assert(plain_cell<Trigger, signed char>());
static_assert(plain_cell<AddressSpace, signed char>());
static_assert(plain_cell<Address, int>());
static_assert(plain_cell<MidiMsg, signed char>());
static_assert(plain_cell<TriggerCondition, signed char>());

}  // namespace

// ---------------------------------------------------------------------------
// Note, twelve tones.

TEST(MusicNote, EdgeTextsReadAsTold) {
  EXPECT_EQ(Note::parse_string("[ ]").stored, 1);
  EXPECT_EQ(Note::parse_string("---").stored, 0);
  EXPECT_EQ(note_number("C-5"), 60);
  EXPECT_EQ(note_number("c-5"), 60);
  EXPECT_EQ(note_number("C-a"), 120);
  EXPECT_EQ(note_number("C-A"), 120);
}

TEST(MusicNote, SharpsAndTheMissingESharp) {
  EXPECT_EQ(Note::parse_string("E#4").stored, 0);
  EXPECT_EQ(Note::parse_string("e#4").stored, 0);
  EXPECT_EQ(note_number("B#4"), 60);
  // B# is read but never written: it lands on the next octave's C.
  Note const b3 = Note::parse_string("B#3");
  EXPECT_EQ(b3.value(), 48);
  EXPECT_EQ(fmt(b3), "C-4");
  EXPECT_EQ(note_number("F#2"), 30);
  EXPECT_EQ(note_number("a#0"), 10);
}

TEST(MusicNote, BadTextsAreEmpty) {
  EXPECT_EQ(Note::parse_string("H-3").stored, 0);
  EXPECT_EQ(Note::parse_string("C=3").stored, 0);
  EXPECT_EQ(Note::parse_string("C-c").stored, 0);
  EXPECT_EQ(Note::parse_string("").stored, 0);
  EXPECT_EQ(Note::parse_string("C-").stored, 0);
  EXPECT_EQ(Note::parse_string("C-55").stored, 0);
  EXPECT_EQ(Note::parse_string(" C-5").stored, 0);
  EXPECT_EQ(Note::parse_string("[  ]").stored, 0);
  EXPECT_EQ(Note::parse_string("\xF9\xF9\xF9").stored, 0);
}

TEST(MusicNote, OctaveBIsStoredAsItIs) {
  EXPECT_EQ(note_number("C-b"), 132);
  EXPECT_EQ(note_number("B-b"), 143);
  EXPECT_EQ(note_number("B#b"), 144);
  EXPECT_EQ(note_number("B#a"), 132);
}

TEST(MusicNote, TwelveToneTexts) {
  EXPECT_EQ(fmt(Note::from_value(0)), "C-0");
  EXPECT_EQ(fmt(Note::from_value(60)), "C-5");
  EXPECT_EQ(fmt(Note::from_value(61)), "C#5");
  EXPECT_EQ(fmt(Note::from_value(119)), "B-9");
  EXPECT_EQ(fmt(Note::from_value(120)), "C-A");
  EXPECT_EQ(fmt(Note::from_value(127)), "G-A");
  EXPECT_EQ(fmt(Note{}), "---");
  EXPECT_EQ(fmt(Note::magic_cell()), "[ ]");
}

TEST(MusicNote, TwelveToneRoundTrip) {
  static char const* const pairs[12] = {"C-", "C#", "D-", "D#", "E-", "F-",
                                        "F#", "G-", "G#", "A-", "A#", "B-"};
  for (int n = 0; n <= 127; ++n) {
    std::string expect = pairs[n % 12];
    expect += n < 120 ? char('0' + n / 12) : 'A';
    std::string const text = fmt(Note::from_value(n));
    ASSERT_EQ(text, expect) << n;
    Note const back = Note::parse_string(text.c_str());
    ASSERT_EQ(back.stored, int(0x80000000u + unsigned(n))) << n;
  }
}

TEST(MusicNote, WorkedExample) {
  Note const twelve = Note::from_value(61);
  EXPECT_EQ(fmt(twelve), "C#5");
  EXPECT_EQ(unsigned(Note::parse_string("C#5").stored), 0x8000003Du);

  Note const thirty_one = Note::from_value(411);  // r = 155, u = 0, o = 5
  EXPECT_EQ(fmt(thirty_one), "C\xCD"
                             "5");
  EXPECT_EQ(unsigned(Note::parse_string("C\xCD"
                                        "5")
                         .stored),
            0x8000019Bu);
}

TEST(MusicNote, SeparatorBytes) {
  EXPECT_EQ(std::string(Note::sep_chars, 5), "\xCD\xC1\xD0\xD2\xC2");
}

// ---------------------------------------------------------------------------
// Note, thirty-one tones.

TEST(MusicNote31, FullTableOfSteps) {
  struct Row {
    char letter;
    unsigned char sep;
  };
  static constexpr Row table[31] = {
      {'C', 0xCD}, {'C', 0xC1}, {'C', 0xD0}, {'D', 0xD2}, {'D', 0xC2}, {'D', 0xCD}, {'D', 0xC1},
      {'D', 0xD0}, {'E', 0xD2}, {'E', 0xC2}, {'E', 0xCD}, {'E', 0xC1}, {'F', 0xC2}, {'F', 0xCD},
      {'F', 0xC1}, {'F', 0xD0}, {'G', 0xD2}, {'G', 0xC2}, {'G', 0xCD}, {'G', 0xC1}, {'G', 0xD0},
      {'A', 0xD2}, {'A', 0xC2}, {'A', 0xCD}, {'A', 0xC1}, {'A', 0xD0}, {'B', 0xD2}, {'B', 0xC2},
      {'B', 0xCD}, {'B', 0xC1}, {'C', 0xC2},
  };
  for (int o = 0; o <= 9; ++o) {
    for (int u = 0; u <= 30; ++u) {
      int const n = 256 + u + 31 * o;
      // Step 30 is written with the C of the next octave.
      int const written_octave = u == 30 ? o + 1 : o;
      std::string expect;
      expect += table[u].letter;
      expect += char(table[u].sep);
      expect += written_octave < 10 ? char('0' + written_octave) : 'A';
      std::string const text = fmt(Note::from_value(n));
      ASSERT_EQ(text, expect) << "u=" << u << " o=" << o;
      Note const back = Note::parse_string(text.c_str());
      ASSERT_EQ(unsigned(back.stored), 0x80000000u + unsigned(n)) << "u=" << u << " o=" << o;
    }
  }
}

TEST(MusicNote31, EveryReadableNumberRoundTrips) {
  for (int n = 256; n <= 566; ++n) {
    std::string const text = fmt(Note::from_value(n));
    ASSERT_EQ(text.size(), 3u) << n;
    ASSERT_EQ(Note::parse_string(text.c_str()).value(), n) << n;
  }
}

TEST(MusicNote31, OctaveLetterAtTheTop) {
  EXPECT_EQ(fmt(Note::from_value(564)), "B\xC1"
                                        "9");
  EXPECT_EQ(fmt(Note::from_value(565)), "C\xC2"
                                        "A");
  EXPECT_EQ(fmt(Note::from_value(566)), "C\xCD"
                                        "A");
}

TEST(MusicNote31, LowerCaseLetterGivesTheOctavesC) {
  EXPECT_EQ(note_number("e\xCD"
                        "2"),
            318);
  EXPECT_EQ(note_number("c\xC1"
                        "0"),
            256);
}

TEST(MusicNote31, PairMissingFromTheTableGivesTheOctavesC) {
  // E has no step with 0xD0.
  EXPECT_EQ(note_number("E\xD0"
                        "3"),
            256 + 31 * 3);
  EXPECT_EQ(note_number("F\xD2"
                        "1"),
            256 + 31);
}

TEST(MusicNote31, AboveTheHighestNoteReadsAsC5) {
  Note const high = Note::parse_string("D\xCD"
                                       "A");  // step 5 of octave 10 would be 571
  EXPECT_EQ(high.value(), 60);
  EXPECT_EQ(unsigned(high.stored), 0x8000003Cu);
  EXPECT_EQ(note_number("C\xCD"
                        "A"),
            566);
  EXPECT_EQ(note_number("C\xC2"
                        "A"),
            565);
  EXPECT_EQ(note_number("C\xCD"
                        "b"),
            60);
}

TEST(MusicNote31, StepThirtyCountsToTheNextOctave) {
  EXPECT_EQ(note_number("C\xC2"
                        "5"),
            256 + 30 + 31 * 4);
  // Octave 0 lands just below the thirty-one-tone range.
  Note const low = Note::parse_string("C\xC2"
                                      "0");
  EXPECT_EQ(low.value(), 255);
  EXPECT_EQ(fmt(low), "C\xC2"
                      "0");
}

TEST(MusicNote31, NumbersWithoutTextStayThreeBytes) {
  for (int n : {128, 132, 144, 200, 254, 567, 1000, -1}) {
    std::string const text = fmt(Note::from_value(n));
    EXPECT_EQ(text.size(), 3u) << n;
  }
}

TEST(MusicNote, FromNumber) {
  EXPECT_EQ(Note::from_number(60).value(), 60);
  EXPECT_EQ(Note::from_number(300).value(), 300);
  EXPECT_EQ(Note::from_number(200).value(), 60);
  EXPECT_EQ(Note::from_number(567).value(), 60);
  EXPECT_EQ(Note::default_cell().value(), 60);
}

TEST(MusicNoteDeathTest, FormatNeedsFourBytes) {
  char buf[8];
  size_t volatile len = 3;
  EXPECT_DEATH(Note::from_value(60).format_string(buf, len),
               "include/kelvane/types:[0-9]+: .*Assertion `len > 3' failed");
}

// ---------------------------------------------------------------------------
// Hexadecimal cells.

TEST(MusicHex, VelocityDefaultAndTop) {
  Velocity const v = Velocity::parse_string("80");
  EXPECT_EQ(v.value(), 80);
  EXPECT_EQ(bits(v), 0xD0u);
  EXPECT_EQ(Velocity::parse_string("7f").value(), 127);
  EXPECT_EQ(Velocity::parse_string("7F").value(), 127);
  EXPECT_EQ(Velocity::parse_string("\xF9\xF9").stored, 0);
  EXPECT_EQ(Velocity::parse_string("").stored, 0);
  EXPECT_EQ(fmt(Velocity::from_value(0x50)), "50");
  EXPECT_EQ(fmt(Velocity{}), "\xF9\xF9");
}

TEST(MusicHex, StepLength) {
  EXPECT_EQ(StepLength::parse_string("ff").value(), 6);
  EXPECT_EQ(bits(StepLength::parse_string("61")), 0x86u);
  EXPECT_EQ(StepLength::parse_string("60").value(), 96);
  EXPECT_EQ(StepLength::parse_string("").stored, 0);  // no magic
  EXPECT_EQ(StepLength::parse_string("\x04\x04").stored, 0);
  EXPECT_EQ(fmt(StepLength::from_value(4)), "04");
}

TEST(MusicHex, SmallByteCells) {
  EXPECT_EQ(Sustain::parse_string("1").value(), 1);
  EXPECT_EQ(bits(Sustain::parse_string("2")), 0x80u);
  EXPECT_EQ(fmt(Sustain{}), "\xF9");
  EXPECT_EQ(fmt(Sustain::from_value(1)), "1");

  EXPECT_EQ(TableStepJump::parse_string("3f").value(), 63);
  EXPECT_EQ(bits(TableStepJump::parse_string("40")), 0x80u);

  for (auto read : {+[](char const* t) { return int(bits(Aftertouch::parse_string(t))); },
                    +[](char const* t) { return int(bits(MidiCC::parse_string(t))); },
                    +[](char const* t) { return int(bits(MidiCCIdx::parse_string(t))); },
                    +[](char const* t) { return int(bits(ProgramChange::parse_string(t))); }}) {
    EXPECT_EQ(read("7f"), 0xFF);
    EXPECT_EQ(read("80"), 0x80);  // out of range: the number 0
    EXPECT_EQ(read("00"), 0x80);
    EXPECT_EQ(read("\xF9\xF9"), 0);
  }
  EXPECT_EQ(fmt(MidiCC::from_value(0x7f)), "7f");
}

TEST(MusicHex, ColumnIndices) {
  EXPECT_EQ(ColumnIdx::parse_string("f").value(), 15);
  EXPECT_EQ(ColumnIdx::parse_string("").stored, 0);
  EXPECT_EQ(bits(NoteColumnIdx::parse_string("5")), 0x80u);
  EXPECT_EQ(NoteColumnIdx::parse_string("3").value(), 3);
  EXPECT_EQ(bits(TableColumnIdx::parse_string("8")), 0x80u);
  EXPECT_EQ(TableColumnIdx::parse_string("").stored, 1);
  EXPECT_EQ(fmt(TableColumnIdx::magic_cell()), "\x04");
  EXPECT_EQ(bits(PatternStepIdx::parse_string("40")), 0x80u);
  EXPECT_EQ(PatternStepIdx::parse_string("3f").value(), 63);
  EXPECT_EQ(PatternStepIdx::parse_string("\x04\x04").stored, 1);
  EXPECT_EQ(fmt(PatternStepIdx::magic_cell()), "\x04\x04");
}

TEST(MusicHex, MagicCellsReadEmptyColumnsAsMagic) {
  EXPECT_EQ(BreakSlice::parse_string("").stored, 1);
  EXPECT_EQ(BreakSlice::parse_string("\x04").stored, 1);
  EXPECT_EQ(BreakSlice::parse_string("f").value(), 15);
  EXPECT_EQ(fmt(BreakSlice::magic_cell()), "\x04");
  EXPECT_EQ(DelayTime::parse_string("").stored, 1);
  EXPECT_EQ(DelayTime::parse_string("ff").value(), 255);
  EXPECT_EQ(fmt(DelayTime::magic_cell()), "\x04\x04");
  EXPECT_EQ(DelayFeedback::parse_string("\x04\x04").stored, 1);
  EXPECT_EQ(DelayMix::parse_string("").stored, 1);
  EXPECT_EQ(fmt(DelayMix::from_value(9)), "9");
  EXPECT_EQ(RowIdx::parse_string("").stored, 1);
  EXPECT_EQ(unsigned(RowIdx::parse_string("10").stored), 0x80000010u);
}

TEST(MusicHex, IntCellsWithoutMagic) {
  EXPECT_EQ(ModulatorSpeed::parse_string("").stored, 0);
  EXPECT_EQ(ModulatorSpeed::parse_string("1ff").value(), 0x1f);  // two digits at most
  EXPECT_EQ(ModulatorAmplitude::parse_string("ff").value(), 255);
  EXPECT_EQ(fmt(ModulatorAmplitude::from_value(0x40)), "40");
  Address const a = Address::parse_string("40");
  EXPECT_EQ(unsigned(a.stored), 0x80000000u);
  EXPECT_EQ(fmt(a), "00");
  EXPECT_EQ(Address::parse_string("3f").value(), 63);
  EXPECT_EQ(Address::parse_string("").stored, 0);
  EXPECT_EQ(fmt(Address{}), "\xF9\xF9");
}

TEST(MusicHex, Widths) {
  EXPECT_EQ(Velocity::text_width, 2);
  EXPECT_EQ(Sustain::text_width, 1);
  EXPECT_EQ(DelayMix::text_width, 1);
  EXPECT_EQ(Address::text_width, 2);
  EXPECT_EQ(Note::text_width, 3);
  EXPECT_EQ(Transpose::text_width, 3);
  EXPECT_EQ(Cents::text_width, 5);
  EXPECT_EQ(PosNegVal7::text_width, 4);
  EXPECT_EQ(Percentage::text_width, 4);
  EXPECT_EQ(NumChordNotes::text_width, 2);
  EXPECT_EQ(MidiPitch::text_width, 4);
  EXPECT_EQ(Trigger::text_width, 1);
  EXPECT_EQ(AddressSpace::text_width, 1);
  EXPECT_EQ(MidiMsg::text_width, 5);
  EXPECT_EQ(TriggerCondition::text_width, 3);
}

// ---------------------------------------------------------------------------
// Signed and other printf forms.

TEST(MusicTranspose, Reading) {
  EXPECT_EQ(Transpose::parse_string("\xFA\xFA\xFA").stored, 0);
  EXPECT_EQ(Transpose::parse_string("+99").value(), 99);
  EXPECT_EQ(Transpose::parse_string("-99").value(), -99);
  Transpose const big = Transpose::parse_string("100");
  EXPECT_EQ(bits(big), 0x80u);
  EXPECT_EQ(big.value(), 0);
  EXPECT_EQ(Transpose::parse_string(" +5").value(), 5);
  EXPECT_EQ(Transpose::parse_string("[ ]").stored, 1);
  // Three places: "-127" is read as -12; blanks before the number do not count.
  EXPECT_EQ(Transpose::parse_string("-127").value(), -12);
  EXPECT_EQ(Transpose::parse_string("  -127").value(), -12);
  EXPECT_EQ(Transpose::parse_string("").stored, 0);
  EXPECT_EQ(Transpose::parse_string("---").stored, 0);
  // The magic state's own number, which three places cannot spell.
  EXPECT_EQ(Transpose::from_number(-127).stored, 1);
  EXPECT_EQ(bits(Transpose::from_number(-100)), 0x80u);
}

TEST(MusicTranspose, Writing) {
  EXPECT_EQ(fmt(Transpose::from_value(5)), " +5");
  EXPECT_EQ(fmt(Transpose::from_value(-12)), "-12");
  EXPECT_EQ(fmt(Transpose::from_value(0)), " +0");
  EXPECT_EQ(fmt(Transpose::from_value(99)), "+99");
  EXPECT_EQ(fmt(Transpose{}), "\xFA\xFA\xFA");
  EXPECT_EQ(fmt(Transpose::magic_cell()), "[ ]");
  EXPECT_EQ(column(Transpose::from_value(5), 3), " +5");
}

TEST(MusicTransposeDeathTest, FormatNeedsFourBytes) {
  char buf[8];
  size_t volatile len = 3;
  EXPECT_DEATH(Transpose::from_value(5).format_string(buf, len),
               "include/kelvane/types:[0-9]+: .*Assertion `len >= 4' failed");
}

TEST(MusicFinetune, ReadingAndWriting) {
  EXPECT_EQ(fmt(Finetune::from_value(5)), "+5");
  EXPECT_EQ(fmt(Finetune::from_value(0)), "+0");
  EXPECT_EQ(fmt(Finetune::from_value(12)), "+12");
  EXPECT_EQ(fmt(Finetune::from_value(-99)), "-99");
  EXPECT_EQ(fmt(Finetune{}), "\xFA\xFA\xFA");
  EXPECT_EQ(Finetune::parse_string("[ ]").stored, 1);
  EXPECT_EQ(Finetune::parse_string("+12").value(), 12);
  EXPECT_EQ(Finetune::parse_string("-99").value(), -99);
  EXPECT_EQ(Finetune::parse_string("\xFA\xFA\xFA").stored, 0);
  EXPECT_EQ(bits(Finetune::parse_string("100")), 0x80u);
  EXPECT_EQ(Finetune::parse_string("-100").value(), 0);
}

TEST(MusicFinetune, MagicIsWrittenAsANumberThatReadsAsZero) {
  std::string const text = fmt(Finetune::magic_cell());
  EXPECT_EQ(text, "-127");
  Finetune const back = Finetune::parse_string(text.c_str());
  EXPECT_EQ(bits(back), 0x80u);
}

TEST(MusicCents, ReadingAndWriting) {
  EXPECT_EQ(fmt(Cents::from_value(1200)), "+1200");
  EXPECT_EQ(fmt(Cents::from_value(7)), "   +7");
  EXPECT_EQ(fmt(Cents::from_value(-9600)), "-9600");
  EXPECT_EQ(fmt(Cents{}), "\xFA\xFA\xFA\xFA\xFA\xFA");
  EXPECT_EQ(Cents::parse_string("+1200").value(), 1200);
  EXPECT_EQ(Cents::parse_string("   +7").value(), 7);
  EXPECT_EQ(Cents::parse_string("-9600").value(), -9600);
  EXPECT_EQ(unsigned(Cents::parse_string("9601").stored), 0x80000000u);
  EXPECT_EQ(Cents::parse_string("\xFA\xFA\xFA\xFA\xFA\xFA").stored, 0);
}

TEST(MusicPosNeg, Val7) {
  EXPECT_EQ(fmt(PosNegVal7::from_value(5)), "   5");
  EXPECT_EQ(fmt(PosNegVal7::from_value(-5)), "  -5");
  EXPECT_EQ(fmt(PosNegVal7::from_value(-127)), "-127");
  EXPECT_EQ(fmt(PosNegVal7{}), "----");
  EXPECT_EQ(fmt(PosNegVal7::magic_cell()), "----");
  EXPECT_EQ(PosNegVal7::parse_string("----").stored, 0);
  EXPECT_EQ(PosNegVal7::parse_string("  -5").value(), -5);
  EXPECT_EQ(PosNegVal7::parse_string("-127").value(), -127);
  EXPECT_EQ(unsigned(PosNegVal7::parse_string("-128").stored), 0x80000000u);
  EXPECT_EQ(unsigned(PosNegVal7::parse_string(" 1234").stored), 0x80000000u);
  // Four places after the blanks, the sign among them.
  EXPECT_EQ(PosNegVal7::parse_string("  -1234").value(), -123);
  EXPECT_EQ(PosNegVal7::parse_string("1001").value(), 0);
  EXPECT_EQ(PosNegVal7::parse_string("127").value(), 127);
}

TEST(MusicPosNeg, Val8) {
  EXPECT_EQ(fmt(PosNegVal8::from_value(255)), " 255");
  EXPECT_EQ(fmt(PosNegVal8::from_value(-255)), "-255");
  EXPECT_EQ(PosNegVal8::parse_string("-255").value(), -255);
  EXPECT_EQ(PosNegVal8::parse_string("-2559").value(), -255);
  EXPECT_EQ(unsigned(PosNegVal8::parse_string("-256").stored), 0x80000000u);
  EXPECT_EQ(PosNegVal8::parse_string("----").stored, 0);
  EXPECT_EQ(PosNegVal8::parse_string(fmt(PosNegVal8::magic_cell()).c_str()).stored, 0);
}

TEST(MusicPercentage, ReadingAndWriting) {
  EXPECT_EQ(fmt(Percentage::from_value(50)), "050%");
  EXPECT_EQ(fmt(Percentage::from_value(200)), "200%");
  EXPECT_EQ(fmt(Percentage{}), "----");
  EXPECT_EQ(Percentage::parse_string("050%").value(), 50);
  EXPECT_EQ(Percentage::parse_string("201%").value(), 100);
  EXPECT_EQ(Percentage::parse_string("000%").value(), 100);
  EXPECT_EQ(Percentage::parse_string("-5%").value(), 100);
  EXPECT_EQ(Percentage::parse_string("----").stored, 0);
  EXPECT_EQ(Percentage::parse_string("1000").value(), 100);  // reads 100 of three places
  EXPECT_EQ(Percentage::parse_string("2000").value(), 200);
}

TEST(MusicNumChordNotes, ReadingAndWriting) {
  EXPECT_EQ(fmt(NumChordNotes::from_value(3)), " 3");
  EXPECT_EQ(fmt(NumChordNotes::from_value(16)), "16");
  EXPECT_EQ(fmt(NumChordNotes{}), "\xFA\xFA");
  EXPECT_EQ(NumChordNotes::parse_string(" 3").value(), 3);
  EXPECT_EQ(NumChordNotes::parse_string("16").value(), 16);
  EXPECT_EQ(bits(NumChordNotes::parse_string("17")), 0x80u);
  EXPECT_EQ(bits(NumChordNotes::parse_string("-1")), 0x80u);
  EXPECT_EQ(NumChordNotes::parse_string("123").value(), 12);
  EXPECT_EQ(NumChordNotes::parse_string("").stored, 0);
  EXPECT_EQ(NumChordNotes::parse_string("x").stored, 0);
}

TEST(MusicMidiPitch, ReadingAndWriting) {
  MidiPitch const over = MidiPitch::parse_string("4000");
  EXPECT_EQ(over.value(), 0x2000);
  EXPECT_EQ(over.stored, 0xA000);
  EXPECT_EQ(MidiPitch::parse_string("2000").stored, 0xA000);
  EXPECT_EQ(MidiPitch::parse_string("3fff").stored, 0xBFFF);
  EXPECT_EQ(MidiPitch::parse_string("0").stored, 0x8000);
  EXPECT_EQ(MidiPitch::parse_string("\xF9\xF9\xF9\xF9").stored, 0);
  EXPECT_EQ(MidiPitch::parse_string("12345").value(), 0x1234);
  EXPECT_EQ(fmt(MidiPitch::from_value(0x2000)), "2000");
  EXPECT_EQ(fmt(MidiPitch::from_value(0x3f)), "003f");
  EXPECT_EQ(fmt(MidiPitch{}), "\xF9\xF9\xF9\xF9");
}

// ---------------------------------------------------------------------------
// Trigger and the named cells.

TEST(MusicTrigger, TwoStates) {
  EXPECT_EQ(bits(Trigger::parse_string("\x04")), 0x81u);
  EXPECT_EQ(bits(Trigger::parse_string("\x04zz")), 0x81u);
  EXPECT_EQ(Trigger::parse_string("\xF9").stored, 0);
  EXPECT_EQ(Trigger::parse_string("").stored, 0);
  EXPECT_EQ(Trigger::parse_string("1").stored, 0);
  EXPECT_EQ(Trigger::parse_string(" \x04").stored, 0);
  EXPECT_EQ(fmt(Trigger::set_cell()), "\x04");
  EXPECT_EQ(fmt(Trigger{}), "\xF9");
  EXPECT_EQ(fmt(Trigger::from_stored(0x7F)), "\x04");  // any non-zero cell is set
  EXPECT_EQ(column(Trigger::set_cell(), 1), "\x04");
}

TEST(MusicTriggerDeathTest, FormatNeedsTwoBytes) {
  char buf[8];
  size_t volatile len = 1;
  EXPECT_DEATH(Trigger::set_cell().format_string(buf, len),
               "include/kelvane/types:[0-9]+: .*Assertion `len > 1' failed");
}

TEST(MusicAddressSpace, Texts) {
  EXPECT_EQ(bits(AddressSpace::parse_string("L")), 0x80u);
  EXPECT_EQ(bits(AddressSpace::parse_string("G")), 0x81u);
  EXPECT_EQ(bits(AddressSpace::parse_string("V")), 0x82u);
  EXPECT_EQ(AddressSpace::parse_string("X").stored, 0);
  EXPECT_EQ(AddressSpace::parse_string("l").stored, 0);
  EXPECT_EQ(AddressSpace::parse_string("").stored, 0);
  EXPECT_EQ(fmt(AddressSpace::from_index(2)), "V");
  EXPECT_EQ(fmt(AddressSpace{}), "\xF9");
}

TEST(MusicMidiMsg, Texts) {
  EXPECT_EQ(bits(MidiMsg::parse_string("start")), 0x80u);
  EXPECT_EQ(bits(MidiMsg::parse_string("stop")), 0x81u);
  EXPECT_EQ(bits(MidiMsg::parse_string("conti")), 0x82u);
  EXPECT_EQ(MidiMsg::parse_string("sto").stored, 0);
  EXPECT_EQ(MidiMsg::parse_string("stop ").stored, 0);
  EXPECT_EQ(fmt(MidiMsg{}), "\xF9\xF9\xF9\xF9\xF9");
  EXPECT_EQ(fmt(MidiMsg::from_index(0)), "start");
}

TEST(MusicMidiMsg, StopLeavesItsNulInTheFifthPlace) {
  char buf[16];
  std::memset(buf, 'q', sizeof buf);
  MidiMsg::from_index(1).format_column(buf, sizeof buf, 5);
  EXPECT_EQ(std::string(buf, 5), std::string("stop\0", 5));
  EXPECT_EQ(fmt(MidiMsg::from_index(1)), "stop");
}

TEST(MusicTriggerCondition, AllTextsInIndexOrder) {
  static char const* const texts[34] = {
      "FAL", "1:2", "2:2", "1:3", "2:3", "3:3", "1:4", "2:4", "3:4", "4:4", "1:5", "2:5",
      "3:5", "4:5", "5:5", "1:6", "2:6", "3:6", "4:6", "5:6", "6:6", "10%", "20%", "30%",
      "40%", "50%", "60%", "70%", "80%", "90%", "PRV", "!PR", "FST", "TRU",
  };
  ASSERT_EQ(TriggerCondition::count(), 34);
  for (int i = 0; i < 34; ++i) {
    TriggerCondition const c = TriggerCondition::parse_string(texts[i]);
    ASSERT_EQ(bits(c), 0x80u + unsigned(i)) << texts[i];
    ASSERT_EQ(fmt(c), texts[i]);
    ASSERT_STREQ(TriggerCondition::to_string(c), texts[i]);
  }
  EXPECT_EQ(TriggerCondition::parse_string("fal").stored, 0);
  EXPECT_EQ(TriggerCondition::parse_string("1:7").stored, 0);
  EXPECT_EQ(TriggerCondition::parse_string("").stored, 0);
  EXPECT_EQ(fmt(TriggerCondition{}), "\xF9\xF9\xF9");
}

TEST(MusicTriggerConditionDeathTest, IndexBeyondTheTableAsserts) {
  EXPECT_DEATH(TriggerCondition::to_string(TriggerCondition::from_index(34)),
               "include/kelvane/types:[0-9]+: .*Assertion `!\"not implemented\"' failed");
  char buf[8];
  EXPECT_DEATH(TriggerCondition::from_index(40).format_string(buf, sizeof buf), "not implemented");
}

// ---------------------------------------------------------------------------
// Records of cells.

TEST(MusicRecord, AllZeroIsEmptyAndRecordsCompareAsBytes) {
  struct Step {
    Note note;
    Velocity velocity;
    Transpose transpose;
    Trigger trigger;
    MidiPitch pitch;
    TriggerCondition condition;
  };
  Step a, b;
  bytes_clear(a);
  bytes_clear(b);
  EXPECT_EQ(fmt(a.note), "---");
  EXPECT_EQ(fmt(a.velocity), "\xF9\xF9");
  EXPECT_EQ(fmt(a.transpose), "\xFA\xFA\xFA");
  EXPECT_EQ(fmt(a.trigger), "\xF9");
  EXPECT_EQ(fmt(a.pitch), "\xF9\xF9\xF9\xF9");
  EXPECT_EQ(fmt(a.condition), "\xF9\xF9\xF9");

  a.note = Note::parse_string("C#5");
  a.transpose = Transpose::parse_string(" +5");
  a.condition = TriggerCondition::parse_string("PRV");
  b.note = Note::from_value(61);
  b.transpose = Transpose::from_value(5);
  b.condition = TriggerCondition::from_index(30);
  EXPECT_TRUE(bytes_equal(a, b));
  b.velocity = Velocity::parse_string("80");
  EXPECT_FALSE(bytes_equal(a, b));
}
