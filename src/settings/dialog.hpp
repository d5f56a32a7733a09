#pragma once
// The settings member framework. Every settings record is an ordered list
// of named members, handed out by the record's `do_it`; three walkers set
// the defaults, write one line per member, and offer a key and a value to
// every member. How a member of a given type is written, read and reset is
// told once, in `SettingsCodec<T>`, and shared by every record.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "kelvane/types.hpp"
#include "io/text_io.hpp"

namespace kelvane {

// Set while a track whose type was read as "Chiptune" is being loaded: the
// keys of the old instrument then reach the oscillators of a MonoSampler.
extern bool chiptune_to_monosampler_promotion;

// Buffer sizes of the settings text work.
inline constexpr int kValueTextSize = 128;    // a formatted value
inline constexpr int kEscapedTextSize = 8192;  // an escaped or unescaped value
inline constexpr int kLineSize = 1024;         // one line of a file
inline constexpr int kValueEscapeLimit = kValueTextSize - 1;
inline constexpr int kTextEscapeLimit = kEscapedTextSize - 1;

// Writes `in` with every backslash, blank and unprintable byte as "\xNN".
// The output holds at most `limit` characters plus a NUL (out must have
// room for limit + 1); an escape that would pass limit - 5 ends the text.
// Returns the length of the output.
int escape_setting_text(char const* in, char* out, int limit);

// Undoes the escape into `out` of `out_size` bytes (a settings value has
// kEscapedTextSize, a step value kLineSize). "\x" takes the next two bytes
// as hexadecimal; a backslash before anything else is dropped with the
// byte behind it.
void unescape_setting_text(char const* in, char* out, int out_size = kEscapedTextSize);

// ---------------------------------------------------------------------------
// Members.

// A dialog entry that stores nothing; the walkers pass over it.
struct Action {};

template <class T>
struct SettingsDialogMember {
  char const* name;
  T* target;
};

template <class T>
constexpr SettingsDialogMember<T> member(char const* name, T& target) {
  return {name, &target};
}

// Joins the member tuples of `make.template operator()<I>()` for I from 0 to
// N - 1: the members of a record that repeat with an index.
template <int N, class Make>
constexpr auto indexed_members(Make&& make) {
  return [&]<int... I>(std::integer_sequence<int, I...>) {
    return std::tuple_cat(make.template operator()<I>()...);
  }(std::make_integer_sequence<int, N>{});
}

// A key as a compile-time string, so that keys like "cv_out_port[3]" can be
// made from a name and an index.
template <size_t N>
struct FixedString {
  char text[N]{};
  constexpr FixedString(char const (&s)[N]) {
    for (size_t i = 0; i < N; ++i) text[i] = s[i];
  }
  static constexpr size_t size = N;
};

// "name[i]" or "name[i][j]": a key made from a name and indices below 100.
template <FixedString Name, int... Index>
struct IndexedKey {
  static constexpr size_t length = decltype(Name)::size - 1 + ((Index >= 10 ? 4 : 3) + ... + 0);
  static constexpr auto make() {
    struct Text {
      char text[length + 1];
    } k{};
    size_t n = 0;
    for (; n + 1 < decltype(Name)::size; ++n) k.text[n] = Name.text[n];
    auto append = [&](int index) {
      k.text[n++] = '[';
      if (index >= 10) k.text[n++] = char('0' + index / 10);
      k.text[n++] = char('0' + index % 10);
      k.text[n++] = ']';
    };
    (append(Index), ...);
    k.text[n] = 0;
    return k;
  }
  static constexpr auto value = make();
};

template <FixedString Name, int... Index>
constexpr char const* indexed_key() {
  static_assert(((Index >= 0 && Index < 100) && ...));
  return IndexedKey<Name, Index...>::value.text;
}

// The member names a key of a file reaches: the key itself, the member it
// is promoted to while the Chiptune flag is set, and the current name of an
// older key. Worked out once per line, then compared with each member.
struct SettingsKey {
  char const* key;
  char const* promoted;  // or null
  char const* current;   // or null

  explicit SettingsKey(char const* file_key);
  bool matches(char const* member_name) const {
    return std::strcmp(key, member_name) == 0 || (promoted && std::strcmp(promoted, member_name) == 0) ||
           (current && std::strcmp(current, member_name) == 0);
  }
};

// Writes one "key value" line with the value escaped under `limit`.
void settings_write_line(TextOut& out, char const* key, char const* text, int limit);

// The text of a value with its escapes undone: the value itself where it
// holds no backslash, else the text undone into `buffer`.
inline char const* unescaped_value(char const* value, char (&buffer)[kEscapedTextSize]) {
  if (!std::strchr(value, '\\')) return value;
  unescape_setting_text(value, buffer);
  return buffer;
}

// ---------------------------------------------------------------------------
// Codecs: how one member type is reset, written and read.

template <class T>
concept ValueCell = requires(T const& c, char* buf) {
  T::parse_string("");
  c.format_string(buf, size_t(1));
};

// The general value cell: written with its text form, read with its
// parser. A text that reads as empty leaves the member as it was, so an
// empty cell comes back as its default after a write and a read.
template <class T>
struct CellCodec {
  static void set_default(T& cell) { cell = T::default_cell(); }
  static void write(TextOut& out, char const* key, T const& cell) {
    char text[kValueTextSize];
    cell.format_string(text, sizeof text);
    settings_write_line(out, key, text, kValueEscapeLimit);
  }
  static void read(T& cell, char const*, char const* value) {
    char buffer[kEscapedTextSize];
    T const parsed = T::parse_string(unescaped_value(value, buffer));
    if (!bytes_zero(parsed)) cell = parsed;
  }
};

template <class T>
struct SettingsCodec : CellCodec<T> {};

// Program indexes and track indexes become empty on a text with no number,
// so that an empty callback stays empty. A program index has no default.
template <>
struct SettingsCodec<ProgramIdx> : CellCodec<ProgramIdx> {
  static void set_default(ProgramIdx& cell) { cell = ProgramIdx::empty_cell(); }
  static void read(ProgramIdx& cell, char const*, char const* value) {
    char buffer[kEscapedTextSize];
    cell = ProgramIdx::parse_string(unescaped_value(value, buffer));
  }
};
template <>
struct SettingsCodec<TrackIdx> : CellCodec<TrackIdx> {
  static void read(TrackIdx& cell, char const*, char const* value) {
    char buffer[kEscapedTextSize];
    cell = TrackIdx::parse_string(unescaped_value(value, buffer));
  }
};

// A track's type: the names are tried from the last one down to
// MonoSampler; any other text makes the track MIDI.
template <>
struct SettingsCodec<PatternType> : CellCodec<PatternType> {
  static void read(PatternType& cell, char const*, char const* value);
};

// The envelope page of a one shot instrument: a member of its dialog that
// is never written and takes its key without storing anything.
template <>
struct SettingsCodec<OSEnvelopePage> {
  static void set_default(OSEnvelopePage& page) { page = OSEnvelopePage::empty_cell(); }
  static void write(TextOut&, char const*, OSEnvelopePage const&) {}
  static void read(OSEnvelopePage&, char const*, char const*) {}
};

// Fixed texts: a name or a path, escaped under the large limit.
//
// A text is written up to its first zero byte. A name that fills its array
// has none, and its text runs on into the bytes of the members behind it,
// as far as the record reaches: `record_end` bounds that run.
void settings_write_text(TextOut& out, char const* key, char const* text, char const* record_end);

template <int N>
struct SettingsCodec<KVArray<char, N>> {
  static void set_default(KVArray<char, N>& text) { std::memset(text.data, 0, N); }
  static void write(TextOut& out, char const* key, KVArray<char, N> const& text, char const* record_end) {
    settings_write_text(out, key, text.data, record_end);
  }
  static void read(KVArray<char, N>& text, char const*, char const* value) {
    char buffer[kEscapedTextSize];
    copy_text_into(text.data, N, unescaped_value(value, buffer));
  }
};
template <>
struct SettingsCodec<KVSamplePath> {
  static void set_default(KVSamplePath& path) { std::memset(path.data, 0, sizeof path.data); }
  static void write(TextOut& out, char const* key, KVSamplePath const& path, char const* record_end);
  static void read(KVSamplePath& path, char const*, char const* value);
};

// Arrays of numbers: one "key [i]=v" line per element, v in decimal, read
// without unescaping.
void settings_report_array_parse_error(char const* key, char const* value);
void settings_report_array_index_error(int index, char const* key, char const* value);

template <ValueCell T, int N>
struct SettingsCodec<KVArray<T, N>> {
  static void set_default(KVArray<T, N>& array) {
    for (T& e : array.data) SettingsCodec<T>::set_default(e);
  }
  // "%s [%d]=%d\n"
  static void write(TextOut& out, char const* key, KVArray<T, N> const& array) {
    for (int i = 0; i < N; ++i) {
      out.str(key);
      out.chars(" [", 2);
      out.decimal(i);
      out.chars("]=", 2);
      out.decimal(array.data[i].value());
      out.put('\n');
    }
  }
  static void read(KVArray<T, N>& array, char const* key, char const* value) {
    int index, number;
    if (std::sscanf(value, "[%d]=%d", &index, &number) != 2) {
      settings_report_array_parse_error(key, value);
      return;
    }
    if (unsigned(index) >= unsigned(N)) {
      settings_report_array_index_error(index, key, value);
      return;
    }
    array.data[index] = T::in_range(number) ? T::from_value(number) : T::default_cell();
  }
};

// ---------------------------------------------------------------------------
// The walkers.

// A record whose writer leaves out some keys names them in `skipped_keys`.
template <class R>
bool record_skips_key(char const* key) {
  if constexpr (requires { R::skipped_keys; }) {
    for (char const* skipped : R::skipped_keys)
      if (std::strcmp(key, skipped) == 0) return true;
  }
  return false;
}

template <class R>
void dialog_set_default(R& record) {
  record.do_it([](auto... members) {
    auto one = [](auto m) {
      using T = std::remove_pointer_t<decltype(m.target)>;
      if constexpr (!std::is_same_v<T, Action>) SettingsCodec<T>::set_default(*m.target);
    };
    (one(members), ...);
  });
}

// A name without terminator runs on into the memory behind it: by default
// to the end of the record; `text_end` sets how far (the record sits in a
// larger one, or only points at its members).
template <class R>
void dialog_append_to_file(R& record, TextOut& file, char const* text_end = nullptr) {
  char const* record_end = reinterpret_cast<char const*>(&record) + sizeof(R);
  if constexpr (requires { record.text_end; }) record_end = record.text_end;
  if (text_end) record_end = text_end;
  record.do_it([&file, record_end](auto... members) {
    auto one = [&file, record_end](auto m) {
      using T = std::remove_pointer_t<decltype(m.target)>;
      if constexpr (!std::is_same_v<T, Action>) {
        if (record_skips_key<R>(m.name)) return;
        if constexpr (requires { SettingsCodec<T>::write(file, m.name, *m.target, record_end); })
          SettingsCodec<T>::write(file, m.name, *m.target, record_end);
        else
          SettingsCodec<T>::write(file, m.name, *m.target);
      }
    };
    (one(members), ...);
  });
}

// Offers key and value to every member in turn; each member whose name the
// key reaches reads the value. This is the walk that defines what a line
// does; dialog_set_value gives the same result through a key table.
template <class R>
void dialog_offer_to_each_member(R& record, SettingsKey const& k, char const* key, char const* value) {
  record.do_it([&k, key, value](auto... members) {
    auto one = [&k, key, value](auto m) {
      using T = std::remove_pointer_t<decltype(m.target)>;
      if constexpr (!std::is_same_v<T, Action>) {
        if (k.matches(m.name)) SettingsCodec<T>::read(*m.target, key, value);
      }
    };
    (one(members), ...);
  });
}

// The key table of a record type: every member that reads a value, by
// name, with its place in the member list and where it lies. A member
// inside the record lies at the same offset in every record of the type;
// one outside it (a value shared by the process, or a record that points
// at its members) is marked, and a line that reaches it takes the walk.
struct MemberEntry {
  char const* name;
  int place;
  bool inside;
  std::ptrdiff_t offset;
  void (*read)(void* target, char const* key, char const* value);
};

// The members a key of a file reaches by itself: those named so, and for an
// older key those of its current name. First and one past the last of each,
// in `by_name`.
struct KeyMembers {
  uint32_t first = 0, last = 0;
  uint32_t current_first = 0, current_last = 0;
};

struct MemberTable {
  std::vector<MemberEntry> by_name;  // sorted by name, then place
  // Every member name, and every older key whose current name is one, in
  // an open hash table: a power of two of places, at least twice as many
  // as keys, found from the key's hash onwards; a free place has no text.
  struct Key {
    std::string_view text;
    KeyMembers members;
  };
  std::vector<Key> keys;
};

// Fills `keys` from `by_name`.
void member_table_index(MemberTable& table);

template <class T>
void member_read(void* target, char const* key, char const* value) {
  SettingsCodec<T>::read(*static_cast<T*>(target), key, value);
}

// The members a line reaches. More than fit here make the line take the
// walk.
struct MemberMatches {
  static constexpr int kCapacity = 16;
  MemberEntry const* entries[kCapacity];
  int count = 0;
  bool walk = false;  // one lies outside the record, or there were too many
};

// Adds the members that `key` reaches by itself to `matches`.
void member_table_find(MemberTable const& table, char const* key, MemberMatches& matches);

// The member name that `key` is promoted to while the Chiptune flag is set,
// or null.
char const* settings_promoted_name(char const* key);

template <class R>
MemberTable member_table_build(R& record) {
  MemberTable table;
  int place = 0;
  record.do_it([&](auto... members) {
    auto one = [&](auto m) {
      using T = std::remove_pointer_t<decltype(m.target)>;
      if constexpr (!std::is_same_v<T, Action>) {
        auto const at = reinterpret_cast<std::uintptr_t>(m.target);
        auto const from = reinterpret_cast<std::uintptr_t>(&record);
        bool const inside = at >= from && at + sizeof(T) <= from + sizeof(R);
        table.by_name.push_back(
            {m.name, place, inside, inside ? static_cast<std::ptrdiff_t>(at - from) : 0, member_read<T>});
      }
      ++place;
    };
    (one(members), ...);
  });
  std::sort(table.by_name.begin(), table.by_name.end(), [](MemberEntry const& a, MemberEntry const& b) {
    int const c = std::strcmp(a.name, b.name);
    return c < 0 || (c == 0 && a.place < b.place);
  });
  member_table_index(table);
  return table;
}

// The members that a key reaches, in the order of the member list, each
// once: those named by the key itself, its promoted name and its current
// name. Every line of a settings file goes through here, so a record of
// nine hundred members costs a lookup per line, not nine hundred string
// comparisons.
template <class R>
void dialog_set_value(R& record, char const* key, char const* value) {
  static MemberTable const table = member_table_build(record);
  MemberMatches found;
  member_table_find(table, key, found);
  if (chiptune_to_monosampler_promotion)
    if (char const* const promoted = settings_promoted_name(key)) member_table_find(table, promoted, found);
  if (found.walk) {
    dialog_offer_to_each_member(record, SettingsKey(key), key, value);
    return;
  }
  MemberEntry const** const end = found.entries + found.count;
  MemberEntry const** last = end;
  if (found.count > 1) {
    std::sort(found.entries, end, [](MemberEntry const* a, MemberEntry const* b) { return a->place < b->place; });
    // A member reached by two of the names reads the value once.
    last = std::unique(found.entries, end);
  }
  char* const begin = reinterpret_cast<char*>(&record);
  for (MemberEntry const** e = found.entries; e != last; ++e) (*e)->read(begin + (*e)->offset, key, value);
}

// ---------------------------------------------------------------------------
// Reading a key value file.

// Splits one line into key and value as sscanf's "%s %s\n" does; false if
// the line does not hold two fields. Applies the Chiptune rule: a key
// "type" with the value "Chiptune" is reported, sets the flag and reads as
// "MonoSampler".
bool settings_split_line(char const* line, char* key, char* value);

// Offers every line of an open file to `offer(key, value)`. An `offer`
// that returns bool ends the loop by returning false; the file then stands
// at the next line.
template <class F>
void settings_read_lines(LineReader& file, F&& offer) {
  char key[kLineSize];
  char value[kLineSize];
  while (char const* line = file.next_line(kLineSize)) {
    if (!settings_split_line(line, key, value)) continue;
    if constexpr (std::is_same_v<decltype(offer(key, value)), bool>) {
      if (!offer(key, value)) return;
    } else {
      offer(key, value);
    }
  }
}

// Offers every line of an open settings file to a record.
template <class R>
void dialog_read_file(R& record, LineReader& file) {
  settings_read_lines(file, [&record](char const* key, char const* value) {
    dialog_set_value(record, key, value);
  });
}

}  // namespace kelvane
