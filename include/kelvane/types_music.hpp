#pragma once
// Musical and positional value cells: notes in both tunings, the small
// numbers of a pattern or table step, the signed and percentage numbers with
// a printf form of their own, and the cells that hold one of a few texts.
//
// All of them keep the storage scheme of the generic cells: stored 0 is
// empty, stored 1 is magic where a cell has it, a number v is kept with the
// sign bit of the storage flipped. Every cell is a plain struct whose only
// data member is `stored`, so records of cells compare and copy as bytes.
//
// Texts are raw bytes. The blank glyphs 0xF9 / 0xFA, the magic glyph 0x04
// and the note separators stand in them as they are; escaping for a file
// happens when a line is written.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "kelvane/types_cells.hpp"
#include "kelvane/types_enums.hpp"

namespace kelvane {

// ---------------------------------------------------------------------------
// Note: twelve-tone numbers 0..127 and thirty-one-tone numbers 256..566 in
// one int cell.

struct Note : RangedInteger<Note, int, 0, 566, true> {
  static constexpr int text_width = 3;
  // What an out-of-range note reads as: "C-5".
  static constexpr int default_value = 60;
  // The first thirty-one-tone number and the last one that has a text.
  static constexpr int tone31_base = 256;
  static constexpr int tone31_last = 566;
  static constexpr int tone31_steps = 31;

  // Glyphs of the tracker's font that mark where a thirty-one-tone step
  // sits around its letter.
  static constexpr char sep_chars[5] = {char(0xCD), char(0xC1), char(0xD0), char(0xD2),
                                        char(0xC2)};

  // Letter and separator of thirty-one-tone step u (0..30). Each letter
  // takes five places of w, a whole tone; E-F and B-C are three steps apart
  // instead of five, which the two skips of w account for. Step 30 is
  // already written with the C of the next octave.
  static constexpr int tone31_w(int u) { return u + (u >= 12 ? 2 : 0) + (u == 30 ? 2 : 0); }
  static constexpr char tone31_letter(int u) { return "CDEFGABC"[(tone31_w(u) + 2) / 5]; }
  static constexpr char tone31_sep(int u) { return sep_chars[tone31_w(u) % 5]; }

  // A number with a readable text: twelve-tone or thirty-one-tone.
  static constexpr bool in_range(int n) {
    return (n >= 0 && n <= 127) || (n >= tone31_base && n <= tone31_last);
  }
  static constexpr Note from_number(int n) {
    if (n == cell_decode<int>(1)) return magic_cell();
    if (in_range(n)) return from_value(n);
    return default_cell();
  }

  static Note parse_string(char const* text);
  void format_string(char* buf, size_t len) const;
  void format_column(char* buf, size_t len, int /*width*/) const { format_string(buf, len); }

 private:
  static constexpr char lower_ascii(char c) { return c >= 'A' && c <= 'Z' ? char(c + ('a' - 'A')) : c; }
  // The octave character: digits, then letters from 'A' for octave 10.
  static constexpr char octave_char(int o) { return char(o < 10 ? '0' + o : 'A' + (o - 10)); }
};

inline Note Note::parse_string(char const* text) {
  if (std::strcmp(text, "[ ]") == 0) return magic_cell();
  if (std::strlen(text) != 3) return empty_cell();

  char const letter = lower_ascii(text[0]);
  if (letter < 'a' || letter > 'g') return empty_cell();

  char const sep = text[1];
  bool const twelve = sep == '-' || sep == '#';
  if (!twelve && std::memchr(sep_chars, sep, sizeof sep_chars) == nullptr) return empty_cell();

  char const oct = lower_ascii(text[2]);
  int o;
  if (oct >= '0' && oct <= '9')
    o = oct - '0';
  else if (oct == 'a' || oct == 'b')
    o = oct - 'a' + 10;
  else
    return empty_cell();

  if (twelve) {
    // c d e f g a b
    static constexpr int semitone[7] = {0, 2, 4, 5, 7, 9, 11};
    static constexpr int letter_index[7] = {5, 6, 0, 1, 2, 3, 4};  // a..g -> c-based index
    int s = semitone[letter_index[letter - 'a']];
    if (sep == '#') {
      // There is no E#; B# is accepted and lands on the next octave's C.
      if (letter == 'e') return empty_cell();
      s += 1;
    }
    // Octave 'b' gives numbers from 132 on; they are kept as they are.
    return from_value(s + 12 * o);
  }

  // Thirty-one tones: the letter is compared as written, so only upper
  // case finds its step. No step found gives the C of the octave.
  int n = tone31_base + tone31_steps * o;
  for (int u = 0; u < tone31_steps; ++u) {
    if (tone31_letter(u) == text[0] && tone31_sep(u) == sep) {
      n = tone31_base + u + tone31_steps * (u == 30 ? o - 1 : o);
      break;
    }
  }
  if (n > tone31_last) return default_cell();
  return from_value(n);
}

inline void Note::format_string(char* buf, size_t len) const {
  KELVANE_TYPES_ASSERT(len > 3);
  if (stored == 0) {
    std::memcpy(buf, "---", 4);
    return;
  }
  if (stored == 1) {
    std::memcpy(buf, "[ ]", 4);
    return;
  }
  int const n = value();
  if (n >= 0 && n <= 127) {
    static constexpr char pairs[] = "C-C#D-D#E-F-F#G-G#A-A#B-";
    int const s = n % 12;
    buf[0] = pairs[2 * s];
    buf[1] = pairs[2 * s + 1];
    buf[2] = octave_char(n / 12);
  } else {
    // Thirty-one tones. Numbers 128..255 come only from octave 'b' or the
    // step before C of octave 0 and have no readable text; they go through
    // the same arithmetic, floored, so the letter and separator always come
    // from the table and the text stays three bytes.
    int64_t const r = int64_t(n) - tone31_base;
    auto floor_div = [](int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); };
    int64_t const o = floor_div(r + 1, tone31_steps);
    int const u = int(r - floor_div(r, tone31_steps) * tone31_steps);
    buf[0] = tone31_letter(u);
    buf[1] = tone31_sep(u);
    buf[2] = octave_char(int(o));
  }
  buf[3] = 0;
}

// ---------------------------------------------------------------------------
// Integer cells with the generic hexadecimal forms.

struct Velocity : RangedInteger<Velocity, signed char, 0, 127, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int text_width = 2;
  static constexpr int default_value = 80;
};
struct Sustain : RangedInteger<Sustain, signed char, 0, 1, false> {
  static constexpr TextForm text_form = TextForm::H1;
  static constexpr int text_width = 1;
  static constexpr int default_value = 0;
};
struct StepLength : RangedInteger<StepLength, signed char, 0, 96, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int text_width = 2;
  static constexpr int default_value = 6;
};
struct TableStepJump : RangedInteger<TableStepJump, signed char, 0, 63, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int text_width = 2;
  static constexpr int default_value = 0;
};
struct BreakSlice : RangedInteger<BreakSlice, signed char, 0, 15, true> {
  static constexpr TextForm text_form = TextForm::H1;
  static constexpr int text_width = 1;
  static constexpr int default_value = 0;
};
struct Aftertouch : RangedInteger<Aftertouch, signed char, 0, 127, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int text_width = 2;
  static constexpr int default_value = 0;
};
struct MidiCC : RangedInteger<MidiCC, signed char, 0, 127, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int text_width = 2;
  static constexpr int default_value = 0;
};
struct MidiCCIdx : RangedInteger<MidiCCIdx, signed char, 0, 127, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int text_width = 2;
  static constexpr int default_value = 0;
};
struct ProgramChange : RangedInteger<ProgramChange, signed char, 0, 127, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int text_width = 2;
  static constexpr int default_value = 0;
};
struct DelayTime : RangedInteger<DelayTime, int, 0, 255, true> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int text_width = 2;
  static constexpr int default_value = 0;
};
struct DelayFeedback : RangedInteger<DelayFeedback, int, 0, 255, true> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int text_width = 2;
  static constexpr int default_value = 0;
};
struct DelayMix : RangedInteger<DelayMix, int, 0, 15, true> {
  static constexpr TextForm text_form = TextForm::H1;
  static constexpr int text_width = 1;
  static constexpr int default_value = 0;
};
struct ModulatorSpeed : RangedInteger<ModulatorSpeed, int, 0, 255, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int text_width = 2;
  static constexpr int default_value = 0;
};
struct ModulatorAmplitude : RangedInteger<ModulatorAmplitude, int, 0, 255, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int text_width = 2;
  static constexpr int default_value = 0;
};
struct RowIdx : RangedInteger<RowIdx, int, 0, 255, true> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int text_width = 2;
  static constexpr int default_value = 0;
};
struct ColumnIdx : RangedInteger<ColumnIdx, signed char, 0, 15, false> {
  static constexpr TextForm text_form = TextForm::H1;
  static constexpr int text_width = 1;
  static constexpr int default_value = 0;
};
struct NoteColumnIdx : RangedInteger<NoteColumnIdx, signed char, 0, 3, false> {
  static constexpr TextForm text_form = TextForm::H1;
  static constexpr int text_width = 1;
  static constexpr int default_value = 0;
};
struct TableColumnIdx : RangedInteger<TableColumnIdx, signed char, 0, 7, true> {
  static constexpr TextForm text_form = TextForm::H1;
  static constexpr int text_width = 1;
  static constexpr int default_value = 0;
};
struct PatternStepIdx : RangedInteger<PatternStepIdx, signed char, 0, 63, true> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int text_width = 2;
  static constexpr int default_value = 0;
};
// A memory cell number inside an address space (the op codes stre, strc,
// strp and mpty).
struct Address : RangedInteger<Address, int, 0, 63, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int text_width = 2;
  static constexpr int default_value = 0;
};

// ---------------------------------------------------------------------------
// Numbers read and written with one scanf / printf conversion pair of their
// own: the signed forms ("%+3d", "%+02d", "%+5d", "%4d"), the percentage,
// the chord note count and the MIDI pitch word.

// How such a cell reads and writes. A text equal to `magic_in` reads as
// magic; otherwise `scan` converts the number: none found is the empty cell,
// a number in range is kept, the magic state's own number is magic where
// `magic_number` says so, anything else is the default. On writing, stored 0
// is `empty`, stored 1 is `magic_out` where there is one (else its number
// is printed like any other), every other cell prints its number with
// `print`.
struct NumberTextRules {
  char const* scan;
  char const* print;
  char const* empty;
  char const* magic_in;
  char const* magic_out;
  bool magic_number;
};

// Derived gives `static constexpr NumberTextRules text_rules`,
// `default_value` and `text_width`.
template <class Derived, class Rep, int Min, int Max, bool AllowMagic>
struct FormattedNumber : RangedInteger<Derived, Rep, Min, Max, AllowMagic> {
  using Base = RangedInteger<Derived, Rep, Min, Max, AllowMagic>;

  static Derived parse_string(char const* text) {
    constexpr NumberTextRules const& r = Derived::text_rules;
    if constexpr (r.magic_in != nullptr)
      if (std::strcmp(text, r.magic_in) == 0) return Base::magic_cell();
    constexpr NumberFormat scan = scan_format(r.scan);
    int v;
    if (scan_number(text, scan, &v) != 1) return Base::empty_cell();
    if (r.magic_number && v == cell_decode<Rep>(Rep(1))) return Base::magic_cell();
    if (Base::in_range(v)) return Base::from_value(v);
    return Base::default_cell();
  }

  void format_string(char* buf, size_t len) const {
    constexpr NumberTextRules const& r = Derived::text_rules;
    if (this->stored == 0) {
      format_text(buf, len, r.empty);
      return;
    }
    if constexpr (r.magic_out != nullptr) {
      if (this->stored == 1) {
        format_text(buf, len, r.magic_out);
        return;
      }
    }
    constexpr NumberFormat print = print_format(r.print);
    print_number(buf, len, print, this->value());
  }
  // The text is the same inside a composite cell.
  void format_column(char* buf, size_t len, int /*width*/) const {
    static_cast<Derived const*>(this)->format_string(buf, len);
  }
};

// Semitones, -99..99; "[ ]" is magic. " +5", "-12", " +0".
struct Transpose : FormattedNumber<Transpose, signed char, -99, 99, true> {
  static constexpr int text_width = 3;
  static constexpr int default_value = 0;
  static constexpr NumberTextRules text_rules{"%3d", "%+3d", "\xFA\xFA\xFA", "[ ]", "[ ]", true};

  void format_string(char* buf, size_t len) const {
    KELVANE_TYPES_ASSERT(len >= 4);
    FormattedNumber::format_string(buf, len);
  }
  void format_column(char* buf, size_t len, int /*width*/) const { format_string(buf, len); }
};

// Fine tuning of a sample or oscillator, only in settings records. "[ ]"
// reads as magic, but there is no magic text on writing: stored 1 prints
// as the number -127, which is out of range and so reads back as 0.
// "+5", "+0", "+12".
struct Finetune : FormattedNumber<Finetune, signed char, -99, 99, true> {
  // "+5" takes two places, "-99" three; the empty text fills three.
  static constexpr int text_width = 3;
  static constexpr int default_value = 0;
  static constexpr NumberTextRules text_rules{"%d", "%+02d", "\xFA\xFA\xFA", "[ ]", nullptr, false};
};

// Detune in cents, only in settings records. "+1200", "   +7". The empty
// text is one blank place wider than the number's five.
struct Cents : FormattedNumber<Cents, int, -9600, 9600, false> {
  static constexpr int text_width = 5;
  static constexpr int default_value = 0;
  static constexpr NumberTextRules text_rules{"%d", "%+5d", "\xFA\xFA\xFA\xFA\xFA\xFA", nullptr,
                                              nullptr, false};
};

// Signed op code arguments, "   5", "  -5". Empty and magic both write
// "----", which reads as no number, so magic comes back as empty.
struct PosNegVal7 : FormattedNumber<PosNegVal7, int, -127, 127, false> {
  static constexpr int text_width = 4;
  static constexpr int default_value = 0;
  static constexpr NumberTextRules text_rules{"%4d", "%4d", "----", nullptr, "----", false};
};
struct PosNegVal8 : FormattedNumber<PosNegVal8, int, -255, 255, false> {
  static constexpr int text_width = 4;
  static constexpr int default_value = 0;
  static constexpr NumberTextRules text_rules{"%4d", "%4d", "----", nullptr, "----", false};
};

// Tempo factor in percent, 1..200, "050%". Out of range reads as 100.
struct Percentage : FormattedNumber<Percentage, int, 1, 200, false> {
  static constexpr int text_width = 4;
  static constexpr int default_value = 100;
  static constexpr NumberTextRules text_rules{"%03d", "%03d%%", "----", nullptr, nullptr, false};
};

// Number of notes of a chord memory entry, 0..16, " 3". An empty cell
// fills its two decimal places.
struct NumChordNotes : FormattedNumber<NumChordNotes, signed char, 0, 16, false> {
  static constexpr int text_width = 2;
  static constexpr int default_value = 0;
  static constexpr NumberTextRules text_rules{"%2d", "%2d", "\xFA\xFA", nullptr, nullptr, false};
};

// 14-bit MIDI pitch bend in a 16-bit word cell, "%04x". Out of range reads
// as the centre 0x2000 (stored 0xA000).
struct MidiPitch : FormattedNumber<MidiPitch, uint16_t, 0, 0x3FFF, false> {
  static constexpr int text_width = 4;
  static constexpr int default_value = 0x2000;
  static constexpr NumberTextRules text_rules{"%04x", "%04x", "\xF9\xF9\xF9\xF9", nullptr, nullptr,
                                              false};
};

// ---------------------------------------------------------------------------
// Flags written as one mark byte: set (stored 0x81) or clear (stored 0).
// Any non-zero cell is written as the mark; on reading only the first byte
// counts, the mark setting the flag and anything else clearing it.

template <class Derived, char Mark>
struct MarkFlag : RangedInteger<Derived, signed char, 0, 1, false> {
  using Base = RangedInteger<Derived, signed char, 0, 1, false>;
  static constexpr int text_width = 1;
  static constexpr int default_value = 0;

  static constexpr Derived set_cell() { return Base::from_value(1); }
  constexpr bool is_set() const { return this->stored != 0; }

  static Derived parse_string(char const* text) { return text[0] == Mark ? set_cell() : Base::empty_cell(); }
  // A clear cell, which the step writers leave out, is an empty place.
  void format_string(char* buf, size_t len) const {
    KELVANE_TYPES_ASSERT(len > 1);
    buf[0] = this->stored != 0 ? Mark : kEmptyHex;
    buf[1] = 0;
  }
  void format_column(char* buf, size_t len, int /*width*/) const { format_string(buf, len); }
};

// The trigger of a OneShot step or a modulation memory column, 0x04 when set.
struct Trigger : MarkFlag<Trigger, kMagic> {};

// The switch of a program row that turns it off, "#" when set.
struct LineDisable : MarkFlag<LineDisable, '#'> {};

// A condition bit of a program row: 0 or 1, "%x"; a larger number reads
// as 0.
struct CondMask : RangedInteger<CondMask, signed char, 0, 1, false> {
  static constexpr TextForm text_form = TextForm::H1;
  static constexpr int text_width = 1;
  static constexpr int default_value = 0;
};

// ---------------------------------------------------------------------------
// Cells that hold one of a few texts, stored 0x80 + index, with the generic
// enumeration reader (exact comparison in index order, unknown text is
// empty) and writer (the text, or `empty_text` when empty). Inside a
// composite cell the text is the same; a shorter text ("stop") leaves its
// NUL inside the column.

// The memory an address points into: local, global, program variables.
struct AddressSpace : Enumeration<AddressSpace> {
  static constexpr char const* names[] = {"L", "G", "V"};
  static constexpr int text_width = 1;
  static constexpr char const* empty_text = fill_text<kEmptyHex, text_width>.data();
  static constexpr int default_index = 0;
  void format_column(char* buf, size_t len, int /*width*/) const { format_string(buf, len); }
};

struct MidiMsg : Enumeration<MidiMsg> {
  static constexpr char const* names[] = {"start", "stop", "conti"};
  static constexpr int text_width = 5;
  static constexpr char const* empty_text = fill_text<kEmptyHex, text_width>.data();
  static constexpr int default_index = 0;
  void format_column(char* buf, size_t len, int /*width*/) const { format_string(buf, len); }
};

// When a table or program step fires: never, the i-th of every n passes,
// a probability, after the previous condition, first pass, always.
struct TriggerCondition : Enumeration<TriggerCondition> {
  static constexpr char const* names[] = {
      "FAL",                                                          //
      "1:2", "2:2",                                                   //
      "1:3", "2:3", "3:3",                                            //
      "1:4", "2:4", "3:4", "4:4",                                     //
      "1:5", "2:5", "3:5", "4:5", "5:5",                              //
      "1:6", "2:6", "3:6", "4:6", "5:6", "6:6",                       //
      "10%", "20%", "30%", "40%", "50%", "60%", "70%", "80%", "90%",  //
      "PRV", "!PR", "FST", "TRU",
  };
  static constexpr int text_width = 3;
  static constexpr char const* empty_text = fill_text<kEmptyHex, text_width>.data();
  static constexpr int default_index = 0;

  // A cell outside the table has no text; no reader makes one, so writing
  // it is a programming error.
  static char const* to_string(TriggerCondition t) {
    char const* s = name_of(t.index());
    if (!s) KELVANE_TYPES_ASSERT(!"not implemented");
    return s;
  }
  static char const* text_of(int index) { return to_string(from_index(index)); }
  void format_column(char* buf, size_t len, int /*width*/) const { format_string(buf, len); }
};

}  // namespace kelvane
