// A streaming terrain of 32769 by 32769 heights with a streaming texture of 32768 by 32768 pixels: a fly-over
// of 600 frames, ten minutes of flight, and the same from a web server, near and far away. The first run
// builds both files, see `largelandscape.h`; `streaming.sh` runs all of it and prints one table.
//
//     benchmarks/streaming.sh build/release-bench

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <numbers>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <nbx/container/sequence/array.h>
#include <nbx/engine/clock.h>
#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/object/nbxtime.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/misc/eventloop.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>
#include <zmt/core/terrain/geometry/grid/gridterrainpaintergl.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>
#include <zmt/core/terrain/texture/terraintexture.h>

#include "core/terrain/geometry/grid/asyncgridterrainrequests.h"
#include "core/terrain/geometry/grid/geometrytilebaghackgl.h"
#include "core/terrain/texture/streaming/texturetransfers.h"
#include "countedfile.h"
#include "largelandscape.h"
#include "slowline.h"
#include "support/nginx.h"

namespace {

using namespace ZMT::CORE;
using namespace ZMT::CORE::GRID;
using NBX::NBXTime;
using NBX::SO;
using Point = NBX::Vector3Base<double>;

constexpr double s_mebibyte = 1 << 20;
/// In MiB; at first those that `zmt` has without options.
unsigned s_mainBudget = 512, s_graphicsBudget = 256;
constexpr double s_eyeHeight = 3000.0; ///< above the ground

/// Of the calling thread: what it would have taken on an idle machine.
double processorTime() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) + 1e-9 * double(time.tv_nsec);
}

double residentMebibytes() {
    std::ifstream file("/proc/self/statm");
    double all = 0.0, resident = 0.0;
    file >> all >> resident;
    return resident * double(sysconf(_SC_PAGESIZE)) / s_mebibyte;
}

double quantile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    return values[std::size_t(share * double(values.size() - 1) + 0.5)];
}

int numberFrom(const char * variable, int otherwise) {
    const char * text = std::getenv(variable);
    return text ? std::atoi(text) : otherwise;
}

/// Time of the render thread in which tiles were drawn in the two passes, and in which terrains were painted.
double s_drawing = 0.0, s_painting = 0.0;
/// Whether the colours are drawn: a graphics card does that in no time, and where the time of arrivals is
/// measured the software renderer would be what is waited for.
bool s_drawsColors = true;

/// Another terrain, the drawing of whose depths is timed. The bracket of the colours holds more than drawing.
class TimedTerrain : public GridTerrain {
    NBX_TEMPLATE_CLASS(TimedTerrain, GridTerrain)
public:
    explicit TimedTerrain(const SO<AsyncGridTerrain> & terrain) : terrain_(terrain) {}

    unsigned gridLevel() const override { return terrain_->gridLevel(); }
    SO<GridTerrainTile> rootTile() const override { return terrain_->rootTile(); }
    const Matrix & grid2geoTf() const override { return terrain_->grid2geoTf(); }
    const Matrix & geo2gridTf() const override { return terrain_->geo2gridTf(); }
    const NBX::Bounds & gridBoundingBox() const override { return terrain_->gridBoundingBox(); }
    const NBX::Bounds & geoBoundingBox() const override { return terrain_->geoBoundingBox(); }
    void preRender(NBX::EngineGL * engine, bool colors) const override {
        begin_ = processorTime();
        terrain_->preRender(engine, colors);
    }
    void postRender(NBX::EngineGL * engine, bool colors) const override {
        terrain_->postRender(engine, colors);
        // The first pass writes colours, for those who count.
        if (colors) s_drawing += processorTime() - begin_;
    }

private:
    const SO<AsyncGridTerrain> terrain_;
    mutable double begin_ = 0.0;
};

class TimedTerrainPainter : public NBX::ShapePainter {
    NBX_TEMPLATE_CLASS(TimedTerrainPainter, NBX::ShapePainter)
public:
    NBX::ID target() const override { return TimedTerrain::ClassNameNBX(); }
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override {
        const double begin = processorTime();
        const bool isPainted = GridTerrainPainterGL().render(engine, shape);
        s_painting += processorTime() - begin;
        return isPainted;
    }
};

/// As the one of the library draws the colours; its textures are uploaded before it is called.
class TimedBagPainter : public NBX::ShapePainter {
    NBX_TEMPLATE_CLASS(TimedBagPainter, NBX::ShapePainter)
public:
    NBX::ID target() const override { return GeometryTileBagHACK::ClassNameNBX(); }
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override {
        const auto & bag = dynamic_cast<const GeometryTileBagHACK &>(*shape);
        const double begin = processorTime();
        for (const SO<GridTerrainTile> & tile :
             s_drawsColors ? bag.tiles() : std::vector<SO<GridTerrainTile>>())
            bag.addTriangles(tile->renderGeometry(dynamic_cast<NBX::EngineGL *>(engine), false));
        s_drawing += processorTime() - begin;
        return true;
    }
};

[[maybe_unused]] const bool s_areRegistered = (NBX::EngineGL::registerHandler(new TimedTerrainPainter),
                                               NBX::EngineGL::registerHandler(new TimedBagPainter), true);

/// Time goes on when it is told to.
double s_time = 0.0;

class SteppedTime : public NBX::Clock {
    NBX_TEMPLATE_CLASS(SteppedTime, NBX::Clock)
public:
    NBXTime now() const override { return s_time; }
};

class SteppedTimes {
public:
    SteppedTimes() {
        s_time = 1000.0;
        AsyncGridTerrainRequests::setClock([] { return s_time; });
        TextureTransfers::setClock(SO<NBX::Clock>(new SteppedTime));
    }
    ~SteppedTimes() {
        AsyncGridTerrainRequests::setClock(nullptr);
        TextureTransfers::setClock(nullptr);
    }
    SteppedTimes(const SteppedTimes &) = delete;
    SteppedTimes & operator=(const SteppedTimes &) = delete;
};

SO<AsyncFile> opened(const std::string & name) {
    return AsyncFile::create(std::wstring(name.begin(), name.end()));
}

/// The landscape in a scene, with files that are counted.
class Scene {
public:
    Scene(const std::string & terrain, const std::string & texture, unsigned width, unsigned height)
        : canvas(new NBX::OffscreenCanvasGL(width, height)) {
        NBX::MainMemoryManager::instance()->setBudget(s_mainBudget << 20U);
        NBX::GraphicsMemoryManager::instance()->setBudget(s_graphicsBudget << 20U);
        hasContext = canvas->create();
        canvas->setRenderingMode(1);
        const SO<AsyncFile> heights = opened(terrain);
        if (!heights) return;
        terrainFile = new CountedFile(heights);
        this->terrain = AsyncGridTerrain::load(terrainFile);
        if (!this->terrain) return;
        GeoTransformation::setNBXOrigin(this->terrain->origin());
        shape_ = new TimedTerrain(this->terrain);
        using Textures = NBX::Array<SO<TerrainTexture>>;
        const SO<Textures> textures(new Textures);
        if (!texture.empty()) {
            const SO<AsyncFile> image = opened(texture);
            if (!image) return;
            textureFile = new CountedFile(image);
            const SO<TerrainTexture> found = AsyncQuadtreeTerrainTexture::load(textureFile, 0, 0);
            if (!found || !found->boundingBox().isDefined()) return;
            textures->append(found);
        }
        effect_ = new DecalTerrainTexturingEffect(textures.get());
        isOpen = true;
    }
    ~Scene() {
        if (thing_) canvas->remove(thing_.get());
        NBX::MainMemoryManager::instance()->clear();
        NBX::GraphicsMemoryManager::instance()->clear();
        GeoTransformation::setNBXOrigin({});
    }
    Scene(const Scene &) = delete;
    Scene & operator=(const Scene &) = delete;

    /// From above a place, in shares of the terrain, to another one; heights as they are known.
    void look(double u, double v, double above, const Point & ahead) {
        const double extent = LargeLandscape::s_extent;
        const Point corner = terrain->geoBoundingBox().getLLF();
        Point place = corner + Point(u * extent, 0.0, v * extent);
        place.y = 0.0;
        const double ground = terrain->calculateHeight(place, true);
        place.y = (std::isfinite(ground) ? ground : 4000.0) + above;
        const Point eye = place + GeoTransformation::geo2nbxOffset();
        if (thing_) canvas->remove(thing_.get());
        thing_ = new NBX::SceneThing;
        thing_->append(
            new NBX::Camera(new NBX::LookAt(eye, eye + ahead), new NBX::Perspective(45.0, 50.0, extent)));
        thing_->append(effect_.get());
        thing_->append(shape_.get());
        canvas->append(thing_.get());
    }
    std::uint64_t begun() const {
        return terrainFile->counts().begun + (textureFile ? textureFile->counts().begun : 0);
    }
    std::uint64_t begunBytes() const {
        return terrainFile->counts().begunBytes + (textureFile ? textureFile->counts().begunBytes : 0);
    }

    const SO<NBX::OffscreenCanvasGL> canvas;
    SO<CountedFile> terrainFile, textureFile;
    SO<AsyncGridTerrain> terrain;
    bool hasContext = false, isOpen = false;

private:
    SO<TimedTerrain> shape_;
    SO<DecalTerrainTexturingEffect> effect_;
    SO<NBX::SceneThing> thing_;
};

/// What the managers hold between frames.
struct MostBytes {
    std::uint64_t main = 0, graphics = 0;
    void note() {
        main = std::max<std::uint64_t>(main, NBX::MainMemoryManager::instance()->total());
        graphics = std::max<std::uint64_t>(graphics, NBX::GraphicsMemoryManager::instance()->total());
    }
};

void report(benchmark::State & state, const Scene & scene) {
    const auto &a = scene.terrainFile->counts(), &b = scene.textureFile->counts();
    const double begun = double(a.begunBytes + b.begunBytes), again = double(a.rereadBytes + b.rereadBytes);
    const double wanted = double(a.wantedBytes + b.wantedBytes);
    state.counters["waits"] = a.waits + b.waits;
    state.counters["blocks_read"] = a.begun + b.begun;
    state.counters["MiB_read"] = begun / s_mebibyte;
    state.counters["MiB_read_again"] = again / s_mebibyte;
    state.counters["read_of_wanted"] = (begun - again) / wanted;
}

void report(benchmark::State & state, const MostBytes & most) {
    state.counters["main_of_budget"] = double(most.main) / double(s_mainBudget << 20U);
    state.counters["graphics_of_budget"] = double(most.graphics) / double(s_graphicsBudget << 20U);
}

/// 100 km in ten seconds; `ZMT_FLYOVER_FRAMES` of it.
void flyOver(benchmark::State & state) {
    const int frames = numberFrom("ZMT_FLYOVER_FRAMES", 600);
    constexpr double share = 1e5 / LargeLandscape::s_extent;
    const LargeLandscape landscape;
    const SteppedTimes times;
    Scene scene(landscape.terrain(), landscape.texture(), 1280, 720);
    if (!scene.hasContext || !scene.isOpen) return state.SkipWithError("no OpenGL context, or no landscape");
    scene.terrainFile->resetCounts();
    scene.textureFile->resetCounts();
    std::vector<double> spent, frameTimes;
    MostBytes most;
    for (auto _ : state) {
        for (int frame = 0; frame < frames; ++frame) {
            const double t = double(frame) / 600.0;
            scene.look(0.4 + 0.8 * share * t, 0.4 + 0.6 * share * t, s_eyeHeight, {3000.0, -1200.0, 2250.0});
            s_drawing = s_painting = 0.0;
            const double before = NBXTime::now();
            scene.canvas->redisplay();
            frameTimes.push_back(1000.0 * (NBXTime::now() - before));
            spent.push_back(1000.0 * (s_painting - s_drawing));
            most.note();
            s_time += 1.0 / 60.0;
        }
    }
    state.counters["thread_median_ms"] = quantile(spent, 0.5);
    state.counters["thread_p99_ms"] = quantile(spent, 0.99);
    state.counters["frame_median_ms"] = quantile(frameTimes, 0.5);
    report(state, scene);
    report(state, most);
}

/// Ten minutes all over the terrain, or `ZMT_FLIGHT_SECONDS`, with `ZMT_FLIGHT_PICTURES` a second. Only small
/// budgets are full before its end.
void flight(benchmark::State & state) {
    s_mainBudget = static_cast<unsigned>(state.range(0));
    s_graphicsBudget = static_cast<unsigned>(state.range(1));
    const int seconds = numberFrom("ZMT_FLIGHT_SECONDS", 600);
    const int perSecond = numberFrom("ZMT_FLIGHT_PICTURES", 2);
    const LargeLandscape landscape;
    const SteppedTimes times;
    Scene scene(landscape.terrain(), landscape.texture(), 640, 360);
    if (!scene.hasContext || !scene.isOpen) return state.SkipWithError("no OpenGL context, or no landscape");
    scene.terrainFile->resetCounts();
    scene.textureFile->resetCounts();
    const double atStart = residentMebibytes();
    std::vector<double> resident;
    MostBytes most;
    const auto placeAt = [](double second) {
        const double turn = 2.0 * std::numbers::pi * second / 600.0;
        return std::pair(0.5 + 0.45 * std::sin(3.0 * turn), 0.5 + 0.45 * std::sin(5.0 * turn + 0.5));
    };
    for (auto _ : state) {
        for (int frame = 0; frame < seconds * perSecond; ++frame) {
            const double second = double(frame) / perSecond;
            const auto [u, v] = placeAt(second);
            const auto [nextU, nextV] = placeAt(second + 0.1);
            const double length = std::hypot(nextU - u, nextV - v);
            scene.look(u, v, 1000.0 + 500.0 * std::sin(second / 7.0),
                       {3000.0 * (nextU - u) / length, -900.0, 3000.0 * (nextV - v) / length});
            scene.canvas->redisplay();
            most.note();
            resident.push_back(residentMebibytes());
            s_time += 1.0 / perSecond;
        }
    }
    const auto meanOf = [&](double from, double to) {
        const auto first = resident.begin() + std::ptrdiff_t(from * double(resident.size()));
        const auto last = resident.begin() + std::ptrdiff_t(to * double(resident.size()));
        double sum = 0.0;
        for (auto i = first; i != last; ++i)
            sum += *i;
        return sum / double(last - first);
    };
    state.counters["resident_MiB"] = *std::max_element(resident.begin(), resident.end());
    state.counters["resident_at_start_MiB"] = atStart;
    state.counters["resident_mark_MiB"] = s_mainBudget + s_graphicsBudget + 128.0;
    state.counters["second_half_gain_MiB"] = meanOf(0.9, 1.0) - meanOf(0.5, 0.6);
    report(state, scene);
    report(state, most);
}

/// Draws until nothing is missing; the seconds that took. `frames` counts.
double drawUntilWhole(Scene & scene, unsigned & frames) {
    s_drawsColors = false;
    const double begin = NBXTime::now();
    scene.canvas->postForRedisplay(0.0);
    NBX::Clock & clock = *scene.canvas->clock();
    while (scene.canvas->redisplayPending() && NBXTime::now() - begin < 120.0) {
        while (!clock.serve())
            AsyncFile::wait(std::clamp((clock.nextTick() - clock.now()) * 1000.0, 1.0, 20.0));
        ++frames;
    }
    s_drawsColors = true;
    return NBXTime::now() - begin;
}

class Errors {
public:
    explicit Errors(double pixels)
        : geometry_(TerrainPainterGLSettings::getGeometryError()),
          texture_(TerrainPainterGLSettings::getTextureError()) {
        TerrainPainterGLSettings::setGeometryError(pixels);
        TerrainPainterGLSettings::setTextureError(pixels);
    }
    ~Errors() {
        TerrainPainterGLSettings::setGeometryError(geometry_);
        TerrainPainterGLSettings::setTextureError(texture_);
    }
    Errors(const Errors &) = delete;
    Errors & operator=(const Errors &) = delete;

private:
    const double geometry_, texture_;
};

bool serve(Nginx & server, const LargeLandscape & landscape) {
    std::filesystem::create_symlink(landscape.terrain(), server.pathOf("heights.ztt"));
    std::filesystem::create_symlink(landscape.texture(), server.pathOf("image.zts"));
    return Nginx::isInstalled() && server.start();
}

std::string urlOf(int port, const std::string & name) {
    return "http://127.0.0.1:" + std::to_string(port) + "/" + name;
}

/// The terrain from a web server near by: its root, and a first picture; of all of it, or from where the
/// fly-over begins.
void firstPicture(benchmark::State & state) {
    const LargeLandscape landscape;
    const EventLoop eventLoop;
    Nginx server;
    if (!serve(server, landscape)) return state.SkipWithError("nginx does not run");
    const Errors errors(8.0);
    for (auto _ : state) {
        const double begin = NBXTime::now();
        Scene scene(urlOf(server.port(), "heights.ztt"), "", 1280, 720);
        if (!scene.isOpen) return state.SkipWithError("not opened");
        state.counters["root_s"] = NBXTime::now() - begin;
        // The one that asks whether it is there is not the file's.
        state.counters["root_requests"] = double(scene.begun() + 1);
        unsigned frames = 0;
        constexpr double height = 0.6 * LargeLandscape::s_extent;
        if (state.range(0) == 0)
            scene.look(0.5, -0.2, height, {0.0, -height, 0.7 * LargeLandscape::s_extent});
        else
            scene.look(0.4, 0.4, s_eyeHeight, {3000.0, -1200.0, 2250.0});
        state.counters["picture_s"] = drawUntilWhole(scene, frames);
        state.counters["picture_requests"] = double(scene.begun() + 1);
        state.counters["frames"] = frames;
        state.counters["whole"] = scene.canvas->redisplayPending() ? 0 : 1;
        server.stop();
        state.counters["answers_of_server"] = server.answers();
    }
}

/// Terrain and texture over a line with a round trip of 20 ms and 100 Mbit a second, from nothing to rest.
void farAway(benchmark::State & state) {
    constexpr double roundTrip = 0.02, rate = 1e8 / 8.0;
    const LargeLandscape landscape;
    const EventLoop eventLoop;
    Nginx server;
    if (!serve(server, landscape)) return state.SkipWithError("nginx does not run");
    const SlowLine line(server.port(), roundTrip, rate);
    const Errors errors(4.0);
    for (auto _ : state) {
        Scene scene(urlOf(line.port(), "heights.ztt"), urlOf(line.port(), "image.zts"), 640, 360);
        if (!scene.isOpen) return state.SkipWithError("not opened");
        const std::uint64_t blocksBefore = scene.begun(), bytesBefore = scene.begunBytes();
        unsigned frames = 0;
        scene.look(0.4, 0.4, s_eyeHeight, {3000.0, -1200.0, 2250.0});
        GridTerrainPainterGL::resetStatistics();
        const double seconds = drawUntilWhole(scene, frames);
        const auto statistics = GridTerrainPainterGL::statistics();
        const double blocks = double(scene.begun() - blocksBefore),
                     bytes = double(scene.begunBytes() - bytesBefore);
        const int levels = scene.terrain->rootTile()->level() - statistics.minLevel;
        const double mark =
            std::max({bytes / rate, blocks / 60.0, blocks * roundTrip / 4.0}) + levels * (roundTrip + 0.1);
        state.counters["seconds"] = seconds;
        state.counters["mark_s"] = 1.5 * mark;
        state.counters["blocks"] = blocks;
        state.counters["MiB"] = bytes / s_mebibyte;
        state.counters["levels"] = levels;
        state.counters["frames_per_s"] = frames / seconds;
        state.counters["whole"] = scene.canvas->redisplayPending() ? 0 : 1;
    }
}

BENCHMARK(flyOver)->Unit(benchmark::kSecond)->Iterations(1);
BENCHMARK(flight)->Args({512, 256})->Args({48, 96})->Unit(benchmark::kSecond)->Iterations(1);
BENCHMARK(firstPicture)->Arg(0)->Arg(1)->Unit(benchmark::kSecond)->Iterations(1);
BENCHMARK(farAway)->Unit(benchmark::kSecond)->Iterations(1);

} // namespace
