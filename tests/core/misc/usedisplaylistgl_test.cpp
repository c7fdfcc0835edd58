#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/roundtrip.h>

#include <zmt/core/misc/usedisplaylistgl.h>

using ZMT::CORE::UseDisplayListGL;
using Names = std::vector<std::string>;

namespace {

TEST(UseDisplayListGL, IsOnAtFirst) {
    const NBX::SO<UseDisplayListGL> attribute(new UseDisplayListGL);
    EXPECT_TRUE(attribute->getActive());
    EXPECT_TRUE(attribute->isEnabled());
    EXPECT_EQ(attribute->category(), UseDisplayListGL::ClassNameNBX());
    EXPECT_FALSE(NBX::SO<UseDisplayListGL>(new UseDisplayListGL(false))->getActive());
}

TEST(UseDisplayListGL, OnlyAnotherValueIsAChange) {
    const NBX::SO<UseDisplayListGL> attribute(new UseDisplayListGL);
    const auto before = attribute->lastTransactionNo();
    attribute->setActive(true);
    EXPECT_EQ(attribute->lastTransactionNo(), before);
    attribute->setActive(false);
    EXPECT_FALSE(attribute->getActive());
    EXPECT_GT(attribute->lastTransactionNo(), before);
}

TEST(UseDisplayListGL, StoresItsValue) {
    for (const bool active : {true, false}) {
        const NBX::SO<UseDisplayListGL> written(new UseDisplayListGL(active));
        EXPECT_EQ(RecordedAttributes::of(*written), Names{"active"});
        EXPECT_EQ(RecordedAttributes::of(*written, true), active ? Names{} : Names{"active"});
        written->setEnableState(active);
        const auto read = roundTrip(written);
        ASSERT_TRUE(read);
        EXPECT_EQ(read->getActive(), active);
        EXPECT_EQ(read->isEnabled(), active);
    }
}

} // namespace
