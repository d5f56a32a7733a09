// Pattern files: a header of settings lines ending in "!steps <type>", then
// the step lines of the pattern's type.

#include "project/pattern.hpp"

#include <cinttypes>
#include <cstring>

#include "project/files.hpp"

namespace kelvane {

namespace {

// What a pattern file starts from: nothing set but the header numbers.
// `type` stays empty until the "!steps" line names it.
void pattern_reset(Pattern* pattern) {
  bytes_clear(*pattern);
  pattern->settings.length = PatternLength::from_value(64);
  pattern->settings.speed = Speed::from_value(6);
  for (auto& mute : pattern->settings.mute_note_column) mute = V<1, 0>::from_value(0);
}

// The type named by a "!steps" line; the old "Chiptune" is a MonoSampler.
PatternType steps_type(char const* text) {
  if (std::strcmp(text, "Chiptune") == 0) return PatternType::from_index(1);
  return PatternType::parse_string(text);
}

}  // namespace

void pattern_initialize(Pattern* pattern) {
  pattern_reset(pattern);
  pattern->type = PatternType::from_index(0);
}

int project_save_pattern(Pattern* pattern, std::filesystem::path const& file) {
  bool const written = write_step_file(
      file,
      [pattern](TextOut& f) {
        dialog_append_to_file(pattern->settings, f);
        f.str("step_mute ");
        f.hex64(pattern->step_mute);
        f.put('\n');
      },
      [pattern] { return PatternType::to_string(pattern->type); },
      [pattern](TextOut& f) {
        pattern_steps_do(*pattern, [&f](auto& steps) { write_step_lines(f, steps.data, kStepsPerPattern); });
      });
  return written ? 0 : 1;
}

int project_load_pattern(Pattern* pattern, std::filesystem::path const& file) {
  return project_read_pattern(pattern, file) == StepFileRead::steps ? 0 : 1;
}

StepFileRead project_read_pattern(Pattern* pattern, std::filesystem::path const& file) {
  return read_step_file(
      file, [pattern] { pattern_reset(pattern); },
      [pattern](char const* key, char const* value) {
        if (std::strcmp(key, "step_mute") == 0)
          std::sscanf(value, "%" SCNx64, &pattern->step_mute);
        else
          dialog_set_value(pattern->settings, key, value);
      },
      [pattern](LineReader& f, char const* kind, int version) {
        pattern->type = steps_type(kind);
        // Step lines after an unknown kind have no record to go to: the
        // pattern keeps its empty type and its steps stay empty.
        pattern_steps_do(*pattern,
                         [&](auto& steps) { read_step_lines(f, steps.data, kStepsPerPattern, version); });
      });
}

}  // namespace kelvane
