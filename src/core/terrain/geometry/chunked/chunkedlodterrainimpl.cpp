#include "chunkedlodterrainimpl.h"

#include "chunkedloderrorfield.h"
#include <nbx/data/file.h>
#include <nbx/data/filedataresource.h>
#include <nbx/data/memorydataresource.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(ChunkedLodTerrain::Impl, NBX::SharedObj)

namespace {

/// Removes a file at the end of the scope. A mapped file keeps its bytes, and no crash leaves it behind.
struct Removed {
    std::string path;
    ~Removed() { NBX::File::remove(path); }
};

NBX::SO<NBX::DataResource> makeArray(std::size_t values) {
    const auto bytes = static_cast<unsigned>(values * sizeof(unsigned short));
    if (bytes < ChunkedLodTerrain::Impl::s_minFileSize) return new NBX::MemoryDataResource(bytes);
    const Removed file{NBX::File::temporaryFileName("zmt-clod-terrain-")};
    return new NBX::FileDataResource(file.path, bytes, true);
}

unsigned usedCells(unsigned cells) {
    return std::clamp(cells, 1U, ChunkedLodTerrain::s_maxSize);
}

} // namespace

ChunkedLodTerrain::Impl::Impl(unsigned cellsX, unsigned cellsY)
    : sizeX_(usedCells(cellsX)), sizeY_(usedCells(cellsY)) {
    while (paddedSize_ < std::max(sizeX_, sizeY_))
        paddedSize_ = (1U << ++level_) + 1;
    heightResource_ = makeArray(std::size_t(sizeX_) * sizeY_);
    errorResource_ = makeArray(std::size_t(paddedSize_) * paddedSize_);
    heights_ = static_cast<unsigned short *>(heightResource_->pointer());
    errors_ = static_cast<unsigned short *>(errorResource_->pointer());
}

void ChunkedLodTerrain::Impl::computeErrors() {
    ChunkedLodErrorField::compute(heights_, sizeX_, sizeY_, level_, errors_);
}

} // namespace ZMT::CORE
