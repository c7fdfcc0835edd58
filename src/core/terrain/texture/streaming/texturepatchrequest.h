#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <string>

#include <nbx/gl/texture/texturegl.h>
#include <nbx/math/bounds.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>
#include <nbx/object/wo.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/raster/geoimage.h>

#include "core/terrain/geometry/grid/model/blockretry.h"
#include "streamingtextureformat.h"

namespace ZMT::CORE {

/// Where a streaming texture lies.
struct TextureStream {
    NBX::SO<AsyncFile> file;
    std::uint64_t offset;   ///< of the stream in the file
    std::uint64_t dataSize; ///< of the stream
    std::uint64_t key;
};

/// A node of a streaming texture, which loads itself when it is asked for. The memory managers own its image
/// and its texture; the node watches them, and loads again when both are gone. Children stay once they are
/// known. A block that cannot be read, or does not validate, is asked for again after a while (`BlockRetry`).
/// Render thread.
class TexturePatchRequest : public NBX::SharedObj {
    NBX_CLASS(TexturePatchRequest, NBX::SharedObj)
public:
    using TileRef = StreamingTextureFormat::TileRef;
    using Children = std::array<NBX::SO<TexturePatchRequest>, StreamingTextureFormat::childCount>;
    using Point = NBX::Vector3Base<double>;

    TexturePatchRequest(const TextureStream & stream, const TileRef & ref, unsigned level);
    /// Ends its read.
    ~TexturePatchRequest() override;

    /// The texture, or null while it is on its way, which this call starts or moves on. With `force` it waits
    /// for it; null means then that it could not be read, now or a short while ago.
    NBX::SO<NBX::TextureGL> get(double priority, bool force);

    /// Squared side length in pixels of a texel at `eye`, in scene coordinates; 0 while the image is not in
    /// memory.
    double error(const NBX::ViewInfo & viewInfo, const Point & eye) const;
    /// The same by what the image was, when it has gone; 0 before it was there.
    double lastError(const NBX::ViewInfo & viewInfo, const Point & eye) const;

    /// Of the geometry patch, in geo coordinates, unbounded in height; undefined until the block was read.
    const NBX::Bounds & bounds() const { return bounds_; }
    /// Whether `box`, in geo coordinates, lies within the bounds in the plan, or fills them, but for what
    /// shifting coordinates may round.
    bool contains(const NBX::Bounds & box) const;
    bool isFilledBy(const NBX::Bounds & box) const;

    /// 0 at the root.
    unsigned level() const { return level_; }
    /// Null where there is none, and until the block was read.
    const Children & children() const { return children_; }
    bool hasChildren() const;
    /// The first child that contains `box`, or null.
    NBX::SO<TexturePatchRequest> childWith(const NBX::Bounds & box) const;
    /// The nodes of all textures whose last read failed.
    static const std::set<const TexturePatchRequest *> & failed();
    /// Those that were asked for and gave no texture, since `forgetMissing`; what came meanwhile is no longer
    /// among them.
    static unsigned countMissing();
    static void forgetMissing();
    /// Why that was, and when it may be asked for again, by `TextureTransfers::now`.
    const std::wstring & failure() const { return failure_; }
    /// Whether that still matters: the next try has not brought the block, and somebody may want it.
    bool isStillFailing() const;
    double retryTime() const { return askAgainAt_; }
    const TextureStream & stream() const { return stream_; }
    const TileRef & tileRef() const { return ref_; }

    /// Whether the image is younger than the frame.
    bool cameInThisFrame() const;
    bool hasImage() const { return bool(image_); }
    bool hasTexture() const { return bool(texture_); }

private:
    NBX::SO<NBX::TextureGL> find(double priority, bool force);
    NBX::SO<NBX::TextureGL> ensureTexture(bool force);
    void followSceneOrigin(NBX::TextureGL & texture);
    void load(double priority, bool force);
    void startLoad(double priority, bool force);
    void takeLoaded(bool force);
    bool finishLoad();
    bool takeBlock(const NBX::SO<NBX::DataResource> & block);
    void makeChildren(const StreamingTextureFormat::TileHeader & header);
    void fail(const std::wstring & reason, double pause);
    void succeed();
    void dropRequest();
    NBX::SO<NBX::DataResource> plainData(const NBX::SO<NBX::DataResource> & stored) const;

    const TextureStream stream_;
    const TileRef ref_;
    const unsigned level_;

    NBX::SO<AsyncFile::Request> request_; ///< under way, or null
    GRID::BlockRetry retry_;
    std::wstring failure_;         ///< the last one
    double askAgainAt_ = 0.0;      ///< after a failure; in seconds of `TextureTransfers::now`
    std::uint64_t imageFrame_ = 0; ///< in which it came
    double imageAgainAt_ = 0.0;    ///< for the sake of the image alone
    NBX::WO<RASTER::GeoImage> image_;
    NBX::WO<NBX::TextureGL> texture_;
    Point sceneOrigin_;                          ///< for which the texture's matrix is
    double pixelSizeX_ = 0.0, pixelSizeY_ = 0.0; ///< of the last image
    std::uint32_t textureSize_ = 0;              ///< bytes of the texture
    NBX::Bounds bounds_;
    Children children_;
};

} // namespace ZMT::CORE
