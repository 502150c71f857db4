#include <gtest/gtest.h>

#include <cstdint>

#include "archive_module/archive_transfer.h"

namespace {

TEST(HtiRequestTest, AFileTypeWithItsHighestBitIsASignedNumber) {
  SipJson request = BuildHtiRequest({0x80000002, "/archive", "", 0});
  const SipJson::Value& type = request.m_oDocument["SIP"]["CMD"][0]["DA"]["FileType"];
  ASSERT_TRUE(type.IsInt());
  EXPECT_EQ(type.GetInt(), INT32_MIN + 2);
}

}  // namespace
