// Upright labels of a picture of 1920 by 1080 pixels while the view moves on, with as much effort as a window
// spends, and at rest; heights and rays of the ground cost nothing here. The number of candidates is that of
// names in view, all of points, so that nearly all of them are tried.

#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/vector/screenlabels.h>

#include "core/vector/memoryfeatures.h"

namespace {

using namespace ZMT::CORE;
using Point = ScreenLabels::Point;

ScreenLabels::Layer layerOf(unsigned candidates) {
    const auto source = std::make_shared<MemoryFeatures>(
        std::vector<ZMT::RASTER::VectorField>{{"name", ZMT::RASTER::VectorField::Type::Text}});
    for (unsigned i = 0; i < candidates; ++i)
        source->addPoint({i % 100 * 40.0 + 3000.0, 0.0, double(i) / candidates * 4000.0 + 3000.0},
                         {"Place " + std::to_string(i)});
    return {source, {0}, [](const MemoryFeatures::Feature & feature) -> std::optional<ScreenLabels::Label> {
                return ScreenLabels::Label{std::get<std::string>(feature.values[0]), {}};
            }};
}

void moving(benchmark::State & state) {
    ScreenLabels labels;
    labels.setLayers({layerOf(unsigned(state.range(0)))});
    labels.setGround({NBX::Bounds(Point(0, 0, 0), Point(10'000, 1000, 10'000)),
                      [](double, double) { return 100.0; },
                      [](const Point &, const Point &) { return false; }});
    const bool isMoving = state.range(1) != 0;
    unsigned frame = 0;
    const auto update = [&](const ScreenLabels::Effort & effort) {
        const double way = (isMoving ? frame++ % 1000 : 0) * 0.5;
        const NBX::SO<NBX::Camera> camera(
            new NBX::Camera(new NBX::LookAt(Point(5000 + way, 9000, 1000 + way), Point(5000, 0, 5000)),
                            new NBX::Perspective(45.0, 100.0, 30'000.0)));
        labels.update(*camera, 1920, 1080, effort);
    };
    update(ScreenLabels::Effort::unlimited());
    for (auto _ : state)
        update(ScreenLabels::Effort());
    state.counters["placed"] = double(labels.placed().size());
}

BENCHMARK(moving)
    ->Unit(benchmark::kMillisecond)
    ->ArgNames({"candidates", "moving"})
    ->Args({1000, 1})
    ->Args({10'000, 1})
    ->Args({10'000, 0});

} // namespace
