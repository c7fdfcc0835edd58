#include "core/terrain/geometry/chunked/chunkedlodterrainimpl.h"

#include <fstream>

#include <support/filesizelimit.h>
#include <support/temporaryfolder.h>

#include <nbx/object/exception.h>

#include "chunkedfixture.h"

using TestChunked::Lattice;

namespace {

TEST(ChunkedLodTerrainImpl, PadsToTheNextSquareWithACentre) {
    const struct {
        unsigned cellsX, cellsY, sizeX, sizeY, paddedSize, level;
        bool isSquare;
    } cases[] = {{1025, 1025, 1025, 1025, 1025, 10, true},
                 {1000, 1025, 1000, 1025, 1025, 10, false},
                 {1026, 3, 1026, 3, 2049, 11, false},
                 {4, 4, 4, 4, 5, 2, false},
                 {3, 3, 3, 3, 3, 1, true},
                 {2, 2, 2, 2, 3, 1, false},
                 {1, 1, 1, 1, 3, 1, false},
                 {0, 0, 1, 1, 3, 1, false}};
    for (const auto & c : cases) {
        SCOPED_TRACE(testing::Message() << c.cellsX << " by " << c.cellsY);
        const NBX::SO<Lattice> lattice(new Lattice(c.cellsX, c.cellsY));
        EXPECT_EQ(lattice->sizeX(), c.sizeX);
        EXPECT_EQ(lattice->sizeY(), c.sizeY);
        EXPECT_EQ(lattice->paddedSize(), c.paddedSize);
        EXPECT_EQ(lattice->level(), c.level);
        EXPECT_EQ(lattice->isSquare(), c.isSquare);
    }
}

TEST(ChunkedLodTerrainImpl, BeyondTheRasterTheLastColumnAndRowRepeat) {
    const NBX::SO<Lattice> lattice(new Lattice(1000, 1025));
    EXPECT_EQ(lattice->heightIndex(999, 5), 999U + 5 * 1000);
    EXPECT_EQ(lattice->heightIndex(1000, 5), 999U + 5 * 1000);
    EXPECT_EQ(lattice->heightIndex(1024, 1024), 999U + 1024 * 1000);
    EXPECT_EQ(lattice->latticeIndex(1000, 5), 1000U + 5 * 1025);
    const NBX::SO<Lattice> square(new Lattice(1025, 1025));
    EXPECT_EQ(square->heightIndex(1000, 5), 1000U + 5 * 1025);
}

TEST(ChunkedLodTerrainImpl, LargeArraysLieInFilesThatAreGoneAtOnce) {
    const TemporaryFolder folder;
    // 8193 by 2 heights are small, the errors of their lattice are not.
    const NBX::SO<Lattice> lattice(new Lattice(8194, 2));
    EXPECT_EQ(lattice->sizeX(), 8193U);
    EXPECT_TRUE(folder.isEmpty());
    lattice->heights()[3] = 9;
    lattice->computeErrors();
    EXPECT_EQ(lattice->errors()[3], 9);
    EXPECT_EQ(lattice->errors()[0], 65535);
    EXPECT_EQ(lattice->errors()[std::size_t(8193) * 8193 - 1], 65535);
}

TEST(ChunkedLodTerrainImpl, RowsBeyondTheLargestSizeAreLeftOut) {
    for (const unsigned cellsY : {8193U, 8194U, 8200U}) {
        const NBX::SO<Lattice> lattice(new Lattice(2, cellsY));
        EXPECT_EQ(lattice->sizeX(), 2U);
        EXPECT_EQ(lattice->sizeY(), 8193U) << cellsY;
        EXPECT_EQ(lattice->paddedSize(), 8193U) << cellsY;
        EXPECT_EQ(lattice->heightIndex(0, 8193), 8192U * 2) << "the last row repeats";
    }
}

/// How many mappings of files of chunked terrains this process has.
unsigned mappedFiles() {
    std::ifstream mappings("/proc/self/maps");
    unsigned count = 0;
    for (std::string line; std::getline(mappings, line);)
        count += line.find("/zmt-clod-terrain-") != std::string::npos;
    return count;
}

TEST(ChunkedLodTerrainImpl, ArraysOfFiftyMebibytesLieInFiles) {
    static_assert(5120 * 5120 * sizeof(unsigned short) == Lattice::s_minFileSize);
    ASSERT_EQ(mappedFiles(), 0U);
    const struct {
        unsigned cellsX, cellsY, files;
    } cases[] = {{4097, 4097, 0}, {5120, 5119, 1}, {5120, 5120, 2}};
    for (const auto & c : cases) {
        SCOPED_TRACE(testing::Message() << c.cellsX << " by " << c.cellsY);
        const NBX::SO<Lattice> lattice(new Lattice(c.cellsX, c.cellsY));
        EXPECT_EQ(mappedFiles(), c.files);
    }
    EXPECT_EQ(mappedFiles(), 0U);
}

TEST(ChunkedLodTerrainImpl, AFullDiskIsAnErrorBeforeAnythingIsWritten) {
    const TemporaryFolder folder;
    const FileSizeLimit limit(1 << 20);
    EXPECT_THROW(NBX::SO<Lattice>(new Lattice(8193, 2)), NBX::IOException);
    EXPECT_TRUE(folder.isEmpty());
}

} // namespace
