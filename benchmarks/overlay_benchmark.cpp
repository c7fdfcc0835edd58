// One texture of features, against the bare drawing of the same vertices.
//
// Compare `texture` with `bare`, by the processor time of the process: the software renderer has threads of
// its own. Both sides send the vertices to the card, draw them with the same style into 1024 by 1024 pixels,
// copy these into a texture of the same format, and wait for the card. The texture has smaller levels
// besides, without which it would flicker; `bare_levels` lets the driver make them.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <GL/glew.h>
#include <benchmark/benchmark.h>

#include "core/terrain/texture/fakepyramid.h"
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/gl/texture/texture2dgl.h>
#include <zmt/core/vector/vectoroverlaytexture.h>

namespace {

using NBX::SO;
using ZMT::CORE::VectorOverlay;
using ZMT::CORE::VectorOverlayTexture;
using ZMT::CORE::VectorStyleSheet;
using ZMT::RASTER::VectorFeature;

constexpr unsigned s_size = 1024, s_format = 32856; // GL_RGBA8
constexpr double s_side = 1024.0;
constexpr unsigned s_segments = 100;

/// Of features in a square.
class Features : public ZMT::RASTER::FeatureSource {
public:
    const std::string & name() const override { return name_; }
    const std::vector<ZMT::RASTER::VectorField> & fields() const override { return fields_; }
    std::uint64_t size() const override { return features_.size(); }
    std::optional<ZMT::RASTER::GeoExtent> extent() const override { return {{0.0, 0.0, s_side, s_side}}; }
    Kinds kinds() const override { return {true, true, true}; }
    void read(const Query &, const std::function<bool(const VectorFeature &)> & visit) const override {
        for (const VectorFeature & feature : features_)
            if (!visit(feature)) return;
    }

protected:
    std::vector<VectorFeature> features_;

private:
    std::string name_ = "features";
    std::vector<ZMT::RASTER::VectorField> fields_;
};

/// Wandering lines.
class Lines : public Features {
public:
    explicit Lines(unsigned segments) {
        features_.resize(segments / s_segments);
        std::mt19937 random(7);
        std::uniform_real_distribution<double> place(0.1 * s_side, 0.9 * s_side), step(-8.0, 8.0);
        for (VectorFeature & feature : features_) {
            VectorFeature::Position at(place(random), 0.0, place(random));
            VectorFeature::Line & line = feature.lines.emplace_back();
            line.push_back(at);
            for (unsigned i = 0; i < s_segments; ++i) {
                at = {std::clamp(at.x + step(random), 0.0, s_side), 0.0,
                      std::clamp(at.z + step(random), 0.0, s_side)};
                line.push_back(at);
            }
        }
    }
    /// Pairs of ends.
    std::vector<float> vertices() const {
        std::vector<float> vertices;
        for (const VectorFeature & feature : features_)
            for (std::size_t i = 1; i < feature.lines[0].size(); ++i)
                for (const auto & p : {feature.lines[0][i - 1], feature.lines[0][i]})
                    vertices.insert(vertices.end(), {float(p.x), 0.0F, float(p.z)});
        return vertices;
    }
};

/// Ragged rings side by side, with `corners` each.
class Areas : public Features {
public:
    Areas(unsigned segments, unsigned corners) {
        features_.resize(segments / corners);
        const auto columns = static_cast<unsigned>(std::ceil(std::sqrt(features_.size())));
        const double room = s_side / columns;
        std::mt19937 random(7);
        std::uniform_real_distribution<double> share(0.35, 0.45);
        for (std::size_t i = 0; i < features_.size(); ++i) {
            VectorFeature::Line ring;
            for (unsigned k = 0; k < corners; ++k) {
                const double angle = 6.283185307179586 * k / corners, radius = room * share(random);
                ring.emplace_back(room * (double(i % columns) + 0.5) + radius * std::cos(angle), 0.0,
                                  room * (double(i / columns) + 0.5) + radius * std::sin(angle));
            }
            features_[i].areas.push_back({ring});
        }
    }
};

void drawTexture(benchmark::State & state, const std::shared_ptr<Features> & features,
                 const std::string & style, unsigned samples = 1) {
    const SO<NBX::OffscreenCanvasGL> canvas(new NBX::OffscreenCanvasGL(64, 64));
    if (!canvas->makeContextCurrent()) return state.SkipWithError("no OpenGL context");
    const SO<VectorOverlay> overlay(new VectorOverlay(features, VectorStyleSheet::parse(style)));
    const SO<FakePatch> patch = FakePatch::oblong(0.0, 0.0, s_side, s_side, 0);
    SO<VectorOverlayTexture> texture(
        new VectorOverlayTexture({overlay}, ZMT::CORE::LocalFrame({0.0, 0.0, 0.0}), patch->boundingBox()));
    texture->setBufferSize(s_size);
    texture->setInternalFormat(s_format);
    texture->setCulling(false);
    VectorOverlayTexture::setSamples(samples);
    const SO<NBX::ViewInfo> view = viewFromAbove(1.0);
    const auto drawOne = [&] {
        bool incomplete = false;
        texture->clearCache();
        benchmark::DoNotOptimize(texture->request(patch.get(), canvas->engine().get(), view.get(), 1000, 1000,
                                                  1.0, {}, 0.0, false, false, incomplete));
        glFinish();
    };
    drawOne();
    for ([[maybe_unused]] auto _ : state)
        drawOne();
    state.counters["vertices"] = static_cast<double>(overlay->counts().vertices / overlay->counts().textures);
    texture = nullptr;
    VectorOverlayTexture::releaseSharedObjects();
    canvas->releaseContext();
}

void drawBare(benchmark::State & state, bool withLevels) {
    const SO<NBX::PBufferCanvasGL> canvas(new NBX::PBufferCanvasGL(s_size, s_size));
    if (!canvas->makeContextCurrent()) return state.SkipWithError("no OpenGL context");
    const std::vector<float> vertices = Lines(static_cast<unsigned>(state.range(0))).vertices();
    GLuint buffer = 0, texture = 0;
    glGenBuffers(1, &buffer);
    glBindBuffer(GL_ARRAY_BUFFER, buffer);
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexImage2D(GL_TEXTURE_2D, 0, s_format, s_size, s_size, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    // With the margin that textures have.
    glOrtho(-16.0, s_side + 16.0, -16.0, s_side + 16.0, -1.0, 1.0);
    const GLdouble fromPlan[16] = {1, 0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1};
    glMultMatrixd(fromPlan);
    glViewport(0, 0, s_size, s_size);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_LEQUAL);
    glColor4f(1.0F, 0.0F, 0.0F, 1.0F);
    glLineWidth(1.0F);
    glEnableClientState(GL_VERTEX_ARRAY);
    glVertexPointer(3, GL_FLOAT, 0, nullptr);
    const auto drawOne = [&] {
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
        glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(vertices.size() * sizeof(float)), vertices.data(),
                     GL_STREAM_DRAW);
        glDrawArrays(GL_LINES, 0, GLsizei(vertices.size() / 3));
        glCopyTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 0, 0, s_size, s_size);
        if (withLevels) glGenerateMipmap(GL_TEXTURE_2D);
        glFinish();
    };
    drawOne();
    for ([[maybe_unused]] auto _ : state)
        drawOne();
    state.counters["vertices"] = static_cast<double>(vertices.size()) / 3.0;
    glDeleteTextures(1, &texture);
    glDeleteBuffers(1, &buffer);
    canvas->releaseContext();
}

std::shared_ptr<Features> lines(const benchmark::State & state) {
    return std::make_shared<Lines>(static_cast<unsigned>(state.range(0)));
}
void texture(benchmark::State & state) {
    drawTexture(state, lines(state), "color=#ff0000, width=1");
}
void textureOfSamples(benchmark::State & state) {
    drawTexture(state, lines(state), "color=#ff0000, width=1", 4);
}
void textureOfRibbons(benchmark::State & state) {
    drawTexture(state, lines(state), "color=#ff0000, width=3");
}
void textureOfDashes(benchmark::State & state) {
    drawTexture(state, lines(state), "color=#ff0000, width=1, dash=4 2");
}
void textureOfAreas(benchmark::State & state) {
    drawTexture(state, std::make_shared<Areas>(static_cast<unsigned>(state.range(0)), 20),
                "fill=#ff000080, width=0");
}
void textureOfLargeAreas(benchmark::State & state) {
    drawTexture(
        state,
        std::make_shared<Areas>(static_cast<unsigned>(state.range(0)), static_cast<unsigned>(state.range(0))),
        "fill=#ff000080, width=0");
}
void bare(benchmark::State & state) {
    drawBare(state, false);
}
void bareWithLevels(benchmark::State & state) {
    drawBare(state, true);
}

void prepare(benchmark::internal::Benchmark * benchmark) {
    benchmark->Arg(1000)->Arg(100000)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(bare)->Apply(prepare);
BENCHMARK(texture)->Apply(prepare);
BENCHMARK(bareWithLevels)->Name("bare_levels")->Apply(prepare);
BENCHMARK(textureOfSamples)->Name("texture_of_4_samples")->Apply(prepare);
BENCHMARK(textureOfRibbons)->Name("texture_of_ribbons")->Apply(prepare);
BENCHMARK(textureOfDashes)->Name("texture_of_dashes")->Apply(prepare);
BENCHMARK(textureOfAreas)->Name("texture_of_areas")->Apply(prepare);
BENCHMARK(textureOfLargeAreas)->Name("texture_of_large_areas")->Apply(prepare);

} // namespace
