// Writing an image in all its resolutions as deflated tiles, next to GDAL writing a tiled, deflated GeoTIFF
// with overviews from the same file: the same level of deflation, the same number of threads. The image is
// fractal noise over a gradient, which deflates like aerial imagery. Both report the bytes that they wrote.

#include <zmt/util/compressedtexture/compressedtexture.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <thread>

#include <unistd.h>

#include <cpl_conv.h>
#include <gdal_priv.h>

#include <zmt/raster/gdal/imagefilepyramid.h>
#include <zmt/raster/geoimage.h>
#include <zmt/raster/tiledgeoimage.h>
#include <zmt/util/compressedtexture/texturepyramid.h>

namespace {

using ZMT::UTIL::CompressedTexture;

std::string inFolder(const std::string & name) {
    static const std::string folder =
        (std::filesystem::temp_directory_path() / ("zmt_pyramid_benchmark_" + std::to_string(::getpid())))
            .string();
    std::filesystem::create_directories(folder);
    return folder + "/" + name;
}

std::wstring wide(const std::string & ascii) {
    return std::wstring(ascii.begin(), ascii.end());
}

/// One line of the image.
void fillLine(int y, int size, std::mt19937 & random, std::vector<unsigned char> & line) {
    for (int x = 0; x < size; ++x)
        for (int band = 0; band < 3; ++band) {
            const double hills =
                60.0 * std::sin(x * 0.013 + band) * std::cos(y * 0.017) + 20.0 * std::sin(0.11 * (x + y));
            line[static_cast<std::size_t>(3 * x + band)] =
                static_cast<unsigned char>(120.0 + hills + static_cast<double>(random() % 16));
        }
}

/// An uncompressed tiled file of three bands, made once.
const std::string & sourceFile(int size) {
    static const std::string path = inFolder("source.tif");
    static int written = 0;
    if (written == size) return path;
    GDALAllRegister();
    const char * options[] = {"TILED=YES", "INTERLEAVE=PIXEL", nullptr};
    GDALDataset * dataset = GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
        path.c_str(), size, size, 3, GDT_Byte, const_cast<char **>(options));
    double transform[6] = {0.0, 1.0, 0.0, size + 0.0, 0.0, -1.0};
    dataset->SetGeoTransform(transform);
    std::mt19937 random(1);
    std::vector<unsigned char> line(3UL * static_cast<std::size_t>(size));
    for (int y = 0; y < size; ++y) {
        fillLine(y, size, random, line);
        if (dataset->RasterIO(GF_Write, 0, y, size, 1, line.data(), size, 1, GDT_Byte, 3, nullptr, 3, 0, 1,
                              nullptr) != CE_None)
            std::abort();
    }
    GDALClose(dataset);
    written = size;
    return path;
}

void reportBytes(benchmark::State & state, const std::string & path, int size) {
    state.counters["fileMB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
    state.counters["Mpixel/s"] =
        benchmark::Counter(size * 1e-6 * size, benchmark::Counter::kIsIterationInvariantRate);
}

void writePyramid(benchmark::State & state) {
    const int size = static_cast<int>(state.range(0));
    const std::string source = sourceFile(size), path = inFolder("a.ztp");
    for (auto _ : state) {
        std::filesystem::remove(path);
        if (!CompressedTexture::create({wide(source)}, wide(path))) state.SkipWithError("not written");
    }
    reportBytes(state, path, size);
}

void writeGeoTiff(benchmark::State & state) {
    const int size = static_cast<int>(state.range(0));
    const std::string source = sourceFile(size), path = inFolder("a.tif");
    CPLSetConfigOption("GDAL_NUM_THREADS", std::to_string(std::thread::hardware_concurrency()).c_str());
    const char * options[] = {
        "TILED=YES", "COMPRESS=DEFLATE", "ZLEVEL=6", "NUM_THREADS=ALL_CPUS", "INTERLEAVE=PIXEL", nullptr};
    for (auto _ : state) {
        std::filesystem::remove(path);
        GDALDataset * from = GDALDataset::Open(source.c_str(), GDAL_OF_RASTER);
        GDALDataset * to = GetGDALDriverManager()->GetDriverByName("GTiff")->CreateCopy(
            path.c_str(), from, FALSE, const_cast<char **>(options), nullptr, nullptr);
        GDALClose(to);
        GDALClose(from);
        std::vector<int> factors;
        for (int factor = 2; size / factor >= 64; factor *= 2)
            factors.push_back(factor);
        to = GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE);
        if (to->BuildOverviews("AVERAGE", static_cast<int>(factors.size()), factors.data(), 0, nullptr,
                               nullptr, nullptr) != CE_None)
            state.SkipWithError("no overviews");
        GDALClose(to);
    }
    CPLSetConfigOption("GDAL_NUM_THREADS", nullptr);
    reportBytes(state, path, size);
}

/// What a texture asks for: windows of 512 by 512 pixels in all levels.
template <class Pyramid> void readWindows(benchmark::State & state, const Pyramid & pyramid) {
    std::mt19937 random(5);
    const double size = pyramid.maxX();
    for (auto _ : state) {
        const double side = std::min(size, 512.0 * static_cast<double>(1U << random() % 5));
        const double x = std::uniform_real_distribution<double>(0.0, size - side)(random);
        const double y = std::uniform_real_distribution<double>(0.0, size - side)(random);
        const auto image = pyramid.getGeoImage(x, y, x + side, y + side, 512, 512);
        if (!image) state.SkipWithError("nothing read");
        benchmark::DoNotOptimize(image.get());
    }
}

void readPyramid(benchmark::State & state) {
    const auto pyramid = CompressedTexture::load(wide(inFolder("a.ztp")));
    if (!pyramid) return state.SkipWithError("write first");
    readWindows(state, *pyramid);
}

void readGeoTiff(benchmark::State & state) {
    const NBX::SO<ZMT::RASTER::ImageFilePyramid> pyramid(
        new ZMT::RASTER::ImageFilePyramid(inFolder("a.tif")));
    readWindows(state, *pyramid);
}

BENCHMARK(writePyramid)->Arg(6144)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(writeGeoTiff)->Arg(6144)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(readPyramid)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(readGeoTiff)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
