// Slopes and shades from file to file beside GDAL's own, on the same heights in the same run, and hachures by
// stages. The folder for temporary files takes the rasters.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include <gdal_priv.h>
#include <gdal_utils.h>
#include <unistd.h>

#include <cpl_string.h>

#include <zmt/raster/gdal/cellsizes.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/gdal/rasterwriter.h>
#include <zmt/raster/relief/morphologicalparameters.h>
#include <zmt/raster/relief/reliefwalk.h>
#include <zmt/raster/relief/shadeproduct.h>
#include <zmt/raster/relief/slopeproduct.h>
#include <zmt/util/hachures/hachuredefaults.h>
#include <zmt/util/hachures/hachures.h>

namespace {

using namespace ZMT::RASTER;
using ZMT::UTIL::HachureDefaults;
using ZMT::UTIL::Hachures;

constexpr unsigned s_side = 4097, s_hachureSide = 2001;

float heightAt(unsigned x, unsigned y) {
    return float(900.0 + 300.0 * std::sin(0.011 * x) * std::cos(0.013 * y) +
                 60.0 * std::sin(0.071 * x + 0.05 * y) + 9.0 * std::sin(0.31 * x - 0.27 * y));
}

/// Heights in a file of their own, and what is made of them.
class Files {
public:
    Files() : folder_(std::filesystem::temp_directory_path() / ("zmt_relief_" + std::to_string(getpid()))) {
        std::filesystem::create_directories(folder_);
        RasterWriter::Layout layout;
        layout.grid = {s_side, s_side, 0.0, 0.0, 30.0, 30.0};
        layout.reference.isGeoreferenced = true;
        layout.deflates = false;
        const auto writer = RasterWriter::open(path("heights.tif"), layout);
        for (unsigned first = 0; first < s_side; first += RowSink::s_rows) {
            const unsigned count = std::min(RowSink::s_rows, s_side - first);
            std::vector<float> rows;
            for (unsigned y = first; y < first + count; ++y)
                for (unsigned x = 0; x < s_side; ++x)
                    rows.push_back(heightAt(x, y));
            writer->put(first, count, rows.data());
        }
        writer->commit();
    }
    ~Files() { std::filesystem::remove_all(folder_); }
    Files(const Files &) = delete;
    Files & operator=(const Files &) = delete;

    std::string path(const std::string & name) const { return (folder_ / name).string(); }

private:
    std::filesystem::path folder_;
};

const Files & files() {
    static const Files all;
    return all;
}

/// Wall time and that of all processors, in seconds.
struct Times {
    double wall = 0.0, processor = 0.0;

    template <class Work> void add(const Work & work) {
        const auto start = std::chrono::steady_clock::now();
        const std::clock_t before = std::clock();
        work();
        processor += double(std::clock() - before) / CLOCKS_PER_SEC;
        wall += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
};

void runGdal(const char * kind, bool deflates) {
    CPLStringList words;
    for (const char * word : {"-of", "GTiff"})
        words.AddString(word);
    if (deflates)
        for (const char * option : {"TILED=YES", "COMPRESS=DEFLATE", "NUM_THREADS=2"}) {
            words.AddString("-co");
            words.AddString(option);
        }
    GDALDatasetH source = GDALOpen(files().path("heights.tif").c_str(), GA_ReadOnly);
    GDALDEMProcessingOptions * options = GDALDEMProcessingOptionsNew(words.List(), nullptr);
    GDALClose(GDALDEMProcessing(files().path("gdal.tif").c_str(), source, kind, nullptr, options, nullptr));
    GDALDEMProcessingOptionsFree(options);
    GDALClose(source);
}

void runOurs(const ReliefProduct & product, RasterWriter::Pixels pixels, bool deflates) {
    const RasterFile file(files().path("heights.tif"));
    const auto band = file.band();
    RasterWriter::Layout layout;
    layout.grid = band->grid();
    layout.reference = file.reference();
    layout.pixels = pixels;
    layout.deflates = deflates;
    layout.threads = 2;
    const auto out = RasterWriter::open(files().path("ours.tif"), layout);
    ReliefWalk::run(*band, product, CellSizes::of(band->grid(), file.reference()), *out);
    out->commit();
}

void compare(benchmark::State & state, const char * kind, const ReliefProduct & product,
             RasterWriter::Pixels pixels) {
    const bool deflates = state.range(0) != 0;
    runGdal(kind, deflates); // the source is in the cache, and so are the libraries
    Times gdal, ours;
    for (auto _ : state) {
        gdal.add([&] { runGdal(kind, deflates); });
        ours.add([&] { runOurs(product, pixels, deflates); });
    }
    const auto runs = double(state.iterations());
    state.counters["gdal_s"] = gdal.wall / runs;
    state.counters["ours_s"] = ours.wall / runs;
    state.counters["wall_ratio"] = ours.wall / gdal.wall;
    state.counters["gdal_cpu_s"] = gdal.processor / runs;
    state.counters["ours_cpu_s"] = ours.processor / runs;
    state.counters["cpu_ratio"] = ours.processor / gdal.processor;
    state.counters["gdal_MB"] = double(std::filesystem::file_size(files().path("gdal.tif"))) / 1e6;
    state.counters["ours_MB"] = double(std::filesystem::file_size(files().path("ours.tif"))) / 1e6;
}

void slope(benchmark::State & state) {
    compare(state, "slope", SlopeProduct(), RasterWriter::P_Numbers);
}

void shade(benchmark::State & state) {
    compare(state, "hillshade", ShadeProduct(), RasterWriter::P_Gray);
}

/// One seed in so many; with hardly any, what goes before the strokes is left.
void hachures(benchmark::State & state) {
    const NBX::SO<SimpleRasterData<float>> raster(
        new SimpleRasterData<float>(s_hachureSide, s_hachureSide, 0.0, 0.0, 30.0, 30.0, false, 0.0F));
    for (unsigned y = 0; y < s_hachureSide; ++y)
        for (unsigned x = 0; x < s_hachureSide; ++x)
            raster->setValue(x, y, heightAt(x, y));
    HachureDefaults how = HachureDefaults::of(*raster);
    Times shape, ordered, whole;
    std::size_t strokes = 0;
    for (auto _ : state) {
        shape.add([&] {
            const NBX::SO<MorphologicalParameters> parameters(
                new MorphologicalParameters(raster.get(), 1.0F, how.settings.windowSize, 0.0F));
        });
        how.settings.seedStep = s_hachureSide * s_hachureSide;
        ordered.add([&] {
            Hachures::draw(raster.get(), how.width, how.height, how.strokeSize, how.innerStrokeSize,
                           how.settings);
        });
        how.settings.seedStep = 1;
        whole.add([&] {
            strokes = Hachures::draw(raster.get(), how.width, how.height, how.strokeSize, how.innerStrokeSize,
                                     how.settings)
                          .strokes.size();
        });
    }
    const auto runs = double(state.iterations());
    state.counters["shape_s"] = shape.processor / runs;
    state.counters["order_s"] = (ordered.processor - shape.processor) / runs;
    state.counters["strokes_s"] = (whole.processor - ordered.processor) / runs;
    state.counters["all_cpu_s"] = whole.processor / runs;
    state.counters["all_s"] = whole.wall / runs;
    state.counters["strokes"] = double(strokes);
}

BENCHMARK(slope)->Arg(0)->Arg(1)->Unit(benchmark::kSecond)->Iterations(3);
BENCHMARK(shade)->Arg(0)->Arg(1)->Unit(benchmark::kSecond)->Iterations(3);
BENCHMARK(hachures)->Unit(benchmark::kSecond)->Iterations(1);

} // namespace
