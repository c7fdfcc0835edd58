#include <support/firstframe.h>

#include <gtest/gtest.h>

namespace {

class FirstFrame : public testing::Environment {
public:
    void SetUp() override { haveFirstFrame(); }
};

const auto * const s_firstFrame = testing::AddGlobalTestEnvironment(new FirstFrame);

} // namespace
