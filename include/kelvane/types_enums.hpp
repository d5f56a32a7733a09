#pragma once
// Named enumerations: cells that hold one name out of a fixed list and are
// written as that name. Each enumeration is a plain table of constant
// strings; one generic piece of code reads and writes all of them.

#include "kelvane/types_cells.hpp"

namespace kelvane {

// Stored 0 is empty, entry i is stored with its sign bit flipped (0x80 + i
// in a byte cell). Derived gives `names`, the table in index order.
template <class Derived, class Rep = signed char>
struct Enumeration {
  using rep_type = Rep;
  Rep stored;

  constexpr bool is_empty() const { return stored == 0; }
  constexpr int index() const { return cell_decode<Rep>(stored); }

  static constexpr int count() { return int(sizeof(Derived::names) / sizeof(Derived::names[0])); }

  static constexpr Derived from_index(int i) {
    Derived d{};
    d.stored = cell_encode<Rep>(i);
    return d;
  }
  static constexpr Derived empty_cell() { return Derived{}; }

  // The text of an index, or null for an index outside the table.
  static constexpr char const* name_of(int i) { return i >= 0 && i < count() ? Derived::names[i] : nullptr; }

  // Exact comparison with the entries in index order; the first equal entry
  // wins. An unknown text gives the empty cell.
  static Derived parse_string(char const* text) {
    for (int i = 0; i < count(); ++i)
      if (std::strcmp(text, Derived::names[i]) == 0) return from_index(i);
    return empty_cell();
  }
};

struct PatternType : Enumeration<PatternType, int> {
  static constexpr char const* names[] = {"MIDI",    "MonoSampler", "PolySampler",
                                          "FMSynth", "BreakBeat",   "OneShot",
                                          "CVGate",  "Graphics",    "Utility"};
  static char const* to_string(PatternType t) {
    char const* s = name_of(t.index());
    if (!s) KELVANE_TYPES_ASSERT(!"not implemented");
    return s;
  }
};

}  // namespace kelvane
