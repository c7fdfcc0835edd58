#pragma once

#include <vector>

#include <nbx/container/map/nonpersistentdictionary.h>
#include <nbx/object/callback.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

namespace ZMT::CORE {

struct LODTextureLevel;

/// Drapes an image pyramid of any size over a terrain. For each geometry patch one texture of at most 512 by
/// 512 texels is cut from the level that fits. A worker thread prepares the textures in the order of their
/// importance for the picture, within a budget shared by all objects of the class; meanwhile a patch shows
/// the texture of its nearest ancestor that has one. So does a patch whose texture could not be read, which
/// is tried again after a while. Where the pyramid has nothing the patch shows nothing.
///
/// Everything belongs to the render thread; the worker reads the pyramid. The pyramid's pixels must not be
/// read elsewhere meanwhile, unless it allows that by itself.
///
/// Stored attribute: "pyramid" (default null).
class TiledLODTexture : public TerrainTexture {
    NBX_STORED_CLASS(TiledLODTexture, TerrainTexture)
public:
    class Mapper;
    class Patch;
    class Preparer;

    /// Keeps `pyramid`; a null one has no data anywhere.
    explicit TiledLODTexture(RASTER::TiledGeoImagePyramid * pyramid);
    ~TiledLODTexture() override;

    const NBX::SO<RASTER::TiledGeoImagePyramid> & pyramid() const { return pyramid_; }

    /// False also for a patch that meets the image in a line or a point: there is no area to be shown.
    bool refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                unsigned viewportHeight, const NBX::Vector3Base<double> & eye, double textureError,
                bool inMotion) const override;
    NBX::Bounds boundingBox() const override;

    void serialize(NBX::SerializationManager & m) override;

    // The budget and its pacing, of all objects together.

    /// Called when the painting of a terrain begins and ends; the first call makes the manager.
    static void beginFrame(const TerrainPainterFrameManager::Info & info);
    static void endFrame(const TerrainPainterFrameManager::Info & info);
    /// In bytes; 0 before the first frame.
    static unsigned usedTextureMemory();
    /// Number of textures that wait for their preparation; 0 before the first frame.
    static unsigned pendingRequests();
    /// 128 MiB at first. Takes effect at the end of the frame.
    static void setMaxTextureMemory(unsigned bytes);
    /// Ends the worker and drops all textures; the next frame begins anew. Done by itself at the end of the
    /// process.
    static void killManager();

protected:
    /// For reading.
    TiledLODTexture();

    NBX::SO<NBX::TextureGL> requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                        const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                                        unsigned viewportHeight, double priority,
                                        const NBX::Vector3Base<double> & eye, double textureError,
                                        bool inMotion, bool asynchronous, bool & incomplete) const override;

private:
    const std::vector<LODTextureLevel> & levels() const;

    NBX::SO<RASTER::TiledGeoImagePyramid> pyramid_;
    mutable std::vector<LODTextureLevel> levels_; ///< of the pyramid; empty until they are needed
    mutable NBX::SO<Mapper> mapper_;              ///< null until the first request
    mutable NBX::SO<Preparer> preparer_;          ///< null until it is needed
};

/// Part of the pyramid that one or several geometry patches show: what a texture is prepared for.
class TiledLODTexture::Patch : public NBX::SharedObj {
    NBX_CLASS(Patch, NBX::SharedObj)
public:
    Patch(RASTER::TiledGeoImagePyramid * pyramid, unsigned level, const NBX::Bounds & bounds, unsigned width,
          unsigned height, NBX::EngineGL * engine);
    ~Patch() override;

    const NBX::SO<RASTER::TiledGeoImagePyramid> pyramid;
    const unsigned level; ///< of the pyramid; 0 is the finest
    /// In scene coordinates: what the first geometry patch that needed it has in common with the pyramid.
    const NBX::Bounds bounds;
    /// Of the scene whose coordinates these are: another one may be in use when the texture is prepared.
    const NBX::Vector3Base<double> origin;
    const unsigned width, height; ///< greatest size in texels, powers of two
    const NBX::SO<NBX::EngineGL> engine;
};

/// Which part of the pyramid serves which geometry patch. Keeps the geometry patches.
class TiledLODTexture::Mapper
    : public NBX::NonPersistentDictionary<NBX::SO<const GeometryPatch>, NBX::SO<Patch>> {
    using Base = NBX::NonPersistentDictionary<NBX::SO<const GeometryPatch>, NBX::SO<Patch>>;
    NBX_CLASS(Mapper, Base)
public:
    Mapper();
    ~Mapper() override;
};

/// Makes the texture of a `Patch`: the empty one where the pyramid has nothing. Throws when the pyramid
/// cannot be read there, and reports that the first time. Works on any thread, one call at a time.
class TiledLODTexture::Preparer : public NBX::CallbackR1<NBX::SO<NBX::TextureGL>, NBX::SO<Patch>> {
    using Base = NBX::CallbackR1<NBX::SO<NBX::TextureGL>, NBX::SO<Patch>>;
    NBX_CLASS(Preparer, Base)
public:
    NBX::SO<NBX::TextureGL> call(NBX::SO<Patch> patch) override;

private:
    NBX::SO<RASTER::GeoImage> read(const Patch & patch);

    bool hasReported_ = false;
};

} // namespace ZMT::CORE
