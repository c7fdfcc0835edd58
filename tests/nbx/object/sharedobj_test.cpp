#include <nbx/object/sharedobj.h>

#include <gtest/gtest.h>

#include <support/slotorder.h>

#include <nbx/object/serializationmanager.h>
#include <nbx/object/so.h>

using NBX::SharedObj;
using NBX::SO;

namespace {

TEST(SharedObj, EveryChangeHasAGreaterNumber) {
    const SO<SharedObj> a(new SharedObj), b(new SharedObj);
    a->modified();
    const std::uint64_t first = a->lastTransactionNo();
    b->modified();
    EXPECT_GT(b->lastTransactionNo(), first);
    a->modified();
    EXPECT_GT(a->lastTransactionNo(), b->lastTransactionNo());
}

TEST(SharedObj, ANewNameIsAChangeAndTheSameNameIsNone) {
    const SO<SharedObj> object(new SharedObj);
    EXPECT_EQ(object->getObjectName(), L"");
    object->setObjectName(L"Brocken");
    const std::uint64_t number = object->lastTransactionNo();
    EXPECT_GT(number, 0U);
    object->setObjectName(L"Brocken");
    EXPECT_EQ(object->lastTransactionNo(), number);
    EXPECT_EQ(object->getObjectName(), L"Brocken");
    object->setObjectName(L"");
    EXPECT_EQ(object->getObjectName(), L"");
}

TEST(SharedObj, ACopyTakesTheNameAndStartsItsOwnLife) {
    const SO<SharedObj> object(new SharedObj);
    object->setObjectName(L"Brocken");
    const SO<SharedObj> copy(new SharedObj(*object));
    EXPECT_EQ(copy->getObjectName(), L"Brocken");
    EXPECT_EQ(copy->references(), 1);
    EXPECT_EQ(copy->lastTransactionNo(), 0U);
    const SO<SharedObj> assigned(new SharedObj);
    *assigned = *object;
    EXPECT_EQ(assigned->getObjectName(), L"Brocken");
    EXPECT_EQ(assigned->references(), 1);
    EXPECT_FALSE(*assigned == *object);
}

TEST(SharedObj, OperationsKeepTheirOrder) {
    EXPECT_TRUE(inSlotOrder(&SharedObj::accept, &SharedObj::acceptChildren, &SharedObj::isEqual,
                            &SharedObj::classInfoNBX, &SharedObj::modified, &SharedObj::lastTransactionNo,
                            &SharedObj::serialize, &SharedObj::isRegisteredForSerialization));
}

} // namespace
