#pragma once

#include <nbx/container/map/nonpersistentdictionary.h>
#include <nbx/container/map/nonpersistenthashtable.h>
#include <nbx/gl/texture/texture2dgl.h>
#include <nbx/math/bounds.h>
#include <nbx/object/wo.h>
#include <nbx/scene/node/scenenode.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/texture/terraintexture.h>

namespace NBX {
class GLCanvas;
}

namespace ZMT::CORE {

/// Drapes a scene of lines, areas and the like over a terrain: it is drawn from straight above into textures,
/// one for each node of a quadtree that follows the patches. Finished textures are kept in one table of all
/// objects of the class, which forgets the one not used for longest. What is missing is drawn when a frame
/// ends with the view at rest, the most wanted first; meanwhile the nearest coarser texture shows.
///
/// The scene lies in the frame of the terrain, x to the east and z to the north. What stands above or below
/// the ground shows where it stands in plan, at whatever height; where two things have one height, the later
/// one is drawn over the earlier one. Shapes are blended over each other by their alpha, unless they say
/// otherwise. Whoever changes the scene calls `clearCache`.
///
/// Everything runs on the render thread. A texture is drawn within the frame of the terrain, on a canvas of
/// the class; canvas, watcher and scaling of the terrain are left as they are found.
///
/// Stored attributes: "graph", "bbox", "caching", "culling", "maxDepth", then values of the whole class:
/// "pBufferTextureFormat", "pBufferCanvasSize", "maxTexturePatches". The last three are taken from a stream
/// only where they are within reason.
class VectorTexture : public TerrainTexture {
    NBX_STORED_CLASS(VectorTexture, TerrainTexture)
public:
    class Mapper;
    class Patch;

    /// `bbox` is the area in the plan of the terrain; its heights do not count. With `caching` each patch has
    /// a texture of its own; without, a view in motion is served by one texture of all that is seen, drawn
    /// for each picture. With `culling` patches that the scene does not touch cost nothing. `maxDepth` is the
    /// deepest level of the quadtree that has textures of its own. `internalFormat` becomes that of the
    /// class, 0 leaves it. The two flags without a name have no effect.
    VectorTexture(NBX::SceneNode * graph, const NBX::Bounds & bbox, bool, bool, bool caching, bool culling,
                  unsigned maxDepth, unsigned internalFormat);
    ~VectorTexture() override;

    /// True when a texel of the patch's texture is as large on the screen as `textureError`, or larger,
    /// however deep the patch lies; never outside of the area.
    bool refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                unsigned viewportHeight, const NBX::Vector3Base<double> & eye, double textureError,
                bool inMotion) const override;
    NBX::Bounds boundingBox() const override { return bbox_; }

    virtual void setBoundingBox(const NBX::Bounds & bbox);
    virtual NBX::SceneNode * getGraph() const { return graph_.get(); }
    virtual void setGraph(NBX::SceneNode * graph);
    /// Everything is drawn anew when it is next asked for.
    virtual void clearCache();
    virtual void setCaching(bool caching);
    virtual bool getCaching() const { return caching_; }
    virtual void setCulling(bool culling);
    virtual bool getCulling() const { return culling_; }
    virtual void setMaxDepth(unsigned maxDepth);
    virtual unsigned getMaxDepth() const { return maxDepth_; }
    /// Of the whole class, for textures drawn from now on: one of OpenGL's formats with alpha, GL_RGBA4 at
    /// first. Another one is reported.
    virtual void setInternalFormat(unsigned internalFormat);
    virtual unsigned getInternalFormat() const;
    /// Of the whole class: the side of the textures in texels, 1024 at first, at least 2, which is reported.
    /// Drops all textures of the class.
    virtual void setBufferSize(unsigned size);
    virtual unsigned getBufferSize() const;
    /// Appends what is to be drawn in `bbox`, which is defined, to the canvas: the scene. It is taken off the
    /// canvas afterwards.
    virtual void render(NBX::GLCanvas * canvas, const NBX::Bounds & bbox) const;

    void acceptChildren(std::vector<NBX::Visitable *> & children) const override;
    void serialize(NBX::SerializationManager & m) override;

    // Of all objects together.

    /// Called when the painting of a terrain begins and ends.
    static void beginFrame(const TerrainPainterFrameManager::Info & info);
    static void endFrame(const TerrainPainterFrameManager::Info & info);
    /// How many textures of patches are kept, 35 at first and at least 1; a view that needs more does not
    /// become sharp everywhere.
    static void setMaxTexturePatches(unsigned count);
    static unsigned getMaxTexturePatches();
    /// Whether the view that was drawn last is at rest and stays coarse somewhere, since it needs more.
    static bool needsMoreTexturePatches();
    /// Each texel of what is drawn from now on is the average of so many samples, 1 at first, or of as many
    /// as the driver can. Edges become smooth, for 8 bytes on the card for each of them and each texel of one
    /// texture. What is drawn in main memory has one.
    static void setSamples(unsigned count);
    static unsigned getSamples();
    /// Number of textures drawn since the start, of patches and of views in motion.
    static unsigned long renderCount();
    /// Drops the canvas and all textures, which are made again when they are asked for. Done by itself at the
    /// end of the process.
    static void releaseSharedObjects();

protected:
    NBX::SO<NBX::TextureGL> requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                        const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                                        unsigned viewportHeight, double priority,
                                        const NBX::Vector3Base<double> & eye, double textureError,
                                        bool inMotion, bool asynchronous, bool & incomplete) const override;
    /// Whether anything is drawn in `area`, in the frame of the terrain and unbounded in height; asked with
    /// culling. Here: whether the box of a part of the scene meets it.
    virtual bool meets(const NBX::Bounds & area, NBX::EngineGL * engine) const;

private:
    friend class VectorTextureRenderer;
    struct Request;

    /// For reading.
    VectorTexture();

    const NBX::SO<NBX::TextureGL> & emptyTexture() const;
    NBX::SO<NBX::TextureGL> requestFast(const NBX::Bounds & box, NBX::EngineGL * engine) const;
    /// The patch itself, or the highest one above it whose texture is fine enough, at most as deep as
    /// textures go.
    NBX::SO<const GeometryPatch> serving(const GeometryPatch & patch, const Request & request) const;
    bool showsNothing(const NBX::SO<const GeometryPatch> & patch, NBX::EngineGL * engine) const;
    void map(const NBX::SO<const GeometryPatch> & patch) const;
    NBX::SO<NBX::TextureGL> find(const GeometryPatch & patch, const Request & request, double priority,
                                 bool & incomplete) const;
    void forgetPatches();

    NBX::SO<NBX::SceneNode> graph_;
    NBX::Bounds bbox_; ///< unbounded in height
    bool caching_ = true;
    bool culling_ = false;
    unsigned maxDepth_ = 0;
    NBX::SO<Mapper> mapper_;
    /// Of all that is seen while the view moves. Null until it is needed.
    mutable NBX::SO<NBX::Texture2DGL> fastTexture_;
    mutable NBX::Bounds fastBox_; ///< what it shows, unbounded in height
    /// Null until the first request.
    mutable NBX::SO<NBX::TextureGL> emptyTexture_;
};

/// A node of the quadtree: what one texture is drawn for, of one or several geometry patches.
class VectorTexture::Patch : public NBX::SharedObj {
    NBX_CLASS(Patch, NBX::SharedObj)
public:
    Patch(const VectorTexture * owner, const GeometryPatch * geometryPatch, unsigned depth);
    /// Takes itself out of the tables of the class.
    ~Patch() override;

    /// In the frame of the terrain; undefined once the geometry patch has gone.
    NBX::Bounds boundingBox() const;

    const VectorTexture * const owner; ///< outlives this
    const NBX::WO<const GeometryPatch> geometryPatch;
    const unsigned depth;          ///< 0 at the top
    unsigned long lastPicture = 0; ///< number of the picture that used its texture last
};

/// What is known of the geometry patches of one `VectorTexture`. It holds them, and lets go at the end of a
/// frame of those that nobody else does.
class VectorTexture::Mapper : public NBX::SharedObj {
    NBX_CLASS(Mapper, NBX::SharedObj)
public:
    using GeometryPatches = NBX::NonPersistentHashTable<NBX::SO<const GeometryPatch>>;
    using Patches = NBX::NonPersistentDictionary<NBX::SO<const GeometryPatch>, NBX::SO<Patch>>;

    Mapper();
    ~Mapper() override;

    void clear();
    /// Drops what nobody else holds.
    void dropUnused();

    const NBX::SO<Patches> patches;
    const NBX::SO<GeometryPatches> empty; ///< show nothing, neither they nor those below them
};

} // namespace ZMT::CORE
