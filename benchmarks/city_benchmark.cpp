// A flight over a city of textured models, 600 frames of 1280 by 720 within 100 MB of textures: how long the
// render thread is busy outside of OpenGL, what goes to the card, and what the textures take. `ZMT_CITY`
// names the file that `zmt build city` wrote, of what `makecity` makes; `city.sh` does all of it.
//
//     ZMT_CITY=city.city LP_NUM_THREADS=0 city_benchmark
//
// The time outside of OpenGL is that of a frame by the clock less that of the calls by the clock, so that
// what other processes take of the render thread's processor is in it, and the sum of all clock readings. The
// same of the thread's processor time can only be too small, where others took from the calls: on a quiet
// machine both agree, when the software renderer draws on the render thread itself (`LP_NUM_THREADS=0`).

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <numbers>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include "timedgl.h"

#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/object/exception.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/texturedtriangles/citymodels.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

#include "core/texturedtriangles/texturedtriangletreepaintergl.h"

namespace {

using namespace ZMT::CORE;
using NBX::SO;
using Point = NBX::Vector3Base<double>;
using Painter = TexturedTriangleTreePainterGL;

constexpr std::uint64_t s_budget = 100'000'000;
constexpr double s_mebibyte = 1 << 20;

int numberFrom(const char * variable, int otherwise) {
    const char * text = std::getenv(variable);
    return text ? std::max(std::atoi(text), 1) : otherwise;
}

double quantile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    return values[std::size_t(share * double(values.size() - 1) + 0.5)];
}

double secondsOf(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return double(time.tv_sec) + 1e-9 * double(time.tv_nsec);
}

/// How often the thread gave up its processor to wait for something.
long waitsOfThread() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

/// All of one frame but its picture.
struct Frame {
    double whole = 0.0, outside = 0.0, processor = 0.0, upload = 0.0, drawCalls = 0.0, calls = 0.0;
};

class Flight {
public:
    explicit Flight(const SO<CityModels> & city)
        : city_(city), canvas_(new NBX::OffscreenCanvasGL(1280, 720)) {
        hasContext = canvas_->create();
        canvas_->setRenderingMode(1);
        box_ = city->boundingBox();
    }

    /// From one corner over the city to the opposite one, down into the streets and up again. `t` from 0
    /// to 1.
    void look(double t) {
        const Point corner = box_.getLLF(), size = box_.diagonal();
        const auto placeAt = [&](double at) {
            const double height = 90.0 + 70.0 * std::cos(6.0 * std::numbers::pi * at);
            return corner + Point(size.x * (0.1 + 0.8 * at), height,
                                  size.z * (0.1 + 0.8 * at + 0.08 * std::sin(2.0 * std::numbers::pi * at)));
        };
        const Point eye = placeAt(t), ahead = placeAt(t + 0.05) - Point(0.0, 25.0, 0.0);
        if (scene_) canvas_->remove(scene_.get());
        scene_ = new NBX::SceneThing;
        scene_->append(new NBX::Camera(new NBX::LookAt(eye, ahead),
                                       new NBX::Perspective(45.0, 1.0, 2.0 * size.length())));
        scene_->append(city_->scene().get());
        canvas_->append(scene_.get());
    }

    Frame draw() {
        const double inGL = TimedGL::seconds, uploads = TimedGL::uploadSeconds;
        const auto drawCalls = TimedGL::drawCalls, calls = TimedGL::calls;
        const double begin = secondsOf(CLOCK_MONOTONIC), beginProcessor = secondsOf(CLOCK_THREAD_CPUTIME_ID);
        canvas_->redisplay();
        const double processor = secondsOf(CLOCK_THREAD_CPUTIME_ID) - beginProcessor;
        const double whole = secondsOf(CLOCK_MONOTONIC) - begin, spent = TimedGL::seconds - inGL;
        Frame frame{whole,
                    whole - spent,
                    std::max(0.0, processor - spent),
                    TimedGL::uploadSeconds - uploads,
                    double(TimedGL::drawCalls - drawCalls),
                    double(TimedGL::calls - calls)};
        glFinish(); // else the card would be behind for ever
        return frame;
    }

    bool hasContext = false;

private:
    SO<CityModels> city_;
    SO<NBX::OffscreenCanvasGL> canvas_;
    SO<NBX::SceneThing> scene_;
    NBX::Bounds box_;
};

std::vector<double> all(const std::vector<Frame> & frames, double Frame::*value, double factor = 1.0) {
    std::vector<double> values;
    values.reserve(frames.size());
    for (const Frame & frame : frames)
        values.push_back(factor * frame.*value);
    return values;
}

void report(benchmark::State & state, const std::vector<Frame> & frames) {
    const auto both = [&](const std::string & name, double Frame::*value, double factor) {
        const std::vector<double> values = all(frames, value, factor);
        state.counters[name + "_median"] = quantile(values, 0.5);
        state.counters[name + "_p99"] = quantile(values, 0.99);
    };
    both("outside_GL_ms", &Frame::outside, 1000.0);
    both("outside_GL_processor_ms", &Frame::processor, 1000.0);
    both("upload_ms", &Frame::upload, 1000.0);
    both("frame_ms", &Frame::whole, 1000.0);
    both("draw_calls", &Frame::drawCalls, 1.0);
    both("GL_calls", &Frame::calls, 1.0);
}

SO<CityModels> loadedCity(benchmark::State & state) {
    const char * path = std::getenv("ZMT_CITY");
    if (!path) state.SkipWithError("ZMT_CITY names no file of a city");
    if (!path) return nullptr;
    try {
        return CityModels::load(path);
    } catch (const NBX::Exception & exception) {
        state.SkipWithError("the city cannot be read");
        return nullptr;
    }
}

void flight(benchmark::State & state) {
    const SO<CityModels> city = loadedCity(state);
    if (!city) return;
    Flight flight(city);
    if (!flight.hasContext) return state.SkipWithError("no OpenGL context");
    installTimedGL();
    TTTMemoryController::setMaxTextureMemory(s_budget);
    const SO<TTTMemoryController> controller = TTTMemoryController::getInstance();
    const int number = numberFrom("ZMT_FLIGHT_FRAMES", 600);
    std::vector<Frame> frames;
    std::uint64_t most = 0, over = 0;
    const std::uint64_t uploaded = TimedGL::uploadBytes;
    const long waits = waitsOfThread();
    Painter::resetStatistics();
    for (auto _ : state)
        for (int i = 0; i < number; ++i) {
            flight.look(double(i) / number);
            frames.push_back(flight.draw());
            const std::uint64_t memory = controller->textureMemory();
            most = std::max(most, memory);
            over = std::max(over, memory - std::min(memory, s_budget));
        }
    state.counters["waits"] = double(waitsOfThread() - waits);
    report(state, frames);
    const double frameCount = double(frames.size());
    state.counters["nodes_a_frame"] = Painter::statistics().nodes / frameCount;
    state.counters["originals_a_frame"] = Painter::statistics().originals / frameCount;
    state.counters["uploaded_MiB"] = double(TimedGL::uploadBytes - uploaded) / s_mebibyte;
    state.counters["most_MB"] = double(most) / 1e6;
    state.counters["bytes_over_budget"] = double(over);
    double roots = 0.0, meshes = 0.0;
    for (const SO<TexturedTriangleTree> & tree : city->trees()) {
        const TTTMemoryController::Resident resident = TTTMemoryController::residentBytes(*tree);
        roots += double(resident.rootAtlases);
        meshes += double(resident.meshes);
    }
    state.counters["roots_MiB"] = roots / s_mebibyte;
    state.counters["meshes_MiB"] = meshes / s_mebibyte;
}
BENCHMARK(flight)->Unit(benchmark::kSecond)->Iterations(1);

} // namespace
