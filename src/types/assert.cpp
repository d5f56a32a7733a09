#include <cstdio>
#include <cstdlib>

#include "kelvane/types_cells.hpp"

void kelvane_assert_fail(char const* expr, char const* file, unsigned line, char const* function) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s:%u: %s: Assertion `%s' failed\n", file, line, function, expr);
  std::abort();
}
