// What is lit is prepared here; a renderer draws the light. Its pictures are of floats, those that callers
// get of 8 bits.

#include <zmt/util/occlusion/ambientocclusion.h>

#include <algorithm>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/container/sequence/constantiterator.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/gl/program/fragmentshaderobject.h>
#include <nbx/gl/program/programobject.h>
#include <nbx/gl/program/samplervariable.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/progress.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/shape/polygonsettool.h>
#include <zmt/core/terrain/geometry/view/terrain.h>

#include "ambientocclusionshaders.h"
#include "aoimpl.h"
#include "lightlist.h"

namespace ZMT::UTIL {

bool AmbientOcclusion::s_fboEnabled = true;
int AmbientOcclusion::s_idBufferSize = 1024;
int AmbientOcclusion::s_maxAtlasSize = 1024;
int AmbientOcclusion::s_textureBorderWidth = 2;

namespace {

using NBX::PolygonSet;
using NBX::SO;
using Composite = UniqueTextureMapping::TexturedMeshComposite;

SO<NBX::Image> newByteImage(const SO<NBX::Image> & image) {
    if (!image) return nullptr;
    SO<NBX::Image> bytes(new NBX::MemoryImage(image->width(), image->height(), NBX::LS_RGBA));
    return bytes->copy(image.get()) ? bytes : nullptr;
}

unsigned textureSize() {
    return static_cast<unsigned>(std::max(AmbientOcclusion::getIdBufferSize(), 1));
}

SO<PolygonSet> withNormals(const SO<PolygonSet> & set) {
    return set->newNormalIterator() ? set : NBX::PolygonSetTool::computeFaceNormals(set.get());
}

/// All of `meshes` and `further`, which may be null, as one.
SO<PolygonSet> merged(const AmbientOcclusion::Meshes & meshes, const SO<PolygonSet> & further) {
    std::vector<SO<PolygonSet>> all(meshes.begin(), meshes.end());
    all.push_back(further);
    const NBX::NonPersistentArray<SO<PolygonSet>> sets(std::move(all));
    return NBX::PolygonSetTool::mergePolygonSets(&sets);
}

} // namespace

AmbientOcclusion::LightingConfiguration AmbientOcclusion::LightingConfiguration::create(Preset preset) {
    LightingConfiguration made;
    switch (preset) {
    case P_LowSun:
        made.numSkyDirections = 300;
        made.numSunDirections = 250;
        made.sunDirection = {-1.0, 0.16, 0.0};
        made.sunSpread = 3.0;
        made.sunPower = 300.0;
        made.sunColor = NBX::Color(1.0, 0.7, 0.2, 1.0);
        made.intensity = 2.5;
        return made;
    case P_HighSun:
        made.numSkyDirections = 300;
        made.skyColor = NBX::Color(0.9, 0.9, 1.0, 1.0);
        made.numSunDirections = 50;
        made.sunDirection = {1.0, 1.0, -1.0};
        made.sunSpread = 0.5;
        made.sunPower = 100.0;
        made.intensity = 4.0;
        return made;
    }
    NBX_FAILURE(L"unknown preset type. creating default settings.");
    return made;
}

SO<NBX::Image> AmbientOcclusion::createLightingTexture(SO<PolygonSet> receiver, SO<PolygonSet> caster,
                                                       SO<NBX::GLCanvas> canvas,
                                                       SO<Vectors> lightDirections) {
    NBX_CHECK(receiver, L"no receiver");
    NBX_CHECK(lightDirections, L"no light directions");
    if (!receiver || !lightDirections) return nullptr;
    const SO<AOImpl> impl = newAOImpl(canvas);
    if (!impl) return nullptr;
    const LightList lights = LightList::fromDirections(*lightDirections);
    NBX::Progress progress("Calculate lighting", static_cast<double>(lights.directions.size()));
    return newByteImage(
        impl->render(AOImpl::MeshStep{withNormals(receiver), caster, textureSize()}, lights, &progress));
}

Composite AmbientOcclusion::createLightingTextures(SO<Meshes> meshes, double texelsPerUnit,
                                                   SO<NBX::GLCanvas> canvas,
                                                   const LightingConfiguration & configuration,
                                                   SO<PolygonSet> casters) {
    const SO<AOImpl> impl = newAOImpl(canvas);
    if (!impl) return {};
    NBX::Progress preparing("Preparing lighting");
    Composite result = UniqueTextureMapping::create(meshes, texelsPerUnit, s_maxAtlasSize);
    if (!result.meshes) return {};
    const SO<PolygonSet> allCasters = merged(*result.meshes, casters);
    preparing.finish();

    const LightList lights = LightList::combined(configuration);
    NBX::Progress progress("Calculate lighting",
                           static_cast<double>(lights.directions.size()) * result.meshes->size());
    for (unsigned atlas = 0; atlas < result.meshes->size(); ++atlas) {
        const SO<PolygonSet> receiver =
            NBX::PolygonSetTool::computeFaceNormals(result.meshes->get(atlas).get());
        const SO<NBX::Image> image = newByteImage(
            impl->render(AOImpl::MeshStep{receiver, allCasters, textureSize()}, lights, &progress));
        if (!image) return {};
        result.textures->get(atlas)->setImage(image);
    }
    return result;
}

SO<NBX::Image> AmbientOcclusion::createTerrainTexture(SO<CORE::Terrain> terrain, SO<PolygonSet> casters,
                                                      SO<NBX::GLCanvas> canvas, const NBX::Bounds & bounds,
                                                      const LightingConfiguration & configuration) {
    NBX_CHECK(terrain, L"no terrain");
    if (!terrain) return nullptr;
    const SO<AOImpl> impl = newAOImpl(canvas);
    if (!impl) return nullptr;
    SO<PolygonSet> white = NBX::PolygonSetTool::copy(casters.get());
    if (white && white->newVertexIterator())
        white->setColorIterator(
            new NBX::ConstantIterator<NBX::Color>(NBX::Color::white, white->newVertexIterator()->size()));
    const NBX::Bounds part = bounds.isDefined() ? bounds : terrain->boundingBox();
    NBX_CHECK(part.isDefined(), L"the terrain has no extent");
    if (!part.isDefined()) return nullptr;
    const LightList lights = LightList::combined(configuration);
    NBX::Progress progress("Calculating terrain lighting", static_cast<double>(lights.directions.size()));
    return newByteImage(
        impl->render(AOImpl::TerrainStep{terrain, white, part, textureSize()}, lights, &progress));
}

SO<NBX::GL2::ProgramObject> AmbientOcclusion::getIntensityBoostProgram(bool withColorTexture, float minValue,
                                                                       float maxValue) {
    SO<NBX::GL2::ProgramObject> program(new NBX::GL2::ProgramObject);
    program->attach(new NBX::GL2::FragmentShaderObject(
        AmbientOcclusionShaders::intensityBoostText(withColorTexture, minValue, maxValue)));
    program->attach(new NBX::GL2::SamplerVariable("AOTex", 0));
    if (withColorTexture) program->attach(new NBX::GL2::SamplerVariable("ColorTex", 1));
    return program;
}

} // namespace ZMT::UTIL
