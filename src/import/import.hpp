#pragma once
// The import engine: copies a source pattern into the target project and
// brings along, depth first, everything it refers to, reusing what the
// target already has and rewriting every index. All its state lives for the
// whole run: a source thing imported once is not imported again.

#include "project/project.hpp"

namespace kelvane {

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

}  // namespace kelvane
