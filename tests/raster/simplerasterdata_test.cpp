#include <zmt/raster/simplerasterdata.h>

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "memorystream.h"

#include <nbx/object/exception.h>
#include <support/recordedreports.h>

namespace {

using namespace ZMT::RASTER;

NBX::SO<SimpleRasterData<float>> ramp() {
    NBX::SO<SimpleRasterData<float>> raster(
        new SimpleRasterData<float>(3, 2, 10.0, 20.0, 1.5, 2.5, true, -1.0f));
    for (unsigned i = 1; i < 6; ++i)
        raster->setValue(i % 3, i / 3, 10.0f * i);
    return raster;
}

TEST(SimpleRasterData, IsFilledWithTheUndefinedValue) {
    const SimpleRasterData<float> * raster =
        new SimpleRasterData<float>(2, 2, 0.0, 0.0, 1.0, 1.0, true, 4.0f);
    const NBX::SO<const SimpleRasterData<float>> holder(raster);
    EXPECT_EQ(4.0, raster->value(1u, 1u));
    EXPECT_TRUE(raster->isUndef(0.5, 0.5));
    EXPECT_TRUE(std::isnan(raster->minValue()));
    EXPECT_TRUE(std::isnan(raster->maxValue()));
}

TEST(SimpleRasterData, StoresRowsFromTheSouth) {
    const auto raster = ramp();
    EXPECT_EQ(40.0, raster->value(1u, 1u));
    EXPECT_EQ(40.0f, raster->floatCells()[4]);
    EXPECT_EQ(40.0, raster->value(11.5, 22.5));
    double row[3];
    raster->valueRow(1, row);
    EXPECT_EQ(30.0, row[0]);
    EXPECT_EQ(50.0, row[2]);
}

TEST(SimpleRasterData, RangeLeavesOutUndefined) {
    const auto raster = ramp();
    EXPECT_EQ(10.0, raster->minValue());
    EXPECT_EQ(50.0, raster->maxValue());
    raster->setValue(2, 1, std::nanf(""));
    EXPECT_EQ(40.0, raster->maxValue()) << "overwritten values do not linger";
}

TEST(SimpleRasterData, CellsOutsideAreReported) {
    const auto raster = ramp();
    RecordedReports reports;
    raster->setValue(3, 0, 1.0f);
    EXPECT_EQ(1u, reports.count(L"column out of range"));
    EXPECT_EQ(-1.0, raster->value(0u, 2u));
    EXPECT_EQ(1u, reports.count(L"row out of range"));
    double row[3] = {7.0, 7.0, 7.0};
    raster->valueRow(2, row);
    EXPECT_EQ(-1.0, row[2]);
    EXPECT_EQ(3u, reports.size());
}

TEST(SimpleRasterData, OtherNumbersAreNoFloatCells) {
    const NBX::SO<SimpleRasterData<double>> precise(
        new SimpleRasterData<double>(1, 1, 0.0, 0.0, 1.0, 1.0, false, 0.1));
    EXPECT_EQ(0.1, precise->value(0u, 0u));
    EXPECT_EQ(nullptr, precise->floatCells());
    const NBX::SO<SimpleRasterData<std::int16_t>> whole(
        new SimpleRasterData<std::int16_t>(2, 1, 0.0, 0.0, 1.0, 1.0, true, -32768));
    whole->setValue(0, 0, 8642);
    EXPECT_EQ(8642.0, whole->value(0u, 0u));
    EXPECT_TRUE(whole->isUndefValue(whole->value(1u, 0u)));
}

TEST(SimpleRasterData, StoredAttributesHaveTheirNames) {
    MemoryStream stream;
    ramp()->serialize(stream);
    const std::vector<std::string> names = {"cellsX",   "cellsY",   "cellSizeX",     "cellSizeY",
                                            "minX",     "minY",     "hasUndefValue", "undefValue",
                                            "minValue", "maxValue", "values"};
    EXPECT_EQ(names, stream.order);
}

template <class T> void checkRoundTrip() {
    const NBX::SO<SimpleRasterData<T>> written(
        new SimpleRasterData<T>(3, 2, 10.0, 20.0, 1.5, 2.5, true, T(-1)));
    for (unsigned i = 1; i < 6; ++i)
        written->setValue(i % 3, i / 3, T(10 * i));
    MemoryStream stream;
    written->serialize(stream);
    stream.reads = true;
    const NBX::SO<SimpleRasterData<T>> read(new SimpleRasterData<T>);
    read->serialize(stream);
    ASSERT_EQ(3u, read->cellsX());
    ASSERT_EQ(2u, read->cellsY());
    EXPECT_EQ(written->maxX(), read->maxX());
    EXPECT_EQ(written->maxY(), read->maxY());
    EXPECT_TRUE(read->hasUndefValue());
    EXPECT_EQ(-1.0, read->undefValue());
    EXPECT_TRUE(std::equal(written->cells(), written->cells() + 6, read->cells()));
}

TEST(SimpleRasterData, IsReadAsWritten) {
    checkRoundTrip<float>();
    checkRoundTrip<double>();
    checkRoundTrip<std::int16_t>();
}

TEST(SimpleRasterData, CanBeStoredByName) {
    EXPECT_STREQ("ZMT::RASTER::SimpleRasterData<float>", SimpleRasterData<float>::ClassNameNBX().text());
    EXPECT_TRUE(NBX::SerializationManager::isRegistered(SimpleRasterData<float>::ClassNameNBX()));
    EXPECT_TRUE(NBX::SerializationManager::isRegistered(SimpleRasterData<double>::ClassNameNBX()));
    EXPECT_TRUE(ramp()->isRegisteredForSerialization());
}

/// What a hostile or damaged stream may say.
struct BadStream {
    const char * name;
    void (*spoil)(MemoryStream & stream);
};

class SimpleRasterDataBadStream : public testing::TestWithParam<BadStream> {};

TEST_P(SimpleRasterDataBadStream, ThrowsAndLeavesAnEmptyRaster) {
    MemoryStream stream;
    ramp()->serialize(stream);
    stream.reads = true;
    GetParam().spoil(stream);
    const NBX::SO<SimpleRasterData<float>> read(new SimpleRasterData<float>);
    EXPECT_THROW(read->serialize(stream), NBX::IOError);
    EXPECT_EQ(0u, read->cellsX());
    EXPECT_TRUE(read->isUndef(10.0, 20.0));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SimpleRasterDataBadStream,
    testing::Values(
        BadStream{"HugeSize",
                  [](MemoryStream & s) {
                      s.left = 1000;
                      s.set("cellsX", 0xffffffffu);
                      s.set("cellsY", 0xffffffffu);
                  }},
        BadStream{"SizeThatWrapsIn32Bits",
                  [](MemoryStream & s) {
                      s.left = 1000;
                      s.set("cellsX", 0x10000u);
                      s.set("cellsY", 0x10000u);
                  }},
        BadStream{"TooFewValues", [](MemoryStream & s) { s.attributes["values"].resize(23); }},
        BadStream{"NoValues", [](MemoryStream & s) { s.attributes.erase("values"); }},
        BadStream{"CellSizeZero", [](MemoryStream & s) { s.set("cellSizeX", 0.0); }},
        BadStream{"CellSizeNotANumber", [](MemoryStream & s) { s.set("cellSizeY", std::nan("")); }},
        BadStream{"InfinitePosition",
                  [](MemoryStream & s) { s.set("minX", std::numeric_limits<double>::infinity()); }}),
    [](const auto & info) { return info.param.name; });

} // namespace
