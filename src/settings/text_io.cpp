#include "settings/text_io.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

namespace kelvane {

// ---------------------------------------------------------------------------
// Reading.

LineReader::~LineReader() { std::free(data_); }

void LineReader::reserve(size_t capacity) {
  if (capacity <= capacity_) return;
  char* const grown = static_cast<char*>(std::realloc(data_, capacity));
  if (!grown) std::abort();
  data_ = grown;
  capacity_ = capacity;
}

void LineReader::assign(char const* text, size_t size) {
  reserve(size + 1);
  if (size) std::memcpy(data_, text, size);
  size_ = size;
  pos_ = 0;
}

bool LineReader::open(char const* path) {
  size_ = 0;
  pos_ = 0;
  int const fd = ::open(path, O_RDONLY);
  if (fd < 0) return false;
  // A regular file is read in one call: asking for one byte more than its
  // size tells its end without a further read.
  struct stat st;
  size_t want = 4096;
  if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) want = size_t(st.st_size) + 1;
  for (;;) {
    reserve(size_ + want);
    ssize_t const n = ::read(fd, data_ + size_, want);
    if (n < 0) {
      if (errno == EINTR) continue;
      // fgets gives up on the line that the failed read would have ended.
      while (size_ > 0 && data_[size_ - 1] != '\n') --size_;
      break;
    }
    size_ += size_t(n);
    if (size_t(n) < want && S_ISREG(st.st_mode) && n > 0) break;
    if (n == 0) break;
    want = size_ < 4096 ? 4096 : size_;
  }
  ::close(fd);
  return true;
}

// ---------------------------------------------------------------------------
// Splitting lines, one sscanf directive at a time.

namespace {

// How one conversion went: done, the text ended before it (an input
// failure), or the text did not match (a matching failure).
enum class Scan { done, ended, mismatch };

// "%s": blanks skipped, then every byte up to the next blank or the end.
Scan scan_word(char const*& p, char* out) {
  while (is_scan_blank(*p)) ++p;
  if (*p == 0) return Scan::ended;
  while (*p && !is_scan_blank(*p)) *out++ = *p++;
  *out = 0;
  return Scan::done;
}

// "%d"
Scan scan_decimal(char const*& p, int* out) {
  static constexpr NumberFormat kDecimal = scan_format("%d");
  int const r = scan_number_at(p, kDecimal, out);
  return r == 1 ? Scan::done : r == EOF ? Scan::ended : Scan::mismatch;
}

// What sscanf returns when a conversion ends the scan after `count` were
// done: EOF for an input failure before the first, else the count.
int scan_stop(int count, Scan s) { return s == Scan::ended && count == 0 ? EOF : count; }

}  // namespace

// The blanks between the conversions of the two formats only skip blanks,
// which every conversion but "%c" does by itself; the "\n" at their end
// matches any blanks, or none, and changes nothing.
int scan_key_value(char const* line, char* key, char* value) {
  Scan s;
  if ((s = scan_word(line, key)) != Scan::done) return scan_stop(0, s);
  if ((s = scan_word(line, value)) != Scan::done) return scan_stop(1, s);
  return 2;
}

int scan_step_fields(char const* line, int* step, char* key, int* column, char* value) {
  Scan s;
  if ((s = scan_decimal(line, step)) != Scan::done) return scan_stop(0, s);
  if ((s = scan_word(line, key)) != Scan::done) return scan_stop(1, s);
  if ((s = scan_decimal(line, column)) != Scan::done) return scan_stop(2, s);
  if ((s = scan_word(line, value)) != Scan::done) return scan_stop(3, s);
  return 4;
}

// ---------------------------------------------------------------------------
// Writing.

void TextOut::hex64(uint64_t v) {
  char digits[16];
  int n = 0;
  do {
    digits[n++] = "0123456789abcdef"[v & 15];
    v >>= 4;
  } while (v != 0);
  while (n > 0) put(digits[--n]);
}

namespace {

// The text buffer of the last file closed, kept for the next one: a save
// writes thousands of files, and a buffer grown anew for each is copied
// over and over while it grows.
std::string spare_text;

void keep_buffer(std::string& text) {
  text.clear();
  if (text.capacity() > spare_text.capacity()) spare_text.swap(text);
}

}  // namespace

OutputFile::~OutputFile() {
  if (fd_ >= 0) ::close(fd_);
  keep_buffer(out.text);
}

bool OutputFile::open(char const* path) {
  if (out.text.capacity() < spare_text.capacity()) out.text.swap(spare_text);
  out.text.clear();
  fd_ = ::open(path, O_RDWR | O_CREAT | O_TRUNC, 0666);
  return fd_ >= 0;
}

// Write errors go unreported, as they did through fprintf and fclose.
void OutputFile::close() {
  if (fd_ < 0) return;
  char const* p = out.text.data();
  size_t left = out.text.size();
  while (left > 0) {
    ssize_t const n = ::write(fd_, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    p += n;
    left -= size_t(n);
  }
  ::close(fd_);
  fd_ = -1;
}

}  // namespace kelvane
