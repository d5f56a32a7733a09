#include <gtest/gtest.h>

#include "cell_text.hpp"

#include <string>

#include "kelvane/types.hpp"

using namespace kelvane;
using namespace kelvane::testing_support;

namespace {

// The step length cell as the pattern steps declare it.
struct StepLengthCell : RangedInteger<StepLengthCell, signed char, 0, 96, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int default_value = 6;
};

}  // namespace

TEST(CellEncoding, ByteIntWord) {
  EXPECT_EQ(cell_encode<signed char>(0), (signed char)0x80);
  EXPECT_EQ(cell_encode<signed char>(1), (signed char)0x81);
  EXPECT_EQ(cell_encode<signed char>(-1), (signed char)0x7F);
  EXPECT_EQ(cell_encode<int>(0), int(0x80000000u));
  EXPECT_EQ(cell_encode<int>(1), int(0x80000001u));
  EXPECT_EQ(cell_encode<int>(-1), 0x7FFFFFFF);
  EXPECT_EQ(cell_encode<short>(5), short(0x8005));
  EXPECT_EQ(cell_decode<signed char>(0), -128);
  EXPECT_EQ(cell_decode<signed char>(1), -127);
  EXPECT_EQ(cell_decode<signed char>((signed char)0xD0), 80);
  EXPECT_EQ(cell_decode<int>(0), int(0x80000000u));
  EXPECT_EQ(cell_decode<int>(1), -0x7FFFFFFF);
  EXPECT_EQ(cell_decode<short>(short(0xA000)), 0x2000);
}

TEST(CellRangedInteger, StepLengthOutOfRangeReadsDefault) {
  StepLengthCell a = StepLengthCell::parse_string("61");
  EXPECT_EQ(a.stored, (signed char)0x86);
  EXPECT_EQ(a.value(), 6);
  EXPECT_EQ(StepLengthCell::parse_string("60").value(), 96);
  EXPECT_EQ(StepLengthCell::parse_string("ff").value(), 6);
  EXPECT_EQ(StepLengthCell::parse_string("\xF9\xF9").stored, 0);
  EXPECT_EQ(StepLengthCell::parse_string("").stored, 0);
  // "%02x" reads at most two digits, skips leading blanks, takes upper case.
  EXPECT_EQ(StepLengthCell::parse_string("1ff").value(), 0x1f);
  EXPECT_EQ(StepLengthCell::parse_string("  2A").value(), 0x2a);
  // A negative number is out of range.
  EXPECT_EQ(StepLengthCell::parse_string("-1").value(), 6);
}

TEST(CellIndex, PatchIdxOutOfRangeIsNumberZero) {
  PatchIdx p = PatchIdx::parse_string("40");
  EXPECT_EQ(p.stored, (signed char)0x80);
  EXPECT_EQ(fmt(p), "00");
  EXPECT_EQ(fmt(PatchIdx::parse_string("3f")), "3f");
  EXPECT_EQ(fmt(PatchIdx{}), "\xF9\xF9");
}

TEST(CellIndex, TableIdxZZ) {
  EXPECT_EQ(TableIdx::parse_string("zz").value(), 1295);
  EXPECT_EQ(TableIdx::parse_string("ZZ").stored, 0);  // folds to 1554
  EXPECT_EQ(TableIdx::parse_string("\x04").stored, 1);
  EXPECT_EQ(TableIdx::parse_string("\x04\x04").stored, 1);
  EXPECT_EQ(TableIdx::parse_string("\xF9\xF9").stored, 0);
  EXPECT_EQ(TableIdx::parse_string("\xF9").stored, 0);
  EXPECT_EQ(TableIdx::parse_string("").stored, 0);
  EXPECT_EQ(TableIdx::parse_string("0a").value(), 10);
  // One or three digits fold all the same.
  EXPECT_EQ(TableIdx::parse_string("z").value(), 35);
  EXPECT_EQ(TableIdx::parse_string("00z").value(), 35);
  EXPECT_EQ(TableIdx::parse_string("100").stored, 0);
  EXPECT_EQ(fmt(TableIdx::magic_cell()), "\x04\x04");
}

TEST(CellIndex, ProgramIdxHasNoMagic) {
  ProgramIdx p = ProgramIdx::parse_string("\x04\x04");
  EXPECT_EQ(p.stored, 0);
  EXPECT_EQ(fmt(p), "\xF9\xF9");
  EXPECT_EQ(ProgramIdx::parse_string("\x04").stored, 0);
}

TEST(CellIndex, PatternIdxTexts) {
  EXPECT_EQ(PatternIdx::parse_string("00").value(), 0);
  EXPECT_EQ(PatternIdx::parse_string("0z").value(), 35);
  EXPECT_EQ(PatternIdx::parse_string("10").value(), 36);
  EXPECT_EQ(PatternIdx::parse_string("zz").value(), 1295);
  EXPECT_EQ(PatternIdx::parse_string("100").stored, 0);
  // Upper case is not rejected: '1' then 'Z' folds to 36 + 42.
  EXPECT_EQ(PatternIdx::parse_string("1Z").value(), 78);
  EXPECT_EQ(PatternIdx::parse_string("\x04").stored, 1);
}

TEST(CellZZ, FormatEveryNumber) {
  char buf[3];
  for (int n = 0; n < 1296; ++n) {
    format_string_zz_num(buf, sizeof buf, PatternIdx::from_value(n));
    auto digit = [](int d) { return char(d < 10 ? '0' + d : 'a' + d - 10); };
    ASSERT_EQ(buf[0], digit(n / 36));
    ASSERT_EQ(buf[1], digit(n % 36));
    ASSERT_EQ(buf[2], 0);
    ASSERT_EQ(PatternIdx::parse_string(buf).value(), n);
  }
  format_string_zz_num(buf, sizeof buf, PatternIdx{});
  EXPECT_EQ(std::string(buf), "\xF9\xF9");
  format_string_zz_num(buf, sizeof buf, PatternIdx::magic_cell());
  EXPECT_EQ(std::string(buf), "\x04\x04");
  format_string_zz_num(buf, sizeof buf, ProgramIdx::from_stored(1));
  EXPECT_NE(std::string(buf), "\x04\x04");
}

TEST(CellZZ, CorruptTextsBelowZeroAreKept) {
  // '-' folds as -3: "0-" is the number -3, written back as it was read.
  TableIdx t = TableIdx::parse_string("0-");
  EXPECT_EQ(t.value(), -3);
  char buf[3];
  format_string_zz_num(buf, sizeof buf, t);
  EXPECT_EQ(std::string(buf), "0-");
  EXPECT_EQ(ProgramIdx::parse_string("0-").value(), -3);
  // Bytes from 0x80 up count as negative digits.
  EXPECT_EQ(PatternIdx::parse_string("0\xf9").value(), int((signed char)0xf9) - '0');
}

TEST(CellZZDeathTest, BufferTooShortAsserts) {
  char buf[2];
  EXPECT_DEATH(format_string_zz_num(buf, sizeof buf, TableIdx::from_value(1)),
               "include/kelvane/types:[0-9]+: .*: Assertion `len >= 3' failed");
}

TEST(CellMagic, ValueTemplateMEmptyColumnIsMagic) {
  EXPECT_EQ((ValueTemplateM<255, 0>::parse_string("").stored), 1);
  EXPECT_EQ((ValueTemplateM<255, 0>::parse_string("\x04\x04").stored), 1);
  EXPECT_EQ((ValueTemplate<255, 0>::parse_string("").stored), 0);
  EXPECT_EQ((ValueTemplateM<255, 0>::parse_string("7f").value()), 0x7f);
  EXPECT_EQ(fmt(ValueTemplateM<255, 0>::magic_cell()), "\x04\x04");
  EXPECT_EQ(fmt(ValueTemplate<255, 0>{}), "\xF9\xF9");
}

TEST(CellMagic, MagicNumberEncodesAsMagic) {
  // -127 is the magic state's own number in a byte cell.
  EXPECT_EQ(TrackIdx::parse_string("-7f").stored, 1);
  EXPECT_EQ(TrackIdx::parse_string("\x04").stored, 1);
  EXPECT_EQ(TrackIdx::parse_string("f").value(), 15);
  EXPECT_EQ(TrackIdx::parse_string("10").value(), 0);
  EXPECT_EQ(TrackIdx::parse_string("\xF9").stored, 0);
  EXPECT_EQ(fmt(TrackIdx::magic_cell()), "\x04");
  EXPECT_EQ(fmt(TrackIdx::from_value(10)), "a");
  EXPECT_EQ(fmt(TrackIdx{}), "\xF9");
}

TEST(CellGeneric, BooleanAndSmallTemplates) {
  EXPECT_EQ(fmt(Boolean::from_value(1)), "1");
  EXPECT_EQ(fmt(Boolean::from_value(0)), "0");
  EXPECT_EQ(fmt(Boolean{}), "\xF9");
  EXPECT_EQ(Boolean::parse_string("\xF9").stored, 0);
  EXPECT_EQ(Boolean::parse_string("2").value(), 0);
  EXPECT_EQ((ValueTemplate<1, 1>::parse_string("5").value()), 1);
  EXPECT_EQ((ValueTemplate<1, 1>::parse_string("0").value()), 0);
  EXPECT_EQ(fmt(ValueTemplate<15, 0>::from_value(12)), "c");
  EXPECT_EQ(fmt(Param8Bit<224>::from_value(0xF5)), "f5");
  EXPECT_EQ(fmt(Param8Bit<224>::default_cell()), "e0");
  EXPECT_EQ(fmt(Depth8Bit<128>::default_cell()), "80");
  EXPECT_EQ(fmt(VariableIdx::from_value(63)), "3f");
}

TEST(CellGeneric, IntSettingDecimal) {
  using S = IntSetting<0, 15, 7, 10>;
  EXPECT_EQ(S::parse_string("16").value(), 7);
  EXPECT_EQ(S::parse_string("-1").value(), 7);
  EXPECT_EQ(S::parse_string("\xFA").stored, 0);
  EXPECT_EQ(S::parse_string("15").value(), 15);
  EXPECT_EQ(fmt(S::from_value(12)), "12");
  EXPECT_EQ(fmt(S{}), "\xFA");
  char buf[8];
  S{}.format_column(buf, sizeof buf, 3);
  EXPECT_EQ(std::string(buf), "\xFA\xFA\xFA");
  using B = IntSetting<30, 300, 127, 10>;
  EXPECT_EQ(B::parse_string("29").value(), 127);
  EXPECT_EQ(B::parse_string("300").value(), 300);
  EXPECT_EQ(fmt(ValueTemplate<4095, 2048>::default_cell()), "2048");
}

TEST(CellGeneric, FormatStaysInsideBuffer) {
  // Two bytes given out of eight: nothing is written behind them.
  char buf[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
  size_t volatile len = 2;  // keeps the compiler from judging the cut
  Param8Bit<0>::from_value(0xab).format_string(buf, len);
  EXPECT_EQ(std::string(buf), "a");
  EXPECT_EQ(buf[2], 'x');
  IntSetting<0, 15, 7, 10>{}.format_column(buf, len, 5);
  EXPECT_EQ(std::string(buf), "\xFA");
  EXPECT_EQ(buf[2], 'x');
}

TEST(CellText, CopyTextInto) {
  char name[32];
  std::memset(name, 'q', sizeof name);
  copy_text_into(name, 32, "ab\ncd");
  EXPECT_EQ(std::string(name, 3), "abq");
  std::string const long_text(40, 'z');
  copy_text_into(name, 32, long_text.c_str());
  EXPECT_EQ(std::string(name, 32), std::string(32, 'z'));
  EXPECT_EQ(text_length(name, 32), 32u);
}

TEST(CellBytes, RecordsCompareAsBytes) {
  struct R {
    PatchIdx a;
    TableIdx b;
  };
  R x, y;
  bytes_clear(x);
  bytes_clear(y);
  EXPECT_TRUE(bytes_equal(x, y));
  EXPECT_TRUE(bytes_zero(x));
  x.b = TableIdx::from_value(3);
  EXPECT_FALSE(bytes_equal(x, y));
  bytes_copy(y, x);
  EXPECT_TRUE(bytes_equal(x, y));
}
