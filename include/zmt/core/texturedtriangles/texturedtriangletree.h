#pragma once

#include <memory>
#include <string>
#include <vector>

#include <nbx/object/wo.h>
#include <nbx/scene/shape/shape.h>
#include <zmt/core/texturedtriangles/rendernode.h>

namespace NBX {
class GLCanvas;
class SceneNode;
class SceneThing;
} // namespace NBX

namespace ZMT::CORE {

class RayLeaves;
class TTTMemoryController;

/// Textured triangles, such as those of a city, as a quadtree of texture atlases, which is drawn with level
/// of detail by distance. Atlases lie in one paging file for each layer, and come while the tree is looked
/// at.
///
/// Vertices are floats in the frame of the tree: a tree in map coordinates stands under a transformation that
/// holds its origin. After it was made it belongs to the render thread.
class TexturedTriangleTree : public NBX::Shape {
    NBX_STORED_CLASS(TexturedTriangleTree, NBX::Shape)
public:
    /// How the textures of a layer are coded in its paging file, and uploaded.
    enum TextureFormat {
        TextureFormatRGBA8 = 0,      ///< mipmaps, 4 bytes a texel
        TextureFormatLuminance8 = 1, ///< mipmaps, 1 byte a texel
        TextureFormatRGBA5551 = 2,   ///< mipmaps, 2 bytes a texel
        TextureFormatDXT1 = 3,       ///< mipmaps of blocks, down to 4 texels an edge
        TextureFormatJPEG = 4        ///< mipmaps that are decoded to `TextureFormatDXT1`
    };
    /// Largest edge of an atlas that a stored tree may tell.
    static constexpr int s_maxAtlasSize = 1 << 15;

    /// Without triangles or layers, for reading.
    TexturedTriangleTree();
    /// Shares meshes and root atlases. The nodes are its own: what is loaded for one tree is that tree's.
    TexturedTriangleTree(const TexturedTriangleTree & other);
    /// Builds the tree of a scene, and writes the paging file of its first layer. `distance` in world units,
    /// `fieldOfView` in degrees, `screenSize` in pixels and `quality` together give the world units for a
    /// texel of the finest atlases; `atlasSize` is the edge of an atlas in texels. `tempBase` has no effect.
    /// Atlases are drawn on `canvas`, which is resized; null makes one. With `createAlphaTextures` it needs
    /// an alpha buffer, else that is reported. Without textures the tree has `getUntexturedGeometry()` alone.
    TexturedTriangleTree(NBX::SO<NBX::SceneThing> scene, double distance, bool createAlphaTextures,
                         const std::wstring & pagingFile, const std::wstring & tempBase, double quality,
                         int screenSize, double fieldOfView, int atlasSize, NBX::SO<NBX::GLCanvas> canvas);
    ~TexturedTriangleTree() override;

    /// The scene that shows `scene` by two trees, the opaque one and the one that is seen through. The paging
    /// files stand beside `fileName`, whose extension gets "opaque." and "trans." in front.
    static NBX::SO<NBX::SceneThing> createOptimizedScene(NBX::SO<NBX::SceneNode> scene, double distance,
                                                         const std::wstring & fileName, bool flag,
                                                         double quality, int screenSize, double fieldOfView,
                                                         int atlasSize, NBX::SO<NBX::GLCanvas> canvas);

    /// The format of trees that are built; at first `TextureFormatRGBA5551`.
    static TextureFormat getDefaultTextureFormat() { return s_defaultTextureFormat; }
    static void setDefaultTextureFormat(TextureFormat format) { s_defaultTextureFormat = format; }
    /// Whether triangles get texels of their own in place of whole source textures; at first not.
    static bool uniqueTextureParameterizationEnforced() { return s_enforceUniqueTextureParameterization; }
    static void enforceUniqueTextureParameterization(bool enforce) {
        s_enforceUniqueTextureParameterization = enforce;
    }
    /// Whether building tells its steps on the standard output; at first not.
    static bool getVerbose() { return s_verbose; }
    static void setVerbose(bool verbose) { s_verbose = verbose; }

    /// Null without textured triangles.
    const NBX::SO<RenderTree> & getRenderTree() const { return renderTree_; }
    void setRenderTree(NBX::SO<RenderTree> tree);
    /// The render tree as rays find it; null without one. Made when a ray asks, first or after
    /// `geometryChanged()`.
    std::shared_ptr<const RayLeaves> rayLeaves() const;
    /// Bytes of what was made for rays, which grows while they get to more leaves; 0 as long as none asked.
    std::size_t rayBytes() const;
    /// To be called after boxes or triangles of nodes have changed: rays meet them as they are from now on,
    /// which `modified()` alone does not bring about.
    void geometryChanged();
    /// All triangles without a texture; null when there are none.
    const NBX::SO<NBX::MappedVertexAttributeShapeGL> & getUntexturedGeometry() const {
        return untexturedGeometry_;
    }
    void setUntexturedGeometry(NBX::SO<NBX::MappedVertexAttributeShapeGL> geometry);
    /// Edge of the atlases in texels.
    int getAtlasSize() const { return atlasSize_; }
    void setAtlasSize(int atlasSize);

    /// Number of paging files.
    int getNumberOfLayers() const { return int(pagingFiles_.size()); }
    /// Empty for a layer that is not there.
    std::wstring getPagingFile(int layer) const;
    /// A layer that is not there is reported, and nothing changes.
    void changePagingFileName(const std::wstring & pagingFile, int layer);
    /// The texture of the root that is always in memory; null for a layer that is not there.
    NBX::SO<NBX::SharedObj> getRootAtlas(int layer) const;
    /// For a layer that is not there, which is reported: 2, nothing and false.
    TextureFormat getLayerFormat(int layer) const;
    void setLayerEnabled(int layer, bool enabled);
    bool getLayerEnabled(int layer) const;
    /// Enters a layer, and enables it; layers between are made without file and texture, format 0, disabled.
    /// A `StreamTexture` keeps its data from now on. A layer below 0 is reported, and left out.
    void registerTextureLayer(int layer, const std::wstring & pagingFile, NBX::SO<NBX::SharedObj> rootTexture,
                              TextureFormat format);
    /// Whether the atlases of the first layer have an alpha channel.
    bool useAlphaTextures() const;

    /// Whether levels of detail are blended into each other; at first not.
    bool getBlendingMode() const { return blendingMode_; }
    void setBlendingMode(bool blend);
    /// Multiplies the distances at which nodes are replaced by finer ones; at first 1.
    double getQualityFactor() const { return qualityFactor_; }
    void setQualityFactor(double factor);
    /// Nodes farther away than this, in world units, are not drawn where the limit is enabled.
    double maxDistance() const { return maxDistance_; }
    bool maxDistanceEnabled() const { return maxDistanceEnabled_; }
    void enableMaxDistance(double distance);
    void disableMaxDistance();

    /// Who is told when the tree goes: the controller that knows it. A tree that nobody has drawn tells
    /// nobody, so that it may go on another thread than the render thread.
    void setMemoryController(TTTMemoryController * controller);

    /// Attributes in this order: "version", "renderTree" (default null), "untexturedGeometry" (null),
    /// "maxDistanceEnabled" (false), "maxDistance" (0), "pagingFiles", "atlasSize", "rootAtlases",
    /// "blendingMode" (false), "layerFormats" (empty), "qualityFactor" (1.0), "layerEnabled" (all set).
    /// Version 0, that of a stream without one, has "usesTextureCompression" (false), and no version before 2
    /// has "layerEnabled". Throws `IOError` for formats and sizes that cannot be.
    void serialize(NBX::SerializationManager & m) override;

    /// The box of the untextured geometry and of the root node.
    NBX::Bounds boundingBox() const override;

private:
    bool hasLayer(int layer, std::size_t layers) const;
    void serializeLayers(NBX::SerializationManager & m, int version);
    void takeRootAtlases();

    static TextureFormat s_defaultTextureFormat;
    static bool s_enforceUniqueTextureParameterization;
    static bool s_verbose;

    NBX::SO<NBX::MappedVertexAttributeShapeGL> untexturedGeometry_;
    bool maxDistanceEnabled_ = false;
    double maxDistance_ = 0.0;
    std::vector<std::wstring> pagingFiles_; ///< by layer, as are the other vectors
    int atlasSize_ = 0;
    std::vector<NBX::SO<NBX::SharedObj>> rootAtlases_;
    std::vector<bool> layerEnabled_;
    double qualityFactor_ = 1.0;
    bool blendingMode_ = false;
    NBX::WO<TTTMemoryController> memoryController_;
    NBX::SO<RenderTree> renderTree_;
    struct LazyRayLeaves;
    std::unique_ptr<LazyRayLeaves> rayLeaves_;
    std::vector<TextureFormat> layerFormats_;
};

} // namespace ZMT::CORE
