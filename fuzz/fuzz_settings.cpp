// The settings line loop: any file text offered to every settings record.
// The records sit between guard bytes that must stay untouched.

#include <cstring>
#include <tuple>

#include "fuzz_common.hpp"
#include "settings/instrument_records.hpp"
#include "settings/records.hpp"
#include "settings/small_records.hpp"

using namespace kelvane;

namespace {

template <class R>
struct Guarded {
  unsigned char before[64];
  R record;
  unsigned char after[64];
};

template <class R>
void offer(char const* text, size_t size) {
  static Guarded<R> g;
  std::memset(g.before, 0x5a, sizeof g.before);
  std::memset(g.after, 0x5a, sizeof g.after);
  bytes_clear(g.record);
  dialog_set_default(g.record);
  LineReader f;
  f.assign(text, size);
  dialog_read_file(g.record, f);
  TextOut out;
  dialog_append_to_file(g.record, out);
  for (unsigned char c : g.before)
    if (c != 0x5a) __builtin_trap();
  for (unsigned char c : g.after)
    if (c != 0x5a) __builtin_trap();
}

using Records = std::tuple<ProjectSettings, TrackSettings, TrackCallbacks, MixSettings, MixModulationMapping,
                           PatternSettings, TableSettings, ProgramSettings, FXParameters, ProgramVariable,
                           LegacyChordMemory, InstrumentParametersMIDI, InstrumentParametersMonoSampler,
                           InstrumentParametersPolySampler, InstrumentParametersFMSynth, InstrumentParametersBreakBeat,
                           InstrumentParametersOneShot, InstrumentParametersGraphics, InstrumentParametersUtility,
                           InstrumentModulationBreakBeat, InstrumentModulationMonoSampler,
                           InstrumentModulationPolySampler, InstrumentModulationFMSynth, InstrumentModulationOneShot>;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  if (size == 0) return 0;
  int const which = data[0] % std::tuple_size_v<Records>;
  chiptune_to_monosampler_promotion = (data[0] & 0x80) != 0;
  [&]<size_t... I>(std::index_sequence<I...>) {
    ((int(I) == which ? offer<std::tuple_element_t<I, Records>>(reinterpret_cast<char const*>(data + 1), size - 1) : void()), ...);
  }(std::make_index_sequence<std::tuple_size_v<Records>>{});
  return 0;
}
