#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <zmt/core/terrain/frame/localframe.h>
#include <zmt/core/terrain/texture/vector/vectortexture.h>
#include <zmt/core/vector/vectoroverlay.h>

namespace ZMT::CORE {

/// Drapes overlays over a terrain, all of them in one texture for each patch. The features of each texture
/// are read when it is drawn, with shapes as exact as half a texel.
///
/// An overlay covers those before it. Within one its areas come first, then lines, symbols, and labels that
/// lie on the ground; among areas, and among lines, those of a rule above cover those of the rules below it.
/// What has one colour in one overlay does not add up where it overlaps: a line that crosses itself is as
/// translucent there as anywhere else. Different colours are blended, so that a translucent outline shows
/// the fill below it. The opacity of the overlay multiplies that of each colour.
///
/// Patches where no overlay has a feature cost nothing. Only the render thread may use it.
class VectorOverlayTexture : public VectorTexture {
    NBX_CLASS(VectorOverlayTexture, VectorTexture)
public:
    using Overlays = std::vector<NBX::SO<VectorOverlay>>;
    static constexpr unsigned usualDepth = 24;

    /// `overlays` from the lowest to the highest. `frame` is that of the terrain, `bbox` its box in that
    /// frame.
    VectorOverlayTexture(Overlays overlays, const LocalFrame & frame, const NBX::Bounds & bbox,
                         unsigned maxDepth = usualDepth);
    ~VectorOverlayTexture() override;

    const Overlays & overlays() const { return overlays_; }
    /// Drops the textures, as every change of an overlay does at the next request.
    void setOverlays(Overlays overlays);
    const LocalFrame & frame() const { return frame_; }

    /// Texels are at most so many pixels of the screen large, however large the view allows them to be, and
    /// sizes that styles give in pixels are those of the screen: what is drawn is 0.75 to 1.5 times as large.
    /// 0, the usual value, leaves the size of the texels to the view; sizes are in texels then. Drops the
    /// textures where that changes.
    void setLargestTexel(double pixels);
    double largestTexel() const { return largestTexel_; }

    bool refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                unsigned viewportHeight, const NBX::Vector3Base<double> & eye, double textureError,
                bool inMotion) const override;
    void render(NBX::GLCanvas * canvas, const NBX::Bounds & bbox) const override;

    /// How many textures of `size` by `size` texels in the internal format of the class fit into `bytes`,
    /// with their smaller levels; at least 1. For `VectorTexture::setMaxTexturePatches`.
    static unsigned texturesFor(std::uint64_t bytes, unsigned size, unsigned internalFormat);

protected:
    NBX::SO<NBX::TextureGL> requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                        const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                                        unsigned viewportHeight, double priority,
                                        const NBX::Vector3Base<double> & eye, double textureError,
                                        bool inMotion, bool asynchronous, bool & incomplete) const override;
    bool meets(const NBX::Bounds & area, NBX::EngineGL * engine) const override;

private:
    std::uint64_t stateNo() const;
    double allowed(double textureError) const;
    /// Texels in a pixel of styles.
    double scale() const;

    Overlays overlays_;
    LocalFrame frame_;
    double largestTexel_ = 0.0;              ///< in pixels of the screen; 0 where the view decides
    mutable std::uint64_t drawnStateNo_ = 0; ///< of the overlays when textures were dropped last
};

} // namespace ZMT::CORE
