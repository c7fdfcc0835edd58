#pragma once

#include <memory>
#include <string>

#include <zmt/raster/georeference.h>
#include <zmt/raster/rasterdata.h>
#include <zmt/raster/relief/rowsink.h>

namespace ZMT::RASTER {

/// A raster that is written row by row, and appears under its name when it is complete: a GeoTIFF in tiles,
/// or a picture as PNG with a world file beside it (NAME.pgw), which is all in memory until then.
class RasterWriter : public RowSink {
public:
    enum Pixels {
        P_Numbers, ///< 32-bit floats; nothing is `ReliefProduct::s_noData`. Not in PNG
        P_Gray,    ///< from 0, black, to 255, and alpha: nothing is transparent
        P_Ink,     ///< the same, black with an alpha of what is missing to white
    };
    struct Layout {
        RasterGrid grid;
        GeoReference reference;
        Pixels pixels = P_Numbers;
        bool deflates = true; ///< PNG always is
        unsigned threads = 1; ///< that deflate
    };

    /// True for the names of PNG files; all others are GeoTIFF.
    static bool isPicture(const std::string & path);
    /// The world file beside the picture `path`.
    static std::string worldFileFor(const std::string & path);

    /// Throws `NBX::IOException` where no file can be made there, and for pictures beyond what PNG or memory
    /// holds. One thread at a time uses a writer.
    static std::unique_ptr<RasterWriter> open(const std::string & path, const Layout & layout);

    /// All rows are there: puts the file in its place. Throws as above.
    virtual void commit() = 0;
};

} // namespace ZMT::RASTER
