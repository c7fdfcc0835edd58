// Drawing of atlases, from the outside inwards: first every triangle widened by the whole border, then by one
// texel less, and at last the triangles themselves, each pass over what was there before. So the border of a
// patch continues its outermost triangles, and inside of it nobody's border shows.

#include "textureatlasgenerator.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/gl/state/framebuffergl.h>
#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/gl/texture/texenvgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/math/algorithmimpl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/camera.h>

#include "trianglecorners.h"

namespace ZMT::CORE {

namespace {

using Vector = TextureAtlasGenerator::Vector;
using Vectors = TextureAtlasGenerator::Vectors;
using Triangles = TextureAtlasGenerator::Triangles;
using Groups = TextureAtlasGenerator::Groups;
using Textures = TextureAtlasGenerator::Textures;
using Matrix = NBX::AlgorithmImpl::Matrix;
using Corners = std::array<Vector, 3>;

constexpr int s_withoutTexture = -1;

/// A triangle of the atlas, in the plane of x (s) and z (t) with y downwards from the surface, so that the
/// highest is the nearest. Counter-clockwise.
struct AtlasTriangle {
    Corners corners;
    Matrix toSource; ///< from a place in the plane to texture coordinates
};

/// What one texture is drawn on.
struct TexturePass {
    std::vector<AtlasTriangle> triangles;
};
using TexturePasses = std::map<int, TexturePass>;

/// False for a triangle without area on the atlas, which has no place there.
bool newAtlasTriangle(const Corners & atlasCoords, Corners texCoords, AtlasTriangle & triangle) {
    Corners flat;
    for (unsigned i = 0; i < 3; ++i) {
        triangle.corners[i] = {atlasCoords[i].x, -atlasCoords[i].z, atlasCoords[i].y};
        flat[i] = {atlasCoords[i].x, 0.0, atlasCoords[i].y};
    }
    if (NBX::AlgorithmImpl::signedArea(flat) < 0.0) {
        std::swap(triangle.corners[1], triangle.corners[2]);
        std::swap(flat[1], flat[2]);
        std::swap(texCoords[1], texCoords[2]);
    }
    triangle.toSource = NBX::AlgorithmImpl::computeVertexTf(flat, texCoords);
    return std::isfinite(triangle.toSource(0, 0));
}

/// Corners of polygons on the atlas with the texture coordinates that belong there.
class PassMesh {
public:
    explicit PassMesh(const AtlasTriangle * triangle = nullptr) : triangle_(triangle) {}

    void begin(const AtlasTriangle & triangle) { triangle_ = &triangle; }
    void append(const Vector & p) {
        vertices_.emplace_back(p.x, p.z, p.y);
        texCoords_.push_back(triangle_->toSource * p);
    }
    void appendQuad(const Vector & a, const Vector & b, const Vector & c, const Vector & d) {
        for (const Vector * p : {&a, &b, &c, &a, &c, &d})
            append(*p);
    }
    const std::vector<Vector> & vertices() const { return vertices_; }
    NBX::SO<NBX::PolygonSet> newPolygonSet() {
        const NBX::SO<NBX::PolygonSet> set(
            new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, new NBX::Array<Vector>(std::move(vertices_))));
        set->setTextureIterator(new NBX::Array<Vector>(std::move(texCoords_)));
        return set;
    }

private:
    const AtlasTriangle * triangle_;
    std::vector<Vector> vertices_, texCoords_;
};

/// A strip along each edge, `width` outwards, and a square of that size around each corner.
void appendWidening(const AtlasTriangle & triangle, double width, PassMesh & mesh) {
    const double half = width / 2.0;
    for (unsigned i = 0; i < 3; ++i) {
        const Vector & a = triangle.corners[i];
        const Vector & b = triangle.corners[(i + 1) % 3];
        const Vector outwards = NBX::AlgorithmImpl::getEdgeNormal(a, b) * width;
        mesh.appendQuad(a, b, b + outwards, a + outwards);
        mesh.appendQuad(a + Vector(-half, 0.0, -half), a + Vector(half, 0.0, -half),
                        a + Vector(half, 0.0, half), a + Vector(-half, 0.0, half));
    }
}

NBX::SO<NBX::PolygonSet> newPass(const TexturePass & part, double width) {
    PassMesh mesh;
    for (const AtlasTriangle & triangle : part.triangles) {
        mesh.begin(triangle);
        if (width > 0.0)
            appendWidening(triangle, width, mesh);
        else
            for (const Vector & corner : triangle.corners)
                mesh.append(corner);
    }
    return mesh.newPolygonSet();
}

/// The triangles that have a place, by their texture.
TexturePasses partsOf(const Vectors & texCoords, const Triangles * textureNumbers,
                      const Vectors & atlasCoords, const Groups * patches) {
    const TriangleCorners source(texCoords), atlas(atlasCoords);
    TexturePasses parts;
    const auto append = [&](int triangle) {
        AtlasTriangle made;
        if (!source.contains(triangle) || !atlas.contains(triangle) ||
            !newAtlasTriangle(atlas[triangle], source[triangle], made))
            return;
        const auto i = static_cast<unsigned>(triangle);
        const int number =
            textureNumbers && i < textureNumbers->size() ? textureNumbers->get(i) : s_withoutTexture;
        parts[std::max(number, s_withoutTexture)].triangles.push_back(made);
    };
    if (!patches)
        for (int triangle = 0; triangle < atlas.size(); ++triangle)
            append(triangle);
    for (unsigned i = 0; patches && i < patches->size(); ++i)
        if (const NBX::SO<Triangles> patch = patches->get(i))
            for (const int triangle : *patch)
                append(triangle);
    return parts;
}

/// From the lowest to the highest thing in z, as it is drawn; 0 to 0 without anything.
std::pair<double, double> depthsOf(const TexturePasses & parts) {
    NBX::Bounds box;
    for (const auto & [number, part] : parts)
        for (const AtlasTriangle & triangle : part.triangles)
            for (const Vector & corner : triangle.corners)
                box += corner;
    return box.isDefined() ? std::pair(box.getLLF().y, box.getURB().y) : std::pair(0.0, 0.0);
}

using HeldTextures = std::map<int, NBX::SO<NBX::ImageTexture2DGL>>;

HeldTextures texturesOf(const TexturePasses & parts, const Textures * textures) {
    HeldTextures held;
    for (const auto & [number, part] : parts)
        if (number >= 0 && textures && static_cast<unsigned>(number) < textures->size())
            held[number] = textures->get(static_cast<unsigned>(number));
    return held;
}

/// One pass, whose meshes exist while it is drawn: all passes together take kilobytes for each triangle.
class PassNode : public NBX::SceneNode {
    NBX_TEMPLATE_CLASS(PassNode, NBX::SceneNode)
public:
    PassNode(const TexturePasses & parts, const HeldTextures & textures, double width)
        : parts_(parts), textures_(textures), width_(width) {}

    void evaluate(NBX::Engine * engine) override {
        for (const auto & [number, part] : parts_) {
            const NBX::SO<NBX::SceneThing> node(new NBX::SceneThing);
            const auto texture = textures_.find(number);
            if (texture != textures_.end() && texture->second) node->append(texture->second.get());
            node->append(newPass(part, width_).get());
            node->evaluate(engine);
        }
    }
    NBX::Bounds boundingBox(NBX::Engine *) override { return {}; }

private:
    const TexturePasses & parts_;
    const HeldTextures & textures_;
    double width_;
};

/// Borrows what it draws.
NBX::SO<NBX::SceneThing> newScene(const TexturePasses & parts, const HeldTextures & textures, int border,
                                  unsigned atlasSize) {
    const auto [zmin, zmax] = depthsOf(parts);
    NBX::SO<NBX::SceneThing> scene(new NBX::SceneThing);
    scene->append(NBX::Camera::newNormalizedDeviceCoordsCamera(0, 1, 0, 1, zmin - 0.1, zmax + 0.1).get());
    scene->append(new NBX::LightModelGL(NBX::LightModelGL::M_Ambient, NBX::Color::black));
    scene->append(new NBX::ColorAttribute(NBX::Color::white));
    scene->append(new NBX::TexEnvGL(NBX::TexEnvGL::M_Replace));
    const NBX::SO<NBX::FrameBufferGL> clearDepth(
        new NBX::FrameBufferGL(NBX::FrameBufferGL::M_Depth, NBX::FrameBufferGL::O_Clear));
    for (int pass = border; pass >= 0; --pass) {
        scene->append(new PassNode(parts, textures, double(pass) / atlasSize));
        scene->append(clearDepth.get());
    }
    return scene;
}

bool anyHasAlpha(const HeldTextures & textures) {
    return std::any_of(textures.begin(), textures.end(),
                       [](const auto & held) { return held.second && held.second->hasAlpha(); });
}

} // namespace

NBX::SO<NBX::Image>
TextureAtlasGenerator::renderTextureAtlas(const Vectors * vertices, const Vectors * texCoords,
                                          const Triangles * textureNumbers, const Textures * textures,
                                          const Vectors * atlasCoords, int border, NBX::GLCanvas * canvas) {
    return renderTextureAtlas(vertices, texCoords, textureNumbers, textures, atlasCoords, nullptr, border,
                              canvas);
}

NBX::SO<NBX::Image> TextureAtlasGenerator::renderTextureAtlas(
    const Vectors *, const Vectors * texCoords, const Triangles * textureNumbers, const Textures * textures,
    const Vectors * atlasCoords, const Groups * patches, int border, NBX::GLCanvas * canvas) {
    if (!texCoords) NBX_FAILURE(L"no texture coordinates");
    NBX_CHECK(atlasCoords, L"no iterator");
    NBX_CHECK(canvas, L"no canvas");
    if (!texCoords || !atlasCoords || !canvas) return nullptr;
    const TexturePasses parts = partsOf(*texCoords, textureNumbers, *atlasCoords, patches);
    const HeldTextures held = texturesOf(parts, textures);
    const NBX::SO<NBX::SceneThing> scene = newScene(parts, held, border, canvas->getWidth());
    canvas->append(scene.get());
    canvas->redisplay();
    canvas->remove(scene.get());
    const NBX::SO<NBX::Image> image(new NBX::MemoryImage(static_cast<int>(canvas->getWidth()),
                                                         static_cast<int>(canvas->getHeight()),
                                                         anyHasAlpha(held) ? NBX::LS_RGBA : NBX::LS_RGB));
    return canvas->snapshot(image.get()) ? image : nullptr;
}

} // namespace ZMT::CORE
