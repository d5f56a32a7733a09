// The escape and unescape pair: both stay inside their buffers, and a text
// that the escape writes in full reads back as itself.

#include <cstring>

#include "fuzz_common.hpp"
#include "settings/dialog.hpp"

using namespace kelvane;

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string const text = kelvane_fuzz::input_text(data, size > 8000 ? 8000 : size);
  static char escaped[kEscapedTextSize];
  static char plain[kEscapedTextSize];
  // Unescaping any text, in both buffer sizes the readers use.
  unescape_setting_text(text.c_str(), plain);
  unescape_setting_text(text.c_str(), plain, kLineSize);
  for (int limit : {kValueEscapeLimit, kTextEscapeLimit}) {
    escape_setting_text(text.c_str(), escaped, limit);
    if (std::strlen(escaped) > size_t(limit)) __builtin_trap();
    unescape_setting_text(escaped, plain);
    // Each byte takes at most four places: a text that fits in full comes back.
    if (text.size() * 4 <= size_t(limit) - 5 && text != plain) __builtin_trap();
  }
  return 0;
}
