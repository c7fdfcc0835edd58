#pragma once

#include <string>
#include <vector>

#include <nbx/object/so.h>

#include "cityinputs.h"
#include "landscape/outputfiles.h"

namespace CLI {
class App;
}

namespace NBX {
class PolygonSet;
}

namespace ZMT::RASTER {
class RasterFile;
}

/// Adds `--casters`, whose files become the inputs, and the options that say where models stand and how they
/// are read.
void addCasterOptions(CLI::App & command, CityInputs & casters);
/// The files that are read, for `checkReliefFiles`. Throws `UsageError` for options that nothing is there
/// for.
std::vector<NamedFile> casterFiles(const CityInputs & casters);
/// Cities, and models on the ground of `heights`, as `RasterLight` takes them: `exaggeration` is that of the
/// ground. Null without any. Tells in a line what stands beside the ground. Throws `DataError`, and what the
/// engine throws for files that cannot be used.
NBX::SO<NBX::PolygonSet> readCasters(const CityInputs & casters, const ZMT::RASTER::RasterFile & heights,
                                     double exaggeration);
