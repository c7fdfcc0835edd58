#pragma once

#include <nbx/gl/texture/texturegl.h>
#include <nbx/math/bounds.h>
#include <nbx/object/so.h>

namespace NBX {
class EngineGL;
class ViewInfo;
} // namespace NBX

namespace ZMT::CORE {

class GeometryPatch;

/// Something that shows on a terrain: answers for one patch at a time with a texture, and says whether the
/// patch should be split for its sake.
///
/// `refine` and `request` are called by the terrain's painter, on the render thread, inside a frame. Their
/// arguments are the same everywhere:
/// - `patch`: what is about to be drawn; `engine`: that of the frame;
/// - `viewInfo`: the view, in the frame of the patches;
/// - `viewportWidth`, `viewportHeight`: in pixels;
/// - `priority`: starting weight of a streaming request, 1.0 from the painter;
/// - `eye`: the point of the patch's box nearest to the viewer, in the same frame, where the screen size of a
///   texel is measured;
/// - `textureError`: allowed screen size of a texel, in pixels;
/// - `inMotion`: the view is being navigated in this frame;
/// - `asynchronous`: missing data may come later; otherwise it must come now;
/// - `incomplete`: set to true by a texture that gives something coarser than it wanted, never to false.
class TerrainTexture : public NBX::SharedObj {
    NBX_CLASS(TerrainTexture, NBX::SharedObj)
public:
    using FilterMode = NBX::TextureGL::FilterMode;

    /// The filters that every texture handed out is set to. Setting another value calls `modified()`.
    virtual void minFilter(FilterMode mode);
    virtual FilterMode minFilter() const { return minFilter_; }
    virtual void magFilter(FilterMode mode);
    virtual FilterMode magFilter() const { return magFilter_; }

    /// True when this texture wants the patch split, even if its geometry would not.
    virtual bool refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                        unsigned viewportHeight, const NBX::Vector3Base<double> & eye, double textureError,
                        bool inMotion) const = 0;
    /// Where the texture has data, in scene coordinates, unbounded in height; undefined means everywhere.
    virtual NBX::Bounds boundingBox() const = 0;

    /// The texture for `patch`, its filters and its matrix set; the matrix maps the scene's (x, z) on to it.
    /// Null when there is nothing to show.
    NBX::SO<NBX::TextureGL> request(const GeometryPatch * patch, NBX::EngineGL * engine,
                                    const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                                    unsigned viewportHeight, double priority,
                                    const NBX::Vector3Base<double> & eye, double textureError, bool inMotion,
                                    bool asynchronous, bool & incomplete) const;

    void serialize(NBX::SerializationManager & m) override;

protected:
    TerrainTexture(FilterMode minFilter, FilterMode magFilter)
        : minFilter_(minFilter), magFilter_(magFilter) {}

    /// As `request`, without the filters.
    virtual NBX::SO<NBX::TextureGL> requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                                const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                                                unsigned viewportHeight, double priority,
                                                const NBX::Vector3Base<double> & eye, double textureError,
                                                bool inMotion, bool asynchronous,
                                                bool & incomplete) const = 0;

    FilterMode minFilter_;
    FilterMode magFilter_;
};

} // namespace ZMT::CORE
