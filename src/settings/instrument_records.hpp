#pragma once
// The records of a track's patches: the instrument parameters and the
// instrument modulation of each track type. Each keeps its members in file
// order and hands them out with `do_it`, like every settings record.
//
// A modulation record repeats one slot of 18 members for each destination
// of the instrument, with keys made of a field name, the byte 0x1A and the
// destination name ("depth" 0x1A "pitch"); the slot is declared once and
// stamped per destination, its keys made at compile time.

#include <cstdint>
#include <tuple>
#include <utility>

#include "kelvane/types.hpp"
#include "settings/dialog.hpp"
#include "settings/records.hpp"

namespace kelvane {

template <int Default>
using D = Depth8Bit<Default>;

// A record without members: one byte that stays zero, so that the
// comparison with the initial state sees it like any other content.
struct EmptyPatchRecord {
  uint8_t zero;

  template <class F>
  void do_it(F&&) {}
};

// The long records hand their members out group by group, in file order:
// f is called once for each group's tuple, which the walkers of the
// framework take like one long list.
template <class F, class... Groups>
void visit_groups(F& f, Groups&&... groups) {
  (std::apply(f, std::forward<Groups>(groups)), ...);
}

// visit_groups over make.template operator()<K>() for K from 0 to N - 1.
template <int N, class F, class Make>
void visit_indexed_groups(F& f, Make&& make) {
  [&]<int... K>(std::integer_sequence<int, K...>) {
    (std::apply(f, make.template operator()<K>()), ...);
  }(std::make_integer_sequence<int, N>{});
}

// ---------------------------------------------------------------------------
// Page selectors of the tracker's dialogs: members of the records' lists,
// but one value for the whole process, not stored per patch. The default
// step of their record sets them to 0.

struct InstrumentParametersMonoSamplerIdx {
  static inline I<0, 3, 0> oscillator;
};
struct InstrumentParametersFMSynthIdx {
  static inline I<0, 7, 0> oscillator;
  static inline I<0, 3, 0> envelope;
};
struct InstrumentParametersOneShotIdx {
  static inline I<0, 7, 0> idx;
};

// ---------------------------------------------------------------------------
// Instrument parameters.

struct InstrumentParametersMIDI {
  V<1, 0> column_override_channel[4];
  I<1, 16, 1> column_channel[4];
  V<1, 0> column_override_port[4];
  I<0, 15, 0> column_port[4];

  template <class F>
  void do_it(F&& f) {
    std::apply(f, std::tuple_cat(indexed_members<4>([this]<int K>() {
                                   return std::tuple{
                                       member(indexed_key<"column_override_channel", K>(), column_override_channel[K]),
                                       member(indexed_key<"column_channel", K>(), column_channel[K])};
                                 }),
                                 indexed_members<4>([this]<int K>() {
                                   return std::tuple{
                                       member(indexed_key<"column_override_port", K>(), column_override_port[K]),
                                       member(indexed_key<"column_port", K>(), column_port[K])};
                                 })));
  }
};

// The oscillators of the sampler instruments: volume, waveform, pulse
// width, transpose and fine tuning of each, one group per oscillator.
template <int N>
struct SamplerOscillators {
  P<0> volume[N];
  ChiptuneWaveform waveform[N];
  P<128> pulse_width[N];
  Transpose osc_transpose[N];
  Finetune osc_finetune[N];

  auto members() {
    return indexed_members<N>([this]<int K>() {
      return std::tuple{member(indexed_key<"volume", K>(), volume[K]),
                        member(indexed_key<"waveform", K>(), waveform[K]),
                        member(indexed_key<"pulse_width", K>(), pulse_width[K]),
                        member(indexed_key<"osc_transpose", K>(), osc_transpose[K]),
                        member(indexed_key<"osc_finetune", K>(), osc_finetune[K])};
    });
  }
};

struct InstrumentParametersMonoSampler {
  KVSamplePath sample_path;
  P<0> sample_start;
  P<255> sample_end;
  V<1, 0> loop_enable;
  Transpose transpose;
  Finetune finetune;
  V<1, 1> interpolation;
  P<128> sample_volume;
  V<1, 0> repitch_to_bpm;
  I<1, 64, 16> sample_length_steps;
  P<255> cutoff;
  P<0> resonance;
  D<128> envelope_depth_filter;
  P<0> highpass_cutoff;
  P<64> volume_pre_filter;
  P<64> volume_post_filter;
  P<0> attack_filter;
  P<0> decay_filter;
  P<255> sustain_filter;
  P<0> release_filter;
  P<0> attack_amp;
  P<0> decay_amp;
  P<255> sustain_amp;
  P<0> release_amp;
  SamplerOscillators<4> oscillators;
  P<0> ringmod01_volume;
  P<0> ringmod23_volume;
  P<16> pwm_speed;
  P<0> pwm_depth;
  P<16> supersaw_detune;

  template <class F>
  void do_it(F&& f) {
    std::apply(
        f, std::tuple_cat(
               std::tuple{member("sample_path", sample_path), member("sample_start", sample_start),
                          member("sample_end", sample_end), member("loop_enable", loop_enable),
                          member("transpose", transpose), member("finetune", finetune),
                          member("interpolation", interpolation), member("sample_volume", sample_volume),
                          member("repitch_to_bpm", repitch_to_bpm),
                          member("sample_length_steps", sample_length_steps), member("cutoff", cutoff),
                          member("resonance", resonance), member("envelope_depth_filter", envelope_depth_filter),
                          member("highpass_cutoff", highpass_cutoff),
                          member("volume_pre_filter", volume_pre_filter),
                          member("volume_post_filter", volume_post_filter), member("attack_filter", attack_filter),
                          member("decay_filter", decay_filter), member("sustain_filter", sustain_filter),
                          member("release_filter", release_filter), member("attack_amp", attack_amp),
                          member("decay_amp", decay_amp), member("sustain_amp", sustain_amp),
                          member("release_amp", release_amp),
                          member("oscillator", InstrumentParametersMonoSamplerIdx::oscillator)},
               oscillators.members(),
               std::tuple{member("ringmod01_volume", ringmod01_volume), member("ringmod23_volume", ringmod23_volume),
                          member("pwm_speed", pwm_speed), member("pwm_depth", pwm_depth),
                          member("supersaw_detune", supersaw_detune)}));
  }
};

struct InstrumentParametersPolySampler {
  KVSamplePath sample_path;
  P<0> sample_start;
  P<255> sample_end;
  V<1, 0> loop_enable;
  Transpose sample_transpose;
  Finetune sample_finetune;
  V<1, 1> interpolation;
  P<128> sample_volume;
  P<255> cutoff;
  P<0> resonance;
  D<128> envelope_depth_filter;
  P<64> volume_pre_filter;
  P<64> volume_post_filter;
  P<16> attack_filter;
  P<96> decay_filter;
  P<32> sustain_filter;
  P<96> release_filter;
  P<0> attack_amp;
  P<0> decay_amp;
  P<255> sustain_amp;
  P<0> release_amp;
  V<1, 0> oscillator;
  SamplerOscillators<2> oscillators;
  P<0> ringmod_volume;
  P<16> pwm_speed;
  P<0> pwm_depth;
  P<16> supersaw_detune;

  template <class F>
  void do_it(F&& f) {
    std::apply(
        f, std::tuple_cat(
               std::tuple{member("sample_path", sample_path), member("sample_start", sample_start),
                          member("sample_end", sample_end), member("loop_enable", loop_enable),
                          member("sample_transpose", sample_transpose), member("sample_finetune", sample_finetune),
                          member("interpolation", interpolation), member("sample_volume", sample_volume),
                          member("cutoff", cutoff), member("resonance", resonance),
                          member("envelope_depth_filter", envelope_depth_filter),
                          member("volume_pre_filter", volume_pre_filter),
                          member("volume_post_filter", volume_post_filter), member("attack_filter", attack_filter),
                          member("decay_filter", decay_filter), member("sustain_filter", sustain_filter),
                          member("release_filter", release_filter), member("attack_amp", attack_amp),
                          member("decay_amp", decay_amp), member("sustain_amp", sustain_amp),
                          member("release_amp", release_amp), member("oscillator", oscillator)},
               oscillators.members(),
               std::tuple{member("ringmod_volume", ringmod_volume), member("pwm_speed", pwm_speed),
                          member("pwm_depth", pwm_depth), member("supersaw_detune", supersaw_detune)}));
  }
};

struct InstrumentParametersFMSynth {
  static constexpr int kOperators = 8;
  static constexpr int kEnvelopes = 4;
  P<0> volume[kOperators];
  V<255, 1> numerator[kOperators];
  V<255, 1> denominator[kOperators];
  Cents detune[kOperators];
  P<0> phase_mod[kOperators][kOperators];
  I<0, 3, 0> env_select[kOperators];
  P<0> attack[kEnvelopes];
  P<0> decay[kEnvelopes];
  P<255> sustain[kEnvelopes];
  P<0> release[kEnvelopes];
  P<255> cutoff;
  P<0> resonance;
  I<0, 3, 1> filter_env_select;
  D<128> envelope_depth_filter;
  P<64> volume_pre_filter;
  P<64> volume_post_filter;
  P<0> ringmod01_volume;
  P<0> ringmod23_volume;
  I<0, 3, 0> ringmod01_env_select;
  I<0, 3, 0> ringmod23_env_select;
  P<0> unison;
  I<0, 8, 0> bitcrush;

  // The first operator sounds in a fresh patch, although its type's
  // default volume is 0.
  static constexpr int kFirstOperatorVolume = 0xD0;

  template <class F>
  void do_it(F&& f) {
    std::apply(
        f,
        std::tuple_cat(
            std::tuple{member("oscillator", InstrumentParametersFMSynthIdx::oscillator)},
            indexed_members<kOperators>([this]<int K>() {
              return std::tuple_cat(
                  std::tuple{member(indexed_key<"volume", K>(), volume[K]),
                             member(indexed_key<"numerator", K>(), numerator[K]),
                             member(indexed_key<"denominator", K>(), denominator[K]),
                             member(indexed_key<"detune", K>(), detune[K])},
                  indexed_members<kOperators>([this]<int J>() {
                    return std::tuple{member(indexed_key<"phase_mod", K, J>(), phase_mod[K][J])};
                  }),
                  std::tuple{member(indexed_key<"env_select", K>(), env_select[K])});
            }),
            std::tuple{member("envelope", InstrumentParametersFMSynthIdx::envelope)},
            indexed_members<kEnvelopes>([this]<int K>() {
              return std::tuple{member(indexed_key<"attack", K>(), attack[K]),
                                member(indexed_key<"decay", K>(), decay[K]),
                                member(indexed_key<"sustain", K>(), sustain[K]),
                                member(indexed_key<"release", K>(), release[K])};
            }),
            std::tuple{member("cutoff", cutoff), member("resonance", resonance),
                       member("filter_env_select", filter_env_select),
                       member("envelope_depth_filter", envelope_depth_filter),
                       member("volume_pre_filter", volume_pre_filter), member("volume_post_filter", volume_post_filter),
                       member("ringmod01_volume", ringmod01_volume), member("ringmod23_volume", ringmod23_volume),
                       member("ringmod01_env_select", ringmod01_env_select),
                       member("ringmod23_env_select", ringmod23_env_select), member("unison", unison),
                       member("bitcrush", bitcrush)}));
  }
};

struct InstrumentParametersBreakBeat {
  P<64> volume_pre_filter;
  P<64> volume_post_filter;
  P<255> cutoff;
  P<0> resonance;
  P<0> highpass_cutoff;
  KVSamplePath sample_path[4];

  template <class F>
  void do_it(F&& f) {
    std::apply(f, std::tuple_cat(std::tuple{member("volume_pre_filter", volume_pre_filter),
                                            member("volume_post_filter", volume_post_filter),
                                            member("cutoff", cutoff), member("resonance", resonance),
                                            member("highpass_cutoff", highpass_cutoff)},
                                 indexed_members<4>([this]<int K>() {
                                   return std::tuple{member(indexed_key<"sample_path", K>(), sample_path[K])};
                                 })));
  }
};

// One of the eight sub-instruments of a OneShot patch.
struct OneShotInstrument {
  V<1, 1> do_transpose;
  V<1, 1> do_velocity;
  StepLength trigger_length;
  KVSamplePath sample_path;
  P<0> sample_start;
  P<255> sample_end;
  V<1, 0> loop_enable;
  Transpose sample_transpose;
  Finetune sample_finetune;
  V<1, 1> interpolation;
  P<128> sample_volume;
  OSEnvelopePage envelope;
  P<0> attack_amp;
  P<0> decay_amp;
  P<255> sustain_amp;
  P<255> release_amp;
  P<0> attack_filter;
  P<0> decay_filter;
  P<255> sustain_filter;
  P<255> release_filter;
  P<0> attack_pitch;
  P<0> decay_pitch;
  P<255> sustain_pitch;
  P<255> release_pitch;
  P<255> cutoff;
  P<0> resonance;
  D<128> envelope_depth_filter;
  P<64> volume_pre_filter;
  P<64> volume_post_filter;
  P<128> panning;
  V<1, 0> send_midi_note;
  Note midi_note;
  I<1, 16, 1> midi_channel;
  I<0, 15, 0> midi_port;
  ProgramIdx trigger_callback;
  ProgramIdx release_callback;

  // The members of sub-instrument K, keys with the index [K]. The envelope
  // page's key has none.
  template <int K>
  auto members() {
    return std::tuple{member(indexed_key<"do_transpose", K>(), do_transpose),
                      member(indexed_key<"do_velocity", K>(), do_velocity),
                      member(indexed_key<"trigger_length", K>(), trigger_length),
                      member(indexed_key<"sample_path", K>(), sample_path),
                      member(indexed_key<"sample_start", K>(), sample_start),
                      member(indexed_key<"sample_end", K>(), sample_end),
                      member(indexed_key<"loop_enable", K>(), loop_enable),
                      member(indexed_key<"sample_transpose", K>(), sample_transpose),
                      member(indexed_key<"sample_finetune", K>(), sample_finetune),
                      member(indexed_key<"interpolation", K>(), interpolation),
                      member(indexed_key<"sample_volume", K>(), sample_volume),
                      member("envelope", envelope),
                      member(indexed_key<"attack_amp", K>(), attack_amp),
                      member(indexed_key<"decay_amp", K>(), decay_amp),
                      member(indexed_key<"sustain_amp", K>(), sustain_amp),
                      member(indexed_key<"release_amp", K>(), release_amp),
                      member(indexed_key<"attack_filter", K>(), attack_filter),
                      member(indexed_key<"decay_filter", K>(), decay_filter),
                      member(indexed_key<"sustain_filter", K>(), sustain_filter),
                      member(indexed_key<"release_filter", K>(), release_filter),
                      member(indexed_key<"attack_pitch", K>(), attack_pitch),
                      member(indexed_key<"decay_pitch", K>(), decay_pitch),
                      member(indexed_key<"sustain_pitch", K>(), sustain_pitch),
                      member(indexed_key<"release_pitch", K>(), release_pitch),
                      member(indexed_key<"cutoff", K>(), cutoff),
                      member(indexed_key<"resonance", K>(), resonance),
                      member(indexed_key<"envelope_depth_filter", K>(), envelope_depth_filter),
                      member(indexed_key<"volume_pre_filter", K>(), volume_pre_filter),
                      member(indexed_key<"volume_post_filter", K>(), volume_post_filter),
                      member(indexed_key<"panning", K>(), panning),
                      member(indexed_key<"send_midi_note", K>(), send_midi_note),
                      member(indexed_key<"midi_note", K>(), midi_note),
                      member(indexed_key<"midi_channel", K>(), midi_channel),
                      member(indexed_key<"midi_port", K>(), midi_port),
                      member(indexed_key<"trigger_callback", K>(), trigger_callback),
                      member(indexed_key<"release_callback", K>(), release_callback)};
  }
};

// The OneShot records write neither the selector `idx` nor the envelope
// page; both are still read.
inline constexpr char const* kOneShotSkippedKeys[] = {"idx", "envelope"};

struct InstrumentParametersOneShot {
  static constexpr int kInstruments = 8;
  static constexpr auto& skipped_keys = kOneShotSkippedKeys;
  OneShotInstrument instruments[kInstruments];

  template <class F>
  void do_it(F&& f) {
    f(member("idx", InstrumentParametersOneShotIdx::idx));
    visit_indexed_groups<kInstruments>(f, [this]<int K>() { return instruments[K].template members<K>(); });
  }
};

struct InstrumentParametersGraphics {
  V<255, 0> shader_idx;
  GraphicsTimeSource time_source;
  ModulatorIdx modulator_idx;
  V<15, 1> fg_color;
  V<15, 0> bg_color;
  KVArray<char, 32> bg_text[4];

  template <class F>
  void do_it(F&& f) {
    std::apply(f, std::tuple_cat(std::tuple{member("shader_idx", shader_idx), member("time_source", time_source),
                                            member("modulator_idx", modulator_idx), member("fg_color", fg_color),
                                            member("bg_color", bg_color)},
                                 indexed_members<4>([this]<int K>() {
                                   return std::tuple{member(indexed_key<"bg_text", K>(), bg_text[K])};
                                 })));
  }
};

struct InstrumentParametersUtility {
  ProgramIdx program_idx[2];
  I<0, 1, 0> audio_input_enable[2];
  P<128> audio_input_volume[2];
  I<0, 15, 0> audio_input_left[2];
  I<0, 15, 0> audio_input_right[2];
  P<0> highpass_cutoff;
  I<0, 1, 0> soft_clipping;

  // The keys of the input channels hold a blank before the bracket: the
  // line then has three words, and the reader never finds the member.
  template <class F>
  void do_it(F&& f) {
    std::apply(f, std::tuple_cat(std::tuple{member("program_idx[0]", program_idx[0]),
                                            member("program_idx[1]", program_idx[1])},
                                 indexed_members<2>([this]<int K>() {
                                   return std::tuple{
                                       member(indexed_key<"audio_input_enable", K>(), audio_input_enable[K]),
                                       member(indexed_key<"audio_input_volume", K>(), audio_input_volume[K]),
                                       member(indexed_key<"audio_input_left ", K>(), audio_input_left[K]),
                                       member(indexed_key<"audio_input_right ", K>(), audio_input_right[K])};
                                 }),
                                 std::tuple{member("highpass_cutoff", highpass_cutoff),
                                            member("soft_clipping", soft_clipping)}));
  }
};

// ---------------------------------------------------------------------------
// Instrument modulation.

// "field[fi]" 0x1A "dest[di]": the key of a modulation member, made at
// compile time. An index below 0 is left out.
template <FixedString Field, int FieldIndex, FixedString Dest, int DestIndex>
struct ModulationKey {
  static constexpr size_t index_length(int i) { return i < 0 ? 0 : i >= 10 ? 4 : 3; }
  static constexpr size_t length = decltype(Field)::size - 1 + index_length(FieldIndex) + 1 +
                                   decltype(Dest)::size - 1 + index_length(DestIndex);
  static constexpr auto make() {
    struct Text {
      char text[length + 1];
    } k{};
    size_t n = 0;
    auto append_text = [&](char const* s, size_t len) {
      for (size_t i = 0; i < len; ++i) k.text[n++] = s[i];
    };
    auto append_index = [&](int index) {
      if (index < 0) return;
      k.text[n++] = '[';
      if (index >= 10) k.text[n++] = char('0' + index / 10);
      k.text[n++] = char('0' + index % 10);
      k.text[n++] = ']';
    };
    append_text(Field.text, decltype(Field)::size - 1);
    append_index(FieldIndex);
    k.text[n++] = '\x1A';
    append_text(Dest.text, decltype(Dest)::size - 1);
    append_index(DestIndex);
    k.text[n] = 0;
    return k;
  }
  static constexpr auto value = make();
};

template <FixedString Field, int FieldIndex, FixedString Dest, int DestIndex>
constexpr char const* modulation_key() {
  static_assert(FieldIndex < 100 && DestIndex < 100);
  return ModulationKey<Field, FieldIndex, Dest, DestIndex>::value.text;
}

// The full slot of a destination: a depth, two sources with all the
// parameters of each, and how the two combine. `Source` is the record's
// own list of sources.
template <class Source>
struct ModulationSlot {
  D<128> depth;
  Source src[2];
  Address mem_address[2];
  ModulatorIdx modulator_idx[2];
  I<0, 15, 0> cv_in[2];
  MidiCC midi_cc[2];
  D<128> constant[2];
  TrackIdx track_idx[2];
  ProgramIdx callback[2];
  ModCombineOp mod_combine_op;

  // The parameters of source S for destination Dest[DestIndex].
  template <FixedString Dest, int DestIndex, int S>
  auto source_members() {
    return std::tuple{member(modulation_key<"mem_address", S, Dest, DestIndex>(), mem_address[S]),
                      member(modulation_key<"modulator_idx", S, Dest, DestIndex>(), modulator_idx[S]),
                      member(modulation_key<"cv_in", S, Dest, DestIndex>(), cv_in[S]),
                      member(modulation_key<"midi_cc", S, Dest, DestIndex>(), midi_cc[S]),
                      member(modulation_key<"constant", S, Dest, DestIndex>(), constant[S]),
                      member(modulation_key<"track_idx", S, Dest, DestIndex>(), track_idx[S]),
                      member(modulation_key<"callback", S, Dest, DestIndex>(), callback[S])};
  }

  // The 18 members for destination Dest, or Dest[DestIndex].
  template <FixedString Dest, int DestIndex = -1>
  auto members() {
    return std::tuple_cat(std::tuple{member(modulation_key<"depth", -1, Dest, DestIndex>(), depth),
                                     member(modulation_key<"src", 0, Dest, DestIndex>(), src[0]),
                                     member(modulation_key<"src", 1, Dest, DestIndex>(), src[1])},
                          source_members<Dest, DestIndex, 0>(), source_members<Dest, DestIndex, 1>(),
                          std::tuple{member(modulation_key<"mod_combine_op", -1, Dest, DestIndex>(), mod_combine_op)});
  }
};

// A destination that only has a depth.
struct ModulationDepth {
  D<128> depth;

  template <FixedString Dest, int DestIndex = -1>
  auto members() {
    return std::tuple{member(modulation_key<"depth", -1, Dest, DestIndex>(), depth)};
  }
};

struct InstrumentModulationBreakBeat {
  using Slot = ModulationSlot<ModulationSourceGlobal>;
  Slot volume[2];
  Slot filter;

  template <class F>
  void do_it(F&& f) {
    visit_groups(f, volume[0].members<"volume", 0>(), volume[1].members<"volume", 1>(),
                 filter.members<"filter">());
  }
};

struct InstrumentModulationMonoSampler {
  using Slot = ModulationSlot<ModulationSourceMonoSampler>;
  Slot pitch;
  Slot filter;
  Slot volume;
  ModulationDepth phase_osc0;
  ModulationDepth phase_osc1;
  ModulationDepth phase_smpl;
  Slot phase;
  ProgramIdx ratio_callback;
  ProgramIdx sample_position_callback;

  template <class F>
  void do_it(F&& f) {
    visit_groups(f, pitch.members<"pitch">(), filter.members<"filter">(), volume.members<"volume">(),
                 phase_osc0.members<"phase_osc0">(), phase_osc1.members<"phase_osc1">(),
                 phase_smpl.members<"phase_smpl">(), phase.members<"phase">(),
                 std::tuple{member("ratio_callback", ratio_callback),
                            member("sample_position_callback", sample_position_callback)});
  }
};

struct InstrumentModulationPolySampler {
  using Slot = ModulationSlot<ModulationSourceSynth>;
  Slot pitch;
  Slot filter;
  Slot filter_stereo;
  ModulationDepth env_rise;
  ModulationDepth env_fall;
  Slot env_time;
  Slot volume;
  Slot panning;
  ModulationDepth phase_osc0;
  ModulationDepth phase_osc1;
  ModulationDepth phase_smpl;
  Slot phase;
  ProgramIdx ratio_callback;
  ProgramIdx sample_position_callback;

  template <class F>
  void do_it(F&& f) {
    visit_groups(f, pitch.members<"pitch">(), filter.members<"filter">(), filter_stereo.members<"filter_stereo">(),
                 env_rise.members<"env_rise">(), env_fall.members<"env_fall">(), env_time.members<"env_time">(),
                 volume.members<"volume">(), panning.members<"panning">(), phase_osc0.members<"phase_osc0">(),
                 phase_osc1.members<"phase_osc1">(), phase_smpl.members<"phase_smpl">(), phase.members<"phase">(),
                 std::tuple{member("ratio_callback", ratio_callback),
                            member("sample_position_callback", sample_position_callback)});
  }
};

struct InstrumentModulationFMSynth {
  using Slot = ModulationSlot<ModulationSourceFMSynth>;
  Slot pitch;
  ModulationDepth env_rise;
  ModulationDepth env_fall;
  Slot env_time;
  Slot sustain[4];
  Slot filter;
  ProgramIdx ratio_callback;

  template <class F>
  void do_it(F&& f) {
    visit_groups(f, pitch.members<"pitch">(), env_rise.members<"env_rise">(), env_fall.members<"env_fall">(),
                 env_time.members<"env_time">());
    visit_indexed_groups<4>(f, [this]<int K>() { return sustain[K].members<"sustain", K>(); });
    visit_groups(f, filter.members<"filter">(), std::tuple{member("ratio_callback", ratio_callback)});
  }
};

// The modulation of one OneShot sub-instrument. Its destination names are
// its own: "phase_osc_0" and "phase_smple", not those of the samplers.
struct OneShotModulation {
  using Slot = ModulationSlot<ModulationSourceOneShot>;
  ModulationDepth phase_osc_0;
  ModulationDepth phase_osc_1;
  ModulationDepth phase_smple;
  Slot phase;
  Slot pitch;
  Slot filter;
  ModulationDepth env_time_amp;
  ModulationDepth env_time_filter;
  ModulationDepth env_time_pitch;
  Slot env_time;
  Slot volume;
  Slot panning;
  ProgramIdx sample_position_callback;

  // The members of sub-instrument K, destinations with the index [K].
  template <int K, class F>
  void visit(F& f) {
    visit_groups(f, phase_osc_0.members<"phase_osc_0", K>(), phase_osc_1.members<"phase_osc_1", K>(),
                 phase_smple.members<"phase_smple", K>(), phase.members<"phase", K>(), pitch.members<"pitch", K>(),
                 filter.members<"filter", K>(), env_time_amp.members<"env_time_amp", K>(),
                 env_time_filter.members<"env_time_filter", K>(), env_time_pitch.members<"env_time_pitch", K>(),
                 env_time.members<"env_time", K>(), volume.members<"volume", K>(), panning.members<"panning", K>(),
                 std::tuple{member(indexed_key<"sample_position_callback", K>(), sample_position_callback)});
  }
};

struct InstrumentModulationOneShot {
  static constexpr int kInstruments = 8;
  static constexpr auto& skipped_keys = kOneShotSkippedKeys;
  OneShotModulation instruments[kInstruments];

  template <class F>
  void do_it(F&& f) {
    f(member("idx", InstrumentParametersOneShotIdx::idx));
    [&]<int... K>(std::integer_sequence<int, K...>) {
      (instruments[K].template visit<K>(f), ...);
    }(std::make_integer_sequence<int, kInstruments>{});
  }
};

// What a fresh patch holds beyond the defaults of its member types.
template <class R>
void patch_record_initial_fixups(R&) {}
inline void patch_record_initial_fixups(InstrumentParametersFMSynth& r) {
  r.volume[0] = P<0>::from_value(InstrumentParametersFMSynth::kFirstOperatorVolume);
}

// A record in its initial state: cleared, its defaults, the fix-ups. This
// also sets the record's page selectors to 0.
template <class R>
void patch_record_initialize(R& record) {
  bytes_clear(record);
  dialog_set_default(record);
  patch_record_initial_fixups(record);
}

// A fresh record of R, to compare a slot with: one per record type, in
// static storage, built anew at each call (which sets the page selectors
// of R to 0, as every default step does). The argument only names the type.
template <class R>
inline R patch_record_fresh_storage;

template <class R>
R const& patch_record_fresh(R const&) {
  patch_record_initialize(patch_record_fresh_storage<R>);
  return patch_record_fresh_storage<R>;
}

}  // namespace kelvane
