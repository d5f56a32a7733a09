#pragma once
// Integer conversions of the cell texts, done by hand: the load and save of
// a project convert millions of small numbers, and the C library's scanf and
// printf spend most of their time taking the format apart again and again.
//
// Each hand conversion gives exactly what sscanf / snprintf give with the
// same format in the "C" locale, return value included. Only the shapes
// the cells use are done by hand:
//
//   scanning: "%d", "%x" with an optional width ("%3d", "%02x", "%04x")
//   printing: "%d", "%x" with the flags '+' and '0' and an optional width,
//             then literal text where "%%" stands for '%' ("%03d%%")
//
// Every other format is handed to the C library unchanged, so a new cell
// with another form still reads and writes correctly, only slower.

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace kelvane {

// One integer conversion, taken apart once, at compile time where the
// format is a constant.
struct NumberFormat {
  char const* format;  // the format as written, for the C library
  bool by_hand;        // false: the C library converts
  bool hex;            // 'x', else 'd'
  bool plus;           // printing: '+' before a number that is not negative
  bool zero;           // printing: pad with '0' after the sign, not with blanks before it
  int width;           // 0 when the format gives none
  char const* suffix;  // printing: the literal text after the conversion
};

// A width larger than this goes to the C library; the cells use at most 5.
inline constexpr int kHandWidthLimit = 64;

// Reads "%", the flags allowed in `flags`, a width, and 'd' or 'x'. The
// suffix is left unchecked here.
constexpr NumberFormat number_format_head(char const* format, char const* flags) {
  NumberFormat f{format, false, false, false, false, 0, nullptr};
  char const* p = format;
  if (*p++ != '%') return f;
  for (;; ++p) {
    bool allowed = false;
    for (char const* a = flags; *a; ++a) allowed = allowed || *a == *p;
    if (!allowed) break;
    f.plus = f.plus || *p == '+';
    f.zero = f.zero || *p == '0';
  }
  for (; *p >= '0' && *p <= '9'; ++p) {
    f.width = f.width * 10 + (*p - '0');
    if (f.width > kHandWidthLimit) return f;
  }
  if (*p != 'd' && *p != 'x') return f;
  f.hex = *p == 'x';
  f.suffix = p + 1;
  f.by_hand = !(f.hex && f.plus);  // "%+x": glibc ignores the flag; left to it
  return f;
}

// A scanf format: "%", a width (its leading zeros are digits of the width:
// "%02x" reads at most two places), 'd' or 'x', and nothing after it.
constexpr NumberFormat scan_format(char const* format) {
  NumberFormat f = number_format_head(format, "");
  if (f.by_hand && *f.suffix != 0) f.by_hand = false;
  return f;
}

// A printf format: "%", the flags '+' and '0', a width, 'd' or 'x', then
// literal text in which '%' only appears as "%%".
constexpr NumberFormat print_format(char const* format) {
  NumberFormat f = number_format_head(format, "+0");
  if (!f.by_hand) return f;
  for (char const* p = f.suffix; *p; ++p)
    if (*p == '%' && *++p != '%') f.by_hand = false;
  return f;
}

// ---------------------------------------------------------------------------
// Bounded output with snprintf's rules: every byte is counted, the bytes
// past len - 1 are dropped, and the NUL ends what fits (nothing at all is
// written when len is 0).

struct TextSink {
  char* buf;
  size_t len;
  size_t count;
};

inline void sink_put(TextSink& s, char c) {
  if (s.count + 1 < s.len) s.buf[s.count] = c;
  ++s.count;
}

inline void sink_fill(TextSink& s, char c, int n) {
  for (int i = 0; i < n; ++i) sink_put(s, c);
}

inline void sink_text(TextSink& s, char const* text) {
  for (; *text; ++text) sink_put(s, *text);
}

// Writes the NUL and returns what snprintf returns: the length of the whole
// text, as if there had been room.
inline int sink_end(TextSink& s) {
  if (s.len > 0) s.buf[s.count < s.len ? s.count : s.len - 1] = 0;
  return int(s.count);
}

// ---------------------------------------------------------------------------
// Scanning.

// The value of c as a digit of the base, or -1 ("C" locale isdigit and
// isxdigit: upper and lower case letters alike).
constexpr int digit_value(unsigned char c, int base) {
  int d = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
  return d < base ? d : -1;
}

// "C" locale isspace.
constexpr bool is_blank(unsigned char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// sscanf(text, f.format, out). Blanks before the number are skipped and do
// not count against the width; the sign, the "0x" of "%x" and the digits
// do. The digits are converted the way glibc does it: "%d" with strtol to a
// 64-bit long, saturating, then cut to int; "%x" with strtoul, saturating
// at the magnitude, negated for a '-', then cut to unsigned int. Returns 1
// with *out set, 0 when no digit came (a lone sign included), EOF when the
// text held nothing but blanks.
//
// `scan_number_at` does the same by hand for a format with `by_hand` set,
// and moves `text` past what the conversion read (after a success, to the
// byte that ended the number).
inline int scan_number_at(char const*& text, NumberFormat const& f, int* out) {
  auto const* p = reinterpret_cast<unsigned char const*>(text);
  auto const done = [&](int result) {
    text = reinterpret_cast<char const*>(p);
    return result;
  };
  while (is_blank(*p)) ++p;
  if (*p == 0) return done(EOF);
  auto const decimal_result = [](bool negative, uint64_t magnitude, bool overflow) {
    uint64_t const limit = negative ? uint64_t(INT64_MAX) + 1 : uint64_t(INT64_MAX);
    if (overflow || magnitude > limit) magnitude = limit;
    return int(uint32_t(negative ? 0 - magnitude : magnitude));
  };
  if (!f.hex && f.width == 0) {
    // "%d" without a width, the form of most numbers in the files.
    bool const negative = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    if (unsigned(*p - '0') > 9) return done(0);
    uint64_t magnitude = 0;
    bool overflow = false;
    for (unsigned d; (d = unsigned(*p - '0')) <= 9; ++p) {
      uint64_t next;
      if (__builtin_mul_overflow(magnitude, uint64_t(10), &next) || __builtin_add_overflow(next, uint64_t(d), &next))
        overflow = true;
      else
        magnitude = next;
    }
    *out = decimal_result(negative, magnitude, overflow);
    return done(1);
  }
  if (f.hex && f.width == 2) {
    // Two hexadecimal digits, the form of most hexadecimal cells: what the
    // conversion below reads of them, a leading '0' included.
    int const high = digit_value(p[0], 16);
    int const low = high < 0 ? -1 : digit_value(p[1], 16);
    if (low >= 0) {
      *out = high * 16 + low;
      p += 2;
      return done(1);
    }
  }
  int width = f.width > 0 ? f.width : -1;  // -1: no limit
  auto take = [&] {
    ++p;
    if (width > 0) --width;
  };
  bool const negative = *p == '-';
  if (*p == '-' || *p == '+') take();
  bool digits = false;
  if (width != 0 && *p == '0') {
    digits = true;
    take();
    if (f.hex && width != 0 && (*p == 'x' || *p == 'X')) take();
  }
  int const base = f.hex ? 16 : 10;
  uint64_t magnitude = 0;
  bool overflow = false;
  for (int d; width != 0 && (d = digit_value(*p, base)) >= 0; take()) {
    digits = true;
    uint64_t next;
    if (__builtin_mul_overflow(magnitude, uint64_t(base), &next) || __builtin_add_overflow(next, uint64_t(d), &next))
      overflow = true;
    else
      magnitude = next;
  }
  if (!digits) return done(0);
  uint64_t result;
  if (f.hex) {
    result = overflow ? UINT64_MAX : negative ? 0 - magnitude : magnitude;
  } else {
    *out = decimal_result(negative, magnitude, overflow);
    return done(1);
  }
  *out = int(uint32_t(result));
  return done(1);
}

inline int scan_number(char const* text, NumberFormat const& f, int* out) {
  if (!f.by_hand) return std::sscanf(text, f.format, out);
  return scan_number_at(text, f, out);
}

// ---------------------------------------------------------------------------
// Printing.

// snprintf(buf, len, f.format, v); a "%x" format prints v as unsigned.
inline int print_number(char* buf, size_t len, NumberFormat const& f, int v) {
  if (!f.by_hand) return std::snprintf(buf, len, f.format, v);
  bool const negative = !f.hex && v < 0;
  unsigned u = negative ? 0u - unsigned(v) : unsigned(v);
  char digits[16];
  int n = 0;
  // Each base by itself: a division by a constant is a multiplication.
  if (f.hex) {
    do {
      digits[n++] = "0123456789abcdef"[u & 15];
      u >>= 4;
    } while (u != 0);
  } else {
    do {
      digits[n++] = char('0' + u % 10);
      u /= 10;
    } while (u != 0);
  }
  char const sign = negative ? '-' : f.plus ? '+' : 0;
  int const body = n + (sign != 0);
  int const pad = f.width > body ? f.width - body : 0;
  TextSink s{buf, len, 0};
  if (!f.zero) sink_fill(s, ' ', pad);
  if (sign) sink_put(s, sign);
  if (f.zero) sink_fill(s, '0', pad);
  while (n > 0) sink_put(s, digits[--n]);
  for (char const* p = f.suffix; *p; ++p) sink_put(s, *p == '%' ? *++p : *p);
  return sink_end(s);
}

// snprintf(buf, len, "%-*s", width, text): the text, then blanks up to the
// width. A negative width, which printf also takes as left-justified, is
// left to the C library.
inline int print_left_justified(char* buf, size_t len, char const* text, int width) {
  if (width < 0) return std::snprintf(buf, len, "%-*s", width, text);
  TextSink s{buf, len, 0};
  sink_text(s, text);
  if (s.count < size_t(width)) sink_fill(s, ' ', width - int(s.count));
  return sink_end(s);
}

}  // namespace kelvane
