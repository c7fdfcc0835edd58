#include "commands.h"
#include "renderscene.h"
#include "terraininput.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <thread>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/gl/offscreencanvasgl.h>
#include <nbx/image/image.h>
#include <nbx/image/pngwriter.h>
#include <nbx/object/nbxtime.h>
#include <nbx/object/progress.h>
#include <zmt/core/terrain/geometry/patchinspectorgl.h>
#include <zmt/core/terrain/geometry/terrainpainterglsettings.h>

namespace {

using ZMT::CORE::PatchInspectorGL;
using ZMT::CORE::TerrainPainterGLSettings;

constexpr unsigned s_largestSide = 16384;
constexpr unsigned s_mostFrames = 10000;

struct RenderOptions {
    SceneOptions scene;
    std::string size = "1280x720";
    unsigned maxVertices = 4000;
    double geometryError = 3.0;
    double textureError = 2.0;
    bool patches = false;
    std::string stats;
    std::string out;
};

struct Size {
    unsigned width, height;
};

Size parseSize(const std::string & text) {
    unsigned width = 0, height = 0;
    char rest = 0;
    const bool isSize = text.find('-') == std::string::npos &&
                        std::sscanf(text.c_str(), "%6ux%6u%c", &width, &height, &rest) == 2;
    if (!isSize || width < 1 || height < 1 || width > s_largestSide || height > s_largestSide)
        throw UsageError("--size must be WIDTHxHEIGHT, each from 1 to " + std::to_string(s_largestSide) +
                         ": " + text);
    return {width, height};
}

void checkOptions(const RenderOptions & options) {
    checkMaxVertices(options.maxVertices);
    if (!(options.geometryError >= 0.0) || !(options.textureError >= 0.0))
        throw UsageError("--geometry-error and --texture-error must not be negative");
    if (!(options.scene.exaggeration > 0.0) || !(options.scene.exaggeration <= 1000.0))
        throw UsageError("--exaggeration must be above 0, and at most 1000");
}

struct Frames {
    unsigned count = 0;
    bool complete = false;
    double lastMilliseconds = 0.0;
    PatchInspectorGL::Statistics drawn;
};

/// Draws until nothing asks for another frame.
Frames drawFrames(NBX::GLCanvas & canvas) {
    Frames frames;
    while (!frames.complete && frames.count < s_mostFrames) {
        if (NBX::ConsoleProgressDisplay::interrupted()) throw DataError("cancelled");
        const double wait = canvas.redisplayPending() ? canvas.redisplayTime() - NBX::NBXTime::now() : 0.0;
        if (wait > 0.0) std::this_thread::sleep_for(std::chrono::duration<double>(wait));
        PatchInspectorGL::reset();
        const double start = NBX::NBXTime::now();
        canvas.redisplay();
        frames.drawn = PatchInspectorGL::statistics();
        frames.lastMilliseconds = (NBX::NBXTime::now() - start) * 1000.0;
        frames.complete = !canvas.redisplayPending();
        ++frames.count;
    }
    return frames;
}

/// The driver tells its name while the context is current.
std::string rendererOf(NBX::GLCanvas & canvas) {
    canvas.makeContextCurrent();
    const std::string name = canvas.engine()->rendererName();
    canvas.releaseContext();
    return name;
}

std::string describe(Size size, const Frames & frames, const std::string & renderer,
                     double buildMilliseconds) {
    nlohmann::ordered_json json;
    json["renderer"] = renderer;
    json["width"] = size.width;
    json["height"] = size.height;
    json["frames"] = frames.count;
    json["complete"] = frames.complete;
    json["patches"] = frames.drawn.patches;
    json["triangles"] = frames.drawn.triangles;
    json["build_ms"] = buildMilliseconds;
    json["frame_ms"] = frames.lastMilliseconds;
    json["peak_rss_bytes"] = peakResidentBytes();
    return json.dump(1) + "\n";
}

void runRender(const RenderOptions & options) {
    checkOptions(options);
    const Size size = parseSize(options.size);
    parseView(options.scene.view);
    // An output that cannot be written is noticed before the long work.
    NBX::AtomicFileWriter out(options.out);
    std::optional<NBX::AtomicFileWriter> stats;
    if (!options.stats.empty()) stats.emplace(options.stats);

    const auto raster = readTerrainRaster(options.scene.terrain, false);
    const auto images = readImages(options.scene, raster);
    const auto grid = makeGrid(raster);
    double buildMilliseconds = 0.0;
    const auto root = buildTree(grid, options.maxVertices, buildMilliseconds);

    NBX::SO<NBX::OffscreenCanvasGL> canvas(new NBX::OffscreenCanvasGL(size.width, size.height));
    if (!canvas->create())
        throw DataError("no OpenGL context could be made; install Mesa's software renderer");
    if (size.width > canvas->maxSize() || size.height > canvas->maxSize())
        throw UsageError("--size: this OpenGL renderer draws at most " + std::to_string(canvas->maxSize()) +
                         " pixels a side");
    TerrainPainterGLSettings::setGeometryError(options.geometryError);
    TerrainPainterGLSettings::setTextureError(options.textureError);
    PatchInspectorGL::registerAll(options.patches);
    canvas->setBackgroundColor(NBX::Color(0.72, 0.81, 0.90));
    canvas->setRenderingMode(1);
    const auto scene = makeScene(options.scene, grid, root, images, options.patches);
    canvas->append(scene.get());
    const Frames frames = drawFrames(*canvas);

    const NBX::SO<NBX::Image> picture = canvas->snapshot();
    const auto png = NBX::SO<NBX::PNGWriter>(new NBX::PNGWriter)->write(picture.get());
    if (!png) throw DataError("the picture could not be encoded");
    out.write(png->pointer(), png->size());
    const std::string description = describe(size, frames, rendererOf(*canvas), buildMilliseconds);
    if (stats) {
        stats->write(description.data(), description.size());
        stats->commit();
    }
    out.commit();
    canvas->remove(scene.get());
}

} // namespace

void addRenderCommand(CLI::App & app) {
    auto * command = app.add_subcommand("render", "Draws a terrain into a PNG file.");
    const auto options = std::make_shared<RenderOptions>();
    SceneOptions & scene = options->scene;
    command->add_option("--terrain", scene.terrain, "Height raster")->required();
    command
        ->add_option("--image", scene.images,
                     "Georeferenced image to drape; may be repeated, later ones on top")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command->add_option("--size", options->size, "Size of the picture in pixels, WIDTHxHEIGHT")
        ->capture_default_str();
    command
        ->add_option(
            "--view", scene.view,
            "overview (from the south), closeup, north (straight down, north up), or the map coordinates "
            "of eye and aim: EX,EY,EZ,AX,AY,AZ, with x to the east, y to the north and z the height")
        ->capture_default_str();
    command->add_option("--exaggeration", scene.exaggeration, "Factor of the heights")->capture_default_str();
    command->add_option("--max-vertices", options->maxVertices, "Budget of a node of the tree, 50 to 32000")
        ->capture_default_str();
    command
        ->add_option("--geometry-error", options->geometryError, "Allowed error of the geometry, in pixels")
        ->capture_default_str();
    command->add_option("--texture-error", options->textureError, "Allowed size of a texel, in pixels")
        ->capture_default_str();
    command->add_flag("--wireframe", scene.wireframe, "Draw edges");
    command->add_flag("--patches", options->patches, "Give each patch a colour, to show the level of detail");
    command->add_option("--stats", options->stats, "JSON file for what was drawn");
    command->add_option("--out", options->out, "PNG file")->required();
    command->callback([options] { runRender(*options); });
}
