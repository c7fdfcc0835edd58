#include <zmt/util/cameraposition.h>

#include <sstream>

#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/roundtrip.h>
#include <support/slotorder.h>

namespace {

using ZMT::UTIL::CameraPosition;
using AttributeNames = std::vector<std::string>;
using Vector = NBX::Vector3Base<double>;

const Vector s_from(1.5, 2.0, 3.0), s_to(4.0, 5.0, 6.25), s_up(0.0, 1.0, 0.0);

NBX::SO<CameraPosition> summit() {
    return new CameraPosition(L"Gipfel \u00FC", s_from, s_to, s_up);
}

TEST(CameraPosition, BeginsAsItsConstructorsSay) {
    const auto named = summit();
    EXPECT_EQ(named->getName(), L"Gipfel \u00FC");
    const NBX::SO<CameraPosition> unnamed(new CameraPosition(s_from, s_to, Vector(1, 0, 0)));
    EXPECT_EQ(unnamed->getName(), L"");
    EXPECT_EQ(unnamed->getUp(), Vector(1, 0, 0));
    for (const auto & position : {named, unnamed}) {
        EXPECT_EQ(position->getFrom(), s_from);
        EXPECT_EQ(position->getTo(), s_to);
        EXPECT_EQ(position->getDuration(), 5.0);
        EXPECT_FALSE(position->getIsCircle());
    }
}

TEST(CameraPosition, EachChangeIsNoted) {
    const auto position = summit();
    auto before = position->lastTransactionNo();
    const auto isNoted = [&] {
        return position->lastTransactionNo() > std::exchange(before, position->lastTransactionNo());
    };
    position->setFrom(Vector(1, 0, 0));
    EXPECT_TRUE(isNoted());
    position->setTo(Vector(2, 0, 0));
    EXPECT_TRUE(isNoted());
    position->setUp(Vector(3, 0, 0));
    EXPECT_TRUE(isNoted());
    EXPECT_EQ(position->getFrom(), Vector(1, 0, 0));
    EXPECT_EQ(position->getTo(), Vector(2, 0, 0));
    EXPECT_EQ(position->getUp(), Vector(3, 0, 0));
    position->setFromTo(Vector(4, 0, 0), Vector(5, 0, 0));
    EXPECT_TRUE(isNoted());
    EXPECT_EQ(position->getFrom(), Vector(4, 0, 0));
    EXPECT_EQ(position->getTo(), Vector(5, 0, 0));
    EXPECT_EQ(position->getUp(), Vector(3, 0, 0));
    position->setFromToUp(Vector(6, 0, 0), Vector(7, 0, 0), Vector(8, 0, 0));
    EXPECT_TRUE(isNoted());
    EXPECT_EQ(position->getFrom(), Vector(6, 0, 0));
    EXPECT_EQ(position->getTo(), Vector(7, 0, 0));
    EXPECT_EQ(position->getUp(), Vector(8, 0, 0));
    position->setName(L"b");
    EXPECT_TRUE(isNoted());
    position->setDuration(2.5);
    EXPECT_TRUE(isNoted());
    position->setIsCircle(true);
    EXPECT_TRUE(isNoted());
    EXPECT_EQ(position->getName(), L"b");
    EXPECT_EQ(position->getDuration(), 2.5);
    EXPECT_TRUE(position->getIsCircle());
}

TEST(CameraPosition, OperationsHaveTheirSlots) {
    EXPECT_TRUE(inSlotOrder(&NBX::SharedObj::isRegisteredForSerialization, &CameraPosition::getFrom,
                            &CameraPosition::setFrom, &CameraPosition::getTo, &CameraPosition::setTo,
                            &CameraPosition::getUp, &CameraPosition::setUp, &CameraPosition::setFromTo,
                            &CameraPosition::setFromToUp, &CameraPosition::getName, &CameraPosition::setName,
                            &CameraPosition::getDuration, &CameraPosition::setDuration,
                            &CameraPosition::getIsCircle, &CameraPosition::setIsCircle));
}

TEST(CameraPosition, UsualValuesAreLeftOutOfFilesThatOmitThem) {
    const auto position = summit();
    EXPECT_EQ(RecordedAttributes::of(*position, false),
              (AttributeNames{"from", "to", "up", "name", "duration", "isCircle"}));
    EXPECT_EQ(RecordedAttributes::of(*position, true), (AttributeNames{"from", "to", "name"}));
    position->setUp(Vector(0, 0, 1));
    position->setDuration(0.0);
    position->setIsCircle(true);
    EXPECT_EQ(RecordedAttributes::of(*position, true),
              (AttributeNames{"from", "to", "up", "name", "duration", "isCircle"}));
}

TEST(CameraPosition, ComesBackFromAFile) {
    const auto position = summit();
    const NBX::SO<CameraPosition> unusual(new CameraPosition(s_to, s_from, Vector(0.6, 0.0, 0.8)));
    unusual->setDuration(12.125);
    unusual->setIsCircle(true);
    for (const bool omitsDefaults : {true, false})
        for (const auto & written : {position, unusual}) {
            const auto read = roundTrip(written, omitsDefaults);
            ASSERT_TRUE(read);
            EXPECT_EQ(read->getFrom(), written->getFrom());
            EXPECT_EQ(read->getTo(), written->getTo());
            EXPECT_EQ(read->getUp(), written->getUp());
            EXPECT_EQ(read->getName(), written->getName());
            EXPECT_EQ(read->getDuration(), written->getDuration());
            EXPECT_EQ(read->getIsCircle(), written->getIsCircle());
        }
}

TEST(CameraPosition, ACopyIsAnotherObject) {
    const auto position = summit();
    position->setIsCircle(true);
    position->setDuration(3.0);
    const NBX::SO<CameraPosition> copy(new CameraPosition(*position));
    EXPECT_EQ(copy->references(), 1);
    EXPECT_EQ(copy->getName(), position->getName());
    EXPECT_EQ(copy->getTo(), s_to);
    EXPECT_EQ(copy->getDuration(), 3.0);
    EXPECT_TRUE(copy->getIsCircle());
    copy->setName(L"another");
    EXPECT_EQ(position->getName(), L"Gipfel \u00FC");
}

TEST(CameraPosition, TellsItselfInLines) {
    std::wostringstream stream;
    stream << *summit();
    EXPECT_EQ(stream.str(), L"\tCameraPosition\n"
                            L"\tname: Gipfel \u00FC\n"
                            L"\tlookFrom: (1.5, 2, 3)\n"
                            L"\tlookTo: (4, 5, 6.25)\n"
                            L"\tlookUp: (0, 1, 0)\n"
                            L"\tduration: 5\n"
                            L"\tisCircle: 0\n");
}

} // namespace
