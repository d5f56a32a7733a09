#pragma once
// The text side of the project files, done without the C library's stdio
// and scanf: a load reads some six thousand files and two million lines,
// and a save writes as many again.
//
// - `LineReader` reads a file whole and hands out its lines exactly as
//   fgets hands them out of a FILE* opened with "r".
// - `scan_key_value` and `scan_step_fields` split a line exactly as sscanf
//   does with "%s %s\n" and "%d %s %d %s\n", return value included.
// - `TextOut` collects the text of a file; `OutputFile` opens the file as
//   fopen(path, "w+") does and writes the text in one go when it closes.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "kelvane/number_text.hpp"

namespace kelvane {

// ---------------------------------------------------------------------------
// Reading.

class LineReader {
 public:
  LineReader() = default;
  ~LineReader();
  LineReader(LineReader const&) = delete;
  LineReader& operator=(LineReader const&) = delete;

  // Opens and reads the whole file; false if it cannot be opened, which is
  // when fopen(path, "r") fails. A read error ends the text after the last
  // whole line read before it, as fgets would see it. A directory opens
  // and reads as an empty text.
  bool open(char const* path);

  // A text already in memory, copied.
  void assign(char const* text, size_t size);

  // fgets(line, size, file): the next line with its '\n', or its first
  // size - 1 bytes if it is longer (the rest comes next), then a NUL. False
  // at the end of the text. Bytes of value zero are copied like any other.
  bool next(char* line, size_t size) {
    if (pos_ >= size_ || size < 2) return false;
    size_t const rest = size_ - pos_;
    size_t const most = rest < size - 1 ? rest : size - 1;
    char const* const from = data_ + pos_;
    void const* const newline = std::memchr(from, '\n', most);
    size_t const n = newline ? size_t(static_cast<char const*>(newline) - from) + 1 : most;
    std::memcpy(line, from, n);
    line[n] = 0;
    pos_ += n;
    return true;
  }

 private:
  void reserve(size_t capacity);
  char* data_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
  size_t pos_ = 0;
};

// ---------------------------------------------------------------------------
// Splitting lines.

// "C" locale isspace, the blanks that "%s", "%d" and a blank of a format
// skip.
constexpr bool is_scan_blank(char c) { return is_blank(static_cast<unsigned char>(c)); }

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
// closes, in one go. A file left open when its OutputFile ends is closed
// with nothing written, as a FILE* that was never flushed.
class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();
  OutputFile(OutputFile const&) = delete;
  OutputFile& operator=(OutputFile const&) = delete;

  bool open(char const* path);
  void close();
  TextOut out;

 private:
  int fd_ = -1;
};

}  // namespace kelvane
