#pragma once
// The settings records of a project and of each track. Each record keeps
// its members in file order and hands them out with `do_it`.

#include <tuple>

#include "kelvane/types.hpp"
#include "settings/dialog.hpp"

namespace kelvane {

template <int D>
using P = Param8Bit<D>;
template <int Max, int D>
using V = ValueTemplate<Max, D>;
template <int Min, int Max, int D>
using I = IntSetting<Min, Max, D, 10>;

struct ProjectSettings {
  I<30, 300, 127> bpm;
  ProjectSettingsPage project_settings_page;
  I<0, 300, 25> live_set_length;
  UIStartStopMode live_start_stop;
  I<0, 15, 0> midi_port_in;
  I<1, 16, 1> midi_channel_in;
  V<1, 1> send_midi_clock;
  I<1, 64, 64> pattern_launch_quantization;
  ProgramIdx global_ratio_callback;
  MidiverbAlgo reverb_algorithm;
  P<224> reverb_lowpass_cutoff;
  P<16> reverb_highpass_cutoff;
  P<128> reverb_volume;
  I<1, 47, 18> delay_ticks;
  DelayMode delay_mode;
  P<96> delay_feedback;
  P<32> delay_highpass_cutoff;
  P<224> delay_lowpass_cutoff;
  P<8> delay_feedback_rotation;
  V<1, 1> delay_pingpong;
  P<128> delay_volume;
  P<96> delay_reverb_send;
  P<64> delay_lfo_speed;
  P<16> delay_lfo_depth;
  P<64> compressor_ratio;
  P<128> compressor_attack;
  P<32> compressor_release;
  P<128> compressor_makeup_gain;
  P<128> compressor_threshold;
  P<128> compressor_highpass;
  P<0> compressor_dry_wet;
  V<1, 0> compressor_overlay;
  FuncKey func_key_idx;
  TrackIdx func_key_track_idx[12];
  ProgramIdx func_key_press_program_idx[12];
  ProgramIdx func_key_release_program_idx[12];
  V<1, 0> cv_out_port_enable[8];
  I<0, 15, 7> cv_out_port[8];
  V<1, 0> din_sync_out_enable;
  I<0, 15, 6> din_sync_out_port_clock;
  I<0, 15, 7> din_sync_out_port_reset;
  ModulatorOutputType modulator_cv_output_type[16];
  I<0, 15, 7> modulator_cv_out_port[16];
  TrackIdx midi_note_callback_track_idx;
  TrackIdx midi_cc_callback_track_idx;
  ProgramIdx midi_note_callback;
  ProgramIdx midi_cc_callback;
  I<0, 15, 2> delay_send_input;
  P<0> delay_send_input_volume;
  AudioOutputRouting delay_output_routing;
  I<0, 15, 2> delay_out_L;
  I<0, 15, 3> delay_out_R;
  I<0, 15, 3> reverb_send_input;
  P<0> reverb_send_input_volume;
  AudioOutputRouting reverb_output_routing;
  I<0, 15, 2> reverb_out_L;
  I<0, 15, 3> reverb_out_R;
  Boolean aux_0_to_output;
  I<0, 15, 2> aux_0_out;
  Boolean aux_1_to_output;
  I<0, 15, 3> aux_1_out;
  Boolean force_all_audio_to_master;
  V<1, 0> profiler_overlay;

  template <class F>
  void do_it(F&& f) {
    std::apply(
        f,
        std::tuple_cat(
            std::tuple{member("bpm", bpm), member("project_settings_page", project_settings_page),
                       member("live_set_length", live_set_length),
                       member("live_start_stop", live_start_stop), member("midi_port_in", midi_port_in),
                       member("midi_channel_in", midi_channel_in),
                       member("send_midi_clock", send_midi_clock),
                       member("pattern_launch_quantization", pattern_launch_quantization),
                       member("global_ratio_callback", global_ratio_callback),
                       member("reverb_algorithm", reverb_algorithm),
                       member("reverb_lowpass_cutoff", reverb_lowpass_cutoff),
                       member("reverb_highpass_cutoff", reverb_highpass_cutoff),
                       member("reverb_volume", reverb_volume), member("delay_ticks", delay_ticks),
                       member("delay_mode", delay_mode), member("delay_feedback", delay_feedback),
                       member("delay_highpass_cutoff", delay_highpass_cutoff),
                       member("delay_lowpass_cutoff", delay_lowpass_cutoff),
                       member("delay_feedback_rotation", delay_feedback_rotation),
                       member("delay_pingpong", delay_pingpong), member("delay_volume", delay_volume),
                       member("delay_reverb_send", delay_reverb_send),
                       member("delay_lfo_speed", delay_lfo_speed),
                       member("delay_lfo_depth", delay_lfo_depth),
                       member("compressor_ratio", compressor_ratio),
                       member("compressor_attack", compressor_attack),
                       member("compressor_release", compressor_release),
                       member("compressor_makeup_gain", compressor_makeup_gain),
                       member("compressor_threshold", compressor_threshold),
                       member("compressor_highpass", compressor_highpass),
                       member("compressor_dry_wet", compressor_dry_wet),
                       member("compressor_overlay", compressor_overlay),
                       member("func_key_idx", func_key_idx)},
            indexed_members<12>([this]<int K>() {
              return std::tuple{
                  member(indexed_key<"func_key_track_idx", K>(), func_key_track_idx[K]),
                  member(indexed_key<"func_key_press_program_idx", K>(), func_key_press_program_idx[K]),
                  member(indexed_key<"func_key_release_program_idx", K>(),
                         func_key_release_program_idx[K])};
            }),
            indexed_members<8>([this]<int K>() {
              return std::tuple{member(indexed_key<"cv_out_port_enable", K>(), cv_out_port_enable[K]),
                                member(indexed_key<"cv_out_port", K>(), cv_out_port[K])};
            }),
            std::tuple{member("din_sync_out_enable", din_sync_out_enable),
                       member("din_sync_out_port_clock", din_sync_out_port_clock),
                       member("din_sync_out_port_reset", din_sync_out_port_reset)},
            indexed_members<16>([this]<int K>() {
              return std::tuple{
                  member(indexed_key<"modulator_cv_output_type", K>(), modulator_cv_output_type[K]),
                  member(indexed_key<"modulator_cv_out_port", K>(), modulator_cv_out_port[K])};
            }),
            std::tuple{member("midi_note_callback_track_idx", midi_note_callback_track_idx),
                       member("midi_cc_callback_track_idx", midi_cc_callback_track_idx),
                       member("midi_note_callback", midi_note_callback),
                       member("midi_cc_callback", midi_cc_callback),
                       member("delay_send_input", delay_send_input),
                       member("delay_send_input_volume", delay_send_input_volume),
                       member("delay_output_routing", delay_output_routing),
                       member("delay_out_L", delay_out_L), member("delay_out_R", delay_out_R),
                       member("reverb_send_input", reverb_send_input),
                       member("reverb_send_input_volume", reverb_send_input_volume),
                       member("reverb_output_routing", reverb_output_routing),
                       member("reverb_out_L", reverb_out_L), member("reverb_out_R", reverb_out_R),
                       member("aux_0_to_output", aux_0_to_output), member("aux_0_out", aux_0_out),
                       member("aux_1_to_output", aux_1_to_output), member("aux_1_out", aux_1_out),
                       member("force_all_audio_to_master", force_all_audio_to_master),
                       member("profiler_overlay", profiler_overlay)}));
  }
};

struct TrackSettings {
  PatternType type;
  KVArray<char, 32> name;
  AudioOutputRouting audio_out_routing;
  I<0, 15, 2> audio_out_L;
  I<0, 15, 3> audio_out_R;
  I<0, 15, 0> midi_port_out;
  I<1, 16, 1> midi_channel;
  V<1, 0> send_midi_notes;
  I<0, 15, 2> cv_out;
  I<0, 15, 2> gate_out;
  KVArray<V<4095, 2048>, 3> cv_scale;
  KVArray<V<4095, 2048>, 3> cv_offset;
  KVArray<V<15, 2>, 2> cv_out_transpose;
  KVArray<V<1, 0>, 2> cv_out_transpose_enable;
  V<1, 1> pitch_track_volume;
  V<1, 0> output_filter_envelope;
  I<0, 15, 4> filter_env_out;
  KVArray<P<128>, 8> per_voice_parameter;

  template <class F>
  void do_it(F&& f) {
    f(member("type", type), member("name", name), member("audio_out_routing", audio_out_routing),
      member("audio_out_L", audio_out_L), member("audio_out_R", audio_out_R),
      member("midi_port_out", midi_port_out), member("midi_channel", midi_channel),
      member("send_midi_notes", send_midi_notes), member("cv_out", cv_out),
      member("gate_out", gate_out), member("cv_scale", cv_scale), member("cv_offset", cv_offset),
      member("cv_out_transpose", cv_out_transpose),
      member("cv_out_transpose_enable", cv_out_transpose_enable),
      member("pitch_track_volume", pitch_track_volume),
      member("output_filter_envelope", output_filter_envelope),
      member("filter_env_out", filter_env_out), member("per_voice_parameter", per_voice_parameter));
  }
};

struct TrackCallbacks {
  ProgramIdx clock_tick;
  ProgramIdx ratio;
  ProgramIdx pattern_start_callback;
  ProgramIdx pattern_stop_callback;
  ProgramIdx project_load_callback;
  ProgramIdx sequencer_start_callback;
  ProgramIdx sequencer_stop_callback;

  template <class F>
  void do_it(F&& f) {
    f(member("clock_tick", clock_tick), member("ratio", ratio),
      member("pattern_start_callback", pattern_start_callback),
      member("pattern_stop_callback", pattern_stop_callback),
      member("project_load_callback", project_load_callback),
      member("sequencer_start_callback", sequencer_start_callback),
      member("sequencer_stop_callback", sequencer_stop_callback));
  }
};

struct MixSettings {
  P<128> volume;
  P<0> reverb_send;
  P<0> delay_send;
  P<0> aux_send[2];

  template <class F>
  void do_it(F&& f) {
    f(member("volume", volume), member("reverb_send", reverb_send), member("delay_send", delay_send),
      member("aux_send[0]", aux_send[0]), member("aux_send[1]", aux_send[1]));
  }
};

struct MixModulationMapping {
  ProgramIdx volume_callback;
  ProgramIdx reverb_send_callback;
  ProgramIdx delay_send_callback;
  ProgramIdx aux_send_callback[2];

  template <class F>
  void do_it(F&& f) {
    f(member("volume_callback", volume_callback), member("reverb_send_callback", reverb_send_callback),
      member("delay_send_callback", delay_send_callback),
      member("aux_send_callback[0]", aux_send_callback[0]),
      member("aux_send_callback[1]", aux_send_callback[1]));
  }
};

}  // namespace kelvane
