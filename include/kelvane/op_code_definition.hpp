#pragma once
// Command cells: a mnemonic byte followed by a few argument cells, all
// described by one table per cell kind. `OpCode` is the command of a pattern
// or table step; the operand and instruction cells of a program line are
// built from the same parts.
//
// The parts, from the bottom up:
//
//   command::Arg<Cell, Width>    one argument: its cell type and the places
//                                its text takes inside the command text
//   command::Row<"mnem", Arg...> one table row: the mnemonic bytes and the
//                                arguments in column order
//   command::Table<Row...>       the table; it derives the mnemonic list,
//                                one argument tuple per distinct argument
//                                list and the union of those tuples
//   command::MnemonicCell<...>   the type byte: 0 empty, 0x80 + row index
//   command::CommandCell<Layout> the cell itself: type byte plus argument
//                                union, and the visitors that are the only
//                                code that knows the table: num_columns,
//                                static_switch, column_do, for_each_arg
//   command::format_fields /     the text form, written once as visitors
//   command::parse_fields        over the arguments
//
// Adding a command means adding one row to its table; nothing else in the
// code names a mnemonic or an argument position.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>
#include <type_traits>
#include <utility>

#include "kelvane/types_cells.hpp"
#include "kelvane/types_enums.hpp"
#include "kelvane/types_music.hpp"

// The file name that assertions of the command cells report.
#define KELVANE_OP_CODE_DEFINITION_FILE "include/kelvane/op_code_definition"
#define KELVANE_OP_CODE_ASSERT(expr) KELVANE_ASSERT_AT(KELVANE_OP_CODE_DEFINITION_FILE, __LINE__, expr)

namespace kelvane {
namespace command {

// ---------------------------------------------------------------------------
// Type lists.

template <class... Ts>
struct TypeList {
  static constexpr int size = int(sizeof...(Ts));
};

template <size_t I, class List>
struct TypeAt;
template <class T, class... Ts>
struct TypeAt<0, TypeList<T, Ts...>> {
  using type = T;
};
template <size_t I, class T, class... Ts>
struct TypeAt<I, TypeList<T, Ts...>> : TypeAt<I - 1, TypeList<Ts...>> {};

// Position of the first T in the list; the list must hold T.
template <class T, class... Ts>
constexpr int index_in(TypeList<Ts...>) {
  constexpr bool same[] = {std::is_same_v<T, Ts>..., false};
  for (int i = 0; i < int(sizeof...(Ts)); ++i)
    if (same[i]) return i;
  return -1;
}

// The list with every type once, in order of first appearance.
template <class Seen, class... Ts>
struct Distinct {
  using type = Seen;
};
template <class... Seen, class T, class... Ts>
struct Distinct<TypeList<Seen...>, T, Ts...>
    : Distinct<std::conditional_t<(std::is_same_v<T, Seen> || ...), TypeList<Seen...>,
                                  TypeList<Seen..., T>>,
               Ts...> {};

// ---------------------------------------------------------------------------
// The table.

// A mnemonic as a template argument: its bytes and terminating NUL. Control
// bytes are written as escapes ("cv\x0D").
template <size_t N>
struct Mnemonic {
  char text[N]{};
  constexpr Mnemonic(char const (&s)[N]) {
    for (size_t i = 0; i < N; ++i) text[i] = s[i];
  }
};

// One argument: the cell type and its width in the command text. The width
// belongs to the place: a decimal IntSetting, for one, blanks as many places
// as the column it stands in.
template <class Cell, int Width>
struct Arg {
  using cell_type = Cell;
  static constexpr int width = Width;
};

// The cells of one argument list, as plain members in column order, so
// that the tuple is trivially copyable and its bytes are its value. Up to
// four arguments.
template <class... Args>
struct ArgTuple;

template <class... Args>
struct ArgTupleInfo {
  static constexpr int size = int(sizeof...(Args));
  template <size_t I>
  using arg = typename TypeAt<I, TypeList<Args...>>::type;
  template <size_t I>
  static constexpr int width = arg<I>::width;
};

template <>
struct ArgTuple<> : ArgTupleInfo<> {};
template <class A0>
struct ArgTuple<A0> : ArgTupleInfo<A0> {
  typename A0::cell_type c0;
};
template <class A0, class A1>
struct ArgTuple<A0, A1> : ArgTupleInfo<A0, A1> {
  typename A0::cell_type c0;
  typename A1::cell_type c1;
};
template <class A0, class A1, class A2>
struct ArgTuple<A0, A1, A2> : ArgTupleInfo<A0, A1, A2> {
  typename A0::cell_type c0;
  typename A1::cell_type c1;
  typename A2::cell_type c2;
};
template <class A0, class A1, class A2, class A3>
struct ArgTuple<A0, A1, A2, A3> : ArgTupleInfo<A0, A1, A2, A3> {
  typename A0::cell_type c0;
  typename A1::cell_type c1;
  typename A2::cell_type c2;
  typename A3::cell_type c3;
};

// The cell in column I of a tuple (const or not).
template <size_t I, class Tuple>
constexpr auto& cell_at(Tuple& t) {
  if constexpr (I == 0)
    return t.c0;
  else if constexpr (I == 1)
    return t.c1;
  else if constexpr (I == 2)
    return t.c2;
  else
    return t.c3;
}

// A union with one member per type; its size is that of the largest.
template <class T, class... Ts>
union ArgUnion {
  T head;
  ArgUnion<Ts...> tail;
};
template <class T>
union ArgUnion<T> {
  T head;
};

template <class List>
struct UnionOf;
template <class... Ts>
struct UnionOf<TypeList<Ts...>> {
  using type = ArgUnion<Ts...>;
};

// Member K of such a union (const or not).
template <int K, class U>
constexpr auto& union_member(U& u) {
  if constexpr (K == 0)
    return u.head;
  else
    return union_member<K - 1>(u.tail);
}

// One row: a mnemonic of up to four bytes and its arguments in column order.
template <Mnemonic M, class... Args>
struct Row {
  static_assert(sizeof(M.text) <= 5, "a mnemonic has at most four bytes");
  static constexpr char const* mnemonic = M.text;
  using tuple_type = ArgTuple<Args...>;
};

// A mnemonic that older texts use for a row of the table.
struct MnemonicAlias {
  char const* text;
  char const* stands_for;
};

// The table of a cell kind. Row i is stored as type 0x80 + i. Rows with the
// same argument list share one tuple, and the argument area is the union of
// the distinct tuples. A table that accepts older mnemonics derives from
// this and adds `static constexpr MnemonicAlias aliases[]`.
template <class... Rows>
struct Table {
  static constexpr int size = int(sizeof...(Rows));
  using rows = TypeList<Rows...>;
  template <size_t I>
  using row = typename TypeAt<I, rows>::type;

  static constexpr char const* mnemonics[sizeof...(Rows)] = {Rows::mnemonic...};

  using tuples = typename Distinct<TypeList<>, typename Rows::tuple_type...>::type;
  using storage = typename UnionOf<tuples>::type;
  // Which member of `storage` holds the arguments of row I.
  template <size_t I>
  static constexpr int tuple_slot = index_in<typename row<I>::tuple_type>(tuples{});
};

// ---------------------------------------------------------------------------
// The type byte.

// True if the mnemonic m stands at the start of s and is followed there by
// a NUL or a pad byte.
constexpr bool mnemonic_matches(char const* m, char const* s) {
  size_t k = 0;
  for (; m[k]; ++k)
    if (s[k] != m[k]) return false;
  return s[k] == 0 || s[k] == kPad;
}

constexpr bool mnemonic_equal(char const* a, char const* b) {
  return std::string_view(a) == std::string_view(b);
}

// A byte cell: 0 is empty, row i of the table is stored 0x80 + i. As text
// it is the mnemonic, left-aligned in Width places with pad bytes behind.
template <class TableT, int Width>
struct MnemonicCell {
  using rep_type = uint8_t;
  using table = TableT;
  static constexpr int text_width = Width;

  uint8_t stored;

  constexpr bool is_empty() const { return stored == 0; }
  // Row index; negative or beyond the table for a byte no reader makes.
  constexpr int index() const { return cell_decode<uint8_t>(stored); }

  static constexpr int count() { return TableT::size; }
  static constexpr MnemonicCell from_stored(uint8_t s) { return MnemonicCell{s}; }
  static constexpr MnemonicCell from_index(int i) { return from_stored(cell_encode<uint8_t>(i)); }
  static constexpr MnemonicCell empty_cell() { return MnemonicCell{0}; }

  // The mnemonic of a row index, null outside the table.
  static constexpr char const* name_of(int i) {
    return i >= 0 && i < count() ? TableT::mnemonics[i] : nullptr;
  }
  constexpr char const* mnemonic() const { return is_empty() ? nullptr : name_of(index()); }

  // The stored byte of a mnemonic, for code that must single out a
  // command: `op.type.stored == OpCode::OpType::stored_of("stre")`. An
  // unknown mnemonic does not compile.
  static consteval uint8_t stored_of(char const* m) {
    for (int i = 0; i < count(); ++i)
      if (mnemonic_equal(TableT::mnemonics[i], m)) return cell_encode<uint8_t>(i);
    throw "no such mnemonic in the table";
  }
  static consteval MnemonicCell of(char const* m) { return from_stored(stored_of(m)); }

  // The stored byte of the first row, in table order, whose mnemonic is a
  // prefix of s followed by NUL or a pad byte; then the older names of the
  // table; 0 when nothing matches. So "bpm" followed by a pad byte is not
  // taken for "bpm%", and "Cife" is not taken for "Cif".
  static uint8_t parse_string(char const* s) {
    // Only the rows whose mnemonic begins with the first byte of s can
    // match; they are tried in table order.
    for (int i = first_rows.first[static_cast<unsigned char>(s[0])]; i >= 0; i = first_rows.next[i])
      if (mnemonic_matches(TableT::mnemonics[i], s)) return cell_encode<uint8_t>(i);
    if constexpr (requires { TableT::aliases; }) {
      for (MnemonicAlias const& a : TableT::aliases)
        if (mnemonic_matches(a.text, s))
          for (int i = 0; i < count(); ++i)
            if (mnemonic_equal(TableT::mnemonics[i], a.stands_for)) return cell_encode<uint8_t>(i);
    }
    return 0;
  }

  // The rows of the table by the first byte of their mnemonic: the first
  // row of each byte, and for each row the next one with the same byte;
  // -1 ends a chain. Every mnemonic has a first byte: an empty one would
  // match a text that begins with a pad byte, which this index misses.
  struct FirstRows {
    int first[256];
    int next[TableT::size > 0 ? TableT::size : 1];
  };
  static constexpr FirstRows make_first_rows() {
    FirstRows r{};
    for (int& f : r.first) f = -1;
    for (int i = count() - 1; i >= 0; --i) {
      auto const c = static_cast<unsigned char>(TableT::mnemonics[i][0]);
      if (c == 0) throw "a mnemonic is empty";
      r.next[i] = r.first[c];
      r.first[c] = i;
    }
    return r;
  }
  static constexpr FirstRows first_rows = make_first_rows();

  // "%-*s" of the mnemonic, its blanks turned into pad bytes. An empty cell
  // (or a byte outside the table) writes width pad bytes.
  void format_column(char* buf, size_t len, int width) const {
    if (len == 0) return;
    char const* text = mnemonic();
    print_left_justified(buf, len, text ? text : "", width);
    for (char* p = buf; *p; ++p)
      if (*p == ' ') *p = kPad;
  }
  void format_string(char* buf, size_t len) const { format_column(buf, len, Width); }
};

// ---------------------------------------------------------------------------
// Cells as columns.

// The text of a cell inside a command: its column form where it has one,
// else its plain text.
template <class T>
void format_cell(T const& cell, char* buf, size_t len, int width) {
  if constexpr (requires { cell.format_column(buf, len, width); })
    cell.format_column(buf, len, width);
  else
    cell.format_string(buf, len);
}

// A cell read from the text of its column. A reader that gives the stored
// form rather than the cell (the type bytes) is wrapped.
template <class T>
T read_cell(char const* text) {
  auto r = T::parse_string(text);
  if constexpr (std::is_same_v<decltype(r), T>)
    return r;
  else
    return T::from_stored(r);
}

// Calls f(cell, width) if f takes the width, else f(cell).
template <class F, class Cell>
void call_with_cell(F& f, Cell& cell, int width) {
  if constexpr (std::is_invocable_v<F&, Cell&, int>)
    f(cell, width);
  else
    f(cell);
}

// ---------------------------------------------------------------------------
// The cell.

// A command cell: the type byte, then the argument union. Layout gives
//   table           the command table
//   mnemonic_width  places of the mnemonic in the text
//   min_places      the text is padded with pad bytes up to this length
//
// Memory: all zero is the empty command. Argument bytes that the current
// type does not use stay zero, because records holding commands are
// compared as bytes; every parse therefore starts from an all-zero cell.
template <class Layout>
struct CommandCell {
  using layout = Layout;
  using table = typename Layout::table;
  using OpType = MnemonicCell<table, Layout::mnemonic_width>;
  using storage = typename table::storage;

  OpType type;
  // Named, always zero, so that no byte of the cell is padding: cells are
  // compared and copied as bytes, also member by member.
  uint8_t fill[alignof(storage) > sizeof(OpType) ? alignof(storage) - sizeof(OpType) : 1];
  storage args;

  // The number of arguments of the current type, 0 for the empty command.
  int num_columns() const {
    int n = 0;
    dispatch(*this, [&](auto const& tuple) { n = std::remove_cvref_t<decltype(tuple)>::size; });
    return n;
  }

  // Calls f with the argument tuple of the current type; the empty command
  // (or a type byte outside the table) calls nothing. The tuple's static
  // `size` and `width<I>` describe its columns, and `cell_at<I>(tuple)`
  // gives column I.
  template <class F>
  void static_switch(F&& f) {
    dispatch(*this, f);
  }
  template <class F>
  void static_switch(F&& f) const {
    dispatch(*this, f);
  }

  // Calls f with the cell in argument position col: as f(cell, width) if f
  // takes the width of the column, else as f(cell). col must be below
  // num_columns().
  template <class F>
  void column_do(int col, F&& f) {
    KELVANE_OP_CODE_ASSERT(col >= 0);
    KELVANE_OP_CODE_ASSERT(col < num_columns());
    visit_column(*this, col, f);
  }
  template <class F>
  void column_do(int col, F&& f) const {
    KELVANE_OP_CODE_ASSERT(col >= 0);
    KELVANE_OP_CODE_ASSERT(col < num_columns());
    visit_column(*this, col, f);
  }

  // column_do for col = 0, 1, ... while the type is not empty and col is
  // below num_columns(). f may change the cell, its type included (a parse
  // writes the type before the columns, a rewrite may replace a command),
  // so type and bound are read again before each column.
  template <class F>
  void for_each_arg(F&& f) {
    each_arg(*this, f);
  }
  template <class F>
  void for_each_arg(F&& f) const {
    each_arg(*this, f);
  }

 private:
  // The columns of the current type's tuple in one pass. Should f change
  // the type, the pass stops and the columns after it go column by column,
  // with type and bound read again before each.
  template <class Self, class F>
  static void each_arg(Self& self, F& f) {
    if (self.type.is_empty()) return;
    auto const type_before = self.type.stored;
    int resume = -1;
    dispatch(self, [&](auto& tuple) {
      using Tuple = std::remove_cvref_t<decltype(tuple)>;
      [&]<size_t... I>(std::index_sequence<I...>) {
        (void)(((call_with_cell(f, cell_at<I>(tuple), Tuple::template width<I>),
                 self.type.stored == type_before || (resume = int(I) + 1, false))) &&
               ...);
      }(std::make_index_sequence<size_t(Tuple::size)>{});
    });
    if (resume < 0) return;
    for (int col = resume; !self.type.is_empty() && col < self.num_columns(); ++col) visit_column(self, col, f);
  }

  // The switch over the table: row i's tuple is member tuple_slot<i> of the
  // argument union.
  template <class Self, class F>
  static void dispatch(Self& self, F&& f) {
    if (self.type.is_empty()) return;
    int const i = self.type.index();
    [&]<size_t... I>(std::index_sequence<I...>) {
      (void)((i == int(I) && (f(union_member<table::template tuple_slot<I>>(self.args)), true)) ||
             ...);
    }(std::make_index_sequence<size_t(table::size)>{});
  }

  template <class Self, class F>
  static void visit_column(Self& self, int col, F& f) {
    dispatch(self, [&](auto& tuple) {
      using Tuple = std::remove_cvref_t<decltype(tuple)>;
      [&]<size_t... I>(std::index_sequence<I...>) {
        (void)((col == int(I) &&
                (call_with_cell(f, cell_at<I>(tuple), Tuple::template width<I>), true)) ||
               ...);
      }(std::make_index_sequence<size_t(Tuple::size)>{});
    });
  }
};

// ---------------------------------------------------------------------------
// The text form, as visitors over the arguments.

// Longest text one column may produce (the cells' own bound of a value).
inline constexpr size_t kColumnTextSize = 128;

// Writes the text of a column at pos and its NUL, within len.
template <class T>
void put_column(char* buf, size_t len, size_t pos, T const& cell, int width) {
  if (pos >= len) return;
  char text[kColumnTextSize] = {};
  format_cell(cell, text, sizeof text, width);
  size_t n = std::strlen(text);
  if (n > len - 1 - pos) n = len - 1 - pos;
  std::memcpy(buf + pos, text, n);
  buf[pos + n] = 0;
}

// Writes a command cell:
//  1. the mnemonic, "%-*s" in mnemonic_width places, blanks turned into
//     pad bytes;
//  2. each argument at the running position, which then grows by the
//     column's width, not by the characters written; nothing separates
//     the columns;
//  3. pad bytes up to min_places, then a NUL.
// A column that writes fewer characters than its width leaves its NUL in
// the buffer, and the text ends there whatever padding stands behind it:
// "bpm", pad, "99" is the whole text of bpm 99. Callers pass a zero-filled
// buffer of 128 bytes; a shorter one gets a cut text, always terminated.
template <class Cell>
void format_fields(Cell const& cell, char* buf, size_t len) {
  if (len == 0) return;
  using L = typename Cell::layout;
  cell.type.format_column(buf, len, L::mnemonic_width);
  size_t pos = L::mnemonic_width;
  cell.for_each_arg([&](auto const& arg, int width) {
    put_column(buf, len, pos, arg, width);
    pos += size_t(width);
  });
  for (; pos < size_t(L::min_places) && pos + 1 < len; ++pos) buf[pos] = kPad;
  buf[pos < len ? pos : len - 1] = 0;
}

// Reads a command cell from s into out, with buf as the work buffer. The
// caller has asserted that s fits into buf with room to spare.
//
// The cell starts all zero. Then, for the type and for each column: buf
// holds s as if copied anew (the byte the previous cut destroyed is put
// back), cut with a NUL at position + width, and the field is read from the position by its
// cell's reader; the position grows by the width. An unknown mnemonic
// leaves the empty command and no column is read. A text that ends early
// gives the later columns the empty text, which reads as empty, or as
// magic in the cells that have it.
//
// Only the text and its NUL are copied: a field that starts past the text's
// end is given the empty text without reading the buffer there.
template <class Cell, size_t N>
void parse_fields(Cell& out, char const* s, size_t n, char (&buf)[N]) {
  using L = typename Cell::layout;
  using OpType = typename Cell::OpType;
  bytes_clear(out);
  size_t const copied = n < N - 1 ? n : N - 1;
  std::memcpy(buf, s, copied);
  buf[copied] = 0;
  size_t pos = 0;
  // Each field sees the buffer as a fresh copy of s cut at its end: the
  // byte that the previous cut destroyed is put back first.
  auto field = [&](int width) -> char const* {
    if (pos < N) buf[pos] = pos < copied ? s[pos] : 0;
    size_t const end = pos + size_t(width);
    if (end < N) buf[end] = 0;
    char const* text = pos < N ? buf + pos : "";
    pos = end;
    return text;
  };
  out.type = read_cell<OpType>(field(L::mnemonic_width));
  out.for_each_arg([&](auto& arg, int width) {
    arg = read_cell<std::remove_reference_t<decltype(arg)>>(field(width));
  });
}

// The work buffer of a parse. A text that does not fit with room to spare
// is a programming error of the caller; the message, line included, is part
// of what the tool prints when it fires.
inline constexpr size_t kParseBufferSize = 256;
inline constexpr unsigned kParseLengthAssertLine = 153;

// Reads a command cell of any table: the length check, then parse_fields.
// `function` names the public reader in the assertion's message.
template <class Cell>
Cell parse_text(char const* s, char const* function) {
  char buf[kParseBufferSize];
  size_t const n = std::strlen(s);
  if (!(n < sizeof(buf) - 1))
    kelvane_assert_fail("strlen(s) < sizeof(buf) - 1", KELVANE_OP_CODE_DEFINITION_FILE,
                        kParseLengthAssertLine, function);
  Cell cell;
  parse_fields(cell, s, n, buf);
  return cell;
}

// A command cell is plain bytes: trivially copyable, standard layout, and
// with no padding between the type byte, its fill and the arguments, so
// that no byte of it is ever undefined.
template <class Cell>
inline constexpr bool is_plain_cell =
    std::is_trivially_copyable_v<Cell> && std::is_standard_layout_v<Cell> &&
    sizeof(Cell) == sizeof(typename Cell::OpType) + sizeof(Cell::fill) + sizeof(typename Cell::storage);

}  // namespace command

// ---------------------------------------------------------------------------
// Op codes: the command of a pattern step and of a table step.

using command::Arg;
using command::Row;

// Row i is stored as type 0x80 + i. A mnemonic of three letters takes a pad
// byte in the text; three of them end in a control byte instead.
using OpCodeTable = command::Table<
    Row<"chrd", Arg<NoteColumnIdx, 1>, Arg<ChordMemIdx, 2>>,                                  // 0x80
    Row<"snof", Arg<NoteColumnIdx, 1>, Arg<StepLength, 2>>,                                   // 0x81
    Row<"ptch", Arg<PatchIdx, 2>>,                                                            // 0x82
    Row<"fltr", Arg<PosNegVal7, 4>>,                                                          // 0x83
    Row<"dlay", Arg<DelayTime, 2>, Arg<DelayFeedback, 2>, Arg<DelayMix, 1>>,                  // 0x84
    Row<"fxpt", Arg<FXPatchIdx, 2>>,                                                          // 0x85
    Row<"pnv1", Arg<Transpose, 3>, Arg<StepLength, 2>>,                                       // 0x86
    Row<"pnv2", Arg<Transpose, 3>, Arg<StepLength, 2>>,                                       // 0x87
    Row<"pbnd", Arg<Transpose, 3>, Arg<StepLength, 2>>,                                       // 0x88
    Row<"cv\x0D", Arg<IntSetting<0, 7, 0, 10>, 1>, Arg<Transpose, 3>>,                        // 0x89
    Row<"cvV", Arg<IntSetting<0, 7, 0, 10>, 1>, Arg<PosNegVal8, 4>>,                          // 0x8A
    Row<"mmem", Arg<ModulationMemIdx, 2>>,                                                    // 0x8B
    Row<"mods", Arg<ModulatorIdx, 1>, Arg<ModulatorSpeed, 2>>,                                // 0x8C
    Row<"modw", Arg<ModulatorIdx, 1>, Arg<ModulatorWaveform, 4>>,                             // 0x8D
    Row<"moda", Arg<ModulatorIdx, 1>, Arg<ModulatorAmplitude, 2>>,                            // 0x8E
    Row<"modm", Arg<ModulatorIdx, 1>, Arg<ModulatorMultType, 4>>,                             // 0x8F
    Row<"modr", Arg<ModulatorIdx, 1>>,                                                        // 0x90
    Row<"tjmp", Arg<TableColumnIdx, 1>, Arg<TableStepJump, 2>>,                               // 0x91
    Row<"tlen", Arg<TableColumnIdx, 1>, Arg<StepLength, 2>>,                                  // 0x92
    Row<"tSif", Arg<TriggerCondition, 3>>,                                                    // 0x93
    Row<"tCif", Arg<TriggerCondition, 3>>,                                                    // 0x94
    Row<"tCfe", Arg<TriggerCondition, 3>>,                                                    // 0x95
    Row<"call", Arg<ProgramIdx, 2>>,                                                          // 0x96
    Row<"cal1", Arg<ProgramIdx, 2>, Arg<ValueTemplateM<255, 0>, 2>>,                          // 0x97
    Row<"cal2", Arg<ProgramIdx, 2>, Arg<ValueTemplateM<255, 0>, 2>, Arg<ValueTemplate<15, 0>, 1>>,  // 0x98
    Row<"cal3", Arg<ProgramIdx, 2>, Arg<ValueTemplate<15, 0>, 1>, Arg<ValueTemplate<15, 0>, 1>,
        Arg<ValueTemplate<15, 0>, 1>>,                                                        // 0x99
    Row<"caln", Arg<ProgramIdx, 2>, Arg<Note, 3>>,                                            // 0x9A
    Row<"calt", Arg<ProgramIdx, 2>, Arg<Transpose, 3>>,                                       // 0x9B
    Row<"stre", Arg<AddressSpace, 1>, Arg<Address, 2>, Arg<ValueTemplateM<255, 0>, 2>>,       // 0x9C
    Row<"strc", Arg<AddressSpace, 1>, Arg<Address, 2>, Arg<ChordMemIdx, 2>>,                  // 0x9D
    Row<"strp", Arg<AddressSpace, 1>, Arg<Address, 2>, Arg<PatchIdx, 2>>,                     // 0x9E
    Row<"mpty", Arg<AddressSpace, 1>, Arg<Address, 2>>,                                       // 0x9F
    Row<"STif", Arg<TriggerCondition, 3>>,                                                    // 0xA0
    Row<"Cif", Arg<TriggerCondition, 3>>,                                                     // 0xA1
    Row<"Cife", Arg<TriggerCondition, 3>>,                                                    // 0xA2
    Row<"note", Arg<ColumnIdx, 1>, Arg<Note, 3>>,                                             // 0xA3
    Row<"trns", Arg<ColumnIdx, 1>, Arg<Transpose, 3>>,                                        // 0xA4
    Row<"velo", Arg<ColumnIdx, 1>, Arg<Velocity, 2>>,                                         // 0xA5
    Row<"slce", Arg<ColumnIdx, 1>, Arg<BreakSlice, 1>>,                                       // 0xA6
    Row<"bkdx", Arg<ColumnIdx, 1>, Arg<IntSetting<0, 20, 0, 10>, 2>>,                         // 0xA7
    Row<"tble", Arg<TableColumnIdx, 1>, Arg<TableIdx, 2>>,                                    // 0xA8
    Row<"sstn", Arg<ColumnIdx, 1>, Arg<Sustain, 1>>,                                          // 0xA9
    Row<"v8bt", Arg<ColumnIdx, 1>, Arg<ValueTemplate<255, 0>, 2>>,                            // 0xAA
    Row<"etrg", Arg<ColumnIdx, 1>, Arg<Trigger, 1>>,                                          // 0xAB
    Row<"tbtp", Arg<TableColumnIdx, 1>, Arg<Transpose, 3>>,                                   // 0xAC
    Row<"bpm\x0D", Arg<Transpose, 3>>,                                                        // 0xAD
    Row<"bpm%", Arg<Percentage, 4>>,                                                          // 0xAE
    Row<"bpm", Arg<IntSetting<30, 300, 127, 10>, 3>>,                                         // 0xAF
    Row<"step", Arg<PatternStepIdx, 2>>,                                                      // 0xB0
    Row<"spbs", Arg<Boolean, 1>>,                                                             // 0xB1
    Row<"brk", Arg<PatternStepIdx, 2>, Arg<ValueTemplate<255, 0>, 2>>,                        // 0xB2
    Row<"qrow", Arg<TrackIdx, 1>, Arg<RowIdx, 2>>,                                            // 0xB3
    Row<"qrw2", Arg<TrackIdx, 1>, Arg<RowIdx, 2>>,                                            // 0xB4
    Row<"stop", Arg<TrackIdx, 1>>,                                                            // 0xB5
    Row<"mmsg", Arg<MidiMsg, 5>>,                                                             // 0xB6
    Row<"mccX", Arg<MidiCCIdx, 2>, Arg<MidiCC, 2>>,                                           // 0xB7
    Row<"maft", Arg<Aftertouch, 2>>,                                                          // 0xB8
    Row<"mprg", Arg<ProgramChange, 2>>,                                                       // 0xB9
    Row<"mpwh", Arg<MidiPitch, 4>>,                                                           // 0xBA
    Row<"ppos", Arg<ValueTemplateM<255, 0>, 2>>,                                              // 0xBB
    Row<"rev\x1D", Arg<Boolean, 1>>                                                           // 0xBC
    >;

static_assert(OpCodeTable::size == 61);

struct OpCodeLayout {
  using table = OpCodeTable;
  static constexpr int mnemonic_width = 4;
  static constexpr int min_places = 9;
};

// The command cell of a pattern step and of a table step: `type` (0 empty,
// 0x80 + row of OpCodeTable) and `args`, the union of the argument tuples.
//
// Text: the mnemonic in four places, the arguments side by side in their
// widths, pad bytes up to nine places: "streL0a7f", "Cif", pad, "1:2", pad,
// pad. The writers leave out an empty command; written anyway it is nine
// pad bytes, which read back as the empty command.
struct OpCode : command::CommandCell<OpCodeLayout> {
  // Reads a command text. A text of 255 bytes or more is a programming
  // error and ends the run. Never fails otherwise: an unknown mnemonic is
  // the empty command, bad arguments are empty or default cells.
  static OpCode parse_string(char const* s);
  // Writes the text and its NUL; callers pass a zero-filled buffer of 128
  // bytes.
  void format_string(char* buf, size_t len) const;
};

static_assert(command::is_plain_cell<OpCode>);
// The largest argument list is cal3's: four int cells.
static_assert(sizeof(OpCode::storage) == 4 * sizeof(int));

// ---------------------------------------------------------------------------
// Program instructions: the instruction of a program row.

// Row i is stored as type 0x80 + i. Every mnemonic fills its four places;
// four of them end in a glyph byte of the tracker's font.
struct OpCodeProgramTable
    : command::Table<Row<"load", Arg<Register, 5>>,                              // 0x80
                     Row<"stre", Arg<Register, 5>>,                              // 0x81
                     Row<"push", Arg<Register, 5>>,                              // 0x82
                     Row<"pops", Arg<Register, 5>>,                              // 0x83
                     Row<"dups">,                                                // 0x84
                     Row<"swap", Arg<Register, 5>>,                              // 0x85
                     Row<"mpty">,                                                // 0x86
                     Row<"arit", Arg<ArithOp, 3>>,                               // 0x87
                     Row<"incr">,                                                // 0x88
                     Row<"decr">,                                                // 0x89
                     Row<"cmp\xE0", Arg<Register, 5>, Arg<ComparisonOp, 1>>,     // 0x8A
                     Row<"cmp\xE1", Arg<Register, 5>, Arg<ComparisonOp, 1>>,     // 0x8B
                     Row<"tst\xE0", Arg<TestOp, 5>>,                             // 0x8C
                     Row<"tst\xE1", Arg<TestOp, 5>>,                             // 0x8D
                     Row<"pCn\xE0", Arg<TriggerCondition, 3>>,                   // 0x8E
                     Row<"tCn\xE0", Arg<TriggerCondition, 3>>,                   // 0x8F
                     Row<"prnt">,                                                // 0x90
                     Row<"jump">,                                                // 0x91
                     Row<"jrel">,                                                // 0x92
                     Row<"call", Arg<ProgramIdx, 2>>,                            // 0x93
                     Row<"func", Arg<Func, 6>>,                                  // 0x94
                     Row<"retn">,                                                // 0x95
                     Row<"exop", Arg<OpCode::OpType, 4>>                         // 0x96
                     > {
  // Older files name `swap` "xchg".
  static constexpr command::MnemonicAlias aliases[] = {{"xchg", "swap"}};
};

static_assert(OpCodeProgramTable::size == 23);

struct OpCodeProgramLayout {
  using table = OpCodeProgramTable;
  static constexpr int mnemonic_width = 4;
  static constexpr int min_places = 10;
};

// The instruction of a program row: `type` (0 empty, 0x80 + row of
// OpCodeProgramTable) and the union of the argument tuples.
//
// Text: the mnemonic in four places, the arguments in their widths, pad
// bytes up to ten places: "loadACCUM", pad; "call1a", four pads. A short
// text in a column ends the whole text: "funcsin". The `exop` argument is an
// op code mnemonic padded to its four places, four pads when empty.
struct OpCodeProgram : command::CommandCell<OpCodeProgramLayout> {
  static OpCodeProgram parse_string(char const* s);
  void format_string(char* buf, size_t len) const;
};

static_assert(command::is_plain_cell<OpCodeProgram>);

// ---------------------------------------------------------------------------
// Memory addresses: the operand of a program row.

// The immediate value of an operand, -1024..1024. Written "%5d"; empty is
// five empty hexadecimal places, magic five magic bytes. Reading: a first
// byte 0x04 is magic, else "%5d", where a number out of range reads as 0.
struct ImmediateValue : FormattedNumber<ImmediateValue, int, -1024, 1024, true> {
  static constexpr int text_width = 5;
  static constexpr int default_value = 0;
  static constexpr NumberTextRules text_rules{"%5d", "%5d", "\xF9\xF9\xF9\xF9\xF9", nullptr,
                                              "\x04\x04\x04\x04\x04", false};
  static ImmediateValue parse_string(char const* text) {
    if (text[0] == kMagic) return magic_cell();
    return FormattedNumber::parse_string(text);
  }
};

// A plain zz number of an operand, 0..1295 with the magic state: the text
// of an index, but no index. A number past 1295 reads as 0, not as empty.
struct ZZNumber : RangedInteger<ZZNumber, int, 0, kZZLimit - 1, true> {
  static constexpr TextForm text_form = TextForm::ZZ;
  static constexpr int default_value = 0;
  static constexpr bool zz_overflow_reads_zero = true;
};

// Row i is stored as type 0x80 + i. The kind is one byte, some of them
// glyph bytes of the tracker's font; each kind has one argument.
using MemoryAddressTable = command::Table<Row<"$", Arg<Register, 5>>,                  // 0x80
                                          Row<"#", Arg<ImmediateValue, 5>>,            // 0x81
                                          Row<"x", Arg<ValueTemplate<255, 0>, 2>>,     // 0x82
                                          Row<"\x0D", Arg<Note, 3>>,                   // 0x83
                                          Row<"\x0E", Arg<Transpose, 3>>,              // 0x84
                                          Row<"\x15", Arg<ZZNumber, 2>>,               // 0x85
                                          Row<"c", Arg<ChordMemIdx, 2>>,               // 0x86
                                          Row<"p", Arg<PatchIdx, 2>>,                  // 0x87
                                          Row<"f", Arg<FXPatchIdx, 2>>,                // 0x88
                                          Row<"L", Arg<Address, 2>>,                   // 0x89
                                          Row<"G", Arg<Address, 2>>,                   // 0x8A
                                          Row<"S", Arg<Address, 2>>,                   // 0x8B
                                          Row<"\x7F", Arg<VariableIdx, 2>>,            // 0x8C
                                          Row<"\x1A", Arg<Register, 5>>,               // 0x8D
                                          Row<"\x0B", Arg<Register, 5>>,               // 0x8E
                                          Row<"P", Arg<PatternIdx, 2>>,                // 0x8F
                                          Row<"T", Arg<TableIdx, 2>>,                  // 0x90
                                          Row<"\x14", Arg<ProjectSetting, 5>>,         // 0x91
                                          Row<"\x0F", Arg<SpecialRegister, 5>>         // 0x92
                                          >;

static_assert(MemoryAddressTable::size == 19);

struct MemoryAddressLayout {
  using table = MemoryAddressTable;
  static constexpr int mnemonic_width = 1;
  // A two- or three-wide argument is padded to six places; a five-wide one
  // fills them, and a shorter name in it ends the text.
  static constexpr int min_places = 6;
};

// The operand of a program row: `type` (0 empty, 0x80 + row of
// MemoryAddressTable) and one argument. "L0a", three pads; "$ACCUM";
// "#   42"; the project setting "bpm" after its kind byte, with no pads.
struct MemoryAddress : command::CommandCell<MemoryAddressLayout> {
  static MemoryAddress parse_string(char const* s);
  void format_string(char* buf, size_t len) const;
};

static_assert(command::is_plain_cell<MemoryAddress>);

// ---------------------------------------------------------------------------
// Older forms, for the step readers.

// Older files name the key of an op code column "op_code_midi",
// "op_code_all" or "op_code_mono_sampler". Gives "op_code" for those and
// the key itself for every other.
char const* op_code_key_upgrade(char const* key);

// Older files hold the commands "lmem" and "gmem", which are `stre` in the
// address space L or G. A text beginning with either is rewritten into buf
// as "streL" or "streG" followed by the rest of the text (cut to the 16
// bytes of buf) and buf is returned; any other text is returned as it is.
char const* op_code_text_upgrade(char const* text, char (&buf)[16]);

// The column words of a step line, in the order in which a step reader
// compares the key of a line. A word that the record kind in hand has no
// field for is passed over without a message.
inline constexpr char const* kStepColumnWords[] = {
    "cond_mask",          "note",                 "velocity",          "sustain",
    "transpose",          "break_slice",          "line_disable",      "val_8bit",
    "memory_address",     "op_code_program",      "trigger",           "num_chord_notes",
    "modulator_idx",      "modulator_speed",      "modulator_amplitude", "break_beat_idx",
    "midi_msg",           "aftertouch",           "midi_cc_idx",       "midi_cc",
    "program_change",     "pattern_idx",          "program_idx",       "bpm",
    "midi_pitch",         "pattern_step_idx",     "dummy_arg",         "trigger_condition",
    "percentage",         "val_2bit",             "val_4bit",          "val_6bit",
    "val_7bit",           "address",              "boolean",           "column_idx",
    "table_column_idx",   "op_code",              "op_code_type",      "step_length",
    "patch_idx",          "table_step_jump",      "table_idx",         "memory_address_type",
    "op_code_program_type", "cpu_register",       "immediate_value",   "pos_neg_val7",
    "pos_neg_val8",       "row_idx",              "track_idx",         "break_beat_idx_int",
    "cv_out_port",        "note_column_idx",      "delay_time",        "delay_feedback",
    "delay_mix",          "variable_idx",         "table_trigger_mode", "arith_op",
    "comparison_op",      "func",                 "test_op",           "register_",
    "special_register",   "project_setting",      "ui_start_stop_mode", "address_space",
    "memory_display_format", "project_settings_page", "chiptune_waveform", "os_envelope_page",
    "modulator_waveform", "modulator_output_type", "modulator_mult_type",
};
inline constexpr int kNumStepColumnWords = int(std::size(kStepColumnWords));
static_assert(kNumStepColumnWords == 75);

// Position of a key in kStepColumnWords (exact comparison, first match),
// -1 for a key that is no column word.
int step_column_word_index(char const* key);

}  // namespace kelvane
