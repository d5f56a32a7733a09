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
  // The value, with its escapes undone on the way where each is a
  // backslash, 'x' and two hexadecimal digits, as the writer puts them;
  // any other backslash leaves the value to the unescape.
  if (ends_scan_word(*p)) return false;
  char* o = out->value;
  for (char const* q = p;;) {
    char const c = *q;
    if (ends_scan_word(c)) {
      *o = 0;
      return true;
    }
    if (c != '\\') {
      *o++ = c;
      ++q;
      continue;
    }
    int const high = q[1] == 'x' ? digit_value(static_cast<unsigned char>(q[2]), 16) : -1;
    int const low = high >= 0 ? digit_value(static_cast<unsigned char>(q[3]), 16) : -1;
    if (low < 0) break;
    *o++ = char(high * 16 + low);
    q += 4;
  }
  char raw[kLineSize];
  size_t n = 0;
  while (!ends_scan_word(p[n])) ++n;
  std::memcpy(raw, p, n);
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

namespace {

// "%d" of a number, at `out`; its length.
size_t put_decimal(char* out, int v) {
  // Steps and columns: one or two digits.
  if (v >= 0 && v < 100) {
    if (v >= 10) {
      out[0] = char('0' + v / 10);
      out[1] = char('0' + v % 10);
      return 2;
    }
    out[0] = char('0' + v);
    return 1;
  }
  static constexpr NumberFormat kDecimal = print_format("%d");
  return size_t(print_number(out, 16, kDecimal, v));
}

}  // namespace

void write_step_line(TextOut& out, int step, char const* key, int column, char const* text) {
  // Two numbers, the key, three blanks, the escaped text (at most its limit
  // and its NUL) and the newline.
  char line[16 + kStepKeyLimit + 16 + 3 + kValueEscapeLimit + 2];
  size_t n = put_decimal(line, step);
  line[n++] = ' ';
  for (size_t k = 0; key[k] && k + 1 < kStepKeyLimit; ++k) line[n++] = key[k];
  line[n++] = ' ';
  n += put_decimal(line + n, column);
  line[n++] = ' ';
  n += size_t(escape_setting_text(text, line + n, kValueEscapeLimit));
  line[n++] = '\n';
  out.chars(line, n);
}

}  // namespace kelvane
