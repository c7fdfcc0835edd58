// Checks, output files and canvas first, which fail fast; then the landscape, the frames and the picture. A
// frame asks for another one while textures are on their way, so frames are drawn until none asks. The
// statistics get their name before the picture does: where there is a picture, both are there.

#include "commands.h"
#include "peakmemory.h"
#include "systemjson.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

#include "landscape/arrivals.h"
#include "landscape/commandoptions.h"
#include "landscape/errors.h"
#include "landscape/landscape.h"
#include "landscape/picture.h"
#include "landscape/readfailures.h"
#include "landscape/reports.h"
#include "landscape/viewpoint.h"

#include <nbx/data/atomicfilewriter.h>
#include <nbx/engine/clock.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/object/progress.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/frame/localframe.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/inspect/patchinspectorgl.h>
#include <zmt/raster/gdal/coordinatesystem.h>

namespace {

using ZMT::CORE::AsyncFile;
using ZMT::CORE::PatchInspectorGL;
using ZMT::CORE::TerrainPainterGLSettings;
using ZMT::RASTER::CoordinateSystem;

constexpr unsigned s_mostFrames = 10000;
constexpr double s_longestWait = 10.0; ///< for bytes of web servers, in milliseconds

struct RenderOptions {
    LandscapeOptions landscape;
    View view;
    PictureSize size{1280, 720};
    AllowedErrors errors;
    MemoryBudgets memory;
    bool wireframe = false;
    bool patches = false;
    bool allowIncomplete = false;
    std::string stats;
    std::string out;
};

/// A canvas that counts its frames.
class CountedCanvas : public NBX::OffscreenCanvasGL {
    NBX_TEMPLATE_CLASS(CountedCanvas, NBX::OffscreenCanvasGL)
public:
    explicit CountedCanvas(PictureSize size) : OffscreenCanvasGL(size.width, size.height) {}
    void redisplay() override {
        frames.add([this] { OffscreenCanvasGL::redisplay(); });
    }

    Frames frames;
};

/// Waits until a frame is due and draws it. What comes from web servers arrives meanwhile.
void stepWithServers(NBX::Clock & clock) {
    while (!clock.serve()) {
        const double left = clock.nextTick() - clock.now();
        AsyncFile::wait(std::clamp(left * 1000.0, 1.0, s_longestWait));
    }
}

/// Lets time go on until nothing asks for another frame. False when a streaming landscape stays incomplete.
bool drawFrames(CountedCanvas & canvas, bool isStreamed, bool usesServers) {
    Arrivals arrivals;
    canvas.postForRedisplay(0.0);
    while (canvas.redisplayPending() && (isStreamed || canvas.frames.count < s_mostFrames)) {
        if (NBX::ConsoleProgressDisplay::interrupted()) throw DataError("cancelled");
        if (isStreamed && arrivals.haveEnded()) return false;
        if (usesServers)
            stepWithServers(*canvas.clock());
        else
            canvas.clock()->step();
    }
    return true;
}

/// What to tell of a streaming landscape that stays incomplete.
std::string missingParts(const CountedCanvas & canvas, const std::string & terrain) {
    const auto failures = readFailures();
    const std::string reason = failures.empty() ? "nothing more arrives" : failures.front().reason;
    return shownName(terrain) + ": " + std::to_string(canvas.frames.missingTiles) +
           " of the tiles that the picture needs are missing: " + reason;
}

/// The driver tells its name while the context is current.
std::string rendererOf(NBX::GLCanvas & canvas) {
    canvas.makeContextCurrent();
    const std::string name = canvas.engine()->rendererName();
    canvas.releaseContext();
    return name;
}

nlohmann::ordered_json describeFailures() {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const ReadFailure & failure : readFailures())
        list.push_back({{"file", failure.file},
                        {"offset", failure.offset},
                        {"bytes", failure.size},
                        {"reason", failure.reason},
                        {"retry_s", failure.secondsToRetry}});
    return list;
}

std::string describe(CountedCanvas & canvas, const Landscape & landscape) {
    const Frames & frames = canvas.frames;
    nlohmann::ordered_json json;
    describeSystem(json, landscape.reference());
    json["renderer"] = rendererOf(canvas);
    json["width"] = canvas.getWidth();
    json["height"] = canvas.getHeight();
    json["frames"] = frames.count;
    json["complete"] = !canvas.redisplayPending();
    json["missing_tiles"] = frames.missingTiles;
    json["read_failures"] = describeFailures();
    json["read_bytes"] = AsyncFile::TotalLocalBytes();
    json["received_bytes"] = AsyncFile::TotalTransferedBytes();
    json["patches"] = frames.drawn.patches;
    json["triangles"] = frames.drawn.triangles;
    json["build_ms"] = landscape.buildMilliseconds();
    json["frame_ms"] = frames.lastMilliseconds;
    json["peak_rss_bytes"] = peakResidentBytes();
    return json.dump(1) + "\n";
}

NBX::SO<CountedCanvas> makeCanvas(PictureSize size) {
    NBX::SO<CountedCanvas> canvas(new CountedCanvas(size));
    if (!canvas->create())
        throw DataError("no OpenGL context could be made; install Mesa's software renderer");
    if (size.width > canvas->maxSize() || size.height > canvas->maxSize())
        throw UsageError("--size: this OpenGL renderer draws at most " + std::to_string(canvas->maxSize()) +
                         " pixels a side");
    prepareCanvas(*canvas);
    return canvas;
}

void fillScene(NBX::SceneThing & scene, const RenderOptions & options, const Landscape & landscape) {
    const Viewpoint viewpoint = findViewpoint(options.view, landscape.viewedGround());
    tellBuriedEye(viewpoint, landscape.viewedGround());
    scene.append(makeCamera(viewpoint, landscape.box()).get());
    if (options.wireframe) {
        scene.append(makeHidingSurface(landscape.node()).get());
        scene.append(makeWireframe().get());
    }
    scene.append(landscape.node().get());
}

/// Taking the patches of a large tree apart, one by one, takes longer than to draw them; the process ends
/// anyway.
void keepToTheEnd(const Landscape & landscape) {
    if (!landscape.tree()) return;
    static auto & kept = *new std::vector<NBX::SO<ZMT::CORE::GeometryPatch>>;
    kept.push_back(landscape.tree());
}

void warnOfEmptyView(const ZMT::CORE::GridData & grid) {
    const NBX::Bounds geoBox = ZMT::CORE::LocalFrame(grid.origin()).toGeo(grid.boundingBox());
    const auto low = geoBox.getLLF(), high = geoBox.getURB();
    char place[200];
    std::snprintf(place, sizeof place, "%.10g,%.10g,%.10g to %.10g,%.10g,%.10g", low.x, low.z, low.y, high.x,
                  high.z, high.y);
    writeError(std::string("warning: --view: nothing of the terrain is in sight, which reaches from ") +
               place);
}

void runRender(RenderOptions & options) {
    checkErrors(options.errors);
    checkLandscape(options.landscape);
    checkMemoryBudgets(options.memory);
    checkImageOptions(options.landscape.look, options.landscape.images.size());
    checkOutputs(inputFiles(options.landscape), {{"--out", options.out}, {"--stats", options.stats}});
    checkPictureName("--out", options.out);
    // What cannot be written or drawn is noticed before the long work.
    NBX::AtomicFileWriter out(options.out);
    std::optional<NBX::AtomicFileWriter> stats;
    if (!options.stats.empty()) stats.emplace(options.stats);
    const auto canvas = makeCanvas(options.size);

    options.landscape.plain = options.patches;
    applyMemoryBudgets(options.memory);
    const Landscape landscape(options.landscape, StreamedFiles(options.landscape));
    TerrainPainterGLSettings::setGeometryError(landscape.geometryErrorFor(options.errors.geometry));
    TerrainPainterGLSettings::setTextureError(options.errors.texture);
    PatchInspectorGL::registerAll(options.patches);
    const NBX::SO<NBX::SceneThing> scene(new NBX::SceneThing);
    fillScene(*scene, options, landscape);
    canvas->append(scene.get());
    if (!drawFrames(*canvas, landscape.isStreamed(), hasUrls(options.landscape))) {
        const std::string missing = missingParts(*canvas, options.landscape.terrain);
        if (!options.allowIncomplete)
            throw DataError(missing + "; try again later, or give --allow-incomplete");
        writeError("warning: " + missing);
    }
    // A picture of half the data would look like one of the whole.
    Reports::throwFirst();
    if (!writePicture(*canvas, out, options.out)) warnOfEmptyView(landscape.grid());
    const std::string description = describe(*canvas, landscape);
    if (stats) {
        stats->write(description.data(), description.size());
        stats->commit();
    }
    out.commit();
    std::printf("map coordinates: %s\n", CoordinateSystem::describe(landscape.reference()).c_str());
    canvas->remove(scene.get());
    keepToTheEnd(landscape);
}

} // namespace

void addRenderCommand(CLI::App & app) {
    auto * command = app.add_subcommand("render", "Draws a terrain into a picture.");
    const auto options = std::make_shared<RenderOptions>();
    addTerrainOption(*command, options->landscape.terrain);
    addLandscapeOptions(*command, options->landscape);
    addViewOptions(*command, options->view, options->size);
    addErrorOptions(*command, options->errors);
    addMemoryOptions(*command, options->memory);
    command->add_flag("--allow-incomplete", options->allowIncomplete,
                      "Write the picture also where parts of a streaming terrain cannot be read");
    command->add_flag("--wireframe", options->wireframe,
                      "Draw edges, without those that are hidden, and without walls");
    command->add_flag("--patches", options->patches, "Give each patch a colour, to show the level of detail");
    command->add_option("--stats", options->stats, "JSON file for what was drawn");
    command
        ->add_option("--out", options->out, "The picture: JPEG where the name ends in jpg or jpeg, else PNG")
        ->required();
    addOutputNote(*command);
    command->callback([options] { runRender(*options); });
}
