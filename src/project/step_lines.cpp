#include "project/step_lines.hpp"

namespace kelvane {

bool split_step_line(char const* line, int step_count, StepLine* out) {
  char raw[kLineSize];
  if (scan_step_fields(line, &out->step, out->key, &out->column, raw) != 4) {
    std::fprintf(stderr, "could not parse step: '%s'\n", line);
    return false;
  }
  unescape_setting_text(raw, out->value, kLineSize);
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
