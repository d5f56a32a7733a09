#include "companion/song_grid.hpp"

#include <cstdio>
#include <cstring>
#include <string>

namespace kelvane {

namespace {

// The kinds in three letters, so that sixteen columns fit a terminal.
std::string short_kind(PatternType t) {
  static constexpr char const* kShort[] = {"MID", "MON", "POL", "FM", "BRK", "ONE", "CV", "GFX", "UTL"};
  std::string const name = type_name(t);
  for (size_t i = 0; i < std::size(kShort); ++i)
    if (name == PatternType::names[i]) return kShort[i];
  return "?";
}

std::string cell_text(PatternIdx cell) {
  if (cell.is_empty()) return "..";
  if (cell.is_magic()) return "**";
  return zz(cell.value());
}

// Each cell takes four places: its two characters, its mark, a blank.
std::string cell_column(PatternIdx cell, CellMark mark, Style const& style) {
  switch (mark) {
    case CellMark::none: return cell_text(cell) + "  ";
    case CellMark::fresh: return style.fresh(cell_text(cell) + "+") + " ";
    default: return style.problem(cell_text(cell) + "!") + " ";
  }
}

std::string trimmed(std::string s) {
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

bool row_is_blank(SongView const& view, int line) {
  for (int t = 0; t < kNumTracks; ++t)
    if (!view.cells[line][t].is_empty() || view.marks[line][t] != CellMark::none) return false;
  return true;
}

// Rows begin with the line in hex and three blanks.
constexpr char kRowIndent[] = "     ";

}  // namespace

void song_view_set(SongView& view, PatternIdx const (&sequencer)[kSequencerLines][kNumTracks]) {
  bytes_clear(view);
  std::memcpy(view.cells, sequencer, sizeof view.cells);
}

bool song_view_range(SongView const& view, int& first, int& last) {
  first = -1;
  last = -1;
  for (int l = 0; l < kSequencerLines; ++l) {
    if (row_is_blank(view, l)) continue;
    if (first < 0) first = l;
    last = l;
  }
  return first >= 0;
}

void draw_song(Project const* p, SongView const& view, int first, int last, Style const& style,
               SongView const* beside) {
  auto blank = [&](int line) { return row_is_blank(view, line) && (!beside || row_is_blank(*beside, line)); };
  std::string numbers = "line ";
  std::string kinds = kRowIndent;
  for (int t = 0; t < kNumTracks; ++t) {
    numbers += hex2(t) + "  ";
    std::string kind = short_kind(p->track_settings[t].type);
    kind.resize(4, ' ');
    kinds += kind;
  }
  std::printf("%s\n%s\n", style.heading(trimmed(numbers)).c_str(), style.heading(trimmed(kinds)).c_str());
  for (int l = first; l <= last;) {
    int empty = 0;
    while (l + empty <= last && blank(l + empty)) ++empty;
    if (empty >= 2) {
      std::printf("%s(%d empty lines)\n", kRowIndent, empty);
      l += empty;
      continue;
    }
    std::string row = hex2(l) + "   ";
    for (int t = 0; t < kNumTracks; ++t) row += cell_column(view.cells[l][t], view.marks[l][t], style);
    std::printf("%s\n", trimmed(row).c_str());
    ++l;
  }
}

void draw_marks_legend(SongView const& view, int first, int last, Style const& style) {
  bool seen[5] = {};
  bool magic = false;
  for (int l = first; l <= last; ++l)
    for (int t = 0; t < kNumTracks; ++t) {
      seen[int(view.marks[l][t])] = true;
      magic = magic || view.cells[l][t].is_magic();
    }
  std::string legend;
  auto add = [&](std::string const& item) { legend += (legend.empty() ? "" : ", ") + item; };
  if (magic) add("** magic cell");
  if (seen[int(CellMark::fresh)]) add(style.fresh("+") + " new cell");
  if (seen[int(CellMark::taken)]) add(style.problem("!") + " taken: the pattern meant for it finds no room");
  if (seen[int(CellMark::load_empties)]) add(style.problem("!") + " the load empties it");
  if (seen[int(CellMark::save_empties)]) add(style.problem("!") + " the save empties it");
  if (!legend.empty()) std::printf("marks: .. empty, %s\n", legend.c_str());
}

}  // namespace kelvane
