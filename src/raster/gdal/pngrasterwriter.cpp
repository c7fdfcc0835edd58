#include "pngrasterwriter.h"

#include <cstdint>
#include <cstdio>

#include "graypixels.h"

#include <nbx/data/memorydataresource.h>
#include <nbx/image/memoryimage.h>
#include <nbx/image/pngwriter.h>
#include <nbx/object/exception.h>

namespace ZMT::RASTER {

namespace {

constexpr std::uint64_t s_mostPixels = 400'000'000;

NBX::SO<NBX::Image> newPicture(const RasterWriter::Layout & layout, const std::string & path) {
    const RasterGrid & grid = layout.grid;
    if (layout.pixels == RasterWriter::P_Numbers)
        throw NBX::IOException(L"pictures hold no numbers; choose a name that ends in tif", path);
    if (grid.cellsY > s_mostPixels / grid.cellsX)
        throw NBX::IOException(L"is too large for a picture in memory; choose a name that ends in tif", path);
    return new NBX::MemoryImage(static_cast<int>(grid.cellsX), static_cast<int>(grid.cellsY),
                                NBX::LS_LuminanceAlpha);
}

} // namespace

PngRasterWriter::PngRasterWriter(const std::string & path, const Layout & layout)
    : path_(path), layout_(layout), file_(path), picture_(newPicture(layout, path)) {
    if (layout.reference.isGeoreferenced) world_.emplace(worldFileFor(path));
}

void PngRasterWriter::put(unsigned first, unsigned count, float * values) {
    const std::size_t width = layout_.grid.cellsX;
    for (unsigned line = 0; line < count; ++line) {
        const auto fromBelow = static_cast<int>(layout_.grid.cellsY - 1 - first - line);
        unsigned char * pixels = picture_->lineComponentsU8(fromBelow);
        for (std::size_t x = 0; x < width; ++x) {
            const GrayPixel pixel(values[line * width + x], layout_.pixels);
            pixels[2 * x] = pixel.gray;
            pixels[2 * x + 1] = pixel.alpha;
        }
    }
}

/// The affine map from columns and lines to the centres of pixels.
std::string PngRasterWriter::worldFile() const {
    const RasterGrid & grid = layout_.grid;
    char text[256];
    std::snprintf(text, sizeof text, "%.17g\n0\n0\n%.17g\n%.17g\n%.17g\n", grid.cellSizeX, -grid.cellSizeY,
                  grid.minX, grid.minY + (grid.cellsY - 1.0) * grid.cellSizeY);
    return text;
}

void PngRasterWriter::commit() {
    const auto bytes = NBX::PNGWriter().write(picture_.get());
    if (!bytes) throw NBX::IOException(L"the picture could not be encoded", path_);
    file_.write(bytes->pointer(), bytes->size());
    if (world_) {
        const std::string text = worldFile();
        world_->write(text.data(), text.size());
        world_->commit();
    }
    file_.commit();
}

} // namespace ZMT::RASTER
