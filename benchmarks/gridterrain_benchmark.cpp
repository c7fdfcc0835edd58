// Writing a streaming terrain of 8193 by 8193 heights, next to GDAL's COG driver on the same raster: deflated
// at level 1, with average overviews, on two threads each. Both report the bytes that they wrote. And taking
// a block that has arrived, next to inflating and copying the same bytes.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <unistd.h>

#include <cpl_conv.h>
#include <gdal_priv.h>

#include <nbx/data/memorydataresource.h>
#include <nbx/data/zlibfilter.h>
#include <nbx/engine/mainmemorymanager.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>
#include <zmt/core/terrain/geometry/grid/gridterraincreation.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/simplerasterdata.h>

#include "core/terrain/geometry/grid/asyncgridterraintile.h"
#include "syntheticterrain.h"

namespace {

using namespace ZMT::CORE;
using namespace ZMT::CORE::GRID;

constexpr int s_threads = 2;
constexpr std::int64_t s_cacheBytes = 64 << 20;

std::string inFolder(const std::string & name) {
    static const std::string folder =
        (std::filesystem::temp_directory_path() / ("zmt_gridterrain_benchmark_" + std::to_string(::getpid())))
            .string();
    std::filesystem::create_directories(folder);
    return folder + "/" + name;
}

std::wstring wide(const std::string & ascii) {
    return std::wstring(ascii.begin(), ascii.end());
}

/// Heights as whole numbers in a plain GeoTIFF, made once.
const std::string & sourceFile(int size) {
    static const std::string path = inFolder("source.tif");
    static int written = 0;
    if (written == size) return path;
    GDALAllRegister();
    GDALSetCacheMax64(s_cacheBytes);
    const auto heights = makeSyntheticTerrain(static_cast<unsigned>(size));
    GDALDataset * dataset = GetGDALDriverManager()->GetDriverByName("GTiff")->Create(path.c_str(), size, size,
                                                                                     1, GDT_UInt16, nullptr);
    double transform[6] = {0.0, 30.0, 0.0, size * 30.0, 0.0, -30.0};
    dataset->SetGeoTransform(transform);
    if (dataset->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, size, size, heights->cells(), size, size,
                                            GDT_Float32, 0, 0, nullptr) != CE_None)
        std::abort();
    GDALClose(dataset);
    written = size;
    return path;
}

void reportBytes(benchmark::State & state, const std::string & path, int size) {
    state.counters["fileMB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
    state.counters["Mcell/s"] =
        benchmark::Counter(size * 1e-6 * size, benchmark::Counter::kIsIterationInvariantRate);
}

void writeTerrain(benchmark::State & state) {
    const int size = static_cast<int>(state.range(0));
    const std::string source = sourceFile(size), path = inFolder("a.ztt");
    GridTerrainCreation creation;
    creation.threads = s_threads;
    for (auto _ : state) {
        const ZMT::RASTER::RasterFile raster(source);
        if (!creation.run(wide(path), raster.band())) state.SkipWithError("not written");
    }
    reportBytes(state, path, size);
}

void writeCog(benchmark::State & state) {
    const int size = static_cast<int>(state.range(0));
    const std::string source = sourceFile(size), path = inFolder("a.tif");
    const std::string threads = "NUM_THREADS=" + std::to_string(s_threads);
    const char * options[] = {"COMPRESS=DEFLATE", "LEVEL=1", "OVERVIEW_RESAMPLING=AVERAGE", threads.c_str(),
                              nullptr};
    CPLSetConfigOption("GDAL_NUM_THREADS", std::to_string(s_threads).c_str());
    for (auto _ : state) {
        GDALDataset * from = GDALDataset::Open(source.c_str(), GDAL_OF_RASTER);
        GDALDataset * to = GetGDALDriverManager()->GetDriverByName("COG")->CreateCopy(
            path.c_str(), from, FALSE, const_cast<char **>(options), nullptr, nullptr);
        if (!to) state.SkipWithError("not written");
        GDALClose(to);
        GDALClose(from);
    }
    CPLSetConfigOption("GDAL_NUM_THREADS", nullptr);
    reportBytes(state, path, size);
}

/// A terrain in memory, one of whose tiles is read again and again.
struct OneTile {
    OneTile() {
        const std::string source = sourceFile(1025), path = inFolder("small.ztt");
        GridTerrainCreation().run(wide(path), ZMT::RASTER::RasterFile(source).band());
        std::ifstream stream(path, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(stream)), {});
        terrain = AsyncGridTerrain::load(AsyncFile::create(NBX::SO<NBX::DataResource>(
            new NBX::MemoryDataResource(bytes.data(), static_cast<unsigned>(bytes.size())))));
        tile = NBX::soCast<AsyncGridTerrainTile>(terrain->rootTile()->child(0, true));
    }
    NBX::SO<AsyncGridTerrain> terrain;
    NBX::SO<AsyncGridTerrainTile> tile;
};

void takeBlock(benchmark::State & state) {
    const OneTile one;
    for (auto _ : state) {
        if (!one.tile->requestTileData(1.0, true, nullptr)) state.SkipWithError("not read");
        one.tile->unloadData();
    }
}

void inflateAndCopy(benchmark::State & state) {
    const OneTile one;
    const TileRef ref = one.tile->tileRef();
    if (ref.rawSize == ref.storedSize) return state.SkipWithError("the block is plain");
    const auto request = one.terrain->file()->request(ref.offset, ref.storedSize, 1.0);
    const NBX::SO<NBX::DataResource> stored = request->data();
    std::vector<char> raw(ref.rawSize), copy(ref.rawSize);
    for (auto _ : state) {
        if (!NBX::ZLibFilter::uncompress(stored->pointer(), ref.storedSize, raw.data(), ref.rawSize))
            state.SkipWithError("not inflated");
        std::memcpy(copy.data(), raw.data(), ref.rawSize);
        benchmark::DoNotOptimize(copy.data());
    }
}

BENCHMARK(writeTerrain)->Arg(8193)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(writeCog)->Arg(8193)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(takeBlock)->Unit(benchmark::kMicrosecond);
BENCHMARK(inflateAndCopy)->Unit(benchmark::kMicrosecond);

} // namespace
