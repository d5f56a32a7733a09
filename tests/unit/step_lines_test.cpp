// A step line in the form the writer gives it is split in one pass; any
// other goes the general way. Both must give what the general split (the
// sscanf-like scan, then the unescape) gives, for lines of the written form
// and for lines bent in every way.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "project/step_lines.hpp"

using namespace kelvane;

namespace {

struct Split {
  bool kept = false;
  int step = 0;
  int column = 0;
  std::string key;
  std::string value;
  std::string text;
  std::string messages;
};

Split by_step_lines(std::string const& line, int step_count) {
  StepLine l;
  testing::internal::CaptureStderr();
  bool const kept = split_step_line(line.c_str(), step_count, &l);
  Split s;
  s.kept = kept;
  s.messages = testing::internal::GetCapturedStderr();
  if (kept) {
    s.step = l.step;
    s.column = l.column;
    s.key = l.key;
    s.value = l.value;
    s.text = l.text;
  }
  return s;
}

// The general split, step by step.
Split by_general_scan(std::string const& line, int step_count) {
  Split s;
  int step = 0, column = 0;
  std::vector<char> key(line.size() + 2), raw(line.size() + 2);
  if (scan_step_fields(line.c_str(), &step, key.data(), &column, raw.data()) != 4) {
    s.messages = "could not parse step: '" + line + "'\n";
    return s;
  }
  if (step < 0 || step >= step_count) {
    s.messages = "warning, incorrect step idx found\n";
    return s;
  }
  char value[kLineSize];
  unescape_setting_text(raw.data(), value, kLineSize);
  char upgraded[16];
  s.kept = true;
  s.step = step;
  s.column = column;
  s.key = op_code_key_upgrade(key.data());
  s.value = value;
  s.text = op_code_text_upgrade(value, upgraded);
  return s;
}

bool same_split(std::string const& line) {
  Split const a = by_step_lines(line, 64);
  Split const b = by_general_scan(line, 64);
  bool const same = a.kept == b.kept && a.step == b.step && a.column == b.column && a.key == b.key &&
                    a.value == b.value && a.text == b.text && a.messages == b.messages;
  EXPECT_TRUE(same) << "line \"" << line << "\"";
  return same;
}

std::string pick(std::mt19937& rng, std::vector<std::string> const& from) { return from[rng() % from.size()]; }

}  // namespace

TEST(StepLines, SplitIsTheGeneralSplitForWrittenAndBentLines) {
  std::vector<std::string> const numbers = {"0", "7", "63", "64", "007", "123456789", "999999999", "1234567890",
                                            "-1", "+5", "", "x", "4294967296", "99999999999999999999"};
  std::vector<std::string> const keys = {"note", "op_code", "op_code_midi", "op_code_all", "cond_mask",
                                         "table_idx", "k", "op_code_", "", "\x80\xff", "key\x01"};
  std::vector<std::string> const values = {"00",  "C-4",   "call00\\xb0\\xb0\\xb0", "\\x04", "\\xf9\\xf9",
                                           "\\",  "\\x",   "\\x4",                 "lmem7f", "gmem00\\x20",
                                           "a\\qb", "\\x00z", "",                    "v\x1c", "\xa0"};
  std::vector<std::string> const blanks = {" ", " ", " ", "  ", "\t", "\v", ""};
  std::vector<std::string> const ends = {"\n", "\n", "", " \n", " rest\n", "\t", "\r\n"};
  std::mt19937 rng(2211);
  int failures = 0;
  for (int i = 0; i < 20000 && failures < 10; ++i) {
    std::string const line = pick(rng, blanks).substr(0, rng() % 8 == 0 ? 1 : 0) + pick(rng, numbers) +
                             pick(rng, blanks) + pick(rng, keys) + pick(rng, blanks) + pick(rng, numbers) +
                             pick(rng, blanks) + pick(rng, values) + pick(rng, ends);
    if (!same_split(line)) ++failures;
  }
  EXPECT_EQ(failures, 0);
}

TEST(StepLines, SplitOfTheWrittenFormIsTheGeneralSplit) {
  for (char const* line : {"0 note 0 C-4\n", "63 op_code 5 call00\\xb0\\xb0\\xb0\n", "1 op_code_midi 2 gmem01\n",
                           "12 velocity 0 7f", "999999999 k 999999999 v\n", "5 key 3 value tail\n"})
    same_split(line);
}
