#pragma once

#include <vector>

#include <nbx/gl/texture/imagetexture2dgl.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/core/terrain/texture/terraintexturingeffect.h>

#include "support/testterrain.h"

/// The arguments of the operations of textures and effects. Engine and view are addresses only.
struct TextureArguments {
    TextureArguments() {
        grid = TestTerrain::grid({3, 3, 0.0, 0.0, 10.0, 10.0}, TestTerrain::bumpy);
        patch = new ZMT::CORE::GridPatch(grid, NBX::Area(0, 0, 2, 2), grid->boundingBox(), 0.0, 0.0, nullptr);
        engine = reinterpret_cast<NBX::EngineGL *>(storage[0]);
        viewInfo = reinterpret_cast<const NBX::ViewInfo *>(storage[1]);
    }

    template <class T> bool refine(const T & object) const {
        return object.refine(patch.get(), viewInfo, width, height, eye, textureError, inMotion);
    }
    template <class T> bool ignorePreviousEffects(const T & object) const {
        return object.ignorePreviousEffects(patch.get(), viewInfo, width, height, eye, textureError,
                                            inMotion);
    }
    template <class T> auto request(const T & object) {
        return object.request(patch.get(), engine, viewInfo, width, height, priority, eye, textureError,
                              inMotion, asynchronous, incomplete);
    }

    alignas(64) char storage[2][64] = {};
    NBX::SO<ZMT::CORE::GridData> grid;
    /// From 0 to 20 in x and z.
    NBX::SO<const ZMT::CORE::GeometryPatch> patch;
    NBX::EngineGL * engine;
    const NBX::ViewInfo * viewInfo;
    unsigned width = 640, height = 480;
    double priority = 0.75;
    NBX::Vector3Base<double> eye{1.0, 2.0, 3.0};
    double textureError = 2.5;
    bool inMotion = true, asynchronous = true;
    bool incomplete = false;
};

/// Answers as it is told, and notes what it is asked.
class FakeTerrainTexture : public ZMT::CORE::TerrainTexture {
    NBX_TEMPLATE_CLASS(FakeTerrainTexture, ZMT::CORE::TerrainTexture)
public:
    FakeTerrainTexture()
        : TerrainTexture(NBX::TextureGL::FM_NearestMipmapLinear, NBX::TextureGL::FM_Nearest),
          answer(new NBX::ImageTexture2DGL(nullptr)) {}

    bool refine(const ZMT::CORE::GeometryPatch * patch, const NBX::ViewInfo * viewInfo,
                unsigned viewportWidth, unsigned viewportHeight, const NBX::Vector3Base<double> & eye,
                double textureError, bool inMotion) const override {
        ++refines;
        note(patch, viewInfo, viewportWidth, viewportHeight, eye, textureError, inMotion);
        return wantsRefinement;
    }
    NBX::Bounds boundingBox() const override { return box; }

    /// True when the last call came with these arguments.
    bool wasAskedWith(const TextureArguments & a) const {
        return seen.patch == a.patch && seen.viewInfo == a.viewInfo && seen.width == a.width &&
               seen.height == a.height && seen.eye == a.eye && seen.textureError == a.textureError &&
               seen.inMotion == a.inMotion;
    }
    bool wasRequestedWith(const TextureArguments & a) const {
        return wasAskedWith(a) && seen.engine == a.engine && seen.priority == a.priority &&
               seen.asynchronous == a.asynchronous;
    }

    NBX::SO<NBX::TextureGL> answer;
    NBX::Bounds box;
    bool wantsRefinement = false;
    bool isIncomplete = false;
    mutable int refines = 0, requests = 0;

protected:
    NBX::SO<NBX::TextureGL> requestImpl(const ZMT::CORE::GeometryPatch * patch, NBX::EngineGL * engine,
                                        const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                                        unsigned viewportHeight, double priority,
                                        const NBX::Vector3Base<double> & eye, double textureError,
                                        bool inMotion, bool asynchronous, bool & incomplete) const override {
        ++requests;
        note(patch, viewInfo, viewportWidth, viewportHeight, eye, textureError, inMotion);
        seen.engine = engine;
        seen.priority = priority;
        seen.asynchronous = asynchronous;
        if (isIncomplete) incomplete = true;
        return answer;
    }

private:
    struct Seen {
        const ZMT::CORE::GeometryPatch * patch = nullptr;
        NBX::EngineGL * engine = nullptr;
        const NBX::ViewInfo * viewInfo = nullptr;
        unsigned width = 0, height = 0;
        double priority = 0.0;
        NBX::Vector3Base<double> eye;
        double textureError = 0.0;
        bool inMotion = false, asynchronous = false;
    };

    void note(const ZMT::CORE::GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned width,
              unsigned height, const NBX::Vector3Base<double> & eye, double textureError,
              bool inMotion) const {
        seen.patch = patch;
        seen.viewInfo = viewInfo;
        seen.width = width;
        seen.height = height;
        seen.eye = eye;
        seen.textureError = textureError;
        seen.inMotion = inMotion;
    }

    mutable Seen seen;
};

using FakeTextures = std::vector<NBX::SO<FakeTerrainTexture>>;

inline FakeTextures fakeTextures(unsigned count) {
    FakeTextures textures;
    for (unsigned i = 0; i < count; ++i)
        textures.emplace_back(new FakeTerrainTexture);
    return textures;
}

inline NBX::SO<NBX::Array<NBX::SO<ZMT::CORE::TerrainTexture>>> sequenceOf(const FakeTextures & textures) {
    return new NBX::Array<NBX::SO<ZMT::CORE::TerrainTexture>>(
        std::vector<NBX::SO<ZMT::CORE::TerrainTexture>>(textures.begin(), textures.end()));
}
