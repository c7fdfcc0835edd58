// "relief occlusion" and "relief sun": the light of the sky, and that of the sun with the shadows of the
// ground and of what stands on it. Tiles come from the library row by row of tiles, and go to the file by
// rows.

#include "commands.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "landscape/commandoptions.h"
#include "landscape/errors.h"
#include "landscape/terraininput.h"
#include "reliefcasters.h"
#include "relieffiles.h"

#include <nbx/container/sequence/array.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <zmt/raster/gdal/cellsizes.h>
#include <zmt/raster/heightunit.h>
#include <zmt/util/occlusion/rasterlight.h>

namespace {

using ZMT::RASTER::RasterWriter;
using ZMT::UTIL::RasterLight;

/// Puts the tiles of a row together, which come from west to east, and turns their rows: those of files begin
/// in the north, and are put in strips of tiles of their own.
class TileRows {
public:
    /// `openPlane` is the number for the light of an open plane.
    TileRows(RasterWriter & out, const ZMT::RASTER::RasterGrid & grid, double openPlane)
        : out_(out), grid_(grid), scale_(static_cast<float>(openPlane)) {}

    void put(const NBX::Area & cells, const std::vector<float> & light) {
        const unsigned height = cells.getHeight(), width = cells.getWidth();
        rows_.resize(std::size_t(grid_.cellsX) * (waiting_ + height));
        for (unsigned row = 0; row < height; ++row) {
            float * to =
                &rows_[std::size_t(waiting_ + height - 1 - row) * grid_.cellsX + unsigned(cells.getX())];
            for (unsigned column = 0; column < width; ++column)
                to[column] = light[std::size_t(row) * width + column] * scale_;
        }
        if (unsigned(cells.getX()) + width < grid_.cellsX) return;
        waiting_ += height;
        handOver();
    }

private:
    /// All strips that are whole, and at the end of the raster the rest.
    void handOver() {
        unsigned done = 0;
        while (done < waiting_) {
            const unsigned count = std::min({RasterWriter::s_rows, waiting_ - done, grid_.cellsY - first_});
            if (count < RasterWriter::s_rows && first_ + count < grid_.cellsY) break;
            out_.put(first_, count, &rows_[std::size_t(done) * grid_.cellsX]);
            first_ += count;
            done += count;
        }
        rows_.erase(rows_.begin(), rows_.begin() + std::ptrdiff_t(std::size_t(done) * grid_.cellsX));
        waiting_ -= done;
    }

    RasterWriter & out_;
    ZMT::RASTER::RasterGrid grid_;
    float scale_;
    std::vector<float> rows_; ///< that were not put yet, the northern one first
    unsigned waiting_ = 0;    ///< of these, those that are complete
    unsigned first_ = 0;      ///< the northern one of these, in the raster
};

struct LightOptions {
    ReliefFiles files;
    CityInputs casters;
    RasterLight::Settings settings;
    bool storesNumbers = false;
    double exaggeration = 1.0;
    /// In pictures. Slopes may have half as much light again as an open plane has.
    double greyOfOpenPlane = 170.0;
};

void runLight(const LightOptions & options) {
    std::vector<NamedFile> inputs = casterFiles(options.casters);
    inputs.push_back({"RASTER", options.files.raster});
    const auto pixels = options.storesNumbers ? RasterWriter::P_Numbers : RasterWriter::P_Gray;
    checkReliefFiles(options.files, options.storesNumbers ? ReliefKind::Numbers : ReliefKind::Picture,
                     inputs);
    checkExaggeration(options.exaggeration);
    const auto file = openHeights(options.files.raster);
    const std::string unit = file->heightUnit();
    tellWhatIsTaken(file->bands(), unit, options.files.raster);
    const auto band = file->band();
    const double heightUnit = ZMT::RASTER::HeightUnit::metres(unit).value_or(1.0);
    const auto cells =
        ZMT::RASTER::CellSizes::of(band->grid(), file->reference(), heightUnit * options.exaggeration);
    RasterLight::Settings settings = options.settings;
    settings.casters = readCasters(options.casters, *file, options.exaggeration);
    const NBX::SO<NBX::OffscreenCanvasGL> canvas(new NBX::OffscreenCanvasGL(16, 16));
    if (!canvas->isCreated()) throw DataError("this system has no OpenGL to draw with");
    const auto out = RasterWriter::open(options.files.out,
                                        reliefLayout(options.files, band->grid(), file->reference(), pixels));
    TileRows rows(*out, band->grid(), options.storesNumbers ? 1.0 : options.greyOfOpenPlane);
    if (!RasterLight::bake(
            *band, cells, settings, canvas,
            [&rows](const NBX::Area & tile, const std::vector<float> & light) { rows.put(tile, light); }))
        throw DataError("cancelled");
    out->commit();
    canvas->destroy();
}

void checkDirections(int directions) {
    constexpr int most = 100000;
    if (directions < 1 || directions > most)
        throw UsageError("--directions must be from 1 to " + std::to_string(most) + ": " +
                         std::to_string(directions));
}

void checkHalo(const RasterLight::Settings & settings) {
    constexpr unsigned most = 4096;
    if (settings.halo > most || settings.farHalo > 8 * most)
        throw UsageError("--halo must be up to " + std::to_string(most) + ", --far up to " +
                         std::to_string(8 * most));
    if (settings.piece < 1 || settings.piece > most)
        throw UsageError("--piece must be from 1 to " + std::to_string(most));
}

void addLightOptions(CLI::App & command, LightOptions & options, int & directions) {
    addReliefFiles(command, options.files,
                   "GeoTIFF (tif), in tiles, or PNG with a world file (png), on the cells of RASTER; "
                   "transparent where there are no heights");
    command.add_flag("--numbers", options.storesNumbers,
                     "GeoTIFF of 32-bit floats: 1 is the light of an open plane, -9999 where there are no "
                     "heights");
    command.add_option("--directions", directions, "Directions that light comes from")->capture_default_str();
    command.add_option("--exaggeration", options.exaggeration, "Factor of the heights")
        ->capture_default_str();
    command.add_option("--seed", options.settings.seed, "Seed of the directions")->capture_default_str();
    command
        .add_option("--halo", options.settings.halo,
                    "Cells around a tile of 512 cells that cast shadows in full detail")
        ->capture_default_str();
    command
        .add_option("--far", options.settings.farHalo,
                    "Cells around a tile up to which every eighth one casts shadows")
        ->capture_default_str();
    addCasterOptions(command, options.casters);
    command
        .add_option("--piece", options.settings.piece,
                    "Tiles that are held at once; the result is the same for any")
        ->capture_default_str();
}

/// Each direction of the sky at random comes with those a quarter, a half and three quarters of a turn from
/// it, so that few of them favour no side, which would look like a shade.
void turnSky(RasterLight::Settings & settings) {
    auto & light = settings.lighting;
    const auto wanted = unsigned(std::exchange(light.numSkyDirections, 0));
    std::srand(settings.seed);
    const auto some = ZMT::UTIL::AmbientOcclusion::createLightDirections(int((wanted + 3) / 4));
    std::vector<NBX::Vector3Base<double>> directions;
    directions.reserve(wanted);
    for (unsigned i = 0; i < some->size(); ++i) {
        NBX::Vector3Base<double> turned(some->get(i).x, some->get(i).z, some->get(i).y);
        for (int quarter = 0; quarter < 4 && directions.size() < wanted; ++quarter) {
            directions.push_back(turned);
            turned = {-turned.z, turned.y, turned.x};
        }
    }
    const std::vector<NBX::Vector3Base<double>> colors(directions.size(), {1.0, 1.0, 1.0});
    light.extraDirections = new NBX::Array<NBX::Vector3Base<double>>(std::move(directions));
    light.extraColors = new NBX::Array<NBX::Vector3Base<double>>(colors);
}

void addOcclusion(CLI::App & app) {
    auto * command = app.add_subcommand("occlusion", "How much of the sky's light reaches the ground.");
    const auto options = std::make_shared<LightOptions>();
    addLightOptions(*command, *options, options->settings.lighting.numSkyDirections);
    command->callback([options] {
        checkDirections(options->settings.lighting.numSkyDirections);
        checkHalo(options->settings);
        turnSky(options->settings);
        runLight(*options);
    });
}

struct SunOptions : LightOptions {
    double azimuth = 315.0, elevation = 30.0;
};

void addSun(CLI::App & app) {
    auto * command = app.add_subcommand("sun", "The light of the sun, and the shadows of the ground.");
    const auto options = std::make_shared<SunOptions>();
    auto & lighting = options->settings.lighting;
    lighting.numSkyDirections = 0;
    lighting.numSunDirections = 50;
    lighting.sunSpread = 0.5;
    addLightOptions(*command, *options, lighting.numSunDirections);
    command->add_option("--azimuth", options->azimuth, "Where the sun stands, degrees clockwise from north")
        ->capture_default_str();
    command->add_option("--elevation", options->elevation, "Degrees of the sun above the horizon")
        ->capture_default_str();
    command
        ->add_option("--spread", lighting.sunSpread,
                     "Size of the sun, in degrees; larger ones give softer shadows")
        ->capture_default_str();
    command->callback([options] {
        auto & light = options->settings.lighting;
        checkDirections(light.numSunDirections);
        checkHalo(options->settings);
        if (!(options->elevation >= 1.0 && options->elevation <= 90.0))
            throw UsageError("--elevation must be from 1 to 90 degrees");
        if (!(options->azimuth >= -360.0 && options->azimuth <= 360.0))
            throw UsageError("--azimuth must be from -360 to 360 degrees");
        if (!(light.sunSpread >= 0.0 && light.sunSpread <= 20.0))
            throw UsageError("--spread must be from 0 to 20 degrees");
        const double a = options->azimuth * std::numbers::pi / 180.0;
        const double e = options->elevation * std::numbers::pi / 180.0;
        // What faces the sun is white.
        options->greyOfOpenPlane = 255.0 * std::sin(e);
        light.sunDirection = {std::sin(a) * std::cos(e), std::sin(e), std::cos(a) * std::cos(e)};
        runLight(*options);
    });
}

} // namespace

void addReliefLightCommands(CLI::App & app) {
    addOcclusion(app);
    addSun(app);
}
