// The key table of dialog_set_value against the walk that offers a line to
// every member in turn: for every settings record, random lines of its own
// keys, older keys, promoted keys, unknown and mangled keys, with and
// without the Chiptune flag, must leave two records byte for byte alike.

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "project/project.hpp"
#include "settings_text.hpp"

using namespace kelvane;
using namespace kelvane::testing_support;

namespace {

// Members with one name twice, names that older keys and promoted keys
// reach, and a member that only the promotion reaches.
struct CrowdedRecord {
  ProgramIdx start_callback;
  ProgramIdx also_start;
  IntSetting<0, 99, 0, 10> osc_finetune_0;
  IntSetting<0, 99, 5, 10> finetune_0;
  Param8Bit<3> level;
  ProgramIdx chord_callback_1;
  Action separator;
  ProgramIdx midi_note_callback;

  template <class F>
  void do_it(F&& f) {
    f(member("start_callback", start_callback), member("level", level),
      member("osc_finetune[0]", osc_finetune_0), member("start_callback", also_start),
      member("finetune[0]", finetune_0), member("separator", separator),
      member("chord_callback[1]", chord_callback_1), member("midi_note_callback", midi_note_callback));
  }
};

// The keys of a record as its writer prints them, and the values it
// prints for them.
struct OwnLines {
  std::vector<std::string> keys;
  std::vector<std::string> values;
};

template <class R>
OwnLines own_lines(R& record) {
  OwnLines lines;
  std::istringstream in(written(record));
  std::string line;
  while (std::getline(in, line)) {
    size_t const blank = line.find(' ');
    lines.keys.push_back(line.substr(0, blank));
    lines.values.push_back(blank == std::string::npos ? "" : line.substr(blank + 1));
  }
  return lines;
}

std::string pick(std::mt19937& rng, std::vector<std::string> const& v) {
  return v.empty() ? std::string("name") : v[rng() % v.size()];
}

std::string random_key(std::mt19937& rng, OwnLines const& own) {
  static std::vector<std::string> const older = {
      "callback_start",  "callback_stop", "callback_chord[1]", "callback_transpose[3]",
      "midi_note_callback_program_idx", "midi_cc_callback_program_idx", "finetune[0]", "finetune[3]",
      "transpose[0]",    "transpose[2]",  "idx",               "type",
      "name",            "start_callback"};
  switch (rng() % 6) {
    case 0:
    case 1: return pick(rng, own.keys);
    case 2: return pick(rng, older);
    case 3: {
      std::string k = pick(rng, own.keys);
      if (!k.empty() && rng() % 2) k.pop_back();
      else k += char(1 + rng() % 255);
      return k;
    }
    case 4: {
      std::string k = pick(rng, own.keys);
      if (!k.empty()) k[rng() % k.size()] = char(1 + rng() % 255);
      return k;
    }
    default: return "unknown_key";
  }
}

std::string random_value(std::mt19937& rng, OwnLines const& own) {
  static std::vector<std::string> const texts = {"0",  "1",   "-1", "40",  "ff",      "zz",    "[0]=5",
                                                 "[7]=300", "",    "x",  "0a",  "Chiptune", "MIDI",  "\\x20"};
  return rng() % 2 ? pick(rng, own.values) : pick(rng, texts);
}

template <class R>
void lookup_matches_walk(std::mt19937& rng, int lines) {
  auto a = std::make_unique<R>();
  auto b = std::make_unique<R>();
  bytes_clear(*a);
  dialog_set_default(*a);
  bytes_copy(*b, *a);
  OwnLines const own = own_lines(*a);
  for (int n = 0; n < lines; ++n) {
    chiptune_to_monosampler_promotion = rng() % 2;
    std::string const key = random_key(rng, own);
    std::string const value = random_value(rng, own);
    dialog_set_value(*a, key.c_str(), value.c_str());
    dialog_offer_to_each_member(*b, SettingsKey(key.c_str()), key.c_str(), value.c_str());
    ASSERT_TRUE(bytes_equal(*a, *b)) << "line " << n << ": '" << key << "' '" << value << "'";
  }
  chiptune_to_monosampler_promotion = false;
}

template <class... R>
void lookup_matches_walk_for_all(int lines) {
  std::mt19937 rng(1234);
  (lookup_matches_walk<R>(rng, lines), ...);
}

}  // namespace

TEST(KeyTable, SmallRecordsAlikeWithTheWalk) {
  lookup_matches_walk_for_all<CrowdedRecord, ProjectSettings, TrackSettings, TrackCallbacks, MixSettings,
                              MixModulationMapping, PatternSettings, TableSettings, ProgramSettings, FXParameters,
                              ProgramVariable, LegacyChordMemory>(4000);
}

TEST(KeyTable, InstrumentRecordsAlikeWithTheWalk) {
  lookup_matches_walk_for_all<InstrumentParametersMIDI, InstrumentParametersMonoSampler,
                              InstrumentParametersPolySampler, InstrumentParametersFMSynth,
                              InstrumentParametersBreakBeat, InstrumentParametersOneShot,
                              InstrumentParametersGraphics, InstrumentParametersUtility,
                              InstrumentModulationBreakBeat, InstrumentModulationMonoSampler,
                              InstrumentModulationPolySampler, InstrumentModulationFMSynth,
                              InstrumentModulationOneShot>(4000);
}

// A line whose key reaches two members of one name sets both, and one
// reached by its own name and an older name reads once.
TEST(KeyTable, DuplicateNamesAllRead) {
  CrowdedRecord r;
  bytes_clear(r);
  dialog_set_default(r);
  dialog_set_value(r, "start_callback", "0a");
  EXPECT_EQ(r.start_callback.value(), 10);
  EXPECT_EQ(r.also_start.value(), 10);
  dialog_set_value(r, "callback_start", "0b");
  EXPECT_EQ(r.start_callback.value(), 11);
  EXPECT_EQ(r.also_start.value(), 11);
  chiptune_to_monosampler_promotion = true;
  dialog_set_value(r, "finetune[0]", "7");
  chiptune_to_monosampler_promotion = false;
  EXPECT_EQ(r.finetune_0.value(), 7);
  EXPECT_EQ(r.osc_finetune_0.value(), 7);
}
