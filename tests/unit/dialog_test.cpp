#include <gtest/gtest.h>

#include "settings_text.hpp"

#include <random>
#include <string>

#include "settings/dialog.hpp"

using namespace kelvane;
using namespace kelvane::testing_support;

namespace {

// A record with one member of each kind the framework knows by itself.
struct TestRecord {
  Param8Bit<224> cutoff;
  KVArray<char, 32> name;
  Action separator;
  ProgramIdx start_callback;
  TrackIdx track;
  IntSetting<0, 15, 7, 10> port;
  Boolean flag;
  ValueTemplate<1, 1> enable;
  KVArray<ValueTemplate<4095, 2048>, 3> cv_scale;
  KVArray<IntSetting<0, 255, 128, 10>, 8> per_voice_parameter;
  PatternType type;
  KVSamplePath sample;
  ProgramIdx midi_note_callback;
  ProgramIdx also_start;  // answers the same key as start_callback

  template <class F>
  void do_it(F&& f) {
    f(member("cutoff", cutoff), member("name", name), member("separator", separator),
      member("start_callback", start_callback), member("track", track), member("port", port),
      member("flag", flag), member("enable", enable), member("cv_scale", cv_scale),
      member("per_voice_parameter", per_voice_parameter), member("type", type),
      member("sample", sample), member("midi_note_callback", midi_note_callback),
      member("start_callback", also_start));
  }
};

// A record whose writer leaves out two keys.
struct SkippingRecord {
  Param8Bit<1> idx;
  Param8Bit<2> envelope;
  Param8Bit<3> level;
  static constexpr char const* skipped_keys[] = {"idx", "envelope"};
  template <class F>
  void do_it(F&& f) {
    f(member("idx", idx), member("envelope", envelope), member("level", level));
  }
};

struct Osc {
  IntSetting<0, 99, 0, 10> osc_finetune_0;
  IntSetting<0, 99, 0, 10> osc_transpose_3;
  template <class F>
  void do_it(F&& f) {
    f(member("osc_finetune[0]", osc_finetune_0), member("osc_transpose[3]", osc_transpose_3));
  }
};

struct Mod {
  Depth8Bit<128> depth_pitch;
  template <class F>
  void do_it(F&& f) {
    f(member("depth\x1apitch", depth_pitch));
  }
};

std::string escaped(std::string const& in, int limit) {
  char out[kEscapedTextSize];
  escape_setting_text(in.c_str(), out, limit);
  return out;
}

std::string unescaped(std::string const& in) {
  char out[kEscapedTextSize];
  unescape_setting_text(in.c_str(), out);
  return out;
}

}  // namespace

TEST(DialogEscape, Rules) {
  EXPECT_EQ(escaped("", 127), "");
  EXPECT_EQ(escaped("a b\\", 8191), "a\\x20b\\x5c");
  EXPECT_EQ(escaped("\t\xf9\x04~", 127), "\\x09\\xf9\\x04~");
  EXPECT_EQ(escaped("1.6s medium bright", 127), "1.6s\\x20medium\\x20bright");
}

TEST(DialogEscape, Limits) {
  std::string const blanks(200, ' ');
  std::string all;
  for (int i = 0; i < 200; ++i) all += "\\x20";
  EXPECT_EQ(escaped(blanks, 8191), all);
  EXPECT_EQ(escaped(blanks, 127), all.substr(0, 124));
  // Plain bytes run up to the limit itself.
  std::string const letters(300, 'a');
  EXPECT_EQ(escaped(letters, 127), letters.substr(0, 127));
  EXPECT_EQ(escaped(std::string(125, 'a') + " ", 127), std::string(125, 'a'));
  EXPECT_EQ(escaped(std::string(122, 'a') + " ", 127), std::string(122, 'a') + "\\x20");
}

TEST(DialogUnescape, Rules) {
  EXPECT_EQ(unescaped("a\\x20b\\x5c"), "a b\\");
  EXPECT_EQ(unescaped("\\xf9\\xF9"), "\xf9\xf9");
  EXPECT_EQ(unescaped("ab\\q cd"), "ab cd");       // backslash and its byte are dropped
  EXPECT_EQ(unescaped("ab\\x2"), "ab");            // short escape ends the text
  EXPECT_EQ(unescaped("ab\\"), "ab");              // lone trailing backslash
  EXPECT_EQ(unescaped("x\\x00yz"), "x");           // a zero byte cuts the text
  EXPECT_EQ(unescaped("\\xzz"), "");  // decodes to a zero byte
  EXPECT_EQ(unescaped("\\x5zq"), "\x05q");
  std::string const long_text(9000, 'a');
  EXPECT_EQ(unescaped(long_text).size(), 8191u);
}

TEST(DialogUnescape, RandomBytesStayInsideTheBuffers) {
  std::mt19937 rng(12345);
  for (int round = 0; round < 2000; ++round) {
    std::string s(rng() % 1100, '\0');
    for (char& c : s) {
      c = char(rng() % 256);
      if (c == 0) c = '\\';
    }
    char out[kEscapedTextSize];
    unescape_setting_text(s.c_str(), out);
    char esc[kEscapedTextSize];
    escape_setting_text(out, esc, kValueEscapeLimit);
    ASSERT_LE(std::strlen(esc), size_t(kValueEscapeLimit));
    escape_setting_text(out, esc, kTextEscapeLimit);
    // Reading a random line never fails visibly.
    TestRecord r = fresh<TestRecord>();
    read_text(r, s);
    std::string const cut = s.substr(0, s.size() / 2);
    read_text(r, "name " + cut + "\ncutoff " + cut + "\ncv_scale " + cut + "\n");
  }
}

TEST(DialogWrite, DefaultsAndEmptyTexts) {
  TestRecord r = fresh<TestRecord>();
  r.cutoff = Param8Bit<224>::from_value(0xF5);
  EXPECT_EQ(written(r),
            "cutoff f5\n"
            "name \n"
            "start_callback \\xf9\\xf9\n"
            "track 0\n"
            "port 7\n"
            "flag 0\n"
            "enable 1\n"
            "cv_scale [0]=2048\n"
            "cv_scale [1]=2048\n"
            "cv_scale [2]=2048\n"
            "per_voice_parameter [0]=128\nper_voice_parameter [1]=128\nper_voice_parameter [2]=128\n"
            "per_voice_parameter [3]=128\nper_voice_parameter [4]=128\nper_voice_parameter [5]=128\n"
            "per_voice_parameter [6]=128\nper_voice_parameter [7]=128\n"
            "type MIDI\n"
            "sample \n"
            "midi_note_callback \\xf9\\xf9\n"
            "start_callback \\xf9\\xf9\n");
  TestRecord e;
  bytes_clear(e);
  std::string const empties = written(e);
  EXPECT_NE(empties.find("cutoff \\xf9\\xf9\n"), std::string::npos);
  EXPECT_NE(empties.find("track \\xf9\n"), std::string::npos);
  EXPECT_NE(empties.find("port \\xfa\n"), std::string::npos);
  EXPECT_NE(empties.find("flag \\xf9\n"), std::string::npos);
  EXPECT_NE(empties.find("cv_scale [0]=-2147483648\n"), std::string::npos);
}

TEST(DialogRead, EmptyCellsComeBackAsDefaults) {
  TestRecord e;
  bytes_clear(e);
  e.track = TrackIdx::empty_cell();
  std::string const text = written(e);
  TestRecord r = fresh<TestRecord>();
  read_text(r, text);
  EXPECT_EQ(r.cutoff.value(), 224);
  EXPECT_EQ(r.port.value(), 7);
  EXPECT_EQ(r.flag.value(), 0);
  EXPECT_EQ(r.cv_scale[0].value(), 2048);
  // Program and track indexes stay empty.
  EXPECT_TRUE(r.start_callback.is_empty());
  EXPECT_TRUE(r.track.is_empty());
}

TEST(DialogRead, NumbersAndBadValues) {
  TestRecord r = fresh<TestRecord>();
  read_text(r, "port 16\nflag \\xf9\nenable 5\n");
  EXPECT_EQ(r.port.value(), 7);
  EXPECT_EQ(r.flag.value(), 0);
  EXPECT_EQ(r.enable.value(), 1);
  read_text(r, "port 3\nflag 1\nenable 0\n");
  EXPECT_EQ(r.port.value(), 3);
  EXPECT_EQ(r.flag.value(), 1);
  EXPECT_EQ(r.enable.value(), 0);
  read_text(r, "port -1\nport \\xfa\n");
  EXPECT_EQ(r.port.value(), 7);
  read_text(r, "port 3\nport \\xfa\n");
  EXPECT_EQ(r.port.value(), 3);
  read_text(r, "flag \\xf9\n");
  EXPECT_EQ(r.flag.value(), 1);
}

TEST(DialogRead, ProgramIdxTexts) {
  TestRecord r = fresh<TestRecord>();
  for (char const* text : {"\\x04\\x04", "\\xf9", "\\xf9\\xf9", "zzz"}) {
    r.midi_note_callback = ProgramIdx::from_value(5);
    read_text(r, std::string("midi_note_callback ") + text + "\n");
    EXPECT_TRUE(r.midi_note_callback.is_empty()) << text;
  }
  read_text(r, "midi_note_callback zz\n");
  EXPECT_EQ(r.midi_note_callback.value(), 1295);
}

TEST(DialogRead, TrackIdxTexts) {
  TestRecord r = fresh<TestRecord>();
  read_text(r, "track \\x04\n");
  EXPECT_EQ(r.track.stored, 1);
  read_text(r, "track f\n");
  EXPECT_EQ(r.track.value(), 15);
  read_text(r, "track 10\n");
  EXPECT_EQ(r.track.value(), 0);
  EXPECT_EQ(r.track.stored, (signed char)0x80);
  read_text(r, "track \\xf9\n");
  EXPECT_TRUE(r.track.is_empty());
}

TEST(DialogRead, NameRoundTrip) {
  TestRecord r = fresh<TestRecord>();
  std::memcpy(r.name.data, "a b\\", 4);
  std::string const text = written(r);
  EXPECT_NE(text.find("name a\\x20b\\x5c\n"), std::string::npos);
  TestRecord back = fresh<TestRecord>();
  read_text(back, text);
  EXPECT_EQ(std::string(back.name.data), "a b\\");
  // Longer texts fill the array without a terminator; shorter ones leave
  // the tail of an older value.
  read_text(back, "name " + std::string(40, 'x') + "\n");
  EXPECT_EQ(std::string(back.name.data, 32), std::string(32, 'x'));
  read_text(back, "name ab\n");
  EXPECT_EQ(std::string(back.name.data, 4), "abxx");
}

TEST(DialogRead, ReplacementsAndOrder) {
  TestRecord r = fresh<TestRecord>();
  read_text(r, "callback_start 0a\n");
  EXPECT_EQ(r.start_callback.value(), 10);
  // Both members that answer the key are set.
  EXPECT_EQ(r.also_start.value(), 10);
  read_text(r, "start_callback 01\ncallback_start 02\n");
  EXPECT_EQ(r.start_callback.value(), 2);
  read_text(r, "callback_start 02\nstart_callback 01\n");
  EXPECT_EQ(r.start_callback.value(), 1);
  read_text(r, "midi_note_callback_program_idx 0a\n");
  EXPECT_EQ(r.midi_note_callback.value(), 10);
  EXPECT_NE(written(r).find("midi_note_callback 0a\n"), std::string::npos);
}

TEST(DialogRead, LinesWithOneFieldAndUnknownKeys) {
  TestRecord r = fresh<TestRecord>();
  TestRecord const before = r;
  read_text(r, "cutoff\n\n#version 1\nunknown 12\n   \nname \n");
  EXPECT_TRUE(bytes_equal(r, before));
}

TEST(DialogRead, ArrayMessages) {
  TestRecord r = fresh<TestRecord>();
  testing::internal::CaptureStderr();
  read_text(r, "cv_scale [3]=1\ncv_scale 2048\ncv_scale [0]=5000\nper_voice_parameter [7]=300\n"
               "cv_scale [-1]=5\ncv_scale [1]=7\ncv_scale \\x5b2]=9\n");
  std::string const err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(err,
            "found incorrect array index 3 at cv_scale [3]=1\n"
            "error parsing array value: cv_scale 2048\n"
            "found incorrect array index -1 at cv_scale [-1]=5\n"
            "error parsing array value: cv_scale \\x5b2]=9\n");
  EXPECT_EQ(r.cv_scale[0].value(), 2048);
  EXPECT_EQ(r.cv_scale[1].value(), 7);
  EXPECT_EQ(r.per_voice_parameter[7].value(), 128);
}

namespace {
struct ReverbRecord {
  MidiverbAlgo reverb_algorithm;
  ModCombineOp combine;
  template <class F>
  void do_it(F&& f) {
    f(member("reverb_algorithm", reverb_algorithm), member("combine", combine));
  }
};
}  // namespace

TEST(DialogRead, DuplicateNamesComeBackAsTheFirstRow) {
  auto r = fresh<ReverbRecord>();
  EXPECT_EQ(r.reverb_algorithm.index(), 23);
  for (auto [written_index, read_index] : {std::pair{127, 63}, {81, 77}, {63, 63}, {100, 100}}) {
    r.reverb_algorithm = MidiverbAlgo::from_index(written_index);
    std::string const text = written(r);
    auto back = fresh<ReverbRecord>();
    read_text(back, text);
    EXPECT_EQ(back.reverb_algorithm.index(), read_index) << text;
  }
  r.reverb_algorithm = MidiverbAlgo::from_index(81);
  std::string const line = "reverb_algorithm echo\\x20short\\x20\\x20flat\n";
  EXPECT_EQ(written(r).substr(0, line.size()), line);
}

TEST(DialogRead, EnumerationEmptyTextsKeepTheDefault) {
  ReverbRecord e;
  bytes_clear(e);
  std::string const text = written(e);
  EXPECT_NE(text.find("combine \\xb0\\xb0\\xb0\\xb0\\xb0\\xb0\\xb0\\xb0\n"), std::string::npos);
  auto back = fresh<ReverbRecord>();
  back.combine = ModCombineOp::from_index(3);
  read_text(back, text);
  EXPECT_EQ(back.combine.index(), 3);
  EXPECT_EQ(back.reverb_algorithm.index(), 23);
}

namespace {
// One member of each musical type that settings records hold.
struct MusicRecord {
  Transpose transpose;
  Finetune finetune;
  Cents cents;
  Note note;
  ChiptuneWaveform waveform;
  ModulationSourceSynth source;
  AudioOutputRouting routing;
  OSEnvelopePage envelope;
  template <class F>
  void do_it(F&& f) {
    f(member("transpose", transpose), member("finetune", finetune), member("cents", cents),
      member("note", note), member("waveform", waveform), member("source", source),
      member("routing", routing), member("envelope", envelope));
  }
};
}  // namespace

std::string repeat(std::string const& text, int times) {
  std::string out;
  for (int i = 0; i < times; ++i) out += text;
  return out;
}

TEST(DialogMusic, WrittenForms) {
  MusicRecord r;
  bytes_clear(r);
  std::string empty = written(r);
  EXPECT_EQ(empty,
            "transpose \\xfa\\xfa\\xfa\n"
            "finetune \\xfa\\xfa\\xfa\n"
            "cents \\xfa\\xfa\\xfa\\xfa\\xfa\\xfa\n"
            "note ---\n"
            "waveform " + repeat("\\xf9", 12) + "\n"
            "source " + repeat("\\xb0", 16) + "\n"
            "routing " + repeat("\\xf9", 20) + "\n");
}

TEST(DialogMusic, NumbersAndMagic) {
  MusicRecord r = fresh<MusicRecord>();
  r.transpose = Transpose::from_value(5);
  r.finetune = Finetune::from_value(12);
  r.cents = Cents::from_value(7);
  r.note = Note::from_value(61);
  r.waveform = ChiptuneWaveform::from_index(3);
  r.routing = AudioOutputRouting::from_index(2);
  EXPECT_EQ(written(r),
            "transpose \\x20+5\nfinetune +12\ncents \\x20\\x20\\x20+7\nnote C#5\nwaveform supersaw\n"
            "source modulator\nrouting external\\x20(stereo)\n");
  r.transpose = Transpose::magic_cell();
  r.finetune = Finetune::magic_cell();
  r.note = Note::magic_cell();
  std::string const text = written(r);
  EXPECT_NE(text.find("transpose [\\x20]\n"), std::string::npos);
  EXPECT_NE(text.find("finetune -127\n"), std::string::npos);
  EXPECT_NE(text.find("note [\\x20]\n"), std::string::npos);
  MusicRecord back = fresh<MusicRecord>();
  back.finetune = Finetune::from_value(9);
  read_text(back, text);
  EXPECT_EQ(back.transpose.stored, 1);
  EXPECT_EQ(back.note.stored, 1);
  // The magic finetune comes back as the number 0.
  EXPECT_EQ(back.finetune.value(), 0);
  EXPECT_EQ(back.routing.index(), 2);
  EXPECT_EQ(back.waveform.index(), 3);
}

TEST(DialogMusic, ReadRules) {
  MusicRecord r = fresh<MusicRecord>();
  r.finetune = Finetune::from_value(9);
  r.cents = Cents::from_value(100);
  r.note = Note::from_value(40);
  read_text(r, "finetune \\xfa\\xfa\\xfa\ncents \\xfa\ncents x\nnote ---\nwaveform Sine\nenvelope 3\n");
  EXPECT_EQ(r.finetune.value(), 9);
  EXPECT_EQ(r.cents.value(), 100);
  EXPECT_EQ(r.note.value(), 40);
  EXPECT_EQ(r.waveform.index(), 0);
  read_text(r, "finetune 100\ncents -9601\ntranspose +99\nnote c-5\n");
  EXPECT_EQ(r.finetune.value(), 0);
  EXPECT_EQ(r.cents.value(), 0);
  EXPECT_EQ(r.transpose.value(), 99);
  EXPECT_EQ(r.note.value(), 60);
  read_text(r, "transpose 100\nfinetune -99\ncents +9600\n");
  EXPECT_EQ(r.transpose.value(), 0);
  EXPECT_EQ(r.finetune.value(), -99);
  EXPECT_EQ(r.cents.value(), 9600);
  EXPECT_TRUE(r.envelope.is_empty());
}

TEST(DialogRead, TrackTypeNames) {
  TestRecord r = fresh<TestRecord>();
  read_text(r, "type Utility\n");
  EXPECT_EQ(r.type.index(), 8);
  read_text(r, "type Sampler\n");
  EXPECT_EQ(r.type.index(), 0);
  read_text(r, "type MonoSampler\n");
  EXPECT_EQ(r.type.index(), 1);
  read_text(r, "type MIDI\n");
  EXPECT_EQ(r.type.index(), 0);
}

TEST(DialogRead, ChiptuneIsPromotedEachTime) {
  TestRecord r = fresh<TestRecord>();
  chiptune_to_monosampler_promotion = false;
  testing::internal::CaptureStdout();
  read_text(r, "type Chiptune\ntype MIDI\ntype Chiptune\n");
  std::string const out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out,
            "found Chiptune track type, promoting to MonoSampler!\n"
            "found Chiptune track type, promoting to MonoSampler!\n");
  EXPECT_TRUE(chiptune_to_monosampler_promotion);
  EXPECT_EQ(r.type.index(), 1);
  chiptune_to_monosampler_promotion = false;
}

TEST(DialogRead, PromotionPairsNeedTheFlag) {
  Osc o;
  bytes_clear(o);
  dialog_set_default(o);
  chiptune_to_monosampler_promotion = false;
  read_text(o, "finetune[0] 5\ntranspose[3] 6\n");
  EXPECT_EQ(o.osc_finetune_0.value(), 0);
  chiptune_to_monosampler_promotion = true;
  read_text(o, "finetune[0] 5\ntranspose[3] 6\n");
  EXPECT_EQ(o.osc_finetune_0.value(), 5);
  EXPECT_EQ(o.osc_transpose_3.value(), 6);
  chiptune_to_monosampler_promotion = false;
}

TEST(DialogRead, KeysWithSeparatorByteCompareWhole) {
  Mod m;
  bytes_clear(m);
  dialog_set_default(m);
  read_text(m, "depth 10\n");
  EXPECT_EQ(m.depth_pitch.value(), 128);
  read_text(m, "depth\x1apitch 10\n");
  EXPECT_EQ(m.depth_pitch.value(), 16);
  EXPECT_EQ(written(m), "depth\x1apitch 10\n");
}

TEST(DialogWrite, SkippedKeysAreStillRead) {
  SkippingRecord s;
  bytes_clear(s);
  dialog_set_default(s);
  EXPECT_EQ(written(s), "level 03\n");
  read_text(s, "idx 09\n");
  EXPECT_EQ(s.idx.value(), 9);
}

TEST(DialogWrite, IndexedKeys) {
  EXPECT_STREQ((indexed_key<"cv_out_port", 3>()), "cv_out_port[3]");
  EXPECT_STREQ((indexed_key<"func_key_track_idx", 11>()), "func_key_track_idx[11]");
  EXPECT_STREQ((indexed_key<"chord_memory", 15, 7>()), "chord_memory[15][7]");
}

TEST(DialogRead, LongLinesArriveInPieces) {
  TestRecord r = fresh<TestRecord>();
  // 1100 bytes: the first 1023 form one line, the rest another.
  std::string line = "name " + std::string(1018, 'y') + "port 4\n";
  read_text(r, line);
  EXPECT_EQ(r.port.value(), 4);
  EXPECT_EQ(std::string(r.name.data, 32), std::string(32, 'y'));
}

TEST(DialogRead, SamplePath) {
  TestRecord r = fresh<TestRecord>();
  read_text(r, "sample /samples/kick\\x20one.wav\n");
  EXPECT_EQ(std::string(r.sample.data), "/samples/kick one.wav");
  EXPECT_NE(written(r).find("sample /samples/kick\\x20one.wav\n"), std::string::npos);
}
