#pragma once
// Reading one argument out of a command cell (op code, instruction or
// operand), for the unit tests of the command cells.

#include <gtest/gtest.h>

#include <type_traits>

namespace kelvane::testing_support {

// The cell of type T in column col; fails the test if the column holds
// another type.
template <class T, class Cell>
T arg_of(Cell const& c, int col) {
  T out{};
  bool found = false;
  c.column_do(col, [&](auto const& cell) {
    if constexpr (std::is_same_v<std::remove_cvref_t<decltype(cell)>, T>) {
      out = cell;
      found = true;
    }
  });
  EXPECT_TRUE(found) << "column " << col << " holds another type";
  return out;
}

}  // namespace kelvane::testing_support
