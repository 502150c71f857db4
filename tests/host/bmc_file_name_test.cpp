#include "host/bmc_file_name.h"

#include <gtest/gtest.h>

namespace {

constexpr char LOCAL[] = "/data/Talvor_Data.zip";

}  // namespace

TEST(BmcFileNameTest, IsTheNameThatWasAskedFor) {
  EXPECT_EQ(BmcFileName("copy.zip", LOCAL), "copy.zip");
}

TEST(BmcFileNameTest, IsTheLastPartOfAPath) {
  EXPECT_EQ(BmcFileName("/etc/copy.zip", LOCAL), "copy.zip");
  EXPECT_EQ(BmcFileName("../../copy.zip", LOCAL), "copy.zip");
  EXPECT_EQ(BmcFileName("C:\\bmc\\copy.zip", LOCAL), "copy.zip");
  EXPECT_EQ(BmcFileName("a\\../copy.zip", LOCAL), "copy.zip");
}

TEST(BmcFileNameTest, IsTheFilesNameWhenNothingNamesTheCopy) {
  for (const char* path : {"", "/", ".", "..", "a/", "a/..", "a\\.", "a\\"}) {
    EXPECT_EQ(BmcFileName(path, LOCAL), "Talvor_Data.zip") << path;
  }
}

TEST(BmcFileNameTest, IsAFileNameWhateverThePathsAre) { EXPECT_EQ(BmcFileName("..", "/"), "file"); }

TEST(BmcFileNameTest, HasNoControlCharacters) {
  EXPECT_EQ(BmcFileName(std::string("a\0b\nc\x7F"
                                    "d\xC3\xA4",
                                    9),
                        LOCAL),
            "a_b_c_d\xC3\xA4");
}
