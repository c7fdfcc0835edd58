#include "landscape/errors.h"

#include <new>

#include <gtest/gtest.h>

namespace {

TEST(Errors, AreOneLineEach) {
    testing::internal::CaptureStderr();
    writeError("two\nlines");
    EXPECT_EQ("zmt: two lines\n", testing::internal::GetCapturedStderr());
}

TEST(Errors, TellWhatToDoWithoutMemory) {
    EXPECT_EQ("what is wrong", messageOf(DataError("what is wrong")));
    EXPECT_NE(std::string::npos, messageOf(std::bad_alloc()).find("smaller raster"));
}

} // namespace
