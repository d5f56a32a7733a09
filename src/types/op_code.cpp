// Text form of the op codes, and the older forms the step readers accept.

#include <cstring>

#include "kelvane/op_code_definition.hpp"

namespace kelvane {

OpCode OpCode::parse_string(char const* s) { return command::parse_text<OpCode>(s, __PRETTY_FUNCTION__); }
void OpCode::format_string(char* buf, size_t len) const { command::format_fields(*this, buf, len); }

OpCodeProgram OpCodeProgram::parse_string(char const* s) {
  return command::parse_text<OpCodeProgram>(s, __PRETTY_FUNCTION__);
}
void OpCodeProgram::format_string(char* buf, size_t len) const { command::format_fields(*this, buf, len); }

MemoryAddress MemoryAddress::parse_string(char const* s) {
  return command::parse_text<MemoryAddress>(s, __PRETTY_FUNCTION__);
}
void MemoryAddress::format_string(char* buf, size_t len) const { command::format_fields(*this, buf, len); }

char const* op_code_key_upgrade(char const* key) {
  static constexpr char const* older[] = {"op_code_midi", "op_code_all", "op_code_mono_sampler"};
  // Most keys differ from the prefix in their first bytes: compared here,
  // byte by byte up to the first difference, as strncmp would.
  static constexpr char kPrefix[] = "op_code_";
  for (int i = 0; i < 8; ++i)
    if (key[i] != kPrefix[i]) return key;
  for (char const* o : older)
    if (std::strcmp(key, o) == 0) return "op_code";
  return key;
}

char const* op_code_text_upgrade(char const* text, char (&buf)[16]) {
  char const* prefix = nullptr;
  if (text[0] != 'l' && text[0] != 'g') return text;
  if (std::strncmp(text, "lmem", 4) == 0)
    prefix = "streL";
  else if (std::strncmp(text, "gmem", 4) == 0)
    prefix = "streG";
  if (!prefix) return text;
  // An over-long old text is cut to the 16 bytes of buf.
  TextSink out{buf, sizeof buf, 0};
  sink_text(out, prefix);
  sink_text(out, text + 4);
  sink_end(out);
  return buf;
}

int step_column_word_index(char const* key) {
  for (int i = 0; i < kNumStepColumnWords; ++i)
    if (std::strcmp(key, kStepColumnWords[i]) == 0) return i;
  return -1;
}

}  // namespace kelvane
