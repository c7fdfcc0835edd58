#pragma once

#include <memory>
#include <string>
#include <vector>

#include "gdalsource.h"

#include <nbx/container/map/lrumap.h>
#include <zmt/raster/rasterband.h>

namespace ZMT::RASTER {

/// The first bands of many files, of which a bounded number is open: a file that was not read for longest is
/// closed, and opened again when it is read. One thread at a time uses it and its bands, which keep it.
class PooledRasterBands : public std::enable_shared_from_this<PooledRasterBands> {
public:
    /// Processes may open a thousand files, as a rule, and files of some formats are several.
    static constexpr unsigned s_mostOpen = 64;

    /// `file` was opened as wanted in the system `wkt`, and is opened so again. Reading from the band throws
    /// `NBX::InputException` where the file has got another grid meanwhile.
    NBX::SO<RasterBand> add(const std::shared_ptr<const GdalSource> & file, const std::string & wkt);

private:
    class Band;

    void keepOpen(unsigned number, const NBX::SO<RasterBand> & band);
    NBX::SO<RasterBand> opened(unsigned number, const Band & wanted);

    unsigned files_ = 0;
    NBX::LRUMap<unsigned, NBX::SO<RasterBand>> open_;
};

} // namespace ZMT::RASTER
