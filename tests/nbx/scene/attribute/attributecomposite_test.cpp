#include <nbx/scene/attribute/attributecomposite.h>

#include <gtest/gtest.h>

#include <nbx/scene/view/translation.h>
#include <support/recordedreports.h>

#include "support/storedcopy.h"

namespace {

using namespace NBX;

TEST(AttributeComposite, HoldsItsMembersInOrder) {
    RecordedReports reports;
    const SO<AttributeComposite> composite(new AttributeComposite());
    const SO<Tf> a(new Tf()), b(new Tf());
    composite->append(a.get());
    composite->append(b.get());
    EXPECT_EQ(composite->attributes(), 2U);
    EXPECT_EQ(composite->attribute(1), b.get());
    EXPECT_TRUE(composite->remove(a.get()));
    EXPECT_EQ(composite->attribute(0), b.get());
    composite->append(composite.get());
    composite->append(nullptr);
    EXPECT_EQ(reports.count(L"composite would contain itself"), 1U);
    EXPECT_EQ(reports.count(0, L"attribute", L"no attribute"), 1U);
    EXPECT_EQ(composite->attributes(), 1U);
}

TEST(AttributeComposite, StoredAndReadIsTheSame) {
    const SO<AttributeComposite> composite(new AttributeComposite());
    composite->append(new Translation({1, 2, 3}));
    composite->append(new Tf());
    const SO<AttributeComposite> copy = storedCopy(*composite);
    ASSERT_TRUE(copy);
    ASSERT_EQ(copy->attributes(), 2U);
    EXPECT_TRUE(dynamic_cast<Translation *>(copy->attribute(0)));
}

} // namespace
