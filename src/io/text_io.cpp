#include "io/text_io.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "kelvane/run_end.hpp"

namespace kelvane {

// ---------------------------------------------------------------------------
// Reading.

LineReader::~LineReader() {
  finish();
  std::free(data_);
}

void LineReader::finish() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

void LineReader::reserve(size_t capacity) {
  if (capacity <= capacity_) return;
  char* const grown = static_cast<char*>(std::realloc(data_, capacity));
  if (!grown) std::abort();
  data_ = grown;
  capacity_ = capacity;
}

void LineReader::assign(char const* text, size_t size) {
  finish();
  failed_ = false;
  covered_ = nullptr;
  reserve(size + kSlack);
  if (size) std::memcpy(data_, text, size);
  size_ = size;
  pos_ = 0;
}

void LineReader::fill(size_t wanted) {
  // What was handed out is dropped first, so that a stream of any length
  // needs no more than a line's room.
  if (pos_ > 0) {
    std::memmove(data_, data_ + pos_, size_ - pos_);
    size_ -= pos_;
    pos_ = 0;
  }
  size_t const room = wanted < 65536 ? 65536 : wanted;
  reserve(size_ + room + kSlack);
  for (;;) {
    ssize_t const n = ::read(fd_, data_ + size_, room);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) failed_ = true;
    if (n <= 0) {
      finish();
      return;
    }
    size_ += size_t(n);
    return;
  }
}

bool LineReader::open(char const* path) {
  finish();
  failed_ = false;
  covered_ = nullptr;
  size_ = 0;
  pos_ = 0;
  fd_ = ::open(path, O_RDONLY);
  if (fd_ < 0) return false;
  struct stat st;
  if (fstat(fd_, &st) != 0 || !S_ISREG(st.st_mode)) return true;
  // A regular file: read to its end now, in one read where its size is
  // right. A read gives what was asked for as far as the file goes: one
  // that stops short, having given the size the file reported, stopped at
  // its end. Any other read that stops short is followed by the next, up to
  // a read of nothing (a file of /proc reports a size of 0).
  size_t const reported = size_t(st.st_size);
  reserve(reported + 1 + kSlack);
  while (fd_ >= 0) {
    if (capacity_ - size_ == kSlack) reserve(capacity_ * 2);
    size_t const asked = capacity_ - kSlack - size_;
    ssize_t const n = ::read(fd_, data_ + size_, asked);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) failed_ = true;
    if (n <= 0) {
      finish();
      continue;
    }
    size_ += size_t(n);
    if (size_t(n) < asked && size_ == reported && reported > 0) finish();
  }
  return true;
}

// ---------------------------------------------------------------------------
// Splitting lines, one sscanf directive at a time.

namespace {

// How one conversion went: done, the text ended before it (an input
// failure), or the text did not match (a matching failure).
enum class Scan { done, ended, mismatch };

// "%s": blanks skipped, then every byte up to the next blank or the end.
// The position is kept in a local: a write through `out` could otherwise
// change it for all the compiler knows, and it would be read again at each
// byte.
Scan scan_word(char const*& text, char* out) {
  char const* p = text;
  while (is_scan_blank(*p)) ++p;
  if (*p == 0) {
    text = p;
    return Scan::ended;
  }
  char const* const from = p;
  while (!ends_scan_word(*p)) ++p;
  size_t const n = size_t(p - from);
  std::memcpy(out, from, n);
  out[n] = 0;
  text = p;
  return Scan::done;
}

// "%d". Up to nine digits with nothing before them, the numbers of the
// files, are read here; anything else takes the general conversion.
Scan scan_decimal(char const*& p, int* out) {
  unsigned value = 0;
  int n = 0;
  for (unsigned d; n < 10 && (d = unsigned(p[n] - '0')) <= 9; ++n) value = value * 10 + d;
  if (n > 0 && n < 10) {
    *out = int(value);
    p += n;
    return Scan::done;
  }
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

// The files open for writing, newest first.
OutputFile* open_files = nullptr;

void write_open_files(bool exiting) {
  for (OutputFile* f = open_files; f; f = f->next_open()) f->write_as_stdio_would(exiting);
}

}  // namespace

OutputFile::~OutputFile() {
  if (fd_ >= 0) ::close(fd_);
  forget();
  keep_buffer(out.text);
}

void OutputFile::forget() {
  for (OutputFile** at = &open_files; *at; at = &(*at)->next_open_) {
    if (*at != this) continue;
    *at = next_open_;
    break;
  }
  next_open_ = nullptr;
}

bool OutputFile::open(char const* path) {
  if (out.text.capacity() < spare_text.capacity()) out.text.swap(spare_text);
  out.text.clear();
  written_ = 0;
  fd_ = ::open(path, O_RDWR | O_CREAT | O_TRUNC, 0666);
  if (fd_ < 0) return false;
  static bool hooked = (set_process_end_hook(write_open_files), true);
  (void)hooked;
  next_open_ = open_files;
  open_files = this;
  return true;
}

void OutputFile::write_from(size_t from, size_t to) {
  char const* p = out.text.data() + from;
  size_t left = to > from ? to - from : 0;
  while (left > 0) {
    ssize_t const n = ::write(fd_, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    p += n;
    left -= size_t(n);
  }
  written_ = to > written_ ? to : written_;
}

// stdio buffers a file in blocks of its block size (BUFSIZ where that is
// not below it) and writes whole blocks; on a terminal it writes each line
// as it ends.
void OutputFile::write_as_stdio_would(bool all) {
  if (fd_ < 0) return;
  size_t to = out.text.size();
  if (!all) {
    struct stat st;
    bool const known = fstat(fd_, &st) == 0;
    if (isatty(fd_)) {
      size_t const last_line = out.text.rfind('\n');
      to = last_line == std::string::npos ? 0 : last_line + 1;
    } else {
      size_t const block = known && st.st_blksize > 0 && st.st_blksize < BUFSIZ ? size_t(st.st_blksize) : BUFSIZ;
      to -= to % block;
    }
  }
  write_from(written_, to);
}

// Write errors go unreported, as they did through fprintf and fclose.
void OutputFile::close() {
  if (fd_ < 0) return;
  write_from(written_, out.text.size());
  ::close(fd_);
  fd_ = -1;
  forget();
}

}  // namespace kelvane
