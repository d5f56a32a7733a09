#pragma once
// The texts a cell writes, for the unit tests of the value cells.

#include <cstring>
#include <string>

namespace kelvane::testing_support {

// What format_string writes into a buffer of 128 bytes that starts out
// full of a byte the cell must overwrite or end before.
template <class T>
std::string fmt(T const& cell) {
  char buf[128];
  std::memset(buf, 'q', sizeof buf);
  cell.format_string(buf, sizeof buf);
  return buf;
}

// What format_column writes for a column of the given width.
template <class T>
std::string column(T const& cell, int width) {
  char buf[128];
  std::memset(buf, 'q', sizeof buf);
  cell.format_column(buf, sizeof buf, width);
  return buf;
}

}  // namespace kelvane::testing_support
