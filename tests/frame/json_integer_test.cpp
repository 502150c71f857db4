#include "frame/json_integer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>

namespace {

using rapidjson::Value;

void ExpectInteger(const Value& value, uint64_t bits) {
  EXPECT_EQ(ToJsonInteger(value), std::optional(bits));
}

void ExpectNothing(const Value& value) { EXPECT_EQ(ToJsonInteger(value), std::nullopt); }

}  // namespace

TEST(JsonIntegerTest, TakesAnIntegerThatIsNotNegative) {
  ExpectInteger(Value(0), 0);
  ExpectInteger(Value(7), 7);
  ExpectInteger(Value(0xFFFFFFFFU), 0xFFFFFFFF);
  ExpectInteger(Value(uint64_t{0xFFFFFFFFFFFFFFFF}), 0xFFFFFFFFFFFFFFFF);
}

TEST(JsonIntegerTest, TakesANegativeIntegerAsTwosComplement) {
  ExpectInteger(Value(-1), 0xFFFFFFFFFFFFFFFF);
  ExpectInteger(Value(std::numeric_limits<int64_t>::min()), 0x8000000000000000);
}

TEST(JsonIntegerTest, TruncatesAFraction) {
  ExpectInteger(Value(2.9), 2);
  ExpectInteger(Value(-2.9), static_cast<uint64_t>(-2));
  ExpectInteger(Value(-0.9), 0);
  ExpectInteger(Value(0.0), 0);
}

TEST(JsonIntegerTest, TakesAFractionUpToTheEndsOf64Bits) {
  const double twoTo63 = std::ldexp(1.0, 63);
  const double twoTo64 = std::ldexp(1.0, 64);
  ExpectInteger(Value(std::nextafter(twoTo64, 0.0)), 0xFFFFFFFFFFFFF800);
  ExpectInteger(Value(-twoTo63), 0x8000000000000000);
  ExpectNothing(Value(twoTo64));
  ExpectNothing(Value(std::nextafter(-twoTo63, -twoTo64)));
}

TEST(JsonIntegerTest, TakesNoNumberThatIsNone) {
  ExpectNothing(Value(std::numeric_limits<double>::infinity()));
  ExpectNothing(Value(-std::numeric_limits<double>::infinity()));
  ExpectNothing(Value(std::numeric_limits<double>::quiet_NaN()));
}

TEST(JsonIntegerTest, TakesNothingButNumbers) {
  ExpectNothing(Value());
  ExpectNothing(Value(true));
  ExpectNothing(Value(false));
  ExpectNothing(Value("7"));
  ExpectNothing(Value(rapidjson::kArrayType));
  ExpectNothing(Value(rapidjson::kObjectType));
}
