#include "core/terrain/geometry/grid/model/terrainfileformat.h"

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace ZMT::CORE::GRID;
using namespace ZMT::CORE::GRID::TerrainFileFormat;

/// Bytes of a record, put together by hand.
class Bytes {
public:
    explicit Bytes(std::size_t size) : bytes_(size) {}
    template <class T> Bytes & put(std::size_t offset, T value) {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof value);
        for (std::size_t i = 0; i < sizeof value; ++i)
            bytes_[offset + i] = static_cast<std::uint8_t>(bits >> (8 * i));
        return *this;
    }
    Bytes & text(std::size_t offset, const char * value) {
        std::copy(value, value + std::strlen(value), bytes_.begin() + static_cast<std::ptrdiff_t>(offset));
        return *this;
    }
    template <class Record> Record as() const {
        Record record;
        EXPECT_EQ(sizeof record, bytes_.size());
        std::memcpy(static_cast<void *>(&record), bytes_.data(), sizeof record);
        return record;
    }
    template <class Record> bool equals(const Record & record) const {
        return std::memcmp(&record, bytes_.data(), bytes_.size()) == 0;
    }

private:
    std::vector<std::uint8_t> bytes_;
};

/// L 2, D 3: up to 33 samples along a side.
Bytes fileBytes() {
    return Bytes(256)
        .text(0, "ZMT-AQTG")
        .put<std::uint64_t>(8, 1000)
        .put<std::uint32_t>(24, 30)
        .put<std::uint32_t>(28, 33)
        .put<std::uint32_t>(32, 2)
        .put<std::uint32_t>(36, 3)
        .put(40, 100.5)
        .put(48, -200.25)
        .put(56, 1000.0)
        .put(64, 2.0)
        .put(72, 3.0)
        .put(80, 0.125)
        .put<std::uint64_t>(88, 512)
        .put<std::uint32_t>(96, 128 + 2 * (25 + 4 * 8))
        .put<std::uint32_t>(100, 77);
}

FileHeader goodFile() {
    return fileBytes().as<FileHeader>();
}

constexpr TilePlace place{2, 1, 4, 8};
constexpr GridBox everywhere{{0, 0, 1}, {32, 32, 65535}};

Bytes tileBytes() {
    return Bytes(128)
        .text(0, "ZMT-AQGP")
        .put<std::uint32_t>(16, 2)
        .put<std::uint32_t>(20, 1)
        .put<std::uint32_t>(24, 4)
        .put<std::uint32_t>(28, 8)
        .put<std::uint32_t>(32, 9)
        .put<std::uint32_t>(36, 18)
        .put<std::uint32_t>(40, 300)
        .put<std::uint32_t>(44, 16)
        .put<std::uint32_t>(48, 22)
        .put<std::uint32_t>(52, 400)
        .put<std::uint32_t>(56, 57)
        .put<std::uint64_t>(64 + 2 * 16, 0x1122334455667788)
        .put<std::uint32_t>(64 + 2 * 16 + 8, 0x99AABBCC)
        .put<std::uint32_t>(64 + 2 * 16 + 12, 0xDDEEFF00);
}

TEST(TerrainFileFormatTest, FieldsOfTheFileHeaderStandAtTheirOffsets) {
    FileHeader header = FileHeader::blank();
    header.dataSize = 1000;
    header.sizeX = 30;
    header.sizeY = 33;
    header.tileLevel = 2;
    header.treeDepth = 3;
    header.originX = 100.5;
    header.originY = -200.25;
    header.minHeight = 1000.0;
    header.cellSizeX = 2.0;
    header.cellSizeY = 3.0;
    header.heightScale = 0.125;
    header.root = {512, blockSize(2), 77};
    EXPECT_TRUE(fileBytes().equals(header));
    EXPECT_TRUE(header.isSound(1000));
    EXPECT_TRUE(header.isSound(UINT64_MAX));
}

TEST(TerrainFileFormatTest, FieldsOfATileStandAtTheirOffsets) {
    TileHeader header = TileHeader::blank(place);
    header.box = {{9, 18, 300}, {16, 22, 400}};
    header.children[2] = {0x1122334455667788, 0x99AABBCC, 0xDDEEFF00};
    EXPECT_TRUE(tileBytes().equals(header));
    EXPECT_TRUE(header.isSound(place, everywhere));
}

TEST(TerrainFileFormatTest, BorderTablesFollowTheHeights) {
    EXPECT_EQ(9U + 4U * 3U, sampleCount(1));
    EXPECT_EQ(4U, sampleCount(0));
    EXPECT_EQ(17685U, sampleCount(7));
    EXPECT_EQ(128U + 2U * 17685U, blockSize(7));
    for (unsigned level = 1; level <= 7; ++level) {
        std::uint32_t next = samplesPerSide(level) * samplesPerSide(level);
        for (unsigned border = 0; border < 4; ++border)
            for (unsigned k = 0; k < level; ++k) {
                EXPECT_EQ(next, borderRowStart(level, border, k)) << level << border << k;
                next += borderRowSize(level, k);
            }
        EXPECT_EQ(next, sampleCount(level));
    }
    EXPECT_EQ(5U, borderRowSize(2, 0));
    EXPECT_EQ(3U, borderRowSize(2, 1));
}

TEST(TerrainFileFormatTest, HeightsAreTheSecondGeoCoordinate) {
    const auto matrix = goodFile().gridToGeo();
    EXPECT_EQ((NBX::Vector3Base<double>(100.5 + 14.0, 1000.0, -200.25 + 15.0)),
              (matrix * NBX::Vector3Base<double>(7.0, 5.0, 1.0)));
    EXPECT_EQ(1000.0 + 65534 * 0.125, (matrix * NBX::Vector3Base<double>(0.0, 0.0, 65535.0)).y);
    EXPECT_EQ((NBX::Vector3Base<double>(0.0, 0.0, 1.0)), goodFile().gridBounds().getLLF());
    EXPECT_EQ((NBX::Vector3Base<double>(30.0, 33.0, 65535.0)), goodFile().gridBounds().getURB());
}

TEST(TerrainFileFormatTest, FileHeadersThatCannotBeRightAreRefused) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const struct {
        const char * name;
        std::function<void(FileHeader &)> change;
        bool isSound;
    } cases[] = {
        {"magic", [](FileHeader & h) { h.magic[7] = 'T'; }, false},
        {"reserved", [](FileHeader & h) { h.reserved0 = 1ULL << 40; }, false},
        {"more data than the file", [](FileHeader & h) { h.dataSize = 1001; }, false},
        {"data end at the root's end", [](FileHeader & h) { h.dataSize = 589; }, true},
        {"data end in the root", [](FileHeader & h) { h.dataSize = 588; }, false},
        {"no root", [](FileHeader & h) { h.root = {}; }, false},
        {"root without a block",
         [](FileHeader & h) {
             h.root = {0, 1, 0};
         },
         false},
        {"root in the header", [](FileHeader & h) { h.root.offset = 255; }, false},
        {"root behind the header", [](FileHeader & h) { h.root.offset = 256; }, true},
        {"root's end overflows", [](FileHeader & h) { h.root.offset = UINT64_MAX - 10; }, false},
        {"root smaller than L gives", [](FileHeader & h) { h.root.rawSize -= 2; }, false},
        {"root larger than L gives", [](FileHeader & h) { h.root.rawSize += 2; }, false},
        {"root of another L", [](FileHeader & h) { h.tileLevel = 3; }, false},
        {"L 7",
         [](FileHeader & h) {
             h.tileLevel = 7, h.root = {300, blockSize(7), 600};
         },
         true},
        {"L 8",
         [](FileHeader & h) {
             h.tileLevel = 8, h.root = {300, blockSize(8), 600};
         },
         false},
        {"L 32", [](FileHeader & h) { h.tileLevel = 32; }, false},
        {"L + D 31", [](FileHeader & h) { h.treeDepth = 29, h.sizeX = h.sizeY = 0x80000001; }, true},
        {"L + D 32", [](FileHeader & h) { h.treeDepth = 30; }, false},
        {"L + D overflows", [](FileHeader & h) { h.treeDepth = UINT32_MAX; }, false},
        {"no extent in x", [](FileHeader & h) { h.sizeX = 0; }, false},
        {"no extent in y", [](FileHeader & h) { h.sizeY = 0; }, false},
        {"wider than the tree", [](FileHeader & h) { h.sizeX = 34; }, false},
        {"higher than the tree", [](FileHeader & h) { h.sizeY = 34; }, false},
        {"no cell size in x", [](FileHeader & h) { h.cellSizeX = 0.0; }, false},
        {"negative cell size in y", [](FileHeader & h) { h.cellSizeY = -3.0; }, false},
        {"tiny cell size", [](FileHeader & h) { h.cellSizeY = 5e-324; }, false},
        {"no inverse", [](FileHeader & h) { h.cellSizeX = h.cellSizeY = h.heightScale = 1e-200; }, false},
        {"endless cell size", [](FileHeader & h) { h.cellSizeX = infinity; }, false},
        {"cell size is no number", [](FileHeader & h) { h.cellSizeX = std::nan(""); }, false},
        {"no height scale", [](FileHeader & h) { h.heightScale = 0.0; }, false},
        {"origin x is no number", [](FileHeader & h) { h.originX = std::nan(""); }, false},
        {"endless origin y", [](FileHeader & h) { h.originY = -infinity; }, false},
        {"endless height", [](FileHeader & h) { h.minHeight = infinity; }, false},
        {"highest overflows", [](FileHeader & h) { h.heightScale = 1e304; }, false},
        {"eastern edge overflows", [](FileHeader & h) { h.cellSizeX = 1e307; }, false},
    };
    EXPECT_TRUE(goodFile().isSound(1000));
    for (const auto & c : cases) {
        FileHeader header = goodFile();
        c.change(header);
        EXPECT_EQ(c.isSound, header.isSound(1000)) << c.name;
    }
}

TEST(TerrainFileFormatTest, TilesThatBelongElsewhereAreRefused) {
    const struct {
        const char * name;
        std::function<void(TileHeader &)> change;
        bool isSound;
    } cases[] = {
        {"magic", [](TileHeader & h) { h.magic[0] = 'z'; }, false},
        {"reserved", [](TileHeader & h) { h.reserved0 = 1; }, false},
        {"level", [](TileHeader & h) { h.place.tileLevel = 3; }, false},
        {"depth", [](TileHeader & h) { h.place.depth = 0; }, false},
        {"x", [](TileHeader & h) { h.place.tileX = 0; }, false},
        {"y", [](TileHeader & h) { h.place.tileY = 12; }, false},
        {"count", [](TileHeader & h) { h.sampleCount = 58; }, false},
        {"the whole square",
         [](TileHeader & h) {
             h.box = {{8, 16, 1}, {16, 24, 65535}};
         },
         true},
        {"box beside in low x", [](TileHeader & h) { h.box.min[0] = 7; }, false},
        {"box beside in low y", [](TileHeader & h) { h.box.min[1] = 15; }, false},
        {"box below", [](TileHeader & h) { h.box.min[2] = 0; }, false},
        {"box beside in high x", [](TileHeader & h) { h.box.max[0] = 17; }, false},
        {"box beside in high y", [](TileHeader & h) { h.box.max[1] = 25; }, false},
        {"box above", [](TileHeader & h) { h.box.max[2] = 65536; }, false},
        {"box turned in x", [](TileHeader & h) { std::swap(h.box.min[0], h.box.max[0]); }, false},
        {"box turned in y", [](TileHeader & h) { std::swap(h.box.min[1], h.box.max[1]); }, false},
        {"box turned in height", [](TileHeader & h) { std::swap(h.box.min[2], h.box.max[2]); }, false},
    };
    const TileHeader good = tileBytes().as<TileHeader>();
    for (const auto & c : cases) {
        TileHeader header = good;
        c.change(header);
        EXPECT_EQ(c.isSound, header.isSound(place, everywhere)) << c.name;
    }
    EXPECT_TRUE(good.isSound(place, good.box));
    for (unsigned axis = 0; axis < 3; ++axis) {
        GridBox limits = good.box;
        ++limits.min[axis];
        EXPECT_FALSE(good.isSound(place, limits)) << axis;
        limits = good.box;
        --limits.max[axis];
        EXPECT_FALSE(good.isSound(place, limits)) << axis;
    }
}

TEST(TerrainFileFormatTest, FinestTilesHaveNoChildren) {
    const TilePlace finest{2, 0, 4, 8};
    TileHeader header = TileHeader::blank(finest);
    header.box = {{4, 8, 1}, {8, 12, 2}};
    EXPECT_TRUE(header.isSound(finest, everywhere));
    header.children[3] = {256, blockSize(2), blockSize(2)};
    EXPECT_FALSE(header.isSound(finest, everywhere));
}

TEST(TerrainFileFormatTest, FaultsStandAtTheirFields) {
    FileHeader header = goodFile();
    header.reserved0 = 1;
    header.sizeY = 0;
    header.cellSizeX = -1.0;
    header.originY = std::numeric_limits<double>::infinity();
    std::vector<std::size_t> offsets;
    for (const ZMT::CORE::RecordFault & fault : header.faults(999))
        offsets.push_back(fault.offset);
    EXPECT_EQ((std::vector<std::size_t>{16, 8, 28, 64, 48}), offsets);

    TileHeader tile = tileBytes().as<TileHeader>();
    tile.reserved0 = 1;
    tile.sampleCount = 58;
    tile.box.max[1] = 25;
    offsets.clear();
    for (const ZMT::CORE::RecordFault & fault : tile.faults(place, everywhere))
        offsets.push_back(fault.offset);
    EXPECT_EQ((std::vector<std::size_t>{8, 56, 32}), offsets);
    EXPECT_EQ("the box, 9 18 300 to 16 25 400, is no part of " + everywhere.text(),
              tile.faults(place, everywhere)[2].what);
    tile.place.tileX = 0;
    EXPECT_EQ(16U, tile.faults(place, everywhere).at(0).offset);
}

TEST(TerrainFileFormatTest, BoxesAreUnited) {
    const GridBox a{{1, 20, 3}, {10, 30, 40}}, b{{2, 10, 4}, {20, 25, 30}};
    EXPECT_EQ((GridBox{{1, 10, 3}, {20, 30, 40}}), a.united(b));
    EXPECT_FALSE(a.isInsideOut());
    for (unsigned axis = 0; axis < 3; ++axis) {
        GridBox turned = a;
        std::swap(turned.min[axis], turned.max[axis]);
        EXPECT_TRUE(turned.isInsideOut()) << axis;
    }
}

TEST(TerrainFileFormatTest, ChildrenDivideTheSquareOfTheirParent) {
    const TilePlace parent{2, 3, 4, 8};
    EXPECT_EQ((GridBox{{32, 64, 1}, {64, 96, 65535}}), parent.box());
    const GridBox boxes[] = {{{32, 64, 1}, {48, 80, 65535}},
                             {{48, 64, 1}, {64, 80, 65535}},
                             {{32, 80, 1}, {48, 96, 65535}},
                             {{48, 80, 1}, {64, 96, 65535}}};
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(boxes[i], parent.child(i).box()) << i;
    EXPECT_EQ((TilePlace{2, 2, 12, 20}), parent.child(3));
    const TilePlace largest{7, 24, 0, 0};
    EXPECT_EQ(0x80000000U, largest.box().max[0]);
    EXPECT_EQ(0x80000000U, largest.child(3).box().max[1]);
    EXPECT_EQ(0x40000000U, largest.child(3).box().min[0]);
}

} // namespace
