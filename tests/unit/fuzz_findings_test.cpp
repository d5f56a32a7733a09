// Inputs that the fuzz harnesses found, kept as tests named after their
// cause.

#include <gtest/gtest.h>

#include <string>

#include "kelvane/types.hpp"

using namespace kelvane;

namespace {

std::string text_of(ProgramIdx cell) {
  char buf[16] = {};
  cell.format_string(buf, sizeof buf);
  return buf;
}

}  // namespace

// fuzz_run: a patch callback "ion_callback" folded (wrapping) to -690073052,
// which two characters cannot hold; the saved "y\x10" read back as 1192, so
// the second save wrote "x4". The two-character text is stable from then on.
TEST(FuzzFindings, IndexTextFoldingBeyondTwoCharactersIsNormalisedByOneRound) {
  ProgramIdx const first = ProgramIdx::parse_string("ion_callback");
  ASSERT_TRUE(first.has_number());
  EXPECT_EQ(first.value(), -690073052);
  std::string const saved = text_of(first);
  EXPECT_EQ(saved, std::string("y\x10"));
  ProgramIdx const second = ProgramIdx::parse_string(saved.c_str());
  EXPECT_EQ(second.value(), 1192);
  EXPECT_EQ(text_of(second), "x4");
  EXPECT_EQ(text_of(ProgramIdx::parse_string("x4")), "x4");
}
