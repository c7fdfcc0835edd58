// Features of a large file by the place where they lie, next to GDAL reading the same windows with its
// spatial filter, transformed where the features are: what one texture of a window needs, and the texture of
// all. ".../true" is the same without simplification. GDAL makes features with all fields and geometry, and
// lets them go (".../gdal"); who wants something of them looks at the fields and places as well
// (".../gdal/looked"). Files are those that the folder ZMT_FEATURES holds, from benchmarks/makefeatures.py
// and ogr2ogr; others, without an index, have no rival. Also told: how long it takes to open a file, and the
// peak of memory, that of the process.
//   makefeatures.py f.geojsons; ogr2ogr f.fgb f.geojsons; ogr2ogr f.gpkg f.geojsons
//   feature_benchmark --benchmark_repetitions=9 --benchmark_enable_random_interleaving=true

#include <zmt/raster/gdal/vector/featurefile.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include <ogrsf_frmts.h>

namespace {

using namespace ZMT::RASTER;

constexpr double s_texture = 1024.0; ///< pixels a side
const GeoExtent s_degrees{80.0, 25.0, 90.0, 30.0}, s_metres{-100000.0, 2700000.0, 1100000.0, 3400000.0};
const char * const s_system = "EPSG:32645";

double peakMebibytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (double kibibytes = 0.0; word == "VmHWM:" && status >> kibibytes) return kibibytes / 1024.0;
    return 0.0;
}

std::vector<std::string> files() {
    std::vector<std::string> paths;
    if (const char * folder = std::getenv("ZMT_FEATURES"))
        for (const auto & entry : std::filesystem::directory_iterator(folder))
            for (const char * suffix : {".fgb", ".gpkg", ".geojsons"})
                if (entry.path().extension() == suffix) paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    return paths;
}

/// A window in the middle, as large as a share of the area.
GeoExtent window(const GeoExtent & area, double share) {
    const double x = std::lerp(area.minX, area.maxX, 0.4), y = std::lerp(area.minY, area.maxY, 0.4);
    return {x, y, x + share * (area.maxX - area.minX), y + share * (area.maxX - area.minX)};
}

FeatureFile & opened(const std::string & path, bool isWarped) {
    static std::map<std::pair<std::string, bool>, std::unique_ptr<FeatureFile>> known;
    std::unique_ptr<FeatureFile> & file = known[{path, isWarped}];
    if (!file)
        file = std::make_unique<FeatureFile>(path, "", isWarped ? s_system : "",
                                             isWarped ? s_metres : s_degrees);
    return *file;
}

void opening(benchmark::State & state, const std::string & path) {
    for (auto _ : state)
        benchmark::DoNotOptimize(FeatureFile(path, "", "", s_degrees).size());
    state.counters["peakMiB"] = peakMebibytes();
}

/// Shapes are simplified to half a texel, or left as they are.
void reading(benchmark::State & state, const std::string & path, bool isWarped, double share,
             bool isSimplified) {
    const FeatureFile & file = opened(path, isWarped);
    const GeoExtent area = isWarped ? s_metres : s_degrees;
    const GeoExtent box = share < 1.0 ? window(area, share) : area;
    const double tolerance = isSimplified ? (box.maxX - box.minX) / s_texture / 2.0 : 0.0;
    std::size_t features = 0;
    for (auto _ : state) {
        features = 0;
        file.read({box, tolerance, {0, 1, 2}}, [&](const VectorFeature &) {
            ++features;
            return true;
        });
    }
    state.counters["features"] = static_cast<double>(features);
    state.counters["peakMiB"] = peakMebibytes();
}

OGRSpatialReference systemOf(const char * text) {
    OGRSpatialReference system;
    system.SetFromUserInput(text);
    system.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    return system;
}

/// What anybody needs of a feature: its fields as they are, and each place once.
double look(OGRFeature & feature) {
    double sum = 0.0;
    for (int i = 0; i < feature.GetFieldCount(); ++i)
        sum += feature.GetFieldDefnRef(i)->GetType() == OFTInteger ? feature.GetFieldAsInteger(i)
                                                                   : *feature.GetFieldAsString(i);
    OGREnvelope box;
    feature.GetGeometryRef()->getEnvelope(&box);
    return sum + box.MinX + box.MaxX + box.MinY + box.MaxY;
}

void readingByGdal(benchmark::State & state, const std::string & path, bool isWarped, double share,
                   bool isLookedAt) {
    GDALAllRegister();
    const GDALDatasetUniquePtr dataset(GDALDataset::Open(path.c_str(), GDAL_OF_VECTOR));
    OGRLayer & layer = *dataset->GetLayer(0);
    const OGRSpatialReference from = systemOf("EPSG:4326"), to = systemOf(s_system);
    const std::unique_ptr<OGRCoordinateTransformation> there(OGRCreateCoordinateTransformation(&from, &to));
    const std::unique_ptr<OGRCoordinateTransformation> back(there->GetInverse());
    GeoExtent box = window(isWarped ? s_metres : s_degrees, share);
    if (isWarped)
        back->TransformBounds(box.minX, box.minY, box.maxX, box.maxY, &box.minX, &box.minY, &box.maxX,
                              &box.maxY, 21);
    std::size_t features = 0;
    for (auto _ : state) {
        features = 0;
        layer.SetSpatialFilterRect(box.minX, box.minY, box.maxX, box.maxY);
        layer.ResetReading();
        for (const OGRFeatureUniquePtr & feature : layer) {
            ++features;
            if (isWarped) feature->GetGeometryRef()->transform(there.get());
            if (isLookedAt) benchmark::DoNotOptimize(look(*feature));
        }
    }
    state.counters["features"] = static_cast<double>(features);
}

bool registerAll() {
    for (const std::string & path : files()) {
        const std::string name = std::filesystem::path(path).filename();
        const bool isIndexed = name.find(".geojsons") == std::string::npos;
        benchmark::RegisterBenchmark((name + "/open").c_str(), opening, path)->Iterations(1);
        for (const bool isWarped : {false, true})
            for (const double share : {0.05, 0.005}) {
                const std::string what =
                    (isWarped ? "/metres/" : "/degrees/") + std::to_string(static_cast<int>(1.0 / share));
                for (const bool isSimplified : {true, false})
                    benchmark::RegisterBenchmark((name + what + (isSimplified ? "" : "/true")).c_str(),
                                                 reading, path, isWarped, share, isSimplified);
                for (const bool isLookedAt : {false, true})
                    if (isIndexed)
                        benchmark::RegisterBenchmark(
                            (name + what + "/gdal" + (isLookedAt ? "/looked" : "")).c_str(), readingByGdal,
                            path, isWarped, share, isLookedAt);
            }
        benchmark::RegisterBenchmark((name + "/top").c_str(), reading, path, false, 1.0, true);
    }
    return true;
}

const bool s_areRegistered = registerAll();

} // namespace
