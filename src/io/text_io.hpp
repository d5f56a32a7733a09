#pragma once
// The text side of the project files, done without the C library's stdio
// and scanf: a load reads some six thousand files and two million lines,
// and a save writes as many again.
//
// - `LineReader` reads a file (a regular one whole, at its open) and hands
//   out its lines exactly as fgets hands them out of a FILE* opened with
//   "r".
// - `scan_key_value` and `scan_step_fields` split a line exactly as sscanf
//   does with "%s %s\n" and "%d %s %d %s\n", return value included.
// - `TextOut` collects the text of a file; `OutputFile` opens the file as
//   fopen(path, "w+") does and writes the text in one go when it closes.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "kelvane/number_text.hpp"

namespace kelvane {

// ---------------------------------------------------------------------------
// Reading.

// The first '\n' of the `size` bytes at `p`, or null. The 16 bytes from
// `p` on must be readable whatever `size` is: the first of them are looked
// at all at once, and most lines end among them.
inline char const* find_newline(char const* p, size_t size) {
#if defined(__SSE2__)
  __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(p));
  unsigned mask = unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\n'))));
  if (size < 16) mask &= (1u << size) - 1;
  if (mask != 0) return p + __builtin_ctz(mask);
  if (size <= 16) return nullptr;
  return static_cast<char const*>(std::memchr(p + 16, '\n', size - 16));
#else
  return static_cast<char const*>(std::memchr(p, '\n', size));
#endif
}

class LineReader {
 public:
  LineReader() = default;
  ~LineReader();
  LineReader(LineReader const&) = delete;
  LineReader& operator=(LineReader const&) = delete;

  // Opens the file; false if it cannot be opened, which is when
  // fopen(path, "r") fails. A regular file is read whole here, up to the
  // end that read(2) reports, whatever its size said: a read that stops
  // short at the size it said, or a read of nothing; anything else (a
  // pipe, a device) is read as its lines are asked for. A directory opens
  // and reads as an empty text.
  bool open(char const* path);

  // A text already in memory, copied.
  void assign(char const* text, size_t size);

  // fgets(line, size, file): the next line with its '\n', or its first
  // size - 1 bytes if it is longer (the rest comes next), then a NUL. False
  // at the end of the text, and, as with fgets, for the line during which
  // a read failed. Bytes of value zero are copied like any other.
  bool next(char* line, size_t size) {
    char const* from;
    size_t n;
    if (!take_line(size, from, n)) return false;
    std::memcpy(line, from, n);
    line[n] = 0;
    return true;
  }

  // The same line where it stands in the reader, with a NUL behind it:
  // what next() would copy, without the copy. It stays valid until the next
  // call, which puts back the byte the NUL covers. Null where next() gives
  // false.
  char const* next_line(size_t size) {
    char const* from;
    size_t n;
    if (!take_line(size, from, n)) return nullptr;
    // take_line has moved past the line: the NUL goes where it stands now.
    covered_ = data_ + pos_;
    covered_byte_ = *covered_;
    *covered_ = 0;
    return from;
  }

 private:
  // The next line as fgets would give it: its first byte and its length.
  bool take_line(size_t size, char const*& from, size_t& n) {
    put_back();
    if (size < 2) return false;
    size_t const most_wanted = size - 1;
    void const* newline;
    for (;;) {
      size_t const rest = size_ - pos_;
      newline = rest ? find_newline(data_ + pos_, rest < most_wanted ? rest : most_wanted) : nullptr;
      if (newline || rest >= most_wanted || fd_ < 0) break;
      fill(most_wanted - rest);
    }
    size_t const rest = size_ - pos_;
    if (rest == 0) return false;
    from = data_ + pos_;
    n = newline ? size_t(static_cast<char const*>(newline) - from) + 1 : (rest < most_wanted ? rest : most_wanted);
    // The text ended short of a newline because a read failed: fgets gives
    // up on that line.
    if (failed_ && !newline && n < most_wanted) {
      pos_ = size_;
      return false;
    }
    pos_ += n;
    return true;
  }
  // Puts back the byte that the NUL behind the last line of next_line
  // covers.
  void put_back() {
    if (!covered_) return;
    *covered_ = covered_byte_;
    covered_ = nullptr;
  }
  // Reads at least `wanted` more bytes if there are any; closes the file at
  // its end or at a failed read.
  void fill(size_t wanted);
  void finish();
  void reserve(size_t capacity);
  int fd_ = -1;
  bool failed_ = false;
  char* data_ = nullptr;
  size_t size_ = 0;
  // Behind the text there are always kSlack bytes more: one for the NUL
  // of next_line, and the rest for find_newline.
  static constexpr size_t kSlack = 16;
  size_t capacity_ = 0;
  size_t pos_ = 0;
  char* covered_ = nullptr;
  char covered_byte_ = 0;
};

// ---------------------------------------------------------------------------
// Splitting lines.

// "C" locale isspace, the blanks that "%s", "%d" and a blank of a format
// skip.
constexpr bool is_scan_blank(char c) { return is_blank(static_cast<unsigned char>(c)); }

// The bytes that end a "%s" word: the blanks and the end of the text, in a
// table, so that a scan costs one look per byte.
inline constexpr struct ScanWordEnds {
  bool at[256] = {};
  constexpr ScanWordEnds() {
    for (int c = 0; c < 256; ++c) at[c] = c == 0 || is_blank(static_cast<unsigned char>(c));
  }
} kScanWordEnds;
constexpr bool ends_scan_word(char c) { return kScanWordEnds.at[static_cast<unsigned char>(c)]; }

// sscanf(line, "%s %s\n", key, value): 2 when both fields were read. Each
// output must have room for the whole line.
int scan_key_value(char const* line, char* key, char* value);

// sscanf(line, "%d %s %d %s\n", step, key, column, value).
int scan_step_fields(char const* line, int* step, char* key, int* column, char* value);

// ---------------------------------------------------------------------------
// Writing.

struct TextOut {
  std::string text;

  void put(char c) { text.push_back(c); }
  void chars(char const* s, size_t n) { text.append(s, n); }
  void str(char const* s) { text.append(s); }
  // printf "%d"
  void decimal(int v) {
    static constexpr NumberFormat kDecimal = print_format("%d");
    char digits[16];
    chars(digits, size_t(print_number(digits, sizeof digits, kDecimal, v)));
  }
  // printf "%" PRIx64
  void hex64(uint64_t v);
};

// A file opened for writing as fopen(path, "w+") opens it: created, or
// emptied if it was there. What goes into `out` is written when the file
// closes, in one go.
//
// Should the process end while the file is open, the file is left as a
// FILE* would leave it: an assertion's abort finds on disk what stdio
// would have written by then (whole buffers of the file's block size, or
// whole lines on a terminal), an error's exit finds everything. A file
// whose OutputFile ends without close (a handler threw) is closed with
// nothing more written.
class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();
  OutputFile(OutputFile const&) = delete;
  OutputFile& operator=(OutputFile const&) = delete;

  bool open(char const* path);
  void close();
  TextOut out;

  // Writes what stdio would have written of `out` by now (`all`: as exit
  // flushes it); done when the process ends abnormally.
  void write_as_stdio_would(bool all);
  OutputFile* next_open() const { return next_open_; }

 private:
  void write_from(size_t from, size_t to);
  void forget();
  int fd_ = -1;
  size_t written_ = 0;
  OutputFile* next_open_ = nullptr;
};

}  // namespace kelvane
