// The hand-written integer conversions against the C library: every test
// runs sscanf / snprintf with the same format next to the hand conversion
// and compares the return value and what was read or written, byte for byte.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kelvane/number_text.hpp"
#include "kelvane/op_code_definition.hpp"
#include "kelvane/types.hpp"
#include "settings/small_records.hpp"

using namespace kelvane;

namespace {

// The formats the cells read with: the integer text forms and the rules of
// the cells with a conversion pair of their own.
std::vector<char const*> cell_scan_formats() {
  return {"%x", "%02x", "%d", Transpose::text_rules.scan, Finetune::text_rules.scan,
          Cents::text_rules.scan, PosNegVal7::text_rules.scan, PosNegVal8::text_rules.scan,
          Percentage::text_rules.scan, NumChordNotes::text_rules.scan, MidiPitch::text_rules.scan,
          ImmediateValue::text_rules.scan};
}

// The formats the cells write with, PatternLength's "%2d" among them.
std::vector<char const*> cell_print_formats() {
  return {"%x", "%02x", "%d", "%2d", Transpose::text_rules.print, Finetune::text_rules.print,
          Cents::text_rules.print, PosNegVal7::text_rules.print, PosNegVal8::text_rules.print,
          Percentage::text_rules.print, NumChordNotes::text_rules.print, MidiPitch::text_rules.print,
          ImmediateValue::text_rules.print};
}

// Further shapes that are done by hand, to try the widths and flags apart.
std::vector<char const*> more_hand_formats(bool scanning) {
  if (scanning) return {"%1d", "%2d", "%1x", "%2x", "%3x", "%6d", "%0d", "%0x", "%10x", "%20d"};
  return {"%1d", "%3x", "%+d", "%0d", "%010d", "%08x", "%+010d", "%d%%", "%x%%%%", "%d abc", "%+0d"};
}

// Formats the C library keeps; the results must be the same all the same.
std::vector<char const*> fallback_formats(bool scanning) {
  if (scanning) return {"%i", "%u", "%X", "%3d%%", "% d", "%65d", "x%d", ""};
  return {"%i", "% d", "%-4d", "%#x", "%+x", "%X", "%65d", "%.3d", "%d%s"};
}

std::vector<char const*> all_formats(bool scanning, bool with_fallback) {
  std::vector<char const*> all = scanning ? cell_scan_formats() : cell_print_formats();
  for (char const* f : more_hand_formats(scanning)) all.push_back(f);
  if (with_fallback)
    for (char const* f : fallback_formats(scanning)) all.push_back(f);
  return all;
}

// A format that would consume a further argument is left out of the
// fallback runs of print_number, which passes exactly one int.
bool prints_one_int(char const* format) { return std::strstr(format, "%s") == nullptr; }

// Compares one scan of one text; returns false (after recording the
// failure) on the first difference.
bool same_scan(char const* text, char const* format) {
  NumberFormat const f = scan_format(format);
  int by_lib = 0x5A5A5A5A, by_hand = 0x5A5A5A5A;
  int const ret_lib = std::sscanf(text, format, &by_lib);
  int const ret_hand = scan_number(text, f, &by_hand);
  EXPECT_EQ(ret_hand, ret_lib) << "format \"" << format << "\" text \"" << text << "\"";
  EXPECT_EQ(by_hand, by_lib) << "format \"" << format << "\" text \"" << text << "\"";
  return ret_hand == ret_lib && by_hand == by_lib;
}

// Compares one print into a buffer of len bytes that starts full of 'q';
// the whole buffer must match.
bool same_print(char const* format, int v, size_t len) {
  NumberFormat const f = print_format(format);
  char by_lib[160], by_hand[160];
  std::memset(by_lib, 'q', sizeof by_lib);
  std::memset(by_hand, 'q', sizeof by_hand);
  int const ret_lib = std::snprintf(len ? by_lib : nullptr, len, format, v);
  int const ret_hand = print_number(len ? by_hand : nullptr, len, f, v);
  bool const same = ret_hand == ret_lib && std::memcmp(by_lib, by_hand, sizeof by_lib) == 0;
  EXPECT_TRUE(same) << "format \"" << format << "\" value " << v << " len " << len << ": \""
                    << std::string(by_lib, std::min<size_t>(len, 40)) << "\" " << ret_lib << " vs \""
                    << std::string(by_hand, std::min<size_t>(len, 40)) << "\" " << ret_hand;
  return same;
}

// Texts a number can come as: the ways the cells and hand editing write it.
std::vector<std::string> texts_of(int v) {
  char b[64];
  std::vector<std::string> out;
  for (char const* form : {"%d", "%x", "%X", "%+d", " %d", "\t%+5d", "%05d", "0x%x", "0X%X", "%04x",
                           "-%x", "%dz", "\n%3d"}) {
    std::snprintf(b, sizeof b, form, v);
    out.push_back(b);
  }
  return out;
}

// Blanks, signs, prefixes, overflowing numbers, junk: texts made to find
// where a conversion cuts, stops or saturates.
std::vector<std::string> adversarial_texts() {
  std::vector<std::string> out = {
      "", " ", "\t", "\n", "\v", "\f", "\r", " \t\n\v\f\r", "+", "-", " +", "\t-", "++1", "+-1", "-+1",
      "--1", "0", "-0", "+0", "00", "000", "0x", "0X", "-0x", "+0X", " 0x", "0x ", "0xg", "0x-1", "0x+1",
      "0xx1", "00x1", "0x0x1", "x1", "X1", "1x", "1ff", "fff", "FfF", "g", "z", "1 2", "12abc", "-127",
      " -127", "-12 7", "\xF9", "\xF9\xF9", "\xFA\xFA\xFA", "\x04", "\x04\x04", "[ ]", "----", "050%",
      "\x85" "5", "\xA0" "5", "\xFF", "\x80", "%", "%d", "0\x01", "5\x7F",
      // int and long limits, in decimal and in hexadecimal
      "2147483647", "2147483648", "-2147483647", "-2147483648", "-2147483649", "4294967295", "4294967296",
      "-4294967295", "-4294967296", "9223372036854775807", "9223372036854775808", "-9223372036854775807",
      "-9223372036854775808", "-9223372036854775809", "18446744073709551615", "18446744073709551616",
      "-18446744073709551615", "-18446744073709551616", "99999999999999999999999999",
      "-99999999999999999999999999", "7fffffff", "80000000", "-80000000", "ffffffff", "100000000",
      "-ffffffff", "-100000000", "7fffffffffffffff", "8000000000000000", "-8000000000000000",
      "ffffffffffffffff", "-ffffffffffffffff", "10000000000000000", "-10000000000000000",
      "0xffffffffffffffff", "0x10000000000000000", "fffffffffffffffffffffffff",
      "-fffffffffffffffffffffffff",
      // leading zeros do not overflow
      "000000000000000000000000000000000001", "-0000000000000000000000000000000000255",
      "0x00000000000000000000000000000000ff", std::string(300, '0') + "7", std::string(300, '9'),
      std::string(200, ' ') + "42", std::string(200, ' ')};
  // Every sign and prefix before a few bodies, behind a few blank runs.
  for (char const* blank : {"", " ", "  \t", "\n"})
    for (char const* sign : {"", "+", "-"})
      for (char const* prefix : {"", "0", "0x", "0X", "00"})
        for (char const* body : {"", "1", "7f", "12", "127", "1024", "ff", "FF", "3fff", "4000", "fg", "9q"})
          out.push_back(std::string(blank) + sign + prefix + body);
  return out;
}

// Random texts over the bytes that matter to a number and a few that do not.
std::vector<std::string> random_texts(int count, unsigned seed) {
  static char const alphabet[] = " \t\n\v+-+-0000123456789789abcdefABCDEFxXxXgz%\xF9\xFA\x04\x85";
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> length(0, 14);
  std::uniform_int_distribution<int> pick(0, int(sizeof alphabet) - 2);
  std::vector<std::string> out;
  for (int i = 0; i < count; ++i) {
    std::string t;
    for (int n = length(rng); n > 0; --n) t += alphabet[pick(rng)];
    out.push_back(t);
  }
  return out;
}

// Values of every cell's range with a margin beyond each end (the widest
// cell, the pitch word, ends at 0x3FFF), and the limits of int.
std::vector<int> values_to_print() {
  std::vector<int> out;
  for (int v = -20000; v <= 20000; ++v) out.push_back(v);
  for (int v : {INT_MIN, INT_MIN + 1, INT_MAX, INT_MAX - 1, -100000, 100000, 999999, -999999, 0x7FFFFFFF,
                int(0x80000000u), int(0xFFFFFFFFu), 0x10000, 0xFFFF})
    out.push_back(v);
  std::mt19937 rng(7);
  for (int i = 0; i < 20000; ++i) out.push_back(int(rng()));
  return out;
}

}  // namespace

// Every format a cell reads or writes with is converted by hand; a cell
// falling back to the C library would only show as lost speed.
TEST(NumberText, CellFormatsAreConvertedByHand) {
  for (char const* f : cell_scan_formats()) EXPECT_TRUE(scan_format(f).by_hand) << f;
  for (char const* f : cell_print_formats()) EXPECT_TRUE(print_format(f).by_hand) << f;
  for (char const* f : more_hand_formats(true)) EXPECT_TRUE(scan_format(f).by_hand) << f;
  for (char const* f : more_hand_formats(false)) EXPECT_TRUE(print_format(f).by_hand) << f;
  for (char const* f : fallback_formats(true)) EXPECT_FALSE(scan_format(f).by_hand) << f;
  for (char const* f : fallback_formats(false)) EXPECT_FALSE(print_format(f).by_hand) << f;
}

TEST(NumberText, FormatShapes) {
  constexpr NumberFormat h2 = scan_format("%02x");
  static_assert(h2.by_hand && h2.hex && h2.width == 2);
  constexpr NumberFormat t = print_format("%+3d");
  static_assert(t.by_hand && !t.hex && t.plus && !t.zero && t.width == 3);
  constexpr NumberFormat p = print_format("%03d%%");
  static_assert(p.by_hand && p.zero && p.width == 3);
  EXPECT_STREQ(p.suffix, "%%");
}

// Known answers, so that a C library that changed under both sides would
// still be noticed.
TEST(NumberText, ScanKnownAnswers) {
  int v = 0;
  EXPECT_EQ(scan_number("-127", scan_format("%3d"), &v), 1);
  EXPECT_EQ(v, -12);
  EXPECT_EQ(scan_number("1ff", scan_format("%02x"), &v), 1);
  EXPECT_EQ(v, 0x1f);
  EXPECT_EQ(scan_number("  0x1F", scan_format("%x"), &v), 1);
  EXPECT_EQ(v, 0x1f);
  EXPECT_EQ(scan_number("0x1f", scan_format("%02x"), &v), 1);
  EXPECT_EQ(v, 0);
  EXPECT_EQ(scan_number("2147483648", scan_format("%d"), &v), 1);
  EXPECT_EQ(v, INT_MIN);
  EXPECT_EQ(scan_number("99999999999999999999", scan_format("%d"), &v), 1);
  EXPECT_EQ(v, -1);
  EXPECT_EQ(scan_number("-", scan_format("%d"), &v), 0);
  EXPECT_EQ(scan_number(" \t\n", scan_format("%d"), &v), EOF);
  EXPECT_EQ(scan_number("", scan_format("%x"), &v), EOF);
  EXPECT_EQ(scan_number("\xF9\xF9", scan_format("%02x"), &v), 0);
}

TEST(NumberText, PrintKnownAnswers) {
  char b[16];
  EXPECT_EQ(print_number(b, sizeof b, print_format("%+3d"), 5), 3);
  EXPECT_STREQ(b, " +5");
  EXPECT_EQ(print_number(b, sizeof b, print_format("%03d%%"), 50), 4);
  EXPECT_STREQ(b, "050%");
  EXPECT_EQ(print_number(b, sizeof b, print_format("%02x"), -1), 8);
  EXPECT_STREQ(b, "ffffffff");
  EXPECT_EQ(print_number(b, 3, print_format("%+5d"), -1200), 5);
  EXPECT_STREQ(b, "-1");
}

// Each number from -20000 to 20000 (past every cell's range) in thirteen
// written forms, and a few hundred adversarial texts, through every format.
TEST(NumberText, ScanMatchesSscanfOverValueTexts) {
  std::vector<std::string> texts;
  for (int v = -20000; v <= 20000; ++v)
    for (std::string const& t : texts_of(v)) texts.push_back(t);
  for (char const* format : all_formats(true, false)) {
    int failures = 0;
    for (std::string const& t : texts)
      if (!same_scan(t.c_str(), format) && ++failures > 10) break;
  }
}

TEST(NumberText, ScanMatchesSscanfOverAdversarialTexts) {
  std::vector<std::string> const texts = adversarial_texts();
  for (char const* format : all_formats(true, true)) {
    int failures = 0;
    for (std::string const& t : texts)
      if (!same_scan(t.c_str(), format) && ++failures > 10) break;
  }
}

TEST(NumberText, ScanMatchesSscanfOverRandomTexts) {
  std::vector<std::string> const texts = random_texts(100000, 20240611);
  for (char const* format : all_formats(true, false)) {
    int failures = 0;
    for (std::string const& t : texts)
      if (!same_scan(t.c_str(), format) && ++failures > 10) break;
  }
}

// Every value of values_to_print() through every format into a buffer
// with room, then small buffers that cut the text: lengths 0 to 12 for
// the numbers of the cells' ranges and the limits of int.
TEST(NumberText, PrintMatchesSnprintf) {
  std::vector<int> const values = values_to_print();
  for (char const* format : all_formats(false, true)) {
    if (!prints_one_int(format)) continue;
    int failures = 0;
    for (int v : values)
      if (!same_print(format, v, 128) && ++failures > 10) break;
  }
}

TEST(NumberText, PrintMatchesSnprintfInSmallBuffers) {
  std::vector<int> values;
  for (int v = -1100; v <= 1100; ++v) values.push_back(v);
  for (int v : {-9601, -9600, 9600, 9601, 0x3FFF, 0x4000, 0x2000, INT_MIN, INT_MAX, -1, 100000})
    values.push_back(v);
  for (char const* format : all_formats(false, true)) {
    if (!prints_one_int(format)) continue;
    int failures = 0;
    for (int v : values)
      for (size_t len = 0; len <= 12; ++len)
        if (!same_print(format, v, len) && ++failures > 10) break;
  }
}

// "%-*s" of texts of 0 to 20 bytes, blanks and pad bytes among them, in
// widths -3 to 24 and buffers of 0 to 26 bytes.
TEST(NumberText, LeftJustifiedMatchesSnprintf) {
  std::vector<std::string> texts = {"", " ", "a", "bpm", "bpm%", "Cif", "  x ", "\xB0\xB0", "trns"};
  std::mt19937 rng(11);
  for (int i = 0; i < 60; ++i) {
    std::string t;
    for (int n = int(rng() % 21); n > 0; --n) t += char(1 + rng() % 255);
    texts.push_back(t);
  }
  for (std::string const& t : texts)
    for (int width = -3; width <= 24; ++width)
      for (size_t len = 0; len <= 26; ++len) {
        char by_lib[40], by_hand[40];
        std::memset(by_lib, 'q', sizeof by_lib);
        std::memset(by_hand, 'q', sizeof by_hand);
        int const ret_lib = std::snprintf(len ? by_lib : nullptr, len, "%-*s", width, t.c_str());
        int const ret_hand = print_left_justified(len ? by_hand : nullptr, len, t.c_str(), width);
        ASSERT_EQ(ret_hand, ret_lib) << "\"" << t << "\" width " << width << " len " << len;
        ASSERT_EQ(std::memcmp(by_lib, by_hand, sizeof by_lib), 0)
            << "\"" << t << "\" width " << width << " len " << len;
      }
}

// The older memory op code texts, short and over-long, against the
// snprintf into 16 bytes that they stand for.
TEST(NumberText, OpCodeUpgradeMatchesSnprintf) {
  std::mt19937 rng(13);
  for (char const* old : {"lmem", "gmem"})
    for (int n = 0; n <= 30; ++n) {
      std::string rest;
      for (int i = 0; i < n; ++i) rest += char(1 + rng() % 255);
      std::string const text = old + rest;
      char expected[16], buf[16];
      std::memset(expected, 'q', sizeof expected);
      std::memset(buf, 'q', sizeof buf);
      std::snprintf(expected, sizeof expected, old[0] == 'l' ? "streL%s" : "streG%s", rest.c_str());
      EXPECT_EQ(op_code_text_upgrade(text.c_str(), buf), buf);
      EXPECT_EQ(std::memcmp(expected, buf, sizeof buf), 0) << text;
    }
  char buf[16];
  char const* other = "streL0a7f";
  EXPECT_EQ(op_code_text_upgrade(other, buf), other);
}

// The bounded writer alone: counts everything, writes what fits.
TEST(NumberText, TextSinkCutsLikeSnprintf) {
  for (size_t len = 0; len <= 8; ++len) {
    char by_lib[12], by_hand[12];
    std::memset(by_lib, 'q', sizeof by_lib);
    std::memset(by_hand, 'q', sizeof by_hand);
    int const ret_lib = std::snprintf(len ? by_lib : nullptr, len, "%s%s", "abc", "defg");
    TextSink s{len ? by_hand : nullptr, len, 0};
    sink_text(s, "abc");
    sink_text(s, "defg");
    EXPECT_EQ(sink_end(s), ret_lib);
    EXPECT_EQ(std::memcmp(by_lib, by_hand, sizeof by_lib), 0) << len;
  }
}
