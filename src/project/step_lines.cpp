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

}  // namespace kelvane
