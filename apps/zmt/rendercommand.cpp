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
#include "program/stage.h"

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
    unsigned samples = 1;
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

/// Waits until a frame is due and draws it. What comes from web servers arrives meanwhile, and before one
/// that is due at once, which may be due for just that.
void stepWithServers(NBX::Clock & clock) {
    AsyncFile::wait(s_longestWait);
    while (!clock.serve()) {
        const double left = clock.nextTick() - clock.now();
        AsyncFile::wait(std::clamp(left * 1000.0, 1.0, s_longestWait));
    }
}

/// Lets time go on until nothing asks for another frame. False when a streaming landscape stays incomplete.
bool drawFrames(CountedCanvas & canvas, bool isStreamed, bool usesServers) {
    const Stage stage(L"settle");
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

/// The same, with as many textures of overlays as the view needs, whatever is to be kept of them.
bool settle(CountedCanvas & canvas, bool isStreamed, bool usesServers) {
    bool isComplete = drawFrames(canvas, isStreamed, usesServers);
    while (isComplete && Overlays::makeRoom())
        isComplete = drawFrames(canvas, isStreamed, usesServers);
    return isComplete;
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

std::string describe(CountedCanvas & canvas, const Landscape & landscape, bool isComplete) {
    const Frames & frames = canvas.frames;
    nlohmann::ordered_json json;
    describeSystem(json, landscape.reference());
    json["renderer"] = rendererOf(canvas);
    json["width"] = canvas.getWidth();
    json["height"] = canvas.getHeight();
    json["frames"] = frames.count;
    json["complete"] = isComplete && !canvas.redisplayPending();
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
    const Stage stage(L"prepare");
    NBX::SO<CountedCanvas> canvas(new CountedCanvas(size));
    if (!canvas->create())
        throw DataError("no OpenGL context could be made; install Mesa's software renderer");
    if (size.width > canvas->maxSize() || size.height > canvas->maxSize())
        throw UsageError("--size: this OpenGL renderer draws at most " + std::to_string(canvas->maxSize()) +
                         " pixels a side");
    prepareCanvas(*canvas);
    return canvas;
}

/// The camera, which is in `scene`.
NBX::SO<NBX::Camera> fillScene(NBX::SceneThing & scene, const RenderOptions & options,
                               const Landscape & landscape) {
    const Viewpoint viewpoint = findViewpoint(options.view, landscape.viewedGround(), options.size.aspect());
    tellBuriedEye(viewpoint, landscape.viewedGround());
    NBX::SO<NBX::Camera> camera = makeCamera(viewpoint, landscape.box());
    scene.append(camera.get());
    if (options.wireframe) {
        scene.append(makeHidingSurface(landscape.node()).get());
        scene.append(makeWireframe().get());
    }
    scene.append(landscape.node().get());
    return camera;
}

/// Of overlays, on the finest ground that came.
void drawNames(CountedCanvas & canvas, Landscape & landscape, const NBX::Camera & camera) {
    if (std::as_const(landscape).overlays().empty()) return;
    const Stage stage(L"settle");
    landscape.prepare(camera, canvas.getWidth(), canvas.getHeight(), true);
    canvas.redisplay();
}

/// Taking the patches of a large tree apart, one by one, takes longer than to draw them; the process ends
/// anyway.
void keepToTheEnd(const Landscape & landscape) {
    if (!landscape.tree()) return;
    static auto & kept = *new std::vector<NBX::SO<ZMT::CORE::GeometryPatch>>;
    kept.push_back(landscape.tree());
}

void warnOfEmptyView(const Landscape & landscape, const CityLook & look) {
    const ZMT::CORE::GridData & grid = landscape.grid();
    NBX::Bounds geoBox = ZMT::CORE::LocalFrame(grid.origin()).toGeo(grid.boundingBox());
    for (const CityLayer & city : landscape.cities())
        geoBox += city.geoBox();
    const auto low = geoBox.getLLF(), high = geoBox.getURB();
    char place[200];
    std::snprintf(place, sizeof place, "%.10g,%.10g,%.10g to %.10g,%.10g,%.10g", low.x, low.z, low.y, high.x,
                  high.z, high.y);
    const bool hasTerrain = landscape.hasTerrain();
    const std::string what = !hasTerrain ? "nothing is drawn of the models, which reach from "
                             : landscape.cities().empty()
                                 ? "nothing of the terrain is in sight, which reaches from "
                                 : "nothing is drawn of the terrain and the models, which reach from ";
    const bool isCut = look.distance && !landscape.cities().empty();
    writeError("warning: --view: " + what + place +
               (isCut ? "; what has a texture is left out beyond --city-distance" : ""));
}

void runRender(RenderOptions & options) {
    if (options.landscape.terrain.empty() && options.landscape.cities.files.empty())
        throw UsageError("--terrain is required, or --city");
    checkErrors(options.errors);
    checkSamples(options.samples);
    checkLandscape(options.landscape);
    checkMemoryBudgets(options.memory);
    checkImageOptions(options.landscape.look, options.landscape.images.size());
    checkOutputs(inputFiles(options.landscape), {{"--out", options.out}, {"--stats", options.stats}});
    checkPictureName("--out", options.out);
    // Those of streaming terrains are distances of samples, which show from everywhere.
    if (!isStreamedTerrain(options.landscape.terrain)) tellUnseenErrors(options.view, options.errors);
    // What cannot be written or drawn is noticed before the long work.
    NBX::AtomicFileWriter out(options.out);
    std::optional<NBX::AtomicFileWriter> stats;
    if (!options.stats.empty()) stats.emplace(options.stats);
    const auto canvas = makeCanvas(options.size);

    options.landscape.plain = options.patches;
    applyMemoryBudgets(options.memory);
    Landscape landscape(options.landscape, StreamedFiles(options.landscape));
    for (const CityLayer & city : std::as_const(landscape).cities()) {
        checkOutputs(city.pagingFiles(), {{"--out", options.out}, {"--stats", options.stats}});
        city.openPagingFiles();
    }
    TerrainPainterGLSettings::setGeometryError(landscape.geometryErrorFor(options.errors.geometry));
    TerrainPainterGLSettings::setTextureError(options.errors.texture);
    const FinerTextures finer(*canvas, landscape, options.samples);
    PatchInspectorGL::registerAll(options.patches);
    const NBX::SO<NBX::SceneThing> scene(new NBX::SceneThing);
    const NBX::SO<NBX::Camera> camera = fillScene(*scene, options, landscape);
    landscape.prepareMoving(*camera, options.size.height);
    canvas->append(scene.get());
    bool isComplete = true;
    const auto draw = [&] {
        if (!isComplete) return canvas->redisplay(); // nothing more comes
        // A city whose textures cannot be read is whole, and blurred.
        isComplete = settle(*canvas, landscape.isReadWhileShown(), hasUrls(options.landscape)) &&
                     (landscape.cities().empty() || readFailures().empty());
        if (!isComplete)
            giveUpPicture(canvas->frames.missingTiles, mainFile(options.landscape), options.allowIncomplete);
        drawNames(*canvas, landscape, *camera);
    };
    const NBX::SO<NBX::Image> picture = sampledPicture(*canvas, *camera, options.samples, draw);
    // A picture of half the data would look like one of the whole. What a city may lack is told at the end.
    if (isComplete || landscape.cities().empty()) Reports::throwFirst();
    const Stage stage(L"write");
    if (!writePicture(picture, out, options.out)) warnOfEmptyView(landscape, options.landscape.cities.look);
    const std::string description = describe(*canvas, landscape, isComplete);
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
    auto * command = app.add_subcommand("render", "Draws a terrain, cities, or both into a picture.");
    const auto options = std::make_shared<RenderOptions>();
    addTerrainOption(*command, options->landscape.terrain)->required(false);
    addCityOptions(*command, options->landscape.cities);
    addLandscapeOptions(*command, options->landscape);
    addViewOptions(*command, options->view, options->size);
    command
        ->add_option(
            "--samples", options->samples,
            "Samples of a pixel, 1, 4, 9 or 16: what is thin or far comes out calm, and edges smooth, "
            "for as many times the time to draw")
        ->capture_default_str();
    addErrorOptions(*command, options->errors);
    addMemoryOptions(*command, options->memory);
    command->add_flag(
        "--allow-incomplete", options->allowIncomplete,
        "Write the picture also where parts of a streaming terrain or of a city cannot be read");
    command->add_flag("--wireframe", options->wireframe,
                      "Draw edges, without those that are hidden, and without walls");
    command->add_flag("--patches", options->patches, "Give each patch a colour, to show the level of detail");
    command->add_option("--stats", options->stats, "JSON file for what was drawn");
    command
        ->add_option("--out", options->out, "The picture: JPEG where the name ends in jpg or jpeg, else PNG")
        ->required();
    addPictureNotes(*command);
    command->callback([options] { runRender(*options); });
}
