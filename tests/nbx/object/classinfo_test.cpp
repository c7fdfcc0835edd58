#include <nbx/object/classinfo.h>

#include <gtest/gtest.h>

#include <nbx/object/sharedobj.h>

using NBX::ClassInfo;
using NBX::ID;
using NBX::SharedObj;

namespace {

TEST(ClassInfo, NameIsTheQualifiedName) {
    EXPECT_EQ(SharedObj::ClassNameNBX(), ID("NBX::SharedObj"));
    EXPECT_EQ(SharedObj::ClassInfoNBX()->parent(), nullptr);
}

TEST(ClassInfo, IsAWalksTheParents) {
    struct Middle {};
    struct Leaf {};
    const ClassInfo middle(typeid(Middle), SharedObj::ClassInfoNBX());
    const ClassInfo leaf(typeid(Leaf), &middle);
    EXPECT_TRUE(leaf.isA(leaf.name()));
    EXPECT_TRUE(leaf.isA(middle.name()));
    EXPECT_TRUE(leaf.isA("NBX::SharedObj"));
    EXPECT_FALSE(middle.isA(leaf.name()));
    EXPECT_FALSE(leaf.isA(ID()));
    EXPECT_FALSE(leaf.isA("SharedObj"));
}

} // namespace
