#include "base/number_base.h"

#include <gtest/gtest.h>

namespace {

TEST(NumberBaseTest, IsToldByThePrefix) {
  for (const char* text : {"0x1f", "0X1F", " \t-0x1", "+0x", "0xg"}) {
    EXPECT_EQ(NumberBase(text), 16) << text;
  }
  for (const char* text : {"0", "017", "\n-08", "0b1", "0B1", "0 x"}) {
    EXPECT_EQ(NumberBase(text), 8) << text;
  }
  for (const char* text : {"", " ", "-", "17", "-5", "x0", "--0x1", "- 0"}) {
    EXPECT_EQ(NumberBase(text), 10) << text;
  }
}

}  // namespace
