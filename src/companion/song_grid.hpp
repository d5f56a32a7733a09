#pragma once
// The song as the tracker's song screen shows it: one row per sequencer
// line, one column per track, the pattern index in each cell.
//
//   line 00  01  02  03  04  05  06  07  08  09  0a  0b  0c  0d  0e  0f
//        MID MON FM  MID MID MID MID MID MID MID MID MID MID MID MID MID
//   00   00  02  ..  ..  ..  ..  ..  ..  ..  ..  ..  ..  ..  ..  ..  ..
//        (3 empty lines)
//   04   01+ 02  ..  ..  ..  ..  ..  ..  ..  ..  ..  ..  ..  ..  ..  ..
//
// A cell is its index as sequencer.txt holds it, ".." when empty and "**"
// for the magic cell; a mark behind it tells what a run does to it. Rows
// with nothing in them fold, two or more at a time. 69 columns at most.

#include "companion/import_words.hpp"
#include "project/project.hpp"

namespace kelvane {

enum class CellMark : char {
  none,
  fresh,        // "+": a cell the import writes
  taken,        // "!": the cell a pattern was meant for is taken
  load_empties, // "!": the file holds it, the load empties it
  save_empties, // "!": the import writes it, the save empties it
};

struct SongView {
  PatternIdx cells[kSequencerLines][kNumTracks];
  CellMark marks[kSequencerLines][kNumTracks];
};

// Clears a view, then copies a sequencer into it.
void song_view_set(SongView& view, PatternIdx const (&sequencer)[kSequencerLines][kNumTracks]);

// The first and last line with a cell or a mark; false if there is none.
bool song_view_range(SongView const& view, int& first, int& last);

// Draws lines `first` to `last` under the heading rows of the project's
// tracks (their numbers and kinds). With `beside`, a row folds only if it
// is empty in both views, so that two drawings of the same lines align.
void draw_song(Project const* p, SongView const& view, int first, int last, Style const& style,
               SongView const* beside = nullptr);

// The line that tells the marks the view shows, from `first` to `last`;
// nothing when it shows none but empty cells.
void draw_marks_legend(SongView const& view, int first, int last, Style const& style);

}  // namespace kelvane
