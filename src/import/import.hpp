#pragma once
// The import engine: copies a source pattern into the target project and
// brings along, depth first, everything it refers to, reusing what the
// target already has and rewriting every index. All its state lives for the
// whole run: a source thing imported once is not imported again.

#include "project/project.hpp"

namespace kelvane {

// What the engine and the driver do, told as it happens to an observer (a
// preview keeps a record of it). Every result line printed is one event.
enum class ImportOutcome : char {
  started,    // the loads are done, the import begins
  importing,  // the driver brings source pattern `from` over
  requested,  // a pattern, table or program is requested (`label` its kind)
  created,    // a new slot or entry of the target holds source `from`
  reused,     // target `to`, equal or matched, stands for source `from`
  repeated,   // the second result line of a reused patch or FX patch
  no_room,    // the target had none: the reference names `to` instead
  placed,     // `to` is stored at `line` of the sequencer column `track`
  dropped,    // target pattern `to` (-1: not imported) finds no cell
};

struct ImportEvent {
  ImportOutcome outcome;
  char const* label;  // "PatternIdx", "TableIdx", ... or a kind word
  int from;
  int to;
  int track;  // the target track of a patch or a sequencer cell, else -1
  int line;   // the sequencer line of a placement, else -1
};

// An observer hears of each outcome before the engine prints its line or
// message about it. A program for which a no_room ends its run may leave
// the import there by throwing: the engine's own words are not printed, and
// its open requests unwind.
using ImportObserver = void (*)(ImportEvent const&);

// Sets the observer (nullptr: none) and returns the one before.
ImportObserver set_import_observer(ImportObserver observer);

// Tells the observer, if there is one.
void import_notify(ImportEvent const& event);

// Forgets everything imported so far, for a program that carries out more
// than one run in a process. A run that left by a run end handler has
// unwound its open requests already.
void import_reset();

// Seeds the chord memory and program variable maps with the entries the
// target already holds, and prints a line for each match.
void import_prematch(Project const* src, Project const* tgt);

// Brings source pattern `pattern_idx` into the target and returns its
// target index. `track_src` may be -1: no source track is known.
int import_pattern(Project* tgt, Project const* src, int track_tgt, int track_src, int pattern_idx);

// Brings patch `patch_idx` of source track `track_src`, with the programs
// it calls, into target track `track_tgt`: an equal slot is reused, else
// the first free slot from 1 on is taken. Returns the slot; -1 when the
// target track has none free (a reference would name patch 0); the index
// itself when a track number is negative. The result line of a reused
// patch is printed twice.
int import_patch(Project* tgt, Project const* src, int track_tgt, int track_src, int patch_idx);

// Brings FX patch `fx_patch_idx`, with the program its callback calls,
// into the target: an equal slot is reused, else the first free slot is
// taken. A target without one ends the run with status 1. The track
// numbers serve the patch references of the programs it brings.
int import_fx_patch(Project* tgt, Project const* src, int track_tgt, int track_src, int fx_patch_idx);

}  // namespace kelvane
