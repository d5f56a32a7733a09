#include <gtest/gtest.h>

#include <string>

#include "kelvane/types.hpp"

using namespace kelvane;

namespace {

template <class T>
std::string fmt(T const& cell) {
  char buf[128];
  cell.format_string(buf, sizeof buf);
  return buf;
}

struct StepLengthCell : RangedInteger<StepLengthCell, signed char, 0, 96, false> {
  static constexpr TextForm text_form = TextForm::H2;
  static constexpr int default_value = 6;
};

}  // namespace

TEST(Encoding, ByteIntWord) {
  EXPECT_EQ(cell_encode<signed char>(0), (signed char)0x80);
  EXPECT_EQ(cell_encode<signed char>(1), (signed char)0x81);
  EXPECT_EQ(cell_encode<signed char>(-1), (signed char)0x7F);
  EXPECT_EQ(cell_encode<int>(0), int(0x80000000u));
  EXPECT_EQ(cell_encode<int>(-1), 0x7FFFFFFF);
  EXPECT_EQ(cell_encode<short>(5), short(0x8005));
  EXPECT_EQ(cell_decode<signed char>(0), -128);
  EXPECT_EQ(cell_decode<signed char>(1), -127);
  EXPECT_EQ(cell_decode<int>(1), -0x7FFFFFFF);
}

TEST(RangedInteger, StepLengthOutOfRangeReadsDefault) {
  EXPECT_EQ(StepLengthCell::parse_string("61").stored, (signed char)0x86);
  EXPECT_EQ(StepLengthCell::parse_string("60").value(), 96);
}
