// Texts of statuses.
#include "platform/error_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "platform/status.h"

namespace {

constexpr uint32_t kKnown[] = {
    PLATFORM_OK,          ATTRDB_ERR_NO_MEMORY, ATTRDB_ERR_INVALID_ARG, ATTRDB_ERR_LABEL_IN_USE,
    ATTRDB_ERR_NOT_READY, ATTRDB_ERR_ADOPTED,   ATTRDB_ERR_NOT_FOUND,   AAA_ERR_UNSUPPORTED_ATTR,
    AAA_ERR_NO_MEMORY,    AAA_ERR_INVALID_ARG,  AAA_ERR_NO_ROOM,        AAA_ERR_STALE_LIST,
    AAA_ERR_NOT_FOUND,    KIVO_ERR_FAILED,      KIVO_ERR_NO_MEMORY,     KIVO_ERR_INVALID_ARG,
    KIVO_ERR_NO_ROOM,     KIVO_ERR_NO_CURSOR,   KIVO_ERR_NOT_FOUND,     KIVO_ERR_INVALID_VALUE,
};

TEST(ErrorText, EveryKnownStatusHasAShortTextOfItsOwn) {
  std::set<std::string> texts;
  for (const uint32_t status : kKnown) {
    const std::string text = error_text(status);
    EXPECT_TRUE(texts.insert(text).second) << text << " stands for two statuses";
    EXPECT_GE(63U, text.size());
    EXPECT_EQ(std::string::npos, text.find("unknown")) << std::hex << status;
  }
  EXPECT_STREQ("success", error_text(PLATFORM_OK));
}

TEST(ErrorText, UnknownStatusShowsItsNumber) {
  EXPECT_STREQ("unknown status 0x00000001", error_text(1));
  EXPECT_STREQ("unknown status 0xa0030201", error_text(KIVO_ERR_FAILED + 1));
  EXPECT_STREQ("unknown status 0xffffffff", error_text(UINT32_MAX));
}

TEST(ErrorText, UnknownTextHoldsUntilTheEighthAfterIt) {
  const char *first = error_text(0x1000);
  for (uint32_t i = 1; i < 8; ++i) error_text(0x1000 + i);
  EXPECT_STREQ("unknown status 0x00001000", first);
}

}  // namespace
