#include "project/step_lines.hpp"

#include <cstring>

namespace kelvane {

namespace {

// A line in the form the writer gives it, "STEP KEY COLUMN VALUE": numbers
// of one to nine digits, single blanks, and a value that the newline, a
// blank or the end of the text ends, is split here in one pass; the split
// is what scan_step_fields and the unescape give for it. False for any
// other line, which takes the general way.
bool split_written_form(char const* line, StepLine* out) {
  char const* p = line;
  auto number = [&p](int* value) {
    unsigned n = 0;
    int digits = 0;
    for (unsigned d; (d = unsigned(*p - '0')) <= 9; ++p) {
      if (++digits > 9) return false;
      n = n * 10 + d;
    }
    *value = int(n);
    return digits > 0;
  };
  auto blank = [&p] {
    if (*p != ' ') return false;
    ++p;
    return true;
  };
  auto word = [&p](char* o) {
    char const* q = p;
    while (!ends_scan_word(*q)) *o++ = *q++;
    *o = 0;
    bool const some = q != p;
    p = q;
    return some;
  };
  if (!number(&out->step) || !blank() || !word(out->key) || !blank() || !number(&out->column) || !blank())
    return false;
  // The value: a text without a backslash has nothing to undo.
  char const* const value = p;
  bool escaped = false;
  for (; !ends_scan_word(*p); ++p) escaped = escaped || *p == '\\';
  size_t const n = size_t(p - value);
  if (n == 0) return false;
  if (!escaped) {
    std::memcpy(out->value, value, n);
    out->value[n] = 0;
    return true;
  }
  char raw[kLineSize];
  std::memcpy(raw, value, n);
  raw[n] = 0;
  unescape_setting_text(raw, out->value, kLineSize);
  return true;
}

}  // namespace

bool split_step_line(char const* line, int step_count, StepLine* out) {
  if (!split_written_form(line, out)) {
    char raw[kLineSize];
    if (scan_step_fields(line, &out->step, out->key, &out->column, raw) != 4) {
      std::fprintf(stderr, "could not parse step: '%s'\n", line);
      return false;
    }
    unescape_setting_text(raw, out->value, kLineSize);
  }
  if (out->step < 0 || out->step >= step_count) {
    std::fputs("warning, incorrect step idx found\n", stderr);
    return false;
  }
  char const* key = op_code_key_upgrade(out->key);
  if (key != out->key) std::snprintf(out->key, sizeof out->key, "%s", key);
  out->text = op_code_text_upgrade(out->value, out->upgraded);
  return true;
}

void write_step_line(TextOut& out, int step, char const* key, int column, char const* text) {
  static constexpr NumberFormat kDecimal = print_format("%d");
  char head[16];
  size_t const head_size = size_t(print_number(head, sizeof head, kDecimal, step));
  head[head_size] = ' ';
  out.chars(head, head_size + 1);
  out.str(key);
  // A blank, the column, a blank, the escaped text (at most its limit) and
  // the newline.
  char tail[16 + kValueEscapeLimit + 2];
  size_t n = 0;
  tail[n++] = ' ';
  n += size_t(print_number(tail + n, 14, kDecimal, column));
  tail[n++] = ' ';
  n += size_t(escape_setting_text(text, tail + n, kValueEscapeLimit));
  tail[n++] = '\n';
  out.chars(tail, n);
}

}  // namespace kelvane
