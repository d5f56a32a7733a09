#pragma once
// Writing a settings record to a string and reading one from a string, for
// the unit tests of the settings records.

#include <string>

#include "settings/dialog.hpp"

namespace kelvane::testing_support {

// The lines dialog_append_to_file writes for a record.
template <class R>
std::string written(R& record) {
  TextOut out;
  dialog_append_to_file(record, out);
  return out.text;
}

// Offers every line of a text to a record, as reading a file does.
template <class R>
void read_text(R& record, std::string const& text) {
  LineReader f;
  f.assign(text.data(), text.size());
  dialog_read_file(record, f);
}

// A record after its default step.
template <class R>
R fresh() {
  R r;
  bytes_clear(r);
  dialog_set_default(r);
  return r;
}

}  // namespace kelvane::testing_support
