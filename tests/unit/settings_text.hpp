#pragma once
// Writing a settings record to a string and reading one from a string, for
// the unit tests of the settings records.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "settings/dialog.hpp"

namespace kelvane::testing_support {

// The lines dialog_append_to_file writes for a record.
template <class R>
std::string written(R& record) {
  char* data = nullptr;
  size_t size = 0;
  FILE* f = open_memstream(&data, &size);
  dialog_append_to_file(record, f);
  std::fclose(f);
  std::string s(data, size);
  std::free(data);
  return s;
}

// Offers every line of a text to a record, as reading a file does.
template <class R>
void read_text(R& record, std::string const& text) {
  if (text.empty()) return;
  FILE* f = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
  dialog_read_file(record, f);
  std::fclose(f);
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
