#include "frame/json_integer.h"

#include <cmath>

namespace {

constexpr double BEYOND_UINT64 = 18446744073709551616.0;
constexpr double LEAST_INT64 = -9223372036854775808.0;

}  // namespace

std::optional<uint64_t> ToJsonInteger(const rapidjson::Value& value) {
  if (value.IsUint64()) {
    return value.GetUint64();
  }
  if (value.IsInt64()) {
    return static_cast<uint64_t>(value.GetInt64());
  }
  if (!value.IsDouble()) {
    return std::nullopt;
  }
  const double whole = std::trunc(value.GetDouble());
  if (whole >= 0 && whole < BEYOND_UINT64) {
    return static_cast<uint64_t>(whole);
  }
  if (whole < 0 && whole >= LEAST_INT64) {
    return static_cast<uint64_t>(static_cast<int64_t>(whole));
  }
  return std::nullopt;
}
