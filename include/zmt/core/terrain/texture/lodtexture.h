#pragma once

#include <nbx/container/map/nonpersistentdictionary.h>
#include <nbx/container/sequence/array.h>
#include <nbx/object/callback.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/texture/lodtextureimage.h>
#include <zmt/core/terrain/texture/terraintexture.h>

namespace ZMT::CORE {

/// Drapes one image in several resolutions over a terrain. Use `TiledLODTexture` instead: this class is there
/// so that old scene files can be read, and behaves alike.
///
/// Stored attributes: "srcSizeX", "srcSizeY", "bbox", "images" (the finest first), "bboxes" (what each image
/// covers), "texelSizeX", "texelSizeY" (of the finest image). Images that do not fit together when read are
/// left out. Reading one is reported.
class LODTexture : public TerrainTexture {
    NBX_STORED_CLASS(LODTexture, TerrainTexture)
public:
    class Mapper;
    class Patch;
    class Preparer;

    /// `image`, in levels of half the size each, over `bbox` in scene coordinates.
    LODTexture(const NBX::Image * image, const NBX::Bounds & bbox);
    ~LODTexture() override;

    /// Size of the finest image in pixels.
    unsigned width() const { return srcSizeX_; }
    unsigned height() const { return srcSizeY_; }

    bool refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                unsigned viewportHeight, const NBX::Vector3Base<double> & eye, double textureError,
                bool inMotion) const override;
    NBX::Bounds boundingBox() const override { return bbox_; }
    /// Moves the images to `box`, in scene coordinates; its heights do not count.
    void setBoundingBox(const NBX::Bounds & box);

    void serialize(NBX::SerializationManager & m) override;

    // The budget and its pacing, of all objects together; see `TiledLODTexture`.
    static void beginFrame(const TerrainPainterFrameManager::Info & info);
    static void endFrame(const TerrainPainterFrameManager::Info & info);
    static unsigned usedTextureMemory();
    static unsigned getMaxTextureMemory();
    /// 128 MiB at first; less than 16 MiB is reported.
    static void setMaxTextureMemory(unsigned newMaxTextureMemory);
    static void killManager();

protected:
    /// For reading.
    LODTexture();

    NBX::SO<NBX::TextureGL> requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                        const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                                        unsigned viewportHeight, double priority,
                                        const NBX::Vector3Base<double> & eye, double textureError,
                                        bool inMotion, bool asynchronous, bool & incomplete) const override;

private:
    using Images = NBX::Array<NBX::SO<LODTexture_Image>>;
    using Boxes = NBX::Array<NBX::Bounds>;

    bool isConsistent() const;
    NBX::SO<Patch> newPatch(const GeometryPatch & geometryPatch, NBX::EngineGL * engine) const;

    unsigned srcSizeX_ = 0, srcSizeY_ = 0;
    NBX::Bounds bbox_;
    NBX::SO<Images> images_;
    NBX::SO<Boxes> bboxes_;
    double texelSizeX_ = 0.0, texelSizeY_ = 0.0; ///< in scene units
    mutable NBX::SO<Mapper> mapper_;             ///< null until the first request
    mutable NBX::SO<Preparer> preparer_;         ///< null until it is needed
};

/// Part of an image that one or several geometry patches show.
class LODTexture::Patch : public NBX::SharedObj {
    NBX_CLASS(Patch, NBX::SharedObj)
public:
    Patch(LODTexture_Image * image, const NBX::Bounds & imageBounds, unsigned level,
          const NBX::Bounds & bounds, NBX::EngineGL * engine);
    ~Patch() override;

    const NBX::SO<LODTexture_Image> image;
    const NBX::Bounds imageBounds; ///< what the image covers, in scene coordinates
    const unsigned level;          ///< number of the image; 0 is the finest
    const NBX::Bounds bounds;      ///< what the texture covers, in scene coordinates
    const unsigned width, height;  ///< greatest size in texels, powers of two
    const NBX::SO<NBX::EngineGL> engine;
    const bool hasBorder; ///< the driver knows a border beyond textures
};

/// Which part of the images serves which geometry patch.
class LODTexture::Mapper : public NBX::NonPersistentDictionary<NBX::SO<const GeometryPatch>, NBX::SO<Patch>> {
    using Base = NBX::NonPersistentDictionary<NBX::SO<const GeometryPatch>, NBX::SO<Patch>>;
    NBX_CLASS(Mapper, Base)
public:
    Mapper();
    ~Mapper() override;
};

/// Makes the texture of a `Patch`, on any thread.
class LODTexture::Preparer : public NBX::CallbackR1<NBX::SO<NBX::TextureGL>, NBX::SO<Patch>> {
    using Base = NBX::CallbackR1<NBX::SO<NBX::TextureGL>, NBX::SO<Patch>>;
    NBX_CLASS(Preparer, Base)
public:
    NBX::SO<NBX::TextureGL> call(NBX::SO<Patch> patch) override;
};

} // namespace ZMT::CORE
