#pragma once
// A track's patch memory: 64 slots of the parameter record and the
// modulation record of the track's type, and 64 names. The block has one
// fixed size for all types, the records of the nine types overlaid; the
// track's type says which is live.

#include <filesystem>

#include "kelvane/types.hpp"
#include "settings/instrument_records.hpp"

namespace kelvane {

inline constexpr int kPatchSlots = 64;

using PatchName = KVArray<char, 32>;

union PatchParameters {
  InstrumentParametersMIDI midi[kPatchSlots];
  InstrumentParametersMonoSampler mono_sampler[kPatchSlots];
  InstrumentParametersPolySampler poly_sampler[kPatchSlots];
  InstrumentParametersFMSynth fm_synth[kPatchSlots];
  InstrumentParametersBreakBeat break_beat[kPatchSlots];
  InstrumentParametersOneShot one_shot[kPatchSlots];
  EmptyPatchRecord cv_gate[kPatchSlots];
  InstrumentParametersGraphics graphics[kPatchSlots];
  InstrumentParametersUtility utility[kPatchSlots];
};

union PatchModulation {
  EmptyPatchRecord midi[kPatchSlots];
  InstrumentModulationMonoSampler mono_sampler[kPatchSlots];
  InstrumentModulationPolySampler poly_sampler[kPatchSlots];
  InstrumentModulationFMSynth fm_synth[kPatchSlots];
  InstrumentModulationBreakBeat break_beat[kPatchSlots];
  InstrumentModulationOneShot one_shot[kPatchSlots];
  EmptyPatchRecord cv_gate[kPatchSlots];
  EmptyPatchRecord graphics[kPatchSlots];
  EmptyPatchRecord utility[kPatchSlots];
};

// The modulation stands behind the space of the largest parameter array,
// at the same place for every type; the names come last.
struct TrackPatchMemory {
  PatchParameters parameters;
  PatchModulation modulation;
  PatchName names[kPatchSlots];
};

// Calls f(parameters, modulation) with the slot arrays of a track type
// (0..8, the index of its PatternType). This is the one place that knows
// which records a type has.
template <class M, class F>
void patch_memory_do(M& memory, int type, F&& f) {
  auto& p = memory.parameters;
  auto& m = memory.modulation;
  switch (type) {
    case 0: f(p.midi, m.midi); break;
    case 1: f(p.mono_sampler, m.mono_sampler); break;
    case 2: f(p.poly_sampler, m.poly_sampler); break;
    case 3: f(p.fm_synth, m.fm_synth); break;
    case 4: f(p.break_beat, m.break_beat); break;
    case 5: f(p.one_shot, m.one_shot); break;
    case 6: f(p.cv_gate, m.cv_gate); break;
    case 7: f(p.graphics, m.graphics); break;
    case 8: f(p.utility, m.utility); break;
    default: break;
  }
}

}  // namespace kelvane
