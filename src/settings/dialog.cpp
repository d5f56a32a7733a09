// The text side of the settings framework: escaping, key matching and the
// line loop shared by every settings file.

#include "settings/dialog.hpp"

#include <cstdlib>
#include <functional>
#include <iterator>
#include <string_view>

namespace kelvane {

bool chiptune_to_monosampler_promotion = false;

namespace {

// The default locale's isprint and isblank, on the byte taken as signed:
// every byte from 0x80 up is unprintable.
bool needs_escape(unsigned char c) {
  bool const printable = c >= 0x20 && c < 0x7F;
  bool const blank = c == ' ' || c == '\t';
  return c == '\\' || !printable || blank;
}

// Keys of the old Chiptune instrument and the MonoSampler members that take
// them while a promoted track loads.
constexpr char const* kPromotionPairs[][2] = {
    {"finetune[0]", "osc_finetune[0]"},   {"finetune[1]", "osc_finetune[1]"},
    {"finetune[2]", "osc_finetune[2]"},   {"finetune[3]", "osc_finetune[3]"},
    {"transpose[0]", "osc_transpose[0]"}, {"transpose[1]", "osc_transpose[1]"},
    {"transpose[2]", "osc_transpose[2]"}, {"transpose[3]", "osc_transpose[3]"},
};

// Older keys and the current key that reads them.
constexpr char const* kReplacements[][2] = {
    {"callback_start", "start_callback"},
    {"callback_stop", "stop_callback"},
    {"callback_transpose[0]", "transpose_callback[0]"},
    {"callback_transpose[1]", "transpose_callback[1]"},
    {"callback_transpose[2]", "transpose_callback[2]"},
    {"callback_transpose[3]", "transpose_callback[3]"},
    {"callback_chord[0]", "chord_callback[0]"},
    {"callback_chord[1]", "chord_callback[1]"},
    {"callback_chord[2]", "chord_callback[2]"},
    {"callback_chord[3]", "chord_callback[3]"},
    {"midi_note_callback_program_idx", "midi_note_callback"},
    {"midi_cc_callback_program_idx", "midi_cc_callback"},
};

// The second of the pair whose first is `key`, or null.
template <size_t N>
char const* paired_name(char const* const (&pairs)[N][2], char const* key) {
  for (auto const& pair : pairs)
    if (key[0] == pair[0][0] && std::strcmp(key, pair[0]) == 0) return pair[1];
  return nullptr;
}

constexpr char kHexDigits[] = "0123456789abcdef";

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

int escape_setting_text(char const* in, char* out, int limit) {
  int n = 0;
  for (; *in && n < limit; ++in) {
    unsigned char const c = static_cast<unsigned char>(*in);
    if (!needs_escape(c)) {
      out[n++] = char(c);
      continue;
    }
    if (n > limit - 5) break;
    out[n++] = '\\';
    out[n++] = 'x';
    out[n++] = kHexDigits[c >> 4];
    out[n++] = kHexDigits[c & 15];
  }
  out[n] = 0;
  return n;
}

void unescape_setting_text(char const* in, char* out, int out_size) {
  int n = 0;
  while (*in && n < out_size - 1) {
    if (*in != '\\') {
      out[n++] = *in++;
      continue;
    }
    if (in[1] == 'x') {
      if (!in[2] || !in[3]) break;
      int const high = hex_value(in[2]), low = hex_value(in[3]);
      if (high >= 0 && low >= 0) {
        out[n++] = char(high * 16 + low);
      } else {
        // Anything but two digits goes the way of strtol: blanks, a sign,
        // a single digit.
        char const digits[3] = {in[2], in[3], 0};
        out[n++] = char(std::strtol(digits, nullptr, 16));
      }
      in += 4;
      continue;
    }
    // A backslash before anything else is dropped with that byte; a lone
    // backslash at the end ends the text.
    if (!in[1]) break;
    in += 2;
  }
  out[n] = 0;
}

SettingsKey::SettingsKey(char const* file_key)
    : key(file_key),
      promoted(chiptune_to_monosampler_promotion ? paired_name(kPromotionPairs, file_key) : nullptr),
      current(paired_name(kReplacements, file_key)) {}

char const* settings_promoted_name(char const* key) { return paired_name(kPromotionPairs, key); }

namespace {

// The place of `key` in the table, or the free place where it would go.
template <class Keys>
auto& key_place(Keys& keys, char const* key) {
  std::string_view const text(key);
  size_t const mask = keys.size() - 1;
  for (size_t at = std::hash<std::string_view>{}(text) & mask;; at = (at + 1) & mask) {
    auto& place = keys[at];
    if (place.text.data() == nullptr || place.text == text) return place;
  }
}

}  // namespace

void member_table_index(MemberTable& table) {
  size_t places = 16;
  while (places < 2 * (table.by_name.size() + std::size(kReplacements))) places *= 2;
  table.keys.assign(places, MemberTable::Key{});
  for (uint32_t i = 0; i < table.by_name.size(); ++i) {
    MemberTable::Key& place = key_place(table.keys, table.by_name[i].name);
    if (place.text.data() == nullptr) {
      place.text = table.by_name[i].name;
      place.members.first = i;
    }
    place.members.last = i + 1;
  }
  for (auto const& pair : kReplacements) {
    MemberTable::Key const& current = key_place(table.keys, pair[1]);
    if (current.text.data() == nullptr) continue;
    KeyMembers const found = current.members;
    MemberTable::Key& older = key_place(table.keys, pair[0]);
    older.text = pair[0];
    older.members.current_first = found.first;
    older.members.current_last = found.last;
  }
}

void member_table_find(MemberTable const& table, char const* key, MemberMatches& matches) {
  MemberTable::Key const& found = key_place(table.keys, key);
  if (found.text.data() == nullptr) return;
  auto add = [&](uint32_t first, uint32_t last) {
    for (uint32_t i = first; i < last; ++i) {
      MemberEntry const& e = table.by_name[i];
      if (!e.inside || matches.count == MemberMatches::kCapacity) {
        matches.walk = true;
        return;
      }
      matches.entries[matches.count++] = &e;
    }
  };
  add(found.members.first, found.members.last);
  add(found.members.current_first, found.members.current_last);
}

// "%s %s\n"
void settings_write_line(TextOut& out, char const* key, char const* text, int limit) {
  char escaped[kEscapedTextSize];
  int const n = escape_setting_text(text, escaped, limit);
  out.str(key);
  out.put(' ');
  out.chars(escaped, size_t(n));
  out.put('\n');
}

void settings_report_array_parse_error(char const* key, char const* value) {
  std::fprintf(stderr, "error parsing array value: %s %s\n", key, value);
}

void settings_report_array_index_error(int index, char const* key, char const* value) {
  std::fprintf(stderr, "found incorrect array index %d at %s %s\n", index, key, value);
}

void SettingsCodec<PatternType>::read(PatternType& cell, char const*, char const* value) {
  char buffer[kEscapedTextSize];
  char const* const text = unescaped_value(value, buffer);
  for (int i = PatternType::count() - 1; i >= 1; --i) {
    if (std::strcmp(text, PatternType::names[i]) == 0) {
      cell = PatternType::from_index(i);
      return;
    }
  }
  cell = PatternType::from_index(0);
}

void settings_write_text(TextOut& out, char const* key, char const* text, char const* record_end) {
  char plain[kEscapedTextSize];
  size_t n = 0;
  while (text + n < record_end && text[n] && n + 1 < sizeof plain) {
    plain[n] = text[n];
    ++n;
  }
  plain[n] = 0;
  settings_write_line(out, key, plain, kTextEscapeLimit);
}

void SettingsCodec<KVSamplePath>::write(TextOut& out, char const* key, KVSamplePath const& path,
                                        char const* record_end) {
  settings_write_text(out, key, path.data, record_end);
}

void SettingsCodec<KVSamplePath>::read(KVSamplePath& path, char const*, char const* value) {
  char buffer[kEscapedTextSize];
  copy_text_into(path.data, KVSamplePath::size, unescaped_value(value, buffer));
}

bool settings_split_line(char const* line, char* key, char* value) {
  if (scan_key_value(line, key, value) != 2) return false;
  if (key[0] == 't' && std::strcmp(key, "type") == 0 && std::strcmp(value, "Chiptune") == 0) {
    std::puts("found Chiptune track type, promoting to MonoSampler!");
    chiptune_to_monosampler_promotion = true;
    std::strcpy(value, "MonoSampler");
  }
  return true;
}

}  // namespace kelvane
