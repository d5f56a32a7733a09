#pragma once
// Value cells: the storage scheme every field of a project shares, the
// generic integer cells, the index cells and the two-digit base-36 number.
//
// A project starts as all-zero memory, so all-zero must mean "unset" in
// every cell. A number v is therefore never stored as it is: byte, word and
// int cells keep v with their sign bit flipped (for an int cell that is the
// same as v + 0x80000000, wrapping). Stored 0 is empty, stored 1 is the
// magic state in the types that allow it.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "kelvane/number_text.hpp"

// Ends the run on a programming error. The message names the header the
// check stands in, as the tracker's own tools print it.
[[noreturn]] void kelvane_assert_fail(char const* expr, char const* file, unsigned line,
                                      char const* function);

#define KELVANE_ASSERT_AT(file, line, expr) \
  ((expr) ? void(0) : kelvane_assert_fail(#expr, file, line, __PRETTY_FUNCTION__))
#define KELVANE_TYPES_ASSERT(expr) KELVANE_ASSERT_AT("include/kelvane/types", __LINE__, expr)

namespace kelvane {

// Bytes of the tracker's screen font that stand for a field without a value.
inline constexpr char kEmptyHex = char(0xF9);  // empty hexadecimal place
inline constexpr char kEmptyDec = char(0xFA);  // empty decimal place
inline constexpr char kPad = char(0xB0);       // pad
inline constexpr char kMagic = char(0x04);     // the magic state

template <class Rep>
inline constexpr auto cell_sign_bit = std::make_unsigned_t<Rep>(std::make_unsigned_t<Rep>(1)
                                                                << (sizeof(Rep) * 8 - 1));

// Number to stored form: flip the sign bit of the storage width.
template <class Rep>
constexpr Rep cell_encode(int v) {
  using U = std::make_unsigned_t<Rep>;
  return Rep(U(U(v) ^ cell_sign_bit<Rep>));
}

// Stored form to number, taken as signed of the storage width.
template <class Rep>
constexpr int cell_decode(Rep stored) {
  using U = std::make_unsigned_t<Rep>;
  using S = std::make_signed_t<Rep>;
  return int(S(U(U(stored) ^ cell_sign_bit<Rep>)));
}

// How an integer cell writes a number.
enum class TextForm {
  H1,  // "%x", empty 0xF9, magic 0x04
  H2,  // "%02x", empty 0xF9 0xF9, magic 0x04 0x04
  ZZ,  // two base-36 digits, empty 0xF9 0xF9, magic 0x04 0x04
  D,   // "%d", empty 0xFA for each place of the width
};

// True if the text holds nothing but the byte 0x04 (the empty text included).
inline bool text_is_all_magic(char const* text) {
  for (; *text; ++text)
    if (*text != kMagic) return false;
  return true;
}

// Writes `count` copies of `fill` and a NUL, within len.
inline void format_fill(char* buf, size_t len, char fill, int count) {
  TextSink out{buf, len, 0};
  sink_fill(out, fill, count);
  sink_end(out);
}

// The base of every integer cell. Derived names the cell class and gives
// its text form (`text_form`) and the number an out-of-range text reads as
// (`default_value`); a D cell may give `text_width` for its empty text.
template <class Derived, class Rep, int Min, int Max, bool AllowMagic>
struct RangedInteger {
  using rep_type = Rep;
  static constexpr int min_value = Min;
  static constexpr int max_value = Max;
  static constexpr bool allow_magic = AllowMagic;

  Rep stored;

  constexpr bool is_empty() const { return stored == 0; }
  constexpr bool is_magic() const { return stored == 1; }
  // A cell that holds a number (neither empty nor magic).
  constexpr bool has_number() const { return stored != 0 && stored != 1; }
  constexpr int value() const { return cell_decode<Rep>(stored); }

  static constexpr Derived from_stored(Rep s) {
    Derived d{};
    d.stored = s;
    return d;
  }
  static constexpr Derived from_value(int v) { return from_stored(cell_encode<Rep>(v)); }
  static constexpr Derived empty_cell() { return from_stored(0); }
  static constexpr Derived magic_cell() { return from_stored(1); }
  static constexpr Derived default_cell() { return from_value(Derived::default_value); }

  static constexpr bool in_range(int v) {
    if constexpr (Min >= 0)
      return unsigned(v) >= unsigned(Min) && unsigned(v) <= unsigned(Max);
    else
      return v >= Min && v <= Max;
  }

  // A converted number becomes the cell: in range it is kept, the magic
  // state's own number is magic where allowed, anything else is the default.
  static constexpr Derived from_number(int v) {
    if (AllowMagic && v == cell_decode<Rep>(Rep(1))) return magic_cell();
    if (in_range(v)) return from_value(v);
    return default_cell();
  }

  static Derived parse_string(char const* text);
  void format_string(char* buf, size_t len) const;
  // The text inside a composite cell, where an empty D cell fills its width.
  void format_column(char* buf, size_t len, int width) const;
};

// The limit of the zz numbers: two base-36 digits.
inline constexpr int kZZLimit = 36 * 36;

// Folds a text as a base-36 number over all its bytes: bytes below 'a' (as
// signed bytes) count c - '0', from 'a' on c - 'a' + 10. No digit check;
// the fold wraps in 32 bits like the tracker's int arithmetic.
inline int zz_fold(char const* text) {
  uint32_t n = 0;
  for (; *text; ++text) {
    signed char c = static_cast<signed char>(*text);
    int d = c < 'a' ? c - '0' : c - 'a' + 10;
    n = n * 36u + uint32_t(d);
  }
  return int(n);
}

// The zz text of a number below 1296 into two characters: digits, then
// lower case letters. A negative number, which only a corrupt text gives,
// goes through the same arithmetic and comes out as the bytes below '0'
// that read back as it.
inline void zz_digits(char* out, int n) {
  int q = n / 36, r = n % 36;
  out[0] = char(n < 360 ? '0' + q : 'a' + (q - 10));
  out[1] = char(r < 10 ? '0' + r : 'a' + (r - 10));
}

template <class T>
void format_string_zz_num(char* buf, size_t len, T value) {
  KELVANE_TYPES_ASSERT(len >= 3);
  if (value.stored == 0) {
    buf[0] = buf[1] = kEmptyHex;
  } else if (T::allow_magic && value.stored == 1) {
    buf[0] = buf[1] = kMagic;
  } else {
    zz_digits(buf, value.value());
  }
  buf[2] = 0;
}

// Reads a zz text: empty and magic first, then the base-36 fold; a result
// of 1296 or more is the empty cell. A fold below 0 (bytes below '0') is
// kept as the number it is, so that a corrupt text is written back as read.
template <class T>
T parse_string_zz_num(char const* text) {
  unsigned char c0 = static_cast<unsigned char>(text[0]);
  if (c0 == 0) return T::empty_cell();
  unsigned char c1 = static_cast<unsigned char>(text[1]);
  if (c0 == 0x04 && (c1 == 0x04 || c1 == 0)) return T::allow_magic ? T::magic_cell() : T::empty_cell();
  if (c0 == 0xF9 && (c1 == 0xF9 || c1 == 0)) return T::empty_cell();
  int n = zz_fold(text);
  if (n < kZZLimit) return T::from_value(n);
  // A zz number that is no index reads a number past the limit as 0.
  if constexpr (requires { T::zz_overflow_reads_zero; }) return T::from_value(0);
  return T::empty_cell();
}

template <class Derived, class Rep, int Min, int Max, bool AllowMagic>
Derived RangedInteger<Derived, Rep, Min, Max, AllowMagic>::parse_string(char const* text) {
  constexpr TextForm form = Derived::text_form;
  if constexpr (form == TextForm::ZZ) {
    return parse_string_zz_num<Derived>(text);
  } else {
    if (AllowMagic && text_is_all_magic(text)) return magic_cell();
    constexpr NumberFormat scan =
        scan_format(form == TextForm::H1 ? "%x" : form == TextForm::H2 ? "%02x" : "%d");
    int v;
    if (scan_number(text, scan, &v) != 1) return empty_cell();
    return from_number(v);
  }
}

template <class Derived, class Rep, int Min, int Max, bool AllowMagic>
void RangedInteger<Derived, Rep, Min, Max, AllowMagic>::format_column(char* buf, size_t len,
                                                                       int width) const {
  constexpr TextForm form = Derived::text_form;
  if constexpr (form == TextForm::ZZ) {
    format_string_zz_num(buf, len, static_cast<Derived const&>(*this));
  } else if constexpr (form == TextForm::D) {
    constexpr NumberFormat decimal = print_format("%d");
    if (stored == 0)
      format_fill(buf, len, kEmptyDec, width);
    else
      print_number(buf, len, decimal, value());
  } else {
    constexpr NumberFormat hex = print_format(form == TextForm::H1 ? "%x" : "%02x");
    int places = form == TextForm::H1 ? 1 : 2;
    if (stored == 0)
      format_fill(buf, len, kEmptyHex, places);
    else if (AllowMagic && stored == 1)
      format_fill(buf, len, kMagic, places);
    else
      print_number(buf, len, hex, value());
  }
}

template <class Derived, class Rep, int Min, int Max, bool AllowMagic>
void RangedInteger<Derived, Rep, Min, Max, AllowMagic>::format_string(char* buf, size_t len) const {
  int width = 1;
  if constexpr (requires { Derived::text_width; }) width = Derived::text_width;
  format_column(buf, len, width);
}

// ---------------------------------------------------------------------------
// Index cells.

struct TableIdx : RangedInteger<TableIdx, int, 0, kZZLimit - 1, true> {
  static constexpr TextForm text_form = TextForm::ZZ;
  static constexpr int default_value = 0;
};
struct ProgramIdx : RangedInteger<ProgramIdx, int, 0, kZZLimit - 1, false> {
  static constexpr TextForm text_form = TextForm::ZZ;
  static constexpr int default_value = 0;
};
struct PatternIdx : RangedInteger<PatternIdx, int, 0, kZZLimit - 1, true> {
  static constexpr TextForm text_form = TextForm::ZZ;
  static constexpr int default_value = 0;
};
struct PatchIdx : RangedInteger<PatchIdx, signed char, 0, 63, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int default_value = 0;
};
struct FXPatchIdx : RangedInteger<FXPatchIdx, signed char, 0, 63, true> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int default_value = 0;
};
struct ChordMemIdx : RangedInteger<ChordMemIdx, signed char, 0, 63, true> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int default_value = 0;
};
struct ModulationMemIdx : RangedInteger<ModulationMemIdx, signed char, 0, 63, true> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int default_value = 0;
};
struct VariableIdx : RangedInteger<VariableIdx, int, 0, 63, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int default_value = 0;
};
struct TrackIdx : RangedInteger<TrackIdx, signed char, 0, 15, true> {
  static constexpr TextForm text_form = TextForm::H1;
  static constexpr int default_value = 0;
};
struct ModulatorIdx : RangedInteger<ModulatorIdx, signed char, 0, 15, false> {
  static constexpr TextForm text_form = TextForm::H1;
  static constexpr int default_value = 0;
};

// ---------------------------------------------------------------------------
// Generic number cells of the settings records.

// Hexadecimal up to 255, one place up to 15; the 4095 triple is decimal.
constexpr TextForm value_template_form(int max) {
  return max <= 15 ? TextForm::H1 : max <= 255 ? TextForm::H2 : TextForm::D;
}

template <int Max, int Default>
struct ValueTemplate : RangedInteger<ValueTemplate<Max, Default>, int, 0, Max, false> {
  static constexpr TextForm text_form = value_template_form(Max);
  static constexpr int default_value = Default;
};

template <int Max, int Default>
struct ValueTemplateM : RangedInteger<ValueTemplateM<Max, Default>, int, 0, Max, true> {
  static constexpr TextForm text_form = value_template_form(Max);
  static constexpr int default_value = Default;
};

template <int Default>
struct Param8Bit : RangedInteger<Param8Bit<Default>, int, 0, 255, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int default_value = Default;
};

template <int Default>
struct Depth8Bit : RangedInteger<Depth8Bit<Default>, int, 0, 255, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int default_value = Default;
};

template <int Min, int Max, int Default, int Radix>
struct IntSetting : RangedInteger<IntSetting<Min, Max, Default, Radix>, int, Min, Max, false> {
  static_assert(Radix == 10, "settings numbers are decimal");
  static constexpr TextForm text_form = TextForm::D;
  static constexpr int default_value = Default;
};

struct Boolean : RangedInteger<Boolean, signed char, 0, 1, false> {
  static constexpr TextForm text_form = TextForm::H1;
  static constexpr int default_value = 0;
};

// A fixed array with no length field.
template <class T, int N>
struct KVArray {
  static constexpr int size = N;
  T data[N];
  T& operator[](int i) { return data[i]; }
  T const& operator[](int i) const { return data[i]; }
};

// Copies a text into a fixed byte array: stops at a NUL, a line feed or
// when the array is full. No terminator is added and the bytes behind the
// copied ones stay as they were.
inline void copy_text_into(char* dst, int capacity, char const* text) {
  for (int i = 0; i < capacity && text[i] && text[i] != '\n'; ++i) dst[i] = text[i];
}

// Length of a text held in a fixed array that may lack a terminator.
inline size_t text_length(char const* data, int capacity) {
  return strnlen(data, size_t(capacity));
}

struct KVSamplePath {
  static constexpr int size = 1024;
  char data[size];
};

// The bytes of a record are its value: records are compared and copied as
// bytes, never member by member.
template <class T>
bool bytes_equal(T const& a, T const& b) {
  static_assert(std::is_trivially_copyable_v<T>);
  return std::memcmp(&a, &b, sizeof(T)) == 0;
}
template <class T>
void bytes_copy(T& dst, T const& src) {
  static_assert(std::is_trivially_copyable_v<T>);
  std::memcpy(&dst, &src, sizeof(T));
}
template <class T>
void bytes_clear(T& dst) {
  static_assert(std::is_trivially_copyable_v<T>);
  std::memset(&dst, 0, sizeof(T));
}
template <class T>
bool bytes_zero(T const& a) {
  unsigned char const* p = reinterpret_cast<unsigned char const*>(&a);
  for (size_t i = 0; i < sizeof(T); ++i)
    if (p[i]) return false;
  return true;
}

}  // namespace kelvane
