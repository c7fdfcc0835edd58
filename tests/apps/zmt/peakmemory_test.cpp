#include "peakmemory.h"

#include <gtest/gtest.h>

namespace {

TEST(PeakMemory, IsMeasuredInBytes) {
    EXPECT_GT(peakResidentBytes(), 1U << 20);
}

} // namespace
