#include <nbx/scene/base/renderobj.h>

#include <gtest/gtest.h>

#include <support/slotorder.h>

using NBX::RenderObj;

namespace {

TEST(RenderObj, ItsOperationsStandBehindThoseOfEveryObject) {
    EXPECT_TRUE(inSlotOrder(&NBX::SharedObj::isRegisteredForSerialization, &RenderObj::setEnableState,
                            &RenderObj::isEnabled));
}

} // namespace
