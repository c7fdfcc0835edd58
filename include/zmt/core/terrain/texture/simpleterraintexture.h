#pragma once

#include <nbx/math/matrix4x4base.h>
#include <zmt/core/terrain/texture/terraintexture.h>

namespace ZMT::CORE {

/// One texture draped over the whole terrain, or over one box of it.
class SimpleTerrainTexture : public TerrainTexture {
    NBX_STORED_CLASS(SimpleTerrainTexture, TerrainTexture)
public:
    using Matrix = NBX::Matrix4x4Base<double>;

    /// Nothing to show until it is read.
    SimpleTerrainTexture();
    /// Takes over the filters of `texture`. `bbox` and `textureMatrix` are as for their setters.
    SimpleTerrainTexture(NBX::SO<NBX::TextureGL> texture, const NBX::Bounds & bbox,
                         const Matrix & textureMatrix);

    bool refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                unsigned viewportHeight, const NBX::Vector3Base<double> & eye, double textureError,
                bool inMotion) const override;
    NBX::Bounds boundingBox() const override { return bbox_; }

    virtual NBX::TextureGL * texture() const { return texture_.get(); }
    /// The box, in scene coordinates, that the unit square of the texture covers; its heights do not count.
    /// An undefined one lets the texture matrix work on the scene's x and z as it is. A box without area
    /// shows nothing.
    virtual void setBoundingBox(const NBX::Bounds & box);
    /// Works on the unit square that the box maps to.
    virtual Matrix textureMatrix() const { return textureMatrix_; }
    virtual void setTextureMatrix(const Matrix & matrix);

    void serialize(NBX::SerializationManager & m) override;

protected:
    NBX::SO<NBX::TextureGL> requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                        const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                                        unsigned viewportHeight, double priority,
                                        const NBX::Vector3Base<double> & eye, double textureError,
                                        bool inMotion, bool asynchronous, bool & incomplete) const override;

private:
    void setMapping(const Matrix & mapping);

    NBX::SO<NBX::TextureGL> texture_;
    Matrix textureMatrix_;
    NBX::Bounds bbox_;
    /// Set once the texture carries a usable matrix.
    bool mappingValid_ = false;
};

} // namespace ZMT::CORE
