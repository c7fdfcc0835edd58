// Any bytes as a streaming texture: no crash, no hang, no memory beyond what the bytes justify.

#include <cstddef>
#include <cstdint>

#include <nbx/data/memorydataresource.h>
#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>
#include <zmt/core/terrain/texture/terraintexture.h>

namespace {

using Point = NBX::Vector3Base<double>;

/// A box, of which the texture shows what it has.
class Patch : public ZMT::CORE::GeometryPatch {
    NBX_TEMPLATE_CLASS(Patch, ZMT::CORE::GeometryPatch)
public:
    explicit Patch(const NBX::Bounds & box) : GeometryPatch(box, 0.0, 0.0, nullptr) {}
    NBX::SO<ZMT::CORE::GeometryData> data() const override { return nullptr; }
};

void look(const ZMT::CORE::TerrainTexture & texture, const NBX::Bounds & whole) {
    static const NBX::SO<NBX::ViewInfo> view(new NBX::ViewInfo(
        NBX::Matrix4x4Base<double>(), NBX::Matrix4x4Base<double>(), NBX::Area(0, 0, 100, 100)));
    for (const double share : {1.0, 0.3, 0.01}) {
        const Point low = whole.getLLF(), size = whole.diagonal() * share;
        const NBX::SO<Patch> patch(new Patch({{low.x, 0.0, low.z}, {low.x + size.x, 1.0, low.z + size.z}}));
        texture.refine(patch.get(), view.get(), 100, 100, {}, 0.0, false);
        bool incomplete = false;
        if (!texture.request(patch.get(), nullptr, view.get(), 100, 100, 1.0, {}, 0.0, false, false,
                             incomplete))
            __builtin_trap();
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    NBX::ErrorHandler::setHandler([](const NBX::ErrorReport &) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t * data, std::size_t size) {
    using namespace ZMT::CORE;
    const NBX::SO<NBX::DataResource> bytes(
        new NBX::MemoryDataResource(data, static_cast<unsigned>(size), false));
    const auto texture = AsyncQuadtreeTerrainTexture::load(AsyncFile::create(bytes), 0, 0);
    if (texture) {
        const NBX::Bounds box = texture->boundingBox();
        if (box.isDefined()) look(*texture, box);
    }
    NBX::MainMemoryManager::instance()->clear();
    NBX::GraphicsMemoryManager::instance()->clear();
    return 0;
}
