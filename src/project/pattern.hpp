#pragma once
// Pattern slots: 64 steps of one of nine step kinds, overlaid in one
// fixed-size area, plus the pattern's settings.

#include <cstdint>
#include <filesystem>
#include <tuple>

#include "kelvane/op_code_definition.hpp"
#include "kelvane/types.hpp"
#include "project/step_lines.hpp"
#include "settings/small_records.hpp"

namespace kelvane {

inline constexpr int kStepsPerPattern = 64;

// The step records, one per track type. Members stand in memory order;
// `fields` lists them in the order a pattern file writes them, with their
// keys and column counts.
namespace StepTypes {

struct MIDI {
  Note note[4];
  Velocity velocity[4];
  Sustain sustain[4];
  TableIdx table_idx[8];
  OpCode op_code[5];
  StepLength step_length[1];
  static constexpr auto fields =
      std::tuple{step_field("note", &MIDI::note), step_field("velocity", &MIDI::velocity),
                 step_field("sustain", &MIDI::sustain), step_field("op_code", &MIDI::op_code),
                 step_field("step_length", &MIDI::step_length), step_field("table_idx", &MIDI::table_idx)};
};

struct MonoSampler {
  PatchIdx patch_idx[1];
  Note note[1];
  Velocity velocity[1];
  TableIdx table_idx[8];
  OpCode op_code[6];
  StepLength step_length[1];
  static constexpr auto fields = std::tuple{
      step_field("note", &MonoSampler::note), step_field("velocity", &MonoSampler::velocity),
      step_field("op_code", &MonoSampler::op_code), step_field("step_length", &MonoSampler::step_length),
      step_field("patch_idx", &MonoSampler::patch_idx), step_field("table_idx", &MonoSampler::table_idx)};
};

struct PolySampler {
  PatchIdx patch_idx[1];
  Note note[4];
  Velocity velocity[4];
  Sustain sustain[4];
  TableIdx table_idx[8];
  OpCode op_code[4];
  StepLength step_length[1];
  static constexpr auto fields = std::tuple{
      step_field("note", &PolySampler::note), step_field("velocity", &PolySampler::velocity),
      step_field("sustain", &PolySampler::sustain), step_field("op_code", &PolySampler::op_code),
      step_field("step_length", &PolySampler::step_length), step_field("patch_idx", &PolySampler::patch_idx),
      step_field("table_idx", &PolySampler::table_idx)};
};

struct FMSynth {
  PatchIdx patch_idx[1];
  Note note[3];
  Velocity velocity[3];
  Sustain sustain[3];
  TableIdx table_idx[8];
  OpCode op_code[5];
  StepLength step_length[1];
  static constexpr auto fields =
      std::tuple{step_field("note", &FMSynth::note), step_field("velocity", &FMSynth::velocity),
                 step_field("sustain", &FMSynth::sustain), step_field("op_code", &FMSynth::op_code),
                 step_field("step_length", &FMSynth::step_length), step_field("patch_idx", &FMSynth::patch_idx),
                 step_field("table_idx", &FMSynth::table_idx)};
};

struct BreakBeat {
  Transpose transpose[2];
  BreakSlice break_slice[2];
  Velocity velocity[2];
  BreakBeatIdx break_beat_idx[2];
  TableIdx table_idx[8];
  OpCode op_code[5];
  StepLength step_length[1];
  static constexpr auto fields = std::tuple{
      step_field("velocity", &BreakBeat::velocity), step_field("transpose", &BreakBeat::transpose),
      step_field("break_slice", &BreakBeat::break_slice), step_field("break_beat_idx", &BreakBeat::break_beat_idx),
      step_field("op_code", &BreakBeat::op_code), step_field("step_length", &BreakBeat::step_length),
      step_field("table_idx", &BreakBeat::table_idx)};
};

struct OneShot {
  PatchIdx patch_idx[1];
  Trigger trigger[8];
  Transpose transpose[1];
  Velocity velocity[1];
  TableIdx table_idx[8];
  OpCode op_code[5];
  StepLength step_length[1];
  static constexpr auto fields =
      std::tuple{step_field("velocity", &OneShot::velocity), step_field("transpose", &OneShot::transpose),
                 step_field("trigger", &OneShot::trigger), step_field("op_code", &OneShot::op_code),
                 step_field("step_length", &OneShot::step_length), step_field("patch_idx", &OneShot::patch_idx),
                 step_field("table_idx", &OneShot::table_idx)};
};

struct CVGate {
  Note note[1];
  Velocity velocity[1];
  TableIdx table_idx[6];
  Transpose transpose[2];
  OpCode op_code[7];
  StepLength step_length[1];
  static constexpr auto fields =
      std::tuple{step_field("note", &CVGate::note), step_field("velocity", &CVGate::velocity),
                 step_field("transpose", &CVGate::transpose), step_field("op_code", &CVGate::op_code),
                 step_field("step_length", &CVGate::step_length), step_field("table_idx", &CVGate::table_idx)};
};

struct Graphics {
  PatchIdx patch_idx[1];
  ValueTemplate<255, 0> val_8bit[8];
  TableIdx table_idx[8];
  OpCode op_code[4];
  StepLength step_length[1];
  static constexpr auto fields = std::tuple{
      step_field("val_8bit", &Graphics::val_8bit), step_field("op_code", &Graphics::op_code),
      step_field("step_length", &Graphics::step_length), step_field("patch_idx", &Graphics::patch_idx),
      step_field("table_idx", &Graphics::table_idx)};
};

struct Utility {
  TableIdx table_idx[8];
  OpCode op_code[8];
  StepLength step_length[1];
  static constexpr auto fields =
      std::tuple{step_field("op_code", &Utility::op_code), step_field("step_length", &Utility::step_length),
                 step_field("table_idx", &Utility::table_idx)};
};

}  // namespace StepTypes

// The step arrays of the nine kinds share one area; the pattern's `type`
// says which is live. Bytes beyond the live kind stay zero.
union PatternSteps {
  KVArray<StepTypes::MIDI, kStepsPerPattern> midi;
  KVArray<StepTypes::MonoSampler, kStepsPerPattern> mono_sampler;
  KVArray<StepTypes::PolySampler, kStepsPerPattern> poly_sampler;
  KVArray<StepTypes::FMSynth, kStepsPerPattern> fm_synth;
  KVArray<StepTypes::BreakBeat, kStepsPerPattern> break_beat;
  KVArray<StepTypes::OneShot, kStepsPerPattern> one_shot;
  KVArray<StepTypes::CVGate, kStepsPerPattern> cv_gate;
  KVArray<StepTypes::Graphics, kStepsPerPattern> graphics;
  KVArray<StepTypes::Utility, kStepsPerPattern> utility;
};

struct Pattern {
  PatternSteps steps;
  PatternSettings settings;
  PatternType type;
  uint64_t step_mute;
};

// Calls f with the live step array of a pattern, chosen by its `type`
// (the array of 64 steps of the matching step record). A pattern whose
// type is empty or unknown calls nothing and returns false.
template <class P, class F>
bool pattern_steps_do(P& pattern, F&& f) {
  auto& s = pattern.steps;
  switch (pattern.type.is_empty() ? -1 : pattern.type.index()) {
    case 0: f(s.midi); return true;
    case 1: f(s.mono_sampler); return true;
    case 2: f(s.poly_sampler); return true;
    case 3: f(s.fm_synth); return true;
    case 4: f(s.break_beat); return true;
    case 5: f(s.one_shot); return true;
    case 6: f(s.cv_gate); return true;
    case 7: f(s.graphics); return true;
    case 8: f(s.utility); return true;
    default: return false;
  }
}

// The initial state of a slot: no steps, type MIDI, speed 6, length 64.
void pattern_initialize(Pattern* pattern);

// Writes a pattern file; 1 (after a message) if it cannot be opened.
int project_save_pattern(Pattern* pattern, std::filesystem::path const& file);
// Reads a pattern file; 0 if its "!steps" line was reached, else 1.
int project_load_pattern(Pattern* pattern, std::filesystem::path const& file);
// The same, with what the file gave.
StepFileRead project_read_pattern(Pattern* pattern, std::filesystem::path const& file);

}  // namespace kelvane
