// The file text work done without stdio, against the C library: lines as
// fgets hands them out, line splits as sscanf makes them, numbers as
// printf writes them. Every comparison covers the whole output buffers and
// the return value.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kelvane/run_end.hpp"
#include "settings/dialog.hpp"
#include "io/text_io.hpp"

using namespace kelvane;

namespace {

// Bytes that matter to the splits: every blank of isspace, signs, digits,
// letters, a backslash, bytes above 0x7f and control bytes that are not
// blanks.
constexpr char kScanAlphabet[] = {' ', '\t', '\n', '\v', '\f', '\r', '0', '1', '9', '-', '+', 'a', 'x', 'Z',
                                  '\\', '\x80', '\xa0', '\xff', '\x01', '\x1c'};

std::string random_text(std::mt19937& rng, size_t max_length, char const* alphabet, size_t alphabet_size) {
  std::uniform_int_distribution<size_t> length(0, max_length);
  std::uniform_int_distribution<size_t> pick(0, alphabet_size - 1);
  std::string s(length(rng), ' ');
  for (char& c : s) c = alphabet[pick(rng)];
  return s;
}

// Every text up to `length` over `alphabet`, shortest first.
template <class F>
void every_text(char const* alphabet, size_t alphabet_size, size_t length, F&& f) {
  std::string s;
  f(s);
  for (size_t n = 1; n <= length; ++n) {
    std::vector<size_t> at(n, 0);
    for (;;) {
      s.assign(n, ' ');
      for (size_t i = 0; i < n; ++i) s[i] = alphabet[at[i]];
      f(s);
      size_t i = 0;
      while (i < n && ++at[i] == alphabet_size) at[i++] = 0;
      if (i == n) break;
    }
  }
}

// One line through "%s %s\n" both ways; the outputs start full of 'q'.
bool same_key_value(std::string const& line) {
  size_t const room = line.size() + 2;
  std::vector<char> key_lib(room, 'q'), value_lib(room, 'q'), key_hand(room, 'q'), value_hand(room, 'q');
  int const by_lib = std::sscanf(line.c_str(), "%s %s\n", key_lib.data(), value_lib.data());
  int const by_hand = scan_key_value(line.c_str(), key_hand.data(), value_hand.data());
  bool const same = by_lib == by_hand && key_lib == key_hand && value_lib == value_hand;
  EXPECT_TRUE(same) << "line \"" << line << "\": sscanf " << by_lib << ", by hand " << by_hand;
  return same;
}

bool same_step_fields(std::string const& line) {
  size_t const room = line.size() + 2;
  std::vector<char> key_lib(room, 'q'), value_lib(room, 'q'), key_hand(room, 'q'), value_hand(room, 'q');
  int step_lib = 0x5A5A5A5A, column_lib = 0x5A5A5A5A, step_hand = 0x5A5A5A5A, column_hand = 0x5A5A5A5A;
  int const by_lib =
      std::sscanf(line.c_str(), "%d %s %d %s\n", &step_lib, key_lib.data(), &column_lib, value_lib.data());
  int const by_hand = scan_step_fields(line.c_str(), &step_hand, key_hand.data(), &column_hand, value_hand.data());
  bool const same = by_lib == by_hand && step_lib == step_hand && column_lib == column_hand &&
                    key_lib == key_hand && value_lib == value_hand;
  EXPECT_TRUE(same) << "line \"" << line << "\": sscanf " << by_lib << ", by hand " << by_hand;
  return same;
}

// Lines shaped like those of the files, with one part bent at a time.
std::vector<std::string> shaped_step_lines() {
  std::vector<std::string> lines = {
      "0 velocity 0 00\n", "63 op_code 7 call00\\xb0\\xb0\\xb0\n", "0 transpose 0 -12", "  5\tkey\v3\fvalue\r\n",
      "5key 3value\n", "+5 key -3 v\n", "-0 k 00 v\n", "5 key 3\n", "5 key\n", "5\n", "", "\n", " \t\n",
      "x 1 2 3\n", "5 key x v\n", "5 key 3x\n", "5 key 3 x y z\n", "2147483647 k 2147483648 v\n",
      "-2147483649 k 9223372036854775807 v\n", "9223372036854775808 k -9223372036854775809 v\n",
      "99999999999999999999999999 k -99999999999999999999999999 v\n", "- k 1 v\n", "+ k 1 v\n", "5 k - v\n",
      "5 k + v\n", "0x10 k 0x10 v\n", "5 \x80\xff 3 \xa0\n", "5 k\x01 3 v\x1c\n",
  };
  return lines;
}

// Runs a comparison over every line of up to four bytes of the alphabet;
// the count of differences, stopping at ten.
int short_line_differences(bool (*same)(std::string const&)) {
  int failures = 0;
  every_text(kScanAlphabet, sizeof kScanAlphabet, 4, [&](std::string const& s) {
    if (failures < 10 && !same(s)) ++failures;
  });
  return failures;
}

}  // namespace

TEST(TextIo, KeyValueSplitIsSscanfsForEveryShortLine) { EXPECT_EQ(short_line_differences(same_key_value), 0); }

TEST(TextIo, KeyValueSplitIsSscanfsForRandomLines) {
  std::mt19937 rng(20261123);
  int failures = 0;
  for (int i = 0; i < 200000 && failures < 10; ++i)
    if (!same_key_value(random_text(rng, 40, kScanAlphabet, sizeof kScanAlphabet))) ++failures;
  for (std::string const& s : shaped_step_lines()) same_key_value(s);
  EXPECT_EQ(failures, 0);
}

TEST(TextIo, StepSplitIsSscanfsForEveryShortLine) { EXPECT_EQ(short_line_differences(same_step_fields), 0); }

TEST(TextIo, StepSplitIsSscanfsForRandomAndShapedLines) {
  std::mt19937 rng(1123);
  int failures = 0;
  for (std::string const& s : shaped_step_lines()) same_step_fields(s);
  // Random lines, then random lines built from number-like and word-like
  // parts, so that the later conversions are reached.
  for (int i = 0; i < 200000 && failures < 10; ++i)
    if (!same_step_fields(random_text(rng, 40, kScanAlphabet, sizeof kScanAlphabet))) ++failures;
  constexpr char kDigits[] = {'0', '1', '5', '9', '-', '+', ' '};
  constexpr char kBlanks[] = {' ', '\t', '\n', '\v', '\f', '\r'};
  constexpr char kWord[] = {'a', 'k', '0', '7', '-', '\\', 'x', '\x80', '\xff'};
  for (int i = 0; i < 200000 && failures < 10; ++i) {
    std::string line;
    for (int part = 0; part < 5; ++part) {
      line += random_text(rng, 2, kBlanks, sizeof kBlanks);
      line += part % 2 == 0 ? random_text(rng, 24, kDigits, sizeof kDigits) : random_text(rng, 6, kWord, sizeof kWord);
    }
    if (!same_step_fields(line)) ++failures;
  }
  EXPECT_EQ(failures, 0);
}

TEST(TextIo, StepSplitReadsNumbersOfEveryLengthAsSscanf) {
  // Every length of digit run, with each sign, in both number fields:
  // strtol's saturation and the cut to int.
  for (int length = 1; length <= 30; ++length) {
    for (char first = '1'; first <= '9'; first += 4) {
      std::string digits(size_t(length), '9');
      digits[0] = first;
      for (char const* sign : {"", "-", "+"}) {
        same_step_fields(std::string(sign) + digits + " key " + sign + digits + " value\n");
        same_step_fields("1 key " + std::string(sign) + digits + "value\n");
      }
    }
  }
}

// ---------------------------------------------------------------------------
// LineReader against fgets on the same file.

namespace {

std::filesystem::path scratch_file() {
  return std::filesystem::temp_directory_path() / ("kelvane_text_io_" + std::to_string(getpid()) + ".txt");
}

// Reads the file with fgets and with a LineReader into buffers of `size`
// bytes that start full of 'q' before every call, and compares every
// buffer and every return. A third reader takes every other line in place,
// which must read as the text of the line up to its first NUL, and leave
// the lines after it as they are.
bool same_lines(std::string const& content, size_t size) {
  std::filesystem::path const path = scratch_file();
  {
    FILE* f = std::fopen(path.c_str(), "wb");
    std::fwrite(content.data(), 1, content.size(), f);
    std::fclose(f);
  }
  FILE* f = std::fopen(path.c_str(), "r");
  LineReader reader;
  EXPECT_TRUE(reader.open(path.c_str()));
  LineReader from_memory;
  from_memory.assign(content.data(), content.size());
  LineReader in_place;
  EXPECT_TRUE(in_place.open(path.c_str()));
  bool same = true;
  for (int call = 0; same; ++call) {
    std::vector<char> by_lib(size, 'q'), by_file(size, 'q'), by_memory(size, 'q'), by_turns(size, 'q');
    bool const lib = std::fgets(by_lib.data(), int(size), f) != nullptr;
    bool const file = reader.next(by_file.data(), size);
    bool const memory = from_memory.next(by_memory.data(), size);
    bool turns;
    if (call % 2 == 0) {
      char const* const line = in_place.next_line(size);
      turns = line != nullptr;
      if (turns) by_turns.assign(by_lib.begin(), by_lib.end());
      if (turns && std::string(line) != std::string(by_lib.data())) by_turns[0] ^= 1;
    } else {
      turns = in_place.next(by_turns.data(), size);
    }
    same = lib == file && lib == memory && lib == turns && by_lib == by_file && by_lib == by_memory &&
           by_lib == by_turns;
    EXPECT_TRUE(same) << "call " << call << " of a text of " << content.size() << " bytes, buffer " << size;
    if (!lib) break;
  }
  std::fclose(f);
  std::filesystem::remove(path);
  return same;
}

}  // namespace

TEST(TextIo, LinesAreThoseOfFgets) {
  std::vector<std::string> texts = {"",
                                    "\n",
                                    "one line\n",
                                    "no newline at the end",
                                    "a\nb\n\nc",
                                    std::string("nul\0inside\n\0\n", 14),
                                    std::string(1022, 'x') + "\n" + "next\n",
                                    std::string(1023, 'x') + "\n" + "next\n",
                                    std::string(1024, 'x') + "\n",
                                    std::string(5000, 'y'),
                                    std::string(4095, 'z') + "\n" + std::string(4097, 'w') + "\n"};
  for (std::string const& t : texts)
    for (size_t size : {size_t(2), size_t(3), size_t(5), size_t(kLineSize), size_t(5000)}) same_lines(t, size);
  std::mt19937 rng(7);
  constexpr char kLineAlphabet[] = {'a', '\n', '\n', '\0', ' ', '\xff'};
  int failures = 0;
  for (int i = 0; i < 300 && failures < 5; ++i) {
    std::string const t = random_text(rng, 3000, kLineAlphabet, sizeof kLineAlphabet);
    for (size_t size : {size_t(2), size_t(7), size_t(64), size_t(kLineSize)})
      if (!same_lines(t, size)) ++failures;
  }
  EXPECT_EQ(failures, 0);
}

TEST(TextIo, MissingFileAndDirectoryOpenAsFopenDoes) {
  LineReader reader;
  EXPECT_FALSE(reader.open("/nonexistent/kelvane/file.txt"));
  EXPECT_EQ(std::fopen("/nonexistent/kelvane/file.txt", "r"), nullptr);
  // A directory opens for reading and yields no line, as fopen and fgets.
  std::string const dir = std::filesystem::temp_directory_path().string();
  ASSERT_TRUE(reader.open(dir.c_str()));
  char line[kLineSize];
  EXPECT_FALSE(reader.next(line, sizeof line));
  FILE* f = std::fopen(dir.c_str(), "r");
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(std::fgets(line, sizeof line, f), nullptr);
  std::fclose(f);
}

// ---------------------------------------------------------------------------
// Writing.

TEST(TextIo, DecimalIsPrintfs) {
  std::vector<int> values = {0, 1, -1, 9, 10, -10, 99, 100, 12345, INT_MAX, INT_MIN, INT_MAX - 1, INT_MIN + 1};
  std::mt19937 rng(3);
  for (int i = 0; i < 200000; ++i) values.push_back(int(rng()));
  for (int v = -70000; v <= 70000; ++v) values.push_back(v);
  for (int v : values) {
    TextOut out;
    out.decimal(v);
    char lib[32];
    int const n = std::snprintf(lib, sizeof lib, "%d", v);
    ASSERT_EQ(out.text, std::string(lib, size_t(n))) << v;
  }
}

TEST(TextIo, Hex64IsPrintfs) {
  std::vector<uint64_t> values = {0, 1, 15, 16, 255, 0xffffffffull, 0x100000000ull, UINT64_MAX, UINT64_MAX - 1,
                                  0x8000000000000000ull};
  std::mt19937_64 rng(4);
  for (int i = 0; i < 200000; ++i) values.push_back(rng() >> (rng() % 64));
  for (int shift = 0; shift < 64; ++shift) values.push_back(uint64_t(1) << shift);
  for (uint64_t v : values) {
    TextOut out;
    out.hex64(v);
    char lib[32];
    int const n = std::snprintf(lib, sizeof lib, "%" PRIx64, v);
    ASSERT_EQ(out.text, std::string(lib, size_t(n))) << v;
  }
}

TEST(TextIo, OutputFileWritesOnCloseAndEmptiesOnOpen) {
  std::filesystem::path const path = scratch_file();
  {
    FILE* f = std::fopen(path.c_str(), "w");
    std::fputs("old content\n", f);
    std::fclose(f);
  }
  {
    OutputFile out;
    ASSERT_TRUE(out.open(path.c_str()));
    out.out.str("new");
    // Open and not yet closed: emptied, as fopen "w+" leaves it before the
    // first flush.
    EXPECT_EQ(std::filesystem::file_size(path), 0u);
    out.close();
  }
  EXPECT_EQ(std::filesystem::file_size(path), 3u);
  {
    OutputFile out;
    ASSERT_TRUE(out.open(path.c_str()));
    out.out.str("never written");
  }
  EXPECT_EQ(std::filesystem::file_size(path), 0u);
  std::filesystem::remove(path);
  OutputFile out;
  EXPECT_FALSE(out.open("/nonexistent/kelvane/file.txt"));
}

namespace {

// The lines fgets gives for a file: read through a FILE* on the same
// path, or over a copy of the text in memory.
std::vector<std::string> fgets_lines(FILE* f, size_t size) {
  std::vector<std::string> lines;
  std::vector<char> line(size);
  while (std::fgets(line.data(), int(size), f)) lines.emplace_back(line.data());
  return lines;
}

std::vector<std::string> reader_lines(LineReader& reader, size_t size) {
  std::vector<std::string> lines;
  std::vector<char> line(size);
  while (reader.next(line.data(), size)) lines.emplace_back(line.data());
  return lines;
}

std::string long_text() {
  std::string text;
  for (int i = 0; i < 20000; ++i) {
    text += std::to_string(i) + " key " + std::to_string(i % 7) + " value\n";
    if (i % 1000 == 0) text += std::string(3000, 'L') + "\n";
  }
  return text + "last line without newline";
}

}  // namespace

TEST(TextIo, FilesWhoseSizeSaysNothingAreReadToTheirEnd) {
  // Regular files of /proc report a size of 0; their lines all come.
  for (char const* path : {"/proc/self/cmdline", "/proc/version", "/proc/self/maps"}) {
    FILE* f = std::fopen(path, "r");
    ASSERT_NE(f, nullptr) << path;
    std::vector<std::string> const expected = fgets_lines(f, kLineSize);
    std::fclose(f);
    LineReader reader;
    ASSERT_TRUE(reader.open(path));
    std::vector<std::string> const got = reader_lines(reader, kLineSize);
    if (std::string(path) == "/proc/self/maps") {
      // The mappings may change between two reads; the count of lines read
      // shows that the whole file came, not only its first read.
      EXPECT_GT(got.size(), 10u);
    } else {
      EXPECT_EQ(got, expected) << path;
    }
  }
}

TEST(TextIo, APipeIsReadAsItsLinesAreAskedFor) {
  std::string const text = long_text();
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  std::thread writer([&] {
    size_t done = 0;
    while (done < text.size()) {
      // Small pieces, so that lines arrive split over many reads.
      size_t const piece = std::min<size_t>(777, text.size() - done);
      ssize_t const n = write(fds[1], text.data() + done, piece);
      if (n <= 0) break;
      done += size_t(n);
    }
    close(fds[1]);
  });
  LineReader reader;
  std::string const path = "/proc/self/fd/" + std::to_string(fds[0]);
  ASSERT_TRUE(reader.open(path.c_str()));
  std::vector<std::string> const got = reader_lines(reader, kLineSize);
  writer.join();
  close(fds[0]);
  FILE* f = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
  std::vector<std::string> const expected = fgets_lines(f, kLineSize);
  std::fclose(f);
  EXPECT_EQ(got, expected);
}

namespace {

std::string file_text(std::filesystem::path const& path) {
  std::string text;
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return "(missing)";
  char buf[4096];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
  std::fclose(f);
  return text;
}

// Writes the lines of `text` one by one, through stdio or an OutputFile,
// then ends the process with `end`.
template <class End>
[[noreturn]] void write_then_end(bool by_stdio, std::filesystem::path const& path, std::string const& text, End end) {
  if (by_stdio) {
    FILE* f = std::fopen(path.c_str(), "w+");
    size_t at = 0;
    while (at < text.size()) {
      size_t const to = std::min(text.find('\n', at), text.size() - 1) + 1;
      std::fputs(text.substr(at, to - at).c_str(), f);
      at = to;
    }
    end(true);
  }
  OutputFile out;
  out.open(path.c_str());
  out.out.str(text.c_str());
  end(false);
  std::abort();
}

}  // namespace

TEST(TextIoDeathTest, AFileOpenWhenTheProcessEndsIsLeftAsStdioLeavesIt) {
  std::string const text = long_text();
  // The death tests' children run in processes of their own: the paths
  // must not depend on the process.
  std::string const base =
      (std::filesystem::temp_directory_path() / ("kelvane_text_io_end_" + std::to_string(getuid()))).string();
  std::filesystem::path const by_stdio = base + ".stdio";
  std::filesystem::path const by_hand = base + ".hand";
  std::filesystem::remove(by_stdio);
  std::filesystem::remove(by_hand);
  // An assertion aborts: stdio leaves the whole blocks it had written.
  auto assertion = [](bool by_stdio_end) {
    if (by_stdio_end) std::abort();
    run_end_assertion("check", "unit", 1, "function");
  };
  EXPECT_DEATH(write_then_end(true, by_stdio, text, assertion), "");
  EXPECT_DEATH(write_then_end(false, by_hand, text, assertion), "Assertion `check' failed");
  std::string const aborted = file_text(by_stdio);
  ASSERT_TRUE(std::filesystem::exists(by_stdio));
  EXPECT_GT(aborted.size(), 0u);
  EXPECT_LT(aborted.size(), text.size());
  EXPECT_EQ(text.compare(0, aborted.size(), aborted), 0);
  EXPECT_TRUE(file_text(by_hand) == aborted) << file_text(by_hand).size() << " bytes, stdio " << aborted.size();
  // An error exits: stdio writes everything.
  auto error = [](bool by_stdio_end) {
    if (by_stdio_end) std::exit(1);
    run_end_error();
  };
  EXPECT_EXIT(write_then_end(true, by_stdio, text, error), ::testing::ExitedWithCode(1), "");
  EXPECT_EXIT(write_then_end(false, by_hand, text, error), ::testing::ExitedWithCode(1), "");
  EXPECT_TRUE(file_text(by_stdio) == text) << file_text(by_stdio).size() << " of " << text.size() << " bytes";
  EXPECT_TRUE(file_text(by_hand) == text) << file_text(by_hand).size() << " of " << text.size() << " bytes";
  std::filesystem::remove(by_stdio);
  std::filesystem::remove(by_hand);
}
